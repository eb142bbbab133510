#include "garmin_time.h"

#include <chrono>
#include <cstring>
#include <limits>
#include <optional>

namespace trekcom::records {
namespace {

using namespace std::chrono;

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr sys_days kEpoch = sys_days{year{1989} / December / 31};

// Writes value as width digits ending just before end.
void Put_Digits(char* end, long value, int width) {
    for (int k = 1; k <= width; ++k) {
        end[-k] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

std::string_view Trim_Spaces(std::string_view s) {
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
}

// Reads 1 .. max_digits decimal digits from the front of s.
std::optional<int> Take_Number(std::string_view& s, std::size_t min_digits, std::size_t max_digits) {
    std::size_t n = 0;
    int value = 0;
    while (n < s.size() && n < max_digits && s[n] >= '0' && s[n] <= '9') value = value * 10 + (s[n++] - '0');
    if (n < min_digits) return std::nullopt;
    s.remove_prefix(n);
    return value;
}

bool Take_Char(std::string_view& s, char c) {
    if (s.empty() || s.front() != c) return false;
    s.remove_prefix(1);
    return true;
}

std::optional<year_month_day> Parse_Date(std::string_view s) {
    s = Trim_Spaces(s);
    const auto y = Take_Number(s, 4, 4);
    if (!y || s.empty() || (s.front() != '/' && s.front() != '-')) return std::nullopt;
    const char sep = s.front();
    s.remove_prefix(1);
    const auto m = Take_Number(s, 1, 2);
    if (!m || !Take_Char(s, sep)) return std::nullopt;
    const auto d = Take_Number(s, 1, 2);
    if (!d || !s.empty()) return std::nullopt;
    const year_month_day ymd{year{*y}, month{static_cast<unsigned>(*m)}, day{static_cast<unsigned>(*d)}};
    if (!ymd.ok()) return std::nullopt;
    return ymd;
}

// Seconds into the day.
std::optional<std::int64_t> Parse_Clock(std::string_view s) {
    s = Trim_Spaces(s);
    if (s.empty()) return 0;
    const auto h = Take_Number(s, 1, 2);
    if (!h || !Take_Char(s, ':')) return std::nullopt;
    const auto m = Take_Number(s, 1, 2);
    if (!m) return std::nullopt;
    int sec = 0;
    if (Take_Char(s, ':')) {
        const auto parsed = Take_Number(s, 1, 2);
        if (!parsed) return std::nullopt;
        sec = *parsed;
    }
    if (!s.empty() || *h > 23 || *m > 59 || sec > 59) return std::nullopt;
    return std::int64_t{*h} * 3600 + std::int64_t{*m} * 60 + sec;
}

}  // namespace

namespace {

using Time_Chars = char[20];

void Time_Text(std::int32_t seconds, Time_Chars& text) {
    // Floor division, so times before the epoch land on the previous day.
    std::int64_t days = seconds / kSecondsPerDay;
    std::int64_t rest = seconds % kSecondsPerDay;
    if (rest < 0) {
        rest += kSecondsPerDay;
        --days;
    }
    // Records come in time order: the date is worked out once per day seen.
    thread_local std::int64_t last_day = std::numeric_limits<std::int64_t>::min();
    thread_local year_month_day last_ymd{};
    if (days != last_day) {
        last_day = days;
        last_ymd = year_month_day{kEpoch + sys_days::duration{days}};
    }
    const year_month_day& ymd = last_ymd;

    std::memcpy(text, "yyyy/mm/dd-hh:mm:ss", sizeof text);
    Put_Digits(text + 4, static_cast<int>(ymd.year()), 4);
    Put_Digits(text + 7, static_cast<long>(static_cast<unsigned>(ymd.month())), 2);
    Put_Digits(text + 10, static_cast<long>(static_cast<unsigned>(ymd.day())), 2);
    Put_Digits(text + 13, static_cast<long>(rest / 3600), 2);
    Put_Digits(text + 16, static_cast<long>(rest / 60 % 60), 2);
    Put_Digits(text + 19, static_cast<long>(rest % 60), 2);
}

}  // namespace

std::string Seconds2Time(std::int32_t seconds) {
    // Made at its size, so the text's heap block is exactly that: track
    // points keep one each, by the hundred thousand.
    Time_Chars text;
    Time_Text(seconds, text);
    return std::string(text, sizeof text - 1);
}

void Seconds2Time(std::int32_t seconds, std::string& out) {
    Time_Chars text;
    Time_Text(seconds, text);
    out.assign(text, sizeof text - 1);
}

std::int32_t Time2Seconds(std::string_view text) {
    const auto date = Parse_Date(text.substr(0, 10));
    const auto clock = Parse_Clock(text.size() > 11 ? text.substr(11) : std::string_view{});
    if (!date || !clock) return 0;
    const std::int64_t days = (sys_days{*date} - kEpoch).count();
    const std::int64_t total = days * kSecondsPerDay + *clock;
    if (total < std::numeric_limits<std::int32_t>::min() || total > std::numeric_limits<std::int32_t>::max())
        return 0;
    return static_cast<std::int32_t>(total);
}

std::int32_t Wire_Time(std::int32_t seconds, std::string_view text) {
    return seconds != 0 ? seconds : Time2Seconds(text);
}

}  // namespace trekcom::records
