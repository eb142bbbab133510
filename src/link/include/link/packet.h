// An application packet: a 16-bit id and its data. This is what the
// transports move and what the record codecs read and write; the serial
// frame and the USB packet are the transports' business.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "trekcom/types.h"

namespace trekcom::link {

// The data of a received packet, as it lies in the transport's buffer.
using Data_View = std::span<const std::uint8_t>;

struct Packet {
    std::uint16_t id = 0;
    Bytes data;
    // The size a serial frame announces when it is not the data's length:
    // track points go out with the D300 size whatever their layout, and a
    // USB packet then carries only that much of the data, as its serial
    // frame would be read.
    std::optional<std::uint8_t> announced;

    std::size_t Announced_Size() const { return announced ? *announced : data.size(); }
};

}  // namespace trekcom::link
