// Waypoint formats: every format's records survive encode then decode, any
// prefix of their data decodes safely, and one packet per layout family is
// pinned byte for byte.
#include <gtest/gtest.h>

#include "codecs/wire_fixture.h"
#include "records/codecs/codecs.h"
#include "records/fields.h"

using namespace trekcom;
using namespace trekcom::records;
using namespace codec_test;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

constexpr std::uint8_t kWpt = 35, kPrx = 19;

void Draw_Waypoint(Rng& r, cWaypoint& w) {
    for (auto* text : {&w.Ident, &w.Cmnt, &w.Sub_Class, &w.Link, &w.State, &w.Country, &w.City, &w.Address,
                       &w.Facility, &w.Cross_Road})
        *text = r.Text();
    for (auto* i16 : {&w.Dspl, &w.Smbl, &w.Prox_Index, &w.Wpt_Class, &w.Attrib, &w.Dtype, &w.Wpt_Category})
        *i16 = r.Int<std::int16_t>();
    for (auto* i32 : {&w.Unused1, &w.Color, &w.Unused2, &w.Ete, &w.Time_Seconds}) *i32 = r.Int<std::int32_t>();
    for (auto* single : {&w.Dist, &w.Alt, &w.Dpth, &w.Temp}) *single = r.Single();
}

// What each format carries, in wire order.
void Carry_Waypoint(std::string_view f, bool proximity, Carry& c, cWaypoint& in, cWaypoint& out) {
    const auto lat_lon = [&] {
        c.Position(in.Lat, out.Lat);
        c.Position(in.Lon, out.Lon);
    };
    const auto d100 = [&] {
        c.Text(in.Ident, out.Ident, 6);
        lat_lon();
        c.Same(in.Unused1, out.Unused1);
        c.Text(in.Cmnt, out.Cmnt, 40);
    };
    if (f == "D100") {
        d100();
        if (proximity) c.Same(in.Dist, out.Dist);
    } else if (f == "D101" || f == "D102" || f == "D104") {
        d100();
        c.Same(in.Dist, out.Dist);
        f == "D101" ? c.Byte(in.Smbl, out.Smbl) : c.Same(in.Smbl, out.Smbl);
        if (f == "D104") c.Byte(in.Dspl, out.Dspl);
    } else if (f == "D103" || f == "D107") {
        d100();
        c.Byte(in.Smbl, out.Smbl);
        c.Byte(in.Dspl, out.Dspl);
        if (f == "D107" || proximity) c.Same(in.Dist, out.Dist);
        if (f == "D107") c.Byte(in.Color, out.Color);
    } else if (f == "D105") {
        lat_lon();
        c.Same(in.Smbl, out.Smbl);
        c.Terminated(in.Ident, out.Ident);
    } else if (f == "D106") {
        c.Byte(in.Wpt_Class, out.Wpt_Class);
        c.Raw(in.Sub_Class, out.Sub_Class, 13);
        lat_lon();
        c.Same(in.Smbl, out.Smbl);
        c.Terminated(in.Ident, out.Ident);
        c.Terminated(in.Link, out.Link);
    } else if (f == "D108" || f == "D109" || f == "D110") {
        if (f == "D108") {
            c.Byte(in.Wpt_Class, out.Wpt_Class);
            c.Byte(in.Color, out.Color);
            c.Byte(in.Dspl, out.Dspl);
        } else {
            c.Byte(in.Dtype, out.Dtype);
            c.Byte(in.Wpt_Class, out.Wpt_Class);
            c.Byte(in.Color, out.Color, 31);  // colour and display share a byte
            c.Byte(in.Dspl, out.Dspl, 3);
            c.Same(in.Ete, out.Ete);
        }
        c.Byte(in.Attrib, out.Attrib);
        c.Same(in.Smbl, out.Smbl);
        if (in.Wpt_Class > 127) c.Raw(in.Sub_Class, out.Sub_Class, 18);
        lat_lon();
        c.Same(in.Alt, out.Alt);
        c.Same(in.Dpth, out.Dpth);
        c.Same(in.Dist, out.Dist);
        c.Text(in.State, out.State, 2);
        c.Text(in.Country, out.Country, 2);
        if (f == "D110") {
            c.Same(in.Temp, out.Temp);
            c.Time(in.Time_Seconds, in.Time, out.Time_Seconds, out.Time);
            c.Same(in.Wpt_Category, out.Wpt_Category);
        }
        for (auto text : {&cWaypoint::Ident, &cWaypoint::Cmnt, &cWaypoint::Facility, &cWaypoint::City,
                          &cWaypoint::Address, &cWaypoint::Cross_Road})
            c.Terminated(in.*text, out.*text);
    } else if (f == "D150") {
        c.Text(in.Ident, out.Ident, 6);
        c.Text(in.Country, out.Country, 2);
        c.Byte(in.Wpt_Class, out.Wpt_Class);
        lat_lon();
        c.Integer(in.Alt, out.Alt);
        c.Text(in.City, out.City, 24);
        c.Text(in.State, out.State, 2);
        c.Text(in.Facility, out.Facility, 30);
        c.Text(in.Cmnt, out.Cmnt, 40);
    } else {  // D151, D152, D154, D155; the spare byte goes out as 0
        d100();
        c.Same(in.Dist, out.Dist);
        c.Text(in.Facility, out.Facility, 30);
        c.Text(in.City, out.City, 24);
        c.Text(in.State, out.State, 2);
        c.Integer(in.Alt, out.Alt);
        c.Text(in.Country, out.Country, 2);
        c.Byte(in.Wpt_Class, out.Wpt_Class);
        if (f == "D154" || f == "D155") c.Same(in.Smbl, out.Smbl);
        if (f == "D155") c.Byte(in.Dspl, out.Dspl);
    }
}

