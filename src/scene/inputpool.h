// Memory for the inputs of a scene.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

namespace ko::mirel_sdk::impl {

// Hands out places of one size, many to a chunk. A chunk goes with the last input in it, since
// counted references may keep an input beyond its scene; places are not used again before that.
class InputPool {
  public:
    InputPool() = default;
    InputPool(const InputPool&) = delete;
    InputPool& operator=(const InputPool&) = delete;
    ~InputPool() {
        if (current_) drop(current_);
    }

    // Throws std::bad_alloc.
    void* allocate(unsigned long size) {
        if (!current_ || used_ + size > chunkSize) startChunk();
        void* const place = reinterpret_cast<char*>(current_) + used_;
        used_ += size;
        current_->holders.fetch_add(1, std::memory_order_relaxed);
        return place;
    }

    static void free(void* place) noexcept {
        constexpr std::uintptr_t offsets = chunkSize - 1;
        drop(reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(place) & ~offsets));
    }

  private:
    // Also its alignment: the chunk of a place follows from the address.
    static constexpr unsigned long chunkSize = 16384;

    struct Chunk {
        std::atomic<std::uint32_t> holders{
            1};  // its inputs, and the pool while it is the current one
    };

    static constexpr unsigned long firstPlace = alignof(std::max_align_t);
    static_assert(sizeof(Chunk) <= firstPlace);

    void startChunk() {
        auto* const chunk = new (::operator new(chunkSize, std::align_val_t(chunkSize))) Chunk;
        if (current_) drop(current_);
        current_ = chunk;
        used_ = firstPlace;
    }

    static void drop(Chunk* chunk) noexcept {
        if (chunk->holders.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        ::operator delete(chunk, std::align_val_t(chunkSize));
    }

    Chunk* current_ = nullptr;
    unsigned long used_ = 0;
};

}  // namespace ko::mirel_sdk::impl
