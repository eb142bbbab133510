// The real platform: a steady clock, the local time of day, and an Asio event
// loop that waits for serial I/O without burning a core.
//
// Asio handlers here only move bytes into port buffers (SerialPort::Received,
// SerialPort::Line_Error). Every host callback, OnComm and a timer's Tick, is
// raised by the shared loop in platform.cpp after Wait_For_Events returns. So
// Asio's run is never nested: a handler that waits (a nested DoEvents or
// Run_Until) starts a fresh run_one_for/poll on an io_context that is not
// running. A work guard keeps the io_context from ever running out of work,
// so it never stops and never needs restart(), which would be wrong inside a
// nested wait.
#include <algorithm>
#include <asio.hpp>
#include <chrono>
#include <ctime>
#include <exception>
#include <string>

#include "trekcom/platform.h"
#include "usb/system_usb_driver.h"  // USB: the system's driver

#if defined(ASIO_HAS_POSIX_STREAM_DESCRIPTOR) && !defined(_WIN32)
#define TREKCOM_POSIX_SERIAL 1
#include "posix_serial_port.h"
#endif

namespace trekcom {
namespace {

#ifndef TREKCOM_POSIX_SERIAL
// Until this system has a serial backend, ports exist but never open.
class Unsupported_Serial_Port final : public SerialPort {
public:
    explicit Unsupported_Serial_Port(Platform& platform) : SerialPort(platform) {}

protected:
    bool Open_Device(std::string& error) override {
        error = "cannot open " + Device_Name() + ": serial ports are not supported on this system";
        return false;
    }
    void Close_Device() override {}
    bool Apply_Line(std::string& error) override {
        error = "serial ports are not supported on this system";
        return false;
    }
    void Write_Device(const std::string&) override {}
};
#endif

class RealPlatform final : public Platform {
public:
    // One thread runs the loop: the hint lets Asio skip most of its locking.
    RealPlatform() : io_(1), work_(asio::make_work_guard(io_)) {}

    double Now_ms() const override {
        using namespace std::chrono;
        return duration<double, std::milli>(steady_clock::now().time_since_epoch()).count();
    }

    double Seconds_Since_Midnight() const override {
        using namespace std::chrono;
        const auto now = system_clock::now();
        const std::time_t t = system_clock::to_time_t(now);
        std::tm local{};
#ifdef _WIN32
        localtime_s(&local, &t);
#else
        localtime_r(&t, &local);
#endif
        double fraction = duration<double>(now - system_clock::from_time_t(t)).count();
        if (fraction < 0 || fraction >= 1) fraction = 0;
        return local.tm_hour * 3600.0 + local.tm_min * 60.0 + local.tm_sec + fraction;
    }

    std::unique_ptr<SerialPort> Create_Serial_Port() override {
#ifdef TREKCOM_POSIX_SERIAL
        return platform::Make_Posix_Serial_Port(*this, io_);
#else
        return std::make_unique<Unsupported_Serial_Port>(*this);
#endif
    }

protected:
    // USB: the system's driver (usb/system_usb_driver.h).
    std::unique_ptr<UsbDriver> System_Usb_Driver() override { return platform::Make_System_Usb_Driver(); }

    void Wait_For_Events(double max_ms) override {
        try {
            // During a transfer the answer to an ACK is often only tens of
            // microseconds away: a short look before sleeping saves a sleep
            // and a wake-up per packet. Only after a wait that I/O ended, so
            // an idle loop never spins.
            if (io_ended_last_wait_ && Poll_For(std::min(max_ms, kSpin_ms))) return;
            // Sleep in the reactor until the first I/O completes or the time
            // is up, then handle whatever else is ready without waiting.
            std::size_t handled = 0;
            if (max_ms > 0)
                handled = io_.run_one_for(std::chrono::duration_cast<std::chrono::nanoseconds>(
                    std::chrono::duration<double, std::milli>(max_ms)));
            handled += io_.poll();
            io_ended_last_wait_ = handled > 0;
        } catch (const std::exception& e) {
            // Only a failing reactor gets here (our handlers do not throw).
            // Tell the host once; later waits still must not spin.
            if (!loop_failed_) {
                loop_failed_ = true;
                MsgBox(std::string("PLATFORM: event loop failed: ") + e.what());
            }
        }
    }

private:
    static constexpr double kSpin_ms = 0.05;

    // Handles what is ready, looking again until something was or ms pass.
    bool Poll_For(double ms) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double, std::milli>(ms);
        do {
            if (io_.poll() > 0) return true;
        } while (std::chrono::steady_clock::now() < until);
        return false;
    }

    asio::io_context io_;
    bool io_ended_last_wait_ = false;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    bool loop_failed_ = false;
};

}  // namespace

std::shared_ptr<Platform> Default_Platform() {
    static const auto platform = std::make_shared<RealPlatform>();
    return platform;
}

}  // namespace trekcom
