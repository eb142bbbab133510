// The tool's file formats and text helpers: what a receiver's records become
// in GPX and back, and how a bad file is reported.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <random>
#include <sstream>

#include "commands.h"
#include "files.h"
#include "png_file.h"
#include "progress.h"
#include "support/scratch.h"

namespace trekcom::tool {
namespace {

std::string Gpx(const std::string& body) {
    return "<?xml version=\"1.0\"?>\n<gpx version=\"1.1\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n" + body +
           "</gpx>\n";
}

std::string Error_Of(const std::string& text) {
    Data d;
    std::string error;
    EXPECT_FALSE(Parse_Gpx(text, "in.gpx", d, error));
    return error;
}

Data Sample() {
    Data d;
    d.kinds = {Kind::Waypoints, Kind::Proximity, Kind::Routes, Kind::Tracks};
    cWaypoint w;
    w.Ident = "HOME";
    w.Cmnt = "CABIN";
    w.Lat = 46.6356;
    w.Lon = -179.999999;
    w.Alt = 1008.25f;
    w.Dpth = 3.5f;
    w.Temp = kNo_Value;
    w.Dist = kNo_Value;
    w.Smbl = 151;
    w.Time_Seconds = 1000000000;
    d.waypoints.push_back(w);
    w.Ident = "ODD";
    w.Smbl = 4242;  // no name: a generic one that maps back
    w.Alt = kNo_Value;
    w.Time_Seconds = kNo_Time;
    d.waypoints.push_back(w);
    w.Ident = "CLIFF";
    w.Dist = 150;
    d.proximity.push_back(w);
    d.routes.push_back({cRoute{}, {d.waypoints[0], d.waypoints[1]}});
    d.routes[0].header.Ident = "LOOP";
    Track_Data t;
    t.header.Ident = "WALK";
    for (int i = 0; i < 5; ++i) {
        cTrack p;
        p.Lat = 46 + i * 0.001;
        p.Lon = 6;
        p.Alt = 1000.5f + static_cast<float>(i);
        p.Seconds = 1000000000 + i;
        p.Temp = i == 1 ? 21.5f : kNo_Value;
        p.Dpth = kNo_Value;
        p.New_Segment = i == 0 || i == 3;
        t.points.push_back(p);
    }
    d.tracks.push_back(t);
    return d;
}

TEST(Gpx, WhatIsWrittenReadsBackAndWritesTheSame) {
    const std::string text = Gpx_Text(Sample());
    Data back;
    std::string error;
    ASSERT_TRUE(Parse_Gpx(text, "x.gpx", back, error)) << error;
    EXPECT_EQ(Gpx_Text(back), text);

    ASSERT_EQ(back.waypoints.size(), 2u);
    EXPECT_EQ(back.waypoints[0].Smbl, 151);
    EXPECT_EQ(back.waypoints[1].Smbl, 4242);
    EXPECT_EQ(back.waypoints[0].Time_Seconds, 1000000000);
    // What the file lacks goes up as the receiver's "no value", not as 0.
    EXPECT_EQ(back.waypoints[1].Alt, kNo_Value);
    EXPECT_EQ(back.waypoints[1].Time_Seconds, kNo_Time);
    EXPECT_EQ(back.waypoints[0].Dpth, 3.5f);
    ASSERT_EQ(back.proximity.size(), 1u);
    EXPECT_EQ(back.proximity[0].Dist, 150.f);
    ASSERT_EQ(back.routes.size(), 1u);
    EXPECT_EQ(back.routes[0].points.size(), 2u);
    // Two segments: a new one starts at the fourth point.
    ASSERT_EQ(back.tracks.size(), 1u);
    std::vector<bool> starts;
    for (const auto& p : back.tracks[0].points) starts.push_back(p.New_Segment);
    EXPECT_EQ(starts, (std::vector<bool>{true, false, false, true, false}));
    EXPECT_EQ(back.tracks[0].points[1].Temp, 21.5f);
    EXPECT_NE(text.find("<time>2021-09-08T01:46:40Z</time>"), std::string::npos);
    EXPECT_NE(text.find("lon=\"-179.999999000\""), std::string::npos);
}

TEST(Gpx, ForeignPrefixesAndOffsetsAreUnderstood) {
    Data d;
    std::string error;
    ASSERT_TRUE(Parse_Gpx(Gpx("<wpt lat='1' lon='180'><name>a</name><time>2024-05-01T12:00:00.5+02:00</time>"
                              "<sym>campground</sym><extensions><x:WaypointExtension xmlns:x='urn:x'>"
                              "<x:Depth>7</x:Depth></x:WaypointExtension></extensions></wpt>"),
                          "in.gpx", d, error))
        << error;
    ASSERT_EQ(d.waypoints.size(), 1u);
    EXPECT_EQ(d.waypoints[0].Lon, -180.0);  // the same meridian, in the receiver's range
    EXPECT_EQ(d.waypoints[0].Smbl, 151);
    EXPECT_EQ(d.waypoints[0].Dpth, 7.f);
    EXPECT_EQ(Iso_Time(d.waypoints[0].Time_Seconds), "2024-05-01T10:00:00Z");
}

TEST(Gpx, BadFilesNameTheLineAndWhatIsWrong) {
    EXPECT_EQ(Error_Of("<gpx>\n<wpt lat='1' lon='2'>\n</gpx>\n"), "in.gpx:3: Start-end tags mismatch");
    EXPECT_EQ(Error_Of("<kml/>"), "in.gpx:1: the root element is not gpx");
    EXPECT_EQ(Error_Of(Gpx("<wpt lat='x1' lon='2'><name>A</name></wpt>\n")),
              "in.gpx:3: wpt lat \"x1\" is not a number");
    EXPECT_EQ(Error_Of(Gpx("\n<wpt lat='91' lon='2'><name>A</name></wpt>\n")),
              "in.gpx:4: wpt lat 91 is outside -90..90");
    EXPECT_EQ(Error_Of(Gpx("<wpt lon='2'><name>A</name></wpt>\n")), "in.gpx:3: wpt has no lat");
    EXPECT_EQ(Error_Of(Gpx("<wpt lat='1' lon='2'/>\n")), "in.gpx:3: wpt has no name");
    EXPECT_EQ(Error_Of(Gpx("<wpt lat='1' lon='2'><name>A</name>\n<ele>high</ele></wpt>\n")),
              "in.gpx:4: ele \"high\" is not a number");
    EXPECT_EQ(Error_Of(Gpx("<trk><trkseg><trkpt lat='1' lon='2'>\n<time>yesterday</time></trkpt></trkseg></trk>")),
              "in.gpx:4: time \"yesterday\" is not an ISO 8601 time");
    EXPECT_EQ(Error_Of(Gpx("<trk><trkseg><trkpt lat='1' lon='2'><time>1980-01-01T00:00:00Z</time></trkpt></trkseg></trk>")),
              "in.gpx:3: time 1980-01-01T00:00:00Z is before 1990 or after 2126");
    EXPECT_EQ(Error_Of(Gpx("<rte><number>300</number></rte>")), "in.gpx:3: rte number 300 is outside 0..255");
    // One bad record anywhere leaves the whole set unread.
    Data d;
    d.waypoints.resize(3);
    std::string error;
    EXPECT_FALSE(Parse_Gpx(Gpx("<wpt lat='1' lon='2'><name>A</name></wpt><wpt lat='1' lon='nan'><name>B</name></wpt>"),
                           "in.gpx", d, error));
    EXPECT_EQ(d.waypoints.size(), 3u);
}

// Random sets of every shape (kinds with no records, tracks and routes with
// no points or no name, awkward text): the writers, which write record by
// record, lay out exactly the document a whole-document writer would, and
// a set kept through Data_Writer writes the same again. A failure prints its seed.
TEST(Writers, RecordByRecordIsTheWholeDocumentsLayout) {
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 rng(seed);
        auto below = [&](std::uint32_t n) { return static_cast<std::size_t>(rng() % n); };
        const std::string texts[] = {"", "A", "<&>\"'", "CAMP 01", std::string("\xC3\xA9t\xC3\xA9"), "\xFF"};
        auto text = [&] { return texts[below(6)]; };
        Data d;
        d.source = text();
        for (Kind k : kAll_Kinds)
            if (below(3)) d.kinds.push_back(k);
        auto waypoint = [&] {
            cWaypoint w = Sample().waypoints[below(2)];
            w.Ident = text();
            w.Dist = below(2) ? kNo_Value : 20.5f;
            return w;
        };
        for (std::size_t i = below(3); i > 0; --i) (below(2) ? d.waypoints : d.proximity).push_back(waypoint());
        for (std::size_t i = below(3); i > 0; --i) {
            d.routes.push_back({cRoute{}, {}});
            d.routes.back().header.Ident = text();
            d.routes.back().header.Number = static_cast<std::int16_t>(below(3));
            for (std::size_t n = below(3); n > 0; --n) d.routes.back().points.push_back(waypoint());
        }
        for (std::size_t i = below(3); i > 0; --i) {
            Track_Data t = Sample().tracks[0];
            t.header.Ident = text();
            t.points.resize(below(6));
            for (auto& p : t.points) p.New_Segment = below(3) == 0;
            d.tracks.push_back(t);
        }
        d.laps.resize(below(2));
        d.flights.resize(below(2));
        d.almanac.resize(below(2));

        const std::string gpx = Gpx_Text(d), json = Json_Text(d);
        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_string(gpx.c_str(), pugi::parse_default | pugi::parse_declaration));
        std::ostringstream whole;
        doc.save(whole, "  ", pugi::format_default, pugi::encoding_utf8);
        EXPECT_EQ(gpx, whole.str());
        const auto parsed = nlohmann::ordered_json::parse(json);
        EXPECT_EQ(json, parsed.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
        Data kept;
        Data_Writer keep(kept);
        Write_Set(d, keep);
        EXPECT_EQ(Json_Text(kept), json);
    }
}

TEST(Text, TimesSymbolsAndKinds) {
    EXPECT_EQ(Iso_Time(0), "1989-12-31T00:00:00Z");
    EXPECT_EQ(Parse_Iso_Time("1989-12-31T00:00:00Z"), 0);
    EXPECT_EQ(Parse_Iso_Time("2024-02-29T23:59:59Z").value(), 1078185599);
    EXPECT_EQ(Iso_Time(1078185599), "2024-02-29T23:59:59Z");
    EXPECT_FALSE(Parse_Iso_Time("2023-02-29T00:00:00Z"));
    EXPECT_FALSE(Parse_Iso_Time("2024-01-01 00:00:00"));
    EXPECT_FALSE(Parse_Iso_Time("2024-01-01T00:00:00Zjunk"));

    EXPECT_EQ(Symbol_Name(18), "Waypoint");
    EXPECT_EQ(Symbol_Code("Waypoint"), 18);
    EXPECT_EQ(Symbol_Name(-5), "Symbol -5");
    EXPECT_EQ(Symbol_Code("Symbol -5"), -5);
    EXPECT_FALSE(Symbol_Code("Symbol 99999"));
    EXPECT_FALSE(Symbol_Code("Symbol 12x"));
    EXPECT_FALSE(Symbol_Code("Dragon"));

    EXPECT_EQ(Kind_Named("TRACKS"), Kind::Tracks);
    EXPECT_FALSE(Kind_Named("track"));
}

TEST(Text, PvtSentencesCarryTimePlaceAndGoodChecksums) {
    cPvtData p;
    p.Lat = -33.8615 * 3.14159265358979323846 / 180;
    p.Lon = 151.2103 * 3.14159265358979323846 / 180;
    p.Alt = 30;
    p.msl_hght = -20;
    p.pfix = 3;
    p.east = 0;
    p.north = 1852.0f / 3600.0f * 10;  // ten knots, due north
    p.wn_days = 12572;                 // 2024-06-02, a Sunday
    p.tow = 2 * 86400 + 3600 + 0.5;    // Tuesday 01:00:00.5 GPS time
    p.leap_scnds = 18;
    EXPECT_EQ(Pvt_Sentences(p),
              (std::vector<std::string>{"$GPGGA,005942.50,3351.6900,S,15112.6180,E,1,,,10.0,M,20.0,M,,*61",
                                        "$GPRMC,005942.50,A,3351.6900,S,15112.6180,E,10.0,0.0,040624,,,A*7B"}));
}

TEST(Text, ProgressLineShowsCountsRateAndTimeLeft) {
    EXPECT_EQ(Progress::Line("tracks", 250, 1000, 5.0, 8), "tracks     [##......] 250/1000  50/s  0:15 left");
    EXPECT_EQ(Progress::Line("tracks", 1000, 1000, 10.0, 4), "tracks     [####] 1000/1000  100/s");
    // A count the receiver never announced draws an empty bar, not a division by zero.
    EXPECT_EQ(Progress::Line("laps", 3, 0, 1.0, 4), "laps       [....] 3/0  3/s");
}

// Any picture survives a PNG file: few colours in a packed palette of any
// depth (odd widths leave part of a byte), many as RGB.
TEST(Png, PicturesReadBackAsWritten) {
    const testing::Scratch_Folder scratch;
    for (std::uint32_t seed = 0; seed < 24; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 rng(seed);
        const std::uint32_t colours = 1 + rng() % (seed % 3 == 0 ? 400 : 16);
        Picture p{static_cast<std::int32_t>(1 + rng() % 37), static_cast<std::int32_t>(1 + rng() % 9), {}};
        for (std::int32_t i = 0; i < p.Width * p.Height; ++i) p.Pixels.push_back(rng() % colours * 0x2F0B07u & 0xFFFFFF);
        std::string error;
        Picture back;
        const std::string path = (scratch / "p.png").string();
        ASSERT_TRUE(Write_Png(path, p, 1 << rng() % 4, error)) << error;
        ASSERT_TRUE(Read_Png(path, back, error)) << error;
        EXPECT_EQ(back.Width, p.Width);
        EXPECT_EQ(back.Pixels, p.Pixels);
    }
}

}  // namespace
}  // namespace trekcom::tool
