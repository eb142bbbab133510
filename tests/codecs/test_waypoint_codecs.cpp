// Waypoint formats against wire bytes written by hand from the record
// layouts: each fixture is decoded, and the record it stands for is encoded
// back to the same bytes.
#include <gtest/gtest.h>

#include <bit>
#include <functional>

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

// 45 and -45 degrees: 0x20000000 and 0xE0000000 semicircles.
const Bytes kPos = Hex("00 00 00 20  00 00 00 E0");
const Bytes kD100 = Cat({Txt("ABC", 6), kPos, Hex("01 02 03 04"), Txt("HELLO", 40)});
const Bytes k100f = Hex("00 00 C8 42");  // 100.0f
const Bytes kD103 = Cat({kD100, Hex("07 02")});
const Bytes kD150 = Cat({Txt("ABC", 6), Txt("US"), Hex("04"), kPos, Hex("64 00"), Txt("OLATHE", 24), Txt("KS"),
                         Txt("AIRPORT", 30), Txt("HELLO", 40)});
const Bytes kD151 =
    Cat({kD100, k100f, Txt("AIRPORT", 30), Txt("OLATHE", 24), Txt("KS"), Hex("64 00"), Txt("US"), Hex("00 02")});
// D108..D110 share everything from the attribute byte to the country code.
const Bytes kDefaultSub = Hex("00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF");
Bytes Mid108(const Bytes& subclass) {
    return Cat({Hex("12 00"), subclass, kPos, k100f, Hex("00 00 00 40  00 00 00 3F"), Txt("KSUS")});
}
const Bytes kTexts = Txt("WPT\0HI\0FAC\0CITY\0ADDR\0X\0"sv);

cWaypoint Rec(const std::function<void(cWaypoint&)>& fill, bool d100_part = true) {
    cWaypoint w;
    if (d100_part) {
        w.Ident = "ABC", w.Lat = 45, w.Lon = -45, w.Unused1 = 0x04030201, w.Cmnt = "HELLO";
    }
    fill(w);
    return w;
}
void Fill_D150(cWaypoint& w) {
    w.Ident = "ABC", w.Country = "US", w.Wpt_Class = 4, w.Lat = 45, w.Lon = -45, w.Alt = 100;
    w.City = "OLATHE", w.State = "KS", w.Facility = "AIRPORT", w.Cmnt = "HELLO";
}
void Fill_D151(cWaypoint& w) {
    w.Dist = 100, w.Facility = "AIRPORT", w.City = "OLATHE", w.State = "KS", w.Alt = 100, w.Country = "US";
    w.Wpt_Class = 2;
}
void Fill_D108(cWaypoint& w) {
    w.Smbl = 18, w.Lat = 45, w.Lon = -45, w.Alt = 100, w.Dpth = 2, w.Dist = 0.5f, w.State = "KS", w.Country = "US";
    w.Ident = "WPT", w.Cmnt = "HI", w.Facility = "FAC", w.City = "CITY", w.Address = "ADDR", w.Cross_Road = "X";
}

struct Wpt_Case {
    const char* format;
    std::uint8_t id;
    bool proximity;
    bool sent_as_is;  // false: a layout the encoder never produces
    Bytes data;
    cWaypoint record;
};

