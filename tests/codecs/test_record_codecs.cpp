// Routes, tracks, almanac, laps and flightbook: every format's records
// survive encode then decode, any prefix of their data decodes safely, and
// one packet per family is pinned byte for byte. (Every decoder against data
// of any size and content is the decoders fuzz target, its corpus replayed as
// replay_fuzz_decoders.)
#include <gtest/gtest.h>

#include "codecs/wire_fixture.h"
#include "records/codecs/codecs.h"
#include "records/fields.h"

using namespace trekcom;
using namespace trekcom::records;
using namespace codec_test;
using namespace std::string_view_literals;

namespace {

constexpr std::uint16_t kId = 0x1234;  // ids are 16 bits wide, whatever the transport

// ---------------------------------------------------------------- drawing

void Draw_Route(Rng& r, cRoute& route) {
    route.Number = r.Int<std::int16_t>();
    route.Ident = r.Text(), route.Cmnt = r.Text(), route.Link_Sub_Class = r.Text(), route.Link_Ident = r.Text();
    // Direct (3) and snapped (255) links carry no subclass.
    route.Link_Class = r.Coin() ? r.Pick<std::int16_t>({3, 255}) : r.Int<std::int16_t>();
}
void Draw_Track(Rng& r, cTrack& t) {
    t.Ident = r.Text(), t.Datum = r.Text();
    t.Seconds = r.Int<std::int32_t>();
    t.Alt = r.Single(), t.Dpth = r.Single(), t.Temp = r.Single();
    t.Index = r.Int<std::int16_t>();
    t.New_Segment = r.Coin(), t.Dspl = r.Coin();
    t.Color = r.Int<std::uint8_t>();
}
void Draw_Almanac(Rng& r, cAlmanac& a) {
    // The D550 id is read back only from a digit.
    a.svid = r.Coin() ? r.Pick<std::uint8_t>({'0', '5', '9', '/', ':'}) : r.Int<std::uint8_t>();
    a.wn = r.Int<std::int16_t>();
    for (auto f : {&cAlmanac::toa, &cAlmanac::af0, &cAlmanac::af1, &cAlmanac::e, &cAlmanac::sqrta, &cAlmanac::m0,
                   &cAlmanac::w, &cAlmanac::omg0, &cAlmanac::odot, &cAlmanac::i, &cAlmanac::hlth})
        a.*f = r.Single();
}
void Draw_Lap(Rng& r, cLap& l) {
    l.Start_Time_Seconds = r.Int<std::int32_t>(), l.Total_Time = r.Int<std::int32_t>();
    l.Total_Distance = r.Single(), l.Calories = r.Int<std::int16_t>();
    l.Track_Index = r.Int<std::uint8_t>(), l.Unused = r.Int<std::uint8_t>();
}
void Draw_Flight(Rng& r, cFlightbook_Record& f) {
    f.Takeoff_Seconds = r.Int<std::int32_t>(), f.Landing_Seconds = r.Int<std::int32_t>();
    f.Night_Time = r.Int<std::int32_t>(), f.Num_Landings = r.Int<std::int32_t>();
    f.Max_Speed = r.Single(), f.Max_Alt = r.Single(), f.Distance = r.Single();
    f.Cross_Country = r.Coin();
    f.Departure_Airport_Name = r.Text(), f.Departure_Airport_Ident = r.Text(), f.Arrival_Airport_Name = r.Text();
    f.Arrival_Airport_Ident = r.Text(), f.Aircraft_ID = r.Text();
}

// ---------------------------------------------------------------- formats

std::vector<Format<cRoute>> Route_Formats() {
    const auto header = [](std::string f, std::function<void(Carry&, cRoute&, cRoute&)> carry,
                           std::string cRoute::*grown = nullptr) {
        return Format<cRoute>{f,
                              Draw_Route,
                              std::move(carry),
                              [=](const cRoute& r) { return Encode_Route_Header(r, f, kId); },
                              [=](link::Data_View d) {
                                  cRoute r = Decode_Route_Header(d, f);
                                  // Every header gets a collection of its own; it is no field.
                                  EXPECT_TRUE(r.Waypoints && r.Waypoints->Count() == 0);
                                  r.Waypoints.reset();
                                  return r;
                              },
                              std::nullopt,
                              grown};
    };
    return {
        header("D200", [](Carry& c, cRoute& in, cRoute& out) { c.Byte(in.Number, out.Number); }),
        header("D201",
               [](Carry& c, cRoute& in, cRoute& out) {
                   c.Byte(in.Number, out.Number);
                   // A route with no comment is shown by its name.
                   c.Text(in.Cmnt.empty() ? in.Ident : in.Cmnt, out.Cmnt, 20);
               }),
        header("D202", [](Carry& c, cRoute& in, cRoute& out) { c.Terminated_Trimmed(in.Ident, out.Ident); },
               &cRoute::Ident),
        {"D210", Draw_Route,
         [](Carry& c, cRoute& in, cRoute& out) {
             c.Same(in.Link_Class, out.Link_Class);
             if (in.Link_Class != 3 && in.Link_Class != 255) c.Text(in.Link_Sub_Class, out.Link_Sub_Class, 18);
             c.Terminated_Trimmed(in.Link_Ident, out.Link_Ident);
         },
         [](const cRoute& r) { return Encode_Route_Link(r, kId); },
         [](link::Data_View d) {
             cRoute r;
             Decode_Route_Link(d, r);
             return r;
         },
         std::nullopt, &cRoute::Link_Ident},
    };
}

// The current track a point copies its name, colour and display flag from.
cTrack Current() {
    cTrack t;
    t.Ident = "TRK1", t.Color = 5, t.Dspl = true;
    return t;
}

std::vector<Format<cTrack>> Track_Formats() {
    std::vector<Format<cTrack>> formats;
    for (const std::string f : {"D310", "D311", "D312"}) {
        const bool named = f != "D311";
        formats.push_back({f, Draw_Track,
                           [=](Carry& c, cTrack& in, cTrack& out) {
                               // The display flag is sent but never read back.
                               if (named) {
                                   c.Same(in.Color, out.Color);
                                   c.Terminated_Trimmed(in.Ident, out.Ident);
                               } else {
                                   c.Same(in.Index, out.Index);
                               }
                           },
                           [=](const cTrack& t) { return Encode_Track_Header(t, f, kId); },
                           [=](link::Data_View d) { return Decode_Track_Header(d, f); }, std::nullopt,
                           named ? &cTrack::Ident : nullptr});
    }
    for (const std::string f : {"D300", "D301", "D302"}) {
        formats.push_back({f, Draw_Track,
                           [=](Carry& c, cTrack& in, cTrack& out) {
                               c.Position(in.Lat, out.Lat);
                               c.Position(in.Lon, out.Lon);
                               c.Time(in.Seconds, in.Time, out.Seconds, out.Time);
                               // D302 sends no altitude or depth.
                               if (f == "D301") c.Same(in.Alt, out.Alt), c.Same(in.Dpth, out.Dpth);
                               if (f == "D302") c.Same(in.Temp, out.Temp);
                               c.Same(in.New_Segment, out.New_Segment);
                           },
                           [=](const cTrack& t) { return Encode_Track_Point(t, f, kId); },
                           [=](link::Data_View d) { return Decode_Track_Point(d, f, Current()); },
                           // Every point announces the D300 size.
                           f == "D300" ? std::nullopt : std::optional<std::uint8_t>(13)});
    }
    return formats;
}

std::vector<Format<cAlmanac>> Almanac_Formats() {
    std::vector<Format<cAlmanac>> formats;
    for (const std::string f : {"D500", "D501", "D550", "D551"}) {
        const bool svid = f[2] == '5', health = f[3] == '1';
        formats.push_back(
            {f, Draw_Almanac,
             [=](Carry& c, cAlmanac& in, cAlmanac& out) {
                 if (svid && in.svid >= '0' && in.svid <= '9') out.svid = static_cast<std::uint8_t>(in.svid - '0');
                 c.Same(in.wn, out.wn);
                 for (auto s : {&cAlmanac::toa, &cAlmanac::af0, &cAlmanac::af1, &cAlmanac::e, &cAlmanac::sqrta,
                                &cAlmanac::m0, &cAlmanac::w, &cAlmanac::omg0, &cAlmanac::odot, &cAlmanac::i})
                     c.Same(in.*s, out.*s);
                 // With the id in front, af0 is read one byte early: toa's
                 // last byte and af0's first three.
                 if (svid)
                     out.af0 = std::bit_cast<float>(std::bit_cast<std::uint32_t>(in.af0) << 8 |
                                                    std::bit_cast<std::uint32_t>(in.toa) >> 24);
                 if (health) c.Same(in.hlth, out.hlth);
             },
             [=](const cAlmanac& a) { return Encode_Almanac(a, f, kId); },
             [=](link::Data_View d) {
                 cAlmanac a;
                 Decode_Almanac(d, f, a);
                 return a;
             }});
    }
    return formats;
}

Format<cLap> Lap_Format() {
    return {"D906", Draw_Lap,
            [](Carry& c, cLap& in, cLap& out) {
                c.Time(in.Start_Time_Seconds, in.Start_Time, out.Start_Time_Seconds, out.Start_Time);
                c.Same(in.Total_Time, out.Total_Time);
                c.Same(in.Total_Distance, out.Total_Distance);
                for (auto p : {&cLap::Begin_Lat, &cLap::Begin_Lon, &cLap::End_Lat, &cLap::End_Lon})
                    c.Position(in.*p, out.*p);
                c.Same(in.Calories, out.Calories);
                c.Same(in.Track_Index, out.Track_Index);
                // The unused byte goes out as 0.
            },
            [](const cLap& l) { return Encode_Lap(l, kId); }, [](link::Data_View d) { return Decode_Lap(d); }};
}

Format<cFlightbook_Record> Flight_Format() {
    using F = cFlightbook_Record;
    return {"D650", Draw_Flight,
            [](Carry& c, F& in, F& out) {
                c.Time(in.Takeoff_Seconds, in.Takeoff_Time, out.Takeoff_Seconds, out.Takeoff_Time);
                c.Time(in.Landing_Seconds, in.Landing_Time, out.Landing_Seconds, out.Landing_Time);
                for (auto p : {&F::Takeoff_Lat, &F::Takeoff_Lon, &F::Landing_Lat, &F::Landing_Lon})
                    c.Position(in.*p, out.*p);
                c.Same(in.Night_Time, out.Night_Time);
                c.Same(in.Num_Landings, out.Num_Landings);
                for (auto s : {&F::Max_Speed, &F::Max_Alt, &F::Distance}) c.Same(in.*s, out.*s);
                c.Same(in.Cross_Country, out.Cross_Country);
                for (auto t : {&F::Departure_Airport_Name, &F::Departure_Airport_Ident, &F::Arrival_Airport_Name,
                               &F::Arrival_Airport_Ident, &F::Aircraft_ID})
                    c.Terminated(in.*t, out.*t);
            },
            [](const F& f) { return Encode_Flightbook(f, kId); },
            [](link::Data_View d) { return Decode_Flightbook(d); },
            std::nullopt,
            &F::Aircraft_ID};
}

// Each property over every format of every record class.
template <typename Check>
void For_Every_Format(Check check) {
    for (const auto& f : Route_Formats()) check(f);
    for (const auto& f : Track_Formats()) check(f);
    for (const auto& f : Almanac_Formats()) check(f);
    check(Lap_Format());
    check(Flight_Format());
}

}  // namespace

