// termios2 speeds. This file must not include <termios.h> (see line_rate.h).
#include "line_rate.h"

#include <cerrno>

#if defined(__linux__)
#include <asm/termbits.h>
#include <sys/ioctl.h>
#endif

namespace trekcom::platform {

#if defined(__linux__) && defined(TCGETS2) && defined(BOTHER)

int Set_Line_Rate(int fd, std::uint32_t baud) {
    struct termios2 tio {};
    if (::ioctl(fd, TCGETS2, &tio) != 0) return errno;
    // BOTHER in the speed bits tells the driver to take c_ospeed/c_ispeed as
    // plain numbers instead of looking up a Bnnn code.
    tio.c_cflag &= ~(CBAUD | (CBAUD << IBSHIFT));
    tio.c_cflag |= BOTHER | (BOTHER << IBSHIFT);
    tio.c_ospeed = baud;
    tio.c_ispeed = baud;
    if (::ioctl(fd, TCSETS2, &tio) != 0) return errno;
    return 0;
}

int Get_Line_Rate(int fd, std::uint32_t& out_baud, std::uint32_t& in_baud) {
    struct termios2 tio {};
    if (::ioctl(fd, TCGETS2, &tio) != 0) return errno;
    out_baud = tio.c_ospeed;
    in_baud = tio.c_ispeed;
    return 0;
}

#else

int Set_Line_Rate(int, std::uint32_t) { return ENOTSUP; }

int Get_Line_Rate(int, std::uint32_t&, std::uint32_t&) { return ENOTSUP; }

#endif

}  // namespace trekcom::platform
