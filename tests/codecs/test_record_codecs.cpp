// Routes, tracks, almanac, laps and flightbook: every format's records
// survive encode then decode, any prefix of their data decodes safely, and
// one packet per family is pinned byte for byte. (Every decoder against data
// of any size and content is the decoders fuzz target, its corpus replayed as
// replay_fuzz_decoders.)
#include <gtest/gtest.h>

#include <bit>

#include "codecs/wire_fixture.h"
#include "records/codecs/codecs.h"
#include "records/fields.h"

using namespace trekcom;
using namespace trekcom::records;
using namespace codec_test;
using namespace std::string_view_literals;

namespace {

constexpr std::uint16_t kId = 0x1234;  // ids are 16 bits wide, whatever the transport

template <typename R>
using Models = std::vector<std::pair<std::string, std::function<void(Carry&, R&, R&)>>>;

std::vector<Format<cRoute>> Route_Formats() {
    const Models<cRoute> models{
        {"D200", [](Carry& c, cRoute& in, cRoute& out) { c.Byte(in.Number, out.Number); }},
        {"D201",
         [](Carry& c, cRoute& in, cRoute& out) {
             c.Byte(in.Number, out.Number);
             std::string by_name;  // a route with no comment is shown by its name
             c.Text(in.Ident, by_name, 20);
             c.Text(in.Cmnt, out.Cmnt, 20);
             if (in.Cmnt.empty()) out.Cmnt = by_name;
         }},
        {"D202", [](Carry& c, cRoute& in, cRoute& out) { c.Terminated(in.Ident, out.Ident, true); }},
        {"D210",
         [](Carry& c, cRoute& in, cRoute& out) {
             // Direct (3) and snapped (255) links carry no subclass.
             in.Link_Class = out.Link_Class =
                 c.rng.Coin() ? c.rng.Pick<std::int16_t>({3, 255}) : c.rng.Value<std::int16_t>();
             if (in.Link_Class != 3 && in.Link_Class != 255) c.Text(in.Link_Sub_Class, out.Link_Sub_Class, 18);
             c.Terminated(in.Link_Ident, out.Link_Ident, true);
         }},
    };
    return Formats<cRoute>(
        models,
        [](const cRoute& r, const std::string& f) {
            return f == "D210" ? Encode_Route_Link(r, kId) : Encode_Route_Header(r, f, kId);
        },
        [](link::Data_View d, const std::string& f) {
            cRoute r;
            if (f == "D210") {
                Decode_Route_Link(d, r);
            } else {
                r = Decode_Route_Header(d, f);
                // Every header gets an empty collection of its own; it is no field.
                EXPECT_EQ(r.Waypoints->Count(), 0);
            }
            return r;
        });
}

// The current track a point copies its name, colour and display flag from.
cTrack Current() {
    cTrack t;
    t.Ident = "TRK1", t.Color = 5, t.Dspl = true;
    return t;
}

std::vector<Format<cTrack>> Track_Formats() {
    // A header's display flag is sent but never read back.
    const auto named = [](Carry& c, cTrack& in, cTrack& out) {
        in.Dspl = c.rng.Coin();
        c.Same(in.Color, out.Color);
        c.Terminated(in.Ident, out.Ident, true);
    };
    const auto point = [](const std::string& f) {
        return [f](Carry& c, cTrack& in, cTrack& out) {
            c.Position(in.Lat, out.Lat);
            c.Position(in.Lon, out.Lon);
            c.Time(in.Seconds, out.Seconds, out.Time);
            if (f == "D301") c.Same(in.Alt, out.Alt), c.Same(in.Dpth, out.Dpth);
            if (f == "D302") c.Same(in.Temp, out.Temp);  // with no altitude or depth
            c.Same(in.New_Segment, out.New_Segment);
        };
    };
    const Models<cTrack> models{
        {"D310", named},         {"D311", [](Carry& c, cTrack& in, cTrack& out) { c.Same(in.Index, out.Index); }},
        {"D312", named},         {"D300", point("D300")},
        {"D301", point("D301")}, {"D302", point("D302")},
    };
    return Formats<cTrack>(
        models,
        [](const cTrack& t, const std::string& f) {
            return f[2] == '1' ? Encode_Track_Header(t, f, kId) : Encode_Track_Point(t, f, kId);
        },
        [](link::Data_View d, const std::string& f) {
            return f[2] == '1' ? Decode_Track_Header(d, f) : Decode_Track_Point(d, f, Current());
        });
}

std::vector<Format<cAlmanac>> Almanac_Formats() {
    Models<cAlmanac> models;
    for (const std::string f : {"D500", "D501", "D550", "D551"}) {
        const bool svid = f[2] == '5', health = f[3] == '1';
        models.emplace_back(f, [=](Carry& c, cAlmanac& in, cAlmanac& out) {
            if (svid) {  // the id is read back only from a digit
                in.svid = c.rng.Coin() ? c.rng.Pick<std::uint8_t>({'0', '9', '/', ':'}) : c.rng.Value<std::uint8_t>();
                if (in.svid >= '0' && in.svid <= '9') out.svid = static_cast<std::uint8_t>(in.svid - '0');
            }
            c.Same(in.wn, out.wn);
            for (auto s : {&cAlmanac::toa, &cAlmanac::af0, &cAlmanac::af1, &cAlmanac::e, &cAlmanac::sqrta,
                           &cAlmanac::m0, &cAlmanac::w, &cAlmanac::omg0, &cAlmanac::odot, &cAlmanac::i})
                c.Same(in.*s, out.*s);
            // Behind the id, af0 is read one byte early: toa's last byte and af0's first three.
            if (svid)
                out.af0 = std::bit_cast<float>(std::bit_cast<std::uint32_t>(in.af0) << 8 |
                                               std::bit_cast<std::uint32_t>(in.toa) >> 24);
            if (health) c.Same(in.hlth, out.hlth);
        });
    }
    return Formats<cAlmanac>(
        models, [](const cAlmanac& a, const std::string& f) { return Encode_Almanac(a, f, kId); },
        [](link::Data_View d, const std::string& f) {
            cAlmanac a;
            Decode_Almanac(d, f, a);
            return a;
        });
}

std::vector<Format<cLap>> Lap_Format() {
    const Models<cLap> models{{"D906", [](Carry& c, cLap& in, cLap& out) {
                                   c.Time(in.Start_Time_Seconds, out.Start_Time_Seconds, out.Start_Time);
                                   c.Same(in.Total_Time, out.Total_Time);
                                   c.Same(in.Total_Distance, out.Total_Distance);
                                   for (auto p : {&cLap::Begin_Lat, &cLap::Begin_Lon, &cLap::End_Lat, &cLap::End_Lon})
                                       c.Position(in.*p, out.*p);
                                   c.Same(in.Calories, out.Calories);
                                   c.Same(in.Track_Index, out.Track_Index);
                               }}};
    return Formats<cLap>(
        models, [](const cLap& l, const std::string&) { return Encode_Lap(l, kId); },
        [](link::Data_View d, const std::string&) { return Decode_Lap(d); });
}

std::vector<Format<cFlightbook_Record>> Flight_Format() {
    using F = cFlightbook_Record;
    const Models<F> models{{"D650", [](Carry& c, F& in, F& out) {
                                c.Time(in.Takeoff_Seconds, out.Takeoff_Seconds, out.Takeoff_Time);
                                c.Time(in.Landing_Seconds, out.Landing_Seconds, out.Landing_Time);
                                for (auto p : {&F::Takeoff_Lat, &F::Takeoff_Lon, &F::Landing_Lat, &F::Landing_Lon})
                                    c.Position(in.*p, out.*p);
                                c.Same(in.Night_Time, out.Night_Time);
                                c.Same(in.Num_Landings, out.Num_Landings);
                                for (auto s : {&F::Max_Speed, &F::Max_Alt, &F::Distance}) c.Same(in.*s, out.*s);
                                c.Same(in.Cross_Country, out.Cross_Country);
                                for (auto t : {&F::Departure_Airport_Name, &F::Departure_Airport_Ident,
                                               &F::Arrival_Airport_Name, &F::Arrival_Airport_Ident, &F::Aircraft_ID})
                                    c.Terminated(in.*t, out.*t);
                            }}};
    return Formats<F>(
        models, [](const F& r, const std::string&) { return Encode_Flightbook(r, kId); },
        [](link::Data_View d, const std::string&) { return Decode_Flightbook(d); });
}

// Each property over every format of every record class.
template <typename Check>
void For_Every_Format(Check check) {
    for (const auto& f : Route_Formats()) check(f);
    for (const auto& f : Track_Formats()) check(f);
    for (const auto& f : Almanac_Formats()) check(f);
    for (const auto& f : Lap_Format()) check(f);
    for (const auto& f : Flight_Format()) check(f);
}

}  // namespace

