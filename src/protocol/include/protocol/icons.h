// Custom waypoint symbols (symbol 7680 + N): read and written through the
// USB image transfer, as Windows bitmaps on the host's side.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "link/link.h"
#include "protocol/images.h"
#include "trekcom/picture.h"
#include "trekcom/types.h"

namespace trekcom::protocol {

class Engine;
class Engine_Host;

// An 8-bit bitmap file of a picture held as palette indices (top row first).
Bytes Bmp_File(const std::vector<std::uint32_t>& colours, std::uint32_t width, std::uint32_t height,
               const std::vector<std::uint8_t>& indices);
// The picture of a bitmap file (8-bit with a palette, or 24- or 32-bit,
// uncompressed); nothing for anything else.
std::optional<Picture> Bmp_Picture(const Bytes& file);
// Each pixel as the index of the nearest palette colour; magenta pixels take
// the unit's transparent colour, when it names one.
std::vector<std::uint8_t> To_Palette(const Picture& picture, const std::vector<std::uint32_t>& palette,
                                     std::optional<std::uint32_t> transparent);

class Icons {
public:
    // ReceiveIcon and its text twin.
    using Received = std::function<void(std::int16_t& seq, Picture& image, Bytes& bmp)>;
    Icons(Engine& engine, link::Link& link, Image_Transfer& images, Engine_Host& host, Received received);

    void Request_Icon(std::int32_t seq);
    void Send_Icon(std::int32_t seq, const Bytes& bmp);

private:
    // The unit's slot of custom icon seq, or an error raised. Serial units
    // are refused before anything is sent.
    std::optional<std::uint16_t> Slot(std::int32_t seq);
    void Report(const std::string& phrase, const std::string& detail = {});

    Engine& engine_;
    link::Link& link_;
    Image_Transfer& images_;
    Engine_Host& host_;
    Received received_;
};

}  // namespace trekcom::protocol
