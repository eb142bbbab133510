#include "platform/translate.h"

#include <system_error>
#include <utility>

#include "platform/profile.h"

namespace trekcom::detail {

namespace {

constexpr const char* kSection = "Translations";

struct Program_Location {
    std::filesystem::path folder;
    std::string base;
};

// The running program's folder and base name. The library is static, so the
// program's binary is the component's own; /proc/self/exe names it on Linux.
// Elsewhere (or when it cannot be read) the current folder and "trekcom".
const Program_Location& Program() {
    static const Program_Location where = [] {
        Program_Location p;
        std::error_code ec;
        const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
        if (!ec && exe.has_filename()) {
            p.folder = exe.parent_path();
            p.base = exe.stem().string();
        } else {
            p.folder = std::filesystem::current_path(ec);
            if (ec) p.folder = ".";
            p.base = "trekcom";
        }
        return p;
    }();
    return where;
}

// At most kMax_Translation_Chars characters, never cutting a UTF-8 sequence.
std::string Cut(std::string text) {
    std::size_t chars = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool continuation = (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80;
        if (!continuation && ++chars > kMax_Translation_Chars) {
            text.resize(i);
            break;
        }
    }
    return text;
}

}  // namespace

std::filesystem::path Translation_File(const Platform& platform, const std::string& language) {
    if (language.empty() || language == "English") return {};
    // The language becomes part of a file name: it must not lead elsewhere.
    if (language.find_first_of(std::string("/\\\0", 3)) != std::string::npos) return {};
    const Program_Location& program = Program();
    const std::filesystem::path folder =
        platform.Translation_Folder().empty() ? program.folder : std::filesystem::path(platform.Translation_Folder());
    return folder / (program.base + "_" + language + ".tlt");
}

std::string Translate(const Platform& platform, const std::string& language, const std::string& phrase) {
    const std::filesystem::path file = Translation_File(platform, language);
    if (file.empty()) return phrase;
    if (auto value = platform::Get_Profile_String(file, kSection, phrase); value && !value->empty())
        return Cut(std::move(*value));
    // Missing or empty: the phrase goes into the file with itself as the
    // value, ready for a translator. A file that cannot take it stays as it is.
    platform::Write_Profile_String(file, kSection, phrase, phrase);
    return phrase;
}

}  // namespace trekcom::detail
