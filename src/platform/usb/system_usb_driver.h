// The system's USB driver for the real platform: one file per system
// (libusb_driver.cpp, windows_usb_driver.cpp); where neither applies, the
// null driver that answers "not supported".
#pragma once

#include <memory>

#include "trekcom/usb_driver.h"

namespace trekcom::platform {

std::unique_ptr<UsbDriver> Make_System_Usb_Driver();

#ifdef TREKCOM_HAVE_LIBUSB
// The libusb driver directly, for its own tests.
std::unique_ptr<UsbDriver> Make_Libusb_Driver();
#endif

}  // namespace trekcom::platform
