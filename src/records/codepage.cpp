#include "codepage.h"

#include <array>
#include <cstdint>

namespace trekcom::records {
namespace {

// 0x80 .. 0x9F of Windows-1252. The undefined positions hold their own value.
constexpr std::array<char16_t, 32> kHigh = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98
};

constexpr int kNotInPage = -1;

char32_t Wire_To_Char(unsigned char b) {
    if (b >= 0x80 && b <= 0x9F) return kHigh[b - 0x80];
    return b;
}

int Char_To_Wire(char32_t cp) {
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<int>(cp);
    for (std::size_t i = 0; i < kHigh.size(); ++i)
        if (kHigh[i] == cp) return static_cast<int>(0x80 + i);
    return kNotInPage;
}

void Append_Utf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

constexpr char32_t kMalformedBase = 0xDC00;

bool Is_Malformed(char32_t cp) { return cp >= kMalformedBase + 0x80 && cp <= kMalformedBase + 0xFF; }

}  // namespace

Utf8_Char Next_Char(std::string_view s, std::size_t pos) {
    if (pos >= s.size()) return {0, 0};
    const auto b0 = static_cast<unsigned char>(s[pos]);
    const Utf8_Char bad{kMalformedBase + b0, 1};
    if (b0 < 0x80) return {b0, 1};

    std::size_t len;
    char32_t cp;
    char32_t min;
    if ((b0 & 0xE0) == 0xC0) {
        len = 2, cp = b0 & 0x1F, min = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        len = 3, cp = b0 & 0x0F, min = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        len = 4, cp = b0 & 0x07, min = 0x10000;
    } else {
        return bad;
    }
    if (s.size() - pos < len) return bad;
    for (std::size_t k = 1; k < len; ++k) {
        const auto b = static_cast<unsigned char>(s[pos + k]);
        if ((b & 0xC0) != 0x80) return bad;
        cp = (cp << 6) | (b & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF are not characters.
    if (cp < min || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) return bad;
    return {cp, len};
}

std::string To_Wire(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t pos = 0; pos < utf8.size();) {
        const Utf8_Char c = Next_Char(utf8, pos);
        pos += c.bytes;
        const int b = Is_Malformed(c.code_point) ? kNotInPage : Char_To_Wire(c.code_point);
        out += b == kNotInPage ? '?' : static_cast<char>(static_cast<unsigned char>(b));
    }
    return out;
}

std::string From_Wire(std::string_view wire) {
    std::string out;
    out.reserve(wire.size());
    for (const char c : wire) Append_Utf8(out, Wire_To_Char(static_cast<unsigned char>(c)));
    return out;
}

unsigned char Upper_Wire_Byte(unsigned char b) {
    if (b >= 'a' && b <= 'z') return static_cast<unsigned char>(b - 0x20);
    switch (b) {
        case 0x9A: return 0x8A;  // š
        case 0x9C: return 0x8C;  // œ
        case 0x9E: return 0x8E;  // ž
        case 0xFF: return 0x9F;  // ÿ
        case 0xF7: return b;     // ÷ sits among the small letters but is no letter
        default: break;
    }
    if (b >= 0xE0 && b <= 0xFE) return static_cast<unsigned char>(b - 0x20);
    return b;
}

std::string Upper_Wire(std::string_view wire) {
    std::string out(wire);
    for (char& c : out) c = static_cast<char>(Upper_Wire_Byte(static_cast<unsigned char>(c)));
    return out;
}

char32_t Upper_Char(char32_t cp) {
    const int b = Char_To_Wire(cp);
    if (b == kNotInPage) return cp;
    return Wire_To_Char(Upper_Wire_Byte(static_cast<unsigned char>(b)));
}

std::string Upper_Text(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t pos = 0; pos < utf8.size();) {
        const Utf8_Char c = Next_Char(utf8, pos);
        if (Is_Malformed(c.code_point))
            out += utf8[pos];
        else
            Append_Utf8(out, Upper_Char(c.code_point));
        pos += c.bytes;
    }
    return out;
}

}  // namespace trekcom::records
