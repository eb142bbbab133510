// Pictures as PNG files (libpng): 8-bit RGB, no interlace.
#pragma once

#include <string>

#include <trekcom/picture.h>

namespace trekcom::tool {

// Writes the picture; false with a reason when the file cannot be written.
bool Write_Png(const std::string& path, const Picture& picture, std::string& error);

}  // namespace trekcom::tool
