// Waypoints, route waypoints and proximity waypoints: the D100 family.
#include <array>
#include <optional>
#include <utility>

#include "records/codecs/codecs.h"
#include "packet_io.h"
#include "../garmin_time.h"

namespace trekcom::records {
using namespace codec;
namespace {

enum class Wpt { D100, D101, D102, D103, D104, D105, D106, D107, D108, D109, D110, D150, D151, D152, D154, D155 };

std::optional<Wpt> Parse_Format(std::string_view format) {
    static constexpr std::array<std::pair<std::string_view, Wpt>, 16> kNames{{
        {"D100", Wpt::D100},
        {"D101", Wpt::D101},
        {"D102", Wpt::D102},
        {"D103", Wpt::D103},
        {"D104", Wpt::D104},
        {"D105", Wpt::D105},
        {"D106", Wpt::D106},
        {"D107", Wpt::D107},
        {"D108", Wpt::D108},
        {"D109", Wpt::D109},
        {"D110", Wpt::D110},
        {"D150", Wpt::D150},
        {"D151", Wpt::D151},
        {"D152", Wpt::D152},
        {"D154", Wpt::D154},
        {"D155", Wpt::D155},
    }};
    for (const auto& [name, wpt] : kNames)
        if (name == format) return wpt;
    return std::nullopt;
}

// The proximity variants are told from their base formats by size alone.
constexpr std::size_t kD400Size = 62;   // D100 + distance
constexpr std::size_t kD403Size = 64;   // D103 + distance
constexpr std::size_t kD450Size = 121;  // index + D150 + distance

// Where the NUL-terminated texts of D108, D109 and D110 begin.
int Texts_Offset(Wpt format) {
    switch (format) {
        case Wpt::D108:
            return 48;
        case Wpt::D109:
            return 52;
        default:
            return 62;
    }
}

// ---------------------------------------------------------------- decoding

// The D100 part that D101..D104, D107 and D151..D155 begin with.
void Read_D100_Part(Data_View p, cWaypoint& w) {
    w.Ident = Fixed_Text(p, 0, 6);
    w.Lat = Position_At(p, 6);
    w.Lon = Position_At(p, 10);
    w.Unused1 = Data_Long(p, 14);
    w.Cmnt = Fixed_Text(p, 18, 40);
}

// What D151 and D152 add after the D100 part; D154 and D155 extend it.
void Read_D151_Part(Data_View p, cWaypoint& w) {
    w.Dist = Data_Single(p, 58);
    w.Facility = Fixed_Text(p, 62, 30);
    w.City = Fixed_Text(p, 92, 24);
    w.State = Fixed_Text(p, 116, 2);
    w.Alt = Data_Int(p, 118);
    w.Country = Fixed_Text(p, 120, 2);
    w.Unused2 = Data_Byte(p, 122);
    w.Wpt_Class = Data_Byte(p, 123);
}

void Read_D150(Data_View p, cWaypoint& w) {
    w.Ident = Fixed_Text(p, 0, 6);
    w.Country = Fixed_Text(p, 6, 2);
    w.Wpt_Class = Data_Byte(p, 8);
    w.Lat = Position_At(p, 9);
    w.Lon = Position_At(p, 13);
    w.Alt = Data_Int(p, 17);
    w.City = Fixed_Text(p, 19, 24);
    w.State = Fixed_Text(p, 43, 2);
    w.Facility = Fixed_Text(p, 45, 30);
    w.Cmnt = Fixed_Text(p, 75, 40);
}

// D450: the proximity index, then a whole D150, then the distance. The
// distance is read from offset 116, one byte before its own place: hosts
// have always seen it read from there, so it stays. The D150 is
// then read from a copy moved two bytes down.
void Read_D450(Data_View p, cWaypoint& w) {
    w.Prox_Index = Data_Int(p, 0);
    w.Dist = Data_Single(p, 116);
    Bytes shifted(p.begin(), p.end());
    for (std::size_t k = 0; k < 116 && k + 2 < p.size(); ++k) shifted[k] = p[k + 2];
    Read_D150(shifted, w);
}

void Read_D108_Family(Data_View p, Wpt format, cWaypoint& w) {
    if (format == Wpt::D108) {
        w.Wpt_Class = Data_Byte(p, 0);
        w.Color = Data_Byte(p, 1);
        w.Dspl = Data_Byte(p, 2);
    } else {
        w.Dtype = Data_Byte(p, 0);
        w.Wpt_Class = Data_Byte(p, 1);
        const std::uint8_t display_and_colour = Data_Byte(p, 2);
        w.Color = display_and_colour & 0x1F;
        w.Dspl = (display_and_colour >> 5) & 0x03;
        w.Ete = Data_Long(p, 48);
    }
    w.Attrib = Data_Byte(p, 3);
    w.Smbl = Data_Int(p, 4);
    // Only map points (classes above 127) have a subclass worth showing;
    // its bytes are binary, so every one is kept, NULs included.
    if (w.Wpt_Class > 127) w.Sub_Class = Trim(Raw_Text(p, 6, 18));
    w.Lat = Position_At(p, 24);
    w.Lon = Position_At(p, 28);
    w.Alt = Data_Single(p, 32);
    w.Dpth = Data_Single(p, 36);
    w.Dist = Data_Single(p, 40);
    w.State = Fixed_Text(p, 44, 2);
    w.Country = Fixed_Text(p, 46, 2);
    if (format == Wpt::D110) {
        w.Temp = Data_Single(p, 52);
        w.Time_Seconds = Data_Long(p, 56);
        w.Time = Seconds2Time(w.Time_Seconds);
        w.Wpt_Category = Data_Int(p, 60);
    }
    auto texts = Texts_From(p, Texts_Offset(format), 6);
    w.Ident = std::move(texts[0]);
    w.Cmnt = std::move(texts[1]);
    w.Facility = std::move(texts[2]);
    w.City = std::move(texts[3]);
    w.Address = std::move(texts[4]);
    w.Cross_Road = std::move(texts[5]);
}

// ---------------------------------------------------------------- encoding

void Write_D100_Part(Bytes& p, const cWaypoint& w) {
    Put_Upper_Text(p, 0, 6, w.Ident);
    Put_Position(p, 6, w.Lat);
    Put_Position(p, 10, w.Lon);
    Put_Long(p, 14, w.Unused1);
    Put_Upper_Text(p, 18, 40, w.Cmnt);
}

void Write_D151_Part(Bytes& p, const cWaypoint& w) {
    Put_Single(p, 58, w.Dist);
    Put_Upper_Text(p, 62, 30, w.Facility);
    Put_Upper_Text(p, 92, 24, w.City);
    Put_Upper_Text(p, 116, 2, w.State);
    Put_Int(p, 118, Wire_Integer(w.Alt));
    Put_Upper_Text(p, 120, 2, w.Country);
    // The spare byte at 122 goes out as 0 whatever Unused2 holds.
    Put_Byte(p, 123, Wire_Byte(w.Wpt_Class));
}

void Write_D150(Bytes& p, const cWaypoint& w) {
    Put_Upper_Text(p, 0, 6, w.Ident);
    Put_Upper_Text(p, 6, 2, w.Country);
    Put_Byte(p, 8, Wire_Byte(w.Wpt_Class));
    Put_Position(p, 9, w.Lat);
    Put_Position(p, 13, w.Lon);
    Put_Int(p, 17, Wire_Integer(w.Alt));
    Put_Upper_Text(p, 19, 24, w.City);
    Put_Upper_Text(p, 43, 2, w.State);
    Put_Upper_Text(p, 45, 30, w.Facility);
    Put_Upper_Text(p, 75, 40, w.Cmnt);
}

Bytes Write_D108_Family(const cWaypoint& w, Wpt format) {
    const std::string texts = Terminated_Texts({w.Ident, w.Cmnt, w.Facility, w.City, w.Address, w.Cross_Road});
    const int texts_at = Texts_Offset(format);
    Bytes p = New_Data(static_cast<std::size_t>(texts_at) + texts.size());
    if (format == Wpt::D108) {
        Put_Byte(p, 0, Wire_Byte(w.Wpt_Class));
        Put_Byte(p, 1, Wire_Byte(w.Color));
        Put_Byte(p, 2, Wire_Byte(w.Dspl));
    } else {
        Put_Byte(p, 0, Wire_Byte(w.Dtype));
        Put_Byte(p, 1, Wire_Byte(w.Wpt_Class));
        Put_Byte(p, 2, Wire_Byte(std::int64_t{w.Color} + 32 * std::int64_t{w.Dspl}));
        Put_Long(p, 48, w.Ete);
    }
    Put_Byte(p, 3, Wire_Byte(w.Attrib));
    Put_Int(p, 4, w.Smbl);
    // The bound is 127 here and above 127 in the decoder, so a class-127
    // waypoint sends its subclass and reads back without it; hosts have always
    // seen it so, and it stays. The subclass goes out as the host gave it,
    // not upper-cased: its bytes are binary.
    if (w.Wpt_Class < 127)
        Put_Default_Subclass(p, 6);
    else
        Put_Str(p, 6, 18, w.Sub_Class);
    Put_Position(p, 24, w.Lat);
    Put_Position(p, 28, w.Lon);
    Put_Single(p, 32, w.Alt);
    Put_Single(p, 36, w.Dpth);
    Put_Single(p, 40, w.Dist);
    Put_Upper_Text(p, 44, 2, w.State);
    Put_Upper_Text(p, 46, 2, w.Country);
    if (format == Wpt::D110) {
        Put_Single(p, 52, w.Temp);
        Put_Long(p, 56, Wire_Time(w.Time_Seconds, w.Time));
        Put_Int(p, 60, w.Wpt_Category);
    }
    Put_Wire(p, texts_at, texts);
    return p;
}

}  // namespace

cWaypoint Decode_Waypoint(link::Data_View p, std::string_view format) {
    cWaypoint w;
    const auto wpt = Parse_Format(format);
    if (!wpt) return w;
    const std::size_t size = p.size();
    switch (*wpt) {
        case Wpt::D100:
            Read_D100_Part(p, w);
            if (size == kD400Size) w.Dist = Data_Single(p, 58);
            break;
        case Wpt::D101:
            Read_D100_Part(p, w);
            w.Dist = Data_Single(p, 58);
            w.Smbl = Data_Byte(p, 62);
            break;
        case Wpt::D102:
            Read_D100_Part(p, w);
            w.Dist = Data_Single(p, 58);
            w.Smbl = Data_Int(p, 62);
            break;
        case Wpt::D103:
            Read_D100_Part(p, w);
            w.Smbl = Data_Byte(p, 58);
            w.Dspl = Data_Byte(p, 59);
            if (size == kD403Size) w.Dist = Data_Single(p, 60);
            break;
        case Wpt::D104:
            Read_D100_Part(p, w);
            w.Dist = Data_Single(p, 58);
            w.Smbl = Data_Int(p, 62);
            w.Dspl = Data_Byte(p, 64);
            break;
        case Wpt::D105:
            w.Lat = Position_At(p, 0);
            w.Lon = Position_At(p, 4);
            w.Smbl = Data_Int(p, 8);
            w.Ident = std::move(Texts_From(p, 10, 1)[0]);
            break;
        case Wpt::D106: {
            w.Wpt_Class = Data_Byte(p, 0);
            w.Sub_Class = Fixed_Text(p, 1, 13);
            w.Lat = Position_At(p, 14);
            w.Lon = Position_At(p, 18);
            w.Smbl = Data_Int(p, 22);
            auto texts = Texts_From(p, 24, 2);
            w.Ident = std::move(texts[0]);
            w.Link = std::move(texts[1]);
            break;
        }
        case Wpt::D107:
            Read_D100_Part(p, w);
            w.Smbl = Data_Byte(p, 58);
            w.Dspl = Data_Byte(p, 59);
            w.Dist = Data_Single(p, 60);
            w.Color = Data_Byte(p, 64);
            break;
        case Wpt::D108:
        case Wpt::D109:
        case Wpt::D110:
            Read_D108_Family(p, *wpt, w);
            break;
        case Wpt::D150:
            if (size == kD450Size)
                Read_D450(p, w);
            else
                Read_D150(p, w);
            break;
        case Wpt::D151:
        case Wpt::D152:
        case Wpt::D154:
        case Wpt::D155:
            Read_D100_Part(p, w);
            Read_D151_Part(p, w);
            if (*wpt == Wpt::D154 || *wpt == Wpt::D155) w.Smbl = Data_Int(p, 124);
            if (*wpt == Wpt::D155) w.Dspl = Data_Byte(p, 126);
            break;
    }
    return w;
}

std::optional<link::Packet> Encode_Waypoint(const cWaypoint& w, std::string_view format, std::uint16_t packet_id,
                                            bool proximity) {
    const auto wpt = Parse_Format(format);
    if (!wpt) return std::nullopt;
    Bytes p;
    switch (*wpt) {
        case Wpt::D100:
            p = New_Data(proximity ? kD400Size : 58);
            Write_D100_Part(p, w);
            if (proximity) Put_Single(p, 58, w.Dist);
            break;
        case Wpt::D101:
            p = New_Data(63);
            Write_D100_Part(p, w);
            Put_Single(p, 58, w.Dist);
            Put_Byte(p, 62, Wire_Byte(w.Smbl));
            break;
        case Wpt::D102:
            p = New_Data(64);
            Write_D100_Part(p, w);
            Put_Single(p, 58, w.Dist);
            Put_Int(p, 62, w.Smbl);
            break;
        case Wpt::D103:
            p = New_Data(proximity ? kD403Size : 60);
            Write_D100_Part(p, w);
            Put_Byte(p, 58, Wire_Byte(w.Smbl));
            Put_Byte(p, 59, Wire_Byte(w.Dspl));
            if (proximity) Put_Single(p, 60, w.Dist);
            break;
        case Wpt::D104:
            p = New_Data(65);
            Write_D100_Part(p, w);
            Put_Single(p, 58, w.Dist);
            Put_Int(p, 62, w.Smbl);
            Put_Byte(p, 64, Wire_Byte(w.Dspl));
            break;
        case Wpt::D105: {
            const std::string texts = Terminated_Texts({w.Ident});
            p = New_Data(10 + texts.size());
            Put_Position(p, 0, w.Lat);
            Put_Position(p, 4, w.Lon);
            Put_Int(p, 8, w.Smbl);
            Put_Wire(p, 10, texts);
            break;
        }
        case Wpt::D106: {
            const std::string texts = Terminated_Texts({w.Ident, w.Link});
            p = New_Data(24 + texts.size());
            Put_Byte(p, 0, Wire_Byte(w.Wpt_Class));
            // Binary subclass bytes: as the host gave them, whatever the class.
            Put_Str(p, 1, 13, w.Sub_Class);
            Put_Position(p, 14, w.Lat);
            Put_Position(p, 18, w.Lon);
            Put_Int(p, 22, w.Smbl);
            Put_Wire(p, 24, texts);
            break;
        }
        case Wpt::D107:
            p = New_Data(65);
            Write_D100_Part(p, w);
            Put_Byte(p, 58, Wire_Byte(w.Smbl));
            Put_Byte(p, 59, Wire_Byte(w.Dspl));
            Put_Single(p, 60, w.Dist);
            Put_Byte(p, 64, Wire_Byte(w.Color));
            break;
        case Wpt::D108:
        case Wpt::D109:
        case Wpt::D110:
            p = Write_D108_Family(w, *wpt);
            break;
        case Wpt::D150:
            // Sent without the D450 index and distance, even as a proximity waypoint.
            p = New_Data(115);
            Write_D150(p, w);
            break;
        case Wpt::D151:
        case Wpt::D152:
        case Wpt::D154:
        case Wpt::D155:
            p = New_Data(*wpt == Wpt::D155 ? 127 : *wpt == Wpt::D154 ? 126 : 124);
            Write_D100_Part(p, w);
            Write_D151_Part(p, w);
            if (*wpt == Wpt::D154 || *wpt == Wpt::D155) Put_Int(p, 124, w.Smbl);
            if (*wpt == Wpt::D155) Put_Byte(p, 126, Wire_Byte(w.Dspl));
            break;
    }
    return link::Packet{packet_id, std::move(p), std::nullopt};
}

void Join_Last_Route(const Collection<cRoute>& routes, const std::shared_ptr<cWaypoint>& waypoint) {
    if (routes.Count() == 0) return;
    const auto route = routes.Item(routes.Count());
    if (route && route->Waypoints) route->Waypoints->Add(waypoint);
}

}  // namespace trekcom::records
