// NMEA 0183 and text lines: from the simulator, from real receivers'
// recordings and from hostile lines, each delivered once with the right
// checksum verdict; and sentences sent with their checksum completed.
#include <iomanip>
#include <numeric>
#include <sstream>

#include "host.h"

namespace host_test {
namespace {

// The verdict a sentence deserves, worked out here on its own: it carries
// "*hh" at its end and hh is the XOR of everything between the first
// character and the first '*', in upper-case hex.
bool Deserves_Good_Checksum(const std::string& s) {
    if (s.size() < 3 || s[s.size() - 3] != '*') return false;
    const std::string body = s.substr(1, s.find('*') - 1);
    const unsigned sum = std::accumulate(body.begin(), body.end(), 0u,
                                         [](unsigned a, char c) { return a ^ static_cast<unsigned char>(c); });
    std::ostringstream hex;
    hex << std::uppercase << std::hex << std::setw(2) << std::setfill('0') << sum;
    return s.substr(s.size() - 2) == hex.str();
}

// A host at 4800 baud with its port open on a plain line device.
struct Nmea_Host : Host {
    explicit Nmea_Host(std::shared_ptr<Line_Device> d = std::make_shared<Line_Device>())
        : Host(d, "4800,N,8,1"), device(std::move(d)) {
        EXPECT_TRUE(ctl.PortOpen());
    }
    std::shared_ptr<Line_Device> device;
};

// The simulator talking NMEA or text.
std::shared_ptr<sim::Virtual_Unit> Talking_Unit(sim::Output_Mode mode) {
    sim::Options o;
    o.mode = mode;
    return std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), sim::Builtin_Data(), o);
}

TEST(Nmea, TheChecksumRule) {
    TrekcomCtl ctl(std::make_shared<VirtualPlatform>());
    const std::string s = "$GPGLL,4916.45,N,12311.12,W,225444,A";
    // "$AB": a leading 0; "XAB": the first character never counts.
    for (const auto& [in, sum] : std::initializer_list<std::pair<std::string, std::string>>{
             {s, "31"}, {s + "*", "31"}, {s + "*31", "31"}, {"$AB", "03"}, {"XAB", "03"}, {"$\xFF\x0F", "F0"},
             {"", "00"}, {"*AB", "00"}})
        EXPECT_EQ(ctl.NMEA_Checksum(in), sum) << in;
}

TEST(Nmea, SendCompletesTheChecksumInItsThreeCases) {
    Nmea_Host h;
    std::string bare = "$PGRMO,GPGLL,2", starred = "$PGRMO,GPGLL,2*", complete = "$PGRMO,GPGLL,2*00,as is";
    h.ctl.NMEA_Send(bare);
    h.ctl.NMEA_Send(starred);
    h.ctl.NMEA_Send(complete);
    EXPECT_TRUE(Deserves_Good_Checksum(bare)) << bare;
    EXPECT_EQ(bare.size(), 17u);
    EXPECT_EQ(starred, bare);
    EXPECT_EQ(complete, "$PGRMO,GPGLL,2*00,as is");
    h.Run(10);
    EXPECT_EQ(h.device->written, bare + "\r\n" + bare + "\r\n" + complete + "\r\n");
}

// (Sentences arriving once and in order, with bad checksums among them, are
// checked with recorded and hostile streams below.)
TEST(Nmea, SimulatorLinesArriveCheckedUnlessChecksAreOffOrTheyAreTextAndTheirEndIsReported) {
    auto unit = Talking_Unit(sim::Output_Mode::nmea);
    Host h(unit, "4800,N,8,1");
    ASSERT_TRUE(h.ctl.PortOpen());
    h.Run(4500);
    auto& got = h.events.nmea;
    ASSERT_GE(got.size(), 20u);
    for (const auto& [line, ok] : got) EXPECT_TRUE(ok && Deserves_Good_Checksum(line)) << line;
    EXPECT_TRUE(h.events.errors.empty());
    EXPECT_EQ(h.ctl.Settings(), "4800,N,8,1");

    h.ctl.IgnoreCheckSum(true);
    const std::size_t before = got.size();
    h.Run(3000);
    ASSERT_GT(got.size(), before);
    for (std::size_t i = before; i < got.size(); ++i) EXPECT_FALSE(got[i].second) << got[i].first;

    // The stream stops: after two watchdog periods, one report.
    unit->Sim().Set_Mode(sim::Output_Mode::garmin);
    h.Run(10000);
    ASSERT_EQ(h.events.errors.size(), 1u);
    EXPECT_EQ(h.events.errors[0].code, 0);
    EXPECT_EQ(h.events.errors[0].message, "No longer receiving NMEA/TEXT data");

    // Text lines carry no checksum.
    unit->Sim().Set_Mode(sim::Output_Mode::text);
    const std::size_t text_from = got.size();
    h.ctl.IgnoreCheckSum(false);
    h.Run(3500);
    ASSERT_GE(got.size(), text_from + 3);
    for (std::size_t i = text_from; i < got.size(); ++i) EXPECT_TRUE(got[i].first[0] == '@' && !got[i].second);
}

