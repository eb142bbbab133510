#include "link/framing.h"

#include <algorithm>

namespace trekcom::link {

std::uint8_t Calc_Checksum(const Bytes& packet) {
    if (packet.size() < kFrameOverhead) return 0;
    unsigned sum = 0;
    for (std::size_t i = 1; i + 3 < packet.size(); ++i) sum += packet[i];  // id, size, data
    return static_cast<std::uint8_t>((0u - sum) & 0xFF);
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
    const std::size_t size = std::min<std::size_t>(data.size(), 255);
    Bytes packet(size + kFrameOverhead, 0);
    packet[1] = id;
    packet[2] = static_cast<std::uint8_t>(size);
    std::copy_n(data.begin(), size, packet.begin() + 3);
    Seal_Packet(packet);
    return packet;
}

Bytes Stuff_Packet(const Bytes& packet) {
    Bytes wire;
    if (packet.size() < kFrameOverhead) return wire;
    wire.reserve(packet.size() * 2);
    wire.push_back(DLE);
    wire.push_back(packet[1]);
    for (std::size_t i = 2; i + 2 < packet.size(); ++i) {
        wire.push_back(packet[i]);
        if (packet[i] == DLE) wire.push_back(DLE);
    }
    wire.push_back(DLE);
    wire.push_back(ETX);
    return wire;
}

std::optional<Bytes> Unstuff_Frame(std::string_view frame) {
    constexpr std::uint8_t kExpandedId = 123;
    if (frame.size() < 4) return std::nullopt;
    Bytes out;
    out.reserve(frame.size());
    out.push_back(static_cast<std::uint8_t>(frame[0]));
    out.push_back(static_cast<std::uint8_t>(frame[1]));
    const bool expanded = out[1] == kExpandedId;
    if (expanded && frame.size() < kFrameOverhead) return std::nullopt;
    if (!expanded) {
        // Most frames hold no 16 at all: size, data and checksum are then
        // the wire bytes as they are, copied in one go.
        const std::size_t length = std::size_t{static_cast<std::uint8_t>(frame[2])} + 4;
        if (frame.size() >= length && frame.substr(2, length - 2).find(static_cast<char>(DLE)) == std::string_view::npos) {
            out.assign(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
            out.push_back(DLE);
            out.push_back(ETX);
            return out;
        }
    }
    // 1-based position of the checksum: the last one to fill.
    std::size_t last = expanded ? frame.size() - 2 : 0;
    bool skipped_dle = false;
    for (std::size_t i = 2; i < frame.size(); ++i) {
        const auto b = static_cast<std::uint8_t>(frame[i]);
        if (b == DLE && !skipped_dle) {
            skipped_dle = true;
            continue;
        }
        skipped_dle = false;
        out.push_back(b);
        if (out.size() == 3 && !expanded) last = std::size_t{b} + 4;
        if (out.size() == last) {
            out.push_back(DLE);
            out.push_back(ETX);
            return out;
        }
    }
    return std::nullopt;
}

Bytes Packet_Data(const Bytes& packet) {
    if (packet.size() < kFrameOverhead) return {};
    return Bytes(packet.begin() + 3, packet.end() - 3);
}

}  // namespace trekcom::link
