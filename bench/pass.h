// One pass of a reader in a process of its own.
#pragma once

#include <functional>
#include <memory>

#include "child.h"

namespace bench {

// Owns what was read, whatever that is; freed outside the measured time.
using Result = std::shared_ptr<void>;

// Reads a whole document once; throws std::runtime_error when it was not read to its end.
using Reader = std::function<Result()>;

// In seconds.
struct PassTimes {
    double cpu = 0;
    double wall = 0;
};

// In new memory it is the quickest of a few. Throws std::runtime_error when the reader did.
PassTimes timePass(const Reader& read, Memory memory);

}  // namespace bench
