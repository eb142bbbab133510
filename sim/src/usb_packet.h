// The USB form of a packet: type (0 = USB protocol layer, 20 = application
// layer), three reserved bytes, a 16-bit id, two reserved bytes, a 32-bit
// data size, then the data. No framing, no checksum, no ACK/NAK.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>

#include "trekcom/types.h"
#include "wire.h"

namespace trekcom::sim::usb {

inline constexpr std::uint8_t kProtocol = 0;
inline constexpr std::uint8_t kApplication = 20;
inline constexpr std::uint16_t kDataAvailable = 2;
inline constexpr std::uint16_t kStartSession = 5;
inline constexpr std::uint16_t kSessionStarted = 6;
inline constexpr std::uint16_t kStartSession2 = 16;
inline constexpr std::uint16_t kSessionStarted2 = 17;
inline constexpr std::size_t kHeaderSize = 12;
inline constexpr std::uint32_t kMaxData = 1046;

struct Packet {
    std::uint8_t type = 0;
    std::uint16_t id = 0;
    Bytes data;
};

inline Bytes Make_Packet(std::uint8_t type, std::uint16_t id, const Bytes& data) {
    wire::Writer w;
    w.U8(type);
    w.U8(0);
    w.U16(0);
    w.U16(id);
    w.U16(0);
    w.U32(static_cast<std::uint32_t>(data.size()));
    w.Raw(data.data(), data.size());
    return w.Take();
}

// False for anything that is not one whole, sane packet.
inline bool Parse(const Bytes& bytes, Packet& out) {
    wire::Reader r(bytes);
    const std::uint8_t type = r.U8();
    r.U8();
    r.U16();
    const std::uint16_t id = r.U16();
    r.U16();
    const std::uint32_t size = r.U32();
    if (!r.Ok() || (type != kProtocol && type != kApplication) || size > kMaxData || r.Left() != size) return false;
    out.type = type;
    out.id = id;
    out.data.assign(bytes.begin() + kHeaderSize, bytes.end());
    return true;
}

// One IN pipe of the unit: whole packets wait in order and the host takes
// them in reads of up to max bytes. A read never reaches into the next
// packet, because the unit ends each packet with a short USB transfer; so a
// host that reads 64-byte blocks finds every packet starting a block.
class Pipe {
public:
    void Put(Bytes packet) {
        if (!packet.empty()) packets_.push_back(std::move(packet));
    }
    // A zero-length packet: a transfer that ends with no data in it.
    void Put_Zero_Length() { packets_.emplace_back(); }

    // One transfer: nothing when no packet waits, empty for a zero-length packet.
    std::optional<Bytes> Take(std::size_t max) {
        if (packets_.empty() || max == 0) return std::nullopt;
        const Bytes& front = packets_.front();
        const std::size_t n = std::min(max, front.size() - offset_);
        const auto from = front.begin() + static_cast<std::ptrdiff_t>(offset_);
        Bytes out(from, from + static_cast<std::ptrdiff_t>(n));
        offset_ += n;
        if (offset_ == front.size()) {
            packets_.pop_front();
            offset_ = 0;
        }
        return out;
    }

    Bytes Read(std::size_t max) { return Take(max).value_or(Bytes()); }

    // Drops what the host has not started to read; a packet it is halfway
    // through stays whole, or the host would lose track of packet starts.
    void Drop_Unread() {
        const std::size_t keep = offset_ > 0 ? 1 : 0;
        packets_.resize(std::min(packets_.size(), keep));
    }

    bool Empty() const { return packets_.empty(); }
    // Whether a packet waits that the host has not started to read.
    bool Has_Unread() const { return packets_.size() > (offset_ > 0 ? 1u : 0u); }

private:
    std::deque<Bytes> packets_;
    std::size_t offset_ = 0;  // bytes of the front packet already read
};

}  // namespace trekcom::sim::usb
