// The serial receive path: arbitrary bytes from the line through the frame
// parser, the per-packet handling (acknowledge, refuse, count NAKs) and the
// dispatcher, under each set of protocol values. Whatever came, what the
// parser keeps afterwards can only be the start of a frame or of a line.
//
// Input: byte 0 chooses the identity (its value mod 3), whether packets are
// traced (bit 2) and the size of the chunks the bytes arrive in (bits 3..7;
// 0 means all at once). The rest is what the line delivered.
#include <cstdlib>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    if (size < 1) return 0;
    fuzz::Fuzz_Control f(fuzz::Identity_Of(data[0]));
    link::Link& link = f.C().link;
    link.Shared().DebugLog = (data[0] & 4) != 0;
    const std::size_t chunk = data[0] >> 3;

    const fuzz::Exact_Text line(data + 1, size - 1);
    fuzz::Feed(link, line.View(), chunk);
    const std::string_view rest = link.Serial().Buffer().View();
    if (!rest.empty() && rest[0] != 0x10 && rest[0] != '$' && rest[0] != '@') std::abort();
    return 0;
}
