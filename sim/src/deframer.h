// The receiver's reading of the host's byte stream: DLE, id, size, data,
// checksum, DLE ETX, with doubled DLEs inside. Each byte moves a small state
// machine; a frame is judged when its DLE ETX arrives. Bytes outside frames
// are counted and dropped, and a frame that overruns the largest possible
// size is dropped, so no input makes it grow without bound.
#pragma once

#include <cstdint>
#include <functional>

#include "trekcom/types.h"

namespace trekcom::sim {

class Deframer {
public:
    struct Frame {
        bool good = false;     // size and checksum agree
        std::uint8_t id = 0;
        Bytes data;            // when good
    };
    using Sink = std::function<void(const Frame&)>;

    explicit Deframer(Sink sink) : sink_(std::move(sink)) {}

    void Feed(const Bytes& bytes) {
        for (std::uint8_t b : bytes) Step(b);
    }
    void Reset() {
        state_ = State::idle;
        body_.clear();
    }
    long Garbage_Bytes() const { return garbage_; }

private:
    enum class State { idle, start, body, body_dle };
    static constexpr std::uint8_t kDle = 16;
    static constexpr std::uint8_t kEtx = 3;
    // id, size, 255 data bytes and the checksum.
    static constexpr std::size_t kMaxBody = 258;

    void Step(std::uint8_t b);
    void Judge();

    Sink sink_;
    State state_ = State::idle;
    Bytes body_;  // id, size, data, checksum, unstuffed
    long garbage_ = 0;
};

}  // namespace trekcom::sim
