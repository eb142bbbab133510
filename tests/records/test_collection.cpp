// Collections are 1-based, share their elements, and stay cheap at the size
// of a big track log.
#include <gtest/gtest.h>

#include "trekcom/records.h"

using namespace trekcom;

TEST(Collection, OneBasedItemsAndBadIndexes) {
    Collection<cWaypoint> c;
    for (const char* id : {"A", "B", "C"}) {
        auto w = std::make_shared<cWaypoint>();
        w->Ident = id;
        c.Add(w);
    }
    EXPECT_EQ(c.Item(1)->Ident, "A");
    EXPECT_EQ(c.Item(3)->Ident, "C");
    for (std::int32_t bad : {0, 4, -1, std::numeric_limits<std::int32_t>::min()}) {
        EXPECT_THROW(c.Item(bad), std::out_of_range) << bad;
        EXPECT_THROW(c.Remove(bad), std::out_of_range) << bad;
    }
    c.Remove(2);
    ASSERT_EQ(c.Count(), 2);
    EXPECT_EQ(c.Item(2)->Ident, "C");
    std::string seen;
    for (const auto& w : c) seen += w->Ident;
    EXPECT_EQ(seen, "AC");
    c.Clear();
    EXPECT_EQ(c.Count(), 0);
    EXPECT_THROW(c.Item(1), std::out_of_range);
}

TEST(Collection, ARecordInTwoCollectionsIsOneObject) {
    cRoute route;
    EXPECT_EQ(route.Waypoints, nullptr);  // a fresh record holds no collection yet
    route.Waypoints = std::make_shared<Collection<cWaypoint>>();
    Collection<cWaypoint> all;
    auto w = std::make_shared<cWaypoint>();
    all.Add(w);
    route.Waypoints->Add(w);
    all.Item(1)->Lat = 45.5;
    EXPECT_EQ(route.Waypoints->Item(1)->Lat, 45.5);
}

TEST(Collection, AHundredThousandTrackPoints) {
    Collection<cTrack> c;
    for (int i = 0; i < 100000; ++i) {
        auto t = std::make_shared<cTrack>();
        t->Seconds = i;
        c.Add(std::move(t));
    }
    ASSERT_EQ(c.Count(), 100000);
    EXPECT_EQ(c.Item(100000)->Seconds, 99999);
}
