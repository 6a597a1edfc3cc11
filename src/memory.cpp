#include "memory.h"

#include <new>

#include <ko/ds.h>

#ifdef __linux__
#include <sys/mman.h>

#include <cstdint>
#endif

namespace ko::memory {

#ifdef __linux__

// Rounded outwards: blocks stand side by side, and a large page may serve the ends of two.
void adviseLarge(void* memory, unsigned long bytes) noexcept {
    constexpr std::uintptr_t page = std::uintptr_t(2) << 20;
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

}  // namespace ko::memory

namespace ko::ds {

void* allocateArray(std::size_t bytes) {
    void* const array = ::operator new[](bytes);
    memory::adviseLarge(array, bytes);
    return array;
}

}  // namespace ko::ds