std::vector<Format<cWaypoint>> Waypoint_Formats() {
    std::vector<Format<cWaypoint>> formats;
    const auto add = [&](const char* base, bool proximity, const char* name, std::string cWaypoint::*grown) {
        const std::string f = base;
        const std::uint8_t id = proximity ? kPrx : kWpt;
        formats.push_back({name, Draw_Waypoint,
                           [=](Carry& c, cWaypoint& in, cWaypoint& out) { Carry_Waypoint(f, proximity, c, in, out); },
                           [=](const cWaypoint& w) { return Encode_Waypoint(w, f, id, proximity); },
                           [=](link::Data_View d) { return Decode_Waypoint(d, f); }, std::nullopt, grown});
    };
    for (const char* f : {"D100", "D101", "D102", "D103", "D104", "D107", "D150", "D151", "D152", "D154", "D155"})
        add(f, false, f, nullptr);
    add("D105", false, "D105", &cWaypoint::Ident);
    add("D106", false, "D106", &cWaypoint::Link);
    for (const char* f : {"D108", "D109", "D110"}) add(f, false, f, &cWaypoint::Address);
    add("D100", true, "D400", nullptr);
    add("D103", true, "D403", nullptr);
    return formats;
}

std::uint16_t Id_Of(const Format<cWaypoint>& f) { return f.name.starts_with("D4") ? kPrx : kWpt; }

}  // namespace

TEST(WaypointCodec, EveryRecordComesBackInTheFieldsItsFormatCarries) {
    Rng rng;
    for (const auto& f : Waypoint_Formats()) Round_Trip(f, rng, Id_Of(f));
}

TEST(WaypointCodec, AnyPrefixOfTheDataGivesWholeOrAbsentFields) {
    Rng rng;
    for (const auto& f : Waypoint_Formats()) Prefixes(f, rng);
}

TEST(WaypointCodec, TextsFillAPacketTo255BytesAndNoFurther) {
    Rng rng;
    for (const auto& f : Waypoint_Formats())
        if (f.grown_text) Largest(f, rng);
}

// ---------------------------------------------------------------- pinned layouts

namespace {
// 45 and -45 degrees: 0x20000000 and 0xE0000000 semicircles.
const Bytes kPos = Hex("00 00 00 20  00 00 00 E0");
const Bytes kD100 = Cat({Txt("ABC", 6), kPos, Hex("01 02 03 04"), Txt("HELLO", 40)});
const Bytes k100f = Hex("00 00 C8 42");  // 100.0f
const Bytes kD150 = Cat({Txt("ABC", 6), Txt("US"), Hex("04"), kPos, Hex("64 00"), Txt("OLATHE", 24), Txt("KS"),
                         Txt("AIRPORT", 30), Txt("HELLO", 40)});

cWaypoint Rec(const std::function<void(cWaypoint&)>& fill) {
    cWaypoint w;
    fill(w);
    return w;
}
void Fill_D100(cWaypoint& w) { w.Ident = "ABC", w.Lat = 45, w.Lon = -45, w.Unused1 = 0x04030201, w.Cmnt = "HELLO"; }
void Fill_D150(cWaypoint& w) {
    w.Ident = "ABC", w.Country = "US", w.Wpt_Class = 4, w.Lat = 45, w.Lon = -45, w.Alt = 100;
    w.City = "OLATHE", w.State = "KS", w.Facility = "AIRPORT", w.Cmnt = "HELLO";
}
}  // namespace

