// The USB transport: the exchange's packets over a cUSB, and the handlers of
// its events. Packets that arrive go up as the serial transport's do
// (traced, dispatched, raised); USB has no ACK or NAK, so nothing answers
// them here.
#pragma once

#include "link/link.h"
#include "link/transport.h"
#include "trekcom/cUSB.h"

namespace trekcom::link {

class Usb_Transport final : public Transport, private cUSBEvents {
public:
    Usb_Transport(Link& link, Link_Host& host, const Packet_Ids& ids, Platform& platform, cUSB& usb);
    ~Usb_Transport() override;
    Usb_Transport(const Usb_Transport&) = delete;
    Usb_Transport& operator=(const Usb_Transport&) = delete;

    bool Open() override { return usb_.Open(); }
    void Close() override { usb_.Close(); }
    bool Is_Open() const override { return usb_.Is_Open(); }
    bool Write(const Packet& packet) override;
    bool Await(const Packet& sent, std::uint8_t expected, std::int32_t wait_time) override;
    // Opens the unit if need be and starts a session; a session that does
    // not start gets one device reset and one more try.
    bool Start_Session() override;
    bool Needs_Polling() const override { return true; }
    // One read of what the unit has ready: never a wait.
    void Poll() override;
    // No more events reach the control from here.
    void Detach() { usb_.Unadvise(); }

private:
    void USBReceived(Bytes& Packet, Bytes& usbpacket) override;
    void USBSent(Bytes& usbpacket) override;
    void USBDebug(std::string& Text) override;
    void USBError(std::int16_t& seq, std::string& message, Bytes& Packet) override;

    Link& link_;
    Link_Host& host_;
    const Packet_Ids& ids_;
    Platform& platform_;
    cUSB& usb_;
};

}  // namespace trekcom::link
