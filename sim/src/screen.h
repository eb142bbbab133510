// The unit's side of a screen capture: its frame as Pid 69 packets.
#pragma once

#include <vector>

#include "trekcom/types.h"
#include "trekcom_sim/unit.h"

namespace trekcom::sim::screen {

// The data of every Pid 69 packet of one capture, in the order they go out:
// the header, the palette (colour units), then the pixel rows in chunks.
std::vector<Bytes> Display_Packets(const Screen& s, bool rows_reversed);

}  // namespace trekcom::sim::screen
