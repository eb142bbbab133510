// The real platform over pty pairs: the test plays the device on the master
// end, the port under test opens the slave as it would open /dev/ttyUSB0.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/line_speed.h"
#include "platform/pty.h"
#include "trekcom/platform.h"

using namespace trekcom;
using trekcom::platform::Pty;

namespace {

void Write_Master(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        ASSERT_GT(n, 0) << "write to the pty master failed";
        done += static_cast<std::size_t>(n);
    }
}

// Reads until `count` bytes came or nothing more arrives for a second.
std::string Read_Master(int fd, std::size_t count) {
    std::string got;
    while (got.size() < count) {
        pollfd pfd{fd, POLLIN, 0};
        if (::poll(&pfd, 1, 1000) <= 0) break;
        char buffer[512];
        const ssize_t n = ::read(fd, buffer, std::min(sizeof buffer, count - got.size()));
        if (n <= 0) break;
        got.append(buffer, static_cast<std::size_t>(n));
    }
    return got;
}

class RealPlatformLine : public testing::Test {
protected:
    void SetUp() override {
        std::string error;
        pty = Pty::Open(error);
        ASSERT_TRUE(pty) << error;
        port = platform->Create_Serial_Port();
        port->Port_Name(pty->Slave_Path());
    }

    void Open(const std::string& settings = "9600,N,8,1") {
        port->Settings(settings);
        port->PortOpen(true);
        ASSERT_TRUE(port->PortOpen()) << port->Last_Error();
    }

    void Expect_Line_Speed(std::uint32_t baud) {
        std::uint32_t out = 0, in = 0;
        if (!trekcom_test::Read_Line_Speed(pty->Master_Fd(), out, in)) GTEST_SKIP() << "no termios2 here";
        EXPECT_EQ(out, baud);
        EXPECT_EQ(in, baud);
    }

    std::shared_ptr<Platform> platform = Default_Platform();
    std::optional<Pty> pty;
    std::unique_ptr<SerialPort> port;
};

}  // namespace

TEST_F(RealPlatformLine, EveryByteValuePassesBothWaysUnchanged) {
    Open();
    std::string all;
    for (int i = 0; i < 256; ++i) all += static_cast<char>(i);

    // Host to device: no CR/LF translation, nothing swallowed.
    port->Output(all);
    EXPECT_EQ(Read_Master(pty->Master_Fd(), all.size()), all);

    // Device to host, through OnComm: XON/XOFF, ^C and DLE arrive as data.
    std::string got;
    int events = 0;
    bool other_event = false;
    port->RThreshold(1);
    port->OnComm = [&] {
        ++events;
        if (port->CommEvent() != SerialPort::comEvReceive) other_event = true;
        got += port->Input();
    };
    Write_Master(pty->Master_Fd(), all);
    EXPECT_TRUE(platform->Run_Until([&] { return got.size() >= all.size(); }, 2000));
    EXPECT_EQ(got, all);
    EXPECT_GE(events, 1);
    EXPECT_FALSE(other_event);
}

TEST_F(RealPlatformLine, InputWithoutOnComm) {
    Open();
    int events = 0;
    port->OnComm = [&] { ++events; };

    // RThreshold 0: the loop moves bytes but never raises OnComm.
    port->RThreshold(0);
    Write_Master(pty->Master_Fd(), "abc");
    platform->Run_Until([] { return false; }, 50);
    EXPECT_EQ(events, 0);
    EXPECT_EQ(port->Input(), "abc");

    // A receive loop that polls the port without yielding still sees bytes
    // arrive: InBufferCount collects from the device itself.
    Write_Master(pty->Master_Fd(), "xyz");
    int count = 0;
    for (int i = 0; i < 1000 && count < 3; ++i) {
        count = port->InBufferCount();
        if (count < 3) ::usleep(1000);
    }
    EXPECT_EQ(count, 3);
    port->InputLen(2);
    EXPECT_EQ(port->Input(), "xy");
    EXPECT_EQ(port->InBufferCount(), 1);
    port->InBufferCount(0);
    EXPECT_EQ(port->InBufferCount(), 0);
    EXPECT_EQ(events, 0);
}

TEST_F(RealPlatformLine, ClosedPortReopensAndIsExclusiveMeanwhile) {
    Open();
    if (::geteuid() != 0) {
        // Root may open an exclusive line anyway, so only others can check this.
        auto intruder = platform->Create_Serial_Port();
        intruder->Port_Name(pty->Slave_Path());
        intruder->PortOpen(true);
        EXPECT_FALSE(intruder->PortOpen());
        EXPECT_FALSE(intruder->Last_Error().empty());
    }
    port->PortOpen(false);
    Open();  // the exclusive flag must not outlive our close
    port->Output("ok");
    EXPECT_EQ(Read_Master(pty->Master_Fd(), 2), "ok");
}

