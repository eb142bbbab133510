// Line speeds outside the termios table (28800 on Linux), set through the
// kernel's termios2 interface. Kept in its own file because the kernel's
// termios header and <termios.h> cannot be included together.
#pragma once

#include <cstdint>

namespace trekcom::platform {

// Sets both speeds of the terminal open on fd to baud, leaving every other
// termios field as it is. Returns 0, or the errno value of the failed call
// (ENOTSUP where the system has no such interface).
int Set_Line_Rate(int fd, std::uint32_t baud);

// Reads back the speeds the terminal open on fd actually runs at (a driver
// may round a rate, or refuse it and keep the old one). Returns 0 or errno.
int Get_Line_Rate(int fd, std::uint32_t& out_baud, std::uint32_t& in_baud);

}  // namespace trekcom::platform
