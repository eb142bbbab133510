// The NMEA line path: bytes of a line in NMEA or text mode cut into
// sentences and "@" lines, judged by their checksums and raised as NMEA
// events; and the completion of sentences for sending, which must give a
// sentence its own judge accepts.
//
// Input: byte 0 bit 0 turns the checksum check off, bits 1..7 give the
// chunk size (0: all at once); the rest is what the line delivered.
#include <cstdlib>
#include <string>

#include "control/nmea.h"
#include "fuzz_common.h"

namespace {

struct Sink : trekcom::TrekcomCtlEvents {
    void NMEA(std::string& sentence, bool& chkerr) override {
        // Every sentence the line path raises, sent back out, is whole.
        if (sentence.find('*') != std::string::npos) return;
        std::int16_t mismatches = 0;
        const std::string sent = trekcom::detail::nmea::Complete(sentence);
        if (!trekcom::detail::nmea::Judge(sent, false, false, mismatches).chkerr) std::abort();
        (void)chkerr;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    if (size < 1) return 0;
    fuzz::Fuzz_Control f;
    Sink sink;
    f.ctl.Advise(sink);
    f.ctl.IgnoreCheckSum((data[0] & 1) != 0);
    link::Link& link = f.C().link;
    link.Shared().NMEAMode = true;
    const std::size_t chunk = data[0] >> 1;

    const fuzz::Exact_Text line(data + 1, size - 1);
    fuzz::Feed(link, line.View(), chunk);
    f.ctl.Unadvise();
    return 0;
}
