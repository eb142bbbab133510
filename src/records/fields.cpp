#include "records/fields.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "codepage.h"
#include "link/little_endian.h"

namespace trekcom::records {
namespace {

// True when [index, index + width) lies inside a buffer of this size.
bool Fits(std::size_t size, std::int64_t index, std::int64_t width) {
    return index >= 0 && width >= 0 && static_cast<std::uint64_t>(index) <= size &&
           static_cast<std::uint64_t>(width) <= size - static_cast<std::uint64_t>(index);
}

// The byte work is the link's; what is added here is the signed index
// that the control's readers and writers take.
template <typename T>
bool Write_LE(Buffer buffer, std::int64_t index, T value) {
    return Fits(buffer.size(), index, sizeof(T)) && link::Put_LE<T>(buffer, static_cast<std::size_t>(index), value);
}

}  // namespace

template <typename T>
T Read_LE(Const_Buffer buffer, std::int64_t index, std::int64_t limit) {
    // index <= upper bound - limit, with upper bound = size - 1; written
    // without subtraction so an empty buffer cannot wrap around.
    if (index < 0 || static_cast<std::uint64_t>(index) + static_cast<std::uint64_t>(limit) + 1 > buffer.size())
        return T{};
    // The limits all demand at least the field's own width; the link's
    // reader checks the copy against the buffer again.
    return link::Get_LE<T>(buffer, static_cast<std::size_t>(index));
}

template std::uint8_t Read_LE<std::uint8_t>(Const_Buffer, std::int64_t, std::int64_t);
template std::int16_t Read_LE<std::int16_t>(Const_Buffer, std::int64_t, std::int64_t);
template std::int32_t Read_LE<std::int32_t>(Const_Buffer, std::int64_t, std::int64_t);
template float Read_LE<float>(Const_Buffer, std::int64_t, std::int64_t);
template double Read_LE<double>(Const_Buffer, std::int64_t, std::int64_t);

std::int16_t Pkt2Int(Const_Buffer buffer, std::int16_t index) { return Read_LE<std::int16_t>(buffer, index, 2); }
std::int32_t Pkt2Long(Const_Buffer buffer, std::int16_t index) { return Read_LE<std::int32_t>(buffer, index, 4); }
float Pkt2Single(Const_Buffer buffer, std::int16_t index) { return Read_LE<float>(buffer, index, 4); }
double Pkt2Double(Const_Buffer buffer, std::int16_t index) { return Read_LE<double>(buffer, index, 8); }

namespace {
// A field that must fit whole: the limit is its own width less one.
template <typename T>
T Data_Field(Const_Buffer data, std::int64_t offset) {
    return Read_LE<T>(data, offset, static_cast<std::int64_t>(sizeof(T)) - 1);
}
}  // namespace

std::uint8_t Data_Byte(Const_Buffer data, std::int64_t offset) { return Data_Field<std::uint8_t>(data, offset); }
std::int16_t Data_Int(Const_Buffer data, std::int64_t offset) { return Data_Field<std::int16_t>(data, offset); }
std::int32_t Data_Long(Const_Buffer data, std::int64_t offset) { return Data_Field<std::int32_t>(data, offset); }
float Data_Single(Const_Buffer data, std::int64_t offset) { return Data_Field<float>(data, offset); }
double Data_Double(Const_Buffer data, std::int64_t offset) { return Data_Field<double>(data, offset); }

std::string Wire_Text(Const_Buffer buffer, std::int64_t start, std::int64_t length, std::int64_t keep_nuls) {
    if (length <= 0) return {};
    // The bytes actually read; the rest of the field stays spaces.
    // A position outside the buffer ends the text like a NUL does. Counted
    // from start so that no index arithmetic can overflow.
    std::string wire;
    if (start >= 0 && static_cast<std::uint64_t>(start) < buffer.size()) {
        const std::size_t first = static_cast<std::size_t>(start);
        const std::size_t n = std::min<std::uint64_t>(static_cast<std::uint64_t>(length), buffer.size() - first);
        for (std::size_t k = 0; k < n; ++k) {
            const std::uint8_t b = buffer[first + k];
            if (b == 0 && keep_nuls == 0) break;
            wire += static_cast<char>(b);
        }
    }
    std::string text = From_Wire(wire);
    text.append(static_cast<std::size_t>(length) - wire.size(), ' ');
    return text;
}

std::string Pkt2Str(Const_Buffer buffer, std::int16_t start, std::int16_t length, std::int16_t keep_nuls) {
    return Wire_Text(buffer, start, length, keep_nuls);
}

void Str2Pkt(std::string_view text_utf8, Buffer field) {
    std::fill(field.begin(), field.end(), static_cast<std::uint8_t>(' '));
    const std::string wire = To_Wire(text_utf8);
    const std::size_t n = std::min(field.size(), wire.size());
    std::copy_n(wire.begin(), n, field.begin());
}

bool Put_Byte(Buffer buffer, std::int64_t index, std::uint8_t value) {
    if (!Fits(buffer.size(), index, 1)) return false;
    buffer[static_cast<std::size_t>(index)] = value;
    return true;
}
bool Put_Int(Buffer buffer, std::int64_t index, std::int16_t value) { return Write_LE(buffer, index, value); }
bool Put_Long(Buffer buffer, std::int64_t index, std::int32_t value) { return Write_LE(buffer, index, value); }
bool Put_Single(Buffer buffer, std::int64_t index, float value) { return Write_LE(buffer, index, value); }
bool Put_Double(Buffer buffer, std::int64_t index, double value) { return Write_LE(buffer, index, value); }

bool Put_Str(Buffer buffer, std::int64_t index, std::int64_t width, std::string_view text_utf8) {
    if (!Fits(buffer.size(), index, width)) return false;
    Str2Pkt(text_utf8, buffer.subspan(static_cast<std::size_t>(index), static_cast<std::size_t>(width)));
    return true;
}

namespace {
// 2^31 as a double; the factor is formed from it as the receiver's unit demands.
constexpr double kTwo31 = 2147483648.0;

// Round half to even, independent of the floating-point environment.
double Round_Half_Even(double x) {
    const double f = std::floor(x);
    const double diff = x - f;
    if (diff < 0.5) return f;
    if (diff > 0.5) return f + 1;
    return std::fmod(f, 2.0) == 0 ? f : f + 1;
}
}  // namespace

std::int32_t Deg2Semi(double degrees) {
    const double r = Round_Half_Even(kTwo31 / 180.0 * degrees);
    // The range test comes before the conversion: converting an out-of-range
    // or NaN double to an integer is undefined.
    if (!(r >= -kTwo31 && r < kTwo31)) throw Overflow_Error("Deg2Semi: " + std::to_string(degrees) + " degrees overflows a Long");
    return static_cast<std::int32_t>(r);
}

double Semi2Deg(std::int32_t semicircles) { return 180.0 / kTwo31 * semicircles; }

}  // namespace trekcom::records
