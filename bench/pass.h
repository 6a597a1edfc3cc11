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

// Throws std::runtime_error when the reader did.
PassTimes timePass(const Reader& read);

}  // namespace bench
