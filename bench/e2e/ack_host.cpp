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
#include <string>

#include "link/framing.h"
#include "link/packet_ids.h"

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

// The end of the first frame in buf (one past its ETX), or 0: a DLE ETX ends
// it unless the DLE is the second of a doubled pair.
std::size_t Frame_End(const std::string& buf) {
    for (std::size_t i = 1, dles = 0; i < buf.size(); ++i) {
        if (buf[i] == '\x03' && dles % 2 == 1) return i + 1;
        dles = buf[i] == '\x10' ? dles + 1 : 0;
    }
    return 0;
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
    std::string buf;
    char chunk[4096];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n <= 0) return 1;
        buf.append(chunk, static_cast<std::size_t>(n));
        for (std::size_t end; (end = Frame_End(buf)) != 0; buf.erase(0, end)) {
            if (buf[0] != '\x10') continue;  // noise before a frame
            const std::uint8_t id = static_cast<std::uint8_t>(buf[1]);
            if (id == ids.PID_Ack_Byte) continue;
            if (!Write_All(fd, link::Make_Packet(ids.PID_Ack_Byte, {id, 0}))) return 1;
            if (id == ids.PID_Xfer_Cmplt) return 0;
        }
    }
}
