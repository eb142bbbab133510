// The codec tests' common ground: a model of what each format carries, which
// draws a record (every field's edge values among the random ones) and says
// what must come back, and the two properties every format holds.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iomanip>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "link/packet.h"
#include "records/fields.h"
#include "records/garmin_time.h"
#include "trekcom/records.h"

namespace codec_test {

using trekcom::Bytes;

// "00 00 80 3F" -> the four bytes.
inline Bytes Hex(std::string_view hex) {
    std::istringstream in{std::string(hex)};
    Bytes out;
    for (unsigned byte = 0; in >> std::hex >> byte;) out.push_back(static_cast<std::uint8_t>(byte));
    return out;
}
// Text bytes as written (NULs included), space-padded to `width` when given.
inline Bytes Txt(std::string_view text, std::size_t width = 0) {
    Bytes out(text.begin(), text.end());
    if (out.size() < width) out.resize(width, ' ');
    return out;
}
inline Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// ---------------------------------------------------------------- every field by name

using Field_List = std::vector<std::pair<std::string, std::string>>;
template <typename T>
std::string Print(const T& value) {
    std::ostringstream o;
    if constexpr (std::is_same_v<T, std::string>)
        o << '[' << value << ']';
    else
        o << std::setprecision(17) << +value;
    return o.str();
}
#define CODEC_FIELD(f) out.emplace_back(#f, Print(r.f));
// clang-format off
inline Field_List Fields(const trekcom::cWaypoint& r) {
    Field_List out;
    CODEC_FIELD(Ident) CODEC_FIELD(Lat) CODEC_FIELD(Lon) CODEC_FIELD(Cmnt) CODEC_FIELD(Dspl) CODEC_FIELD(Smbl)
    CODEC_FIELD(Unused1) CODEC_FIELD(Dist) CODEC_FIELD(Prox_Index) CODEC_FIELD(Color) CODEC_FIELD(Alt)
    CODEC_FIELD(Dpth) CODEC_FIELD(Wpt_Class) CODEC_FIELD(Sub_Class) CODEC_FIELD(Attrib) CODEC_FIELD(Link)
    CODEC_FIELD(State) CODEC_FIELD(Country) CODEC_FIELD(City) CODEC_FIELD(Address) CODEC_FIELD(Facility)
    CODEC_FIELD(Cross_Road) CODEC_FIELD(Unused2) CODEC_FIELD(Ete) CODEC_FIELD(Dtype) CODEC_FIELD(Temp)
    CODEC_FIELD(Time) CODEC_FIELD(Time_Seconds) CODEC_FIELD(Wpt_Category)
    return out;
}
inline Field_List Fields(const trekcom::cRoute& r) {
    Field_List out;
    CODEC_FIELD(Number) CODEC_FIELD(Ident) CODEC_FIELD(Cmnt) CODEC_FIELD(Link_Class) CODEC_FIELD(Link_Sub_Class)
    CODEC_FIELD(Link_Ident)
    return out;
}
inline Field_List Fields(const trekcom::cTrack& r) {
    Field_List out;
    CODEC_FIELD(Lat) CODEC_FIELD(Lon) CODEC_FIELD(Time) CODEC_FIELD(Seconds) CODEC_FIELD(New_Segment) CODEC_FIELD(Alt)
    CODEC_FIELD(Dpth) CODEC_FIELD(Dspl) CODEC_FIELD(Color) CODEC_FIELD(Ident) CODEC_FIELD(Datum) CODEC_FIELD(Index)
    CODEC_FIELD(Temp)
    return out;
}
inline Field_List Fields(const trekcom::cAlmanac& r) {
    Field_List out;
    CODEC_FIELD(svid) CODEC_FIELD(wn) CODEC_FIELD(toa) CODEC_FIELD(af0) CODEC_FIELD(af1) CODEC_FIELD(e)
    CODEC_FIELD(sqrta) CODEC_FIELD(m0) CODEC_FIELD(w) CODEC_FIELD(omg0) CODEC_FIELD(odot) CODEC_FIELD(i)
    CODEC_FIELD(hlth)
    return out;
}
inline Field_List Fields(const trekcom::cLap& r) {
    Field_List out;
    CODEC_FIELD(Start_Time) CODEC_FIELD(Start_Time_Seconds) CODEC_FIELD(Total_Time) CODEC_FIELD(Total_Distance)
    CODEC_FIELD(Begin_Lat) CODEC_FIELD(Begin_Lon) CODEC_FIELD(End_Lat) CODEC_FIELD(End_Lon) CODEC_FIELD(Calories)
    CODEC_FIELD(Track_Index) CODEC_FIELD(Unused)
    return out;
}
inline Field_List Fields(const trekcom::cFlightbook_Record& r) {
    Field_List out;
    CODEC_FIELD(Takeoff_Time) CODEC_FIELD(Takeoff_Seconds) CODEC_FIELD(Landing_Time) CODEC_FIELD(Landing_Seconds)
    CODEC_FIELD(Takeoff_Lat) CODEC_FIELD(Takeoff_Lon) CODEC_FIELD(Landing_Lat) CODEC_FIELD(Landing_Lon)
    CODEC_FIELD(Night_Time) CODEC_FIELD(Num_Landings) CODEC_FIELD(Max_Speed) CODEC_FIELD(Max_Alt)
    CODEC_FIELD(Distance) CODEC_FIELD(Cross_Country) CODEC_FIELD(Departure_Airport_Name)
    CODEC_FIELD(Departure_Airport_Ident) CODEC_FIELD(Arrival_Airport_Name) CODEC_FIELD(Arrival_Airport_Ident)
    CODEC_FIELD(Aircraft_ID)
    return out;
}
// clang-format on
#undef CODEC_FIELD

// The fields where two records differ, or "".
template <typename R>
std::string Differences(const R& got, const R& want) {
    const auto g = Fields(got), w = Fields(want);
    std::string out;
    for (std::size_t k = 0; k < g.size(); ++k)
        if (g[k] != w[k]) out += " " + g[k].first + ": got " + g[k].second + " want " + w[k].second;
    return out;
}

// ---------------------------------------------------------------- drawing and carrying

// One wire byte each, lower and upper case: letters, Windows-1252 letters
// and signs, spaces, and 16 (DLE) and 3 (ETX), which frame a packet.
struct Letter {
    const char* lower;
    const char* upper;
};
inline constexpr Letter kAlphabet[] = {
    {"a", "A"},       {"z", "Z"},       {"Q", "Q"},       {"7", "7"}, {" ", " "}, {" ", " "},
    {"\x10", "\x10"}, {"\x03", "\x03"}, {"\x7F", "\x7F"}, {"é", "É"}, {"þ", "Þ"}, {"ÿ", "Ÿ"},
    {"š", "Š"},       {"œ", "Œ"},       {"€", "€"},       {"÷", "÷"}, {"ß", "ß"},
};
inline std::string Trim(std::string_view s) {
    const auto first = s.find_first_not_of(' ');
    return first == s.npos ? "" : std::string(s.substr(first, s.find_last_not_of(' ') - first + 1));
}

// The seed is new each run unless CODEC_SEED gives one; failures print it.
class Rng {
public:
    Rng()
        : seed_(std::getenv("CODEC_SEED") ? std::strtoull(std::getenv("CODEC_SEED"), nullptr, 10)
                                          : std::random_device{}()),
          engine_(seed_) {}
    std::uint64_t Seed() const { return seed_; }
    std::uint64_t Below(std::uint64_t n) { return std::uniform_int_distribution<std::uint64_t>(0, n - 1)(engine_); }
    bool Coin() { return Below(2) == 1; }
    template <typename T>
    T Pick(std::initializer_list<T> values) {
        return values.begin()[Below(values.size())];
    }
    // Half the time an edge value: the type's extremes, 0, NaN and infinities.
    template <typename T>
    T Value() {
        using L = std::numeric_limits<T>;
        if constexpr (std::is_floating_point_v<T>) {
            if (Coin())
                return Pick<T>({0, -T{0}, L::max(), L::lowest(), L::denorm_min(), L::infinity(), L::quiet_NaN()});
            return std::bit_cast<T>(static_cast<std::uint32_t>(Below(std::uint64_t{1} << 32)));
        } else {
            if (Coin()) return Pick<T>({0, 1, L::max(), L::min()});
            return static_cast<T>(std::uniform_int_distribution<std::int64_t>(L::min(), L::max())(engine_));
        }
    }
    // Letters of the alphabet; lengths run past the widest fixed field.
    std::vector<Letter> Letters() {
        std::vector<Letter> out(Coin() ? Pick<std::size_t>({0, 2, 6, 40, 44}) : Below(45));
        for (auto& l : out) l = kAlphabet[Below(std::size(kAlphabet))];
        return out;
    }

private:
    std::uint64_t seed_;
    std::mt19937_64 engine_;
};

// Walks the fields a format carries: each call draws the field and sets the
// field expected back.
class Carry {
public:
    explicit Carry(Rng& rng) : rng(rng) {}
    Rng& rng;

