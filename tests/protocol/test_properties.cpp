// Read-only properties refuse assignment with error 383 and keep their value.
// The pairs come from one macro, so one of each kind stands for the rest.
#include <functional>

#include "protocol_fixture.h"

namespace trekcom::testing {
namespace {

TEST(ReadOnlyProperties, SettersRaise383AndKeepTheValue) {
    TrekcomCtl ctl(std::make_shared<VirtualPlatform>());
    const std::pair<const char*, std::function<void()>> setters[] = {
        {"PID_Wpt_Data", [&] { ctl.PID_Wpt_Data(99); }},
        {"CMND_Transfer_Wpt", [&] { ctl.CMND_Transfer_Wpt(99); }},
        {"PID_Expanded_Lengh", [&] { ctl.PID_Expanded_Lengh(99); }},
        {"Waypoint_Data_Format", [&] { ctl.Waypoint_Data_Format("D999"); }},
        {"Link_Protocol", [&] { ctl.Link_Protocol("L002"); }},
        {"Incoming_Records_Count", [&] { ctl.Incoming_Records_Count(99); }},
    };
    for (const auto& [name, assign] : setters) {
        try {
            assign();
            ADD_FAILURE() << name << " accepted a value";
        } catch (const RuntimeError& e) {
            EXPECT_EQ(e.Number(), 383) << name;
            EXPECT_STREQ(e.what(), "Property is Read Only") << name;
        }
    }
    EXPECT_EQ(ctl.PID_Wpt_Data(), 35);
    EXPECT_EQ(ctl.CMND_Transfer_Wpt(), 7);
    EXPECT_EQ(ctl.PID_Expanded_Length(), 0);
    EXPECT_EQ(ctl.Waypoint_Data_Format(), "D100");
    EXPECT_EQ(ctl.Link_Protocol(), "L001");
    EXPECT_EQ(ctl.Incoming_Records_Count(), 0);
}

}  // namespace
}  // namespace trekcom::testing
