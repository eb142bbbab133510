#include "framer.h"

namespace trekcom::sim::frame {

Bytes Packet(std::uint8_t id, const Bytes& data) {
    const std::size_t n = data.size() > 255 ? 255 : data.size();
    Bytes p;
    p.reserve(n + kOverhead);
    p.push_back(kDle);
    p.push_back(id);
    p.push_back(static_cast<std::uint8_t>(n));
    std::uint8_t sum = static_cast<std::uint8_t>(id + n);
    for (std::size_t i = 0; i < n; ++i) {
        p.push_back(data[i]);
        sum = static_cast<std::uint8_t>(sum + data[i]);
    }
    p.push_back(static_cast<std::uint8_t>(-sum));
    p.push_back(kDle);
    p.push_back(kEtx);
    return p;
}

Bytes Data(const Bytes& packet) {
    if (packet.size() < kOverhead) return {};
    return Bytes(packet.begin() + 3, packet.end() - 3);
}

Bytes Wire(const Bytes& packet) {
    Bytes w;
    if (packet.size() < kOverhead) return w;
    w.reserve(packet.size() + 8);
    w.push_back(kDle);
    w.push_back(packet[1]);
    const std::size_t body_end = packet.size() - 2;  // the closing DLE ETX
    for (std::size_t i = 2; i < body_end; ++i) {
        w.push_back(packet[i]);
        if (packet[i] == kDle) w.push_back(kDle);
    }
    w.push_back(kDle);
    w.push_back(kEtx);
    return w;
}

}  // namespace trekcom::sim::frame
