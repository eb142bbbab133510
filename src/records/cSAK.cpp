#include "trekcom/cSAK.h"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "platform/translate.h"
#include "codepage.h"
#include "records/fields.h"

namespace trekcom {
namespace {

// Byte2* limits: upper bound minus these. Byte2Long's is one less than
// Pkt2Long's (see cSAK.h); the others match the control's readers.
constexpr std::int64_t kIntLimit = 2;
constexpr std::int64_t kLongLimit = 3;
constexpr std::int64_t kSingleLimit = 4;
constexpr std::int64_t kDoubleLimit = 8;

// A string seen as characters: for each one its folded code point and where
// it starts in the UTF-8 bytes (one extra entry marks the end).
struct Folded {
    std::vector<char32_t> chars;
    std::vector<std::size_t> starts;
};

Folded Fold(const std::string& s) {
    Folded f;
    for (std::size_t pos = 0; pos < s.size();) {
        const auto c = records::Next_Char(s, pos);
        f.chars.push_back(records::Upper_Char(c.code_point));
        f.starts.push_back(pos);
        pos += c.bytes;
    }
    f.starts.push_back(s.size());
    return f;
}

// Byte range [first, second) of the first case-insensitive match of `needle`
// at or after byte `from` (a character start); {npos, npos} when none.
std::pair<std::size_t, std::size_t> Find_Text(const Folded& hay, const Folded& needle, std::size_t from) {
    std::size_t first = 0;
    while (first < hay.chars.size() && hay.starts[first] < from) ++first;
    const std::size_t n = needle.chars.size();
    for (std::size_t i = first; i + n <= hay.chars.size(); ++i) {
        std::size_t k = 0;
        while (k < n && hay.chars[i + k] == needle.chars[k]) ++k;
        if (k == n) return {hay.starts[i], hay.starts[i + n]};
    }
    return {std::string::npos, std::string::npos};
}

}  // namespace

cSAK::cSAK(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {
    if (!platform_) throw std::invalid_argument("cSAK needs a platform");
}

std::int16_t cSAK::Byte2Int(const Bytes& bytes, std::int32_t index) const {
    return records::Read_LE<std::int16_t>(bytes, index, kIntLimit);
}
std::int32_t cSAK::Byte2Long(const Bytes& bytes, std::int32_t index) const {
    return records::Read_LE<std::int32_t>(bytes, index, kLongLimit);
}
float cSAK::Byte2Single(const Bytes& bytes, std::int32_t index) const {
    return records::Read_LE<float>(bytes, index, kSingleLimit);
}
double cSAK::Byte2Double(const Bytes& bytes, std::int32_t index) const {
    return records::Read_LE<double>(bytes, index, kDoubleLimit);
}

std::string cSAK::Byte2Str(const Bytes& bytes, std::int32_t start, std::int32_t length, std::int16_t keep_nuls) const {
    return records::Wire_Text(bytes, start, length, keep_nuls);
}

void cSAK::Str2Byte(const std::string& text, Bytes& bytes) const { records::Str2Pkt(text, bytes); }

double cSAK::uLong2Dbl(std::int32_t value) const {
    const double d = value;
    return value < 0 ? d + 4294967296.0 : d;
}

std::int32_t cSAK::Address_Of(std::int32_t address) const { return address; }

std::vector<std::string> cSAK::Split(const std::string& text, const std::string& delimiter, std::int32_t limit,
                                     int compare) const {
    std::vector<std::string> pieces;
    const bool text_mode = compare == vbTextCompare;
    Folded hay;
    Folded needle;
    if (text_mode && !delimiter.empty()) {
        hay = Fold(text);
        needle = Fold(delimiter);
    }
    std::size_t start = 0;
    while (start < text.size() && static_cast<std::int64_t>(pieces.size()) < limit) {
        // An empty delimiter matches nowhere: stepping past an empty match
        // would never move on.
        std::pair<std::size_t, std::size_t> match{std::string::npos, std::string::npos};
        if (!delimiter.empty()) {
            if (text_mode) {
                match = Find_Text(hay, needle, start);
            } else if (const std::size_t at = text.find(delimiter, start); at != std::string::npos) {
                match = {at, at + delimiter.size()};
            }
        }
        if (match.first == std::string::npos) match = {text.size(), text.size()};
        pieces.push_back(text.substr(start, match.first - start));
        start = match.second;
    }
    return pieces;
}

void cSAK::sParse(const std::string& text, std::vector<std::string>& fields) const {
    fields.clear();
    std::size_t start = 0;
    for (;;) {
        const std::size_t comma = text.find(',', start);
        std::string piece = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        fields.push_back(piece.empty() ? " " : std::move(piece));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
}

std::string cSAK::TrimNull(std::string& text) const {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        text.clear();
    } else {
        text.erase(text.find_last_not_of(' ') + 1);
        text.erase(0, first);
    }
    return text.substr(0, text.find('\0'));
}

void cSAK::WaitFor(std::int32_t delay) {
    const double period_ms = delay < 30 ? delay * 1000.0 : static_cast<double>(delay);
    const double target = platform_->Now_ms() + period_ms;
    do {
        platform_->DoEvents();
    } while (platform_->Now_ms() < target);
}

double cSAK::acos(double x) const {
    // At x = +-1 the quotient's denominator is 0; its limit, a signed
    // infinity, gives the arctangent the right answer without dividing by 0.
    const double d = std::sqrt(1 - x * x);
    const double q = d == 0 ? std::copysign(std::numeric_limits<double>::infinity(), -x) : -x / d;
    return std::atan(q) + 2 * std::atan(1.0);
}

double cSAK::asin(double x) const {
    const double d = std::sqrt(1 - x * x);
    const double q = d == 0 ? std::copysign(std::numeric_limits<double>::infinity(), x) : x / d;
    return std::atan(q);
}

double cSAK::PolygonArea(const std::vector<double>& x, const std::vector<double>& y) const {
    if (y.size() < x.size()) throw std::invalid_argument("PolygonArea: fewer Y than X values");
    if (x.empty()) return 0;
    const std::size_t n = x.size() - 1;
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) sum += x[i] * y[i + 1] - x[i + 1] * y[i];
    if (x[n] != x[0] || y[n] != y[0]) sum += x[n] * y[0] - x[0] * y[n];
    return std::abs(sum / 2);
}

std::string cSAK::xLate(const std::string& phrase) const { return detail::Translate(*platform_, language_, phrase); }

}  // namespace trekcom
