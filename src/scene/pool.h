// Memory for the objects of a scene.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include <ko/ds.h>
#include <ko/foundation.h>
#include <ko/scene.h>

#include "foundation/memory.h"
#include "scene/names.h"

namespace ko::mirel_sdk::impl {

// Makes objects one after the other, many to a chunk. A chunk goes with the last object in it,
// since counted references may keep an input beyond its scene; places are not used again before
// that. An object is told its place, in units of eight bytes, and keeps it in `place_`, from where
// it finds what its chunk says: its pool, while that is there, and the names of its scene.
class Pool {
  public:
    // No place is beyond this one.
    static constexpr std::uint32_t lastPlace = (1U << 19) - 1;

    // Of `scene`, which may be null.
    explicit Pool(Scene* scene, Names& names) : scene_(scene), names_(&names) {}
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() {
        if (current_) retire();
    }

    Scene* scene() const { return scene_; }
    Names& names() const { return *names_; }

    // Throws std::bad_alloc.
    template <class T, class... Args>
    T* make(Args&&... args) {
        return makeLonger<T>(0, std::forward<Args>(args)...);
    }

    // Likewise, with so many bytes right after the object, few enough for a chunk.
    template <class T, class... Args>
    [[gnu::always_inline]] T* makeLonger(unsigned long behind, Args&&... args) {
        static_assert(alignof(T) <= placeSize);
        const unsigned long size = (sizeof(T) + behind + placeSize - 1) / placeSize * placeSize;
        if (size > room_ - used_) startChunk();
        static_assert(noexcept(new (current_) T(std::uint32_t(), std::forward<Args>(args)...)));
        const auto place = static_cast<std::uint32_t>(used_ / placeSize);
        auto* const object =
            new (reinterpret_cast<char*>(current_) + used_) T(place, std::forward<Args>(args)...);
        used_ += size;
        ++made_;
        return object;
    }

    // `behind` is as `makeLonger` was told.
    template <class T>
    static void destroy(T* object, unsigned long behind = 0) noexcept {
        Chunk* const chunk = chunkOf(*object);
        object->~T();
        memory::forbid(object, sizeof(T) + behind);
        drop(chunk, 1);
    }

    // The pool that the object was made in, while its scene is there.
    template <class T>
    static Pool& of(const T& object) {
        return *chunkOf(object)->pool;
    }
    // The names of the scene of the object, as long as that object is there.
    template <class T>
    static const Names& namesOf(const T& object) {
        return *chunkOf(object)->names;
    }

  private:
    static constexpr unsigned long placeSize = 8;
    static constexpr unsigned long smallestChunk = 4096;
    static_assert(placeSize * (std::uint64_t(lastPlace) + 1) >= memory::largePage);
    // Stands for all objects to come, as long as a chunk takes in more.
    static constexpr std::uint32_t open = std::uint32_t(1) << 31;

    // A line of the processor's caches: what is made in such lines stands in them.
    struct alignas(64) Chunk {
        Chunk(Pool& itsPool, bool itIsPage)
            : isPage(itIsPage), pool(&itsPool), names(itsPool.names_) {}

        std::atomic<std::uint32_t> objects{open};
        const bool isPage;
        Pool* const pool;
        const RefersTo<Names> names;
    };

    template <class T>
    static Chunk* chunkOf(const T& object) {
        const auto address = reinterpret_cast<std::uintptr_t>(&object);
        return reinterpret_cast<Chunk*>(address - object.place_ * placeSize);
    }

    // Chunks double up to large pages, and are such pages from then on.
    void startChunk() {
        const unsigned long size = std::clamp(total_, smallestChunk, memory::largePage);
        const bool isPage = size == memory::largePage;
        void* const memory = isPage ? memory::takeLargePage() : ds::allocateBlock(size);
        if (current_) retire();
        current_ = new (memory) Chunk(*this, isPage);
        room_ = size;
        total_ += size;
        used_ = sizeof(Chunk);
        made_ = 0;
    }

    void retire() noexcept { drop(current_, open - made_); }

    static void drop(Chunk* chunk, std::uint32_t count) noexcept {
        if (chunk->objects.fetch_sub(count, std::memory_order_acq_rel) == count) {
            const bool isPage = chunk->isPage;
            chunk->~Chunk();
            if (isPage) {
                memory::giveLargePage(chunk);
            } else {
                ds::freeBlock(chunk);
            }
        }
    }

    Scene* const scene_;
    const RefersTo<Names> names_;
    Chunk* current_ = nullptr;
    unsigned long room_ = 0;  // bytes of that chunk
    unsigned long used_ = 0;
    std::uint32_t made_ = 0;
    unsigned long total_ = 0;  // bytes of all chunks so far
};

// Room for pointers, in the pool.
class PoolArray {
  public:
    // Longer ones are better taken elsewhere: the pool does not get back what they outgrow.
    static constexpr unsigned long longest = 64;

    template <class T>
    static T** make(Pool& pool, unsigned long capacity) {
        return reinterpret_cast<T**>(pool.makeLonger<PoolArray>(capacity * sizeof(T*)) + 1);
    }
    template <class T>
    static void destroy(T** items, unsigned long capacity) noexcept {
        Pool::destroy(reinterpret_cast<PoolArray*>(items) - 1, capacity * sizeof(T*));
    }

  private:
    friend class Pool;
    explicit PoolArray(std::uint32_t place) noexcept : place_(place) {}

    [[maybe_unused]] alignas(std::uint64_t) std::uint32_t place_;
};

}  // namespace ko::mirel_sdk::impl
