// What the library asks of the system about memory.
#pragma once

namespace ko::memory {

// The size of the system's large pages.
inline constexpr unsigned long largePage = 2UL << 20;

// Says that the memory, from malloc, is about to be written from front to back. The system
// then hands a large block out in large pages: touching it for the first time costs a fraction.
void adviseLarge(void* memory, unsigned long bytes) noexcept;

// One large page from the system itself: an allocator that is asked for some leaves memory out in
// front, or has touched their ends, and then they come in small ones. Throws std::bad_alloc. What
// is given back is kept for whoever comes next, up to 32 MB in all. Any thread may ask.
void* takeLargePage();
void giveLargePage(void* page) noexcept;
// From now on so many are kept, for measurements.
void keepLargePages(unsigned long most) noexcept;

// Nobody uses these bytes until their block is freed: AddressSanitizer, where it is on, tells who
// does.
void forbid(void* memory, unsigned long bytes) noexcept;

}  // namespace ko::memory
