// The serial transport: the port's opening, the receive event, the frame
// parser, the per-packet processing (acknowledge, refuse, dispatch) and the
// exchange's wait on the line.
#include "serial_transport.h"

#include <algorithm>

#include "trace.h"

namespace trekcom::link {

namespace {
constexpr std::string_view kCrLf("\r\n", 2);
// An NMEA sentence is at most 82 characters with its CR LF: a line start
// that has not ended by then is noise.
constexpr std::size_t kMaxLine = 83;
constexpr int kMaxNaks = 6;
constexpr std::int16_t kBufferSize = 8192;
// Lets the line settle after opening: a USB serial adapter may still be
// starting, and a unit may send a byte of noise as its lines come up.
constexpr double kSettle_ms = 10;
// A frame with 255 data bytes, all of them doubled, is about 520 bytes on the
// wire; a frame start with no end after this many bytes is not a frame.
constexpr std::size_t kMaxFrame = 4096;
}  // namespace

// ---------------------------------------------------------------- Receive_Buffer

void Receive_Buffer::Append(std::string_view bytes) {
    // Compacted only when bytes come: the parser's calls with nothing new
    // would otherwise move what is left of a large chunk again and again.
    if (bytes.empty()) return;
    if (head_ > 0 && head_ >= data_.size() / 2) {
        data_.erase(0, head_);
        head_ = 0;
    }
    data_.append(bytes);
}

void Receive_Buffer::Consume(std::size_t n) {
    reader_.Reset();
    head_ = std::min(data_.size(), head_ + n);
    if (head_ == data_.size()) Clear();
}

void Receive_Buffer::Clear() {
    reader_.Reset();
    data_.clear();
    head_ = 0;
}

// ---------------------------------------------------------------- the transport

Serial_Transport::Serial_Transport(Link& link, Platform& platform, SerialPort& port, const Packet_Ids& ids,
                                   Link_Host& host)
    : link_(link), platform_(platform), port_(port), ids_(ids), host_(host) {
    port_.OnComm = [this] { OnComm(); };
    Build_Fixed_Packets();
}

void Serial_Transport::Build_Fixed_Packets() {
    // ACK and NAK carry the answered id and a second data byte 0.
    ack_ = {ids_.PID_Ack_Byte, {0, 0}, std::nullopt};
    nak_ = {ids_.PID_Nak_Byte, {0, 0}, std::nullopt};
}

bool Serial_Transport::Open() {
    if (port_.PortOpen()) port_.PortOpen(false);
    port_.RTSEnable(Shared().RTSEnable);
    port_.DTREnable(Shared().DTREnable);
    port_.Handshaking(Shared().Handshaking);
    port_.Settings(Shared().Settings);
    port_.CommPort(link_.Port());
    port_.Port_Name(Shared().Port_Name);
    port_.RThreshold(0);
    port_.SThreshold(0);
    port_.InBufferSize(kBufferSize);
    port_.OutBufferSize(kBufferSize);
    port_.InputLen(0);
    port_.InBufferCount(0);
    port_.PortOpen(true);
    if (!port_.PortOpen()) {
        // The system's reason goes to the trace; the event carries the message.
        link_.Trace_Packet({}, "!" + port_.Last_Error());
        host_.Raise_Error(0, host_.xLate("Unable to open port ") + std::to_string(link_.Port()), {});
        return false;
    }
    link_.Wait_Until([] { return false; }, kSettle_ms);
    receive_.Clear();
    port_.InBufferCount(0);
    port_.RThreshold(1);
    return true;
}

void Serial_Transport::Close() {
    port_.RThreshold(0);
    port_.SThreshold(0);
    port_.PortOpen(false);
    port_.InBufferCount(0);
    port_.OutBufferCount(0);
}

void Serial_Transport::Prepare() {
    port_.RThreshold(0);
    if (!Is_Open()) link_.PortOpen();
}

bool Serial_Transport::Write(const Packet& packet) {
    if (packet.id != ids_.PID_Ack_Byte && packet.id != ids_.PID_Nak_Byte) gave_up_ = false;  // a new exchange
    Write_Wire(packet);
    port_.RThreshold(1);
    return Is_Open();
}

bool Serial_Transport::Await(const Packet&, std::uint8_t expected, std::int32_t wait_time) {
    port_.RThreshold(0);  // the wait alone reads the port
    return Wait_Response(expected, wait_time);
}

void Serial_Transport::Discard_Input(bool pending_too) {
    if (pending_too) port_.InBufferCount(0);
    receive_.Clear();
}

bool Serial_Transport::Wait_Response(std::uint8_t expected, std::int32_t WaitTime) {
    if (WaitTime < 1) WaitTime = link_.Time_Out();
    const double period_ms = Link::Wait_Period_ms(WaitTime);
    double start_ms = platform_.Now_ms();
    // The wait reads the port itself and hands every byte to the one parser;
    // the answer counts once that parser has taken it as a good packet.
    Awaited wait{expected};
    awaited_.push_back(&wait);
    struct Done {
        std::vector<Awaited*>& waits;
        Awaited* mine;
        ~Done() { std::erase(waits, mine); }
    } done{awaited_, &wait};
    while (!link_.Abandoned()) {
        if (!port_.PortOpen()) {
            port_.RThreshold(1);
            return false;
        }
        Parse_All(port_.Input());
        if (wait.arrived || wait.failed) {
            port_.RThreshold(1);
            return wait.arrived;
        }
        if (wait.refused) {  // re-sent: the period starts again
            wait.refused = false;
            start_ms = platform_.Now_ms();
        }
        if (platform_.Now_ms() > start_ms + period_ms) break;
        platform_.DoEvents();
    }
    host_.Raise_HexDebug(host_.xLate("Time-out. expecting PID-&H") + Hex2(expected));
    // Late answers still go through the receive handler.
    port_.RThreshold(1);
    return false;
}

// Every whole packet and line of the chunk and of what was buffered: the
// parser takes one per call, and what it leaves would otherwise wait for the
// next bytes on the line, which may never come.
void Serial_Transport::Parse_All(std::string_view chunk) {
    Parse_Input(chunk);
    while (!receive_.empty() && !link_.Abandoned()) {
        const std::size_t before = receive_.size();
        Parse_Input({});
        if (receive_.size() == before) break;
    }
}

// ---------------------------------------------------------------- receive event

void Serial_Transport::OnComm() {
    port_.RThreshold(0);
    const std::int16_t event = port_.CommEvent();
    if (event != SerialPort::comEvReceive) {
        if (event > 1000) {  // a line error: what was buffered is suspect
            port_.InBufferCount(0);
            receive_.Clear();
        }
    } else {
        // One packet or line per pass, without yielding, while bytes keep
        // coming: every complete line of a read is raised now, not when the
        // next byte happens to arrive. A pass that neither got bytes nor
        // consumed any means the rest of a frame or line is still on the
        // line: the next receive event picks it up (spinning here would
        // never let it arrive).
        bool progress = true;
        while (progress && !link_.Abandoned()) {
            port_.RThreshold(0);
            const std::string chunk = port_.InBufferCount() >= 1 ? port_.Input() : std::string();
            const std::size_t before = receive_.size();
            Parse_Input(chunk);
            progress = !chunk.empty() || receive_.size() != before;
            if (port_.InBufferCount() < 1 && receive_.empty()) break;
        }
    }
    port_.RThreshold(1);
}

// ---------------------------------------------------------------- parser

void Serial_Transport::Parse_Input(std::string_view chunk) {
    receive_.Append(chunk);
    // A DLE anywhere means packets: the line search is not even needed then.
    if (receive_.Find(static_cast<char>(DLE)) != std::string_view::npos) {
        Shared().NMEAMode = false;
        Packet_Path();
        return;
    }
    std::size_t line_start = receive_.Find('$');
    if (line_start == std::string_view::npos) line_start = receive_.Find('@');
    if (line_start != std::string_view::npos) {
        Line_Path(line_start);
        return;
    }
    const std::size_t crlf = receive_.Find(kCrLf);
    if (crlf == std::string_view::npos)
        receive_.Clear();
    else
        receive_.Consume(crlf + kCrLf.size());
}

void Serial_Transport::Line_Path(std::size_t line_start) {
    // The start position found before trimming is kept for cutting the line:
    // a first line that had stray bytes before it comes out shifted by them.
    const std::size_t found_at = line_start;
    receive_.Consume(line_start);
    const std::size_t crlf = receive_.Find(kCrLf);
    if (crlf == std::string_view::npos) {
        if (receive_.size() >= kMaxLine) receive_.Clear();
        return;
    }
    Shared().NMEAMode = true;
    const bool text_line = receive_.Find('@') != std::string_view::npos;
    Shared().Settings = "4800,N,8,1";  // the NMEA line rate, used at the next PortOpen
    const std::string line(receive_.View().substr(std::min(found_at, receive_.size()), crlf));
    receive_.Consume(crlf + kCrLf.size());
    ++lines_received_;
    host_.Line_Received(line, text_line);
    link_.Restart_Watchdog();
}

void Serial_Transport::Packet_Path() {
    using Status = Frame_Reader::Status;
    for (;;) {
        if (receive_[0] != static_cast<char>(DLE)) {
            const std::size_t dle = receive_.Find(static_cast<char>(DLE));
            if (dle == std::string_view::npos) {
                receive_.Clear();
                return;
            }
            receive_.Consume(dle);
        }
        const Status status = receive_.Read_Frame();
        Frame_Reader& reader = receive_.Reader();
        if (status == Status::incomplete) {
            if (reader.Length() <= kMaxFrame) return;  // more bytes are awaited
            // No frame is this long: the DLE that opened it was noise, and a
            // real frame may start at any later DLE.
            receive_.Consume(1);
            if (receive_.empty()) return;
            continue;
        }
        if (status == Status::broken) {
            // Only the broken piece goes: its lone DLE may open the next frame.
            receive_.Consume(reader.Length());
            continue;
        }
        // The frame leaves the buffer before it is processed: handlers that
        // run from here may parse again. Its storage goes back to the reader
        // afterwards, so a stream of frames reads into one heap block.
        Bytes packet = std::move(reader.Packet());
        receive_.Consume(reader.Length());
        // A frame with no data (Size 0, or shorter) carries nothing to answer:
        // thrown away, and the search goes on behind it.
        const bool empty = packet.size() <= kFrameOverhead;
        if (!empty && Process_Packet(packet) && !Shared().RawSuppressed) host_.Raise_Receive(packet);
        receive_.Reader().Recycle(std::move(packet));
        if (!empty || receive_.empty()) return;
    }
}

// ---------------------------------------------------------------- one packet

bool Serial_Transport::Multi_Record(std::uint8_t id) const {
    // The track and waypoint ids first: they come by the thousand.
    return id == ids_.PID_Trk_Data || id == ids_.PID_Wpt_Data || id == ids_.PID_Records || id == ids_.PID_Rte_Hdr ||
           id == ids_.PID_Rte_Link || id == ids_.PID_Rte_Wpt_Data || id == ids_.PID_Trk_Hdr ||
           id == ids_.PID_Prx_Wpt_Data || id == ids_.PID_Flightbook_Record || id == ids_.PID_Lap ||
           id == ids_.PID_Almanac_Data;
}

bool Serial_Transport::Streamed(std::uint8_t id) const {
    return id == ids_.PID_Pvt_Data || id == ids_.PID_Sats || id == ids_.PID_Display_Data;
}

bool Serial_Transport::Process_Packet(const Bytes& packet) {
    if (Shared().DebugLog) link_.Trace_Packet(packet, "I");

    const std::uint8_t id = packet[1];
    const std::uint8_t size = packet[2];
    // An ACK of a command leaves the watchdog alone: the command's answer is still due.
    const bool command_ack = id == ids_.PID_Ack_Byte && size >= 1 && packet[3] == ids_.PID_Command_Data;
    if (!command_ack) {
        link_.Stop_Watchdog();
        if (Multi_Record(id)) link_.Expect_More();  // more records must follow
    }

    const bool link_answer = id == ids_.PID_Ack_Byte || id == ids_.PID_Nak_Byte;
    if (!Length_Agrees(packet)) {
        // Bytes went missing or crept in on the line. Dropping the packet
        // quietly would lose it: a receiver that hears the host's next
        // repeated ACK takes it for this packet's. Refused, it is sent again.
        if (!link_answer) Refuse(packet);
        return false;
    }
    if (id == ids_.PID_Ack_Byte) {
        Arrived(id, false);
        return true;
    }
    if (id == ids_.PID_Nak_Byte) {
        Arrived(id, true);
        if (++nak_count_ < kMaxNaks) {
            if (Shared().UserFlowControl) {
                nak_count_ = 0;
            } else {
                if (Shared().DebugLog) host_.Raise_HexDebug(host_.xLate("Re-try after NAK"));
                Write_Wire(link_.Last_Sent());
                link_.Expect_More();
            }
        } else {
            nak_count_ = 0;
            Give_Up();
            link_.Report(2, "Unable to communicate with device", link_.Last_Frame());
        }
        return true;
    }

    if (Calc_Checksum(packet) == packet[packet.size() - 3]) {
        nak_count_ = 0;
        gave_up_ = false;
        const bool unacknowledged = Streamed(id) || (id == ids_.PID_Records && Shared().RawSuppressed) || Shared().UserFlowControl;
        if (!unacknowledged) Answer(ack_, id, true);
        Arrived(id, false);
        host_.Dispatch_Packet(packet);
    } else {
        Refuse(packet);
    }
    return true;
}

// A damaged packet: refused with a NAK so that the receiver sends it again,
// and the sixth in a row is an error that ends the exchange. A receiver that
// damages every packet would otherwise be refused, re-send and be refused for
// ever; after the error the host stays quiet (no NAK, no watchdog re-send)
// until a good packet comes or the host sends again.
void Serial_Transport::Refuse(const Bytes& packet) {
    const std::uint8_t id = packet[1];
    if (gave_up_) {
        link_.Stop_Watchdog();
        return;
    }
    if (++nak_count_ < kMaxNaks) {
        if (Streamed(id)) {
            // streamed packets are never answered, not even refused
        } else if (Shared().UserFlowControl) {
            nak_count_ = 0;
        } else {
            Answer(nak_, id, false);
        }
    } else {
        nak_count_ = 0;
        gave_up_ = true;
        Give_Up();
        link_.Report(3, "Invalid message received from device", packet);
    }
}

// The exchange in progress has failed: its waits end now, and the error
// about to be raised is its one outcome. Marked before the error is raised:
// a handler of it may well start the next exchange.
void Serial_Transport::Give_Up() {
    link_.Exchange_Failed();
    for (Awaited* wait : awaited_) wait->failed = true;
}

void Serial_Transport::Arrived(std::uint8_t id, bool nak) {
    for (Awaited* wait : awaited_) {
        if (wait->id == id) wait->arrived = true;
        if (nak) wait->refused = true;
    }
}

// Sends the ACK or NAK template for `id`; an ACK is remembered as the last
// packet so that the watchdog can repeat it.
void Serial_Transport::Answer(Packet& templ, std::uint8_t id, bool remember) {
    templ.data[0] = id;
    if (remember) link_.Remember(templ);
    Write_Wire(templ);
}

// Every packet leaves the serial line here: traced, framed, stuffed.
void Serial_Transport::Write_Wire(const Packet& packet) {
    const bool open = port_.PortOpen();
    if (!open && !Shared().DebugLog) return;  // nothing to write, nothing to trace
    Frame_Into(packet, frame_);
    link_.Trace_Packet(frame_, "O");
    if (!open) return;
    Stuff_Into(frame_, wire_);
    port_.Output(wire_);
}

}  // namespace trekcom::link
