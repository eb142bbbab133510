// Runs a fuzz target's entry point on every file of the given folders (or on
// the given files), in name order: how ordinary builds replay the committed
// corpus, seeds and regressions, without libFuzzer. A finding aborts or is
// reported by the sanitizers; the file being run is printed first.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg))
                if (entry.is_regular_file()) files.push_back(entry.path());
        } else {
            files.push_back(arg);
        }
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "no corpus files\n");
        return 1;
    }
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        std::printf("%s (%zu bytes)\n", file.filename().string().c_str(), bytes.size());
        std::fflush(stdout);
        // An exact-size heap block, as libFuzzer hands its inputs over.
        std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return 0;
}
