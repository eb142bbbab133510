// Basic types shared by every public header.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace trekcom {

// A byte array: packets, wire bytes, bitmaps.
using Bytes = std::vector<std::uint8_t>;

// The one failure that reaches a host as an exception: assigning to a
// read-only property (number 383, with the translated description).
class RuntimeError : public std::runtime_error {
public:
    RuntimeError(int number, const std::string& description)
        : std::runtime_error(description), number_(number) {}
    int Number() const noexcept { return number_; }

private:
    int number_;
};

// Handshaking codes of the serial port, valued as the port itself numbers them.
enum class Handshaking_Values : std::int16_t {
    comNone = 0,
    comXOnXoff = 1,
    comRTS = 2,
    comRTSXOnXOff = 3,
};

// "Packet as text": one char per byte value 0..255.
inline std::string Bytes2String(const Bytes& packet) {
    return std::string(packet.begin(), packet.end());
}

inline Bytes String2Bytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

}  // namespace trekcom
