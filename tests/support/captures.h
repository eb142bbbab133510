// The recorded receiver streams under tests/captures.
#pragma once

#include <fstream>
#include <iterator>
#include <string>

namespace trekcom::testing {

inline std::string Capture_File(const std::string& name) {
    std::ifstream in(std::string(TREKCOM_CAPTURES_DIR) + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A binary recording's bytes, without its '#' header lines.
inline std::string Capture_Wire(const std::string& name) {
    const std::string all = Capture_File(name);
    std::size_t pos = 0;
    while (pos < all.size() && all[pos] == '#') pos = all.find('\n', pos) + 1;
    return all.substr(pos);
}

}  // namespace trekcom::testing
