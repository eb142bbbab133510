// The receive path: the port's receive event, the frame parser and the
// per-packet processing (acknowledge, refuse, dispatch).
#include <algorithm>

#include "link/framing.h"
#include "link/link.h"

namespace trekcom::link {

namespace {
constexpr std::string_view kCrLf("\r\n", 2);
// An NMEA sentence is at most 82 characters with its CR LF: a line start
// that has not ended by then is noise.
constexpr std::size_t kMaxLine = 83;
constexpr int kMaxNaks = 6;
// A frame with 255 data bytes, all of them doubled, is about 520 bytes on the
// wire; a frame start with no end after this many bytes is not a frame.
constexpr std::size_t kMaxFrame = 4096;
}  // namespace

// ---------------------------------------------------------------- Receive_Buffer

void Receive_Buffer::Append(std::string_view bytes) {
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

// ---------------------------------------------------------------- receive event

void Link::OnComm() {
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
        while (progress && !Abandoned()) {
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

void Link::Parse_Input(std::string_view chunk) {
    receive_.Append(chunk);
    // A DLE anywhere means packets: the line search is not even needed then.
    if (receive_.Find(static_cast<char>(DLE)) != std::string_view::npos) {
        shared_.NMEAMode = false;
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

void Link::Line_Path(std::size_t line_start) {
    // The start position found before trimming is kept for cutting the line:
    // a first line that had stray bytes before it comes out shifted by them.
    const std::size_t found_at = line_start;
    receive_.Consume(line_start);
    const std::size_t crlf = receive_.Find(kCrLf);
    if (crlf == std::string_view::npos) {
        if (receive_.size() >= kMaxLine) receive_.Clear();
        return;
    }
    shared_.NMEAMode = true;
    const bool text_line = receive_.Find('@') != std::string_view::npos;
    shared_.Settings = "4800,N,8,1";  // the NMEA line rate, used at the next PortOpen
    const std::string line(receive_.View().substr(std::min(found_at, receive_.size()), crlf));
    receive_.Consume(crlf + kCrLf.size());
    ++lines_received_;
    host_.Line_Received(line, text_line);
    Restart_Watchdog();
}

void Link::Packet_Path() {
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
        // run from here may parse again.
        const Bytes packet = std::move(reader.Packet());
        receive_.Consume(reader.Length());
        // A frame with no data (Size 0, or shorter) carries nothing to answer:
        // thrown away, and the search goes on behind it.
        if (packet.size() <= kFrameOverhead) {
            if (receive_.empty()) return;
            continue;
        }
        if (Process_Packet(packet) && !shared_.RawSuppressed) host_.Raise_Receive(packet);
        return;
    }
}

// ---------------------------------------------------------------- one packet

bool Link::Multi_Record(std::uint8_t id) const {
    for (std::uint8_t multi :
         {ids_.PID_Records, ids_.PID_Rte_Hdr, ids_.PID_Rte_Link, ids_.PID_Rte_Wpt_Data, ids_.PID_Trk_Hdr,
          ids_.PID_Trk_Data, ids_.PID_Wpt_Data, ids_.PID_Prx_Wpt_Data, ids_.PID_Flightbook_Record, ids_.PID_Lap,
          ids_.PID_Almanac_Data})
        if (id == multi) return true;
    return false;
}

bool Link::Streamed(std::uint8_t id) const {
    return id == ids_.PID_Pvt_Data || id == ids_.PID_Sats || id == ids_.PID_Display_Data;
}

bool Link::Process_Packet(const Bytes& packet) {
    if (shared_.DebugLog) Trace_Packet(packet, "I");

    const std::uint8_t id = packet[1];
    const std::uint8_t size = packet[2];
    // An ACK of a command leaves the watchdog alone: the command's answer is still due.
    const bool command_ack = id == ids_.PID_Ack_Byte && size >= 1 && packet[3] == ids_.PID_Command_Data;
    if (!command_ack) {
        Stop_Watchdog();
        if (Multi_Record(id) && !shared_.UserFlowControl) timer_.Enabled(true);  // more records must follow
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
            if (shared_.UserFlowControl) {
                nak_count_ = 0;
            } else {
                if (shared_.DebugLog) host_.Raise_HexDebug(host_.xLate("Re-try after NAK"));
                Write_Wire(last_);
                timer_.Enabled(true);
            }
        } else {
            nak_count_ = 0;
            Report(2, "Unable to communicate with device", Last_Frame());
        }
        return true;
    }

    if (Calc_Checksum(packet) == packet[packet.size() - 3]) {
        nak_count_ = 0;
        gave_up_ = false;
        const bool unacknowledged = Streamed(id) || (id == ids_.PID_Records && shared_.RawSuppressed) || shared_.UserFlowControl;
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
void Link::Refuse(const Bytes& packet) {
    const std::uint8_t id = packet[1];
    if (gave_up_) {
        Stop_Watchdog();
        return;
    }
    if (++nak_count_ < kMaxNaks) {
        if (Streamed(id)) {
            // streamed packets are never answered, not even refused
        } else if (shared_.UserFlowControl) {
            nak_count_ = 0;
        } else {
            Answer(nak_, id, false);
        }
    } else {
        nak_count_ = 0;
        gave_up_ = true;
        Stop_Watchdog();
        Report(3, "Invalid message received from device", packet);
    }
}

void Link::Arrived(std::uint8_t id, bool nak) {
    for (Awaited* wait : awaited_) {
        if (wait->id == id) wait->arrived = true;
        if (nak) wait->refused = true;
    }
}

// Sends the ACK or NAK template for `id`; an ACK is remembered as the last
// packet so that the watchdog can repeat it.
void Link::Answer(Packet& templ, std::uint8_t id, bool remember) {
    templ.data[0] = id;
    if (remember) last_ = templ;
    Write_Wire(templ);
}

// Every packet leaves the serial line here: traced, framed, stuffed.
void Link::Write_Wire(const Packet& packet) {
    const Bytes frame = Frame_Of(packet);
    Trace_Packet(frame, "O");
    if (!port_.PortOpen()) return;
    const Bytes wire = Stuff_Packet(frame);
    port_.Output(std::string(wire.begin(), wire.end()));
}

void Link::Report(std::int16_t code, const std::string& phrase, const Bytes& packet) {
    host_.Raise_Error(code, host_.xLate(phrase), packet);
}

}  // namespace trekcom::link
