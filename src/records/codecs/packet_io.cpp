#include "packet_io.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "link/framing.h"
#include "../codepage.h"

namespace trekcom::records::codec {
namespace {

// The declared data bytes the packet really holds: a size byte that claims
// more than arrived must not make text run into the checksum and trailer.
std::size_t Data_Present(const Bytes& packet) {
    const std::size_t room = packet.size() >= link::kFrameOverhead ? packet.size() - link::kFrameOverhead : 0;
    return std::min(static_cast<std::size_t>(Data_Size(packet)), room);
}

// The packet cut after its data, for the text reader. Numbers are read from
// the whole packet: their readers' limits are measured against it.
Const_Buffer Through_Data(const Bytes& packet) {
    return Const_Buffer(packet).first(std::min(packet.size(), At(0) + Data_Present(packet)));
}

}  // namespace

int Data_Size(const Bytes& packet) { return packet.size() > 2 ? packet[2] : 0; }

std::uint8_t Byte_At(const Bytes& packet, int offset) {
    const int index = At(offset);
    return index >= 0 && static_cast<std::size_t>(index) < packet.size() ? packet[static_cast<std::size_t>(index)] : 0;
}

double Position_At(const Bytes& packet, int offset) { return Semi2Deg(Pkt2Long(packet, At(offset))); }

std::string Fixed_Text(const Bytes& packet, int offset, int width) {
    return Trim(Pkt2Str(Through_Data(packet), At(offset), static_cast<std::int16_t>(width), 0));
}

std::string Raw_Text(const Bytes& packet, int offset, int width) {
    return Pkt2Str(Through_Data(packet), At(offset), static_cast<std::int16_t>(width), 1);
}

std::vector<std::string> Texts_From(const Bytes& packet, int offset, std::size_t count) {
    const int length = static_cast<int>(Data_Present(packet)) - offset;
    const std::string all = length > 0 ? Raw_Text(packet, offset, length) : std::string();
    std::string_view rest = all;
    std::vector<std::string> texts(count);
    for (auto& text : texts) {
        const std::size_t nul = rest.find('\0');
        if (nul == std::string_view::npos) break;
        text = rest.substr(0, nul);
        rest.remove_prefix(nul + 1);
    }
    return texts;
}

std::string Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(' ') - first + 1));
}

std::string Trim_Null(std::string_view text) {
    const std::string trimmed = Trim(text);
    return trimmed.substr(0, trimmed.find('\0'));
}

Bytes New_Packet(std::uint8_t packet_id, std::size_t data_size) {
    if (data_size > 255)
        throw Overflow_Error("a record of " + std::to_string(data_size) + " data bytes does not fit one packet");
    Bytes packet(data_size + link::kFrameOverhead, 0);
    packet[1] = packet_id;
    packet[2] = static_cast<std::uint8_t>(data_size);
    return packet;
}

void Seal(Bytes& packet) { link::Seal_Packet(packet); }

void Put_Position(Bytes& packet, int offset, double degrees) { Put_Long(packet, At(offset), Deg2Semi(degrees)); }

void Put_Upper_Text(Bytes& packet, int offset, int width, std::string_view text) {
    Put_Str(packet, At(offset), width, Upper_Text(text));
}

std::string Terminated_Texts(std::initializer_list<std::string_view> texts) {
    std::string wire;
    for (const auto text : texts) {
        wire += Upper_Wire(To_Wire(text));
        wire += '\0';
    }
    return wire;
}

void Put_Wire(Bytes& packet, int offset, std::string_view wire) {
    for (std::size_t k = 0; k < wire.size(); ++k)
        Put_Byte(packet, At(offset) + static_cast<std::int64_t>(k), static_cast<std::uint8_t>(wire[k]));
}

std::uint8_t Wire_Byte(std::int64_t value) {
    if (value < 0 || value > 255) throw Overflow_Error(std::to_string(value) + " does not fit a byte field");
    return static_cast<std::uint8_t>(value);
}

std::int16_t Wire_Integer(float value) {
    // Ties to even (the default rounding mode), as the control's other
    // Integer conversions round.
    const double rounded = std::nearbyint(static_cast<double>(value));
    // Tested before converting: an out-of-range or NaN conversion is undefined.
    if (!(rounded >= -32768.0 && rounded <= 32767.0))
        throw Overflow_Error(std::to_string(value) + " does not fit an Integer field");
    return static_cast<std::int16_t>(rounded);
}

void Put_Default_Subclass(Bytes& packet, int offset) {
    for (int k = 0; k < 18; ++k) Put_Byte(packet, At(offset + k), k < 6 ? 0x00 : 0xFF);
}

}  // namespace trekcom::records::codec
