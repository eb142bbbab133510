// The link over a real pseudo-terminal on the real platform: what the control
// sends arrives framed at the other end, and the receiver's ACK ends the wait.
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "link_fixture.h"
#include "platform/pty.h"

namespace trekcom::testing {
namespace {

// Plays the receiver on the master end: acknowledges every frame it reads.
class Acking_Receiver {
public:
    explicit Acking_Receiver(int fd) : fd_(fd), thread_([this] { Serve(); }) {}
    ~Acking_Receiver() {
        stop_ = true;
        thread_.join();
    }
    std::vector<Bytes> Frames() {
        std::vector<Bytes> copy;
        {
            std::lock_guard lock(mutex_);
            copy = frames_;
        }
        return copy;
    }

private:
    void Serve() {
        Scripted_Receiver deframer;
        deframer.on_packet = [this](const Bytes& p) {
            {
                std::lock_guard lock(mutex_);
                frames_.push_back(p);
            }
            const Bytes ack = link::Stuff_Packet(link::Make_Packet(6, {p[1], 0}));
            if (::write(fd_, ack.data(), ack.size()) < 0) return;
        };
        while (!stop_) {
            pollfd pfd{fd_, POLLIN, 0};
            if (::poll(&pfd, 1, 20) <= 0) continue;
            std::uint8_t buf[256];
            const ssize_t n = ::read(fd_, buf, sizeof buf);
            if (n <= 0) continue;
            deframer.Host_Wrote(Bytes(buf, buf + n));
        }
    }
    int fd_;
    std::atomic<bool> stop_{false};
    std::mutex mutex_;
    std::vector<Bytes> frames_;
    std::thread thread_;
};

TEST(Pty, CommandGoesOutFramedAndTheAckEndsTheWait) {
    std::string error;
    auto pty = platform::Pty::Open(error);
    ASSERT_TRUE(pty) << error;
    auto real = Default_Platform();
    TrekcomCtl ctl(real);
    Recorder rec;
    ctl.Advise(rec);
    ctl.DebugLog(true);
    ctl.Port_Name(pty->Slave_Path());
    ctl.Settings("115200,N,8,1");
    ASSERT_TRUE(ctl.PortOpen());
    Acking_Receiver receiver(pty->Master_Fd());

    const Bytes command = link::Make_Packet(10, {0x10, 0});  // a 16 in the data: stuffed on the wire
    ctl.Send(command, 6, 2);
    EXPECT_TRUE(rec.errors.empty());
    ASSERT_EQ(receiver.Frames().size(), 1u);
    EXPECT_EQ(receiver.Frames()[0], command);
    ASSERT_EQ(rec.received.size(), 1u);
    EXPECT_EQ(rec.received[0], link::Make_Packet(6, {10, 0}));
    // One line out, one line in.
    ASSERT_GE(rec.debug.size(), 2u);
    EXPECT_EQ(rec.debug[0], "PC -\u00BB GPS 10 0A 02 10 00 E4 10 03 ");
    EXPECT_EQ(rec.debug[1].rfind("PC \u00AB- GPS (", 0), 0u);
    ctl.PortClose();
}

}  // namespace
}  // namespace trekcom::testing
