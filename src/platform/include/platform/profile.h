// Profile (INI) files, read and written the way the Windows profile functions
// do it, on every system:
//   - section and key names compare without regard to ASCII case, and with
//     the blanks around them ignored ("Port " finds "port=");
//   - the first matching key of the first matching section wins;
//   - a value is trimmed, and one pair of matching quotes around it is
//     removed, so a value can keep blanks at its ends by being quoted;
//   - lines starting with ';' are comments; a key line without '=' is a key
//     with an empty value;
//   - a write changes one line (or adds one, or adds the section at the end)
//     and keeps every other byte of the file as it was.
// Files are untrusted: any bytes parse, and files larger than
// kMax_Profile_Bytes are not read (nor rewritten).
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace trekcom::platform {

inline constexpr std::size_t kMax_Profile_Bytes = 1 << 20;

// The text of a profile file, with the lookups and the edit.
class Profile_Text {
public:
    explicit Profile_Text(std::string text = {}) : text_(std::move(text)) {}

    // The value of the key, or nothing when the section or key is absent.
    std::optional<std::string> Get(std::string_view section, std::string_view key) const;
    // Sets the key: replaces the first matching key line, else adds the key at
    // the end of the first matching section, else adds the section at the end.
    // A value with blanks or a quote at an end is written quoted, so that Get
    // returns it exactly. False when the key or value cannot be written as a
    // line (empty key, a line break, '=' in the key, a key that looks like a
    // section or a comment); the text is then unchanged.
    bool Set(std::string_view section, std::string_view key, std::string_view value);

    const std::string& Text() const { return text_; }

private:
    std::string text_;
};

enum class Profile_Status { ok, missing, unreadable };

// Reads a whole profile file. A missing file reads as empty text; a file that
// cannot be opened or is too large is unreadable.
Profile_Status Read_Profile(const std::filesystem::path& file, Profile_Text& out);

// GetPrivateProfileString: the value, or nothing (missing or unreadable file,
// absent section or key).
std::optional<std::string> Get_Profile_String(const std::filesystem::path& file, std::string_view section,
                                              std::string_view key);

// WritePrivateProfileString: creates the file when it is missing. False, with
// the file untouched, when it cannot be read, the key cannot be written, or
// the folder does not exist or refuses the write.
bool Write_Profile_String(const std::filesystem::path& file, std::string_view section, std::string_view key,
                          std::string_view value);

}  // namespace trekcom::platform
