#include "foundation/memory.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
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

// Where the program has LeakSanitizer: it looks for pointers only in memory that it knows of. Its
// names are its own.
extern "C" {
// NOLINTNEXTLINE(bugprone-reserved-identifier)
[[gnu::weak]] void __lsan_register_root_region(const void* begin, std::size_t bytes);
// NOLINTNEXTLINE(bugprone-reserved-identifier)
[[gnu::weak]] void __lsan_unregister_root_region(const void* begin, std::size_t bytes);
}

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

// AddressSanitizer watches what comes from the allocator.
#if defined(__linux__) && !defined(KO_ADDRESS_SANITIZER)

namespace {

char* map(std::size_t bytes) {
    void* const memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return static_cast<char*>(memory);
}

// Of two of them, what stands before and after an aligned one goes back.
char* mapAlignedPage() {
    char* const memory = map(2 * largePage);
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(memory) % largePage;
    if (before > 0) munmap(memory, before);
    munmap(memory + before + largePage, largePage - before);
    return memory + before;
}

// Mostly one begins where it should by itself, in front of the one mapped last.
char* mapPage() {
    char* page = map(largePage);
    if (reinterpret_cast<std::uintptr_t>(page) % largePage != 0) {
        munmap(page, largePage);
        page = mapAlignedPage();
    }
    adviseLarge(page, largePage);
    if (__lsan_register_root_region) __lsan_register_root_region(page, largePage);
    return page;
}

void unmapPage(void* page) noexcept {
    if (__lsan_unregister_root_region) __lsan_unregister_root_region(page, largePage);
    munmap(page, largePage);
}

// Pages that nobody uses now: a program that reads one scene after the other need not have each of
// them cleared by the system again.
class KeptPages {
  public:
    // Null when there is none.
    void* take() noexcept {
        const std::lock_guard lock(mutex_);
        Page* const page = first_;
        if (page) {
            first_ = page->next;
            --count_;
        }
        return page;
    }
    // False where there are enough.
    bool keep(void* memory) noexcept {
        const std::lock_guard lock(mutex_);
        if (count_ >= most_) return false;
        first_ = new (memory) Page{first_};
        ++count_;
        return true;
    }
    void keepAtMost(unsigned long pages) noexcept {
        const std::lock_guard lock(mutex_);
        most_ = pages;
    }

  private:
    struct Page {
        Page* next;
    };

    std::mutex mutex_;
    Page* first_ = nullptr;
    unsigned long count_ = 0;
    unsigned long most_ = 16;
};

KeptPages keptPages;

}  // namespace

void* takeLargePage() {
    void* const kept = keptPages.take();
    return kept ? kept : mapPage();
}

void giveLargePage(void* page) noexcept {
    if (!keptPages.keep(page)) unmapPage(page);
}

void keepLargePages(unsigned long most) noexcept { keptPages.keepAtMost(most); }

#else

void* takeLargePage() { return ds::allocateBlock(largePage); }
void giveLargePage(void* page) noexcept { ds::freeBlock(page); }
void keepLargePages(unsigned long /*most*/) noexcept {}

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
