#include "protocol/icons.h"

#include <algorithm>

#include "link/little_endian.h"
#include "protocol/engine.h"
#include "protocol/screen.h"

namespace trekcom::protocol {

namespace {

constexpr std::size_t kFile_Header = 14;
constexpr std::size_t kInfo_Header = 40;
constexpr std::int32_t kMax_Side = 1024;
constexpr std::uint32_t kMagenta = 0xFF00FF;  // icons are 16 x 16; nothing near this is one

std::size_t Row_Bytes(std::uint32_t width, std::uint32_t bpp) { return (std::size_t{width} * bpp + 31) / 32 * 4; }

template <typename T>
void Put(Bytes& b, std::size_t at, T v) {
    link::Put_LE<T>(b, at, v);
}

int Distance(std::uint32_t a, std::uint32_t b) {
    int d = 0;
    for (const int shift : {16, 8, 0}) {
        const int x = static_cast<int>(a >> shift & 0xFF) - static_cast<int>(b >> shift & 0xFF);
        d += x * x;
    }
    return d;
}

}  // namespace

Bytes Bmp_File(const std::vector<std::uint32_t>& colours, std::uint32_t width, std::uint32_t height,
               const std::vector<std::uint8_t>& indices) {
    const std::size_t row = Row_Bytes(width, 8);
    const std::size_t pixels_at = kFile_Header + kInfo_Header + 4 * colours.size();
    Bytes b(pixels_at + row * height, 0);
    b[0] = 'B';
    b[1] = 'M';
    Put<std::uint32_t>(b, 2, static_cast<std::uint32_t>(b.size()));
    Put<std::uint32_t>(b, 10, static_cast<std::uint32_t>(pixels_at));
    Put<std::uint32_t>(b, 14, kInfo_Header);
    Put<std::int32_t>(b, 18, static_cast<std::int32_t>(width));
    Put<std::int32_t>(b, 22, static_cast<std::int32_t>(height));  // positive: the last row first
    Put<std::uint16_t>(b, 26, 1);
    Put<std::uint16_t>(b, 28, 8);
    Put<std::uint32_t>(b, 34, static_cast<std::uint32_t>(row * height));
    Put<std::uint32_t>(b, 46, static_cast<std::uint32_t>(colours.size()));
    for (std::size_t i = 0; i < colours.size(); ++i)
        Put<std::uint32_t>(b, kFile_Header + kInfo_Header + 4 * i, colours[i] & 0xFFFFFF);  // B, G, R, 0
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width && y * width + x < indices.size(); ++x)
            b[pixels_at + (height - 1 - y) * row + x] = indices[y * width + x];
    return b;
}

std::optional<Picture> Bmp_Picture(const Bytes& f) {
    if (f.size() < kFile_Header + kInfo_Header || f[0] != 'B' || f[1] != 'M') return std::nullopt;
    const auto pixels_at = link::Get_LE<std::uint32_t>(f, 10);
    const auto info = link::Get_LE<std::uint32_t>(f, 14);
    const auto width = link::Get_LE<std::int32_t>(f, 18);
    const auto height = link::Get_LE<std::int32_t>(f, 22);
    const auto bpp = link::Get_LE<std::uint16_t>(f, 28);
    const bool known = bpp == 8 || bpp == 24 || bpp == 32;
    if (info < kInfo_Header || !known || link::Get_LE<std::uint32_t>(f, 30) != 0 || width <= 0 ||
        width > kMax_Side || height == 0 || height < -kMax_Side || height > kMax_Side)
        return std::nullopt;
    const auto rows = static_cast<std::uint32_t>(height < 0 ? -height : height);
    const std::size_t row = Row_Bytes(static_cast<std::uint32_t>(width), bpp);
    if (pixels_at > f.size() || (f.size() - pixels_at) / row < rows) return std::nullopt;
    std::uint32_t used = link::Get_LE<std::uint32_t>(f, 46);
    if (bpp == 8 && (used == 0 || used > 256)) used = 256;
    const std::size_t table = kFile_Header + info;
    if (bpp == 8 && table + 4 * std::size_t{used} > pixels_at) return std::nullopt;

    Picture p{width, static_cast<std::int32_t>(rows), {}};
    for (std::uint32_t y = 0; y < rows; ++y) {
        const std::size_t at = pixels_at + (height > 0 ? rows - 1 - y : y) * row;
        for (std::int32_t x = 0; x < width; ++x) {
            std::size_t px = at + static_cast<std::size_t>(x) * (bpp / 8);
            if (bpp == 8) {
                if (f[px] >= used) return std::nullopt;
                px = table + 4 * std::size_t{f[px]};
            }
            p.Pixels.push_back(std::uint32_t{f[px + 2]} << 16 | std::uint32_t{f[px + 1]} << 8 | f[px]);
        }
    }
    return p;
}

