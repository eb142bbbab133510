#include "devices.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <system_error>

namespace trekcom::tool {

namespace fs = std::filesystem;

namespace {

constexpr const char* kGarmin_Vendor = "091e";
constexpr const char* kKernel_Driver = "garmin_gps";

// The first word of a small kernel attribute file; empty when it cannot be read.
std::string Attribute(const fs::path& file) {
    std::ifstream in(file);
    std::string word;
    in >> word;
    return word;
}

// The name of the driver bound to a device folder of sysfs, or empty.
std::string Driver_Of(const fs::path& device) {
    std::error_code ec;
    const fs::path target = fs::read_symlink(device / "driver", ec);
    return ec ? std::string() : target.filename().string();
}

std::vector<fs::path> Entries(const fs::path& folder) {
    std::vector<fs::path> out;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) out.push_back(it->path());
    std::sort(out.begin(), out.end());
    return out;
}

}  // namespace

bool May_Open(const fs::path& node) {
    // Only a refusal counts: a node that is missing says nothing about permissions.
    return access(node.c_str(), R_OK | W_OK) == 0 || errno != EACCES;
}

std::vector<Serial_Port_Info> Serial_Ports(const fs::path& root) {
    std::vector<Serial_Port_Info> ports;
    for (const fs::path& tty : Entries(root / "sys/class/tty")) {
        std::error_code ec;
        if (!fs::exists(tty / "device", ec)) continue;  // virtual terminals and ptys have none
        // Legacy UART slots exist whether or not a chip answered; type 0 is "no chip".
        if (fs::exists(tty / "type", ec) && Attribute(tty / "type") == "0") continue;
        ports.push_back({"/dev/" + tty.filename().string(), Driver_Of(tty / "device")});
    }
    return ports;
}

std::string Usb_Diagnosis(const fs::path& root, const Node_Check& may_open) {
    std::string held;
    for (const fs::path& device : Entries(root / "sys/bus/usb/devices")) {
        if (Attribute(device / "idVendor") != kGarmin_Vendor) continue;
        char node[32];
        std::snprintf(node, sizeof node, "dev/bus/usb/%03d/%03d", std::atoi(Attribute(device / "busnum").c_str()),
                      std::atoi(Attribute(device / "devnum").c_str()));
        if (!may_open(root / node))
            return "only root may open the Garmin USB receiver (/" + std::string(node) +
                   "): install the udev rule (sudo cmake --install does; docs/usb.md), then plug the receiver in again";
        // Its interfaces are folders beside it, named after it: "1-2:1.0".
        const std::string prefix = device.filename().string() + ":";
        for (const fs::path& interface : Entries(root / "sys/bus/usb/devices"))
            if (interface.filename().string().starts_with(prefix) && Driver_Of(interface) == kKernel_Driver)
                held = std::string("the kernel's ") + kKernel_Driver +
                       " driver holds the Garmin USB receiver: unbind it (sudo modprobe -r garmin_gps) and keep it "
                       "off (echo 'blacklist garmin_gps' | sudo tee /etc/modprobe.d/garmin-gps.conf), or use the "
                       "serial port it offers (--port /dev/ttyUSB0)";
    }
    return held;
}

}  // namespace trekcom::tool
