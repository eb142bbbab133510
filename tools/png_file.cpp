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

}  // namespace trekcom::tool
