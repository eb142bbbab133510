// A large track download from the simulated receiver on the virtual
// platform: records per second, and memory per stored track point.
//
//     bench_records [points]      (default 100000)
//
// Peak resident size (VmHWM) is read before and after the download; its
// growth may include what the simulator holds during the transfer (its queue
// of encoded packets, freed as they go out). What the control keeps is the
// heap (mallinfo2) that clearing the Tracks collection gives back; with a
// record sink, the heap that a second download leaves behind.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "trekcom/trekcom.h"
#include "trekcom/virtual_platform.h"
#include "trekcom_sim/unit.h"

namespace {

// A "/proc/self/status" field in kB, -1 when it cannot be read.
long Status_kB(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":")) return std::stol(line.substr(field.size() + 1));
    return -1;
}

// Heap in use, blocks the allocator maps on their own (a collection's large
// array of pointers) included.
std::size_t Heap_In_Use() {
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
}

struct Until_Tracks : trekcom::TrekcomCtlEvents {
    bool done = false;
    void ReceivedTracks(std::shared_ptr<trekcom::Collection<trekcom::cTrack>>&) override { done = true; }
};

}  // namespace

int main(int argc, char** argv) {
    const std::size_t points = argc > 1 ? std::stoul(argv[1]) : 100000;
    namespace sim = trekcom::sim;

    sim::Data_Set data;
    data.situation = sim::Builtin_Data().situation;
    sim::Add_Generated_Track(data, points);
    auto vp = std::make_shared<trekcom::VirtualPlatform>();
    vp->Attach(1, std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"), std::move(data)));
    trekcom::TrekcomCtl ctl(vp);
    Until_Tracks events;
    ctl.Advise(events);
    if (!ctl.PortOpen()) {
        std::fprintf(stderr, "the simulated receiver's port did not open\n");
        return 1;
    }
    ctl.Request_Product_Data();  // identification is not part of the measure

    const long hwm_before = Status_kB("VmHWM");
    const std::size_t heap_before = Heap_In_Use();
    const auto start = std::chrono::steady_clock::now();
    ctl.Request_Tracks();
    const bool complete = vp->Run_Until([&] { return events.done; }, 24 * 3600e3);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const long hwm_after = Status_kB("VmHWM");
    const std::size_t heap_after = Heap_In_Use();

    const auto records = static_cast<std::size_t>(ctl.Tracks()->Count());  // the header and the points
    ctl.Tracks()->Clear();
    const std::size_t heap_cleared = Heap_In_Use();
    if (!complete || records != points + 1) {
        std::fprintf(stderr, "incomplete download: %zu of %zu records\n", records, points + 1);
        return 1;
    }
    const double per_point_peak = static_cast<double>(hwm_after - hwm_before) * 1024.0 / static_cast<double>(points);
    const double per_point_kept =
        static_cast<double>(heap_after - heap_cleared) / static_cast<double>(points);
    const double per_point_other =
        (static_cast<double>(heap_cleared) - static_cast<double>(heap_before)) / static_cast<double>(points);
    std::printf("track points               %zu\n", points);
    std::printf("records per second         %.0f (%zu records in %.3f s)\n",
                static_cast<double>(records) / elapsed.count(), records, elapsed.count());
    std::printf("peak resident, before      %ld kB\n", hwm_before);
    std::printf("peak resident, after       %ld kB\n", hwm_after);
    std::printf("peak resident growth/point %.0f bytes\n", per_point_peak);
    std::printf("heap kept/point            %.0f bytes (what clearing Tracks gives back)\n", per_point_kept);
    std::printf("heap kept elsewhere/point  %.0f bytes (the link, the simulator)\n", per_point_other);
    std::printf("sizeof(cTrack)             %zu bytes\n", sizeof(trekcom::cTrack));

    // The same download through a record sink: what the control keeps then.
    struct Counting_Sink : trekcom::Record_Sink {
        std::size_t points = 0;
        void Track_Point(const trekcom::cTrack&) override { ++points; }
    } sink;
    ctl.Record_Sink(&sink);
    events.done = false;
    const std::size_t heap_sink_before = Heap_In_Use();
    ctl.Request_Tracks();
    const bool sink_complete = vp->Run_Until([&] { return events.done; }, 24 * 3600e3);
    const auto heap_sink_growth =
        static_cast<double>(Heap_In_Use()) - static_cast<double>(heap_sink_before);
    if (!sink_complete || sink.points != points) {
        std::fprintf(stderr, "incomplete download to the sink: %zu of %zu points\n", sink.points, points);
        return 1;
    }
    std::printf("heap kept/point, sink      %.0f bytes (each point handed to a record sink)\n",
                std::max(0.0, heap_sink_growth / static_cast<double>(points)));
    return 0;
}
