// Wire bytes written by hand for the codec tests, and a printout of every
// record field.
#pragma once

#include <initializer_list>
#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "link/framing.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

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

// A whole packet around `data`; the size byte is the data's length unless given.
inline Bytes Frame(std::uint8_t id, const Bytes& data, int size_byte = -1) {
    Bytes p = Cat(
        {Hex("10"), {id, static_cast<std::uint8_t>(size_byte < 0 ? data.size() : size_byte)}, data, Hex("00 10 03")});
    trekcom::link::Seal_Packet(p);
    return p;
}

// Field by field, text in brackets, so a failing comparison names the field.
template <typename T>
std::string Print(const T& value) {
    std::ostringstream o;
    if constexpr (std::is_same_v<T, std::string>)
        o << '[' << value << ']';
    else
        o << std::setprecision(17) << +value;
    return o.str();
}

#define CODEC_FIELD(f) s += " " #f "=" + Print(r.f);
// clang-format off
inline std::string Show(const trekcom::cWaypoint& r) {
    std::string s;
    CODEC_FIELD(Ident) CODEC_FIELD(Lat) CODEC_FIELD(Lon) CODEC_FIELD(Cmnt) CODEC_FIELD(Dspl) CODEC_FIELD(Smbl)
    CODEC_FIELD(Unused1) CODEC_FIELD(Dist) CODEC_FIELD(Prox_Index) CODEC_FIELD(Color) CODEC_FIELD(Alt)
    CODEC_FIELD(Dpth) CODEC_FIELD(Wpt_Class) CODEC_FIELD(Sub_Class) CODEC_FIELD(Attrib) CODEC_FIELD(Link)
    CODEC_FIELD(State) CODEC_FIELD(Country) CODEC_FIELD(City) CODEC_FIELD(Address) CODEC_FIELD(Facility)
    CODEC_FIELD(Cross_Road) CODEC_FIELD(Unused2) CODEC_FIELD(Ete) CODEC_FIELD(Dtype) CODEC_FIELD(Temp)
    CODEC_FIELD(Time) CODEC_FIELD(Time_Seconds) CODEC_FIELD(Wpt_Category)
    return s;
}
inline std::string Show(const trekcom::cRoute& r) {
    std::string s;
    CODEC_FIELD(Number) CODEC_FIELD(Ident) CODEC_FIELD(Cmnt) CODEC_FIELD(Link_Class) CODEC_FIELD(Link_Sub_Class)
    CODEC_FIELD(Link_Ident)
    return s;
}
inline std::string Show(const trekcom::cTrack& r) {
    std::string s;
    CODEC_FIELD(Lat) CODEC_FIELD(Lon) CODEC_FIELD(Time) CODEC_FIELD(Seconds) CODEC_FIELD(New_Segment) CODEC_FIELD(Alt)
    CODEC_FIELD(Dpth) CODEC_FIELD(Dspl) CODEC_FIELD(Color) CODEC_FIELD(Ident) CODEC_FIELD(Datum) CODEC_FIELD(Index)
    CODEC_FIELD(Temp)
    return s;
}
inline std::string Show(const trekcom::cAlmanac& r) {
    std::string s;
    CODEC_FIELD(svid) CODEC_FIELD(wn) CODEC_FIELD(toa) CODEC_FIELD(af0) CODEC_FIELD(af1) CODEC_FIELD(e)
    CODEC_FIELD(sqrta) CODEC_FIELD(m0) CODEC_FIELD(w) CODEC_FIELD(omg0) CODEC_FIELD(odot) CODEC_FIELD(i)
    CODEC_FIELD(hlth)
    return s;
}
inline std::string Show(const trekcom::cLap& r) {
    std::string s;
    CODEC_FIELD(Start_Time) CODEC_FIELD(Start_Time_Seconds) CODEC_FIELD(Total_Time) CODEC_FIELD(Total_Distance)
    CODEC_FIELD(Begin_Lat) CODEC_FIELD(Begin_Lon) CODEC_FIELD(End_Lat) CODEC_FIELD(End_Lon) CODEC_FIELD(Calories)
    CODEC_FIELD(Track_Index) CODEC_FIELD(Unused)
    return s;
}
inline std::string Show(const trekcom::cFlightbook_Record& r) {
    std::string s;
    CODEC_FIELD(Takeoff_Time) CODEC_FIELD(Takeoff_Seconds) CODEC_FIELD(Landing_Time) CODEC_FIELD(Landing_Seconds)
    CODEC_FIELD(Takeoff_Lat) CODEC_FIELD(Takeoff_Lon) CODEC_FIELD(Landing_Lat) CODEC_FIELD(Landing_Lon)
    CODEC_FIELD(Night_Time) CODEC_FIELD(Num_Landings) CODEC_FIELD(Max_Speed) CODEC_FIELD(Max_Alt)
    CODEC_FIELD(Distance) CODEC_FIELD(Cross_Country) CODEC_FIELD(Departure_Airport_Name)
    CODEC_FIELD(Departure_Airport_Ident) CODEC_FIELD(Arrival_Airport_Name) CODEC_FIELD(Arrival_Airport_Ident)
    CODEC_FIELD(Aircraft_ID)
    return s;
}
// clang-format on
#undef CODEC_FIELD

}  // namespace codec_test
