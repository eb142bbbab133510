// The link: the command exchange with its watchdog and re-sends, over the
// transport of the port chosen; the port's opening and baud-rate search.
//
// One Link belongs to one control. It runs on the host's thread; waits pump
// the platform's loop, so the host's handlers (and the transports' receive
// handlers and the watchdog) may run inside them. What keeps that harmless:
// a transport's own wait keeps its receive handler quiet (serial_transport.h,
// usb_transport.h); the platform never re-enters a timer's tick.
#pragma once

#include <array>
#include <functional>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "link/framing.h"
#include "link/link_host.h"
#include "link/packet.h"
#include "link/packet_ids.h"
#include "link/transport.h"
#include "trekcom/platform.h"
#include "trekcom/types.h"

namespace trekcom {
class cUSB;
}

namespace trekcom::link {

class Serial_Transport;
class Usb_Transport;

// What the control's properties and procedures share with the link: the
// line settings, plain stores that the port takes at the next PortOpen, and
// the flags both sides read and write.
struct State {
    std::string Port_Name;  // a device path that overrides the port number
    std::string Settings = "9600,N,8,1";
    bool RTSEnable = false;
    bool DTREnable = false;
    Handshaking_Values Handshaking = Handshaking_Values::comNone;
    bool UserFlowControl = false;  // the host acknowledges; no watchdog, no re-sends
    bool DebugLog = false;         // every packet traced as HexDebug
    bool NMEAMode = false;         // the unit speaks NMEA or text lines
    std::int16_t NMEAErrorCount = 0;
    // While the counts are asked for, only the records packets reach the
    // host, unacknowledged.
    bool RawSuppressed = false;
    double LastTraceTime = 0;  // seconds since midnight, of the last command traced
    // Set while the control is being destroyed: waits give up at once.
    bool Terminating = false;
};

class Link {
public:
    Link(Platform& platform, SerialPort& comGarmin, Timer& tmrTimeout, const Packet_Ids& ids, Link_Host& host,
         cUSB& usb);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // ---- properties: plain stores; port ones take effect at the next PortOpen
    // 1 and up: a serial port; 0 (or less): the USB unit. Choosing the port
    // chooses the transport.
    std::int16_t Port() const { return port_number_; }
    void Port(std::int16_t n);
    // 2000..5000 ms; anything else becomes 2000 with a message box.
    std::int16_t Time_Out() const { return time_out_ms_; }
    void Time_Out(std::int16_t ms);

    // ---- what the control shares with the link
    State& Shared() { return shared_; }
    const State& Shared() const { return shared_; }
    static const std::array<std::string, 7> BaudList;
    // The serial line, for its receive path's diagnostics and tests.
    Serial_Transport& Serial() { return *serial_; }
    // Whether every wait should give up now: the control is going away, or
    // the host asked the platform to abandon its waits (Platform::Interrupt).
    bool Abandoned() const { return shared_.Terminating || platform_.Interrupted(); }

    // Builds the fixed packets from the ids in force.
    void Build_Fixed_Packets();

    // One trace line as HexDebug (only with DebugLog on, except ":" notes).
    void Trace_Packet(const Bytes& packet, std::string_view direction);
    // cError/vcError with the translated phrase.
    void Report(std::int16_t code, const std::string& phrase, const Bytes& packet);

    // ---- command exchange
    // The one way out for every packet. Response: 0 no wait, 2 write and
    // return false, any other id: wait for it (then set to 0).
    bool Send_Packet(const Packet& packet, std::uint8_t& Response, std::int32_t WaitTime);
    // The last packet sent (an ACK included), and its serial form for the
    // host's error events.
    const Packet& Last_Sent() const { return last_; }
    Bytes Last_Frame() const { return Frame_Of(last_); }
    // An ACK the transport sent on its own is the last packet too: the
    // watchdog repeats it.
    void Remember(const Packet& packet) { last_ = packet; }
    void Watchdog_Tick();
    // Stops the watchdog (RetryCount 0): a packet came. Both transports call
    // it for every packet that arrives.
    void Stop_Watchdog();
    // Stops it and starts it afresh (unless the host acknowledges): a line
    // of a stream came and the next is due.
    void Restart_Watchdog();
    // More records of a transfer must follow: the watchdog runs again.
    void Expect_More();
    // The transport gave up on the exchange in progress and reports why:
    // the watchdog stops, and no "No response" follows for it.
    void Exchange_Failed();
    // "No response from device", unless the exchange has already failed.
    void No_Response();
    // A packet the host laid out as a serial frame (its checksum and trailer
    // are filled in); a missing answer is reported.
    void Send(const Bytes& frame, std::uint8_t Response, std::int32_t WaitTime);
    void Reset();
    void WaitFor(std::int32_t WaitTime);
    // Runs the loop until `done` (true) or `ms` have passed (false), or the
    // waits are abandoned.
    bool Wait_Until(const std::function<bool()>& done, double ms);
    double Now_ms() const { return platform_.Now_ms(); }

    // ---- transport
    // Readies the unit to be identified (the USB session).
    bool Start_Session() { return transport_->Start_Session(); }
    // Whether packets arrive only when read, and one such read.
    bool Needs_Polling() const { return transport_->Needs_Polling(); }
    void Poll() { transport_->Poll(); }
    // Stops the transports' events: the control is going away.
    void Detach();

    // ---- port
    bool PortOpen();
    void PortClose();
    std::int32_t FindBaud(std::string& isettings);
    bool Change_Baud_Rate(std::int32_t Baud);
    // Back to `settings` after a raised transfer, however it ended: the unit
    // is asked to change back, and whether it answers or not the port ends
    // at those settings. A host's interrupt is held back meanwhile (the unit
    // must be left where the next program finds it) and stands again after.
    void Restore_Settings(const std::string& settings);

    // A wait value in milliseconds: below 30 is seconds, else milliseconds.
    static double Wait_Period_ms(std::int32_t WaitTime);
    // The leading baud number of a settings text ("9600,N,8,1" -> 9600).
    static std::int32_t Baud_Of(const std::string& settings);

private:
    // The transport of the port chosen: USB for Port 0, serial otherwise.
    void Select_Transport();

    Platform& platform_;
    Timer& timer_;
    const Packet_Ids& ids_;
    Link_Host& host_;
    std::int16_t time_out_ms_ = 2000;
    State shared_;
    std::int32_t retry_count_ = 0;
    Packet ping_;
    Packet baud_;  // the change-baud request
    std::uint8_t last_response_ = 0;
    std::int32_t last_wait_ = 0;
    Packet last_;
    bool failed_ = false;  // the exchange of last_ has ended in an error
    std::unique_ptr<Serial_Transport> serial_;
    std::unique_ptr<Usb_Transport> usb_;
    Transport* transport_ = nullptr;
    std::int16_t port_number_ = 1;
};

}  // namespace trekcom::link
