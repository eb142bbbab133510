#include "control/control.h"

#include <cstdio>

namespace trekcom::detail {

Control::Control(std::shared_ptr<Platform> p)
    : platform(std::move(p)),
      comGarmin(platform->Create_Serial_Port()),
      tmrTimeout(platform->Create_Timer()),
      tmrPVTData(platform->Create_Timer()),
      tmrAsync(platform->Create_Timer()),
      link(*platform, *comGarmin, *tmrTimeout, ids, *this) {}

Control::~Control() {
    link.Terminating = true;
    tmrTimeout->Enabled(false);
    tmrPVTData->Enabled(false);
    tmrAsync->Enabled(false);
    comGarmin->OnComm = nullptr;
    comGarmin->PortOpen(false);
}

void Control::Raise_Receive(const Bytes& packet) {
    if (!sink) return;
    Bytes bytes = packet;
    sink->Receive(bytes);
    std::string text = Bytes2String(packet);
    sink->vcReceive(text);
}

void Control::Raise_Error(std::int16_t code, const std::string& message, const Bytes& packet) {
    if (!sink) return;
    std::int16_t cErr = code;
    std::string text = message;
    Bytes bytes = packet;
    sink->cError(cErr, text, bytes);
    std::string as_text = Bytes2String(bytes);
    sink->vcError(cErr, text, as_text);
}

void Control::Raise_HexDebug(const std::string& text) {
    if (!sink) return;
    std::string line = text;
    sink->HexDebug(line);
}

void Control::Dispatch_Packet(const Bytes& packet) {
    (void)packet;  // the protocol engine takes received application packets from here
}

std::string Control::NMEA_Checksum(const std::string& msg) {
    const std::size_t star = msg.find('*');
    const std::size_t end = star == std::string::npos ? msg.size() : star;
    unsigned sum = 0;
    for (std::size_t i = 1; i < end; ++i) sum ^= static_cast<unsigned char>(msg[i]);
    char text[3];
    std::snprintf(text, sizeof text, "%02X", sum & 0xFF);
    return text;
}

void Control::Line_Received(const std::string& line, bool text_line) {
    constexpr std::int16_t kMaxMismatches = 50;
    bool chkerr = false;
    const bool has_checksum = line.size() >= 3 && line[line.size() - 3] == '*';
    if (!IgnoreCheckSum && !text_line && has_checksum) {
        if (line.compare(line.size() - 2, 2, NMEA_Checksum(line)) == 0) {
            chkerr = true;
        } else if (++link.NMEAErrorCount > kMaxMismatches) {
            Raise_Error(0,
                        xLate("There have been more than 50 check sum errors") + "\r\n" +
                            xLate("Verify that your receiver is putting out check sums"),
                        {});
            link.NMEAErrorCount = 0;
        }
    }
    if (!sink) return;
    std::string sentence = line;
    sink->NMEA(sentence, chkerr);
}

std::string Control::xLate(const std::string& phrase) {
    return phrase;  // language files are read here once translation lands
}

}  // namespace trekcom::detail

// ---------------------------------------------------------------- TrekcomCtl

namespace trekcom {

TrekcomCtl::TrekcomCtl() : TrekcomCtl(Default_Platform()) {}
TrekcomCtl::TrekcomCtl(std::shared_ptr<trekcom::Platform> platform)
    : impl_(std::make_unique<detail::Control>(std::move(platform))) {}
TrekcomCtl::~TrekcomCtl() = default;

std::shared_ptr<trekcom::Platform> TrekcomCtl::Platform() const { return impl_->platform; }
void TrekcomCtl::Advise(TrekcomCtlEvents& sink) { impl_->sink = &sink; }
void TrekcomCtl::Unadvise() { impl_->sink = nullptr; }

std::int16_t TrekcomCtl::Port() const { return impl_->link.Port; }
void TrekcomCtl::Port(std::int16_t n) { impl_->link.Port = n; }
std::string TrekcomCtl::Port_Name() const { return impl_->link.Port_Name; }
void TrekcomCtl::Port_Name(const std::string& path) { impl_->link.Port_Name = path; }
std::string TrekcomCtl::Settings() const { return impl_->link.Settings; }
void TrekcomCtl::Settings(const std::string& settings) { impl_->link.Settings = settings; }
bool TrekcomCtl::RTSEnable() const { return impl_->link.RTSEnable; }
void TrekcomCtl::RTSEnable(bool on) { impl_->link.RTSEnable = on; }
bool TrekcomCtl::DTREnable() const { return impl_->link.DTREnable; }
void TrekcomCtl::DTREnable(bool on) { impl_->link.DTREnable = on; }
Handshaking_Values TrekcomCtl::Handshaking() const { return impl_->link.Handshaking; }
void TrekcomCtl::Handshaking(Handshaking_Values h) { impl_->link.Handshaking = h; }
bool TrekcomCtl::UserFlowControl() const { return impl_->link.UserFlowControl; }
void TrekcomCtl::UserFlowControl(bool on) { impl_->link.UserFlowControl = on; }
bool TrekcomCtl::DebugLog() const { return impl_->link.DebugLog; }
void TrekcomCtl::DebugLog(bool on) { impl_->link.DebugLog = on; }
std::int16_t TrekcomCtl::Time_Out() const { return impl_->link.Time_Out(); }
void TrekcomCtl::Time_Out(std::int16_t ms) { impl_->link.Time_Out(ms); }

bool TrekcomCtl::PortOpen() { return impl_->link.PortOpen(); }
void TrekcomCtl::PortClose() { impl_->link.PortClose(); }
std::int32_t TrekcomCtl::FindBaud(std::string& settings) { return impl_->link.FindBaud(settings); }
bool TrekcomCtl::Change_Baud_Rate(std::int32_t Baud) { return impl_->link.Change_Baud_Rate(Baud); }
void TrekcomCtl::Reset() { impl_->link.Reset(); }
void TrekcomCtl::Send(const Bytes& Packet, std::uint8_t Response, std::int32_t WaitTime) {
    impl_->link.Send(Packet, Response, WaitTime);
}
void TrekcomCtl::WaitFor(std::int32_t d) { impl_->link.WaitFor(d); }

}  // namespace trekcom
