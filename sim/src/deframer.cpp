#include "deframer.h"

namespace trekcom::sim {

void Deframer::Step(std::uint8_t b) {
    switch (state_) {
        case State::idle:
            if (b == kDle)
                state_ = State::start;
            else
                ++garbage_;
            return;
        case State::start:
            // After a frame-opening DLE: the id. A DLE here is taken as the
            // real opening (the first was noise); an ETX ends nothing.
            if (b == kDle) {
                ++garbage_;
                return;
            }
            if (b == kEtx) {
                garbage_ += 2;
                state_ = State::idle;
                return;
            }
            body_.assign(1, b);
            state_ = State::body;
            return;
        case State::body:
            if (b == kDle) {
                state_ = State::body_dle;
                return;
            }
            body_.push_back(b);
            break;
        case State::body_dle:
            if (b == kDle) {  // a doubled DLE is one data byte
                body_.push_back(b);
                state_ = State::body;
                break;
            }
            if (b == kEtx) {
                Judge();
                body_.clear();
                state_ = State::idle;
                return;
            }
            // A lone DLE inside a frame: the frame is broken, and this DLE
            // may well open the next one, with b as its id.
            sink_(Frame{false, body_.empty() ? std::uint8_t{0} : body_[0], {}});
            body_.assign(1, b);
            state_ = State::body;
            return;
    }
    if (body_.size() > kMaxBody) {
        sink_(Frame{false, body_[0], {}});
        garbage_ += static_cast<long>(body_.size());
        body_.clear();
        state_ = State::idle;
    }
}

void Deframer::Judge() {
    Frame f;
    f.id = body_.empty() ? 0 : body_[0];
    if (body_.size() >= 3 && body_[1] == body_.size() - 3) {
        unsigned sum = 0;
        for (std::size_t i = 0; i + 1 < body_.size(); ++i) sum += body_[i];
        if (static_cast<std::uint8_t>(sum + body_.back()) == 0) {
            f.good = true;
            f.data.assign(body_.begin() + 2, body_.end() - 1);
        }
    }
    sink_(f);
}

}  // namespace trekcom::sim
