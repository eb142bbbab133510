#include "usb_transport.h"

#include <algorithm>

#include "../trace.h"
#include "link/little_endian.h"

namespace trekcom::link {

Usb_Transport::Usb_Transport(Link& link, Link_Host& host, const Packet_Ids& ids, Platform& platform, cUSB& usb)
    : link_(link), host_(host), ids_(ids), platform_(platform), usb_(usb) {
    usb_.Advise(*this);
}

Usb_Transport::~Usb_Transport() { usb_.Unadvise(); }

bool Usb_Transport::Write(const Packet& packet) {
    // A USB packet carries as much data as its serial frame would announce.
    const std::size_t size = std::min(packet.Announced_Size(), packet.data.size());
    return usb_.Write_Usb_Packet(cUSB::Usb_Form(packet.id, packet.data.data(), static_cast<std::uint32_t>(size)));
}

bool Usb_Transport::Await(const Packet& sent, std::uint8_t expected, std::int32_t wait_time) {
    if (wait_time < 1) wait_time = link_.Time_Out();
    const double until = platform_.Now_ms() + Link::Wait_Period_ms(wait_time);
    bool came = false;
    {
        // The timers' polls keep away from the answer while this waits for it.
        const cUSB::Exchange_Scope exchange(usb_);
        for (;;) {
            // A read further down the stack is assembling: its packets are ours too.
            if (usb_.Busy()) break;
            if (usb_.Read_Packets(expected)) {
                came = true;
                break;
            }
            if (!usb_.Is_Open() || link_.Abandoned() || platform_.Now_ms() >= until) break;
            platform_.DoEvents();
        }
    }
    if (!came) {
        const unsigned command = sent.data.empty() ? 0 : sent.data[0];
        host_.Raise_HexDebug(host_.xLate("No Response to Command ") + Hex2(sent.id) + " " + Hex2(command) +
                             ", expecting PID-&H" + Hex2(expected));
    }
    return came;
}

bool Usb_Transport::Start_Session() {
    if (!usb_.Is_Open()) usb_.Open();
    if (!usb_.Is_Open()) {
        host_.Raise_Error(0, host_.xLate("USB connection failure"), {});
        return false;
    }
    if (!usb_.Start_Session()) {
        if (!usb_.Reset_Device()) {
            host_.Raise_Error(0, host_.xLate("USB connection failure"), {});
            return false;
        }
        usb_.Start_Session();
    }
    return true;
}

void Usb_Transport::Poll() {
    if (usb_.Is_Open()) usb_.Read_Packets(0);
}

void Usb_Transport::USBReceived(Bytes& Packet, Bytes& usbpacket) {
    if (usbpacket.size() < cUSB::kHeader_Size) return;
    const std::uint8_t type = usbpacket[0];
    const std::uint16_t id = Get_LE<std::uint16_t>(usbpacket, 4);
    if (type == cUSB::kProtocol_Layer && id == 0) return;
    // While the counts are asked for, only the records packets (the counts) pass.
    if (link_.Shared().RawSuppressed && type == cUSB::kApplication_Layer && id != ids_.PID_Records) return;
    link_.Trace_Packet(usbpacket, "I");
    if (Packet.size() > 1 && type == cUSB::kApplication_Layer) {
        link_.Stop_Watchdog();  // the receiver answered
        host_.Dispatch_Packet(Packet);
        host_.Raise_Receive(Packet);
    }
}

void Usb_Transport::USBSent(Bytes& usbpacket) { link_.Trace_Packet(usbpacket, "O"); }

void Usb_Transport::USBDebug(std::string& Text) { link_.Trace_Packet({}, Text); }

void Usb_Transport::USBError(std::int16_t& seq, std::string& message, Bytes& Packet) {
    // The search goes on only while the host keeps the code at 4; a host
    // that asked for its waits to be abandoned has stopped it whatever it left.
    host_.Ask_Error(seq, message, Packet);
    if (link_.Abandoned()) seq = 0;
}

}  // namespace trekcom::link
