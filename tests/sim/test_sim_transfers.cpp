// What the simulated unit says and stores: record layouts pinned byte for
// byte, uploads, and the data files. Identification, downloads, real-time
// data and the NMEA and text modes are checked end to end through the control
// (protocol, records_e2e, realtime, control) and against gpsbabel.
#include <gtest/gtest.h>

#include <cstring>

#include "formats.h"
#include "sim_host.h"

using namespace trekcom::sim;
using sim_test::Bench;
using sim_test::Host;
using sim_test::U16;
using trekcom::Bytes;

namespace {

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
    // Sizes of the layouts pinned only by their length.
    for (auto [type, size] : {std::pair<std::uint16_t, std::size_t>{400, 62}, {101, 63}, {102, 64}, {103, 60}, {403, 64},
                              {104, 65}, {107, 65}, {151, 124}, {154, 126}, {155, 127}, {110, 78}})
        EXPECT_EQ(formats::Encode_Waypoint(w, type).size(), size) << type;

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

    for (auto [type, size] : {std::pair<std::uint16_t, std::size_t>{500, 42}, {501, 43}, {550, 43}, {551, 44}})
        EXPECT_EQ(formats::Encode_Almanac({}, type).size(), size) << type;
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

// What was uploaded is what the unit serves from then on; a second upload of
// the same idents replaces instead of doubling. (Each kind's storing is read
// back through the control in records_e2e.)
TEST(SimUploads, UploadsAreServedAndTheSameIdentReplaces) {
    Bench b("current", Data_Set{});
    Host host(b.platform);
    const Data_Set src = Builtin_Data();
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(host.Send_Acked(27, {static_cast<std::uint8_t>(src.waypoints.size()), 0}));
        for (const auto& w : src.waypoints) ASSERT_TRUE(host.Send_Acked(35, formats::Encode_Waypoint(w, 108)));
        ASSERT_TRUE(host.Send_Acked(12, {7, 0}));
    }
    EXPECT_EQ(b.Sim().Stats().uploads_completed, 2);
    EXPECT_EQ(U16(host.Download(7).at(0).data), src.waypoints.size());
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
