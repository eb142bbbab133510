// Picture: an image handed to the host by the screen-capture and icon events.
#pragma once

#include <cstdint>
#include <vector>

namespace trekcom {

struct Picture {
    std::int32_t Width = 0;   // pixels
    std::int32_t Height = 0;  // pixels
    // Width × Height colours, row after row from the top, each 0xRRGGBB.
    std::vector<std::uint32_t> Pixels;
};

// How a receiver's screen frame becomes the picture its user sees. Models lay
// their frames out differently: some send it turned a quarter, some upside
// down or mirrored. Automatic takes the model's own way where it is known
// (none otherwise).
enum class Screen_Turn {
    Automatic = -1,
    Upright = 0,
    Quarter_Left = 1,   // 90 degrees anticlockwise
    Quarter_Right = 2,  // 90 degrees clockwise
    Half = 3,           // 180 degrees
    Mirror = 4,         // left and right swapped
};

}  // namespace trekcom