std::vector<Wpt_Case> Wpt_Cases() {
    return {
        {"D100", kWpt, false, true, kD100, Rec([](auto&) {})},
        {"D101", kWpt, false, true, Cat({kD100, k100f, Hex("07")}), Rec([](auto& w) { w.Dist = 100, w.Smbl = 7; })},
        {"D102", kWpt, false, true, Cat({kD100, k100f, Hex("2C 01")}),
         Rec([](auto& w) { w.Dist = 100, w.Smbl = 300; })},
        {"D103", kWpt, false, true, kD103, Rec([](auto& w) { w.Smbl = 7, w.Dspl = 2; })},
        {"D104", kWpt, false, true, Cat({kD100, k100f, Hex("2C 01 01")}),
         Rec([](auto& w) { w.Dist = 100, w.Smbl = 300, w.Dspl = 1; })},
        {"D105", kWpt, false, true, Cat({kPos, Hex("08 00"), Txt("WP1\0"sv)}),
         Rec([](auto& w) { w.Lat = 45, w.Lon = -45, w.Smbl = 8, w.Ident = "WP1"; }, false)},
        // The subclass goes out as given, lower case included.
        {"D106", kWpt, false, true, Cat({Hex("00"), Txt("sub", 13), kPos, Hex("08 00"), Txt("WP1\0LNK\0"sv)}),
         Rec([](auto& w) { w.Sub_Class = "sub", w.Lat = 45, w.Lon = -45, w.Smbl = 8, w.Ident = "WP1", w.Link = "LNK"; },
             false)},
        {"D107", kWpt, false, true, Cat({kD100, Hex("07 02"), k100f, Hex("05")}),
         Rec([](auto& w) { w.Smbl = 7, w.Dspl = 2, w.Dist = 100, w.Color = 5; })},
        // Class 0: the default subclass, read back as "".
        {"D108", kWpt, false, true, Cat({Hex("00 05 01 60"), Mid108(kDefaultSub), kTexts}),
         Rec([](auto& w) { Fill_D108(w), w.Color = 5, w.Dspl = 1, w.Attrib = 0x60; }, false)},
        // Display-and-colour 0x65: colour 5, display 3. Class 128 keeps every
        // subclass byte, NULs included.
        {"D109", kWpt, false, true,
         Cat({Hex("01 80 65 70"), Mid108(Hex("01 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF")),
              Hex("10 0E 00 00"), kTexts}),
         Rec(
             [](auto& w) {
                 Fill_D108(w), w.Dtype = 1, w.Wpt_Class = 128, w.Color = 5, w.Dspl = 3, w.Attrib = 0x70, w.Ete = 3600;
                 w.Sub_Class = "\x01\0\0\0\0\0"s;
                 for (int k = 0; k < 12; ++k) w.Sub_Class += "\xC3\xBF";  // y with diaeresis, 0xFF on the wire
             },
             false)},
        {"D110", kWpt, false, true,
         Cat({Hex("01 00 25 80"), Mid108(kDefaultSub), Hex("10 0E 00 00  00 00 C8 41  80 51 01 00  03 00"), kTexts}),
         Rec(
             [](auto& w) {
                 Fill_D108(w), w.Dtype = 1, w.Color = 5, w.Dspl = 1, w.Attrib = 0x80, w.Ete = 3600, w.Temp = 25;
                 w.Time = "1990/01/01-00:00:00", w.Time_Seconds = 86400, w.Wpt_Category = 3;
             },
             false)},
        {"D150", kWpt, false, true, kD150, Rec(Fill_D150, false)},
        {"D151", kWpt, false, true, kD151, Rec(Fill_D151)},
        {"D152", kWpt, false, true, kD151, Rec(Fill_D151)},
        {"D154", kWpt, false, true, Cat({kD151, Hex("12 00")}), Rec([](auto& w) { Fill_D151(w), w.Smbl = 18; })},
        {"D155", kWpt, false, true, Cat({kD151, Hex("12 00 01")}),
         Rec([](auto& w) { Fill_D151(w), w.Smbl = 18, w.Dspl = 1; })},
        // The proximity variants, by size: D400, D403, D450.
        {"D100", kPrx, true, true, Cat({kD100, k100f}), Rec([](auto& w) { w.Dist = 100; })},
        {"D103", kPrx, true, true, Cat({kD103, k100f}), Rec([](auto& w) { w.Smbl = 7, w.Dspl = 2, w.Dist = 100; })},
        // The distance is read one byte early: the comment's last space and
        // the first three bytes of 100.0f.
        {"D150", kPrx, true, false, Cat({Hex("05 00"), kD150, k100f}),
         Rec([](auto& w) { Fill_D150(w), w.Prox_Index = 5, w.Dist = std::bit_cast<float>(0xC8000020u); }, false)},
    };
}

}  // namespace

