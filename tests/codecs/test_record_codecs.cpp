// Routes, tracks, almanac, laps and flightbook against hand-written wire
// bytes. (Every decoder against packets of any size and content is the
// decoders fuzz target, its corpus replayed as replay_fuzz_decoders.)
#include <gtest/gtest.h>

#include <bit>
#include <functional>

#include "codecs/wire_fixture.h"
#include "records/codecs/codecs.h"
#include "records/fields.h"

using namespace trekcom;
using namespace trekcom::records;
using namespace codec_test;
using namespace std::string_view_literals;

namespace {

const Bytes kPos = Hex("00 00 00 20  00 00 00 E0");  // 45, -45 degrees
const Bytes kDay = Hex("80 51 01 00");               // 86400 s: 1990/01/01-00:00:00
const Bytes kNoSub = Hex("00 00 00 00 00 00 FF FF FF FF FF FF FF FF FF FF FF FF");
// The flightbook's fixed part: times 86400 and 90000, takeoff (45, -45),
// landing (0, 90), night 600 s, 2 landings, 100, 1000, 0.5, cross-country.
const Bytes kFlightFixed =
    Cat({kDay, Hex("90 5F 01 00"), kPos, Hex("00 00 00 00  00 00 00 40  58 02 00 00  02 00 00 00"),
         Hex("00 00 C8 42  00 00 7A 44  00 00 00 3F  01")});

// One fixture: the packet, what it decodes to, and (when the layout is
// lossless for it) the encoding that must give the packet back.
struct Case {
    std::string name;
    Bytes packet;
    std::string decoded;
    std::function<Bytes()> encode;
};

template <typename R>
R Make(const std::function<void(R&)>& fill) {
    R r;
    fill(r);
    return r;
}

std::vector<Case> Cases() {
    std::vector<Case> cases;
    auto add = [&](std::string name, Bytes packet, std::string decoded, std::function<Bytes()> encode) {
        cases.push_back({std::move(name), std::move(packet), std::move(decoded), std::move(encode)});
    };

    // Route headers; a D201 route with no comment is sent under its name.
    const auto rte = [](std::int16_t n, const char* ident, const char* cmnt) {
        return Make<cRoute>([=](auto& r) { r.Number = n, r.Ident = ident, r.Cmnt = cmnt; });
    };
    add("D200", Frame(29, Hex("07")), Show(rte(7, "", "")),
        [=] { return Encode_Route_Header(rte(7, "", ""), "D200", 29); });
    const Bytes d201 = Frame(29, Cat({Hex("07"), Txt("TO THE LAKE", 20)}));
    add("D201", d201, Show(rte(7, "", "TO THE LAKE")),
        [=] { return Encode_Route_Header(rte(7, "", "to the lake"), "D201", 29); });
    add("D201 by name", d201, Show(rte(7, "", "TO THE LAKE")),
        [=] { return Encode_Route_Header(rte(7, "to the lake", ""), "D201", 29); });
    add("D202", Frame(29, Txt("R1\0"sv)), Show(rte(0, "R1", "")),
        [=] { return Encode_Route_Header(rte(0, "r1", ""), "D202", 29); });

    // Route links: classes 3 and 255 carry no subclass, whatever the bytes say.
    const auto lnk = [](std::int16_t c, const char* sub) {
        return Make<cRoute>([=](auto& r) { r.Link_Class = c, r.Link_Sub_Class = sub, r.Link_Ident = "L1"; });
    };
    const auto link = [&](const char* class_bytes, std::int16_t c, const Bytes& sub, const char* sent) {
        add(std::string("D210 ") + class_bytes + (sent ? "" : ", subclass bytes ignored"),
            Frame(98, Cat({Hex(class_bytes), sub, Txt("L1\0"sv)})), Show(lnk(c, c == 0 ? "ROAD" : "")),
            sent ? std::function([=] { return Encode_Route_Link(lnk(c, sent), 98); }) : nullptr);
    };
    link("00 00", 0, Txt("ROAD", 18), "road");
    link("03 00", 3, kNoSub, "ROAD");
    link("FF 00", 255, kNoSub, "ROAD");
    link("03 00", 3, Txt("ROAD", 18), nullptr);

    // Track headers: the display byte (1 here) is never read back.
    const auto trk = [](bool shown) {
        return Make<cTrack>([=](auto& t) { t.Color = 5, t.Ident = "TRK1", t.Dspl = shown; });
    };
    for (const char* f : {"D310", "D312"})
        add(f, Frame(99, Txt("\x01\x05TRK1\0"sv)), Show(trk(false)),
            [=] { return Encode_Track_Header(trk(true), f, 99); });
    const auto index = Make<cTrack>([](auto& t) { t.Index = 300; });
    add("D311", Frame(99, Hex("2C 01")), Show(index), [=] { return Encode_Track_Header(index, "D311", 99); });

    // Track points, decoded after the header TRK1 (colour 5, shown), whose
    // name, colour and display flag they carry. D301 and D302 go out saying
    // 13 data bytes, the D300 size; the decoder reads them whole anyway. D302
    // sends no altitude or depth, so they arrive as 0.
    const auto point = [](float alt, float dpth, float temp, bool new_segment = true) {
        return Make<cTrack>([=](auto& t) {
            t.Lat = 45, t.Lon = -45, t.Time = "1990/01/01-00:00:00", t.Seconds = 86400, t.New_Segment = new_segment;
            t.Alt = alt, t.Dpth = dpth, t.Temp = temp, t.Ident = "TRK1", t.Color = 5, t.Dspl = true;
        });
    };
    // Only a new-segment byte of exactly 1 starts a segment.
    add("D300 FF", Frame(34, Cat({kPos, kDay, Hex("FF")})), Show(point(0, 0, 0, false)), nullptr);
    add("D300", Frame(34, Cat({kPos, kDay, Hex("01")})), Show(point(0, 0, 0)),
        [=] { return Encode_Track_Point(point(0, 0, 0), "D300", 34); });
    add("D301", Frame(34, Cat({kPos, kDay, Hex("00 00 C8 42  00 00 00 40  01")}), 13), Show(point(100, 2, 0)),
        [=] { return Encode_Track_Point(point(100, 2, 0), "D301", 34); });
    add("D302", Frame(34, Cat({kPos, kDay, Hex("00 00 00 00  00 00 00 00  00 00 C8 41  01")}), 13),
        Show(point(0, 0, 25)), [=] { return Encode_Track_Point(point(100, 2, 25), "D302", 34); });

    // Almanac: toa 1, af0 2, af1 0.5, e 10, sqrta 100, m0 -1, w 25, omg0 1, odot 2, i 0.5, hlth 1.
    const Bytes singles =
        Hex("00 00 80 3F  00 00 00 40  00 00 00 3F  00 00 20 41  00 00 C8 42  00 00 80 BF "
            "00 00 C8 41  00 00 80 3F  00 00 00 40  00 00 00 3F");
    const auto alm = [](std::uint8_t svid, float af0, float hlth) {
        return Make<cAlmanac>([=](auto& a) {
            a.svid = svid, a.wn = 513, a.toa = 1, a.af0 = af0, a.af1 = 0.5f, a.e = 10, a.sqrta = 100, a.m0 = -1;
            a.w = 25, a.omg0 = 1, a.odot = 2, a.i = 0.5f, a.hlth = hlth;
        });
    };
    const auto almanac = [&](const char* f, const Bytes& data, const cAlmanac& decoded) {
        add(f, Frame(31, data), Show(decoded), [=] { return Encode_Almanac(alm(5, 2, 1), f, 31); });
    };
    almanac("D500", Cat({Hex("01 02"), singles}), alm(0, 2, 0));
    almanac("D501", Cat({Hex("01 02"), singles, Hex("00 00 80 3F")}), alm(0, 2, 1));
    // D550/D551 send svid as a byte (5), which only a digit would set; af0 is
    // read from offset 6: toa's last byte (0x3F) and three bytes of af0.
    const float af0_read = std::bit_cast<float>(0x3Fu);
    almanac("D550", Cat({Hex("05 01 02"), singles}), alm(0, af0_read, 0));
    almanac("D551", Cat({Hex("05 01 02"), singles, Hex("00 00 80 3F")}), alm(0, af0_read, 1));
    add("D550 digit", Frame(31, Cat({Txt("5"), Hex("01 02"), singles})), Show(alm(5, af0_read, 0)), nullptr);
    // The one-byte health receivers send ends too near the packet's end for a Single.
    add("D501 byte health", Frame(31, Cat({Hex("01 02"), singles, Hex("01")})), Show(alm(0, 2, 0)), nullptr);

    // Lap: begin (0, 90), end (45, -45). The unused byte is read, and sent as 0 whatever it holds.
    const auto lap = [](std::uint8_t unused) {
        return Make<cLap>([=](auto& l) {
            l.Start_Time = "1990/01/01-00:00:00", l.Start_Time_Seconds = 86400, l.Total_Time = 3600;
            l.Total_Distance = 1000, l.Begin_Lon = 90, l.End_Lat = 45, l.End_Lon = -45, l.Calories = 300;
            l.Track_Index = 2, l.Unused = unused;
        });
    };
    const Bytes lap_fixed =
        Cat({kDay, Hex("10 0E 00 00  00 00 7A 44  00 00 00 00  00 00 00 40"), kPos, Hex("2C 01 02")});
    add("D906", Frame(149, Cat({lap_fixed, Hex("00")})), Show(lap(0)), [=] { return Encode_Lap(lap(7), 149); });
    add("D906 unused", Frame(149, Cat({lap_fixed, Hex("07")})), Show(lap(7)), nullptr);

    // Flightbook: takeoff 86400 s, landing 90000 s.
    const auto flight = Make<cFlightbook_Record>([](auto& f) {
        f.Takeoff_Time = "1990/01/01-00:00:00", f.Takeoff_Seconds = 86400, f.Landing_Time = "1990/01/01-01:00:00";
        f.Landing_Seconds = 90000, f.Takeoff_Lat = 45, f.Takeoff_Lon = -45, f.Landing_Lon = 90, f.Night_Time = 600;
        f.Num_Landings = 2, f.Max_Speed = 100, f.Max_Alt = 1000, f.Distance = 0.5f, f.Cross_Country = true;
        f.Departure_Airport_Name = "LAX", f.Departure_Airport_Ident = "KLAX", f.Arrival_Airport_Name = "SFO";
        f.Arrival_Airport_Ident = "KSFO", f.Aircraft_ID = "N123";
    });
    add("D650", Frame(134, Cat({kFlightFixed, Txt("LAX\0KLAX\0SFO\0KSFO\0N123\0"sv)})), Show(flight),
        [=] { return Encode_Flightbook(flight, 134); });
    // A text with no NUL after it is left empty, and so are the texts after it.
    const auto departure = [&](const char* ident) {
        return Make<cFlightbook_Record>([=](auto& f) {
            f = flight, f.Departure_Airport_Ident = ident, f.Arrival_Airport_Name = f.Arrival_Airport_Ident = "";
            f.Aircraft_ID = "";
        });
    };
    add("D650 two texts", Frame(134, Cat({kFlightFixed, Txt("LAX\0KLAX\0"sv)})), Show(departure("KLAX")), nullptr);
    add("D650 unended", Frame(134, Cat({kFlightFixed, Txt("LAX\0KLAX"sv)})), Show(departure("")), nullptr);
    return cases;
}

std::string Decode_As(const Case& c) {
    const std::string f = c.name.substr(0, 4);
    if (f == "D200" || f == "D201" || f == "D202") return Show(Decode_Route_Header(c.packet, f));
    if (f == "D210") {
        cRoute r;
        Decode_Route_Link(c.packet, r);
        return Show(r);
    }
    if (f == "D310" || f == "D311" || f == "D312") return Show(Decode_Track_Header(c.packet, f));
    if (f[1] == '3')
        return Show(Decode_Track_Point(c.packet, f,
                                       Make<cTrack>([](auto& t) { t.Ident = "TRK1", t.Color = 5, t.Dspl = true; })));
    if (f[1] == '5') {
        cAlmanac a;
        Decode_Almanac(c.packet, f, a);
        return Show(a);
    }
    if (f == "D906") return Show(Decode_Lap(c.packet));
    return Show(Decode_Flightbook(c.packet));
}

}  // namespace

TEST(RecordCodecs, EveryFormatDecodesItsBytesAndEncodesItsRecordBack) {
    for (const auto& c : Cases()) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Decode_As(c), c.decoded);
        if (c.encode) {
            EXPECT_EQ(c.encode(), c.packet);
        }
    }
}
