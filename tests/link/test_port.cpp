// Opening the port, the baud search and the baud change against receivers
// that only hear their own rate.
#include "link_fixture.h"

namespace trekcom::testing {
namespace {

// Acknowledges pings at its own rate; answers a baud request with the rate
// and moves to it once the answer is on its way (unless it is stubborn).
struct Baud_Receiver : Scripted_Receiver {
    std::int32_t baud;
    std::int32_t next_baud = 0;
    bool stubborn = false;
    explicit Baud_Receiver(std::int32_t rate) : baud(rate) {
        on_packet = [this](const Bytes& p) {
            if (p[1] == 48 && p.size() >= 10) {
                const std::int32_t asked = p[3] | p[4] << 8 | p[5] << 16 | p[6] << 24;
                Send(Packet(49, {p[3], p[4], p[5], p[6]}));
                if (!stubborn) {
                    next_baud = asked;
                    line->Wake_At(line->Now_ms() + reply_delay_ms + 1);
                }
            } else {
                Ack(p[1]);
            }
        };
    }
    void Attached(VirtualLine& l) override {
        Scripted_Receiver::Attached(l);
        l.Device_Baud(baud);
    }
    void Wake() override {
        if (next_baud) line->Device_Baud(next_baud);
    }
};

// Talks NMEA at 4800 baud, a sentence every 100 ms, and never answers pings.
struct Nmea_Receiver : VirtualDevice {
    VirtualLine* line = nullptr;
    void Attached(VirtualLine& l) override {
        line = &l;
        l.Device_Baud(4800);
        l.Wake_At(100);
    }
    void Host_Wrote(const Bytes&) override {}
    void Wake() override {
        const std::string s = "$GPGLL,4916.45,N,12311.12,W,225444,A*31\r\n";
        line->Send(Bytes(s.begin(), s.end()));
        line->Wake_At(line->Now_ms() + 100);
    }
};

class Port_Test : public Link_Test {
protected:
    template <typename Device>
    std::shared_ptr<Device> Use(std::shared_ptr<Device> d) {
        vp->Attach(1, d);
        return d;
    }
};

TEST_F(Port_Test, FindBaudTriesEveryRateUntilTheReceiverAnswers) {
    Use(std::make_shared<Baud_Receiver>(38400));
    std::string settings = "9600,N,8,1";
    EXPECT_EQ(ctl.FindBaud(settings), 38400);
    EXPECT_EQ(ctl.Settings(), "38400,N,8,1");
    EXPECT_NE(std::find(rec.debug.begin(), rec.debug.end(), "Negotiating Baud Rate"), rec.debug.end());
    EXPECT_TRUE(rec.errors.empty());
    // The given settings are tried first and win at once when they answer.
    settings = "38400,N,8,1";
    const double start = vp->Now_ms();
    EXPECT_EQ(ctl.FindBaud(settings), 38400);
    EXPECT_LT(vp->Now_ms() - start, 200);
}

TEST_F(Port_Test, FindBaudStopsAtAReceiverTalkingNmeaAt4800) {
    Use(std::make_shared<Nmea_Receiver>());
    std::string settings = "9600,N,8,1";
    EXPECT_EQ(ctl.FindBaud(settings), 4800);
    EXPECT_EQ(ctl.Settings(), "4800,N,8,1");
    EXPECT_TRUE(rec.errors.empty());
}

TEST_F(Port_Test, FindBaudWithNoReceiverReportsOnceAndFallsBackTo9600) {
    Use(std::make_shared<Baud_Receiver>(1200));  // a rate the search never tries
    std::string settings = "9600,N,8,1";
    EXPECT_EQ(ctl.FindBaud(settings), 9600);
    ASSERT_EQ(rec.errors.size(), 1u);
    EXPECT_EQ(rec.errors[0].code, 0);
    EXPECT_EQ(rec.errors[0].message,
              "Can't determine present GPS baud rate.\r\nPower GPS off/on to reset to 9600,N,8,1");
    EXPECT_TRUE(rec.errors[0].packet.empty());
    EXPECT_EQ(ctl.Settings(), "9600");
    EXPECT_TRUE(ctl.PortOpen());  // and the port runs at it
}

TEST_F(Port_Test, ChangeBaudRateMovesBothEndsOrRestoresTheOldSettings) {
    auto receiver = Use(std::make_shared<Baud_Receiver>(9600));
    Open();
    EXPECT_TRUE(ctl.Change_Baud_Rate(57600));
    EXPECT_EQ(ctl.Settings(), "57600,N,8,1");
    EXPECT_EQ(receiver->frames.front(), Packet(48, {0x00, 0xE1, 0x00, 0x00}));
    // A receiver that stays where it is: still talking at the old rate.
    receiver->stubborn = true;
    EXPECT_FALSE(ctl.Change_Baud_Rate(115200));
    EXPECT_EQ(ctl.Settings(), "57600,N,8,1");
    ctl.Reset();
    EXPECT_TRUE(rec.errors.empty());
}

TEST_F(Port_Test, PortPropertiesTakeEffectAtTheNextOpen) {
    Open();
    ctl.Settings("19200,N,8,1");
    EXPECT_EQ(device->line->Host_Settings(), "9600,N,8,1");
    Open();
    EXPECT_EQ(device->line->Host_Settings(), "19200,N,8,1");
    ctl.PortClose();
    EXPECT_FALSE(device->line->Host_Open());
}

}  // namespace
}  // namespace trekcom::testing
