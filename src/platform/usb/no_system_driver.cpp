// Systems without a USB driver: the library builds, and Port 0 fails cleanly.
#include "system_usb_driver.h"

namespace trekcom::platform {

std::unique_ptr<UsbDriver> Make_System_Usb_Driver() { return Make_Null_Usb_Driver(Usb_Status::not_supported); }

}  // namespace trekcom::platform
