// The libusb driver without a receiver: what this machine lets us reach.
// Every call must fail cleanly and at once, and the transport must turn the
// failure into its error event instead of hanging.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/usb/system_usb_driver.h"
#include "trekcom/cUSB.h"

namespace trekcom::testing {
namespace {

TEST(LibusbDriver, WithoutAReceiverEveryCallFailsCleanly) {
    auto driver = platform::Make_Libusb_Driver();
    std::string path = "stale";
    const Usb_Status found = driver->Find(0, path);
    // No usbfs at all (a container) or no Garmin on the bus.
    EXPECT_TRUE(found == Usb_Status::not_found || found == Usb_Status::enumeration_failed) << to_string(found);
    EXPECT_TRUE(path.empty());
    if (found == Usb_Status::enumeration_failed) {
        EXPECT_FALSE(driver->Last_Error().empty());
    }

    EXPECT_NE(driver->Open("usb:001:001"), Usb_Status::ok);
    EXPECT_FALSE(driver->Is_Open());
    Usb_Status status = Usb_Status::ok;
    EXPECT_EQ(driver->Open_Interrupt_Reader(status), nullptr);
    EXPECT_EQ(status, Usb_Status::not_open);
    Bytes out{1, 2, 3};
    EXPECT_EQ(driver->Io_Control(UsbDriver::kIoctl_Api_Version, out), Usb_Status::not_open);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(driver->Bulk_Read(out, 4096, UsbDriver::kBulk_Wait_ms), Usb_Status::not_open);
    EXPECT_EQ(driver->Write({0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0}), Usb_Status::not_open);
    EXPECT_NE(driver->Reset(), Usb_Status::ok);
    driver->Close();  // harmless when closed
}

// What a host sees through the real platform's transport.
TEST(LibusbDriver, TransportReportsAndEndsTheSearch) {
    struct Host : cUSBEvents {
        std::vector<std::pair<std::int16_t, std::string>> errors;
        void USBError(std::int16_t& seq, std::string& m, Bytes&) override {
            errors.emplace_back(seq, m);
            seq = 0;  // stop searching
        }
    } host;
    cUSB usb(Default_Platform());
    usb.Advise(host);
    EXPECT_FALSE(usb.Open());
    ASSERT_EQ(host.errors.size(), 1u);
    const auto& [code, message] = host.errors[0];
    if (code == 4)
        EXPECT_EQ(message, "Garmin USB GPS device not found\r\nor device not turned on.");
    else
        EXPECT_EQ(message.rfind("SetupDI Error ", 0), 0u) << message;
    EXPECT_FALSE(usb.Read_Packets(0));
    EXPECT_FALSE(usb.Write_Packet({16, 254, 0, 0, 16, 3}));
}

// Run under umockdev-run with a simulated Garmin on the bus (see
// CMakeLists.txt): the search must pick it out by its descriptors.
TEST(LibusbDriver, FindsAGarminOnAnEmulatedBus) {
    if (!std::getenv("UMOCKDEV_DIR")) GTEST_SKIP() << "not under umockdev";
    auto driver = platform::Make_Libusb_Driver();
    std::string path;
    ASSERT_EQ(driver->Find(0, path), Usb_Status::ok) << driver->Last_Error();
    EXPECT_EQ(path, "usb:001:002");
    EXPECT_EQ(driver->Find(1, path), Usb_Status::not_found);  // the mass-storage unit does not count
    // Opening reaches the emulated node; it answers no transfers, so each
    // read must come back within its bound and nothing may hang.
    ASSERT_EQ(driver->Find(0, path), Usb_Status::ok);
    ASSERT_EQ(driver->Open(path), Usb_Status::ok) << driver->Last_Error();
    Bytes out;
    EXPECT_EQ(driver->Io_Control(UsbDriver::kIoctl_Packet_Size, out), Usb_Status::ok);
    EXPECT_EQ(out, (Bytes{64, 0, 0, 0}));  // the bulk-out endpoint's size
    Usb_Status status = Usb_Status::not_open;
    auto reader = driver->Open_Interrupt_Reader(status);
    ASSERT_NE(reader, nullptr);
    bool at_once = true;
    const Usb_Status read = reader->Read(out, UsbDriver::kInterrupt_Wait_ms, at_once);
    EXPECT_EQ(read, Usb_Status::io_error) << driver->Last_Error();
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(driver->Write({0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0}), Usb_Status::io_error);
    EXPECT_NE(driver->Last_Error().find("libusb_bulk_transfer"), std::string::npos);
    reader.reset();
    driver->Close();
    EXPECT_FALSE(driver->Is_Open());

    // The transport on this driver: it opens, and the failed session write
    // ends in an error event with the device closed.
    struct Host : cUSBEvents {
        std::vector<std::string> errors;
        void USBError(std::int16_t& seq, std::string& m, Bytes&) override {
            errors.push_back(m);
            seq = 0;
        }
    } host;
    cUSB usb(Default_Platform());
    usb.Advise(host);
    ASSERT_TRUE(usb.Open());
    EXPECT_FALSE(usb.Start_Session());
    EXPECT_EQ(host.errors, std::vector<std::string>{"USB device write failed"});
    EXPECT_FALSE(usb.Is_Open());
}

}  // namespace
}  // namespace trekcom::testing
