// The serial link: the receive parser, the command exchange with its
// watchdog and re-sends, and the port's opening and baud-rate search.
//
// One Link belongs to one control. It runs on the host's thread; waits pump
// the platform's loop, so the host's handlers (and this class's own receive
// handler and watchdog) may run inside them. What keeps that harmless: while
// a wait reads the port itself the port's RThreshold is 0, so the receive
// handler stays quiet; the platform never re-enters a timer's tick.
#pragma once

#include <array>
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

// Bytes received and not yet consumed. Consuming from the front is cheap, so
// a large chunk holding thousands of frames parses in linear time. The frame
// reader's place goes with the buffer: whatever moves or empties the front
// starts the next frame search afresh.
class Receive_Buffer {
public:
    std::string_view View() const { return std::string_view(data_).substr(head_); }
    std::size_t size() const { return data_.size() - head_; }
    bool empty() const { return size() == 0; }
    char operator[](std::size_t i) const { return data_[head_ + i]; }
    std::size_t Find(std::string_view needle, std::size_t from = 0) const { return View().find(needle, from); }
    std::size_t Find(char c, std::size_t from = 0) const { return View().find(c, from); }

    void Append(std::string_view bytes);
    void Consume(std::size_t n);
    void Clear();

    // Reads on in the frame that opens the buffer (its first byte is a DLE).
    Frame_Reader::Status Read_Frame() { return reader_.Next(View()); }
    Frame_Reader& Reader() { return reader_; }

private:
    std::string data_;
    std::size_t head_ = 0;
    Frame_Reader reader_;
};

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
    // What the receive path holds, for diagnostics and tests.
    const Receive_Buffer& Buffer() const { return receive_; }
    std::int32_t Nak_Count() const { return nak_count_; }
    // Whether every wait should give up now: the control is going away, or
    // the host asked the platform to abandon its waits (Platform::Interrupt).
    bool Abandoned() const { return shared_.Terminating || platform_.Interrupted(); }

    // Builds the fixed packets from the ids in force.
    void Build_Fixed_Packets();

    // ---- receive path
    // The port's receive event.
    void OnComm();
    // Appends a chunk and consumes at most one packet or line.
    void Parse_Input(std::string_view chunk);
    // Traces, acknowledges or refuses, and dispatches one unstuffed frame.
    // Returns whether the host may see it (a packet whose length disagrees
    // with its size byte was damaged on the line: it is refused like a bad
    // checksum, so that the receiver sends it again, and raised nowhere).
    bool Process_Packet(const Bytes& packet);
    // One trace line as HexDebug (only with DebugLog on, except ":" notes).
    void Trace_Packet(const Bytes& packet, std::string_view direction);

    // ---- command exchange
    // The one way out for every packet. Response: 0 no wait, 2 write and
    // return false, any other id: wait for it (then set to 0).
    bool Send_Packet(const Packet& packet, std::uint8_t& Response, std::int32_t WaitTime);
    // The last packet sent (an ACK included), and its serial form for the
    // host's error events.
    const Packet& Last_Sent() const { return last_; }
    Bytes Last_Frame() const { return Frame_Of(last_); }
    bool Wait_Response(std::uint8_t expected, std::int32_t WaitTime);
    void Watchdog_Tick();
    // Stops the watchdog (RetryCount 0): a packet came. The USB receive
    // handler calls it for every packet, as the parser does for a frame.
    void Stop_Watchdog();
    void No_Response();
    // A packet the host laid out as a serial frame (its checksum and trailer
    // are filled in); a missing answer is reported.
    void Send(const Bytes& frame, std::uint8_t Response, std::int32_t WaitTime);
    void Reset();
    void WaitFor(std::int32_t WaitTime);

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

    // A wait value in milliseconds: below 30 is seconds, else milliseconds.
    static double Wait_Period_ms(std::int32_t WaitTime);
    // The leading baud number of a settings text ("9600,N,8,1" -> 9600).
    static std::int32_t Baud_Of(const std::string& settings);

private:
    friend class Serial_Transport;
    // The transport of the port chosen: USB for Port 0, serial otherwise.
    void Select_Transport();
    bool Open_Serial();
    void Close_Serial();
    void Packet_Path();
    void Parse_All(std::string_view chunk);
    void Arrived(std::uint8_t id, bool nak);
    void Refuse(const Bytes& packet);
    void Line_Path(std::size_t line_start);
    void Restart_Watchdog();
    void Write_Wire(const Packet& packet);
    void Answer(Packet& templ, std::uint8_t id, bool remember);
    void Report(std::int16_t code, const std::string& phrase, const Bytes& packet);
    bool Multi_Record(std::uint8_t id) const;
    bool Streamed(std::uint8_t id) const;

    Platform& platform_;
    SerialPort& port_;
    Timer& timer_;
    const Packet_Ids& ids_;
    Link_Host& host_;
    std::int16_t time_out_ms_ = 2000;
    // The waits in progress, innermost last: a packet that arrives is marked
    // in each that awaits its id, so a wait nested in a handler cannot steal
    // an outer wait's answer.
    struct Awaited {
        std::uint8_t id = 0;
        bool arrived = false;
        bool refused = false;  // a NAK came: the packet was sent again
    };
    std::vector<Awaited*> awaited_;
    State shared_;
    Receive_Buffer receive_;
    std::int32_t nak_count_ = 0;
    std::int32_t retry_count_ = 0;
    Packet ack_;
    Packet nak_;
    Packet ping_;
    Packet baud_;  // the change-baud request
    std::uint8_t last_response_ = 0;
    std::int32_t last_wait_ = 0;
    Packet last_;
    std::unique_ptr<Serial_Transport> serial_;
    std::unique_ptr<Usb_Transport> usb_;
    Transport* transport_ = nullptr;
    std::int16_t port_number_ = 1;
    long lines_received_ = 0;
    bool gave_up_ = false;  // damaged packets ended the exchange
};

}  // namespace trekcom::link
