// An ordered collection of shared record objects, numbered from 1.
//
// It holds std::shared_ptr<T>, so one record can sit in two collections at
// once (a route's waypoints are also in the waypoint collection). A null
// pointer is a valid element. Backed by a vector: Add is amortised O(1), so a
// transfer of 100,000 track points costs nothing extra; Remove is O(n).
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace trekcom {

template <typename T>
class Collection {
public:
    using value_type = std::shared_ptr<T>;
    using iterator = typename std::vector<value_type>::iterator;
    using const_iterator = typename std::vector<value_type>::const_iterator;

    // The element at position i, 1 <= i <= Count(); anything else throws
    // std::out_of_range, as a collection lookup with a bad index fails.
    value_type Item(std::int32_t i) const { return items_.at(Position(i)); }

    std::int32_t Count() const noexcept { return static_cast<std::int32_t>(items_.size()); }

    // Appends at the end.
    void Add(value_type item) { items_.push_back(std::move(item)); }

    // Removes the element at position i (1-based); the later ones move up.
    void Remove(std::int32_t i) { items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(Position(i))); }

    // Empties the collection and gives its storage back: a cleared collection
    // of 100,000 track points should not keep their 1.6 MB of pointers.
    void Clear() noexcept { std::vector<value_type>().swap(items_); }

    iterator begin() noexcept { return items_.begin(); }
    iterator end() noexcept { return items_.end(); }
    const_iterator begin() const noexcept { return items_.begin(); }
    const_iterator end() const noexcept { return items_.end(); }

private:
    std::size_t Position(std::int32_t i) const {
        if (i < 1 || static_cast<std::size_t>(i) > items_.size())
            throw std::out_of_range("Collection index " + std::to_string(i) + " outside 1.." +
                                    std::to_string(items_.size()));
        return static_cast<std::size_t>(i) - 1;
    }

    std::vector<value_type> items_;
};

}  // namespace trekcom
