// The codec tests' common ground: random records whose values include every
// field's edge values, a model of what a format carries back, and the two
// properties every format must hold (encode then decode gives the record
// back; any prefix of the data decodes to fields that are whole or absent).
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iomanip>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "link/packet.h"
#include "records/fields.h"
#include "records/garmin_time.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

namespace codec_test {

using trekcom::Bytes;

// ---------------------------------------------------------------- wire bytes

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

// ---------------------------------------------------------------- printing

// Every field of a record by name, text in brackets, so a failing comparison
// names the field.
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

template <typename R>
std::string Show(const R& r) {
    std::string s;
    for (const auto& [name, value] : Fields(r)) s += " " + name + "=" + value;
    return s;
}

// ---------------------------------------------------------------- random values

// The generator every property draws from. The seed is new each run unless
// CODEC_SEED gives one; a failing property prints it.
class Rng {
public:
    Rng() : seed_(Initial_Seed()), engine_(seed_) {}
    std::uint64_t Seed() const { return seed_; }

    std::uint64_t Below(std::uint64_t n) { return std::uniform_int_distribution<std::uint64_t>(0, n - 1)(engine_); }
    bool Coin() { return Below(2) == 1; }
    template <typename T>
    T Pick(std::initializer_list<T> values) {
        return values.begin()[Below(values.size())];
    }

    // Integers: the type's extremes, 0 and its neighbours half the time.
    template <typename T>
    T Int() {
        using L = std::numeric_limits<T>;
        if (Coin()) return Pick<T>({0, 1, static_cast<T>(L::max()), L::min(), static_cast<T>(L::min() + 1)});
        return static_cast<T>(std::uniform_int_distribution<std::int64_t>(L::min(), L::max())(engine_));
    }
    // A one-byte field: 127 and 128 are the subclass boundary.
    std::int16_t Byte() {
        if (Coin()) return Pick<std::int16_t>({0, 1, 127, 128, 255});
        return static_cast<std::int16_t>(Below(256));
    }
    float Single() {
        using L = std::numeric_limits<float>;
        if (Coin())
            return Pick<float>({0.0f, -0.0f, L::max(), L::lowest(), L::min(), L::denorm_min(), L::infinity(),
                                -L::infinity(), L::quiet_NaN(), -L::quiet_NaN()});
        return std::bit_cast<float>(static_cast<std::uint32_t>(Below(std::uint64_t{1} << 32)));
    }
    // Degrees with a semicircle value: -180 <= d < 180.
    double Degrees() {
        if (Coin()) return Pick<double>({0.0, -180.0, 179.9999999, -0.0, 90.0, 1e-9});
        return std::uniform_real_distribution<double>(-180.0, 180.0)(engine_);
    }

    // Text from characters of one wire byte each, with their upper case:
    // letters, Windows-1252 letters and signs, spaces, and the bytes 16 (DLE)
    // and 3 (ETX) that frame a packet. Lengths run past the widest field.
    std::string Text() {
        const std::size_t n = Coin() ? Pick<std::size_t>({0, 1, 2, 6, 40, 44}) : Below(45);
        std::string s;
        for (std::size_t k = 0; k < n; ++k) s += kAlphabet[Below(std::size(kAlphabet))].lower;
        return s;
    }

