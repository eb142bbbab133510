#include "replay.h"

#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "control.h"
#include "link/framing.h"
#include "link/little_endian.h"

namespace trekcom::detail::replay {

namespace {

constexpr std::string_view kReceived_Utf8 = "PC \xC2\xAB- GPS ";
constexpr std::string_view kReceived_1252 = "PC \xAB- GPS ";
// A trace line of the largest USB packet is a few thousand characters;
// anything much longer is not a trace line and is not held in memory.
constexpr std::size_t kMax_Line = 16 * 1024;

bool Blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

int Hex_Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Blank-separated hex bytes of one or two digits; nothing when any is not.
std::optional<Bytes> Hex_Bytes(std::string_view text) {
    Bytes out;
    std::size_t i = 0;
    while (i < text.size()) {
        if (Blank(text[i])) {
            ++i;
            continue;
        }
        std::size_t end = i;
        while (end < text.size() && !Blank(text[end])) ++end;
        if (end - i > 2) return std::nullopt;
        unsigned value = 0;
        for (std::size_t k = i; k < end; ++k) {
            const int d = Hex_Digit(text[k]);
            if (d < 0) return std::nullopt;
            value = value * 16 + static_cast<unsigned>(d);
        }
        out.push_back(static_cast<std::uint8_t>(value));
        i = end;
    }
    return out;
}

std::optional<Bytes> Checked_Serial(Bytes packet) {
    const std::size_t n = packet.size();
    if (n < link::kFrameOverhead || packet[n - 2] != link::DLE || packet[n - 1] != link::ETX) return std::nullopt;
    // The expanded form carries its size elsewhere and no checksum of its own.
    if (packet[1] == link::kExpanded_Id) return packet;
    if (std::size_t{packet[2]} + link::kFrameOverhead != n) return std::nullopt;
    if (link::Calc_Checksum(packet) != packet[n - 3]) return std::nullopt;
    return packet;
}

std::optional<Bytes> Serial_From_Usb(const Bytes& usb) {
    if (usb.size() < cUSB::kHeader_Size || usb[0] != cUSB::kApplication_Layer) return std::nullopt;
    const std::uint16_t id = link::Get_LE<std::uint16_t>(usb, 4);
    const std::uint32_t size = link::Get_LE<std::uint32_t>(usb, 8);
    if (id == 0 || size != usb.size() - cUSB::kHeader_Size) return std::nullopt;
    const Bytes data(usb.begin() + cUSB::kHeader_Size, usb.end());
    return link::Frame_Of(link::Packet{id, data, std::nullopt});
}

}  // namespace

std::optional<Bytes> Received_Packet(std::string_view line) {
    std::string s(line);
    // Only the time piece "( ... ms)" goes: the direction mark before it stays.
    if (const std::size_t gps = s.find("GPS ("); gps != std::string::npos) {
        const std::size_t open = gps + 4;
        if (const std::size_t close = s.find("ms)", open); close != std::string::npos) s.erase(open, close + 3 - open);
    }
    std::string_view rest(s);
    while (!rest.empty() && Blank(rest.front())) rest.remove_prefix(1);
    while (!rest.empty() && Blank(rest.back())) rest.remove_suffix(1);
    if (rest.starts_with(kReceived_Utf8))
        rest.remove_prefix(kReceived_Utf8.size());
    else if (rest.starts_with(kReceived_1252))
        rest.remove_prefix(kReceived_1252.size());
    else
        return std::nullopt;

    auto bytes = Hex_Bytes(rest);
    if (!bytes || bytes->size() < 2) return std::nullopt;
    if ((*bytes)[0] == link::DLE) return Checked_Serial(std::move(*bytes));
    return Serial_From_Usb(*bytes);
}

bool Read_Log(const std::filesystem::path& file, const std::function<void(const Bytes&)>& on_packet) {
    // Only a plain file: a folder reads as nothing, a pipe could block for ever.
    std::error_code ec;
    if (!std::filesystem::is_regular_file(file, ec)) return false;
    std::ifstream in(file, std::ios::binary);
    if (!in) return false;
    std::string line;
    bool too_long = false;
    auto finish_line = [&] {
        if (!too_long)
            if (auto packet = Received_Packet(line)) on_packet(*packet);
        line.clear();
        too_long = false;
    };
    for (std::istreambuf_iterator<char> it(in), end; it != end; ++it) {
        const char c = *it;
        if (c == '\n') {
            finish_line();
        } else if (!too_long) {
            if (line.size() >= kMax_Line) {
                too_long = true;
                line.clear();
            } else {
                line += c;
            }
        }
    }
    if (!line.empty()) finish_line();
    return true;
}

}  // namespace trekcom::detail::replay

namespace trekcom::detail {

void Control::Receive_As_USB(const Bytes& packet) {
    if (packet.size() < 2) return;
    // While the engine counts records it wants only the records packet.
    if (link.Shared().RawSuppressed && packet[1] != ids.PID_Records) return;
    if (link.Shared().DebugLog) link.Trace_Packet(packet, "I");
    Dispatch_Packet(packet);
    Raise_Receive(packet);
}

bool Control::Replay_Log(const std::string& path) {
    if (path.empty()) return false;
    return replay::Read_Log(path, [this](const Bytes& packet) { Receive_As_USB(packet); });
}

}  // namespace trekcom::detail
