// The trace-log replay reader: a log file of any content, its received
// packets handed to the control's receive path under each set of protocol
// values. Every packet it finds must be a whole serial packet.
//
// Input: byte 0 chooses the identity (mod 3); the rest is the log.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "control/replay.h"
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    if (size < 1) return 0;
    static const fuzz::Scratch_File scratch("trekcom-fuzz-replay");
    const std::filesystem::path& log = scratch.Path();
    {
        std::ofstream out(log, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data + 1), static_cast<std::streamsize>(size - 1));
    }
    fuzz::Fuzz_Control f(fuzz::Identity_Of(data[0]));
    const bool read = detail::replay::Read_Log(log, [&](const Bytes& packet) {
        const std::size_t n = packet.size();
        if (n < link::kFrameOverhead || packet[0] != link::DLE || packet[n - 2] != link::DLE ||
            packet[n - 1] != link::ETX)
            std::abort();
        f.C().Receive_As_USB(fuzz::Exact(packet.data(), n));
    });
    if (!read) std::abort();
    return 0;
}
