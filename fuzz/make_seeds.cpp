// Writes the seed corpora of the fuzz targets from the simulated receiver's
// traffic: the packets a control receives from three generations of units
// (legacy L001, L002 by product id, a unit with a capability array) during
// identification, downloads, the almanac and the PVT stream, cut into the
// input layout of each target, plus NMEA output and a translation file.
//
//     make_fuzz_seeds fuzz/corpus
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "decoder_table.h"
#include "fuzz_common.h"
#include "trekcom_sim/unit.h"

namespace {

using namespace trekcom;
namespace fs = std::filesystem;

fs::path root;

void Write(const std::string& target, const std::string& name, const Bytes& input) {
    fs::create_directories(root / target);
    std::ofstream out(root / target / (name + ".bin"), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
}

Bytes Cat(std::uint8_t first, const Bytes& rest) {
    Bytes out{first};
    out.insert(out.end(), rest.begin(), rest.end());
    return out;
}

struct Traffic : TrekcomCtlEvents {
    std::vector<Bytes> packets;
    std::vector<std::string> trace;
    std::vector<std::string> sentences;
    void Receive(Bytes& p) override { packets.push_back(p); }
    void HexDebug(std::string& t) override { trace.push_back(t); }
    void NMEA(std::string& s, bool&) override { sentences.push_back(s); }
};

struct Unit_Case {
    const char* profile;
    fuzz::Identity identity;
};

// The decoder a packet of this unit goes to, by its id.
int Decoder_Of(const sim::Profile& p, std::uint8_t id, const link::Packet_Ids& ids) {
    auto d = [](int n) { return "D" + std::to_string(n); };
    using fuzz::Kind;
    if (id == ids.PID_Wpt_Data) return fuzz::Decoder_Index(Kind::waypoint, d(p.waypoint_type));
    if (id == ids.PID_Rte_Wpt_Data) return fuzz::Decoder_Index(Kind::waypoint, d(p.route_waypoint_type));
    if (id == ids.PID_Prx_Wpt_Data) return fuzz::Decoder_Index(Kind::waypoint, d(p.proximity_type));
    if (id == ids.PID_Rte_Hdr) return fuzz::Decoder_Index(Kind::route_header, d(p.route_header_type));
    if (id == ids.PID_Rte_Link) return fuzz::Decoder_Index(Kind::route_link, "D210");
    if (id == ids.PID_Trk_Hdr) return fuzz::Decoder_Index(Kind::track_header, d(p.track_header_type));
    if (id == ids.PID_Trk_Data) return fuzz::Decoder_Index(Kind::track_point, d(p.track_point_type));
    if (id == ids.PID_Almanac_Data) return fuzz::Decoder_Index(Kind::almanac, d(p.almanac_type));
    if (id == ids.PID_Lap) return fuzz::Decoder_Index(Kind::lap, "D906");
    if (id == ids.PID_Flightbook_Record) return fuzz::Decoder_Index(Kind::flightbook, "D650");
    return -1;
}

// The interrupt and bulk reads of the USB target's input for these packets.
Bytes Usb_Reads(const std::vector<Bytes>& packets, bool bulk) {
    Bytes out;
    auto read = [&](bool on_bulk, const Bytes& bytes) {
        for (std::size_t at = 0; at < bytes.size(); at += 64) {
            const std::size_t n = std::min<std::size_t>(64, bytes.size() - at);
            out.push_back(static_cast<std::uint8_t>((on_bulk ? 0x80 : 0) | n));
            out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(at + n));
        }
    };
    if (bulk) read(false, {0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0});  // Data Available
    for (const Bytes& p : packets) read(bulk, cUSB::Usb_Form(p));
    return out;
}

void Unit_Seeds(const Unit_Case& u) {
    const sim::Profile profile = sim::Profile::Named(u.profile);
    auto vp = std::make_shared<VirtualPlatform>();
    vp->Attach(1, std::make_shared<sim::Virtual_Unit>(profile));
    Traffic t;
    TrekcomCtl ctl(vp);
    ctl.Advise(t);
    ctl.DebugLog(true);
    if (!ctl.PortOpen()) std::exit(1);
    const auto& ids = detail::Control::Of(ctl).ids;
    const std::uint8_t identity = static_cast<std::uint8_t>(u.identity);
    const std::string name(u.profile);

    struct Step {
        const char* kind;
        std::function<void()> run;
    };
    const std::vector<Step> steps{
        {"identify", [&] { ctl.Request_Product_Data(); }},
        {"waypoints", [&] { ctl.Request_Waypoints(); }},
        {"routes", [&] { ctl.Request_Routes(); }},
        {"tracks", [&] { ctl.Request_Tracks(); }},
        {"proximity", [&] { ctl.Request_Prox_Waypoints(); }},
        {"almanac", [&] { ctl.Request_Almanac_Data(); }},
        {"laps", [&] { ctl.Request_Laps(); }},
        {"flightbook", [&] { ctl.Request_Flightbook(); }},
        {"pvt", [&] { ctl.Pvt_Data_Start(); vp->Advance(3500); ctl.Pvt_Data_Stop(); }},
    };
    std::map<int, int> per_decoder;
    for (const Step& step : steps) {
        t.packets.clear();
        t.trace.clear();
        step.run();
        vp->Advance(3000);
        if (t.packets.empty()) continue;
        const std::string base = name + "_" + step.kind;

        // The line's bytes, whole and in 7-byte chunks, at most 24 packets.
        Bytes wire;
        for (std::size_t i = 0; i < t.packets.size() && i < 24; ++i) {
            const Bytes w = link::Stuff_Packet(t.packets[i]);
            wire.insert(wire.end(), w.begin(), w.end());
        }
        Write("receive", base, Cat(identity, wire));
        Write("receive", base + "_chunked", Cat(static_cast<std::uint8_t>(identity | 4 | (7 << 3)), wire));

        std::string log;
        for (std::size_t i = 0; i < t.trace.size() && i < 48; ++i) log += t.trace[i] + "\r\n";
        Write("replay", base, Cat(identity, Bytes(log.begin(), log.end())));

        for (const Bytes& p : t.packets) {
            if (p[1] == 255 || p[1] == 248 || p[1] == 253) {
                const int handler = p[1] == 255 ? 0 : p[1] == 248 ? 1 : 2;
                Write("identify", name + "_" + std::to_string(p[1]),
                      Cat(static_cast<std::uint8_t>(handler + 3 * identity), p));
                if (p[1] == 255) Write("usb", name + "_product", Cat(0, Usb_Reads({p}, false)));
            }
            const int decoder = Decoder_Of(profile, p[1], ids);
            if (decoder >= 0 && per_decoder[decoder]++ < 2)
                Write("decoders", std::string(fuzz::kDecoders[static_cast<std::size_t>(decoder)].format) + "_" + name +
                                      "_" + std::to_string(per_decoder[decoder]),
                      Cat(static_cast<std::uint8_t>(decoder), p));
        }
        if (step.kind != std::string("identify") && step.kind != std::string("pvt")) {
            std::vector<Bytes> transfer(t.packets.begin(),
                                        t.packets.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(t.packets.size(), 12)));
            Write("usb", base, Cat(2, Usb_Reads(transfer, true)));
        }
    }
    ctl.Unadvise();
}

