#include "png_file.h"

#include <png.h>

#include <cstdio>
#include <memory>
#include <vector>

namespace trekcom::tool {

namespace {

struct File_Closer {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

// libpng reports failures by longjmp; this handler keeps the message instead,
// and the writer checks for it after each step.
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

}  // namespace

bool Write_Png(const std::string& path, const Picture& picture, std::string& error) {
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
    // Every row in RGB bytes first, so nothing below can fail half-way
    // through with memory of its own to free.
    const auto w = static_cast<std::size_t>(picture.Width);
    std::vector<png_byte> rgb;
    rgb.reserve(picture.Pixels.size() * 3);
    for (const std::uint32_t c : picture.Pixels)
        for (const int shift : {16, 8, 0}) rgb.push_back(static_cast<png_byte>(c >> shift));
    std::vector<png_bytep> rows;
    for (std::size_t y = 0; y < static_cast<std::size_t>(picture.Height); ++y) rows.push_back(&rgb[y * w * 3]);

    Png_Writer writer;
    if (!writer.info) {
        error = "libpng could not start";
        return false;
    }
    if (setjmp(png_jmpbuf(writer.png))) {
        error = "libpng could not write " + path;
        return false;
    }
    png_init_io(writer.png, file.get());
    png_set_IHDR(writer.png, writer.info, static_cast<png_uint_32>(picture.Width),
                 static_cast<png_uint_32>(picture.Height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_rows(writer.png, writer.info, rows.data());
    png_write_png(writer.png, writer.info, PNG_TRANSFORM_IDENTITY, nullptr);
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
