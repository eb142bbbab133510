#include "platform/line_speed.h"

#if defined(__linux__)
#include <asm/termbits.h>
#include <sys/ioctl.h>
#endif

namespace trekcom_test {

bool Read_Line_Speed(int fd, std::uint32_t& out_baud, std::uint32_t& in_baud) {
#if defined(__linux__) && defined(TCGETS2)
    struct termios2 tio {};
    if (::ioctl(fd, TCGETS2, &tio) != 0) return false;
    out_baud = tio.c_ospeed;
    in_baud = tio.c_ispeed;
    return true;
#else
    (void)fd, (void)out_baud, (void)in_baud;
    return false;
#endif
}

}  // namespace trekcom_test
