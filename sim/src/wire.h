// Little-endian fields of the receiver's records. The reader never reads past
// its data: a field that does not fit marks the reader failed and reads as 0,
// so a short or hostile record is refused as a whole, never half-read.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

#include "trekcom/types.h"

namespace trekcom::sim::wire {

class Writer {
public:
    void U8(std::uint8_t v) { out_.push_back(v); }
    void U16(std::uint16_t v) {
        U8(static_cast<std::uint8_t>(v));
        U8(static_cast<std::uint8_t>(v >> 8));
    }
    void I16(std::int16_t v) { U16(static_cast<std::uint16_t>(v)); }
    void U32(std::uint32_t v) {
        U16(static_cast<std::uint16_t>(v));
        U16(static_cast<std::uint16_t>(v >> 16));
    }
    void I32(std::int32_t v) { U32(static_cast<std::uint32_t>(v)); }
    void F32(float v) { U32(std::bit_cast<std::uint32_t>(v)); }
    void F64(double v) {
        const auto bits = std::bit_cast<std::uint64_t>(v);
        U32(static_cast<std::uint32_t>(bits));
        U32(static_cast<std::uint32_t>(bits >> 32));
    }
    // A fixed field: left-aligned, padded with spaces, cut to width.
    void Fixed(const std::string& text, std::size_t width) {
        for (std::size_t i = 0; i < width; ++i)
            U8(i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{' '});
    }
    // A NUL-terminated field of at most max_len characters.
    void Text(const std::string& text, std::size_t max_len = 255) {
        const std::size_t n = std::min(text.size(), max_len);
        for (std::size_t i = 0; i < n; ++i) {
            const auto c = static_cast<std::uint8_t>(text[i]);
            if (c == 0) break;
            U8(c);
        }
        U8(0);
    }
    void Raw(const std::uint8_t* p, std::size_t n) { out_.insert(out_.end(), p, p + n); }
    std::size_t Size() const { return out_.size(); }
    Bytes Take() { return std::move(out_); }

private:
    Bytes out_;
};

class Reader {
public:
    explicit Reader(const Bytes& data) : data_(data) {}

    bool Ok() const { return ok_; }
    std::size_t Left() const { return data_.size() - pos_; }
    std::size_t Pos() const { return pos_; }

    std::uint8_t U8() {
        if (!Need(1)) return 0;
        return data_[pos_++];
    }
    std::uint16_t U16() {
        if (!Need(2)) return 0;
        const auto v = static_cast<std::uint16_t>(data_[pos_] | (data_[pos_ + 1] << 8));
        pos_ += 2;
        return v;
    }
    std::int16_t I16() { return static_cast<std::int16_t>(U16()); }
    std::uint32_t U32() {
        if (!Need(4)) return 0;
        std::uint32_t v = 0;
        for (int i = 3; i >= 0; --i) v = (v << 8) | data_[pos_ + static_cast<std::size_t>(i)];
        pos_ += 4;
        return v;
    }
    std::int32_t I32() { return static_cast<std::int32_t>(U32()); }
    float F32() { return std::bit_cast<float>(U32()); }
    double F64() {
        if (!Need(8)) return 0;
        const std::uint64_t lo = U32();
        const std::uint64_t hi = U32();
        return std::bit_cast<double>(lo | (hi << 32));
    }
    // A fixed field: up to the first NUL, trailing spaces trimmed.
    std::string Fixed(std::size_t width) {
        if (!Need(width)) return {};
        std::string s;
        for (std::size_t i = 0; i < width; ++i) {
            const auto c = data_[pos_ + i];
            if (c == 0) break;
            s.push_back(static_cast<char>(c));
        }
        pos_ += width;
        while (!s.empty() && s.back() == ' ') s.pop_back();
        return s;
    }
    // A NUL-terminated field; a missing terminator fails the record.
    std::string Text() {
        std::string s;
        while (pos_ < data_.size() && data_[pos_] != 0) s.push_back(static_cast<char>(data_[pos_++]));
        if (pos_ >= data_.size()) {
            ok_ = false;
            return s;
        }
        ++pos_;  // the NUL
        return s;
    }
    void Raw(std::uint8_t* p, std::size_t n) {
        if (!Need(n)) {
            std::memset(p, 0, n);
            return;
        }
        std::memcpy(p, data_.data() + pos_, n);
        pos_ += n;
    }

private:
    bool Need(std::size_t n) {
        if (ok_ && Left() >= n) return true;
        ok_ = false;
        return false;
    }

    const Bytes& data_;
    std::size_t pos_ = 0;
    bool ok_ = true;
};

}  // namespace trekcom::sim::wire
