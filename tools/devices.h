// What the machine offers for reaching a receiver: the serial ports with a
// device behind them, the Garmin receivers on USB, and, when a USB receiver
// cannot be used, the reason the system shows for it, in one line that says
// what to do. Everything is read from the kernel's files under a root folder
// ("/" on a running system), so a test can lay out a machine of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace trekcom::tool {

struct Serial_Port_Info {
    std::string path;    // "/dev/ttyUSB0"
    std::string driver;  // the kernel driver behind it ("garmin_gps", "serial8250"), or empty
};

// The serial ports the kernel has a device for (legacy ports that answered
// no probe left out), sorted by path.
std::vector<Serial_Port_Info> Serial_Ports(const std::filesystem::path& root = "/");

// Whether this user may read and write a device node: false only when the
// system refuses it.
using Node_Check = std::function<bool(const std::filesystem::path& node)>;
bool May_Open(const std::filesystem::path& node);

// Why a Garmin receiver on USB cannot be used: its device node only root may
// open, or the kernel's garmin_gps driver holds it. Empty when no Garmin
// receiver is plugged in or neither is the case.
std::string Usb_Diagnosis(const std::filesystem::path& root = "/", const Node_Check& may_open = May_Open);

}  // namespace trekcom::tool
