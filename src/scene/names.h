// The names of the inputs and outputs of a scene.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <ko/ds.h>
#include <ko/foundation.h>
#include <ko/scene.h>

namespace ko::mirel_sdk::impl {

// Each name once, as a number from 1 on. None is ever forgotten. Counted, since an input keeps its
// name when it outlives its scene.
class [[gnu::visibility("hidden")]] Names {
  public:
    Names() = default;
    Names(const Names&) = delete;
    Names& operator=(const Names&) = delete;

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept;

    // The number of a name; 0 when there is none.
    Symbol find(const String& name) const;
    // Likewise, and it gets one. Throws std::bad_alloc and is then unchanged.
    Symbol intern(const String& name);
    // The name, which stays where it is.
    const String& operator[](Symbol symbol) const {
        const Place place(symbol);
        return blocks_[place.block][place.at];
    }

  private:
    ~Names() = default;

    // Names stand in blocks of 16, 32, 64, ...
    struct Place {
        static constexpr Symbol smallest = 16;
        explicit Place(Symbol symbol) {
            const unsigned long counted = std::uint64_t(symbol) + smallest;
            const auto highest = static_cast<unsigned>(63 - __builtin_clzl(counted));
            block = highest - 4;
            at = counted - (1UL << highest);
        }
        unsigned block;
        unsigned long at;
    };
    static constexpr unsigned blockCount = 29;  // for all symbols that there can be

    struct Slot {
        std::uint32_t hash = 0;
        Symbol symbol = 0;
    };

    static std::uint32_t checkOf(unsigned long hash) {
        return static_cast<std::uint32_t>(hash >> 32U);
    }
    // Where a name stands, or would stand.
    unsigned long place(const String& name, unsigned long hash) const;
    Symbol add(const String& name, unsigned long hash);
    void grow();

    std::atomic<std::uint32_t> references_{0};
    Symbol last_ = 0;
    ds::Vector<Slot> slots_;  // none, or a power of two of them, at most half of them taken
    // The first one holds the empty name from the start.
    std::unique_ptr<String[]> blocks_[blockCount] = {std::make_unique<String[]>(Place::smallest)};
};

}  // namespace ko::mirel_sdk::impl
