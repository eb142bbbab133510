// Translation of the control's messages through ".tlt" profile files.
//
// A phrase is looked up in the file "<folder>/<base>_<language>.tlt", section
// "Translations", key = the phrase exactly as the control spells it. The
// folder and base name are those of the program the library runs in (the
// library is linked statically, so its own binary is the program); a host
// moves the folder with Platform::Translation_Folder. With the language
// "English" or empty, no file is touched and the phrase comes back as it is.
// A phrase the file lacks (or has with an empty value) is written into it
// with itself as the value, so a translator finds every phrase in use there.
// A translation is cut to 255 characters. Nothing here ever fails: any
// trouble with the file yields the English phrase.
#pragma once

#include <filesystem>
#include <string>

#include "trekcom/platform.h"

namespace trekcom::detail {

inline constexpr std::size_t kMax_Translation_Chars = 255;

// The translation file of a language, or an empty path when the language
// needs none ("English", empty) or cannot name a file (a path separator or
// a NUL in it).
std::filesystem::path Translation_File(const Platform& platform, const std::string& language);

// The phrase in the language.
std::string Translate(const Platform& platform, const std::string& language, const std::string& phrase);

}  // namespace trekcom::detail
