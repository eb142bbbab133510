// What the simulated unit says: identification per profile, record layouts
// pinned byte for byte, download and upload sequences, real-time data, the
// NMEA and text modes and the data files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "formats.h"
#include "nmea.h"
#include "sim_host.h"

using namespace trekcom::sim;
using sim_test::Frame;
using sim_test::Host;
using sim_test::U16;
using trekcom::Bytes;

namespace {

struct Bench {
    explicit Bench(const std::string& profile = "current", Data_Set data = Builtin_Data(), Options options = {})
        : unit(std::make_shared<Virtual_Unit>(Profile::Named(profile), std::move(data), options)) {
        platform.Attach("gps", unit);
    }
    Unit& Sim() { return unit->Sim(); }
    trekcom::VirtualPlatform platform;
    std::shared_ptr<Virtual_Unit> unit;
};

std::vector<Frame> Product_Request(Host& host) {
    std::vector<Frame> out;
    host.Send(254);
    while (auto f = host.Next_Data(3000)) {
        host.Ack(f->id);
        out.push_back(*f);
    }
    return out;
}

std::string Caps(const Bytes& d) {
    std::string s;
    for (std::size_t i = 0; i + 2 < d.size(); i += 3) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "%c%03u ", d[i], U16(d, i + 1));
        s += buf;
    }
    return s;
}

Bytes Le32(std::int32_t v) {
    Bytes b(4);
    for (int i = 0; i < 4; ++i) b[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(v) >> (8 * i));
    return b;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

Bytes Text(const std::string& s, std::size_t pad = 0) {
    Bytes b(s.begin(), s.end());
    if (pad) b.resize(pad, ' ');
    return b;
}

}  // namespace

TEST(SimIdentity, EachProfileIdentifiesAsItsGeneration) {
    {
        Bench b("current");
        Host host(b.platform);
        auto got = Product_Request(host);
        ASSERT_EQ(got.size(), 3u);
        EXPECT_EQ(got[0].id, 255);
        EXPECT_EQ(U16(got[0].data, 0), 1000);
        EXPECT_EQ(U16(got[0].data, 2), 380);
        EXPECT_EQ(got[0].data.back(), 0);  // descriptions are NUL-terminated
        EXPECT_EQ(got[1].id, 248);
        EXPECT_EQ(got[2].id, 253);
        EXPECT_EQ(Caps(got[2].data),
                  "P000 L001 A010 A100 D108 A201 D202 D108 D210 A301 D310 D301 A400 D400 A500 D501 "
                  "A600 D600 A700 D700 A800 D800 A906 D906 ");
    }
    for (const char* name : {"legacy25", "legacy29-399", "legacy29-400", "l002"}) {
        Bench b(name);
        Host host(b.platform);
        auto got = Product_Request(host);
        ASSERT_EQ(got.size(), 1u) << name;  // known by product id and version alone
        EXPECT_EQ(U16(got[0].data, 0), b.Sim().Unit_Profile().product_id);
        EXPECT_EQ(static_cast<std::int16_t>(U16(got[0].data, 2)), b.Sim().Unit_Profile().software_version);
    }
    EXPECT_EQ(Profile::Named("legacy29-399").software_version, 399);
    EXPECT_EQ(Profile::Named("legacy29-400").waypoint_type, 102);
    EXPECT_THROW(Profile::Named("nope"), std::invalid_argument);
}

