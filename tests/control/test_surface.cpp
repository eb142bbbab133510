// The property, method and event surface as a host sees it: defaults, the
// read-only rule, the order of events and what handlers write back, the life
// cycle, and the requests this library can only refuse.
#include <functional>

#include "host.h"

namespace host_test {
namespace {

TEST(Surface, AFreshControlStartsFromItsDefaultsWhateverAnEarlierOneWasGiven) {
    auto vp = std::make_shared<VirtualPlatform>();
    {
        TrekcomCtl earlier(vp);
        earlier.Port(7);
        earlier.Settings("4800,N,8,1");
        earlier.Time_Out(4000);
        earlier.Language("Klingon");
        earlier.IgnoreCheckSum(true);
        earlier.UserFlowControl(true);
        earlier.DebugLog(true);
        earlier.RTSEnable(true);
        earlier.DTREnable(true);
        earlier.Handshaking(Handshaking_Values::comRTS);
        earlier.Palette_File("/tmp/palette");
        earlier.Display()->Width = 99;
    }
    TrekcomCtl ctl(vp);
    EXPECT_EQ(ctl.Port(), 1);
    EXPECT_EQ(ctl.Settings(), "9600,N,8,1");
    EXPECT_EQ(ctl.Time_Out(), 2000);
    EXPECT_EQ(ctl.Language(), "English");
    EXPECT_FALSE(ctl.IgnoreCheckSum());
    EXPECT_FALSE(ctl.UserFlowControl());
    EXPECT_FALSE(ctl.DebugLog());
    EXPECT_FALSE(ctl.RTSEnable());
    EXPECT_FALSE(ctl.DTREnable());
    EXPECT_EQ(ctl.Handshaking(), Handshaking_Values::comNone);
    EXPECT_EQ(ctl.Palette_File(), "");
    EXPECT_FALSE(ctl.version().empty());
    EXPECT_EQ(ctl.Incoming_Records_Count(), 0);
    EXPECT_EQ(ctl.PID_Wpt_Data(), 35);  // link protocol L001 until a receiver says otherwise
    EXPECT_EQ(ctl.CMND_Transfer_Wpt(), 7);
    ASSERT_NE(ctl.Display(), nullptr);
    EXPECT_EQ(ctl.Display()->Width, 0);
    EXPECT_TRUE(ctl.Display()->Pixels.empty());
    ASSERT_NE(ctl.Product_Data(), nullptr);
}

// ---------------------------------------------------------------- read-only

// A read-only property refuses, with 383 in the current language, and keeps
// its value: a setter that took one would let a host overwrite what the
// receiver said.
TEST(Surface, AReadOnlyPropertyRefusesInTheCurrentLanguageAndKeepsItsValue) {
    Scratch_Folder folder;
    Host h;
    h.vp->Translation_Folder(folder.path.string());
    auto refusal = [&](const std::function<void()>& assign) {
        try {
            assign();
        } catch (const RuntimeError& e) {
            return std::to_string(e.Number()) + " " + e.what();
        }
        return std::string("accepted");
    };
    const std::string format = h.ctl.Waypoint_Data_Format();
    EXPECT_EQ(refusal([&] { h.ctl.Waypoint_Data_Format("X"); }), "383 Property is Read Only");
    EXPECT_EQ(refusal([&] { h.ctl.PID_Expanded_Lengh(1); }), "383 Property is Read Only");
    EXPECT_EQ(h.ctl.Waypoint_Data_Format(), format);
    h.ctl.Language("Deutsch");
    h.ctl.xLate("Property is Read Only");  // puts the phrase into the file
    const auto file = std::filesystem::directory_iterator(folder.path)->path();
    Write_File(file, "[Translations]\nProperty is Read Only=Eigenschaft ist schreibgeschützt\n");
    EXPECT_EQ(refusal([&] { h.ctl.version("x"); }), "383 Eigenschaft ist schreibgeschützt");
}

// With no sink advised the control raises nothing and works all the same;
// objects a host set to null are given back fresh, and filled.
TEST(Surface, WithoutASinkOrWithNullObjectsTheControlWorksAllTheSame) {
    auto unit = std::make_shared<sim::Virtual_Unit>();
    Host h(unit);
    h.ctl.Unadvise();
    h.ctl.DebugLog(true);
    h.ctl.Product_Data(nullptr);
    h.ctl.Counts(nullptr);
    ASSERT_NE(h.ctl.Product_Data(), nullptr);
    ASSERT_NE(h.ctl.Counts(), nullptr);
    h.ctl.Request_Counts();
    EXPECT_EQ(h.ctl.Counts()->Waypoint_Records, static_cast<std::int16_t>(unit->Sim().Data().waypoints.size()));
    EXPECT_EQ(h.ctl.Product_Data()->Product_ID, unit->Sim().Unit_Profile().product_id);
    unit->Sim().Set_Mode(sim::Output_Mode::nmea);
    h.ctl.Settings("4800,N,8,1");
    h.Run(3000);
    EXPECT_TRUE(h.events.order.empty());
}

// ---------------------------------------------------------------- writable

TEST(Surface, TimeOutOutsideItsRangeBecomes2000WithAMessageBox) {
    Host h;
    std::vector<std::string> boxes;
    h.vp->Message_Box_Handler([&](const std::string& text) { boxes.push_back(text); });
    for (std::int16_t kept : {2000, 3456, 5000}) {
        h.ctl.Time_Out(kept);
        EXPECT_EQ(h.ctl.Time_Out(), kept);
    }
    EXPECT_TRUE(boxes.empty());
    for (std::int16_t bad : {1999, 5001, -1, 0}) {
        h.ctl.Time_Out(4000);
        h.ctl.Time_Out(bad);
        EXPECT_EQ(h.ctl.Time_Out(), 2000) << bad;
    }
    ASSERT_EQ(boxes.size(), 4u);
    EXPECT_EQ(boxes[0], "Time out must be from 2000 to 5000 ms. Set to 2000 ms");
    EXPECT_TRUE(h.events.errors.empty());
}

TEST(Surface, SitingPutsTheLanguageBackToEnglish) {
    Scratch_Folder folder;
    Host h;
    h.vp->Translation_Folder(folder.path.string());
    h.ctl.Language("Francais");
    h.ctl.xLate("USB connection failure");
    const auto file = std::filesystem::directory_iterator(folder.path)->path();
    Write_File(file, "[Translations]\nUSB connection failure=Echec de la connexion USB\n");
    EXPECT_EQ(h.ctl.xLate("USB connection failure"), "Echec de la connexion USB");
    h.ctl.Site();
    EXPECT_EQ(h.ctl.Language(), "English");
    EXPECT_EQ(h.ctl.xLate("USB connection failure"), "USB connection failure");
}

// (Their rules are cSAK's, checked in records/.)
TEST(Surface, UtilityMethodsAreTheUtilityObjects) {
    auto vp = std::make_shared<VirtualPlatform>();
    TrekcomCtl ctl(vp);
    std::string a("  ABC\0def  ", 11);
    EXPECT_EQ(ctl.TrimNull(a), "ABC");
    ctl.WaitFor(500);
    EXPECT_NEAR(vp->Now_ms(), 500, 5);
}

// ---------------------------------------------------------------- events

TEST(Surface, EachPacketIsTracedAcknowledgedThenRaisedAsReceiveThenVcReceive) {
    auto unit = std::make_shared<sim::Virtual_Unit>(sim::Profile::Named("current"));
    Host h(unit);
    h.ctl.DebugLog(true);
    ASSERT_TRUE(h.ctl.PortOpen());
    h.ctl.Request_Product_Data();
    h.Run(500);
    ASSERT_GE(h.events.received.size(), 2u);  // product data and the capability array
    EXPECT_TRUE(h.events.errors.empty());

    // Walk the events: before each Receive, the incoming trace line of the
    // same bytes, then the ACK going out; vcReceive right after it.
    const auto& order = h.events.order;
    std::size_t debug_i = 0, receive_i = 0;
    std::string last_in, last_out;
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (order[i] == "HexDebug") {
            const std::string& line = h.events.debug[debug_i++];
            (line.starts_with("PC \u00AB- GPS") ? last_in : last_out) = line;
        } else if (order[i] == "Receive") {
            const Bytes& p = h.events.received[receive_i++];
            char hex[4];
            std::string bytes;
            for (std::uint8_t b : p) {
                std::snprintf(hex, sizeof hex, "%02X ", b);
                bytes += hex;
            }
            EXPECT_TRUE(last_in.ends_with(" ms) " + bytes)) << last_in;
            if (p[1] != 6) {
                char ack[32];
                std::snprintf(ack, sizeof ack, "10 06 02 %02X 00 ", p[1]);
                EXPECT_NE(last_out.find(ack), std::string::npos) << last_out;
            }
            ASSERT_LT(i + 1, order.size());
            EXPECT_EQ(order[i + 1], "vcReceive");
        }
    }
    EXPECT_EQ(receive_i, h.events.received.size());
}

// Handlers change their arguments: the twin event raised after them sees it.
struct Rewriting_Events : Events {
    Rewriting_Events() { twins_match = false; }
    void Receive(Bytes& p) override {
        Events::Receive(p);
        p.push_back(0xEE);
        received.back() = p;
    }
    void cError(std::int16_t& c, std::string& m, Bytes& p) override {
        Events::cError(c, m, p);
        c = 42;
        m += "!";
        p = {1, 2, 3};
    }
};

TEST(Surface, WhatAHandlerWritesIntoItsArgumentsReachesTheTwinEvent) {
    auto vp = std::make_shared<VirtualPlatform>();
    vp->Missing_Port(3);
    auto device = std::make_shared<Line_Device>();
    vp->Attach(1, device);
    TrekcomCtl ctl(vp);
    Rewriting_Events ev;
    ctl.Advise(ev);
    ctl.Port(3);
    EXPECT_FALSE(ctl.PortOpen());
    ASSERT_EQ(ev.errors.size(), 1u);
    ASSERT_EQ(ev.vc_errors.size(), 1u);
    EXPECT_EQ(ev.errors[0].code, 0);
    EXPECT_EQ(ev.errors[0].message, "Unable to open port 3");
    EXPECT_EQ(ev.vc_errors[0].code, 42);
    EXPECT_EQ(ev.vc_errors[0].message, "Unable to open port 3!");
    EXPECT_EQ(ev.vc_errors[0].packet, (Bytes{1, 2, 3}));
    EXPECT_EQ(ev.order, (std::vector<std::string>{"cError", "vcError"}));

    // vcReceive checks itself against what Receive left.
    ctl.Port(1);
    ASSERT_TRUE(ctl.PortOpen());
    const Bytes ack{16, 6, 2, 10, 0, 0xEE, 16, 3};
    device->line->Send(ack);
    vp->Advance(50);
    ASSERT_EQ(ev.received.size(), 1u);
    EXPECT_EQ(ev.received[0].back(), 0xEE);
}

// ---------------------------------------------------------------- life cycle

TEST(Surface, DestroyingTheControlClosesItsPortAndStopsItsTimers) {
    auto vp = std::make_shared<VirtualPlatform>();
    auto device = std::make_shared<Line_Device>();
    VirtualLine& line = vp->Attach("gps", device);
    Events ev;
    {
        TrekcomCtl ctl(vp);
        ctl.Advise(ev);
        ctl.Port_Name("gps");
        ASSERT_TRUE(ctl.PortOpen());
        ctl.Send({16, 10, 2, 0, 0, 0, 16, 3}, 2);  // arms the watchdog, nobody answers
        EXPECT_TRUE(line.Host_Open());
    }
    EXPECT_FALSE(line.Host_Open());
    const auto events_before = ev.order.size();
    vp->Advance(10000);  // a live watchdog would re-send and report now
    EXPECT_EQ(ev.order.size(), events_before);
}

// ---------------------------------------------------------------- screen, icons, name

TEST(Surface, IconRequestsAndARenameSendNothingAndSaySo) {
    auto device = std::make_shared<Line_Device>();
    Host h(device);
    ASSERT_TRUE(h.ctl.PortOpen());
    std::vector<std::string> filters;
    h.vp->File_Dialog_Handler([&](const std::string& filter) {
        filters.push_back(filter);
        return std::string();  // the user cancels
    });
    h.ctl.Request_Icon(3);
    h.ctl.Send_Icon(3, Bytes(40, 0xAA));
    h.ctl.Change_GPS_Name("MY GPS");
    h.Run(5000);
    EXPECT_TRUE(device->written.empty());
    ASSERT_EQ(h.events.errors.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(h.events.errors[i].code, 0);
        EXPECT_TRUE(h.events.errors[i].packet.empty());
    }
    EXPECT_NE(h.events.errors[2].message.find("nothing was sent"), std::string::npos);
    h.ctl.Request_Display();
    // The capture offered the log replay first, with the log filter.
    ASSERT_EQ(filters.size(), 1u);
    EXPECT_EQ(filters[0], "Log Files (*.log,*.txt)|*.log;*.txt|All Files|*.*");
}

}  // namespace
}  // namespace host_test
