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

}  // namespace trekcom
