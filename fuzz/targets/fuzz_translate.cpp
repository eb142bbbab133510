// The translation file reader: profile text of any content, looked up and
// edited. An edit that succeeds reads back exactly; a translation through a
// file of that content, asked twice, gives the same answer both times (the
// first may add the phrase to the file).
//
// Input: a key, a NUL, a value, a NUL, then the file's text.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/translate.h"
#include "fuzz_common.h"
#include "platform/profile.h"

namespace {

// The input's pieces: up to the first NUL, up to the second, the rest.
std::string_view Piece(std::string_view& rest) {
    const std::size_t nul = rest.find('\0');
    const std::string_view piece = rest.substr(0, nul);
    rest.remove_prefix(nul == std::string_view::npos ? rest.size() : nul + 1);
    return piece;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    const fuzz::Exact_Text input(data, size);
    std::string_view rest = input.View();
    const std::string_view key = Piece(rest);
    const std::string_view value = Piece(rest);

    platform::Profile_Text text{std::string(rest)};
    (void)text.Get("Translations", key);
    if (text.Set("Translations", key, value) && text.Get("Translations", key) != value) std::abort();

    // The same text as a language's file.
    static const fuzz::Scratch_File folder("trekcom-fuzz-translate");
    std::filesystem::create_directories(folder.Path());
    VirtualPlatform vp;
    vp.Translation_Folder(folder.Path().string());
    const std::filesystem::path file = detail::Translation_File(vp, "Fuzz");
    {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(rest.data(), static_cast<std::streamsize>(rest.size()));
    }
    const std::string phrase(key);
    const std::string first = detail::Translate(vp, "Fuzz", phrase);
    if (detail::Translate(vp, "Fuzz", phrase) != first) std::abort();
    return 0;
}
