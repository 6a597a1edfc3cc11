// Memory for the objects of a scene.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include <ko/ds.h>

#include "../memory.h"

namespace ko::mirel_sdk::impl {

// Makes objects one behind the other, many to a chunk. A chunk goes with the last object in it,
// since counted references may keep an input beyond its scene; places are not used again before
// that. An object keeps its place in `poolOffset_`, which leads back to the chunk.
class Pool {
  public:
    Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() {
        if (current_) retire();
    }

    // Throws std::bad_alloc and what the constructor throws.
    template <class T, class... Args>
    T* make(Args&&... args) {
        return makeLonger<T>(0, std::forward<Args>(args)...);
    }

    // Likewise, with so many bytes right behind the object.
    template <class T, class... Args>
    T* makeLonger(unsigned long behind, Args&&... args) {
        static_assert(alignof(T) <= placeSize);
        const unsigned long size = (sizeof(T) + behind + placeSize - 1) / placeSize * placeSize;
        if (size > chunkSize_ - used_) startChunk();
        // Taken once the object is there: a constructor that throws leaves the place free.
        auto* const object =
            new (reinterpret_cast<char*>(current_) + used_) T(std::forward<Args>(args)...);
        object->poolOffset_ = static_cast<std::uint32_t>(used_);
        used_ += size;
        ++made_;
        return object;
    }

    // `behind` is as `makeLonger` was told.
    template <class T>
    static void destroy(T* object, unsigned long behind = 0) noexcept {
        auto* const chunk =
            reinterpret_cast<Chunk*>(reinterpret_cast<char*>(object) - object->poolOffset_);
        object->~T();
        memory::forbid(object, sizeof(T) + behind);
        drop(chunk, 1);
    }

  private:
    static constexpr unsigned long placeSize = 8;
    static constexpr unsigned long smallestChunk = 4096;
    static constexpr unsigned long largestChunk = 32UL << 20;
    // Chunks double up to large pages; from then on they grow by a share of what the scene has.
    static constexpr unsigned long share = 4;
    // Stands for all objects to come, as long as a chunk takes in more.
    static constexpr std::uint32_t open = std::uint32_t(1) << 31;

    struct Chunk {
        std::atomic<std::uint32_t> objects{open};
    };

    void startChunk() {
        const unsigned long wanted = std::max(total_ / share, std::min(total_, memory::largePage));
        unsigned long size = std::clamp(wanted, smallestChunk, largestChunk);
        if (size >= memory::largePage) size = size / memory::largePage * memory::largePage;
        void* const memory = ds::allocateBlock(size);
        if (current_) retire();
        current_ = new (memory) Chunk;
        chunkSize_ = size;
        total_ += size;
        used_ = placeSize;
        made_ = 0;
    }

    void retire() noexcept { drop(current_, open - made_); }

    static void drop(Chunk* chunk, std::uint32_t count) noexcept {
        if (chunk->objects.fetch_sub(count, std::memory_order_acq_rel) == count) {
            ds::freeBlock(chunk);
        }
    }

    Chunk* current_ = nullptr;
    unsigned long chunkSize_ = 0;
    unsigned long used_ = 0;
    std::uint32_t made_ = 0;
    unsigned long total_ = 0;  // bytes of all chunks so far
};

}  // namespace ko::mirel_sdk::impl
