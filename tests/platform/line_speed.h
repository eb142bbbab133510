// Reads back the speeds a terminal really runs at, independently of the code
// under test. Its own file: the kernel's termios2 header clashes with <termios.h>.
#pragma once

#include <cstdint>

namespace trekcom_test {

// False where the system has no termios2 (the rate tests then skip).
bool Read_Line_Speed(int fd, std::uint32_t& out_baud, std::uint32_t& in_baud);

}  // namespace trekcom_test
