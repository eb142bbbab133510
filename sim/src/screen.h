// The unit's side of a screen capture: its frame as Pid 69 packets.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "trekcom/types.h"
#include "trekcom_sim/unit.h"

namespace trekcom::sim::screen {

// The data of every Pid 69 packet of one capture, in the order they go out:
// the header, the palette (colour units), then the pixel rows in chunks.
std::vector<Bytes> Display_Packets(const Screen& s, bool rows_reversed);

// The frame as the unit holds it, rows from the top, each `stride` bytes;
// width and height are the frame's (the screen turned).
Bytes Frame_Bytes(const Screen& s, std::size_t& stride, int& width, int& height);

// The ids of the image transfer's requests and answers.
inline constexpr std::uint16_t kFirst_Image_Id = 875;
inline constexpr std::uint16_t kLast_Image_Id = 894;

// The image transfer's side of the unit: a table of images (the screen, the
// custom icons) that a USB host reads and, for icons, writes.
class Image_Store {
public:
    Image_Store(const Screen& screen, int icon_slots);
    // The answer to one request (its id and data), if it has one.
    std::optional<std::pair<std::uint16_t, Bytes>> Answer(std::uint16_t id, const Bytes& data);

private:
    struct Slot {
        std::uint8_t category = 0;  // 0 the screen, 2 an icon
        bool writable = false;
        std::string name;
        int bpp = 8, width = 0, height = 0;
        std::size_t stride = 0;
        std::vector<std::uint32_t> palette;
        bool transparent = false;  // magenta is not drawn
        Bytes wire;                // stride x height, last row first
    };
    std::optional<std::pair<std::uint16_t, Bytes>> Answer_Open(std::uint16_t id, std::uint32_t handle, const Bytes& data);
    std::vector<Slot> slots_;
    int open_ = -1;
    std::size_t read_at_ = 0;
    std::size_t rows_written_ = 0;
};

}  // namespace trekcom::sim::screen
