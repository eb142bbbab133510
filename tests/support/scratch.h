// A folder of its own for one test, and whole-file reads and writes.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace trekcom::testing {

// Removed with everything in it when the test ends.
struct Scratch_Folder {
    Scratch_Folder() {
        static std::mt19937_64 seed{std::random_device{}()};
        path = std::filesystem::temp_directory_path() / ("trekcom-test-" + std::to_string(seed()));
        std::filesystem::create_directories(path);
    }
    ~Scratch_Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    Scratch_Folder(const Scratch_Folder&) = delete;
    Scratch_Folder& operator=(const Scratch_Folder&) = delete;
    std::filesystem::path operator/(const std::string& name) const { return path / name; }
    std::filesystem::path path;
};

inline std::string Read_File(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void Write_File(const std::filesystem::path& p, const std::string& text) {
    std::ofstream(p, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace trekcom::testing
