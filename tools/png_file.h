// Pictures as PNG files (libpng).
#pragma once

#include <string>

#include <trekcom/picture.h>
#include <trekcom/types.h>

namespace trekcom::tool {

// Writes the picture with a palette of `depth` bits (1, 2, 4 or 8) per pixel,
// or of the smallest depth that holds its colours, or as 8-bit RGB when it
// has more than 256; false with a reason when the file cannot be written.
bool Write_Png(const std::string& path, const Picture& picture, int depth, std::string& error);
// Reads any PNG as 8-bit RGB (transparent pixels become magenta, the colour
// receivers leave undrawn); false with a reason when it cannot.
bool Read_Png(const std::string& path, Picture& picture, std::string& error);
// A 24-bit Windows bitmap file of the picture.
Bytes Bmp_File(const Picture& picture);

}  // namespace trekcom::tool
