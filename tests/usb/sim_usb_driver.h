// The simulated receiver on USB, under the names the tests use.
#pragma once

#include "trekcom_sim/usb.h"

namespace trekcom::testing {
using Sim_Usb_Receiver = sim::Usb_Receiver;
using sim::Plug_In;
}  // namespace trekcom::testing
