#include "platform/profile.h"

#include <fstream>
#include <system_error>

namespace trekcom::platform {

namespace {

bool Blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string_view Trim(std::string_view s) {
    while (!s.empty() && Blank(s.front())) s.remove_prefix(1);
    while (!s.empty() && Blank(s.back())) s.remove_suffix(1);
    return s;
}

char Fold(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool Same_Name(std::string_view a, std::string_view b) {
    a = Trim(a);
    b = Trim(b);
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (Fold(a[i]) != Fold(b[i])) return false;
    return true;
}

bool Quote(char c) { return c == '"' || c == '\''; }

// One line of the text: where it starts, where its content ends (before any
// CR LF or LF) and where the next line starts.
struct Line {
    std::size_t begin = 0, content_end = 0, next = 0;
};

// Walks the lines, telling the visitor each line's content and whether it
// lies in the first section named `section` (a later section of the same
// name is not looked into). The visitor returns false to stop.
template <typename Visit>
void Walk(const std::string& text, std::string_view section, Visit visit) {
    bool in_section = false;
    bool section_passed = false;
    for (std::size_t pos = 0; pos < text.size();) {
        Line line;
        line.begin = pos;
        const std::size_t lf = text.find('\n', pos);
        line.next = lf == std::string::npos ? text.size() : lf + 1;
        line.content_end = lf == std::string::npos ? text.size() : lf;
        if (line.content_end > line.begin && text[line.content_end - 1] == '\r') --line.content_end;
        pos = line.next;

        const std::string_view content = Trim(std::string_view(text).substr(line.begin, line.content_end - line.begin));
        if (!content.empty() && content.front() == '[') {
            const std::size_t close = content.find(']');
            if (in_section) section_passed = true;
            in_section = !section_passed &&
                         Same_Name(content.substr(1, close == std::string_view::npos ? content.npos : close - 1), section);
            if (!visit(line, content, in_section, true)) return;
            continue;
        }
        if (!visit(line, content, in_section, false)) return;
    }
}

// The key of a key line, or nothing for blank lines and comments.
std::optional<std::string_view> Key_Of(std::string_view content) {
    if (content.empty() || content.front() == ';') return std::nullopt;
    return content.substr(0, content.find('='));
}

bool Writable_Key(std::string_view key) {
    const std::string_view k = Trim(key);
    return !k.empty() && k.front() != '[' && k.front() != ';' && key.find_first_of("=\r\n") == key.npos;
}

}  // namespace

std::optional<std::string> Profile_Text::Get(std::string_view section, std::string_view key) const {
    std::optional<std::string> found;
    Walk(text_, section, [&](const Line&, std::string_view content, bool in_section, bool header) {
        if (header || !in_section) return true;
        const auto k = Key_Of(content);
        if (!k || !Same_Name(*k, key)) return true;
        const std::size_t eq = content.find('=');
        std::string_view value = eq == content.npos ? std::string_view() : Trim(content.substr(eq + 1));
        if (value.size() >= 2 && Quote(value.front()) && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        found = std::string(value);
        return false;
    });
    return found;
}

bool Profile_Text::Set(std::string_view section, std::string_view key, std::string_view value) {
    const std::string_view s = Trim(section);
    if (s.empty() || section.find_first_of("]\r\n") != section.npos) return false;
    if (!Writable_Key(key) || value.find_first_of("\r\n") != value.npos) return false;

    std::string line(key);
    line += '=';
    const bool quoted = !value.empty() && (Blank(value.front()) || Blank(value.back()) || Quote(value.front()) ||
                                           Quote(value.back()));
    if (quoted) line += '"';
    line += value;
    if (quoted) line += '"';

    std::optional<Line> key_line;      // the line to replace
    std::optional<Line> section_last;  // the last non-blank line of the section
    Walk(text_, section, [&](const Line& l, std::string_view content, bool in_section, bool header) {
        if (!in_section) return true;
        if (header || !content.empty()) section_last = l;
        if (header) return true;
        const auto k = Key_Of(content);
        if (k && Same_Name(*k, key)) {
            key_line = l;
            return false;
        }
        return true;
    });

    if (key_line) {
        text_.replace(key_line->begin, key_line->content_end - key_line->begin, line);
        return true;
    }
    if (section_last) {
        // The new key follows the section's last line, with that line's ending.
        const Line& after = *section_last;
        const bool crlf = after.content_end < text_.size() && text_[after.content_end] == '\r';
        std::string ending = crlf || after.next == after.content_end ? "\r\n" : "\n";
        std::string insert = line + ending;
        if (after.next == text_.size() && after.next == after.content_end) insert = ending + line + ending;
        text_.insert(after.next, insert);
        return true;
    }
    if (!text_.empty() && text_.back() != '\n') text_ += "\r\n";
    text_ += "[" + std::string(s) + "]\r\n" + line + "\r\n";
    return true;
}

Profile_Status Read_Profile(const std::filesystem::path& file, Profile_Text& out) {
    std::error_code ec;
    const auto status = std::filesystem::status(file, ec);
    if (status.type() == std::filesystem::file_type::not_found) {
        out = Profile_Text();
        return Profile_Status::missing;
    }
    if (ec || status.type() != std::filesystem::file_type::regular) return Profile_Status::unreadable;
    std::ifstream in(file, std::ios::binary);
    if (!in) return Profile_Status::unreadable;
    // Read at most one byte past the limit: a file that grows while being
    // read, or lies about its size, is still refused.
    std::string text(kMax_Profile_Bytes + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (in.bad()) return Profile_Status::unreadable;
    const auto got = static_cast<std::size_t>(in.gcount());
    if (got > kMax_Profile_Bytes) return Profile_Status::unreadable;
    text.resize(got);
    out = Profile_Text(std::move(text));
    return Profile_Status::ok;
}

std::optional<std::string> Get_Profile_String(const std::filesystem::path& file, std::string_view section,
                                              std::string_view key) {
    Profile_Text text;
    if (Read_Profile(file, text) != Profile_Status::ok) return std::nullopt;
    return text.Get(section, key);
}

bool Write_Profile_String(const std::filesystem::path& file, std::string_view section, std::string_view key,
                          std::string_view value) {
    Profile_Text text;
    if (Read_Profile(file, text) == Profile_Status::unreadable) return false;
    if (!text.Set(section, key, value)) return false;
    // Written beside the file and renamed over it, so a failed write never
    // leaves half a file behind.
    std::filesystem::path temp = file;
    temp += ".tmp";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        out.write(text.Text().data(), static_cast<std::streamsize>(text.Text().size()));
        out.close();
        if (!out) {
            std::error_code ignored;
            std::filesystem::remove(temp, ignored);
            return false;
        }
    }
    std::error_code ec;
    std::filesystem::rename(temp, file, ec);
    if (ec) {
        std::filesystem::remove(temp, ec);
        return false;
    }
    return true;
}

}  // namespace trekcom::platform