TEST(WaypointCodec, OnePacketPerLayoutFamilyIsPinnedByteForByte) {
    struct Pinned {
        const char* format;
        bool proximity;
        Bytes data;
        cWaypoint record;
    };
    const Pinned pinned[] = {
        {"D103", true, Cat({kD100, Hex("07 02"), k100f}),
         Rec([](auto& w) { Fill_D100(w), w.Smbl = 7, w.Dspl = 2, w.Dist = 100; })},
        {"D106", false, Cat({Hex("00"), Txt("sub", 13), kPos, Hex("08 00"), Txt("WP1\0LNK\0"sv)}),
         Rec([](auto& w) { w.Sub_Class = "sub", w.Lat = 45, w.Lon = -45, w.Smbl = 8, w.Ident = "WP1", w.Link = "LNK"; })},
        // Display-and-colour 0x65: colour 5, display 3. Class 128 keeps every
        // subclass byte, NULs included.
        {"D109", false,
         Cat({Hex("01 80 65 70  12 00  01 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF"), kPos, k100f,
              Hex("00 00 00 40  00 00 00 3F"), Txt("KSUS"), Hex("10 0E 00 00"),
              Txt("WPT\0HI\0FAC\0CITY\0ADDR\0X\0"sv)}),
         Rec([](auto& w) {
             w.Dtype = 1, w.Wpt_Class = 128, w.Color = 5, w.Dspl = 3, w.Attrib = 0x70, w.Smbl = 18;
             w.Sub_Class = "\x01\0\0\0\0\0"s;
             for (int k = 0; k < 12; ++k) w.Sub_Class += "\xC3\xBF";  // y with diaeresis, 0xFF on the wire
             w.Lat = 45, w.Lon = -45, w.Alt = 100, w.Dpth = 2, w.Dist = 0.5f, w.State = "KS", w.Country = "US";
             w.Ete = 3600, w.Ident = "WPT", w.Cmnt = "HI", w.Facility = "FAC", w.City = "CITY", w.Address = "ADDR";
             w.Cross_Road = "X";
         })},
        {"D150", false, kD150, Rec(Fill_D150)},
        {"D155", false,
         Cat({kD100, k100f, Txt("AIRPORT", 30), Txt("OLATHE", 24), Txt("KS"), Hex("64 00"), Txt("US"),
              Hex("00 02  12 00 01")}),
         Rec([](auto& w) {
             Fill_D100(w), w.Dist = 100, w.Facility = "AIRPORT", w.City = "OLATHE", w.State = "KS", w.Alt = 100;
             w.Country = "US", w.Wpt_Class = 2, w.Smbl = 18, w.Dspl = 1;
         })},
    };
    for (const auto& p : pinned) {
        SCOPED_TRACE(p.format);
        EXPECT_EQ(Show(Decode_Waypoint(p.data, p.format)), Show(p.record));
        EXPECT_EQ(Encode_Waypoint(p.record, p.format, kWpt, p.proximity)->data, p.data);
    }
    // D450, which is only ever received: the index, a D150, the distance. The
    // distance is read one byte early: the comment's last space and the first
    // three bytes of 100.0f.
    EXPECT_EQ(Show(Decode_Waypoint(Cat({Hex("05 00"), kD150, k100f}), "D150")),
              Show(Rec([](auto& w) { Fill_D150(w), w.Prox_Index = 5, w.Dist = std::bit_cast<float>(0xC8000020u); })));
}

TEST(WaypointCodec, ValuesWithoutAWireFormAreOverflowErrorsAndUnknownFormatsSendNothing) {
    cWaypoint w;
    EXPECT_FALSE(Encode_Waypoint(w, "D999", kWpt, false));
    EXPECT_EQ(Show(Decode_Waypoint(kD100, "D999")), Show(cWaypoint{}));
    for (double bad : {180.0, -180.001, std::nan("")}) {
        w.Lat = bad;
        EXPECT_THROW(Encode_Waypoint(w, "D100", kWpt, false), Overflow_Error) << bad;
    }
    w.Lat = 0;
    for (std::int16_t bad : {-1, 256}) {
        w.Smbl = bad;
        EXPECT_THROW(Encode_Waypoint(w, "D103", kWpt, false), Overflow_Error) << bad;
    }
    w.Smbl = 0;
    for (float bad : {32767.5f, -32769.0f, std::nanf("")}) {
        w.Alt = bad;
        EXPECT_THROW(Encode_Waypoint(w, "D150", kWpt, false), Overflow_Error) << bad;
    }
    w.Alt = 0, w.Color = 0, w.Dspl = 8;  // 32 x 8 > 255
    EXPECT_THROW(Encode_Waypoint(w, "D109", kWpt, false), Overflow_Error);
}

TEST(WaypointCodec, EachWaypointJoinsTheLastRouteIfItHasACollection) {
    Collection<cRoute> routes;
    const auto w = std::make_shared<cWaypoint>();
    Join_Last_Route(routes, w);  // no route: nothing to join
    for (int k = 0; k < 2; ++k) routes.Add(std::make_shared<cRoute>(Decode_Route_Header(Hex("01"), "D200")));
    routes.Add(std::make_shared<cRoute>());  // a host's route, without a collection: skipped
    Join_Last_Route(routes, w);
    routes.Remove(3);
    Join_Last_Route(routes, w);
    EXPECT_EQ(routes.Item(1)->Waypoints->Count(), 0);
    EXPECT_EQ(routes.Item(2)->Waypoints->Count(), 1);
}
