// The virtual platform: time moves only when nothing is due, bytes travel
// between host ports and in-process devices as scheduled.
#include "trekcom/virtual_platform.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace trekcom {

// The host's end of a virtual line.
class VirtualSerialPort : public SerialPort {
public:
    explicit VirtualSerialPort(VirtualPlatform& platform) : SerialPort(platform), vp_(platform) {}

    ~VirtualSerialPort() override {
        if (PortOpen()) Close_Device();
    }

    void Receive(const Bytes& bytes) { Received(std::string(bytes.begin(), bytes.end())); }
    void Report_Line_Error() { Line_Error(comEventFrame); }

protected:
    bool Open_Device(std::string& error) override {
        const std::string key = VirtualPlatform::Key_Of(*this);
        if (std::find(vp_.missing_.begin(), vp_.missing_.end(), key) != vp_.missing_.end()) {
            error = "cannot open " + Device_Name() + ": no such device";
            return false;
        }
        wire_ = vp_.Find_Wire(key);
        if (wire_) {
            if (wire_->line->host_ && wire_->line->host_ != this) {
                error = "cannot open " + Device_Name() + ": port already in use";
                wire_ = nullptr;
                return false;
            }
            wire_->line->host_ = this;
        }
        return true;
    }

    void Close_Device() override {
        if (!wire_) return;
        wire_->line->host_ = nullptr;
        wire_->line->in_flight_.clear();
        auto device = wire_->device;
        wire_ = nullptr;
        device->Host_Line_Changed();
    }

    bool Apply_Line(std::string& error) override {
        Line_Settings parsed;
        if (!Parse_Settings(Settings(), parsed)) {
            error = "invalid port settings \"" + Settings() + "\"";
            return false;
        }
        if (wire_) wire_->device->Host_Line_Changed();
        return true;
    }

    void Write_Device(const std::string& bytes) override {
        if (!wire_ || !wire_->line->Rates_Match()) return;
        auto device = wire_->device;  // the device may outlive a close in its handler
        device->Host_Wrote(Bytes(bytes.begin(), bytes.end()));
    }

    void Collect() override { vp_.Deliver_Due(); }

private:
    VirtualPlatform& vp_;
    VirtualPlatform::Wire* wire_ = nullptr;
};

// ---------------------------------------------------------------- VirtualLine

double VirtualLine::Now_ms() const { return platform_.Now_ms(); }

void VirtualLine::Send(const Bytes& bytes, double at_ms) {
    if (bytes.empty() || !host_) return;
    double at = std::max(at_ms, platform_.Now_ms());
    if (!in_flight_.empty()) at = std::max(at, in_flight_.back().at_ms);
    in_flight_.push_back({at, bytes});
}

void VirtualLine::Wake_At(double at_ms) { wake_ms_ = std::max(at_ms, platform_.Now_ms()); }

bool VirtualLine::Host_Open() const { return host_ != nullptr; }

std::string VirtualLine::Host_Settings() const { return host_ ? host_->Settings() : std::string(); }

void VirtualLine::Break() {
    in_flight_.clear();
    if (host_) host_->Report_Line_Error();
}

bool VirtualLine::Rates_Match() const {
    if (!host_ || device_baud_ == 0) return host_ != nullptr;
    SerialPort::Line_Settings s;
    return SerialPort::Parse_Settings(host_->Settings(), s) && s.baud == device_baud_;
}

// ---------------------------------------------------------------- VirtualPlatform

VirtualPlatform::VirtualPlatform(double start_seconds_since_midnight)
    : start_tod_s_(start_seconds_since_midnight) {}

VirtualPlatform::~VirtualPlatform() = default;

double VirtualPlatform::Seconds_Since_Midnight() const {
    return std::fmod(start_tod_s_ + now_ms_ / 1000.0, 86400.0);
}

void VirtualPlatform::Advance(double ms) {
    Run_Until([] { return false; }, ms);
}

std::unique_ptr<SerialPort> VirtualPlatform::Create_Serial_Port() {
    return std::make_unique<VirtualSerialPort>(*this);
}

VirtualLine& VirtualPlatform::Attach(std::int16_t port, std::shared_ptr<VirtualDevice> device) {
    return Attach(std::to_string(port), std::move(device));
}

VirtualLine& VirtualPlatform::Attach(const std::string& port_name, std::shared_ptr<VirtualDevice> device) {
    Wire& wire = wires_[port_name];
    wire.line = std::make_unique<VirtualLine>(*this);
    wire.device = std::move(device);
    wire.device->Attached(*wire.line);
    return *wire.line;
}

VirtualPlatform::Wire* VirtualPlatform::Find_Wire(const std::string& key) {
    auto it = wires_.find(key);
    return it == wires_.end() ? nullptr : &it->second;
}

std::string VirtualPlatform::Key_Of(const SerialPort& port) {
    return port.Port_Name().empty() ? std::to_string(port.CommPort()) : port.Port_Name();
}

bool VirtualPlatform::Deliver_Due() {
    bool any = false;
    for (auto& [key, wire] : wires_) {
        VirtualLine& line = *wire.line;
        while (!line.in_flight_.empty() && line.in_flight_.front().at_ms <= now_ms_) {
            Bytes bytes = std::move(line.in_flight_.front().bytes);
            line.in_flight_.pop_front();
            if (line.host_ && line.Rates_Match()) line.host_->Receive(bytes);
            any = true;
        }
        if (line.wake_ms_ >= 0 && line.wake_ms_ <= now_ms_) {
            line.wake_ms_ = -1;
            auto device = wire.device;
            device->Wake();
            any = true;
        }
    }
    return any;
}

double VirtualPlatform::Next_Event_ms() const {
    double next = std::numeric_limits<double>::infinity();
    for (const auto& [key, wire] : wires_) {
        if (!wire.line->in_flight_.empty()) next = std::min(next, wire.line->in_flight_.front().at_ms);
        if (wire.line->wake_ms_ >= 0) next = std::min(next, wire.line->wake_ms_);
    }
    return next;
}

void VirtualPlatform::Wait_For_Events(double max_ms) {
    if (Deliver_Due()) return;
    const double target = std::min(now_ms_ + max_ms, Next_Event_ms());
    if (target > now_ms_) now_ms_ = target;
    Deliver_Due();
}

}  // namespace trekcom
