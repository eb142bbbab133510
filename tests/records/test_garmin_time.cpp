// Times are pure calendar arithmetic: the same answers under any time zone
// and locale, which the fixture sets to unusual ones on purpose.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <locale>

#include "records/garmin_time.h"

using namespace trekcom::records;

namespace {
class GarminTime : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "Pacific/Chatham", 1);  // +12:45 / +13:45 with daylight saving
        tzset();
        for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C.UTF-8"}) {
            try {
                std::locale::global(std::locale(name));
                break;
            } catch (const std::runtime_error&) {
            }
        }
    }
    void TearDown() override {
        std::locale::global(std::locale::classic());
        unsetenv("TZ");
        tzset();
    }
};
}  // namespace

TEST_F(GarminTime, RoundTrips) {
    constexpr auto kMin = std::numeric_limits<std::int32_t>::min();
    constexpr auto kMax = std::numeric_limits<std::int32_t>::max();
    struct Case {
        std::int32_t seconds;
        const char* text;
    } cases[] = {
        {0, "1989/12/31-00:00:00"},
        {86400, "1990/01/01-00:00:00"},
        {-1, "1989/12/30-23:59:59"},         // FFFFFFFF on the wire
        {1, "1989/12/31-00:00:01"},
        {320716800, "2000/02/29-00:00:00"},  // leap day of a century year
        {1234567890, "2029/02/12-23:31:30"},
        {kMax, "2058/01/18-03:14:07"},
        {kMin, "1921/12/12-20:45:52"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Seconds2Time(c.seconds), c.text) << c.seconds;
        EXPECT_EQ(Time2Seconds(c.text), c.seconds) << c.text;
    }
}

TEST_F(GarminTime, LenientButStrictAboutImpossibleDatesAndTheNumberWins) {
    EXPECT_EQ(Time2Seconds("1990/01/01"), 86400);            // no clock: midnight
    EXPECT_EQ(Time2Seconds("1990-01-01 00:01"), 86460);      // '-' dates, clock without seconds
    EXPECT_EQ(Time2Seconds("1990/1/1   1:2:3"), 86400 + 3723);
    for (const char* bad : {"", "garbage", "1990/13/01-00:00:00", "1990/04/31-00:00:00", "1990/02/29-00:00:00",
                            "1990/01/01-24:00:00", "1990/01/01-12:60:00", "1990/01/01-12:00:60", "90/01/01-00:00:00",
                            "1990/01/01-12", "1990/01/01-12:00:00x", "2058/01/18-03:14:08", "1921/12/12-20:45:51"})
        EXPECT_EQ(Time2Seconds(bad), 0) << bad;
    // On the wire, the number wins when set.
    EXPECT_EQ(Wire_Time(5, "2000/01/01-00:00:00"), 5);
    EXPECT_EQ(Wire_Time(0, "1990/01/01-00:00:00"), 86400);
    EXPECT_EQ(Wire_Time(-1, ""), -1);
}
