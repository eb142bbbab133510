// The tests read what the host writes with the simulated unit's own deframer
// and framer: a second reading of the line, written apart from the library's,
// so that a framing mistake in one shows up against the other.
#pragma once

#include <vector>

#include "deframer.h"
#include "framer.h"
#include "trekcom/types.h"

namespace trekcom::testing {

struct Frame {
    Bytes packet;  // DLE, id, size, data, checksum, DLE ETX, unstuffed; when good
    std::uint8_t id = 0;
    Bytes data;  // when good
    bool good = false;
};

class Deframer {
public:
    // The frames these bytes complete, in order.
    std::vector<Frame> Feed(const Bytes& bytes) {
        got_.clear();
        reader_.Feed(bytes);
        return std::move(got_);
    }

private:
    std::vector<Frame> got_;
    sim::Deframer reader_{[this](const sim::Deframer::Frame& f) {
        got_.push_back({f.good ? sim::frame::Packet(f.id, f.data) : Bytes{}, f.id, f.data, f.good});
    }};
};

}  // namespace trekcom::testing
