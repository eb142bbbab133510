#include "screen.h"

#include <algorithm>

#include "wire.h"

namespace trekcom::sim {

namespace {

constexpr std::uint32_t kHeader = 0, kPixels = 1, kPalette = 2;
constexpr std::size_t kMax_Chunk = 128;  // pixel bytes per packet
constexpr std::size_t kHeader_Size = 40;

// A grid of palette indices.
struct Grid {
    int w = 0, h = 0;
    std::vector<std::uint8_t> at;  // row after row
    std::uint8_t Get(int x, int y) const { return at[static_cast<std::size_t>(y) * w + x]; }
};

// The grid turned a quarter clockwise: the top row becomes the right column.
Grid Clockwise(const Grid& g) {
    Grid t{g.h, g.w, std::vector<std::uint8_t>(g.at.size())};
    for (int y = 0; y < g.h; ++y)
        for (int x = 0; x < g.w; ++x) t.at[static_cast<std::size_t>(x) * t.w + (g.h - 1 - y)] = g.Get(x, y);
    return t;
}

// Rows padded to four bytes; the first pixel of a byte in its low bits.
Bytes Pack(const Grid& g, int bpp, std::size_t& stride) {
    stride = (static_cast<std::size_t>(g.w) * bpp + 31) / 32 * 4;
    Bytes frame(stride * g.h, 0);
    const int per_byte = 8 / bpp;
    for (int y = 0; y < g.h; ++y)
        for (int x = 0; x < g.w; ++x) {
            const std::uint8_t v = static_cast<std::uint8_t>(g.Get(x, y) & ((1 << bpp) - 1));
            frame[y * stride + x / per_byte] |= static_cast<std::uint8_t>(v << (x % per_byte * bpp));
        }
    return frame;
}

}  // namespace

Screen Screen::Pattern(int bpp, int width, int height, int frame_quarters, bool colour) {
    Screen s;
    s.bpp = bpp;
    s.width = width;
    s.height = height;
    s.frame_quarters = frame_quarters;
    const int levels = 1 << bpp;
    // Diagonal bands, a solid block in the top-left corner and a bar along the
    // bottom: no turn or mirror leaves it unchanged.
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            int v = (x + 2 * y) / 5 % levels;
            if (x < width / 4 && y < height / 5) v = levels - 1;
            if (y >= height - 3) v = 1 % levels;
            s.pixels.push_back(static_cast<std::uint8_t>(v));
        }
    if (colour)
        for (int i = 0; i < levels; ++i) {
            const auto c = static_cast<std::uint32_t>(i);
            s.palette.push_back((c * 37 % 256) << 16 | (c * 91 % 256) << 8 | (255 - c * 13 % 256));
        }
    return s;
}

namespace screen {

Bytes Frame_Bytes(const Screen& s, std::size_t& stride, int& width, int& height) {
    Grid g{s.width, s.height, s.pixels};
    g.at.resize(static_cast<std::size_t>(s.width) * s.height, 0);
    for (int q = 0; q < (s.frame_quarters % 4 + 4) % 4; ++q) g = Clockwise(g);
    if (s.frame_mirrored)
        for (int y = 0; y < g.h; ++y) std::reverse(g.at.begin() + y * g.w, g.at.begin() + (y + 1) * g.w);
    width = g.w;
    height = g.h;
    return Pack(g, s.bpp, stride);
}

std::vector<Bytes> Display_Packets(const Screen& s, bool rows_reversed) {
    std::size_t stride = 0;
    Grid g;
    const Bytes frame = Frame_Bytes(s, stride, g.w, g.h);

    std::vector<Bytes> out;
    wire::Writer h;
    h.U32(kHeader);
    h.U32(0x01010001);  // flags seen on real units; their meaning is not known
    h.U32(static_cast<std::uint32_t>(stride));
    h.U32(static_cast<std::uint32_t>(s.bpp));
    h.U32(static_cast<std::uint32_t>(g.w));
    h.U32(static_cast<std::uint32_t>(g.h));
    for (std::size_t i = 0; i < 4; ++i) h.U8(i < s.grey_levels.size() && s.palette.empty() ? s.grey_levels[i] : 0);
    Bytes header = h.Take();
    header.resize(kHeader_Size, 0);
    out.push_back(std::move(header));

    for (std::size_t i = 0; i < s.palette.size(); ++i) {
        wire::Writer p;
        p.U32(kPalette);
        p.U32(static_cast<std::uint32_t>(i * 3));
        p.U8(static_cast<std::uint8_t>(s.palette[i]));
        p.U8(static_cast<std::uint8_t>(s.palette[i] >> 8));
        p.U8(static_cast<std::uint8_t>(s.palette[i] >> 16));
        out.push_back(p.Take());
    }

    std::vector<Bytes> rows;
    for (int y = 0; y < g.h; ++y)
        for (std::size_t at = 0; at < stride; at += kMax_Chunk) {
            const std::size_t start = y * stride + at;
            const std::size_t n = std::min(kMax_Chunk, stride - at);
            wire::Writer p;
            p.U32(kPixels);
            p.U32(static_cast<std::uint32_t>(start));
            p.Raw(frame.data() + start, n);
            rows.push_back(p.Take());
        }
    if (rows_reversed) std::reverse(rows.begin(), rows.end());
    out.insert(out.end(), rows.begin(), rows.end());
    return out;
}

}  // namespace screen
}  // namespace trekcom::sim
