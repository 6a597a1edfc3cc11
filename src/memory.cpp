#include "memory.h"

#include <new>

#include <ko/ds.h>

#ifdef __linux__
#include <sys/mman.h>

#include <cstdint>
#endif

namespace ko::memory {

#ifdef __linux__

void adviseLarge(void* memory, unsigned long bytes) noexcept {
    constexpr unsigned long largePage = 2UL << 20;
    constexpr std::uintptr_t page = 4096;
    if (bytes < largePage) return;
    // Outwards to whole pages: the block's header stands before it.
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t before = begin % page;
    // A system that does not know the advice works without.
    static_cast<void>(madvise(static_cast<char*>(memory) - before, before + bytes, MADV_HUGEPAGE));
}

#else

void adviseLarge(void*, unsigned long) noexcept {}

#endif

}  // namespace ko::memory

namespace ko::ds {

void* allocateArray(std::size_t bytes) {
    void* const array = ::operator new[](bytes);
    memory::adviseLarge(array, bytes);
    return array;
}

}  // namespace ko::ds
