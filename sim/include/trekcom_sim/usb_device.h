// The simulated unit behind the USB driver seam, in this process: how a host
// reaches a unit that speaks USB only (the fitness profile) without hardware.
#pragma once

#include <memory>

#include "trekcom/platform.h"
#include "trekcom_sim/unit.h"

namespace trekcom::sim {

// Makes the unit the one USB receiver of `platform` (its driver handler) and
// returns it; the unit keeps the platform's time and must not outlive it.
std::shared_ptr<Unit> Plug_In_Usb(Platform& platform, Profile profile, Data_Set data);

}  // namespace trekcom::sim
