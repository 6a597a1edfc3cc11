// One pass of a reader in a process of its own, so that each begins with the same memory whoever
// was before it.
#pragma once

#include <functional>

#include "readers.h"

namespace bench {

using Reader = std::function<Result()>;

// In seconds.
struct PassTimes {
    double cpu = 0;
    double wall = 0;
};

// What a pass reads into.
enum class Memory {
    Kept,  // that the process has from reading the same before
    New,   // that the kernel hands out meanwhile
};

// Throws std::runtime_error when the reader did.
PassTimes timePass(const Reader& read, Memory memory);

}  // namespace bench
