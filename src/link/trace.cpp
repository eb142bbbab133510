#include "trace.h"

#include <cmath>
#include <cstdio>

#include "link/link.h"

namespace trekcom::link {

std::string Format_Elapsed(double ms) {
    if (!std::isfinite(ms)) ms = 0;
    char text[32];
    std::snprintf(text, sizeof text, "%7.1f", ms);
    return text;
}

std::string Hex2(unsigned value) {
    char text[3];
    std::snprintf(text, sizeof text, "%02X", value & 0xFF);
    return text;
}

std::string Trace_Line(const Bytes& packet, std::string_view direction, double elapsed_ms) {
    std::string line;
    const char mark = direction.empty() ? ':' : direction.front();
    const std::string_view note = direction.empty() ? direction : direction.substr(1);
    bool incoming = false;
    switch (mark) {
        case 'O': line = kArrowOut; break;
        case 'I': line = kArrowIn; incoming = true; break;
        case 'X': line = "PCX\u00AB- GPS "; incoming = true; break;
        case '*': line = "PC * GPS "; break;
        case '!': line = "Error "; break;
        default: break;  // ':' and anything else: a plain note
    }
    if (incoming) line += "(" + Format_Elapsed(elapsed_ms) + " ms) ";
    if (!note.empty()) {
        line += note;
        if (!packet.empty()) line += ' ';
    }
    static constexpr char kHex[] = "0123456789ABCDEF";
    line.reserve(line.size() + packet.size() * 3);
    for (std::uint8_t b : packet) {
        line += kHex[b >> 4];
        line += kHex[b & 15];
        line += ' ';
    }
    return line;
}

void Link::Trace_Packet(const Bytes& packet, std::string_view direction) {
    const bool note = !direction.empty() && direction.front() == ':';
    if (!shared_.DebugLog && !note) return;
    const double now_s = platform_.Seconds_Since_Midnight();
    const std::string line = Trace_Line(packet, direction, (now_s - shared_.LastTraceTime) * 1000.0);
    // The stamp marks the last command sent, so ACKs and NAKs do not renew it.
    if (!direction.empty() && direction.front() == 'O' && packet.size() > 1 && packet[1] != 6 && packet[1] != 21)
        shared_.LastTraceTime = now_s;
    host_.Raise_HexDebug(line);
}

}  // namespace trekcom::link