TEST(RecordCodecs, EveryRecordComesBackInTheFieldsItsFormatCarries) {
    Rng rng;
    For_Every_Format([&](const auto& f) { Round_Trip(f, rng, kId); });
}

TEST(RecordCodecs, AnyPrefixOfTheDataGivesWholeOrAbsentFields) {
    Rng rng;
    For_Every_Format([&](const auto& f) { Prefixes(f, rng); });
}

TEST(RecordCodecs, TextsFillAPacketTo255BytesAndNoFurther) {
    Rng rng;
    For_Every_Format([&](const auto& f) {
        if (f.grown_text) Largest(f, rng);
    });
}

TEST(RecordCodecs, UnknownFormatsSendNothingAndDecodeToInitialValues) {
    const Bytes data(40, 0x41);
    EXPECT_FALSE(Encode_Route_Header(cRoute{}, "D299", kId));
    EXPECT_FALSE(Encode_Track_Header(cTrack{}, "D399", kId));
    EXPECT_FALSE(Encode_Track_Point(cTrack{}, "D399", kId));
    EXPECT_FALSE(Encode_Almanac(cAlmanac{}, "D599", kId));
    EXPECT_EQ(Show(Decode_Track_Header(data, "D399")), Show(cTrack{}));
    EXPECT_EQ(Show(Decode_Track_Point(data, "D399", Current())), Show(Current()));
    cAlmanac almanac;
    almanac.wn = 7;
    Decode_Almanac(data, "D599", almanac);
    EXPECT_EQ(almanac.wn, 7);
}