// Layouts pinned against hand-built bytes, so that the unit's own codecs
// cannot drift with the host's.
TEST(SimLayouts, WaypointAndTrackRecordsByteForByte) {
    Waypoint w;
    w.ident = "HOME";
    w.lat = 0x11223344;
    w.lon = -2;
    w.comment = "CABIN";
    w.alt = 1.0f;
    w.symbol = 0x0102;
    w.wpt_class = 0;
    w.color = 5;
    w.display = 1;
    w.facility = "F";

    const Bytes d100 = Concat({Text("HOME", 6), Le32(0x11223344), Le32(-2), Le32(0), Text("CABIN", 40)});
    EXPECT_EQ(formats::Encode_Waypoint(w, 100), d100);
    EXPECT_EQ(formats::Encode_Waypoint(w, 400).size(), 62u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 101).size(), 63u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 102).size(), 64u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 103).size(), 60u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 403).size(), 64u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 104).size(), 65u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 107).size(), 65u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 151).size(), 124u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 154).size(), 126u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 155).size(), 127u);

    const float one = 1.0f;
    Bytes alt(4);
    std::memcpy(alt.data(), &one, 4);
    const Bytes nothing = {0x51, 0x59, 0x04, 0x69};  // 1.0e25
    const Bytes d108 = Concat({{0, 5, 1, 0x60, 0x02, 0x01}, {0, 0, 0, 0, 0, 0}, Bytes(12, 0xFF), Le32(0x11223344),
                               Le32(-2), alt, nothing, nothing, Text("  ", 2), Text("  ", 2),
                               {'H', 'O', 'M', 'E', 0, 'C', 'A', 'B', 'I', 'N', 0, 'F', 0, 0, 0, 0}});
    EXPECT_EQ(formats::Encode_Waypoint(w, 108), d108);
    // D109 packs colour and display into one byte; D110 adds temperature, time and category.
    const Bytes d109 = formats::Encode_Waypoint(w, 109);
    EXPECT_EQ(d109[0], 1);
    EXPECT_EQ(d109[2], 5 | (1 << 5));
    EXPECT_EQ(d109.size(), 52u + 16u);
    EXPECT_EQ(formats::Encode_Waypoint(w, 110).size(), 62u + 16u);

    const Bytes d150 = formats::Encode_Waypoint(w, 150);
    ASSERT_EQ(d150.size(), 115u);
    EXPECT_EQ(Bytes(d150.begin() + 9, d150.begin() + 13), Le32(0x11223344));
    EXPECT_EQ(d150[17], 1);  // altitude as a 16-bit integer
    const Bytes d450 = formats::Encode_Waypoint(w, 450);
    ASSERT_EQ(d450.size(), 121u);
    EXPECT_EQ(Bytes(d450.begin() + 117, d450.end()), nothing);  // the distance after the whole D150

    Track_Point p;
    p.lat = 1;
    p.lon = 2;
    p.time = 3;
    p.new_segment = true;
    EXPECT_EQ(formats::Encode_Track_Point(p, 300), Concat({Le32(1), Le32(2), Le32(3), {1}}));
    EXPECT_EQ(formats::Encode_Track_Point(p, 301).size(), 21u);
    EXPECT_EQ(formats::Encode_Track_Point(p, 302).size(), 25u);
    EXPECT_EQ(formats::Encode_Track_Point(p, 302).back(), 1);
    Track t;
    t.ident = "T";
    t.color = 3;
    EXPECT_EQ(formats::Encode_Track_Header(t, 310), (Bytes{1, 3, 'T', 0}));

    EXPECT_EQ(formats::Encode_Almanac({}, 500).size(), 42u);
    EXPECT_EQ(formats::Encode_Almanac({}, 501).size(), 43u);
    EXPECT_EQ(formats::Encode_Almanac({}, 550).size(), 43u);
    EXPECT_EQ(formats::Encode_Almanac({}, 551).size(), 44u);
    EXPECT_EQ(formats::Encode_Lap({}).size(), 32u);
    EXPECT_EQ(formats::Encode_Pvt({}).size(), 64u);

    // Every layout reads back what it wrote, and refuses a record cut short.
    for (std::uint16_t type : {100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 150, 151, 152, 154, 155, 400, 403, 450}) {
        const Bytes bytes = formats::Encode_Waypoint(w, type);
        Waypoint back;
        EXPECT_TRUE(formats::Decode_Waypoint(bytes, type, back)) << type;
        EXPECT_EQ(back.lat, w.lat) << type;
        EXPECT_EQ(formats::Encode_Waypoint(back, type), bytes) << type;
        Waypoint untouched;
        EXPECT_FALSE(formats::Decode_Waypoint(Bytes(bytes.begin(), bytes.end() - 1), type, untouched)) << type;
        EXPECT_EQ(untouched, Waypoint{}) << type;
    }
}

TEST(SimDownloads, RoutesTracksAndTheirCounts) {
    Bench b("current");
    Host host(b.platform);
    auto routes = host.Download(4);
    ASSERT_GE(routes.size(), 3u);
    EXPECT_EQ(routes[0].id, 27);
    EXPECT_EQ(U16(routes[0].data), routes.size() - 2);
    EXPECT_EQ(routes.back().data, (Bytes{4, 0}));
    // Header, then points with links between them (never after the last).
    std::string shape;
    for (std::size_t i = 1; i + 1 < routes.size(); ++i)
        shape += routes[i].id == 29 ? 'H' : routes[i].id == 30 ? 'w' : routes[i].id == 98 ? 'l' : '?';
    EXPECT_EQ(shape, "HwlwlwlwlwHwlwlw");

    auto tracks = host.Download(6);
    ASSERT_GE(tracks.size(), 3u);
    EXPECT_EQ(U16(tracks[0].data), tracks.size() - 2);
    EXPECT_EQ(tracks[1].id, 99);
    EXPECT_EQ(tracks[2].id, 34);
    EXPECT_EQ(tracks[2].data.back(), 1);  // a track starts a segment
    EXPECT_EQ(tracks[3].data.back(), 0);
    EXPECT_EQ(tracks.back().data, (Bytes{6, 0}));

    for (auto [cmd, id, n] : {std::tuple{3, 19, 2}, {1, 31, 31}, {117, 149, 3}}) {
        auto got = host.Download(static_cast<std::uint16_t>(cmd));
        ASSERT_EQ(got.size(), static_cast<std::size_t>(n + 2)) << cmd;
        EXPECT_EQ(got[1].id, id);
    }
    // Flightbook only where the unit has one.
    EXPECT_FALSE(host.Send_Acked(10, {92, 0}) && host.Next_Data(2000).has_value());
}

