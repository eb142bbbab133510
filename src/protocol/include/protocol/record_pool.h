// Record objects handed out from shared blocks.
//
// A long track download stores one record object per point. Allocated one by
// one, each point costs its own heap block and its own shared_ptr control
// block; taken from a block of many, the points share one control block and
// one allocation. Each pointer handed out keeps its whole block alive, so a
// host that keeps one point and drops the rest holds the block: a trade worth
// making for records that arrive by the hundred thousand.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

namespace trekcom::protocol {

template <typename T, std::size_t Block_Size = 256>
class Record_Pool {
public:
    std::shared_ptr<T> Make(T&& value) {
        if (!block_ || used_ == Block_Size) {
            block_ = std::make_shared<T[]>(Block_Size);
            used_ = 0;
        }
        T& slot = block_[used_++];
        slot = std::move(value);
        return std::shared_ptr<T>(block_, &slot);  // shares the block's ownership
    }

private:
    std::shared_ptr<T[]> block_;
    std::size_t used_ = 0;
};

}  // namespace trekcom::protocol
