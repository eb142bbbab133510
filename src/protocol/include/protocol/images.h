// The USB image transfer: a unit's table of images (its screen, its custom
// icons), each read or written through a handle. The ids (875 and up) do not
// fit a serial frame's id byte: USB only.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "link/link.h"
#include "link/packet.h"
#include "trekcom/types.h"

namespace trekcom::protocol {

class Image_Transfer {
public:
    explicit Image_Transfer(link::Link& link) : link_(link) {}

    struct Entry {
        std::uint16_t index = 0;
        bool writable = false;
        std::uint8_t category = 0;  // 0 a screen, 2 an icon
    };
    struct Definition {
        std::uint32_t bpp = 0, width = 0, height = 0, stride = 0;
        std::optional<std::uint32_t> transparent;  // 0xRRGGBB
    };
    static constexpr std::uint8_t kScreen = 0;
    static constexpr std::uint8_t kIcon = 2;

    // Each waits for its answer; nothing when none came.
    std::optional<std::vector<Entry>> Contents(std::int32_t wait_ms);
    std::optional<Definition> Define(std::uint16_t index);
    std::optional<std::uint32_t> Open(std::uint16_t index);
    // The first n colours (0xRRGGBB) of the image's table.
    std::optional<std::vector<std::uint32_t>> Colours(std::uint32_t handle, std::size_t n);
    // The image's bytes (rows last first) until `size` have come or the unit
    // sends no more; `progress` sees what has come after each piece.
    std::optional<Bytes> Read(std::uint32_t handle, std::size_t size, const std::function<void(link::Data_View)>& progress);
    // Writes the colour table, then one row at a time; each is acknowledged.
    bool Write_Colours(std::uint32_t handle, const std::vector<std::uint32_t>& colours);
    bool Write_Row(std::uint32_t handle, link::Data_View row);
    void Close(std::uint32_t handle);

    // Every expanded-form packet, from the dispatcher.
    void On_Packet(const Bytes& packet);

private:
    std::optional<Bytes> Ask(std::uint16_t id, Bytes data, std::uint16_t answer, std::int32_t wait_ms = 0);

    link::Link& link_;
    std::uint16_t awaited_ = 0;
    std::optional<Bytes> reply_;
};

}  // namespace trekcom::protocol
