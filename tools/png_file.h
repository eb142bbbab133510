// Pictures as PNG files (libpng): 8-bit RGB, no interlace.
#pragma once

#include <string>

#include <trekcom/picture.h>
#include <trekcom/types.h>

namespace trekcom::tool {

// Writes the picture; false with a reason when the file cannot be written.
bool Write_Png(const std::string& path, const Picture& picture, std::string& error);
// Reads any PNG as 8-bit RGB (transparent pixels become magenta, the colour
// receivers leave undrawn); false with a reason when it cannot.
bool Read_Png(const std::string& path, Picture& picture, std::string& error);
// A 24-bit Windows bitmap file of the picture.
Bytes Bmp_File(const Picture& picture);

}  // namespace trekcom::tool
