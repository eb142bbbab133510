// The serial port: opening it with the control's line settings, closing it,
// finding the receiver's baud rate and asking it to change.
#include <charconv>

#include "link/framing.h"
#include "link/link.h"
#include "link/little_endian.h"

namespace trekcom::link {

namespace {
constexpr std::int16_t kBufferSize = 8192;
constexpr std::int32_t kSettleMs = 50;  // lets the line settle after opening
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
    receive_.Clear();
    return opened;
}

void Link::PortClose() {
    host_.Clear_Error_Latch();
    Stop_Watchdog();
    transport_->Close();
}

bool Link::Open_Serial() {
    if (port_.PortOpen()) port_.PortOpen(false);
    port_.RTSEnable(shared_.RTSEnable);
    port_.DTREnable(shared_.DTREnable);
    port_.Handshaking(shared_.Handshaking);
    port_.Settings(shared_.Settings);
    port_.CommPort(port_number_);
    port_.Port_Name(shared_.Port_Name);
    port_.RThreshold(0);
    port_.SThreshold(0);
    port_.InBufferSize(kBufferSize);
    port_.OutBufferSize(kBufferSize);
    port_.InputLen(0);
    port_.InBufferCount(0);
    port_.PortOpen(true);
    if (!port_.PortOpen()) {
        // The system's reason goes to the trace; the event carries the message.
        Trace_Packet({}, "!" + port_.Last_Error());
        host_.Raise_Error(0, host_.xLate("Unable to open port ") + std::to_string(port_number_), {});
        return false;
    }
    WaitFor(kSettleMs);
    receive_.Clear();
    port_.InBufferCount(0);
    port_.RThreshold(1);
    return true;
}

void Link::Close_Serial() {
    port_.RThreshold(0);
    port_.SThreshold(0);
    port_.PortOpen(false);
    port_.InBufferCount(0);
    port_.OutBufferCount(0);
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
        const long lines_before = lines_received_;
        if (Send_Packet(ping_, response, 0)) return Baud_Of(entry);
        // A receiver talking NMEA at this rate does not answer pings, but its
        // sentences are readable: that is the rate too.
        if (lines_received_ != lines_before) return Baud_Of(entry);
    }
    host_.Raise_Error(0,
                      host_.xLate("Can't determine present GPS baud rate.") + "\r\n" +
                          host_.xLate("Power GPS off/on to reset to 9600,N,8,1"),
                      {});
    shared_.Settings = "9600";
    // The port is left open at 9600 baud, ready for a receiver that is reset.
    if (port_.PortOpen()) PortOpen();
    return 9600;
}

bool Link::Change_Baud_Rate(std::int32_t Baud) {
    host_.Clear_Error_Latch();
    const std::string saved = shared_.Settings;
    Put_LE<std::int32_t>(baud_.data, 0, Baud);
    std::uint8_t response = ids_.PID_Baud_Reply;
    if (!Send_Packet(baud_, response, 0)) return false;

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

}  // namespace trekcom::link
