// What both platforms share: the loop, the timers, the port buffers and
// property rules. Backends only wait for I/O and move bytes.
#include "trekcom/platform.h"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <limits>
#include <string_view>
#include <cctype>

namespace trekcom {

namespace {
constexpr double kMaxPumpWait_ms = 1.0;
// The longest a wait sleeps between looks at the interrupt request: the
// loop is not woken by a signal, so this bounds how late an interrupt is seen.
constexpr double kInterrupt_Latency_ms = 100.0;

template <typename T>
bool Registered(const std::vector<T*>& list, const T* item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}
}  // namespace

// ---------------------------------------------------------------- Platform

Platform::Platform() = default;
Platform::~Platform() = default;

void Platform::DoEvents() { Pump(kMaxPumpWait_ms); }

bool Platform::Run_Until(const std::function<bool()>& done, double timeout_ms) {
    const double deadline = Now_ms() + timeout_ms;
    while (!done()) {
        const double left = deadline - Now_ms();
        if (left <= 0 || Interrupted()) return done();
        Pump(std::min(left, kInterrupt_Latency_ms));
    }
    return true;
}

void Platform::Pump(double max_wait_ms) {
    double wait = std::max(0.0, std::min(max_wait_ms, Next_Timer_Due() - Now_ms()));
    Wait_For_Events(wait);
    Service_Ports();
    Fire_Due_Timers();
}

double Platform::Next_Timer_Due() const {
    double due = std::numeric_limits<double>::infinity();
    for (const Timer* t : timers_)
        if (t->enabled_ && t->interval_ms_ > 0 && !t->ticking_) due = std::min(due, t->due_ms_);
    return due;
}

void Platform::Fire_Due_Timers() {
    const auto snapshot = timers_;
    for (Timer* t : snapshot) {
        if (!Registered(timers_, t)) continue;  // destroyed by an earlier handler
        if (!t->enabled_ || t->interval_ms_ <= 0 || t->ticking_) continue;
        const double now = Now_ms();
        if (now < t->due_ms_) continue;
        t->due_ms_ = now + t->interval_ms_;
        if (!t->Tick) continue;
        t->ticking_ = true;
        t->Tick();
        if (Registered(timers_, t)) t->ticking_ = false;
    }
}

void Platform::Service_Ports() {
    const auto snapshot = ports_;
    for (SerialPort* p : snapshot)
        if (Registered(ports_, p)) p->Service();
}

void Platform::Message_Box_Handler(std::function<void(const std::string&)> handler) {
    message_box_ = std::move(handler);
}

void Platform::MsgBox(const std::string& text) {
    if (message_box_)
        message_box_(text);
    else
        std::cerr << text << '\n';
}

void Platform::File_Dialog_Handler(std::function<std::string(const std::string&)> handler) {
    file_dialog_ = std::move(handler);
}

std::string Platform::Open_File_Dialog(const std::string& filter) {
    return file_dialog_ ? file_dialog_(filter) : std::string();
}

// ---------------------------------------------------------------- Timer

Timer::Timer(Platform& platform) : platform_(platform) { platform_.timers_.push_back(this); }

Timer::~Timer() { std::erase(platform_.timers_, this); }

void Timer::Enabled(bool on) {
    if (on && !enabled_) {
        enabled_ = true;
        Restart();
    }
    enabled_ = on;
}

void Timer::Interval(std::int32_t ms) {
    interval_ms_ = ms;
    if (enabled_) Restart();
}

void Timer::Restart() { due_ms_ = platform_.Now_ms() + interval_ms_; }

// ---------------------------------------------------------------- SerialPort

SerialPort::SerialPort(Platform& platform) : platform_(platform) { platform_.ports_.push_back(this); }

SerialPort::~SerialPort() { std::erase(platform_.ports_, this); }

std::string SerialPort::Device_Name() const {
    if (!port_name_.empty()) return port_name_;
#ifdef _WIN32
    return "COM" + std::to_string(comm_port_);
#else
    return "/dev/ttyS" + std::to_string(comm_port_ - 1);
#endif
}

bool SerialPort::Parse_Settings(const std::string& text, Line_Settings& out) {
    // "baud,parity,data,stop" with optional blanks; parts left off keep
    // N, 8 and 1, so "9600" alone means "9600,N,8,1".
    std::vector<std::string> parts;
    std::string cur;
    for (char c : text) {
        if (c == ',') {
            parts.push_back(cur);
            cur.clear();
        } else if (c != ' ') {
            cur += c;
        }
    }
    parts.push_back(cur);
    if (parts.size() > 4) return false;
    parts.resize(4);
    auto number = [](const std::string& s, auto& value) {
        auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
        return ec == std::errc() && p == s.data() + s.size();
    };
    Line_Settings s;
    if (!number(parts[0], s.baud) || s.baud <= 0) return false;
    if (!parts[1].empty()) {
        if (parts[1].size() != 1) return false;
        s.parity = static_cast<char>(std::toupper(static_cast<unsigned char>(parts[1][0])));
        if (std::string_view("NEOMS").find(s.parity) == std::string_view::npos) return false;
    }
    if (!parts[2].empty() && (!number(parts[2], s.data_bits) || s.data_bits < 5 || s.data_bits > 8)) return false;
    if (parts[3] == "1.5") {
        s.stop_bits = 15;  // one and a half
    } else if (!parts[3].empty() && (!number(parts[3], s.stop_bits) || (s.stop_bits != 1 && s.stop_bits != 2))) {
        return false;
    }
    out = s;
    return true;
}

void SerialPort::Settings(const std::string& settings) {
    settings_ = settings;
    if (open_) Apply_Line(last_error_);
}

void SerialPort::RTSEnable(bool on) {
    rts_ = on;
    if (open_) Apply_Line(last_error_);
}

void SerialPort::DTREnable(bool on) {
    dtr_ = on;
    if (open_) Apply_Line(last_error_);
}

void SerialPort::Handshaking(Handshaking_Values h) {
    handshaking_ = h;
    if (open_) Apply_Line(last_error_);
}

void SerialPort::PortOpen(bool open) {
    if (open == open_) return;
    if (!open) {
        Close_Device();
        open_ = false;
        input_.clear();
        input_head_ = 0;
        return;
    }
    last_error_.clear();
    if (!Open_Device(last_error_)) return;
    open_ = true;
    if (!Apply_Line(last_error_)) {
        Close_Device();
        open_ = false;
    }
}

int SerialPort::InBufferCount() {
    if (open_) Collect();
    return static_cast<int>(input_.size() - input_head_);
}

void SerialPort::InBufferCount(int n) {
    if (n != 0) return;
    if (open_) Collect();
    input_.clear();
    input_head_ = 0;
}

std::string SerialPort::Input() {
    if (open_) Collect();
    std::size_t avail = input_.size() - input_head_;
    std::size_t take = input_len_ > 0 ? std::min<std::size_t>(avail, input_len_) : avail;
    std::string out = input_.substr(input_head_, take);
    input_head_ += take;
    if (input_head_ == input_.size()) {
        input_.clear();
        input_head_ = 0;
    }
    return out;
}

void SerialPort::Output(const std::string& bytes) {
    if (open_ && !bytes.empty()) Write_Device(bytes);
}

void SerialPort::Received(const std::string& bytes) {
    if (!open_) return;
    if (input_head_ > 4096 && input_head_ * 2 > input_.size()) {
        input_.erase(0, input_head_);
        input_head_ = 0;
    }
    input_ += bytes;
}

void SerialPort::Line_Error(std::int16_t event) {
    comm_event_ = event;
    pending_error_ = true;
}

void SerialPort::Service() {
    if (!open_ || in_oncomm_ || !OnComm) return;
    Collect();
    const bool data_due = rthreshold_ > 0 &&
                          input_.size() - input_head_ >= static_cast<std::size_t>(rthreshold_);
    if (!data_due && !pending_error_) return;
    if (pending_error_)
        pending_error_ = false;
    else
        comm_event_ = comEvReceive;
    in_oncomm_ = true;
    OnComm();
    in_oncomm_ = false;
}

}  // namespace trekcom