    struct Letter {
        const char* lower;
        const char* upper;
    };
    static constexpr Letter kAlphabet[] = {
        {"a", "A"}, {"m", "M"},   {"z", "Z"},   {"Q", "Q"}, {"7", "7"}, {" ", " "}, {" ", " "},
        {"\x10", "\x10"}, {"\x03", "\x03"}, {"\x7F", "\x7F"}, {"~", "~"}, {"é", "É"}, {"þ", "Þ"}, {"ÿ", "Ÿ"},
        {"š", "Š"}, {"œ", "Œ"}, {"ž", "Ž"}, {"€", "€"}, {"÷", "÷"}, {"ß", "ß"}, {"µ", "µ"},
    };

private:
    static std::uint64_t Initial_Seed() {
        if (const char* given = std::getenv("CODEC_SEED")) return std::strtoull(given, nullptr, 10);
        return std::random_device{}();
    }
    std::uint64_t seed_;
    std::mt19937_64 engine_;
};

// ---------------------------------------------------------------- what a format carries

// The characters of a UTF-8 text.
inline std::vector<std::string> Chars(std::string_view s) {
    std::vector<std::string> out;
    for (const char c : s) {
        if ((static_cast<unsigned char>(c) & 0xC0) == 0x80 && !out.empty())
            out.back() += c;
        else
            out.emplace_back(1, c);
    }
    return out;
}
inline std::string Upper(std::string_view s) {
    std::string out;
    for (const auto& c : Chars(s)) {
        std::string u = c;
        for (const auto& l : Rng::kAlphabet)
            if (c == l.lower) u = l.upper;
        out += u;
    }
    return out;
}
inline std::string Cut(std::string_view s, std::size_t width) {
    std::string out;
    const auto chars = Chars(s);
    for (std::size_t k = 0; k < chars.size() && k < width; ++k) out += chars[k];
    return out;
}
inline std::string Trim(std::string_view s) {
    const auto first = s.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return std::string(s.substr(first, s.find_last_not_of(' ') - first + 1));
}

// Walks the fields a format carries, in wire order: each call makes the input
// field one the format can send (drawing a new value where the random one has
// no wire form) and sets the expected field to what must come back.
class Carry {
public:
    explicit Carry(Rng& rng) : rng_(rng) {}

    // Fixed-width text: upper-cased, cut to width, trimmed.
    void Text(const std::string& in, std::string& out, std::size_t width) { out = Trim(Cut(Upper(in), width)); }
    // Fixed-width binary text (subclasses): sent as given, cut, trimmed.
    void Raw(const std::string& in, std::string& out, std::size_t width) { out = Trim(Cut(in, width)); }
    // NUL-terminated text, kept short enough for every format's texts to fit.
    void Terminated(std::string& in, std::string& out) { out = Upper(in = Cut(in, 30)); }
    // The same, read back through a fixed-text reader: trimmed as well.
    void Terminated_Trimmed(std::string& in, std::string& out) { out = Trim(Upper(in = Cut(in, 30))); }
    // Degrees, back as the nearest semicircle.
    void Position(double& in, double& out) {
        constexpr double kHalfTurn = 2147483648.0;
        in = rng_.Degrees();
        const auto semicircles = static_cast<std::int32_t>(std::nearbyint(kHalfTurn / 180.0 * in));
        out = 180.0 / kHalfTurn * semicircles;
    }
    template <typename T>
    void Same(const T& in, T& out) {
        out = in;
    }
    template <typename T>
    void Byte(T& in, T& out, int max = 255) {
        in = static_cast<T>(rng_.Byte() % (max + 1));
        out = in;
    }
    // A Single sent as an Integer: rounded half to even; one with no Integer
    // value is replaced by an edge one.
    void Integer(float& in, float& out) {
        if (!(std::fabs(in) < 32767.0f)) in = rng_.Pick<float>({-32768.0f, 32767.0f, 0.5f, 1.5f});
        out = static_cast<std::int16_t>(std::nearbyint(in));  // no negative zero on the wire
    }
    // A time sent as its seconds.
    void Time(std::int32_t& seconds_in, std::string& text_in, std::int32_t& seconds_out, std::string& text_out) {
        text_in.clear();
        seconds_out = seconds_in;
        text_out = trekcom::records::Seconds2Time(seconds_in);
    }

