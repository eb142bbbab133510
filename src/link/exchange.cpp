// The command exchange: every packet leaves through Send_Packet, which
// remembers it for re-sending, arms the watchdog and, when asked, waits for
// the answer while the host's loop keeps running.
#include "link/framing.h"
#include "link/link.h"
#include "serial_transport.h"
#include "trace.h"
#include "usb/usb_transport.h"

namespace trekcom::link {

const std::array<std::string, 7> Link::BaudList = {"4800,N,8,1",  "9600,N,8,1",  "19200,N,8,1", "28800,N,8,1",
                                                   "38400,N,8,1", "57600,N,8,1", "115200,N,8,1"};

Link::Link(Platform& platform, SerialPort& comGarmin, Timer& tmrTimeout, const Packet_Ids& ids, Link_Host& host,
           cUSB& usb)
    : platform_(platform),
      timer_(tmrTimeout),
      ids_(ids),
      host_(host),
      serial_(std::make_unique<Serial_Transport>(*this, platform, comGarmin, ids, host)),
      usb_(std::make_unique<Usb_Transport>(*this, host, ids, platform, usb)) {
    timer_.Interval(time_out_ms_);
    timer_.Tick = [this] { Watchdog_Tick(); };
    Select_Transport();
    Build_Fixed_Packets();
}

Link::~Link() = default;

void Link::Port(std::int16_t n) {
    port_number_ = n;
    Select_Transport();
}

// The one place that tells the transports apart.
void Link::Select_Transport() {
    if (port_number_ > 0)
        transport_ = serial_.get();
    else
        transport_ = usb_.get();
}

void Link::Detach() {
    usb_->Detach();
    usb_->Close();
}

void Link::Build_Fixed_Packets() {
    serial_->Build_Fixed_Packets();
    ping_ = {ids_.PID_Command_Data, {0, 0}, std::nullopt};
    baud_ = {ids_.CMND_Change_Baud, {0, 0, 0, 0}, std::nullopt};
}

void Link::Time_Out(std::int16_t ms) {
    if (ms >= 2000 && ms <= 5000) {
        time_out_ms_ = ms;
        return;
    }
    time_out_ms_ = 2000;
    platform_.MsgBox(host_.xLate("Time out must be from 2000 to 5000 ms. Set to 2000 ms"));
}

double Link::Wait_Period_ms(std::int32_t WaitTime) {
    return WaitTime < 30 ? WaitTime * 1000.0 : static_cast<double>(WaitTime);
}

void Link::Stop_Watchdog() {
    timer_.Enabled(false);
    timer_.Interval(time_out_ms_);
    retry_count_ = 0;
}

void Link::Expect_More() {
    if (!shared_.UserFlowControl) timer_.Enabled(true);
}

void Link::Restart_Watchdog() {
    Stop_Watchdog();
    if (!shared_.UserFlowControl) timer_.Enabled(true);
}

bool Link::Send_Packet(const Packet& packet, std::uint8_t& Response, std::int32_t WaitTime) {
    transport_->Prepare();
    last_ = packet;
    last_response_ = Response;
    last_wait_ = WaitTime;

    const std::uint16_t id = packet.id;
    if (id != ids_.PID_Ack_Byte && id != ids_.PID_Nak_Byte) failed_ = false;  // a new exchange
    if (id != ids_.PID_Ack_Byte) {
        // Re-armed without clearing retry_count_: a re-send from the watchdog
        // must still end in an error when the second period passes silently.
        timer_.Enabled(false);
        timer_.Interval(time_out_ms_);
        if (!shared_.UserFlowControl) timer_.Enabled(true);
        const bool command = id == ids_.PID_Command_Data && packet.Announced_Size() >= 1 && !packet.data.empty();
        const bool no_answer =
            (command && (packet.data[0] == ids_.CMND_Turn_Off_Pwr || packet.data[0] == ids_.CMND_Stop_Pvt_Data)) ||
            id == ids_.PID_Xfer_Cmplt || shared_.UserFlowControl;
        // Whatever the transport, a packet that arrives stops the watchdog.
        if (no_answer) Stop_Watchdog();
    }

    if (id == ids_.PID_Ack_Byte || id == ids_.PID_Nak_Byte || Response == 0) {
        transport_->Write(packet);
        return true;
    }
    Stop_Watchdog();
    transport_->Write(packet);
    // Response 2: written, not awaited; the answer is left to the receive handler.
    if (Response == 2) return false;
    const bool success = transport_->Await(packet, Response, WaitTime);
    Response = 0;
    return success;
}



void Link::Watchdog_Tick() {
    ++retry_count_;
    transport_->Discard_Input(false);
    if (retry_count_ >= 2) {
        Stop_Watchdog();
        Report(0, shared_.NMEAMode ? "No longer receiving NMEA/TEXT data" : "No response from device", Last_Frame());
        return;
    }
    if (shared_.NMEAMode) return;
    if (shared_.UserFlowControl) retry_count_ = 0;
    if (shared_.DebugLog)
        host_.Raise_HexDebug(host_.xLate("Re-try after ") + std::to_string(timer_.Interval()) + " ms");
    if (last_.id == ids_.PID_Ack_Byte) {
        std::uint8_t none = 0;
        const Packet ack = last_;
        Send_Packet(ack, none, 0);
    } else {
        std::uint8_t response = last_response_;
        const Packet again = last_;
        Send_Packet(again, response, last_wait_);
    }
}

void Link::Report(std::int16_t code, const std::string& phrase, const Bytes& packet) {
    host_.Raise_Error(code, host_.xLate(phrase), packet);
}

void Link::Exchange_Failed() {
    Stop_Watchdog();
    failed_ = true;
}

void Link::No_Response() {
    Stop_Watchdog();
    if (!failed_) Report(0, "No response from device", Last_Frame());
}

void Link::Send(const Bytes& frame, std::uint8_t Response, std::int32_t WaitTime) {
    // Not even a frame: nothing to send.
    const std::optional<Packet> packet = Packet_Of(frame);
    const bool answered = packet && Send_Packet(*packet, Response, WaitTime);
    if (!answered && WaitTime >= 1 && !failed_) Report(0, "No response from device", Last_Frame());
}

void Link::Reset() {
    host_.Clear_Error_Latch();
    transport_->Discard_Input(true);
    timer_.Enabled(false);
    timer_.Interval(time_out_ms_);
    std::uint8_t response = ids_.PID_Ack_Byte;
    if (!Send_Packet(ping_, response, 0)) No_Response();
}

void Link::WaitFor(std::int32_t WaitTime) {
    platform_.Run_Until([this] { return Abandoned(); }, Wait_Period_ms(WaitTime));
}

bool Link::Wait_Until(const std::function<bool()>& done, double ms) {
    platform_.Run_Until([&] { return done() || Abandoned(); }, ms);
    return done();
}

}  // namespace trekcom::link
