#include "memory.h"

#include <new>

#include <ko/ds.h>

#ifdef __linux__
#include <sys/mman.h>

#include <cstdint>
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

void forbid([[maybe_unused]] void* memory, [[maybe_unused]] unsigned long bytes) noexcept {
#ifdef KO_ADDRESS_SANITIZER
    ASAN_POISON_MEMORY_REGION(memory, bytes);
#endif
}

}  // namespace ko::memory

namespace ko::ds {

void* allocateArray(std::size_t bytes) {
    void* const array = ::operator new[](bytes);
    memory::adviseLarge(array, bytes);
    return array;
}

}  // namespace ko::ds
