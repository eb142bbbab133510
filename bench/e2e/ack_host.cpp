// The least a host can do on a stop-and-wait line: ask for the tracks, then
// acknowledge each frame the moment its last byte is read, and nothing else.
// Its time against the paced simulator is what the pty itself allows; a
// real host's time is measured against it.
//
//     ack_host PORT        exits 0 after the transfer-complete packet
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "link/framing.h"
#include "link/packet_ids.h"
#include "deframer.h"  // the simulated unit's own reading of a byte stream

namespace {

using namespace trekcom;

bool Write_All(int fd, const Bytes& packet) {
    const Bytes wire = link::Stuff_Packet(packet);
    for (std::size_t done = 0; done < wire.size();) {
        const ssize_t n = ::write(fd, wire.data() + done, wire.size() - done);
        if (n < 0 && errno != EINTR) return false;
        if (n > 0) done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: ack_host PORT\n");
        return 2;
    }
    const int fd = ::open(argv[1], O_RDWR | O_NOCTTY);
    if (fd < 0) {
        std::perror(argv[1]);
        return 1;
    }
    termios tio{};
    ::tcgetattr(fd, &tio);
    ::cfmakeraw(&tio);
    ::tcsetattr(fd, TCSANOW, &tio);

    const link::Packet_Ids ids;
    if (!Write_All(fd, link::Make_Packet(ids.PID_Command_Data, {ids.CMND_Transfer_Trk, 0}))) return 1;
    int result = -1;
    sim::Deframer frames([&](const sim::Deframer::Frame& f) {
        if (result >= 0 || !f.good || f.id == ids.PID_Ack_Byte) return;
        if (!Write_All(fd, link::Make_Packet(ids.PID_Ack_Byte, {f.id, 0}))) result = 1;
        else if (f.id == ids.PID_Xfer_Cmplt) result = 0;
    });
    char chunk[4096];
    while (result < 0) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n <= 0) return 1;
        frames.Feed(Bytes(chunk, chunk + n));
    }
    return result;
}
