// One pass of a reader in a process of its own.
#pragma once

#include <functional>

#include "child.h"
#include "readers.h"

namespace bench {

using Reader = std::function<Result()>;

// In seconds.
struct PassTimes {
    double cpu = 0;
    double wall = 0;
};

// Throws std::runtime_error when the reader did.
PassTimes timePass(const Reader& read, Memory memory);

}  // namespace bench
