// Satellite almanac entries: D500, D501 and, with the satellite id in front,
// D550, D551.
#include <array>
#include <optional>
#include <utility>

#include "records/codecs/codecs.h"
#include "packet_io.h"

namespace trekcom::records {
using namespace codec;
namespace {

struct Almanac_Layout {
    bool has_svid;       // D550, D551: the satellite id byte comes first
    int base;            // where wn starts; every later field follows it
    int af0_read_shift;  // af0 is read this far before where it is written
    bool has_health;     // D501, D551
    std::size_t size;    // data bytes sent
};

std::optional<Almanac_Layout> Layout_Of(std::string_view format) {
    // The health byte is sent as a whole Single, four bytes; that is why D501
    // and D551 are four bytes longer than D500 and D550. af0 of D550 and D551
    // is read from offset 6 though written at 7: hosts have always seen it
    // decoded so, and it stays.
    if (format == "D500") return Almanac_Layout{false, 0, 0, false, 42};
    if (format == "D501") return Almanac_Layout{false, 0, 0, true, 46};
    if (format == "D550") return Almanac_Layout{true, 1, 1, false, 43};
    if (format == "D551") return Almanac_Layout{true, 1, 1, true, 47};
    return std::nullopt;
}

// The Singles after wn, at their offsets from wn; af0 (6) and hlth (42) apart.
struct Single_Field {
    float cAlmanac::*field;
    int offset;
};
constexpr std::array<Single_Field, 9> kSingles{{
    {&cAlmanac::toa, 2},
    {&cAlmanac::af1, 10},
    {&cAlmanac::e, 14},
    {&cAlmanac::sqrta, 18},
    {&cAlmanac::m0, 22},
    {&cAlmanac::w, 26},
    {&cAlmanac::omg0, 30},
    {&cAlmanac::odot, 34},
    {&cAlmanac::i, 38},
}};
constexpr int kAf0 = 6;
constexpr int kHealth = 42;

}  // namespace

void Decode_Almanac(link::Data_View data, std::string_view format, cAlmanac& almanac) {
    const auto layout = Layout_Of(format);
    if (!layout) return;
    const int base = layout->base;
    if (layout->has_svid) {
        // The id is read as a one-character decimal text: only the digits
        // '0'..'9' give a value; any other byte leaves svid as it was.
        const std::string digit = Fixed_Text(data, 0, 1);
        if (digit.size() == 1 && digit[0] >= '0' && digit[0] <= '9')
            almanac.svid = static_cast<std::uint8_t>(digit[0] - '0');
    }
    almanac.wn = Data_Int(data, base);
    for (const auto& [field, offset] : kSingles) almanac.*field = Data_Single(data, base + offset);
    almanac.af0 = Data_Single(data, base + kAf0 - layout->af0_read_shift);
    // A health field shorter than a Single (a one-byte health, as receivers
    // send it) does not fit the reader and gives 0.
    if (layout->has_health) almanac.hlth = Data_Single(data, base + kHealth);
}

std::optional<link::Packet> Encode_Almanac(const cAlmanac& almanac, std::string_view format, std::uint16_t packet_id) {
    const auto layout = Layout_Of(format);
    if (!layout) return std::nullopt;
    const int base = layout->base;
    Bytes p = New_Data(layout->size);
    if (layout->has_svid) Put_Byte(p, 0, almanac.svid);
    Put_Int(p, base, almanac.wn);
    for (const auto& [field, offset] : kSingles) Put_Single(p, base + offset, almanac.*field);
    Put_Single(p, base + kAf0, almanac.af0);
    if (layout->has_health) Put_Single(p, base + kHealth, almanac.hlth);
    return link::Packet{packet_id, std::move(p), std::nullopt};
}

}  // namespace trekcom::records
