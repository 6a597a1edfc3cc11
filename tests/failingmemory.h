// Memory that fails when a test wants it to. A program that links this takes all its memory from
// here: `operator new` in all its forms, and what its own sources and the static libraries in it
// ask of malloc, calloc, realloc and free. Not for several threads.
#pragma once

namespace kvt::test {

enum class Allocation { New, AlignedNew, Malloc, Calloc, Realloc };

constexpr unsigned long allocationKinds = 5;

enum class Failing { Once, FromThenOn };

// While it lives, memory fails after the first `left` allocations: one of them, or all.
class FailingMemory {
  public:
    FailingMemory(unsigned long left, Failing failing);
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;
    ~FailingMemory();
};

// What failed first under the latest `FailingMemory`, if anything did.
bool hasFailed();
Allocation firstFailed();

// How often each kind has failed so far.
unsigned long failuresOf(Allocation allocation);

// The blocks taken from here and not given back.
unsigned long liveBlocks();
// What is usable of them.
unsigned long liveBytes();

}  // namespace kvt::test
