// Little-endian numbers in received or outgoing bytes, every access checked
// against the buffer: a number that does not fit reads as 0 and is not
// written. Integers and IEEE floats of 1, 2, 4 or 8 bytes.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace trekcom::link {

namespace le_detail {
template <std::size_t N> struct Unsigned;
template <> struct Unsigned<1> { using type = std::uint8_t; };
template <> struct Unsigned<2> { using type = std::uint16_t; };
template <> struct Unsigned<4> { using type = std::uint32_t; };
template <> struct Unsigned<8> { using type = std::uint64_t; };
}  // namespace le_detail

template <typename T>
T Get_LE(std::span<const std::uint8_t> bytes, std::size_t offset) {
    static_assert(std::is_arithmetic_v<T>);
    using U = typename le_detail::Unsigned<sizeof(T)>::type;
    if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return T{};
    U value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) value |= static_cast<U>(U{bytes[offset + i]} << (8 * i));
    return std::bit_cast<T>(value);
}

template <typename T>
bool Put_LE(std::span<std::uint8_t> bytes, std::size_t offset, T value) {
    static_assert(std::is_arithmetic_v<T>);
    using U = typename le_detail::Unsigned<sizeof(T)>::type;
    if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return false;
    const U bits = std::bit_cast<U>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i) bytes[offset + i] = static_cast<std::uint8_t>(bits >> (8 * i));
    return true;
}

}  // namespace trekcom::link
