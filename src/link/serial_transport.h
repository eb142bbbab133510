// The serial transport: the link's own serial line (its port, its frame
// parser, ACK and NAK) seen through the transport seam. Packets that arrive
// go up from the link's receive path as the port's receive event reads them.
#pragma once

#include "link/link.h"
#include "link/transport.h"

namespace trekcom::link {

class Serial_Transport final : public Transport {
public:
    explicit Serial_Transport(Link& link) : link_(link) {}

    bool Open() override { return link_.Open_Serial(); }
    void Close() override { link_.Close_Serial(); }
    bool Is_Open() const override { return link_.port_.PortOpen(); }
    // A closed port opens itself for the next packet.
    void Prepare() override {
        if (!Is_Open()) link_.PortOpen();
    }
    bool Write(const Packet& packet) override {
        link_.Write_Wire(packet);
        return Is_Open();
    }
    bool Await(const Packet&, std::uint8_t expected, std::int32_t wait_time) override {
        return link_.Wait_Response(expected, wait_time);
    }

private:
    Link& link_;
};

}  // namespace trekcom::link