TEST(WaypointCodec, EveryFormatDecodesItsBytesAndEncodesItsRecordBack) {
    for (const auto& c : Wpt_Cases()) {
        SCOPED_TRACE(std::string(c.format) + " size " + std::to_string(c.data.size()));
        const Bytes packet = Frame(c.id, c.data);
        EXPECT_EQ(Show(Decode_Waypoint(packet, c.format)), Show(c.record));
        if (c.sent_as_is) {
            EXPECT_EQ(Encode_Waypoint(c.record, c.format, c.id, c.proximity), packet);
        }
    }
}

TEST(WaypointCodec, SubclassIsSentFromClass127ButReadOnlyAbove) {
    auto with_class = [](std::int16_t wpt_class, std::string sub) {
        cWaypoint w;
        w.Wpt_Class = wpt_class, w.Sub_Class = std::move(sub);
        return w;
    };
    const auto subclass_sent = [](const Bytes& p) { return Bytes(p.begin() + 3 + 6, p.begin() + 3 + 24); };
    for (const char* format : {"D108", "D109", "D110"}) {
        SCOPED_TRACE(format);
        const Bytes at127 = Encode_Waypoint(with_class(127, "xyz"), format, kWpt, false);
        EXPECT_EQ(subclass_sent(at127), Txt("xyz", 18));
        EXPECT_EQ(Decode_Waypoint(at127, format).Sub_Class, "");
        const Bytes at128 = Encode_Waypoint(with_class(128, "xyz"), format, kWpt, false);
        EXPECT_EQ(Decode_Waypoint(at128, format).Sub_Class, "xyz");
        EXPECT_EQ(subclass_sent(Encode_Waypoint(with_class(0, "JUNK"), format, kWpt, false)), kDefaultSub);
    }
}

TEST(WaypointCodec, TextIsUpperCasedInTheWireCodePage) {
    cWaypoint w;
    w.Ident = "abé";
    w.Cmnt = "a comment far too long for its forty bytes, cut";
    const Bytes p = Encode_Waypoint(w, "D100", kWpt, false);
    EXPECT_EQ(Bytes(p.begin() + 3, p.begin() + 9), Hex("41 42 C9 20 20 20"));
    EXPECT_EQ(Bytes(p.begin() + 21, p.begin() + 61), Txt("A COMMENT FAR TOO LONG FOR ITS FORTY BYT"));
}

TEST(WaypointCodec, ValuesWithoutAWireFormAreOverflowErrors) {
    cWaypoint w;
    w.Lat = 180;
    EXPECT_THROW(Encode_Waypoint(w, "D100", kWpt, false), Overflow_Error);
    w.Lat = 0, w.Smbl = 256;
    EXPECT_THROW(Encode_Waypoint(w, "D103", kWpt, false), Overflow_Error);
    w.Smbl = 0, w.Alt = 40000;
    EXPECT_THROW(Encode_Waypoint(w, "D150", kWpt, false), Overflow_Error);
    w.Alt = 0, w.Address = std::string(200, 'A');  // 48 + 206 bytes fit, 52 + 206 do not
    EXPECT_EQ(Encode_Waypoint(w, "D108", kWpt, false).size(), 254u + 6);
    EXPECT_THROW(Encode_Waypoint(w, "D109", kWpt, false), Overflow_Error);
}

TEST(WaypointCodec, EachWaypointJoinsTheLastRouteIfItHasACollection) {
    Collection<cRoute> routes;
    const auto w = std::make_shared<cWaypoint>();
    Join_Last_Route(routes, w);  // no route: nothing to join
    for (int k = 0; k < 2; ++k) routes.Add(std::make_shared<cRoute>(Decode_Route_Header(Frame(29, Hex("01")), "D200")));
    routes.Add(std::make_shared<cRoute>());  // a host's route, without a collection: skipped
    Join_Last_Route(routes, w);
    routes.Remove(3);
    Join_Last_Route(routes, w);
    EXPECT_EQ(routes.Item(1)->Waypoints->Count(), 0);
    EXPECT_EQ(routes.Item(2)->Waypoints->Count(), 1);
}
