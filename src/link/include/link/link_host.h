// What the link needs from the layers above it: the host's events, the
// dispatcher, translation, the protocol engine's error latch and the
// text-line handler. The control implements it.
#pragma once

#include <cstdint>
#include <string>

#include "trekcom/types.h"

namespace trekcom::link {

class Link_Host {
public:
    virtual ~Link_Host() = default;

    // Receive then vcReceive, with the packet and its text form.
    virtual void Raise_Receive(const Bytes& packet) = 0;
    // cError then vcError; the message is already translated.
    virtual void Raise_Error(std::int16_t code, const std::string& message, const Bytes& packet) = 0;
    // The same, with the code the host's handlers leave read back (0 when
    // nobody listens): a device search goes on while the host keeps it at 4.
    virtual void Ask_Error(std::int16_t& code, const std::string& message, const Bytes& packet) = 0;
    virtual void Raise_HexDebug(const std::string& text) = 0;

    // Every good application packet that is not an ACK or NAK.
    virtual void Dispatch_Packet(const Bytes& packet) = 0;
    // A complete NMEA sentence or text line, cut from the receive buffer.
    // text_line: the buffer held an "@" (text lines carry no checksum).
    virtual void Line_Received(const std::string& line, bool text_line) = 0;

    virtual std::string xLate(const std::string& phrase) = 0;
    virtual void Clear_Error_Latch() = 0;
};

}  // namespace trekcom::link
