// The serial port: opening it with the control's line settings, closing it,
// finding the receiver's baud rate and asking it to change.
#include <charconv>

#include "link/framing.h"
#include "link/link.h"
#include "link/little_endian.h"
#include "serial_transport.h"

namespace trekcom::link {

namespace {
// An ACK on the line at the slowest rate, 4800 baud, and a margin (30 is
// the shortest wait counted in milliseconds).
constexpr std::int32_t kAck_Drain_ms = 30;
}  // namespace

std::int32_t Link::Baud_Of(const std::string& settings) {
    std::size_t begin = settings.find_first_not_of(' ');
    if (begin == std::string::npos) return 0;
    std::int32_t baud = 0;
    std::from_chars(settings.data() + begin, settings.data() + settings.size(), baud);
    return baud;
}

bool Link::PortOpen() {
    host_.Clear_Error_Latch();
    shared_.RawSuppressed = false;
    const bool opened = transport_->Open();
    if (opened) retry_count_ = 0;
    transport_->Discard_Input(false);
    return opened;
}

void Link::PortClose() {
    host_.Clear_Error_Latch();
    Stop_Watchdog();
    transport_->Close();
}



std::int32_t Link::FindBaud(std::string& isettings) {
    host_.Clear_Error_Latch();
    PortClose();
    shared_.Settings = isettings;
    if (!PortOpen()) return 0;
    std::uint8_t response = ids_.PID_Ack_Byte;
    if (Send_Packet(ping_, response, 0)) return Baud_Of(shared_.Settings);

    host_.Raise_HexDebug(host_.xLate("Negotiating Baud Rate"));
    for (const std::string& entry : BaudList) {
        shared_.Settings = entry;
        if (!PortOpen()) return 0;
        response = ids_.PID_Ack_Byte;
        const long lines_before = serial_->Lines_Received();
        if (Send_Packet(ping_, response, 0)) return Baud_Of(entry);
        // A receiver talking NMEA at this rate does not answer pings, but its
        // sentences are readable: that is the rate too.
        if (serial_->Lines_Received() != lines_before) return Baud_Of(entry);
    }
    host_.Raise_Error(0,
                      host_.xLate("Can't determine present GPS baud rate.") + "\r\n" +
                          host_.xLate("Power GPS off/on to reset to 9600,N,8,1"),
                      {});
    shared_.Settings = "9600";
    // The port is left open at 9600 baud, ready for a receiver that is reset.
    if (serial_->Is_Open()) PortOpen();
    return 9600;
}

bool Link::Change_Baud_Rate(std::int32_t Baud) {
    host_.Clear_Error_Latch();
    const std::string saved = shared_.Settings;
    Put_LE<std::int32_t>(baud_.data, 0, Baud);
    std::uint8_t response = ids_.PID_Baud_Reply;
    if (!Send_Packet(baud_, response, 0)) return false;

    // The ACK of the reply leaves at the old rate: closing the port at once
    // may cut it off, and a unit that never hears it never changes.
    WaitFor(kAck_Drain_ms);
    PortClose();
    shared_.Settings = std::to_string(Baud) + ",N,8,1";
    if (PortOpen()) {
        response = ids_.PID_Ack_Byte;
        if (Send_Packet(ping_, response, 0)) return true;
        PortClose();
    }
    shared_.Settings = saved;
    PortOpen();
    return false;
}

void Link::Restore_Settings(const std::string& settings) {
    const bool interrupted = platform_.Interrupted();
    platform_.Clear_Interrupt();
    if (Change_Baud_Rate(Baud_Of(settings))) {
        shared_.Settings = settings;  // the same rate, in the host's own words
    } else {
        PortClose();
        shared_.Settings = settings;
        PortOpen();
    }
    if (interrupted) platform_.Interrupt();
}

}  // namespace trekcom::link