TEST(SimDownloads, LegacyAndL002UnitsUseTheirOwnIdsAndLayouts) {
    {
        Bench b("legacy25");
        Host host(b.platform);
        auto tracks = host.Download(6);
        ASSERT_GE(tracks.size(), 3u);
        EXPECT_EQ(tracks[1].id, 34);  // no headers with A300
        EXPECT_EQ(tracks[1].data.size(), 13u);
        auto routes = host.Download(4);
        EXPECT_EQ(routes[1].id, 29);
        EXPECT_EQ(routes[1].data.size(), 1u);  // D200
        EXPECT_EQ(routes[2].data.size(), 58u);  // D100
    }
    {
        Bench b("l002");
        Host host(b.platform);
        auto wpts = host.Download(21, 11);
        ASSERT_GE(wpts.size(), 3u);
        EXPECT_EQ(wpts[0].id, 35);
        EXPECT_EQ(wpts[1].id, 43);
        EXPECT_EQ(wpts[1].data.size(), 115u);
        EXPECT_EQ(wpts.back().data, (Bytes{21, 0}));
        auto routes = host.Download(8, 11);
        EXPECT_EQ(routes[1].id, 37);
        EXPECT_EQ(routes[1].data.size(), 21u);  // D201
        EXPECT_EQ(routes[2].id, 39);
        auto prox = host.Download(17, 11);
        EXPECT_EQ(prox[1].id, 27);
        EXPECT_EQ(prox[1].data.size(), 121u);
        auto alm = host.Download(4, 11);
        EXPECT_EQ(alm[1].id, 4);
        EXPECT_EQ(alm[1].data.size(), 43u);
        // An L001 command means nothing to it.
        host.Command(7, 10);
        host.Next();  // the ACK
        EXPECT_FALSE(host.Next(2000).has_value());
    }
}

TEST(SimDownloads, CountingAbortsRightAfterTheRecordsPacket) {
    Bench b("current");
    Host host(b.platform);
    for (Bytes abort : {Bytes{7, 0}, Bytes{}}) {
        host.Command(7);
        host.Next();  // ACK
        auto records = host.Next();
        ASSERT_TRUE(records);
        EXPECT_EQ(records->id, 27);
        EXPECT_EQ(U16(records->data), 12);
        // Not acknowledged: the host ends the transfer instead.
        if (abort.empty())
            host.Command(0);
        else
            host.Send(12, abort);
        auto ack = host.Next();
        ASSERT_TRUE(ack);
        EXPECT_EQ(ack->id, 6);
        EXPECT_FALSE(host.Next(5000).has_value());
    }
    EXPECT_EQ(b.Sim().Stats().transfers_aborted, 2);
}

