// Identify the receiver and list its waypoints.
//
//   download_waypoints /dev/ttyUSB0        (or a trekcom-sim link)
#include <cstdio>
#include <trekcom/trekcom.h>

struct Sink : trekcom::TrekcomCtlEvents {
    bool done = false;
    void ReceivedWaypoints(std::shared_ptr<trekcom::Collection<trekcom::cWaypoint>>& list) override {
        for (const auto& w : *list) std::printf("%-10s %11.6f %11.6f  %s\n", w->Ident.c_str(), w->Lat, w->Lon, w->Cmnt.c_str());
        done = true;
    }
    void cError(std::int16_t&, std::string& message, trekcom::Bytes&) override {
        std::fprintf(stderr, "error: %s\n", message.c_str());
    }
};

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s PORT\n", argv[0]);
        return 2;
    }
    trekcom::TrekcomCtl ctl;
    Sink sink;
    ctl.Advise(sink);
    ctl.Port_Name(argv[1]);
    if (!ctl.PortOpen()) return 3;

    ctl.Request_Product_Data();
    const auto& product = *ctl.Product_Data();
    if (product.Product_ID == 0) return 4;  // nobody answered
    std::printf("%s (product %d, waypoints %s %s)\n", product.Product_Description_1.c_str(), product.Product_ID,
                ctl.WayPoint_Transfer_Protocol().c_str(), ctl.Waypoint_Data_Format().c_str());

    ctl.Request_Waypoints();  // returns once the count is announced; records arrive as the loop runs
    return ctl.Platform()->Run_Until([&] { return sink.done; }, 30000) ? 0 : 4;
}
