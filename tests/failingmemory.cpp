#include "failingmemory.h"

#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <new>
#include <numeric>
#include <unordered_set>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker makes these names
// The linker turns what asks for malloc into what asks for __wrap_malloc, and so on; what asks for
// __real_malloc gets the system's, or a sanitizer's.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
void __real_free(void* memory);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* memory, std::size_t size);
void __wrap_free(void* memory);
}

// NOLINTEND(bugprone-reserved-identifier)

namespace kvt::test {

namespace {

// --- The blocks that are in use

// Takes its own memory from behind the counting.
template <class T>
struct Uncounted {
    using value_type = T;
    Uncounted() = default;
    template <class Other>
    explicit Uncounted(const Uncounted<Other>& /*other*/) {}
    T* allocate(std::size_t count) {
        constexpr std::size_t size = sizeof(T);  // NOLINT(bugprone-sizeof-expression): or a pointer
        return static_cast<T*>(__real_malloc(count * size));
    }
    void deallocate(T* memory, std::size_t /*count*/) { __real_free(memory); }
    bool operator==(const Uncounted& /*other*/) const { return true; }
    bool operator!=(const Uncounted& /*other*/) const { return false; }
};

using Blocks = std::unordered_set<const void*, std::hash<const void*>, std::equal_to<>,
                                  Uncounted<const void*>>;

// Never destroyed: memory is given back until the very end of the program.
Blocks& blocks() {
    alignas(Blocks) static unsigned char storage[sizeof(Blocks)];
    static Blocks& all = *new (storage) Blocks;
    return all;
}

void* counted(void* memory) {
    if (memory) blocks().insert(memory);
    return memory;
}

// --- What fails

bool isFailing = false;
unsigned long allocationsLeft = 0;
Failing manner = Failing::Once;
bool anyFailed = false;
Allocation failedFirst = Allocation::New;
unsigned long failures[allocationKinds] = {};

bool fails(Allocation allocation) {
    if (!isFailing || (anyFailed && manner == Failing::Once)) return false;
    if (allocationsLeft > 0) {
        --allocationsLeft;
        return false;
    }
    if (!anyFailed) failedFirst = allocation;
    anyFailed = true;
    ++failures[static_cast<unsigned>(allocation)];
    return true;
}

void* allocate(std::size_t size) {
    return fails(Allocation::New) ? nullptr : counted(__real_malloc(size));
}

void* allocate(std::size_t size, std::align_val_t alignment) {
    if (fails(Allocation::AlignedNew)) return nullptr;
    const auto unit = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}

void* orThrow(void* memory) {
    if (!memory) throw std::bad_alloc();
    return memory;
}

void giveBack(void* memory) {
    blocks().erase(memory);
    __real_free(memory);
}

}  // namespace

FailingMemory::FailingMemory(unsigned long left, Failing failing) {
    allocationsLeft = left;
    manner = failing;
    anyFailed = false;
    isFailing = true;
}

FailingMemory::~FailingMemory() { isFailing = false; }

bool hasFailed() { return anyFailed; }
Allocation firstFailed() { return failedFirst; }
unsigned long failuresOf(Allocation allocation) {
    return failures[static_cast<unsigned>(allocation)];
}
unsigned long liveBlocks() { return blocks().size(); }
unsigned long liveBytes() {
    return std::accumulate(blocks().begin(), blocks().end(), 0UL,
                           [](unsigned long sum, const void* block) {
                               return sum + malloc_usable_size(const_cast<void*>(block));
                           });
}

}  // namespace kvt::test

// --- What programs call

using kvt::test::Allocation;

// NOLINTBEGIN(bugprone-reserved-identifier)
void* __wrap_malloc(std::size_t size) {
    if (kvt::test::fails(Allocation::Malloc)) return nullptr;
    return kvt::test::counted(__real_malloc(size));
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (kvt::test::fails(Allocation::Calloc)) return nullptr;
    return kvt::test::counted(__real_calloc(count, size));
}

void* __wrap_realloc(void* memory, std::size_t size) {
    if (kvt::test::fails(Allocation::Realloc)) return nullptr;
    void* const moved = __real_realloc(memory, size);
    if (!moved) return nullptr;
    kvt::test::blocks().erase(memory);
    return kvt::test::counted(moved);
}

void __wrap_free(void* memory) { kvt::test::giveBack(memory); }

// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size) { return kvt::test::orThrow(kvt::test::allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    return kvt::test::allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return kvt::test::orThrow(kvt::test::allocate(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*unused*/) noexcept {
    return kvt::test::allocate(size, alignment);
}
void* operator new[](std::size_t size) { return kvt::test::orThrow(kvt::test::allocate(size)); }
void* operator new[](std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
    return kvt::test::allocate(size);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return kvt::test::orThrow(kvt::test::allocate(size, alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& /*unused*/) noexcept {
    return kvt::test::allocate(size, alignment);
}
void operator delete(void* memory) noexcept { kvt::test::giveBack(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    kvt::test::giveBack(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { kvt::test::giveBack(memory); }
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    kvt::test::giveBack(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*unused*/) noexcept {
    kvt::test::giveBack(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/,
                     const std::nothrow_t& /*unused*/) noexcept {
    kvt::test::giveBack(memory);
}
void operator delete[](void* memory) noexcept { kvt::test::giveBack(memory); }
void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept {
    kvt::test::giveBack(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept { kvt::test::giveBack(memory); }
void operator delete[](void* memory, std::size_t /*size*/,
                       std::align_val_t /*alignment*/) noexcept {
    kvt::test::giveBack(memory);
}
void operator delete[](void* memory, const std::nothrow_t& /*unused*/) noexcept {
    kvt::test::giveBack(memory);
}
void operator delete[](void* memory, std::align_val_t /*alignment*/,
                       const std::nothrow_t& /*unused*/) noexcept {
    kvt::test::giveBack(memory);
}
