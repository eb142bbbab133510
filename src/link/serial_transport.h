// The serial transport: packets framed, checksummed and stuffed on a serial
// port; every good packet acknowledged, a damaged one refused so that the
// unit sends it again; NMEA and text lines cut from the same stream. Packets
// and lines go up through the link's host as the port's receive event reads
// them, or as an exchange's wait reads the port itself.
//
// While a wait reads the port the port's RThreshold is 0, so the receive
// event stays quiet; the platform never re-enters a timer's tick.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "link/framing.h"
#include "link/link.h"
#include "link/link_host.h"
#include "link/transport.h"
#include "trekcom/platform.h"

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
class Serial_Transport final : public Transport {
public:
    Serial_Transport(Link& link, Platform& platform, SerialPort& port, const Packet_Ids& ids, Link_Host& host);
    Serial_Transport(const Serial_Transport&) = delete;
    Serial_Transport& operator=(const Serial_Transport&) = delete;

    // Opens the port with the link's line settings.
    bool Open() override;
    void Close() override;
    bool Is_Open() const override { return port_.PortOpen(); }
    // Quiets the receive event for the exchange, and opens a closed port.
    void Prepare() override;
    // Every packet of an exchange: a new exchange also ends a refusal streak.
    bool Write(const Packet& packet) override;
    bool Await(const Packet& sent, std::uint8_t expected, std::int32_t wait_time) override;
    void Discard_Input(bool pending_too) override;

    // Builds the ACK and NAK from the ids in force.
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
    const Receive_Buffer& Buffer() const { return receive_; }
    std::int32_t Nak_Count() const { return nak_count_; }
    // NMEA and text lines read so far: a unit that speaks NMEA at a rate
    // answers no ping, but its lines show the rate is right.
    long Lines_Received() const { return lines_received_; }

private:
    bool Wait_Response(std::uint8_t expected, std::int32_t WaitTime);
    void Packet_Path();
    void Parse_All(std::string_view chunk);
    void Arrived(std::uint8_t id, bool nak);
    void Give_Up();
    void Refuse(const Bytes& packet);
    void Line_Path(std::size_t line_start);
    // Traces, frames, stuffs and writes one packet.
    void Write_Wire(const Packet& packet);
    void Answer(Packet& templ, std::uint8_t id, bool remember);
    bool Multi_Record(std::uint8_t id) const;
    bool Streamed(std::uint8_t id) const;
    State& Shared() { return link_.Shared(); }

    Link& link_;
    Platform& platform_;
    SerialPort& port_;
    const Packet_Ids& ids_;
    Link_Host& host_;
    Receive_Buffer receive_;
    std::int32_t nak_count_ = 0;
    Packet ack_;
    Packet nak_;
    Bytes frame_;       // the frame being written, kept to spare an allocation each
    std::string wire_;  // and its stuffed form
    // The waits in progress, innermost last: a packet that arrives is marked
    // in each that awaits its id, so a wait nested in a handler cannot steal
    // an outer wait's answer.
    struct Awaited {
        std::uint8_t id = 0;
        bool arrived = false;
        bool refused = false;  // a NAK came: the packet was sent again
        bool failed = false;   // the transport gave the exchange up
    };
    std::vector<Awaited*> awaited_;
    long lines_received_ = 0;
    bool gave_up_ = false;  // damaged packets ended the exchange
};

}  // namespace trekcom::link
