// Print the receiver's live position, velocity and time: N updates (default 10).
//
//   live_pvt /dev/ttyUSB0 [N]
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <trekcom/trekcom.h>

struct Sink : trekcom::TrekcomCtlEvents {
    trekcom::TrekcomCtl* ctl = nullptr;
    int updates = 0;
    // Every packet passes here after the control has decoded it: a PVT
    // packet has just refreshed PvtData().
    void Receive(trekcom::Bytes& packet) override {
        if (packet.size() < 2 || packet[1] != ctl->PID_Pvt_Data()) return;
        const auto& p = *ctl->PvtData();
        constexpr double deg = 180.0 / std::numbers::pi;  // PVT positions are radians
        std::printf("tow %9.2f  %10.6f %11.6f  alt %7.1f m  fix %d  %.1f m/s\n", p.tow, p.Lat * deg, p.Lon * deg,
                    p.Alt + p.msl_hght, p.pfix, std::hypot(p.east, p.north));
        ++updates;
    }
};

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s PORT [N]\n", argv[0]);
        return 2;
    }
    const int wanted = argc > 2 ? std::atoi(argv[2]) : 10;
    trekcom::TrekcomCtl ctl;
    Sink sink;
    sink.ctl = &ctl;
    ctl.Advise(sink);
    ctl.Port_Name(argv[1]);
    if (!ctl.PortOpen()) return 3;
    ctl.Request_Product_Data();  // learns the packet ids the receiver uses
    ctl.Pvt_Data_Start();
    const bool all = ctl.Platform()->Run_Until([&] { return sink.updates >= wanted; }, (wanted + 5) * 1000.0);
    ctl.Pvt_Data_Stop();
    return all ? 0 : 4;
}