    Rng& rng() { return rng_; }

private:
    Rng& rng_;
};

// ---------------------------------------------------------------- the properties

// One format of one record class: how to draw a record, what of it the format
// carries, and the codec.
template <typename R>
struct Format {
    std::string name;
    std::function<void(Rng&, R&)> draw;
    std::function<void(Carry&, R& in, R& out)> carry;
    std::function<std::optional<trekcom::link::Packet>(const R&)> encode;
    std::function<R(trekcom::link::Data_View)> decode;
    std::optional<std::uint8_t> announced{};  // the size the packet must announce, when not its own
    std::string R::*grown_text = nullptr;     // a variable text, for the 255-byte limit
};

constexpr int kRounds = 400;

// The fields where two records differ, by name.
template <typename R>
std::string Differences(const R& got, const R& want) {
    const auto g = Fields(got), w = Fields(want);
    std::string out;
    for (std::size_t k = 0; k < g.size(); ++k)
        if (g[k].second != w[k].second) out += " " + g[k].first + ": got " + g[k].second + " want " + w[k].second;
    return out;
}

// A record drawn and fitted to the format, with what must come back.
template <typename R>
std::pair<R, R> Draw(const Format<R>& f, Rng& rng, const R& initial) {
    R in;
    f.draw(rng, in);
    R out = initial;
    Carry carry(rng);
    f.carry(carry, in, out);
    return {in, out};
}

// Encode then decode gives back every field the format carries, and the
// initial value in every other.
template <typename R>
void Round_Trip(const Format<R>& f, Rng& rng, std::uint16_t id) {
    const R initial = f.decode({});
    for (int round = 0; round < kRounds; ++round) {
        const auto [in, want] = Draw(f, rng, initial);
        const auto packet = f.encode(in);
        ASSERT_TRUE(packet) << f.name;
        ASSERT_EQ(packet->id, id) << f.name;
        ASSERT_LE(packet->data.size(), 255u) << f.name;
        ASSERT_EQ(packet->announced, f.announced) << f.name;
        const std::string diff = Differences(f.decode(packet->data), want);
        ASSERT_EQ(diff, "") << f.name << " seed " << rng.Seed() << " round " << round << "\n sent" << Show(in);
    }
}

// Every prefix of an encoded packet's data decodes, reading nothing past it
// (each prefix is a buffer of its own, for the sanitizer), to fields that
// are either whole or absent: a number is its full value or the initial one,
// a text a leading part of its full value.
template <typename R>
void Prefixes(const Format<R>& f, Rng& rng) {
    const auto initial = Fields(f.decode({}));
    for (int round = 0; round < kRounds / 10; ++round) {
        const auto [in, want] = Draw(f, rng, f.decode({}));
        const Bytes data = f.encode(in)->data;
        const auto full = Fields(f.decode(data));
        for (std::size_t n = 0; n <= data.size(); ++n) {
            const Bytes prefix(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(n));
            const auto got = Fields(f.decode(prefix));
            for (std::size_t k = 0; k < got.size(); ++k) {
                const std::string& v = got[k].second;
                const std::string& whole = full[k].second;
                const bool text = v.starts_with('[');
                const bool fits = v == whole || v == initial[k].second ||
                                  (text && whole.starts_with(std::string_view(v).substr(0, v.size() - 1)));
                ASSERT_TRUE(fits) << f.name << " seed " << rng.Seed() << " prefix " << n << " of " << data.size()
                                  << ": " << got[k].first << " = " << v << ", whole " << whole;
            }
        }
    }
}

// A record whose variable text brings the data to exactly 255 bytes is sent
// and read back; one byte more is an overflow.
template <typename R>
void Largest(const Format<R>& f, Rng& rng) {
    R in = Draw(f, rng, f.decode({})).first;
    std::string& text = in.*(f.grown_text);
    text.clear();
    const std::size_t size = f.encode(in)->data.size();
    ASSERT_LE(size, 255u) << f.name;
    text.assign(255 - size, 'A');
    const auto packet = f.encode(in);
    ASSERT_EQ(packet->data.size(), 255u) << f.name;
    EXPECT_EQ(f.decode(packet->data).*(f.grown_text), text) << f.name << " seed " << rng.Seed();
    text += 'A';
    EXPECT_THROW(f.encode(in), trekcom::records::Overflow_Error) << f.name;
}

}  // namespace codec_test
