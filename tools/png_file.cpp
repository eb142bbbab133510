#include "png_file.h"

#include <png.h>

#include <cstdio>
#include <memory>
#include <unordered_map>
#include <vector>

namespace trekcom::tool {

namespace {

struct File_Closer {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

struct Png_Writer {
    png_structp png = nullptr;
    png_infop info = nullptr;
    Png_Writer() {
        png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        if (png) info = png_create_info_struct(png);
    }
    ~Png_Writer() { png_destroy_write_struct(&png, info ? &info : nullptr); }
    Png_Writer(const Png_Writer&) = delete;
    Png_Writer& operator=(const Png_Writer&) = delete;
};

// The picture's colours in order of first use; empty when there are more
// than a palette holds.
std::vector<std::uint32_t> Colours_Of(const Picture& picture) {
    std::vector<std::uint32_t> colours;
    std::unordered_map<std::uint32_t, std::size_t> seen;
    for (const std::uint32_t c : picture.Pixels) {
        if (seen.count(c)) continue;
        if (colours.size() == 256) return {};
        seen[c] = colours.size();
        colours.push_back(c);
    }
    return colours;
}

// The rows as the file holds them: palette indices packed from each byte's
// high bits at `depth` bits, or RGB triples when there is no palette.
std::vector<png_byte> Rows_Of(const Picture& picture, const std::vector<std::uint32_t>& palette, int depth,
                              std::size_t& row_bytes) {
    const auto w = static_cast<std::size_t>(picture.Width);
    row_bytes = palette.empty() ? w * 3 : (w * static_cast<std::size_t>(depth) + 7) / 8;
    std::vector<png_byte> out(row_bytes * static_cast<std::size_t>(picture.Height), 0);
    std::unordered_map<std::uint32_t, std::size_t> index;
    for (std::size_t i = 0; i < palette.size(); ++i) index[palette[i]] = i;
    for (std::size_t i = 0; i < picture.Pixels.size(); ++i) {
        const std::uint32_t c = picture.Pixels[i];
        png_byte* row = &out[i / w * row_bytes];
        const std::size_t x = i % w;
        if (palette.empty()) {
            for (std::size_t k = 0; k < 3; ++k) row[x * 3 + k] = static_cast<png_byte>(c >> (16 - 8 * k));
            continue;
        }
        const std::size_t bit = x * static_cast<std::size_t>(depth);
        row[bit / 8] |= static_cast<png_byte>(index[c] << (8 - depth - bit % 8));
    }
    return out;
}

int Depth_For(std::size_t colours, int depth) {
    while (depth < 8 && colours > (std::size_t{1} << depth)) depth *= 2;
    return depth;
}

// libpng's part: it reports failures by longjmp, so it gets a function of its
// own where nothing changes after the jump is set.
bool Emit(std::FILE* file, const Picture& picture, int depth, const std::vector<png_color>& plte,
          std::vector<png_bytep>& rows) {
    Png_Writer writer;
    if (!writer.info || setjmp(png_jmpbuf(writer.png))) return false;
    png_init_io(writer.png, file);
    png_set_IHDR(writer.png, writer.info, static_cast<png_uint_32>(picture.Width),
                 static_cast<png_uint_32>(picture.Height), plte.empty() ? 8 : depth,
                 plte.empty() ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_PALETTE, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!plte.empty()) png_set_PLTE(writer.png, writer.info, plte.data(), static_cast<int>(plte.size()));
    png_set_rows(writer.png, writer.info, rows.data());
    png_write_png(writer.png, writer.info, PNG_TRANSFORM_IDENTITY, nullptr);
    return true;
}

}  // namespace

bool Write_Png(const std::string& path, const Picture& picture, int wanted_depth, std::string& error) {
    if (picture.Width <= 0 || picture.Height <= 0 ||
        picture.Pixels.size() != static_cast<std::size_t>(picture.Width) * static_cast<std::size_t>(picture.Height)) {
        error = "the picture is empty";
        return false;
    }
    std::unique_ptr<std::FILE, File_Closer> file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        error = "cannot write " + path;
        return false;
    }
    // A palette of the depth asked for, or the smallest that holds the
    // colours; RGB when none does. Everything is laid out before libpng is
    // called, so nothing can fail half-way with memory of its own to free.
    const std::vector<std::uint32_t> colours = Colours_Of(picture);
    const int depth = Depth_For(colours.size(), wanted_depth);
    std::vector<png_color> plte;
    for (const std::uint32_t c : colours)
        plte.push_back({static_cast<png_byte>(c >> 16), static_cast<png_byte>(c >> 8), static_cast<png_byte>(c)});
    std::size_t row_bytes = 0;
    std::vector<png_byte> bytes = Rows_Of(picture, colours, depth, row_bytes);
    std::vector<png_bytep> rows;
    for (std::size_t y = 0; y < static_cast<std::size_t>(picture.Height); ++y) rows.push_back(&bytes[y * row_bytes]);

    if (!Emit(file.get(), picture, depth, plte, rows)) {
        error = "libpng could not write " + path;
        return false;
    }
    if (std::fflush(file.get()) != 0) {
        error = "cannot write " + path;
        return false;
    }
    return true;
}

bool Read_Png(const std::string& path, Picture& picture, std::string& error) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) {
        error = "cannot read " + path + " as PNG";
        return false;
    }
    image.format = PNG_FORMAT_RGBA;
    std::vector<png_byte> rgba(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, rgba.data(), 0, nullptr)) {
        error = "cannot read " + path + " as PNG: " + image.message;
        png_image_free(&image);
        return false;
    }
    picture = {static_cast<std::int32_t>(image.width), static_cast<std::int32_t>(image.height), {}};
    for (std::size_t i = 0; i + 3 < rgba.size(); i += 4)
        picture.Pixels.push_back(rgba[i + 3] < 128 ? 0xFF00FFu
                                                   : std::uint32_t{rgba[i]} << 16 | std::uint32_t{rgba[i + 1]} << 8 |
                                                         rgba[i + 2]);
    return true;
}

Bytes Bmp_File(const Picture& p) {
    const std::size_t row = (static_cast<std::size_t>(p.Width) * 3 + 3) / 4 * 4;
    const auto height = static_cast<std::size_t>(p.Height);
    constexpr std::size_t kHeaders = 54;
    Bytes f(kHeaders + row * height, 0);
    const auto put = [&](std::size_t at, std::size_t v) {
        for (std::size_t i = 0; i < 4; ++i) f[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    };
    f[0] = 'B';
    f[1] = 'M';
    put(2, f.size());
    put(10, kHeaders);
    put(14, 40);  // the information header's size
    put(18, static_cast<std::size_t>(p.Width));
    put(22, height);  // rows last first
    f[26] = 1;        // planes
    f[28] = 24;       // bits per pixel
    for (std::size_t i = 0; i < p.Pixels.size(); ++i) {
        const std::size_t at = kHeaders + (height - 1 - i / p.Width) * row + i % p.Width * 3;
        for (std::size_t k = 0; k < 3; ++k) f[at + k] = static_cast<std::uint8_t>(p.Pixels[i] >> (8 * k));  // B, G, R
    }
    return f;
}

}  // namespace trekcom::tool
