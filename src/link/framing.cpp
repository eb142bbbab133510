#include "link/framing.h"

#include "link/little_endian.h"

#include <algorithm>
#include <cstring>

namespace trekcom::link {

std::uint8_t Calc_Checksum(const Bytes& packet) {
    if (packet.size() < kFrameOverhead) return 0;
    // Summed in bytes, wrapping as the checksum does: the compiler adds many at once.
    std::uint8_t sum = 0;
    for (const std::uint8_t b : Data_View(packet).subspan(1, packet.size() - 4)) sum = static_cast<std::uint8_t>(sum + b);  // id, size, data
    return static_cast<std::uint8_t>(0u - sum);
}

void Seal_Packet(Bytes& packet) {
    if (packet.size() < kFrameOverhead) return;
    const std::size_t n = packet.size();
    packet[0] = DLE;
    packet[n - 2] = DLE;
    packet[n - 1] = ETX;
    packet[n - 3] = Calc_Checksum(packet);
}

Bytes Make_Packet(std::uint8_t id, const Bytes& data) {
    return Frame_Of(Packet{id, Bytes(data.begin(), data.begin() + std::min<std::size_t>(data.size(), 255)), std::nullopt});
}

namespace {
// The stuffing for either kind of byte buffer: the wire is text for the port
// and bytes for everyone else.
template <typename Buffer>
void Stuff(const Bytes& packet, Buffer& wire) {
    using Byte = typename Buffer::value_type;
    wire.clear();
    if (packet.size() < kFrameOverhead) return;
    wire.reserve(packet.size() * 2);
    wire.push_back(static_cast<Byte>(DLE));
    wire.push_back(static_cast<Byte>(packet[1]));
    for (std::size_t i = 2; i + 2 < packet.size(); ++i) {
        wire.push_back(static_cast<Byte>(packet[i]));
        if (packet[i] == DLE) wire.push_back(static_cast<Byte>(DLE));
    }
    wire.push_back(static_cast<Byte>(DLE));
    wire.push_back(static_cast<Byte>(ETX));
}
}  // namespace

Bytes Stuff_Packet(const Bytes& packet) {
    Bytes wire;
    Stuff(packet, wire);
    return wire;
}

void Stuff_Into(const Bytes& packet, std::string& wire) { Stuff(packet, wire); }

Frame_Reader::Status Frame_Reader::Next(std::string_view stream) {
    if (read_ == 0) {
        if (stream.size() < 2) return Status::incomplete;
        packet_.clear();
        // Room for any normal frame, so that recycled storage always fits.
        packet_.reserve(255 + kFrameOverhead);
        packet_.push_back(DLE);
        packet_.push_back(static_cast<std::uint8_t>(stream[1]));  // the id is never doubled
        read_ = 2;
        if (Take_Whole(stream)) return Status::frame;
    }
    const char* const data = stream.data();
    while (read_ < stream.size()) {
        if (dle_) {
            const auto b = static_cast<std::uint8_t>(data[read_]);
            dle_ = false;
            if (b == DLE) {
                packet_.push_back(DLE);
                ++read_;
            } else if (b == ETX) {
                packet_.push_back(DLE);
                packet_.push_back(ETX);
                ++read_;
                return Status::frame;
            } else {
                --read_;  // the lone DLE stays for the next frame
                return Status::broken;
            }
            continue;
        }
        // Copy the run up to the next DLE in one go: most bytes are plain.
        const void* hit = std::memchr(data + read_, DLE, stream.size() - read_);
        const std::size_t run_end = hit ? static_cast<std::size_t>(static_cast<const char*>(hit) - data) : stream.size();
        Append_Run(data + read_, run_end - read_);
        read_ = run_end;
        if (hit) {
            dle_ = true;
            ++read_;
        }
    }
    return Status::incomplete;
}

// A plain copy: the frame's room is already there, and vector::insert's
// general case costs more than the few bytes it moves.
void Frame_Reader::Append_Run(const char* bytes, std::size_t n) {
    const std::size_t at = packet_.size();
    packet_.resize(at + n);
    std::memcpy(packet_.data() + at, bytes, n);
}

// Most frames hold no doubled DLE and lie whole in the stream: then the
// size byte says where the frame ends, and its bytes are the packet.
bool Frame_Reader::Take_Whole(std::string_view stream) {
    if (stream.size() < 3) return false;
    const std::size_t end = static_cast<std::uint8_t>(stream[2]) + kFrameOverhead;
    if (stream.size() < end || static_cast<std::uint8_t>(stream[end - 2]) != DLE ||
        static_cast<std::uint8_t>(stream[end - 1]) != ETX || std::memchr(stream.data() + 2, DLE, end - 4))
        return false;
    Append_Run(stream.data() + 2, end - 2);
    read_ = end;
    return true;
}

void Frame_Reader::Recycle(Bytes&& storage) {
    if (read_ != 0 || storage.capacity() <= packet_.capacity()) return;
    storage.clear();
    packet_ = std::move(storage);
}

void Frame_Reader::Reset() {
    read_ = 0;
    dle_ = false;
    packet_.clear();
}

bool Length_Agrees(const Bytes& packet) {
    if (packet.size() < kFrameOverhead) return false;
    if (packet[1] == kExpanded_Id) return true;
    return std::size_t{packet[2]} + kFrameOverhead == packet.size();
}

std::optional<Bytes> Unstuff_Frame(std::string_view frame) {
    if (frame.empty() || static_cast<std::uint8_t>(frame[0]) != DLE) return std::nullopt;
    Frame_Reader reader;
    if (reader.Next(frame) != Frame_Reader::Status::frame || reader.Length() != frame.size()) return std::nullopt;
    if (!Length_Agrees(reader.Packet())) return std::nullopt;
    return std::move(reader.Packet());
}

Bytes Packet_Data(const Bytes& packet) {
    const Data_View data = Data_Of(packet);
    return Bytes(data.begin(), data.end());
}

Data_View Data_Of(const Bytes& packet) {
    if (packet.size() < kFrameOverhead) return {};
    return Data_View(packet).subspan(3, packet.size() - kFrameOverhead);
}

Bytes Frame_Of(const Packet& packet, Checksum checksum) {
    Bytes frame;
    Frame_Into(packet, frame, checksum);
    return frame;
}

void Frame_Into(const Packet& packet, Bytes& frame, Checksum checksum) {
    const std::size_t size = packet.data.size();
    const std::size_t announced = packet.Announced_Size();
    const bool expanded = packet.id > 255 || announced > 255 || size > 255;
    const std::size_t head = expanded ? 3 + kExpanded_Head : 3;
    // Sized once and written in place: the trailer's checksum byte stays 0
    // until the frame is sealed.
    frame.assign(head + size + 3, 0);
    frame[0] = DLE;
    if (expanded) {
        frame[1] = kExpanded_Id;
        frame[2] = static_cast<std::uint8_t>(std::min<std::size_t>(size + kExpanded_Head, 255));
        Put_LE<std::uint32_t>(frame, 3, static_cast<std::uint32_t>(size));
        Put_LE<std::uint16_t>(frame, 7, packet.id);
    } else {
        frame[1] = static_cast<std::uint8_t>(packet.id);
        frame[2] = static_cast<std::uint8_t>(announced);
    }
    std::copy(packet.data.begin(), packet.data.end(), frame.begin() + static_cast<std::ptrdiff_t>(head));
    frame[frame.size() - 2] = DLE;
    frame[frame.size() - 1] = ETX;
    if (checksum == Checksum::computed) Seal_Packet(frame);
}

std::optional<Packet> Packet_Of(const Bytes& frame) {
    if (frame.size() < kFrameOverhead) return std::nullopt;
    const Data_View data = Data_Of(frame);
    if (frame[1] == kExpanded_Id && data.size() >= kExpanded_Head) {
        const std::size_t claimed = Get_LE<std::uint32_t>(data, 0);
        const Data_View held = data.subspan(kExpanded_Head);
        const Data_View body = held.first(std::min(claimed, held.size()));
        return Packet{Get_LE<std::uint16_t>(data, 4), Bytes(body.begin(), body.end()), std::nullopt};
    }
    Packet packet{frame[1], Bytes(data.begin(), data.end()), std::nullopt};
    if (frame[2] != data.size()) packet.announced = frame[2];
    return packet;
}

}  // namespace trekcom::link
