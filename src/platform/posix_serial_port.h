// The serial port of the real platform on POSIX systems: termios devices
// (/dev/ttyS*, /dev/ttyUSB*, ...) and ptys, read through the platform's Asio
// loop.
#pragma once

#include <memory>

namespace asio {
class io_context;
}

namespace trekcom {
class Platform;
class SerialPort;
}  // namespace trekcom

namespace trekcom::platform {

// A port whose reads are driven by io. Both must outlive the port.
std::unique_ptr<SerialPort> Make_Posix_Serial_Port(Platform& platform, asio::io_context& io);

}  // namespace trekcom::platform
