// The control's side of the USB transport (Port 0): the handlers of cUSB's
// four events, and the waits and polls the link and the timers make on it.
#include "control.h"

namespace trekcom::detail {

void Control::USB_USBReceived(Bytes& Packet, Bytes& usbpacket) {
    if (usbpacket.size() < cUSB::kHeader_Size) return;
    const std::uint8_t type = usbpacket[0];
    const std::uint16_t id = static_cast<std::uint16_t>(usbpacket[4] | (usbpacket[5] << 8));
    if (type == 0 && id == 0) return;
    // While the counts are asked for, only the records packets (the counts) pass.
    if (link.RawSuppressed && type == cUSB::kApplication_Layer && id != ids.PID_Records) return;
    link.Trace_Packet(usbpacket, "I");
    if (Packet.size() > 1 && type == cUSB::kApplication_Layer) {
        link.Stop_Watchdog();  // the receiver answered
        Dispatch_Packet(Packet);
        Raise_Receive(Packet);
    }
}

void Control::USB_USBSent(Bytes& usbpacket) { link.Trace_Packet(usbpacket, "O"); }

void Control::USB_USBDebug(std::string& Text) { link.Trace_Packet({}, Text); }

void Control::USB_USBError(std::int16_t& seq, std::string& message, Bytes& Packet) {
    // Without a host to plug the receiver in, a device search ends here.
    if (!sink) {
        seq = 0;
    } else {
        sink->cError(seq, message, Packet);
        std::string as_text = Bytes2String(Packet);
        sink->vcError(seq, message, as_text);
    }
    // The search goes on only while the host keeps the code at 4; a host
    // that asked for its waits to be abandoned has stopped it whatever it left.
    if (link.Abandoned()) seq = 0;
    // The transport has given up: a download still open has ended with it.
    engine.Close_Tally();
}

bool Control::USB_Wait(std::uint8_t expected, std::int32_t wait_time) {
    if (wait_time < 1) wait_time = link.Time_Out();
    const double until = platform->Now_ms() + link::Link::Wait_Period_ms(wait_time);
    // The timers' polls keep away from the answer while this waits for it.
    const cUSB::Exchange_Scope exchange(*usb);
    for (;;) {
        // A read further down the stack is assembling: its packets are ours too.
        if (usb->Busy()) return false;
        if (usb->Read_Packets(expected)) return true;
        if (!usb->Is_Open() || link.Abandoned() || platform->Now_ms() >= until) return false;
        platform->DoEvents();
    }
}

bool Control::USB_Poll() { return usb->Is_Open() && usb->Read_Packets(0); }

}  // namespace trekcom::detail

namespace trekcom {

std::shared_ptr<cUSB> TrekcomCtl::USB() const { return impl_->usb; }

}  // namespace trekcom
