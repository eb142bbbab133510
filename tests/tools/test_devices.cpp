// The machine as the tool sees it: serial ports and USB receivers read from a
// kernel file tree laid out by the test, the two reasons a USB receiver
// cannot be used, and `list` and `--port usb:N` against simulated receivers
// on the virtual platform.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "commands.h"
#include "devices.h"
#include "support/scratch.h"
#include "trekcom/trekcom.h"
#include "usb/sim_usb_driver.h"

namespace trekcom::tool {
namespace {

namespace fs = std::filesystem;
using trekcom::testing::Write_File;

// A kernel file tree with only what the tool reads.
struct Fake_System {
    trekcom::testing::Scratch_Folder root;

    void Tty(const std::string& name, const std::string& driver, const char* type = nullptr) {
        const fs::path tty = root / ("sys/class/tty/" + name);
        fs::create_directories(tty);
        if (driver == "-") return;  // no device behind it
        Bound(tty / "device", driver);
        if (type) Write_File(tty / "type", std::string(type) + "\n");
    }
    // A USB device "1-<port>" on bus 1 with one interface, bound to driver (or to none).
    void Usb(int port, const std::string& vendor, const std::string& interface_driver) {
        const fs::path dev = root / ("sys/bus/usb/devices/1-" + std::to_string(port));
        fs::create_directories(dev);
        Write_File(dev / "idVendor", vendor + "\n");
        Write_File(dev / "busnum", "1\n");
        Write_File(dev / "devnum", std::to_string(port + 10) + "\n");
        const fs::path interface = root / ("sys/bus/usb/devices/1-" + std::to_string(port) + ":1.0");
        fs::create_directories(interface);
        if (!interface_driver.empty()) fs::create_directory_symlink(root / ("drivers/" + interface_driver), interface / "driver");
    }
    void Bound(const fs::path& device, const std::string& driver) {
        fs::create_directories(device);
        fs::create_directories(root / ("drivers/" + driver));
        fs::create_directory_symlink(root / ("drivers/" + driver), device / "driver");
    }
};

TEST(Devices, SerialPortsAreThoseWithADeviceBehindThem) {
    Fake_System sys;
    sys.Tty("ttyS0", "serial8250", "4");
    sys.Tty("ttyS1", "serial8250", "0");  // a legacy slot no chip answered in
    sys.Tty("ttyUSB0", "garmin_gps");
    sys.Tty("tty1", "-");
    std::vector<std::string> ports;
    for (const auto& p : Serial_Ports(sys.root.path)) ports.push_back(p.path + " " + p.driver);
    EXPECT_EQ(ports, (std::vector<std::string>{"/dev/ttyS0 serial8250", "/dev/ttyUSB0 garmin_gps"}));
    EXPECT_TRUE(Serial_Ports(sys.root / "nowhere").empty());
}

// Each combination of a device node that only root may open and an interface
// held by garmin_gps, on a Garmin and on another vendor's device: the
// permission is named first (without it nothing else can be done), then the
// driver, and nothing at all when neither stands in the way.
TEST(Devices, UsbDiagnosisNamesTheCauseAndTheCure) {
    for (const std::string vendor : {"091e", "0403"})
        for (bool root_only : {false, true})
            for (bool held : {false, true}) {
                SCOPED_TRACE(vendor + (root_only ? " root only" : "") + (held ? " held" : ""));
                Fake_System sys;
                sys.Usb(2, vendor, held ? "garmin_gps" : "usbfs");
                std::set<fs::path> asked;
                const auto may_open = [&](const fs::path& node) {
                    asked.insert(node);
                    return !root_only;
                };
                const std::string d = Usb_Diagnosis(sys.root.path, may_open);
                EXPECT_EQ(d.find('\n'), std::string::npos);
                if (vendor != "091e") {
                    EXPECT_EQ(d, "");
                } else if (root_only) {
                    EXPECT_EQ(asked, std::set<fs::path>{sys.root / "dev/bus/usb/001/012"});
                    EXPECT_EQ(d.find("only root may open the Garmin USB receiver (/dev/bus/usb/001/012): install the "
                                     "udev rule"), 0u) << d;
                } else if (held) {
                    EXPECT_EQ(d.find("the kernel's garmin_gps driver holds the Garmin USB receiver: unbind it "
                                     "(sudo modprobe -r garmin_gps)"), 0u) << d;
                    EXPECT_NE(d.find("blacklist garmin_gps"), std::string::npos) << d;
                } else {
                    EXPECT_EQ(d, "");
                }
            }
}

class Usb_Tool : public ::testing::Test {
public:
    Usb_Tool() {
        options.platform = vp;
        options.progress = false;
        options.timeout_ms = 3000;
        options.notes = &notes;
        options.system_root = sys.root.path.string();
    }
    int Run(Command command, const std::string& port) {
        options.port = port;
        err.str("");
        return Run_Command(command, options, cmd, err);
    }
    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    std::shared_ptr<testing::Sim_Usb_Receiver> receiver = testing::Plug_In(vp);
    Fake_System sys;
    Session_Options options;
    Command_Options cmd;
    std::ostringstream err, notes;
};

TEST_F(Usb_Tool, ListNamesEachReceiverAndPortUsbNPicksOne) {
    sys.Tty("ttyS0", "serial8250", "4");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(Run(Run_List, "1"), kOk) << err.str();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Serial ports:\n"
              "  /dev/ttyS0       serial8250\n"
              "Garmin receivers on USB:\n"
              "  usb:0            TREKSIM 60 Software Version 3.80\n");

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(Run(Run_Time, "usb:0"), kOk) << err.str();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "2024-06-01T12:00:00Z\n");
    // There is no second receiver: usb:1 waits for one, as usb waits for the first.
    EXPECT_EQ(Run(Run_Time, "usb:1"), kNo_Device);
    EXPECT_NE(err.str().find("no Garmin USB receiver appeared within 3000 ms"), std::string::npos) << err.str();
    for (const char* bad : {"usb:", "usb:x", "usb:-1", "usb:12345"}) EXPECT_EQ(Run(Run_Time, bad), kUsage) << bad;

    receiver->present = false;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(Run(Run_List, "1"), kOk) << err.str();
    EXPECT_NE(::testing::internal::GetCapturedStdout().find("Garmin receivers on USB:\n  none\n"), std::string::npos);
}

// A receiver the driver may not open: the tool says why in one line, from
// what the system shows, and what to do about it.
TEST_F(Usb_Tool, AReceiverThatCannotBeOpenedIsDiagnosed) {
    receiver->deny_open = true;
    EXPECT_EQ(Run(Run_Info, "usb"), kNo_Device);
    // Nothing in the system files explains it: the control's own words, on one line.
    EXPECT_EQ(err.str(), "trekcom: no device: usb: No permission to use the Garmin USB device. Give your user access "
                         "to it (on Linux: the udev rule of docs/usb.md) and plug it in again.\n");
    sys.Usb(3, "091e", "garmin_gps");
    EXPECT_EQ(Run(Run_Info, "usb"), kNo_Device);
    const std::string said = err.str();
    EXPECT_EQ(said.find("trekcom: no device: the kernel's garmin_gps driver holds"), 0u) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
}

}  // namespace
}  // namespace trekcom::tool