void Nmea_Seeds() {
    for (const auto mode : {sim::Output_Mode::nmea, sim::Output_Mode::text}) {
        sim::Options options;
        options.mode = mode;
        options.baud = 4800;
        auto vp = std::make_shared<VirtualPlatform>();
        vp->Attach(1, std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), sim::Builtin_Data(), options));
        Traffic t;
        TrekcomCtl ctl(vp);
        ctl.Advise(t);
        ctl.Settings("4800,N,8,1");
        if (!ctl.PortOpen()) std::exit(1);
        vp->Advance(3000);
        std::string text;
        for (std::size_t i = 0; i < t.sentences.size() && i < 16; ++i) text += t.sentences[i] + "\r\n";
        const std::string name = mode == sim::Output_Mode::nmea ? "nmea" : "text";
        Write("nmea", name, Cat(0, Bytes(text.begin(), text.end())));
        Write("nmea", name + "_chunked", Cat(static_cast<std::uint8_t>(5 << 1), Bytes(text.begin(), text.end())));
        ctl.Unadvise();
    }
}

void Translation_Seeds() {
    auto seed = [](const std::string& name, const std::string& text) {
        Write("translate", name, Bytes(text.begin(), text.end()));
    };
    using namespace std::string_literals;
    seed("german", "No response from device\0Keine Antwort\0"
                   "; Trekcom messages\r\n[Translations]\r\nNo response from device=Keine Antwort vom Ger\xC3\xA4t\r\n"
                   "Unable to communicate with device = \"Keine Verbindung \"\r\n\r\n[Other]\r\nkey=value\r\n"s);
    seed("empty_value", "Invalid message received from device\0\0[translations]\nInvalid message received from device=\n"s);
    seed("no_section", " Port \0 3 \0Port=1\n[ Translations ]\nport=2\n"s);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_fuzz_seeds <corpus folder>\n");
        return 2;
    }
    root = argv[1];
    for (const Unit_Case& u : {Unit_Case{"legacy25", fuzz::Identity::l001_defaults},
                               Unit_Case{"l002", fuzz::Identity::l002_table},
                               Unit_Case{"current", fuzz::Identity::capability_array},
                               Unit_Case{"aviator", fuzz::Identity::capability_array}})
        Unit_Seeds(u);
    Nmea_Seeds();
    Translation_Seeds();
    return 0;
}
