// The demo: a control on a real pseudo-terminal, a minimal receiver on the
// other end, and the packet trace of a ping and a command going out and their
// acknowledgements coming back.
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <thread>

#include "link/framing.h"
#include "platform/pty.h"
#include "trekcom/trekcom.h"

namespace {

// Acknowledges every frame that the host writes to the master end.
void Receiver(int fd, const std::atomic<bool>& stop) {
    trekcom::Bytes frame;
    bool in_frame = false, dle = false;
    while (!stop) {
        pollfd pfd{fd, POLLIN, 0};
        if (::poll(&pfd, 1, 20) <= 0) continue;
        std::uint8_t buf[256];
        const ssize_t n = ::read(fd, buf, sizeof buf);
        for (ssize_t i = 0; i < n; ++i) {
            const std::uint8_t b = buf[i];
            if (!in_frame) {
                if (b == trekcom::link::DLE) in_frame = true, frame = {b}, dle = false;
            } else if (frame.size() == 1) {
                frame.push_back(b);
            } else if (dle) {
                dle = false;
                if (b != trekcom::link::ETX) {
                    frame.push_back(b);
                    continue;
                }
                in_frame = false;
                if (frame[1] == 6 || frame[1] == 21) continue;
                const auto ack = trekcom::link::Stuff_Packet(trekcom::link::Make_Packet(6, {frame[1], 0}));
                if (::write(fd, ack.data(), ack.size()) < 0) return;
            } else if (b == trekcom::link::DLE) {
                dle = true;
            } else {
                frame.push_back(b);
            }
        }
    }
}

struct Printer : trekcom::TrekcomCtlEvents {
    void HexDebug(std::string& line) override { std::cout << "  " << line << '\n'; }
    void cError(std::int16_t& code, std::string& message, trekcom::Bytes&) override {
        std::cout << "  error " << code << ": " << message << '\n';
    }
};

}  // namespace

int main() {
    std::string error;
    auto pty = trekcom::platform::Pty::Open(error);
    if (!pty) {
        std::cerr << "trekcom-demo: cannot open a pseudo-terminal: " << error << '\n';
        return 1;
    }
    std::atomic<bool> stop{false};
    std::thread receiver(Receiver, pty->Master_Fd(), std::cref(stop));

    trekcom::TrekcomCtl ctl;
    Printer printer;
    ctl.Advise(printer);
    ctl.DebugLog(true);
    ctl.Port_Name(pty->Slave_Path());
    std::cout << "Opening " << pty->Slave_Path() << " at " << ctl.Settings() << '\n';
    int status = 0;
    if (ctl.PortOpen()) {
        std::cout << "Ping (Reset):\n";
        ctl.Reset();
        std::cout << "Command 14, waiting for its ACK:\n";
        ctl.Send(trekcom::link::Make_Packet(10, {14, 0}), 6, 2);
        ctl.PortClose();
    } else {
        status = 1;
    }
    stop = true;
    receiver.join();
    return status;
}