    // Fixed-width text: upper-cased unless binary, cut to width, trimmed.
    void Text(std::string& in, std::string& out, std::size_t width, bool upper = true) {
        out = Trim(Draw(in, width, upper, false));
    }
    // NUL-terminated text, short enough for every format's texts to fit;
    // `trimmed` when read back through a fixed-text reader.
    void Terminated(std::string& in, std::string& out, bool trimmed = false) {
        out = Draw(in, 30, true, true);
        if (trimmed) out = Trim(out);
    }
    void Position(double& in, double& out) {
        constexpr double kHalfTurn = 2147483648.0;  // degrees back as the nearest semicircle
        in = Coin_Of({0.0, -180.0, 179.9999999, 1e-9}, rng.Below(1u << 31) * (360.0 / (1u << 31)) - 180);
        out = 180.0 / kHalfTurn * static_cast<std::int32_t>(std::nearbyint(kHalfTurn / 180.0 * in));
    }
    template <typename T>
    void Same(T& in, T& out) {
        out = in = rng.Value<T>();
    }
    template <typename T>
    void Byte(T& in, T& out, int max = 255) {  // 127 and 128 bound the subclass
        out = in = static_cast<T>(Coin_Of({0, 127, 128, 255}, static_cast<int>(rng.Below(256))) % (max + 1));
    }
    // A Single sent as an Integer: rounded half to even, no negative zero.
    void Integer(float& in, float& out) {
        in = Coin_Of({-32768.0f, 32767.0f, 0.5f, 1.5f, -0.0f}, static_cast<float>(rng.Below(65535)) - 32767.7f);
        out = static_cast<std::int16_t>(std::nearbyint(in));
    }
    void Time(std::int32_t& seconds_in, std::int32_t& seconds_out, std::string& text_out) {
        Same(seconds_in, seconds_out);
        text_out = trekcom::records::Seconds2Time(seconds_in);
    }

private:
    template <typename T>
    T Coin_Of(std::initializer_list<T> edges, T random) {
        return rng.Coin() ? rng.Pick(edges) : random;
    }
    std::string Draw(std::string& in, std::size_t width, bool upper, bool cut_input) {
        auto letters = rng.Letters();
        if (cut_input && letters.size() > width) letters.resize(width);
        std::string out;
        in.clear();
        for (std::size_t k = 0; k < letters.size(); ++k) {
            in += letters[k].lower;
            if (k < width) out += upper ? letters[k].upper : letters[k].lower;
        }
        return out;
    }
};

// ---------------------------------------------------------------- the properties

// One format: what it carries, and its codec.
template <typename R>
struct Format {
    std::string name;
    std::function<void(Carry&, R& in, R& out)> carry;
    std::function<std::optional<trekcom::link::Packet>(const R&)> encode;
    std::function<R(trekcom::link::Data_View)> decode;
};
// Formats sharing one codec that takes the format's name.
template <typename R, typename Encode, typename Decode>
std::vector<Format<R>> Formats(std::vector<std::pair<std::string, std::function<void(Carry&, R&, R&)>>> models,
                               Encode encode, Decode decode) {
    std::vector<Format<R>> out;
    for (auto& [name, carry] : models)
        out.push_back({name, carry, [=](const R& r) { return encode(r, name); },
                       [=](trekcom::link::Data_View d) { return decode(d, name); }});
    return out;
}

// Encode then decode gives back every field the format carries, and the
// initial value in every other. `announced` is the size the packet must
// announce when not its own.
template <typename R>
void Round_Trip(const Format<R>& f, Rng& rng, std::uint16_t id, std::optional<std::uint8_t> announced = {}) {
    for (int round = 0; round < 400; ++round) {
        R in, want = f.decode({});
        Carry carry(rng);
        f.carry(carry, in, want);
        const auto packet = f.encode(in);
        ASSERT_TRUE(packet && packet->id == id && packet->data.size() <= 255) << f.name;
        ASSERT_EQ(packet->announced, announced) << f.name;
        ASSERT_EQ(Differences(f.decode(packet->data), want), "")
            << f.name << " seed " << rng.Seed() << " round " << round;
    }
}

// Every prefix of an encoded packet's data decodes, reading nothing past it
// (each prefix is a buffer of its own, for the sanitizer), to fields that
// are whole or absent: a number is its full value or the initial one, a
// text a leading part of its full value.
template <typename R>
void Prefixes(const Format<R>& f, Rng& rng) {
    const auto initial = Fields(f.decode({}));
    for (int round = 0; round < 40; ++round) {
        R in, ignored;
        Carry carry(rng);
        f.carry(carry, in, ignored);
        const Bytes data = f.encode(in)->data;
        const auto whole = Fields(f.decode(data));
        for (std::size_t n = 0; n <= data.size(); ++n) {
            const auto got = Fields(f.decode(Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(n))));
            for (std::size_t k = 0; k < got.size(); ++k) {
                const std::string& v = got[k].second;
                const bool leading_text = v.starts_with('[') && whole[k].second.starts_with(v.substr(0, v.size() - 1));
                ASSERT_TRUE(v == whole[k].second || v == initial[k].second || leading_text)
                    << f.name << " seed " << rng.Seed() << " prefix " << n << " of " << data.size() << ": "
                    << got[k].first << " = " << v << ", whole " << whole[k].second;
            }
        }
    }
}

}  // namespace codec_test
