// What the link needs from the layers above it: the host's events, the
// dispatcher, translation, the protocol engine's error latch, the text-line
// handler and the USB transport. The control implements it.
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
    virtual void Raise_HexDebug(const std::string& text) = 0;

    // Every good application packet that is not an ACK or NAK.
    virtual void Dispatch_Packet(const Bytes& packet) = 0;
    // A complete NMEA sentence or text line, cut from the receive buffer.
    // text_line: the buffer held an "@" (text lines carry no checksum).
    virtual void Line_Received(const std::string& line, bool text_line) = 0;

    virtual std::string xLate(const std::string& phrase) = 0;
    virtual void Clear_Error_Latch() = 0;

    // The USB path (Port 0). Without a USB transport these fail.
    virtual bool USB_Open() { return false; }
    virtual void USB_Close() {}
    virtual bool USB_Write(const Bytes& packet) { (void)packet; return false; }
    // Reads the transport's reply until a packet with id `expected` arrives.
    virtual bool USB_Wait(std::uint8_t expected, std::int32_t wait_time) {
        (void)expected;
        (void)wait_time;
        return false;
    }
    // One read of whatever the receiver has sent (the timers' USB poll:
    // tmrPVTData and tmrAsync call this on Port 0). Received packets go to
    // Dispatch_Packet. Returns whether anything was read.
    virtual bool USB_Poll() { return false; }
};

}  // namespace trekcom::link