TEST(SimUploads, EveryKindIsStoredAndReadBack) {
    Bench b("current", Data_Set{});
    Host host(b.platform);
    const Data_Set src = Builtin_Data();
    auto upload = [&](const std::vector<std::pair<std::uint8_t, Bytes>>& records, std::uint16_t cmd) {
        ASSERT_TRUE(host.Send_Acked(27, {static_cast<std::uint8_t>(records.size()), 0}));
        for (const auto& [id, data] : records) ASSERT_TRUE(host.Send_Acked(id, data));
        ASSERT_TRUE(host.Send_Acked(12, {static_cast<std::uint8_t>(cmd), 0}));
    };
    std::vector<std::pair<std::uint8_t, Bytes>> recs;
    for (const auto& w : src.waypoints) recs.emplace_back(35, formats::Encode_Waypoint(w, 108));
    upload(recs, 7);
    recs.clear();
    const Route& r = src.routes[0];
    recs.emplace_back(29, formats::Encode_Route_Header(r, 202));
    for (std::size_t i = 0; i < r.points.size(); ++i) {
        recs.emplace_back(30, formats::Encode_Waypoint(r.points[i], 108));
        if (i + 1 < r.points.size()) recs.emplace_back(98, formats::Encode_Route_Link(Route_Link{}));
    }
    upload(recs, 4);
    recs.clear();
    const Track& t = src.tracks[0];
    recs.emplace_back(99, formats::Encode_Track_Header(t, 310));
    for (const auto& p : t.points) recs.emplace_back(34, formats::Encode_Track_Point(p, 301));
    upload(recs, 6);
    recs = {{19, formats::Encode_Waypoint(src.proximity[0], 400)},
            {31, formats::Encode_Almanac(src.almanac[0], 501)},
            {149, formats::Encode_Lap(src.laps[0])}};
    upload(recs, 0);

    const Data_Set& up = b.Sim().Uploaded();
    ASSERT_EQ(up.waypoints.size(), src.waypoints.size());
    for (std::size_t i = 0; i < src.waypoints.size(); ++i) {
        EXPECT_EQ(up.waypoints[i].ident, src.waypoints[i].ident);
        EXPECT_EQ(up.waypoints[i].lat, src.waypoints[i].lat);
        EXPECT_EQ(up.waypoints[i].alt, src.waypoints[i].alt);
        EXPECT_EQ(up.waypoints[i].comment, src.waypoints[i].comment);
    }
    ASSERT_EQ(up.routes.size(), 1u);
    EXPECT_EQ(up.routes[0].ident, r.ident);
    EXPECT_EQ(up.routes[0].points.size(), r.points.size());
    EXPECT_EQ(up.routes[0].links.size(), r.points.size() - 1);
    ASSERT_EQ(up.tracks.size(), 1u);
    EXPECT_EQ(up.tracks[0].ident, t.ident);
    EXPECT_EQ(up.tracks[0].points, t.points);
    EXPECT_EQ(up.proximity.size(), 1u);
    EXPECT_EQ(up.almanac.size(), 1u);
    EXPECT_EQ(up.laps, std::vector<Lap>{src.laps[0]});
    EXPECT_EQ(b.Sim().Stats().uploads_completed, 4);

    // What was uploaded is what the unit now serves; a second upload of the
    // same ident replaces instead of doubling.
    upload({{35, formats::Encode_Waypoint(src.waypoints[0], 108)}}, 7);
    auto wpts = host.Download(7);
    EXPECT_EQ(U16(wpts[0].data), src.waypoints.size());
    EXPECT_EQ(host.Download(4).size(), 2 + 1 + r.points.size() * 2 - 1);
}

TEST(SimUploads, MalformedRecordsAreAcknowledgedButNotStored) {
    Bench b("current", Data_Set{});
    Host host(b.platform);
    ASSERT_TRUE(host.Send_Acked(27, {3, 0}));
    Bytes no_terminators = formats::Encode_Waypoint(Builtin_Data().waypoints[0], 108);
    std::replace(no_terminators.begin() + 48, no_terminators.end(), std::uint8_t{0}, std::uint8_t{'X'});
    EXPECT_TRUE(host.Send_Acked(35, no_terminators));
    EXPECT_TRUE(host.Send_Acked(34, {1, 2, 3}));
    EXPECT_TRUE(host.Send_Acked(29, {}));
    EXPECT_TRUE(host.Send_Acked(14, {13, 40, 0xFF, 0xFF, 99, 99, 99, 99}));  // a date that cannot be
    EXPECT_TRUE(host.Send_Acked(12, {7, 0}));
    EXPECT_EQ(b.Sim().Uploaded(), Data_Set{});
    EXPECT_EQ(b.Sim().Stats().records_rejected, 4);
    EXPECT_TRUE(host.Send_Acked(10, {0, 0}));
}

