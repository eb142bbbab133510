// Kept apart: the kernel's termios2 header clashes with <termios.h>.
#include <asm/termbits.h>
#include <sys/ioctl.h>

#include <cstdint>

namespace trekcom::sim {

// termios2 reports every rate as a number, the non-standard ones (28800) included.
std::int32_t Tty_Speed(int fd) {
    struct termios2 t {};
    if (ioctl(fd, TCGETS2, &t) != 0) return 0;
    return static_cast<std::int32_t>(t.c_ospeed);
}

}  // namespace trekcom::sim
