// Frames out of a byte stream, as either end of the line reads them: DLE
// opens, the id follows (never stuffed), a doubled DLE is one data byte and
// DLE ETX closes. Bytes outside frames are noise, and so is a DLE ETX right
// after the opening DLE. A frame is good when no lone DLE broke it and its
// size byte and checksum agree with it.
#pragma once

#include <optional>

#include "link/framing.h"

namespace trekcom::testing {

struct Frame {
    Bytes packet;  // DLE, id, size, data, checksum, DLE ETX, unstuffed
    std::uint8_t id = 0;
    Bytes data;  // when good
    bool good = false;
};

class Deframer {
public:
    // The frame this byte completes, if any.
    std::optional<Frame> Take(std::uint8_t b) {
        if (!in_frame_) {
            if (b == link::DLE) {
                in_frame_ = true;
                dle_ = broken_ = false;
                cur_ = {b};
            }
            return std::nullopt;
        }
        if (cur_.size() == 1) {  // the id; after DLE DLE, the second DLE opens
            if (b == link::ETX) in_frame_ = false;
            if (b != link::ETX && b != link::DLE) cur_.push_back(b);
            return std::nullopt;
        }
        if (!dle_) {
            if (b == link::DLE)
                dle_ = true;
            else
                cur_.push_back(b);
            return std::nullopt;
        }
        dle_ = false;
        if (b != link::ETX) {
            broken_ = broken_ || b != link::DLE;
            cur_.push_back(b);
            return std::nullopt;
        }
        in_frame_ = false;
        cur_.insert(cur_.end(), {link::DLE, link::ETX});
        Frame f{cur_, cur_[1], {}, false};
        if (!broken_ && cur_.size() >= 6 && cur_[2] == cur_.size() - 6 &&
            link::Calc_Checksum(cur_) == cur_[cur_.size() - 3]) {
            f.good = true;
            f.data = link::Packet_Data(cur_);
        }
        return f;
    }

private:
    bool in_frame_ = false, dle_ = false, broken_ = false;
    Bytes cur_;
};

}  // namespace trekcom::testing
