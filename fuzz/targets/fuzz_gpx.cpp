// The tool's GPX reader: any text either reads or fails with a message. What
// it reads must survive the tool's own writer: the written file reads back,
// and writing that again gives the same file.
#include <cstdlib>
#include <string>

#include "files.h"
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom::tool;
    const trekcom::fuzz::Exact_Text input(data, size);
    Data read;
    std::string error;
    if (!Parse_Gpx(std::string(input.View()), "fuzz.gpx", read, error)) {
        if (error.empty()) std::abort();
        return 0;
    }
    const std::string written = Gpx_Text(read);
    Data again;
    if (!Parse_Gpx(written, "written.gpx", again, error)) std::abort();
    if (Gpx_Text(again) != written) std::abort();
    return 0;
}
