#include "memory.h"

#ifdef __linux__
#include <sys/mman.h>

#include <cstdint>
#endif

namespace ko::memory {

#ifdef __linux__

void adviseLarge(void* memory, unsigned long bytes) noexcept {
    constexpr std::uintptr_t page = std::uintptr_t(2) << 20;
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t first = (begin + page - 1) / page * page;
    const std::uintptr_t behind = (begin + bytes) / page * page;
    if (behind <= first) return;
    // A system that does not know the advice works without.
    static_cast<void>(
        madvise(static_cast<char*>(memory) + (first - begin), behind - first, MADV_HUGEPAGE));
}

#else

void adviseLarge(void*, unsigned long) noexcept {}

#endif

}  // namespace ko::memory
