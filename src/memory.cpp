#include "memory.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>

#include <ko/ds.h>

#ifdef __linux__
#include <sys/mman.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#define KO_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KO_ADDRESS_SANITIZER 1
#endif
#endif
#ifdef KO_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace ko::memory {

#ifdef __linux__

// Rounded outwards: where blocks stand side by side, a large page may serve the ends of two.
void adviseLarge(void* memory, unsigned long bytes) noexcept {
    constexpr std::uintptr_t page = largePage;
    if (bytes < page / 2) return;
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t first = begin / page * page;
    const std::uintptr_t behind = (begin + bytes + page - 1) / page * page;
    // What is not mapped there is left out; a system that does not know the advice works without.
    static_cast<void>(
        madvise(static_cast<char*>(memory) - (begin - first), behind - first, MADV_HUGEPAGE));
}

#else

void adviseLarge(void*, unsigned long) noexcept {}

#endif

void forbid([[maybe_unused]] void* memory, [[maybe_unused]] unsigned long bytes) noexcept {
#ifdef KO_ADDRESS_SANITIZER
    ASAN_POISON_MEMORY_REGION(memory, bytes);
#endif
}

}  // namespace ko::memory

namespace ko::ds {

namespace {

// In front of a block: where the memory begins that it stands in.
struct alignas(std::max_align_t) Origin {
    void* memory;
};

// Of what stands in a block of a page or more, the lowest byte of the address is the same whatever
// else the heap has: maps of addresses then have their keys in the same order.
std::size_t alignmentFor(std::size_t bytes) {
    constexpr std::size_t page = 4096;
    constexpr std::size_t lowestByte = 256;
    if (bytes >= memory::largePage) return memory::largePage;
    return bytes >= page ? lowestByte : alignof(std::max_align_t);
}

}  // namespace

void* allocateBlock(std::size_t bytes) {
    const std::size_t alignment = alignmentFor(bytes);
    const std::size_t slack = sizeof(Origin) + alignment - alignof(std::max_align_t);
    if (bytes > std::numeric_limits<std::size_t>::max() - slack) throw std::bad_alloc();
    void* const memory = ::operator new(bytes + slack);
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(memory) + sizeof(Origin);
    const std::uintptr_t aligned = (first + alignment - 1) / alignment * alignment;
    auto* const block =
        static_cast<char*>(memory) + (aligned - reinterpret_cast<std::uintptr_t>(memory));
    new (block - sizeof(Origin)) Origin{memory};
    memory::adviseLarge(block, bytes);
    return block;
}

void freeBlock(void* block) noexcept {
    if (!block) return;
    const auto* const origin =
        reinterpret_cast<const Origin*>(static_cast<char*>(block) - sizeof(Origin));
    ::operator delete(origin->memory);
}

}  // namespace ko::ds
