// cSAK's parsing helpers and its wait, which must yield and must cost no real
// time on the virtual platform.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>

#include "trekcom/cSAK.h"
#include "trekcom/virtual_platform.h"

using namespace trekcom;

namespace {
using Strings = std::vector<std::string>;

struct SAK : ::testing::Test {
    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    cSAK sak{vp};
};
}  // namespace

TEST_F(SAK, Split) {
    struct Case {
        std::string text, delim;
        std::int32_t limit;
        int compare;
        Strings want;
    } cases[] = {
        {"a,b,c", ",", 100, 0, {"a", "b", "c"}},
        {"a,b,", ",", 100, 0, {"a", "b"}},          // no empty piece after a trailing delimiter
        {",a", ",", 100, 0, {"", "a"}},
        {"a,b,c", ",", 2, 0, {"a", "b"}},           // the rest is dropped, not joined
        {"a,b,c", ",", -1, 0, {}},
        {"", ",", 100, 0, {}},
        {"abc", "", 100, 0, {"abc"}},
        {"aXYbxyc", "xy", 100, 0, {"aXYb", "c"}},
        {"aXYbxyc", "xy", 100, 1, {"a", "b", "c"}},  // text compare ignores case
        {"1édÉ2", "é", 100, 1, {"1", "d", "2"}},      // ... in the wire page too
        {"1ÿ2Ÿ3", "Ÿ", 100, 1, {"1", "2", "3"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(sak.Split(c.text, c.delim, c.limit, c.compare), c.want) << c.text << " / " << c.delim;
}

TEST_F(SAK, SParseStoresEmptyFieldsAsOneSpace) {
    struct Case {
        std::string text;
        Strings want;
    } cases[] = {
        {"a,,b", {"a", " ", "b"}},
        {"a,", {"a", " "}},
        {"", {" "}},
    };
    for (const auto& c : cases) {
        Strings fields{"old", "old", "old", "old", "old"};
        sak.sParse(c.text, fields);
        EXPECT_EQ(fields, c.want) << c.text;
    }
}

TEST_F(SAK, TrimNullTrimsTheCallersTextToo) {
    std::string s = std::string("  AB\0CD  ", 9);
    EXPECT_EQ(sak.TrimNull(s), "AB");
    EXPECT_EQ(s, std::string("AB\0CD", 5));
}

TEST_F(SAK, WaitForUnitsTimersAndMidnight) {
    // One second before midnight: the wait must not hang when the clock of
    // the day wraps, must keep timers running, and must cost no real time.
    auto night = std::make_shared<VirtualPlatform>(86400.0 - 1.0);
    cSAK late(night);
    auto timer = night->Create_Timer();
    int ticks = 0;
    timer->Tick = [&] { ++ticks; };
    timer->Interval(100);
    timer->Enabled(true);
    const auto real_start = std::chrono::steady_clock::now();
    for (auto [delay, ms] : {std::pair{29, 29000.0}, {30, 30.0}, {1000, 1000.0}}) {
        const double t0 = night->Now_ms();
        late.WaitFor(delay);
        EXPECT_NEAR(night->Now_ms() - t0, ms, 1.5) << delay;
    }
    EXPECT_EQ(ticks, 300);
    EXPECT_LT(std::chrono::steady_clock::now() - real_start, std::chrono::seconds(5));
}

TEST_F(SAK, TrigonometryFromArctangents) {
    for (double x : {-1.0, -0.5, 0.0, 0.3, 1.0}) {
        EXPECT_NEAR(sak.acos(x), std::acos(x), 1e-12) << x;
        EXPECT_NEAR(sak.asin(x), std::asin(x), 1e-12) << x;
    }
    EXPECT_DOUBLE_EQ(sak.acos(-1), 4 * std::atan(1.0));
    EXPECT_TRUE(std::isnan(sak.acos(1.5)));
    EXPECT_TRUE(std::isnan(sak.asin(-2)));
}

TEST_F(SAK, PolygonArea) {
    EXPECT_DOUBLE_EQ(sak.PolygonArea({0, 1, 1, 0}, {0, 0, 1, 1}), 1);      // open square
    EXPECT_DOUBLE_EQ(sak.PolygonArea({0, 1, 1, 0, 0}, {0, 0, 1, 1, 0}), 1);  // closed
    EXPECT_DOUBLE_EQ(sak.PolygonArea({0, 4, 0}, {0, 0, 3, 99}), 6);        // extra Y ignored
    EXPECT_DOUBLE_EQ(sak.PolygonArea({}, {}), 0);
    EXPECT_DOUBLE_EQ(sak.PolygonArea({5}, {5}), 0);
    EXPECT_THROW(sak.PolygonArea({0, 1, 1}, {0, 0}), std::invalid_argument);
}