TEST(SimRealTime, DatePositionPvtVoltagesUnitIdAndPowerOff) {
    Bench b("current");
    Host host(b.platform);
    host.Drain(2500);
    ASSERT_TRUE(host.Send_Acked(10, {5, 0}));
    auto date = host.Next_Data();
    ASSERT_TRUE(date);
    host.Ack(date->id);
    EXPECT_EQ(date->id, 14);
    EXPECT_EQ(date->data, (Bytes{6, 1, 0xE8, 0x07, 12, 0, 0, 2}));  // 2024-06-01 12:00:02

    ASSERT_TRUE(host.Send_Acked(10, {2, 0}));
    auto pos = host.Next_Data();
    ASSERT_TRUE(pos && pos->data.size() == 16);
    host.Ack(pos->id);
    double lat = 0;
    std::memcpy(&lat, pos->data.data(), 8);
    EXPECT_NEAR(lat * 180 / 3.14159265358979323846, 46.6356, 1e-9);

    ASSERT_TRUE(host.Send_Acked(10, {49, 0}));
    auto stream = host.Drain(3500);  // never acknowledged, still one a second
    int pvt = 0, sats = 0;
    for (const Frame& f : stream) {
        pvt += f.id == 51 && f.data.size() == 64;
        sats += f.id == 114 && f.data.size() == 84;
    }
    EXPECT_EQ(pvt, 3);
    EXPECT_EQ(sats, 3);
    ASSERT_TRUE(host.Send_Acked(10, {50, 0}));
    EXPECT_TRUE(host.Drain(3000).empty());

    ASSERT_TRUE(host.Send_Acked(10, {17, 0}));
    auto volts = host.Next_Data();
    ASSERT_TRUE(volts);
    host.Ack(40);
    EXPECT_EQ(volts->id, 40);
    EXPECT_EQ(volts->data, (Bytes{0x27, 0x01, 0, 0}));  // 2.95 V inside, none outside
    ASSERT_TRUE(host.Send_Acked(10, {14, 0}));
    auto id = host.Next_Data();
    ASSERT_TRUE(id);
    host.Ack(38);
    EXPECT_EQ(id->data, Le32(static_cast<std::int32_t>(3456789012u)));

    ASSERT_TRUE(host.Send_Acked(10, {8, 0}));
    host.Send(10, {0, 0});
    EXPECT_FALSE(host.Next(3000).has_value());
    b.Sim().Power_On();
    EXPECT_TRUE(host.Send_Acked(10, {0, 0}));
}

TEST(SimModes, NmeaAndTextOutputAt4800) {
    for (Output_Mode mode : {Output_Mode::nmea, Output_Mode::text}) {
        Options o;
        o.mode = mode;
        Bench b("current", Builtin_Data(), o);
        Host wrong(b.platform);
        wrong.Drain(2500);
        EXPECT_TRUE(wrong.Raw_Text().empty());
        wrong.Port().Settings("4800,N,8,1");
        b.platform.Advance(2100);
        const std::string text = wrong.Raw_Text();
        if (mode == Output_Mode::text) {
            ASSERT_EQ(text.size(), 2 * 57u);
            EXPECT_EQ(text.substr(0, 11), "@2406011200");
            EXPECT_EQ(text.substr(13, 17), "N4638136E00616932");
            continue;
        }
        std::size_t lines = 0;
        for (std::size_t at = 0; at < text.size();) {
            const auto end = text.find("\r\n", at);
            ASSERT_NE(end, std::string::npos);
            const std::string line = text.substr(at, end - at);
            const auto star = line.find('*');
            ASSERT_EQ(line[0], '$');
            ASSERT_NE(star, std::string::npos);
            EXPECT_EQ(line.substr(star), nmea::Checksum(line.substr(1, star - 1))) << line;
            ++lines;
            at = end + 2;
        }
        EXPECT_EQ(lines, 14u);
        EXPECT_NE(text.find(",A,4638.1360,N,00616.9320,E,"), std::string::npos);
    }
}

TEST(SimData, JsonRoundTripGeneratorAndBadFiles) {
    Data_Set d = Builtin_Data();
    Add_Generated_Track(d, 1200, 3);
    ASSERT_EQ(d.tracks.back().points.size(), 1200u);
    EXPECT_TRUE(d.tracks.back().points[500].new_segment);
    Data_Set again = Builtin_Data();
    Add_Generated_Track(again, 1200, 3);
    EXPECT_EQ(d, again);

    Data_Set back;
    std::string error;
    ASSERT_TRUE(From_Json(To_Json(d), back, error)) << error;
    EXPECT_EQ(back, d);

    for (const char* bad : {"[1,2]", "{\"waypoints\": 3}", "{\"waypoints\": [{\"lat\": 95}]}",
                            "{\"waypoints\": [{\"symbol\": 1e12}]}", "{\"tracks\": [{\"points\": [{\"time\": \"soon\"}]}]}",
                            "{\"waypoints\": [{\"ident\": 7}]}", "{\"almanac\": [{\"svid\": -1}]}", "{"}) {
        Data_Set untouched = Builtin_Data();
        EXPECT_FALSE(From_Json(bad, untouched, error)) << bad;
        EXPECT_EQ(untouched, Builtin_Data()) << bad;
    }
    EXPECT_FALSE(Load_Data("/nonexistent/data.json", back, error));
}
