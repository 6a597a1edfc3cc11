// What lists of inputs and outputs do that takes the memory of a scene.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

#include <ko/ds.h>
#include <ko/scene.h>

#include "scene/pool.h"

namespace ko::mirel_sdk::impl {

// Finds items by symbol, in open addressing.
template <class T>
class NamedList<T>::Index {
  public:
    // With room for `capacity` items.
    explicit Index(unsigned long capacity) : slots_(ds::Vector<Slot>::ofSize(slotsFor(capacity))) {}

    // The position of an item, maybe of one that was taken out; beyond all where it was never in.
    std::uint32_t find(Symbol name) const {
        const Slot& slot = slots_[place(name)];
        return slot.behind - 1;
    }
    void insert(Symbol name, unsigned long position) {
        Slot& slot = slots_[place(name)];
        slot.name = name;
        slot.behind = static_cast<std::uint32_t>(position) + 1;
    }

  private:
    struct Slot {
        Symbol name = 0;
        std::uint32_t behind = 0;  // the position, and one
    };

    static unsigned long slotsFor(unsigned long capacity) {
        unsigned long slots = 2;
        while (slots < 2 * capacity)
            slots *= 2;
        return slots;
    }

    // A document can choose the symbols of the names of one node: a factor that it does not know
    // leads them apart.
    unsigned long place(Symbol name) const {
        const unsigned long mask = slots_.size() - 1;
        unsigned long at = ds::spreadBits(name * factor_) & mask;
        while (slots_[at].behind && slots_[at].name != name)
            at = (at + 1) & mask;
        return at;
    }

    ds::Vector<Slot> slots_;
    const unsigned long factor_ = ds::oddRandom();
};

template <class T>
NamedList<T>::~NamedList() {
    if (isIndexed()) delete index_;
    if (items_) free(items_, capacity_);
}

template <class T>
inline T* NamedList<T>::find(Symbol name) const {
    if (isIndexed()) {
        const std::uint32_t at = index_->find(name);
        return at < size_ ? items_[at] : nullptr;
    }
    constexpr std::uint64_t everyByte = 0x0101010101010101;
    const std::uint64_t differences = marks_ ^ everyByte * (name & 0xFFU);
    // The highest bit of each byte that is zero, and maybe of some above it.
    std::uint64_t same = (differences - everyByte) & ~differences & everyByte << 7U;
    for (; same != 0; same &= same - 1) {
        const auto i = static_cast<unsigned long>(__builtin_ctzll(same)) / 8;
        if (i >= size_) return nullptr;
        if (items_[i]->name_ == name) return items_[i];
    }
    return nullptr;
}

template <class T>
inline void NamedList<T>::add(Pool& pool, T* item, unsigned long expected) {
    if (!items_ && expected - 1 < longestScan) {
        items_ = PoolArray::make<T>(pool, expected);
        capacity_ = static_cast<std::uint32_t>(expected);
    } else if (size_ == capacity_) {
        grow(pool, items_ ? 2 * std::uint64_t(capacity_) : expected);
    }
    if (isIndexed()) {
        index_->insert(item->name_, size_);
    } else {
        marks_ |= std::uint64_t(item->name_ & 0xFFU) << 8 * size_;
    }
    items_[size_++] = item;
}

template <class T>
void NamedList<T>::grow(Pool& pool, unsigned long capacity) {
    constexpr unsigned long most = std::numeric_limits<std::uint32_t>::max();
    if (size_ == most) throw std::bad_alloc();
    capacity = std::clamp(capacity, 1UL, most);
    const bool isLong = capacity > longestScan;
    std::unique_ptr<Index> index(isLong ? new Index(capacity) : nullptr);
    T** const items = room(pool, capacity);
    std::copy_n(items_, size_, items);
    if (isLong) {
        for (unsigned long i = 0; i < size_; ++i)
            index->insert(items[i]->name_, i);
        if (isIndexed()) delete index_;
        index_ = index.release();
    }
    if (items_) free(items_, capacity_);
    items_ = items;
    capacity_ = static_cast<std::uint32_t>(capacity);
}

template <class T>
T** NamedList<T>::room(Pool& pool, unsigned long capacity) {
    return capacity <= PoolArray::longest ? PoolArray::make<T>(pool, capacity) : new T*[capacity];
}

template <class T>
void NamedList<T>::free(T** items, unsigned long capacity) noexcept {
    if (capacity <= PoolArray::longest) {
        PoolArray::destroy(items, capacity);
    } else {
        delete[] items;
    }
}

template <class T>
inline T* NamedList<T>::takeLast() noexcept {
    return size_ == 0 ? nullptr : items_[--size_];
}

}  // namespace ko::mirel_sdk::impl