TEST(Nmea, MoreThanFiftyMismatchesAreReportedOnceAndCountAgain) {
    Nmea_Host h;
    const std::string good = "$GPGLL,4916.45,N,12311.12,W,225444,A*31\r\n";
    const std::string bad = "$GPGLL,4916.45,N,12311.12,W,225444,A*32\r\n";
    std::string stream;
    for (int i = 1; i <= 102; ++i) stream += bad + (i % 10 == 0 ? good : "");  // good ones reset nothing
    h.device->Send_Paced(stream);
    h.Run(stream.size() * 10 * 1000.0 / 4800 + 100);
    ASSERT_EQ(h.events.nmea.size(), 112u);
    ASSERT_EQ(h.events.errors.size(), 2u);
    for (const auto& e : h.events.errors) {
        EXPECT_EQ(e.message,
                  "There have been more than 50 check sum errors\r\n"
                  "Verify that your receiver is putting out check sums");
        EXPECT_TRUE(e.packet.empty());
    }
    // Each report comes with the 51st mismatch, before its NMEA event.
    std::size_t mismatches = 0, nmea_i = 0;
    std::vector<std::size_t> reported_at;
    for (const std::string& name : h.events.order) {
        if (name == "NMEA") mismatches += !h.events.nmea[nmea_i++].second;
        if (name == "cError") reported_at.push_back(mismatches + 1);
    }
    EXPECT_EQ(reported_at, (std::vector<std::size_t>{51, 102}));
}

TEST(Nmea, StrayBytesBeforeTheFirstLineShiftItAndOnlyIt) {
    Nmea_Host h;
    const std::string s1 = "$GPGLL,4916.45,N,12311.12,W,225444,A*31", s2 = "$PGRMZ,48,f,3*27",
                      s3 = "$PGRMM,WGS 84*06";
    const std::string first = "xy" + s1 + "\r\n" + s2 + "\r\n";
    h.device->line->Send(Bytes(first.begin(), first.end()));
    h.Run(50);
    h.device->Send_Paced(s3 + "\r\n", 4);
    h.Run(200);
    ASSERT_EQ(h.events.nmea.size(), 3u);
    EXPECT_EQ(h.events.nmea[0].first, s1.substr(2) + "\r\n");
    EXPECT_FALSE(h.events.nmea[0].second);
    EXPECT_EQ(h.events.nmea[1].first, s2);
    EXPECT_EQ(h.events.nmea[2].first, s3);
    EXPECT_TRUE(h.events.nmea[2].second);
}

// ---------------------------------------------------------------- real receivers

// The sentences of a recording. Some recordings were stored with bare LF
// endings; on the line every sentence ends in CR LF, so they go out that way.
std::vector<std::string> Recorded_Sentences(const std::string& name) {
    std::istringstream in(Read_File(std::string(TREKCOM_CAPTURES_DIR) + "/" + name));
    std::vector<std::string> out;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line.front() == '#') continue;
        out.push_back(line);
    }
    return out;
}

TEST(Nmea, RealReceiversRecordingsAreDeliveredSentenceBySentenceWithTheRightVerdict) {
    for (const char* name :
         {"garmin-10x.log", "garmin-geko201.log", "garmin17n.log", "garmin38.log", "garmin48.log"}) {
        const std::vector<std::string> sentences = Recorded_Sentences(name);
        ASSERT_GT(sentences.size(), 10u) << name;
        std::string wire;
        std::size_t mismatches = 0;
        for (const std::string& s : sentences) {
            wire += s + "\r\n";
            mismatches += s.size() >= 3 && s[s.size() - 3] == '*' && !Deserves_Good_Checksum(s);
        }
        Nmea_Host h;
        h.device->Send_Paced(wire);
        h.Run(wire.size() * 10 * 1000.0 / 4800 + 500);
        ASSERT_EQ(h.events.nmea.size(), sentences.size()) << name;
        for (std::size_t i = 0; i < sentences.size(); ++i) {
            EXPECT_EQ(h.events.nmea[i].first, sentences[i]) << name;
            EXPECT_EQ(h.events.nmea[i].second, Deserves_Good_Checksum(sentences[i])) << name << ": " << sentences[i];
        }
        EXPECT_EQ(h.events.errors.size(), mismatches / 51) << name;
        EXPECT_TRUE(h.device->written.empty()) << name;  // NMEA is never answered
    }
}

}  // namespace
}  // namespace host_test
