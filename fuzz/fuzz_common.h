// What the fuzz targets share: exact-size copies of the input, so a read one
// byte past it leaves the heap block (ASan sees it), and a control on the
// virtual platform whose protocol values are chosen by the input.
#pragma once

#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "control/control.h"
#include "link/framing.h"
#include "trekcom/trekcom.h"

namespace trekcom::fuzz {

// The input as a packet: a vector whose block holds exactly these bytes.
inline Bytes Exact(const std::uint8_t* data, std::size_t size) {
    Bytes out(data, data + size);
    out.shrink_to_fit();
    return out;
}

// The input as text, in a heap block of exactly its size.
class Exact_Text {
public:
    Exact_Text(const std::uint8_t* data, std::size_t size)
        : block_(std::make_unique_for_overwrite<char[]>(size)), size_(size) {
        for (std::size_t i = 0; i < size; ++i) block_[i] = static_cast<char>(data[i]);
    }
    std::string_view View() const { return {block_.get(), size_}; }

private:
    std::unique_ptr<char[]> block_;
    std::size_t size_;
};

// A file of this process's own in the temporary folder (other processes may
// run the same target at once), removed when the process ends.
class Scratch_File {
public:
    explicit Scratch_File(const std::string& name) {
        std::random_device random;
        path_ = std::filesystem::temp_directory_path() / (name + "-" + std::to_string(random()));
    }
    ~Scratch_File() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    Scratch_File(const Scratch_File&) = delete;
    Scratch_File& operator=(const Scratch_File&) = delete;
    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

// The three sets of protocol values a receiver can leave in force.
enum class Identity : std::uint8_t {
    l001_defaults,     // nothing identified: the L001 ids and the defaults
    l002_table,        // an L002 unit known by its product id (the built-in table)
    capability_array,  // a unit that sent its capability array
};

// A control on the virtual platform, its port closed: what it would send goes
// nowhere, and its waits cost no real time.
struct Fuzz_Control {
    Fuzz_Control() = default;
    explicit Fuzz_Control(Identity identity) { Identify(identity); }

    detail::Control& C() { return detail::Control::Of(ctl); }

    void Identify(Identity identity) {
        auto& engine = C().engine;
        switch (identity) {
        case Identity::l001_defaults:
            break;
        case Identity::l002_table:
            // Product 20, an L002 unit of the product table.
            engine.Dispatch_Packet(link::Make_Packet(255, {20, 0, 44, 1, 'G', 'P', 'S', ' ', '1', '5', '0', 0}));
            break;
        case Identity::capability_array: {
            engine.Dispatch_Packet(link::Make_Packet(255, {0xE8, 3, 0x7C, 1, 'S', 'I', 'M', 0}));
            Bytes array;
            for (const char* entry : {"P000", "L001", "A010", "A100", "D108", "A201", "D202", "D108", "D210", "A301",
                                      "D310", "D301", "A400", "D108", "A500", "D501", "A600", "D600", "A650", "D650",
                                      "A700", "D700", "A800", "D800", "A906", "D906"}) {
                const int n = (entry[1] - '0') * 100 + (entry[2] - '0') * 10 + (entry[3] - '0');
                array.insert(array.end(), {static_cast<std::uint8_t>(entry[0]), static_cast<std::uint8_t>(n),
                                           static_cast<std::uint8_t>(n >> 8)});
            }
            engine.Dispatch_Packet(link::Make_Packet(253, array));
            break;
        }
        }
    }

    std::shared_ptr<VirtualPlatform> vp = std::make_shared<VirtualPlatform>();
    TrekcomCtl ctl{vp};
};

// Hands the line's bytes to the parser in chunks of `chunk` bytes (0: all at
// once), then lets it drain: one packet or line per call, as the receive
// event does, while the buffer shrinks.
inline void Feed(link::Link& link, std::string_view bytes, std::size_t chunk) {
    while (!bytes.empty()) {
        const std::size_t n = chunk == 0 ? bytes.size() : std::min(chunk, bytes.size());
        link.Parse_Input(bytes.substr(0, n));
        bytes.remove_prefix(n);
    }
    for (std::size_t before = link.Buffer().size(); before > 0; before = link.Buffer().size()) {
        link.Parse_Input({});
        if (link.Buffer().size() >= before) break;
    }
}

inline Identity Identity_Of(std::uint8_t selector) { return static_cast<Identity>(selector % 3); }

}  // namespace trekcom::fuzz