TEST_F(RealPlatformLine, EveryRateOfTheBaudListReallyApplies) {
    // 28800 has no termios code on Linux: opening at it is the hard case.
    Open("28800,N,8,1");
    Expect_Line_Speed(28800);
    for (std::uint32_t baud : {4800u, 9600u, 19200u, 28800u, 38400u, 57600u, 115200u, 28800u, 9600u}) {
        SCOPED_TRACE(baud);
        port->Settings(std::to_string(baud) + ",N,8,1");
        EXPECT_EQ(port->Last_Error(), "");
        Expect_Line_Speed(baud);
    }
    // Re-applying the line for a modem-line change keeps an unusual rate.
    port->Settings("28800,N,8,1");
    port->RTSEnable(true);
    port->DTREnable(true);
    port->Handshaking(Handshaking_Values::comNone);
    EXPECT_EQ(port->Last_Error(), "");
    Expect_Line_Speed(28800);
}

TEST_F(RealPlatformLine, BadSettingsAndMissingDevicesFailWithAMessage) {
    for (const char* settings : {"fast,N,8,1", "9600,X,8,1", "9600,N,9,1", "9600,N,8,3", ""}) {
        SCOPED_TRACE(settings);
        port->Settings(settings);
        EXPECT_NO_THROW(port->PortOpen(true));
        EXPECT_FALSE(port->PortOpen());
        EXPECT_NE(port->Last_Error().find("settings"), std::string::npos) << port->Last_Error();
    }

    // A bad text on an open port is refused and the line keeps its rate.
    Open("19200,N,8,1");
    EXPECT_NO_THROW(port->Settings("19200,N,8,x"));
    EXPECT_TRUE(port->PortOpen());
    EXPECT_FALSE(port->Last_Error().empty());
    Expect_Line_Speed(19200);
    port->PortOpen(false);

    // No such line, and not a terminal at all.
    auto missing = platform->Create_Serial_Port();
    for (const std::string path : {"/dev/trekcom-no-such-line", "/dev/null"}) {
        missing->Port_Name(path);
        EXPECT_NO_THROW(missing->PortOpen(true));
        EXPECT_FALSE(missing->PortOpen());
        const std::string said = missing->Last_Error();
        EXPECT_TRUE(!said.empty() && (path == "/dev/null" || said.find(path) != std::string::npos)) << said;
    }
}

TEST_F(RealPlatformLine, DeviceEndClosingGivesOneLineErrorAndNoSpin) {
    Open();
    port->RThreshold(1);
    int line_errors = 0;
    port->OnComm = [&] {
        if (port->CommEvent() == SerialPort::comEventFrame) ++line_errors;
        port->Input();
    };
    pty->Close_Master();

    // A spinning loop would return from every wait at once and ask the
    // predicate thousands of times; a quiet one sleeps through.
    int asked = 0;
    platform->Run_Until([&] { return ++asked, false; }, 300);
    EXPECT_EQ(line_errors, 1);
    EXPECT_LT(asked, 50);
    EXPECT_FALSE(port->Last_Error().empty());

    // Polling and writing the dead line report nothing more.
    EXPECT_EQ(port->InBufferCount(), 0);
    EXPECT_NO_THROW(port->Output("x"));
    platform->Run_Until([] { return false; }, 50);
    EXPECT_EQ(line_errors, 1);
    EXPECT_TRUE(port->PortOpen());
}

TEST_F(RealPlatformLine, HandlersMayPumpAgain) {
    Open();
    auto timer = platform->Create_Timer();
    timer->Interval(10);
    int ticks = 0;
    timer->Tick = [&] {
        ++ticks;
        timer->Enabled(false);
        Write_Master(pty->Master_Fd(), "b");
        platform->DoEvents();  // a pump inside a Tick inside OnComm
        platform->DoEvents();
    };
    std::string got;
    int depth = 0, deepest = 0;
    port->RThreshold(1);
    port->OnComm = [&] {
        deepest = std::max(deepest, ++depth);
        got += port->Input();
        if (got == "a") {
            // Wait inside the handler for what the timer makes the device send.
            timer->Enabled(true);
            EXPECT_TRUE(platform->Run_Until([&] { return port->InBufferCount() > 0; }, 2000));
            got += port->Input();
        }
        --depth;
    };
    Write_Master(pty->Master_Fd(), "a");
    EXPECT_TRUE(platform->Run_Until([&] { return got == "ab"; }, 2000)) << got;
    EXPECT_EQ(deepest, 1);  // OnComm never re-entered
    EXPECT_EQ(ticks, 1);

    // The loop still delivers after the nested waits.
    Write_Master(pty->Master_Fd(), "c");
    EXPECT_TRUE(platform->Run_Until([&] { return got == "abc"; }, 2000)) << got;
}
