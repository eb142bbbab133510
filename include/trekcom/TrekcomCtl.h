// TrekcomCtl: the control a host program uses to talk to a Garmin receiver.
//
// It is single-threaded: create it, call it and run its platform's loop on
// one thread. Methods that wait for the receiver pump the loop while they
// wait, so events (and other handlers) may run before they return.
// Do not destroy a control from inside one of its own event handlers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "trekcom/events.h"
#include "trekcom/platform.h"
#include "trekcom/types.h"

namespace trekcom {

namespace detail {
class Control;
}

class TrekcomCtl {
public:
    // On the real platform (Default_Platform()).
    TrekcomCtl();
    // On another platform, e.g. a VirtualPlatform in tests.
    explicit TrekcomCtl(std::shared_ptr<trekcom::Platform> platform);
    ~TrekcomCtl();
    TrekcomCtl(const TrekcomCtl&) = delete;
    TrekcomCtl& operator=(const TrekcomCtl&) = delete;

    std::shared_ptr<trekcom::Platform> Platform() const;

    // One event sink at a time; it must outlive the advice (or be unadvised).
    void Advise(TrekcomCtlEvents& sink);
    void Unadvise();

    // ---- link properties: plain stores, used at the next PortOpen
    // Serial port number; 0 selects USB.
    std::int16_t Port() const;
    void Port(std::int16_t n);
    // Device path that overrides Port on POSIX systems ("/dev/ttyUSB0", a pty).
    std::string Port_Name() const;
    void Port_Name(const std::string& path);
    // "baud,parity,data,stop", default "9600,N,8,1".
    std::string Settings() const;
    void Settings(const std::string& settings);
    bool RTSEnable() const;
    void RTSEnable(bool on);
    bool DTREnable() const;
    void DTREnable(bool on);
    Handshaking_Values Handshaking() const;
    void Handshaking(Handshaking_Values h);
    // The host answers packets itself: no ACK, NAK or watchdog from the control.
    bool UserFlowControl() const;
    void UserFlowControl(bool on);
    // Raise a HexDebug trace line for every packet in and out.
    bool DebugLog() const;
    void DebugLog(bool on);
    // Response time-out in ms, 2000..5000; other values become 2000 with a message box.
    std::int16_t Time_Out() const;
    void Time_Out(std::int16_t ms);

    // ---- link methods
    bool PortOpen();
    void PortClose();
    // Tries `settings` first, then every rate from 4800 to 115200; returns the
    // rate the receiver answered at (9600 with an error event when none did).
    std::int32_t FindBaud(std::string& settings);
    bool Change_Baud_Rate(std::int32_t Baud);
    // Clears the link state and pings the receiver (error 0 when it does not answer).
    void Reset();
    // Sends a raw packet (DLE, id, size, data, then room for checksum, DLE,
    // ETX: data size + 6 bytes). Response: the id to wait for (0 none, 2
    // write only); WaitTime: below 30 seconds, else milliseconds, 0 Time_Out.
    void Send(const Bytes& Packet, std::uint8_t Response = 0, std::int32_t WaitTime = 0);
    // Waits, running the loop: below 30 seconds, from 30 up milliseconds.
    void WaitFor(std::int32_t d);

private:
    friend class detail::Control;
    std::unique_ptr<detail::Control> impl_;
};

}  // namespace trekcom
