// Collections are 1-based and share their elements. (A collection of 100,000
// track points is filled end to end in records_e2e.)
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
}
