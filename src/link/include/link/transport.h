// The seam between the command exchange and a receiver: a transport moves
// application packets (an id and data) to and from one unit. The serial
// transport frames them, acknowledges and refuses them on a serial port; the
// USB transport wraps them in USB packets and reads the device's pipes. Every
// packet that arrives goes up through the link's host as it comes, in the
// serial form the host's events carry.
//
// The exchange above never asks which transport it has: the link picks one
// when the port is chosen, and asks it only what this interface offers.
#pragma once

#include <cstdint>

#include "link/packet.h"

namespace trekcom::link {

class Transport {
public:
    virtual ~Transport() = default;

    virtual bool Open() = 0;
    virtual void Close() = 0;
    virtual bool Is_Open() const = 0;
    // Called before each packet goes out: a transport that opens itself on
    // demand does so here.
    virtual void Prepare() {}
    // Writes one packet. False when it could not be written.
    virtual bool Write(const Packet& packet) = 0;
    // Reads until a packet with id `expected` has arrived (and gone up), or
    // the wait (a link wait value) is over. `sent` is what it answers.
    virtual bool Await(const Packet& sent, std::uint8_t expected, std::int32_t wait_time) = 0;
    // Readies an open unit to be identified. False (reported) when it cannot be.
    virtual bool Start_Session() { return true; }
    // A transport whose packets arrive only when read: the real-time timers
    // then Poll() it once a tick instead of waiting for them.
    virtual bool Needs_Polling() const { return false; }
    virtual void Poll() {}
};

}  // namespace trekcom::link
