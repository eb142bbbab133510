// What the host-level tests share: an event sink that records everything in
// order, a plain line device, and a scratch folder. Only the public surface.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <trekcom/trekcom.h>
#include <trekcom_sim/unit.h>

namespace host_test {

using namespace trekcom;

struct Events : TrekcomCtlEvents {
    struct Error {
        std::int16_t code;
        std::string message;
        Bytes packet;
    };
    std::vector<std::string> order;  // "Receive", "HexDebug", ... as raised
    std::vector<Bytes> received;
    std::vector<Error> errors;
    std::vector<Error> vc_errors;  // the packet as text, turned back into bytes
    std::vector<std::string> debug;
    std::vector<std::pair<std::string, bool>> nmea;
    int waypoint_events = 0;

    void vcReceive(std::string& p) override {
        order.push_back("vcReceive");
        EXPECT_EQ(p, Bytes2String(received.back()));
    }
    void Receive(Bytes& p) override {
        order.push_back("Receive");
        received.push_back(p);
    }
    void HexDebug(std::string& t) override {
        order.push_back("HexDebug");
        debug.push_back(t);
    }
    void NMEA(std::string& s, bool& ok) override {
        order.push_back("NMEA");
        nmea.emplace_back(s, ok);
    }
    void cError(std::int16_t& c, std::string& m, Bytes& p) override {
        order.push_back("cError");
        errors.push_back({c, m, p});
    }
    void vcError(std::int16_t& c, std::string& m, std::string& p) override {
        order.push_back("vcError");
        vc_errors.push_back({c, m, String2Bytes(p)});
    }
    void ReceivedWaypoints(std::shared_ptr<Collection<cWaypoint>>&) override {
        order.push_back("ReceivedWaypoints");
        ++waypoint_events;
    }
};

// A receiver that keeps what the host writes and sends what a test gives it.
struct Line_Device : VirtualDevice {
    VirtualLine* line = nullptr;
    std::string written;
    void Attached(VirtualLine& l) override { line = &l; }
    void Host_Wrote(const Bytes& bytes) override { written.append(bytes.begin(), bytes.end()); }
    // The text paced as a 4800-baud line delivers it, a few bytes at a time.
    void Send_Paced(const std::string& text, std::size_t chunk = 8) {
        double at = line->Now_ms();
        for (std::size_t pos = 0; pos < text.size(); pos += chunk) {
            const std::string piece = text.substr(pos, chunk);
            at += piece.size() * 10 * 1000.0 / 4800;
            line->Send(Bytes(piece.begin(), piece.end()), at);
        }
    }
};

// A control on a virtual platform, with a device (when given) on the port named "gps".
struct Host {
    explicit Host(std::shared_ptr<VirtualDevice> device = nullptr, const std::string& settings = "9600,N,8,1") {
        if (device) {
            vp->Attach("gps", std::move(device));
            ctl.Port_Name("gps");
        }
        ctl.Settings(settings);
        ctl.Advise(events);
    }
    void Run(double ms) { vp->Advance(ms); }

    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    TrekcomCtl ctl{vp};
    Events events;
};

// A folder of its own for one test, removed with everything in it.
struct Scratch_Folder {
    Scratch_Folder() {
        static std::mt19937_64 seed{std::random_device{}()};
        path = std::filesystem::temp_directory_path() / ("trekcom-test-" + std::to_string(seed()));
        std::filesystem::create_directories(path);
    }
    ~Scratch_Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    Scratch_Folder(const Scratch_Folder&) = delete;
    Scratch_Folder& operator=(const Scratch_Folder&) = delete;
    std::filesystem::path path;
};

inline std::string Read_File(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void Write_File(const std::filesystem::path& p, const std::string& text) {
    std::ofstream(p, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace host_test
