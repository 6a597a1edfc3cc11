// What the tool does, apart from reading its arguments.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <ko/scene.h>

namespace kvt {

// How the tool ends.
enum ExitStatus : int {
    Success = 0,
    // A document has errors, or was not read to its end.
    BadDocument = 1,
    // An argument is wrong, a file cannot be read, something cannot be written, or there is too
    // little memory.
    CannotRun = 2,
};

// What documents may ask for, as the limits of a scene have it.
struct ReadLimits {
    unsigned long bufferBytes = ko::mirel_sdk::impl::noBufferLimit;
    unsigned long elements = ko::mirel_sdk::impl::defaultElementLimit;
};

// "-" stands for standard input.
struct CheckOptions {
    std::vector<std::string> files;
    bool warningsAreErrors = false;
    ReadLimits limits;
};

struct DumpOptions {
    std::string file;
    bool json = false;
    ReadLimits limits;
};

// What cannot be written ends a command at once, quietly and with Success when the reader of that
// stream has gone, else with a line that says so, as far as it can be written, and CannotRun.

// Reads each file and reports its diagnostics to `diagnostics`. The worst file decides how it ends.
ExitStatus check(const CheckOptions& options, std::FILE* diagnostics);

// Reads the file and writes its scene to `output`, as far as it was read. The scene is written also
// when diagnostics cannot be.
ExitStatus dump(const DumpOptions& options, std::FILE* output, std::FILE* diagnostics);

// Writes `text` to `output`.
ExitStatus print(std::string_view text, std::FILE* output, std::FILE* diagnostics);

// Reports what kept the tool from running, in one line.
void reportFailure(const std::string& message, std::FILE* diagnostics);

}  // namespace kvt