TEST(RecordCodecs, EveryRecordComesBackInTheFieldsItsFormatCarries) {
    Rng rng;
    For_Every_Format([&](const auto& f) {
        // Every track point announces the D300 size.
        const bool wide_point = f.name == "D301" || f.name == "D302";
        Round_Trip(f, rng, kId, wide_point ? std::optional<std::uint8_t>(13) : std::nullopt);
    });
}

TEST(RecordCodecs, AnyPrefixOfTheDataGivesWholeOrAbsentFields) {
    Rng rng;
    For_Every_Format([&](const auto& f) { Prefixes(f, rng); });
}

TEST(RecordCodecs, UnknownFormatsSendNothingAndDecodeToInitialValues) {
    const Bytes data(40, 0x41);
    EXPECT_FALSE(Encode_Route_Header(cRoute{}, "D299", kId) || Encode_Track_Header(cTrack{}, "D399", kId) ||
                 Encode_Track_Point(cTrack{}, "D399", kId) || Encode_Almanac(cAlmanac{}, "D599", kId));
    EXPECT_EQ(Fields(Decode_Track_Header(data, "D399")), Fields(cTrack{}));
    EXPECT_EQ(Fields(Decode_Track_Point(data, "D399", Current())), Fields(Current()));
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
    EXPECT_EQ(Encode_Route_Header(route, "D201", kId)->data, Cat({Hex("07"), Txt("TO THE LAKE", 20)}));

    route.Link_Class = 0, route.Link_Sub_Class = "road", route.Link_Ident = "l1";
    EXPECT_EQ(Encode_Route_Link(route, kId)->data, Cat({Hex("00 00"), Txt("ROAD", 18), Txt("L1\0"sv)}));

    EXPECT_EQ(Encode_Track_Header(Current(), "D310", kId)->data, Txt("\x01\x05TRK1\0"sv));

    // D302 sends no altitude or depth; only a new-segment byte of 1 starts a segment.
    cTrack point;
    point.Lat = 45, point.Lon = -45, point.Seconds = 86400, point.Alt = 100, point.Temp = 25, point.New_Segment = true;
    Bytes d302 = Cat({pos, day, Hex("00 00 00 00  00 00 00 00  00 00 C8 41  01")});
    EXPECT_EQ(Encode_Track_Point(point, "D302", kId)->data, d302);
    d302.back() = 0xFF;
    EXPECT_FALSE(Decode_Track_Point(d302, "D302", Current()).New_Segment);

    // toa 1, af0 2, af1 0.5, e 10, sqrta 100, m0 -1, w 25, omg0 1, odot 2, i 0.5, hlth 1.
    const Bytes d551 =
        Hex("05 01 02  00 00 80 3F  00 00 00 40  00 00 00 3F  00 00 20 41  00 00 C8 42  00 00 80 BF "
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
