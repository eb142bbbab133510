// The serial receive path: arbitrary bytes from the line through the frame
// parser, the per-packet handling (acknowledge, refuse, count NAKs) and the
// dispatcher, under each set of protocol values. Whatever came, what the
// parser keeps afterwards can only be the start of a frame or of a line, and
// no download event comes but from a sound completion packet.
//
// Input: byte 0 chooses the identity (its value mod 3), whether packets are
// traced (bit 2) and the size of the chunks the bytes arrive in (bits 3..7;
// 0 means all at once). The rest is what the line delivered.
#include <cstdlib>

#include "fuzz_common.h"

namespace {

// Download events against the sound completion packets that could end a download.
struct Ends : trekcom::TrekcomCtlEvents {
    std::uint8_t completion = 12;
    int events = 0, completions = 0;
    void Receive(trekcom::Bytes& p) override {
        std::uint8_t sum = 0;
        for (std::size_t i = 1; i + 2 < p.size(); ++i) sum = static_cast<std::uint8_t>(sum + p[i]);
        completions += p.size() >= 6 && p[1] == completion && sum == 0;
    }
    void ReceivedWaypoints(std::shared_ptr<trekcom::Collection<trekcom::cWaypoint>>&) override { ++events; }
    void ReceivedRoutes(std::shared_ptr<trekcom::Collection<trekcom::cRoute>>&) override { ++events; }
    void ReceivedTracks(std::shared_ptr<trekcom::Collection<trekcom::cTrack>>&) override { ++events; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    if (size < 1) return 0;
    fuzz::Fuzz_Control f(fuzz::Identity_Of(data[0]));
    link::Link& link = f.C().link;
    link.Shared().DebugLog = (data[0] & 4) != 0;
    const std::size_t chunk = data[0] >> 3;
    Ends ends;
    ends.completion = f.ctl.PID_Xfer_Cmplt();
    f.ctl.Advise(ends);

    const fuzz::Exact_Text line(data + 1, size - 1);
    fuzz::Feed(link, line.View(), chunk);
    const std::string_view rest = link.Serial().Buffer().View();
    if (!rest.empty() && rest[0] != 0x10 && rest[0] != '$' && rest[0] != '@') std::abort();
    if (ends.events > ends.completions) std::abort();
    f.ctl.Unadvise();
    return 0;
}
