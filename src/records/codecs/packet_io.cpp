#include "packet_io.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "../codepage.h"

namespace trekcom::records::codec {

double Position_At(Data_View data, int offset) { return Semi2Deg(Data_Long(data, offset)); }

void Positions_At(Data_View data, int offset, std::initializer_list<double*> degrees) {
    for (double* d : degrees) {
        *d = Position_At(data, offset);
        offset += 4;
    }
}

std::string Fixed_Text(Data_View data, int offset, int width) { return Trim(Wire_Text(data, offset, width, 0)); }

std::string Raw_Text(Data_View data, int offset, int width) { return Wire_Text(data, offset, width, 1); }

std::vector<std::string> Texts_From(Data_View data, int offset, std::size_t count) {
    const int length = static_cast<int>(data.size()) - offset;
    const std::string all = length > 0 ? Raw_Text(data, offset, length) : std::string();
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

Bytes New_Data(std::size_t size) {
    if (size > 255) throw Overflow_Error("a record of " + std::to_string(size) + " data bytes does not fit one packet");
    return Bytes(size, 0);
}

void Put_Position(Bytes& data, int offset, double degrees) { Put_Long(data, offset, Deg2Semi(degrees)); }

void Put_Positions(Bytes& data, int offset, std::initializer_list<double> degrees) {
    for (const double d : degrees) {
        Put_Position(data, offset, d);
        offset += 4;
    }
}

void Put_Upper_Text(Bytes& data, int offset, int width, std::string_view text) {
    Put_Str(data, offset, width, Upper_Text(text));
}

std::string Terminated_Texts(std::initializer_list<std::string_view> texts) {
    std::string wire;
    for (const auto text : texts) {
        wire += Upper_Wire(To_Wire(text));
        wire += '\0';
    }
    return wire;
}

void Put_Wire(Bytes& data, int offset, std::string_view wire) {
    for (std::size_t k = 0; k < wire.size(); ++k)
        Put_Byte(data, offset + static_cast<std::int64_t>(k), static_cast<std::uint8_t>(wire[k]));
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

void Put_Default_Subclass(Bytes& data, int offset) {
    for (int k = 0; k < 18; ++k) Put_Byte(data, offset + k, k < 6 ? 0x00 : 0xFF);
}

}  // namespace trekcom::records::codec