std::vector<std::uint8_t> To_Palette(const Picture& picture, const std::vector<std::uint32_t>& palette,
                                     std::optional<std::uint32_t> transparent) {
    std::vector<std::uint8_t> out;
    for (std::uint32_t c : picture.Pixels) {
        // Magenta is how a host draws "not drawn"; the unit may call it otherwise.
        if (c == kMagenta && transparent) c = *transparent;
        std::size_t best = 0;
        for (std::size_t i = 1; i < palette.size() && i < 256; ++i)
            if (Distance(c, palette[i]) < Distance(c, palette[best])) best = i;
        out.push_back(static_cast<std::uint8_t>(best));
    }
    return out;
}

// ---------------------------------------------------------------- the transfers

Icons::Icons(Engine& engine, link::Link& link, Image_Transfer& images, Engine_Host& host, Received received)
    : engine_(engine), link_(link), images_(images), host_(host), received_(std::move(received)) {}

void Icons::Report(const std::string& phrase, const std::string& detail) {
    host_.Raise_Error(0, host_.xLate(phrase) + detail, {});
}

std::optional<std::uint16_t> Icons::Slot(std::int32_t seq) {
    if (link_.Port() > 0) {
        Report("Icons can be transferred over USB only: their packets do not fit a serial frame");
        return std::nullopt;
    }
    engine_.Request_Product_Data();
    const auto toc = images_.Contents(0);
    std::vector<std::uint16_t> slots;
    for (const auto& e : toc.value_or(std::vector<Image_Transfer::Entry>{}))
        if (e.writable && e.category == Image_Transfer::kIcon) slots.push_back(e.index);
    if (seq >= 0 && static_cast<std::size_t>(seq) < slots.size()) return slots[static_cast<std::size_t>(seq)];
    Report("The unit has no custom icon ", std::to_string(seq));
    return std::nullopt;
}

void Icons::Request_Icon(std::int32_t seq) {
    const auto slot = Slot(seq);
    if (!slot) return;
    const auto def = images_.Define(*slot);
    const Screen_Layout layout{def ? def->stride : 0, def ? def->bpp : 0, def ? def->width : 0,
                               def ? def->height : 0, std::nullopt};
    Screen_Frame frame;
    const auto handle = frame.Load(layout, {}, {}) ? images_.Open(*slot) : std::nullopt;
    if (!handle) return Report("The icon could not be read");
    const auto colours = images_.Colours(*handle, std::size_t{1} << layout.bpp);
    const auto bytes = images_.Read(*handle, std::size_t{layout.stride} * layout.height, [](link::Data_View) {});
    images_.Close(*handle);
    if (!colours || !bytes) return Report("The icon could not be read");
    frame.Load(layout, *bytes, *colours);
    Picture image = Draw_Frame(frame, *colours, Screen_Turn::Upright);
    std::vector<std::uint8_t> indices;
    for (std::uint32_t y = 0; y < frame.Layout().height; ++y)
        for (std::uint32_t x = 0; x < frame.Layout().width; ++x)
            indices.push_back(static_cast<std::uint8_t>(frame.Index_At(x, y)));
    Bytes bmp = Bmp_File(*colours, frame.Layout().width, frame.Layout().height, indices);
    std::int16_t n = static_cast<std::int16_t>(seq);
    received_(n, image, bmp);
}

void Icons::Send_Icon(std::int32_t seq, const Bytes& bmp) {
    const auto picture = Bmp_Picture(bmp);
    if (!picture) return Report("The icon is not a bitmap (8-bit with a palette, or 24- or 32-bit)");
    const auto slot = Slot(seq);
    if (!slot) return;
    // Nothing is written that the unit's own definition would not hold.
    const auto def = images_.Define(*slot);
    if (!def || def->bpp > 8 || def->width != static_cast<std::uint32_t>(picture->Width) ||
        def->height != static_cast<std::uint32_t>(picture->Height) || def->stride < Row_Bytes(def->width, def->bpp))
        return Report("The icon does not match the unit's: ",
                      def ? std::to_string(def->width) + " x " + std::to_string(def->height) + ", " +
                                std::to_string(def->bpp) + " bits per pixel"
                          : std::string("unknown"));
    const auto handle = images_.Open(*slot);
    const auto colours = handle ? images_.Colours(*handle, std::size_t{1} << def->bpp) : std::nullopt;
    bool written = colours && images_.Write_Colours(*handle, *colours);
    const std::vector<std::uint8_t> indices = To_Palette(*picture, colours.value_or(std::vector<std::uint32_t>{}), def->transparent);
    // Rows go last first, packed from each byte's low bits.
    for (std::uint32_t r = 0; written && r < def->height; ++r) {
        Bytes row(def->stride, 0);
        const std::uint32_t y = def->height - 1 - r;
        for (std::uint32_t x = 0; x < def->width; ++x) {
            const std::size_t bit = std::size_t{x} * def->bpp;
            row[bit / 8] |= static_cast<std::uint8_t>(indices[std::size_t{y} * def->width + x] << (bit % 8));
        }
        written = images_.Write_Row(*handle, row);
    }
    if (handle) images_.Close(*handle);
    if (!written) Report("The icon could not be written");
}

}  // namespace trekcom::protocol
