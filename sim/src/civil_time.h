// Calendar dates from and to seconds, in UTC and the proleptic Gregorian
// calendar, without the C library's time zone state.
#pragma once

#include <cstdint>

namespace trekcom::sim {

struct Civil {
    int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

inline std::int64_t Days_From_Civil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

inline Civil Civil_From_Unix(std::int64_t s) {
    std::int64_t days = s / 86400;
    std::int64_t rem = s % 86400;
    if (rem < 0) {
        rem += 86400;
        --days;
    }
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto doe = static_cast<unsigned>(days - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    Civil c;
    c.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    c.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    c.year = static_cast<int>(static_cast<std::int64_t>(yoe) + era * 400 + (c.month <= 2));
    c.hour = static_cast<int>(rem / 3600);
    c.minute = static_cast<int>(rem / 60 % 60);
    c.second = static_cast<int>(rem % 60);
    return c;
}

inline std::int64_t Unix_From_Civil(const Civil& c) {
    return Days_From_Civil(c.year, static_cast<unsigned>(c.month), static_cast<unsigned>(c.day)) * 86400 +
           c.hour * 3600 + c.minute * 60 + c.second;
}

}  // namespace trekcom::sim