// ---------------------------------------------------------------- pinned layouts

TEST(RecordCodecs, OnePacketPerFamilyIsPinnedByteForByte) {
    const Bytes pos = Hex("00 00 00 20  00 00 00 E0");  // 45, -45 degrees
    const Bytes day = Hex("80 51 01 00");               // 86400 s: 1990/01/01-00:00:00

    cRoute route;
    route.Number = 7, route.Cmnt = "to the lake";
    const Bytes d201 = Cat({Hex("07"), Txt("TO THE LAKE", 20)});
    EXPECT_EQ(Encode_Route_Header(route, "D201", kId)->data, d201);
    EXPECT_EQ(Decode_Route_Header(d201, "D201").Cmnt, "TO THE LAKE");

    route.Link_Class = 0, route.Link_Sub_Class = "road", route.Link_Ident = "l1";
    const Bytes d210 = Cat({Hex("00 00"), Txt("ROAD", 18), Txt("L1\0"sv)});
    EXPECT_EQ(Encode_Route_Link(route, kId)->data, d210);
    cRoute link;
    Decode_Route_Link(d210, link);
    EXPECT_EQ(Show(link), " Number=0 Ident=[] Cmnt=[] Link_Class=0 Link_Sub_Class=[ROAD] Link_Ident=[L1]");

    cTrack header = Current();
    const Bytes d310 = Txt("\x01\x05TRK1\0"sv);
    EXPECT_EQ(Encode_Track_Header(header, "D310", kId)->data, d310);
    EXPECT_EQ(Decode_Track_Header(d310, "D310").Ident, "TRK1");

    // D302 sends no altitude or depth; only a new-segment byte of 1 starts a segment.
    cTrack point;
    point.Lat = 45, point.Lon = -45, point.Seconds = 86400, point.Alt = 100, point.Temp = 25, point.New_Segment = true;
    Bytes d302 = Cat({pos, day, Hex("00 00 00 00  00 00 00 00  00 00 C8 41  01")});
    EXPECT_EQ(Encode_Track_Point(point, "D302", kId)->data, d302);
    d302.back() = 0xFF;
    EXPECT_FALSE(Decode_Track_Point(d302, "D302", Current()).New_Segment);

    // toa 1, af0 2, af1 0.5, e 10, sqrta 100, m0 -1, w 25, omg0 1, odot 2, i 0.5, hlth 1.
    const Bytes d551 = Hex(
        "05 01 02  00 00 80 3F  00 00 00 40  00 00 00 3F  00 00 20 41  00 00 C8 42  00 00 80 BF "
        "00 00 C8 41  00 00 80 3F  00 00 00 40  00 00 00 3F  00 00 80 3F");
    cAlmanac almanac;
    almanac.svid = 5, almanac.wn = 513, almanac.toa = 1, almanac.af0 = 2, almanac.af1 = 0.5f, almanac.e = 10;
    almanac.sqrta = 100, almanac.m0 = -1, almanac.w = 25, almanac.omg0 = 1, almanac.odot = 2, almanac.i = 0.5f;
    almanac.hlth = 1;
    EXPECT_EQ(Encode_Almanac(almanac, "D551", kId)->data, d551);
    // The one-byte health receivers send is too short for a Single.
    cAlmanac received;
    Decode_Almanac(Bytes(d551.begin(), d551.end() - 3), "D551", received);
    EXPECT_EQ(received.hlth, 0);
    EXPECT_EQ(received.wn, 513);

    cLap lap;
    lap.Start_Time_Seconds = 86400, lap.Total_Time = 3600, lap.Total_Distance = 1000, lap.Begin_Lon = 90;
    lap.End_Lat = 45, lap.End_Lon = -45, lap.Calories = 300, lap.Track_Index = 2, lap.Unused = 7;
    EXPECT_EQ(Encode_Lap(lap, kId)->data,
              Cat({day, Hex("10 0E 00 00  00 00 7A 44  00 00 00 00  00 00 00 40"), pos, Hex("2C 01 02 00")}));

    cFlightbook_Record flight;
    flight.Takeoff_Seconds = 86400, flight.Landing_Seconds = 90000, flight.Takeoff_Lat = 45, flight.Takeoff_Lon = -45;
    flight.Landing_Lon = 90, flight.Night_Time = 600, flight.Num_Landings = 2, flight.Max_Speed = 100;
    flight.Max_Alt = 1000, flight.Distance = 0.5f, flight.Cross_Country = true, flight.Departure_Airport_Name = "lax";
    flight.Departure_Airport_Ident = "KLAX", flight.Arrival_Airport_Name = "SFO", flight.Arrival_Airport_Ident = "KSFO";
    flight.Aircraft_ID = "N123";
    const Bytes fixed = Cat({day, Hex("90 5F 01 00"), pos, Hex("00 00 00 00  00 00 00 40  58 02 00 00  02 00 00 00"),
                             Hex("00 00 C8 42  00 00 7A 44  00 00 00 3F  01")});
    EXPECT_EQ(Encode_Flightbook(flight, kId)->data, Cat({fixed, Txt("LAX\0KLAX\0SFO\0KSFO\0N123\0"sv)}));
    // A text with no NUL after it is left empty, and so are the texts after it.
    const auto texts = Decode_Flightbook(Cat({fixed, Txt("LAX\0KLAX\0SFO"sv)}));
    EXPECT_EQ(texts.Departure_Airport_Ident, "KLAX");
    EXPECT_EQ(texts.Arrival_Airport_Name, "");
}
