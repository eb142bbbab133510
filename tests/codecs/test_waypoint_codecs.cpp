// Waypoint formats: every format's records survive encode then decode, any
// prefix of their data decodes safely, and one packet per layout family is
// pinned byte for byte.
#include <gtest/gtest.h>

#include <bit>
#include <tuple>

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
std::uint8_t Id(const std::string& format) { return format[1] == '4' ? kPrx : kWpt; }

// What each format carries, in wire order. D400 and D403 are D100 and D103
// sent as proximity waypoints, with the distance.
void Carry_Waypoint(std::string_view f, Carry& c, cWaypoint& in, cWaypoint& out) {
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
    if (f == "D100" || f == "D400") {
        d100();
        if (f == "D400") c.Same(in.Dist, out.Dist);
    } else if (f == "D101" || f == "D102" || f == "D104") {
        d100();
        c.Same(in.Dist, out.Dist);
        f == "D101" ? c.Byte(in.Smbl, out.Smbl) : c.Same(in.Smbl, out.Smbl);
        if (f == "D104") c.Byte(in.Dspl, out.Dspl);
    } else if (f == "D103" || f == "D403" || f == "D107") {
        d100();
        c.Byte(in.Smbl, out.Smbl);
        c.Byte(in.Dspl, out.Dspl);
        if (f != "D103") c.Same(in.Dist, out.Dist);
        if (f == "D107") c.Byte(in.Color, out.Color);
    } else if (f == "D105" || f == "D106") {
        if (f == "D106") c.Byte(in.Wpt_Class, out.Wpt_Class), c.Text(in.Sub_Class, out.Sub_Class, 13, false);
        lat_lon();
        c.Same(in.Smbl, out.Smbl);
        c.Terminated(in.Ident, out.Ident);
        if (f == "D106") c.Terminated(in.Link, out.Link);
    } else if (f == "D108" || f == "D109" || f == "D110") {
        if (f != "D108") c.Byte(in.Dtype, out.Dtype), c.Same(in.Ete, out.Ete);
        c.Byte(in.Wpt_Class, out.Wpt_Class);
        // D109 and D110 share a byte between colour and display.
        c.Byte(in.Color, out.Color, f == "D108" ? 255 : 31);
        c.Byte(in.Dspl, out.Dspl, f == "D108" ? 255 : 3);
        c.Byte(in.Attrib, out.Attrib);
        c.Same(in.Smbl, out.Smbl);
        if (in.Wpt_Class > 127) c.Text(in.Sub_Class, out.Sub_Class, 18, false);
        lat_lon();
        for (auto single : {&cWaypoint::Alt, &cWaypoint::Dpth, &cWaypoint::Dist}) c.Same(in.*single, out.*single);
        c.Text(in.State, out.State, 2);
        c.Text(in.Country, out.Country, 2);
        if (f == "D110") {
            c.Same(in.Temp, out.Temp);
            c.Time(in.Time_Seconds, out.Time_Seconds, out.Time);
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
    } else {  // D151, D152, D154, D155
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
    std::vector<std::pair<std::string, std::function<void(Carry&, cWaypoint&, cWaypoint&)>>> models;
    for (const std::string f : {"D100", "D101", "D102", "D103", "D104", "D105", "D106", "D107", "D108", "D109", "D110",
                                "D150", "D151", "D152", "D154", "D155", "D400", "D403"})
        models.emplace_back(f, [f](Carry& c, cWaypoint& in, cWaypoint& out) { Carry_Waypoint(f, c, in, out); });
    const auto base = [](const std::string& f) { return f == "D400" ? "D100" : f == "D403" ? "D103" : f; };
    return Formats<cWaypoint>(
        models,
        [=](const cWaypoint& w, const std::string& f) { return Encode_Waypoint(w, base(f), Id(f), f[1] == '4'); },
        [=](link::Data_View d, const std::string& f) { return Decode_Waypoint(d, base(f)); });
}

}  // namespace

TEST(WaypointCodec, EveryRecordComesBackInTheFieldsItsFormatCarries) {
    Rng rng;
    for (const auto& f : Waypoint_Formats()) Round_Trip(f, rng, Id(f.name));
}

TEST(WaypointCodec, AnyPrefixOfTheDataGivesWholeOrAbsentFields) {
    Rng rng;
    for (const auto& f : Waypoint_Formats()) Prefixes(f, rng);
}

// ---------------------------------------------------------------- pinned layouts

TEST(WaypointCodec, OnePacketPerLayoutFamilyIsPinnedByteForByte) {
    const Bytes pos = Hex("00 00 00 20  00 00 00 E0");  // 45, -45 degrees
    const Bytes d100 = Cat({Txt("ABC", 6), pos, Hex("01 02 03 04"), Txt("HELLO", 40)});
    const Bytes d150 = Cat({Txt("ABC", 6), Txt("US"), Hex("04"), pos, Hex("64 00"), Txt("OLATHE", 24), Txt("KS"),
                            Txt("AIRPORT", 30), Txt("HELLO", 40)});
    cWaypoint w;
    w.Ident = "abc", w.Lat = 45, w.Lon = -45, w.Unused1 = 0x04030201, w.Cmnt = "HELLO", w.Smbl = 7, w.Dspl = 2;
    w.Dist = 100, w.Facility = "AIRPORT", w.City = "OLATHE", w.State = "KS", w.Alt = 100, w.Country = "US";
    w.Wpt_Class = 4;
    EXPECT_EQ(Encode_Waypoint(w, "D103", kPrx, true)->data, Cat({d100, Hex("07 02  00 00 C8 42")}));
    EXPECT_EQ(Encode_Waypoint(w, "D155", kWpt, false)->data,
              Cat({d100, Hex("00 00 C8 42"), Txt("AIRPORT", 30), Txt("OLATHE", 24), Txt("KS"), Hex("64 00"), Txt("US"),
                   Hex("00 04  07 00 02")}));
    EXPECT_EQ(Encode_Waypoint(w, "D150", kWpt, false)->data, d150);
    // D450, only ever received: the index, a D150, the distance, read one
    // byte early (the comment's last space and three bytes of 100.0f).
    const cWaypoint d450 = Decode_Waypoint(Cat({Hex("05 00"), d150, Hex("00 00 C8 42")}), "D150");
    EXPECT_EQ(d450.Prox_Index, 5);
    EXPECT_EQ(d450.Dist, std::bit_cast<float>(0xC8000020u));
    EXPECT_EQ(d450.Cmnt, "HELLO");

    // Display-and-colour 0x65 is colour 5, display 3. Class 128 keeps every
    // subclass byte, NULs included.
    const Bytes d109 = Cat({Hex("01 80 65 70  12 00  01 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF"), pos,
                            Hex("00 00 C8 42  00 00 00 40  00 00 00 3F"), Txt("KSUS"), Hex("10 0E 00 00"),
                            Txt("WPT\0HI\0FAC\0CITY\0ADDR\0X\0"sv)});
    const cWaypoint back = Decode_Waypoint(d109, "D109");
    EXPECT_EQ(Print(back.Sub_Class), Print("\x01\0\0\0\0\0"s + "ÿÿÿÿÿÿÿÿÿÿÿÿ"));
    EXPECT_EQ(std::tie(back.Dtype, back.Wpt_Class, back.Color, back.Dspl, back.Attrib, back.Smbl, back.Ete),
              std::make_tuple(1, 128, 5, 3, 0x70, 18, 3600));
    EXPECT_EQ(std::tie(back.Ident, back.Cross_Road, back.Dpth), std::make_tuple("WPT", "X", 2.0f));
    EXPECT_EQ(Encode_Waypoint(back, "D109", kWpt, false)->data, d109);
}

TEST(WaypointCodec, ValuesWithoutAWireFormAreOverflowErrorsAndUnknownFormatsSendNothing) {
    cWaypoint w;
    EXPECT_FALSE(Encode_Waypoint(w, "D999", kWpt, false));
    EXPECT_EQ(Fields(Decode_Waypoint(Bytes(64, 0x41), "D999")), Fields(cWaypoint{}));
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
    w.Alt = 0, w.Dspl = 8;  // 32 x 8 does not fit the colour-and-display byte
    EXPECT_THROW(Encode_Waypoint(w, "D109", kWpt, false), Overflow_Error);
    // Texts fill a packet to 255 data bytes and no further.
    w.Dspl = 0, w.Address = std::string(255 - 62 - 6, 'A');
    EXPECT_EQ(Decode_Waypoint(Encode_Waypoint(w, "D110", kWpt, false)->data, "D110").Address, w.Address);
    w.Address += 'A';
    EXPECT_THROW(Encode_Waypoint(w, "D110", kWpt, false), Overflow_Error);
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
