#include <algorithm>

#include "screen.h"
#include "wire.h"

namespace trekcom::sim {
namespace screen {

namespace {

// Request and answer ids of the image transfer.
enum : std::uint16_t {
    kRead_Name = 875, kName = 876, kRead_Toc = 877, kToc = 878, kRead_Def = 879, kDef = 880, kOpen = 881,
    kHandle = 882, kClose = 883, kRead_Img = 884, kImg_Data = 885, kRead_Rgb = 886, kRgb_Data = 887,
};
constexpr std::size_t kChunk = 496;
constexpr std::uint32_t kHandle_Base = 0x5100;
constexpr int kIcon_Side = 16;

// The rows of a frame, last first.
Bytes Bottom_Up(const Bytes& top_down, std::size_t stride) {
    Bytes out;
    for (std::size_t row = top_down.size() / stride; row-- > 0;)
        out.insert(out.end(), top_down.begin() + row * stride, top_down.begin() + (row + 1) * stride);
    return out;
}

}  // namespace

Image_Store::Image_Store(const Screen& screen, int icon_slots) {
    if (screen.image_transfer && screen.bpp) {
        Slot s;
        s.name = "Screen";
        s.bpp = screen.bpp;
        const Bytes frame = Frame_Bytes(screen, s.stride, s.width, s.height);
        s.wire = Bottom_Up(frame, s.stride);
        s.palette = screen.palette;
        if (s.palette.empty())
            for (const std::uint8_t level : screen.grey_levels) s.palette.push_back(0x111111u * level);
        slots_.push_back(std::move(s));
    }
    for (int n = 0; n < icon_slots; ++n) {
        Slot s;
        s.category = 2;
        s.writable = true;
        s.name = "Custom " + std::to_string(n);
        s.width = s.height = kIcon_Side;
        s.stride = kIcon_Side;
        s.palette = Icon_Palette();
        s.transparent = true;
        s.wire.assign(s.stride * kIcon_Side, static_cast<std::uint8_t>(255 - n));
        slots_.push_back(std::move(s));
    }
}

std::optional<std::pair<std::uint16_t, Bytes>> Image_Store::Answer(std::uint16_t id, const Bytes& data) {
    wire::Reader r(data);
    wire::Writer w;
    if (id == kRead_Toc) {
        for (std::size_t i = 0; i < slots_.size(); ++i) {
            w.U16(static_cast<std::uint16_t>(i));
            w.U8(slots_[i].writable);
            w.U8(slots_[i].category);
        }
        return std::pair{kToc, w.Take()};
    }
    if (id == kRead_Name || id == kRead_Def || id == kOpen) {
        const std::uint16_t index = r.U16();
        if (!r.Ok() || index >= slots_.size()) return id == kRead_Def ? std::optional{std::pair{kDef, Bytes{}}} : std::nullopt;
        const Slot& s = slots_[index];
        if (id == kRead_Name) {
            w.Text(s.name);
            return std::pair{kName, w.Take()};
        }
        if (id == kOpen) {
            open_ = index;
            read_at_ = rows_written_ = 0;
            w.U32(kHandle_Base + index);
            return std::pair{kHandle, w.Take()};
        }
        const std::uint8_t head[] = {0, static_cast<std::uint8_t>(s.bpp), 0, 0};
        w.Raw(head, 4);
        w.U16(static_cast<std::uint16_t>(s.height));
        w.U16(static_cast<std::uint16_t>(s.width));
        w.U16(static_cast<std::uint16_t>(s.stride));
        w.U16(0);
        w.U32(s.transparent ? 0x00FF00FFu : 0);  // R, G, B, unused
        return std::pair{kDef, w.Take()};
    }
    const std::uint32_t handle = r.U32();
    if (!r.Ok() || open_ < 0 || handle != kHandle_Base + static_cast<std::uint32_t>(open_)) return std::nullopt;
    return Answer_Open(id, handle, Bytes(data.begin() + 4, data.end()));
}

std::optional<std::pair<std::uint16_t, Bytes>> Image_Store::Answer_Open(std::uint16_t id, std::uint32_t handle,
                                                                       const Bytes& data) {
    Slot& s = slots_[static_cast<std::size_t>(open_)];
    wire::Writer w;
    w.U32(handle);
    if (id == kClose) {
        open_ = -1;
        return std::nullopt;
    }
    if (id == kRead_Img) {
        const std::size_t n = std::min(kChunk, s.wire.size() - read_at_);
        w.Raw(s.wire.data() + read_at_, n);
        read_at_ += n;
        return std::pair{kImg_Data, w.Take()};
    }
    if (id == kRead_Rgb) {
        for (const std::uint32_t c : s.palette) {
            const std::uint8_t bgr0[] = {static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(c >> 8),
                                         static_cast<std::uint8_t>(c >> 16), 0};
            w.Raw(bgr0, 4);
        }
        return std::pair{kRgb_Data, w.Take()};
    }
    if (!s.writable) return std::nullopt;
    if (id == kRgb_Data) return std::pair{kRead_Rgb, w.Take()};  // the table is the unit's own
    if (id == kImg_Data && data.size() == s.stride && (rows_written_ + 1) * s.stride <= s.wire.size()) {
        std::copy(data.begin(), data.end(), s.wire.begin() + static_cast<std::ptrdiff_t>(rows_written_++ * s.stride));
        return std::pair{kRead_Img, w.Take()};
    }
    return std::nullopt;
}

}  // namespace screen

std::vector<std::uint32_t> Icon_Palette() {
    std::vector<std::uint32_t> p;
    for (std::uint32_t i = 0; i < 255; ++i) p.push_back((i % 6 * 51) << 16 | (i / 6 % 6 * 51) << 8 | (i / 36 % 7 * 42));
    p.push_back(0xFF00FF);
    return p;
}

}  // namespace trekcom::sim
