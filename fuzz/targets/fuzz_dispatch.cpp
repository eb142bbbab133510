// The dispatcher on packets of any length, id and content, one after
// another, under each set of protocol values: nothing may read outside a
// packet (the sanitizers check), no download event comes but from a
// completion packet, and the only error a stream of records and completions
// can raise is the count report (7).
//
// Input: byte 0 chooses the identity (mod 3); the rest is a list of packets,
// each a length n and n bytes (cut where the input ends), handed over as
// they are: no framing, no checksum, any size.
#include <cstdlib>

#include "fuzz_common.h"

namespace {

struct Events : trekcom::TrekcomCtlEvents {
    int downloads = 0;
    bool other_error = false;
    void cError(std::int16_t& code, std::string&, trekcom::Bytes&) override { other_error |= code != 7; }
    void ReceivedWaypoints(std::shared_ptr<trekcom::Collection<trekcom::cWaypoint>>&) override { ++downloads; }
    void ReceivedRoutes(std::shared_ptr<trekcom::Collection<trekcom::cRoute>>&) override { ++downloads; }
    void ReceivedTracks(std::shared_ptr<trekcom::Collection<trekcom::cTrack>>&) override { ++downloads; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    if (size < 1) return 0;
    fuzz::Fuzz_Control f(fuzz::Identity_Of(data[0]));
    Events events;
    f.ctl.Advise(events);
    for (std::size_t i = 1; i < size;) {
        const std::size_t n = std::min<std::size_t>(data[i], size - i - 1);
        const Bytes packet = fuzz::Exact(data + i + 1, n);
        i += 1 + n;
        const int before = events.downloads;
        f.C().engine.Dispatch_Packet(packet);
        if (events.downloads != before && (packet.size() < 2 || packet[1] != f.ctl.PID_Xfer_Cmplt())) std::abort();
    }
    if (events.other_error) std::abort();
    f.ctl.Unadvise();
    return 0;
}
