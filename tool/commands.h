// What the tool does, apart from reading its arguments.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "output.h"

namespace kvt {

// How the tool ends.
enum ExitStatus : int {
    Success = 0,
    // A document has errors, or was not read to its end.
    BadDocument = 1,
    // An argument is wrong, a file cannot be read, or the output cannot be written.
    CannotRun = 2,
};

// "-" stands for standard input.
struct CheckOptions {
    std::vector<std::string> files;
    bool warningsAreErrors = false;
};

struct DumpOptions {
    std::string file;
    bool json = false;
};

// Reads each file and reports its diagnostics to `diagnostics`. The worst file decides how it ends.
ExitStatus check(const CheckOptions& options, std::FILE* diagnostics);

// Reads the file and writes its scene to `output`, as far as it was read.
ExitStatus dump(const DumpOptions& options, std::FILE* output, std::FILE* diagnostics);

// Why something was not written whole.
std::string writeError(const OutputStream& out);

// Reports what kept the tool from running, in one line.
void reportFailure(const std::string& message, std::FILE* diagnostics);

}  // namespace kvt
