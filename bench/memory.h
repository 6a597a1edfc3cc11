// How much memory a document takes, measured in a process of its own so that nothing else counts.
#pragma once

#include <string>

namespace bench {

struct MemoryUse {
    double scene = 0;       // bytes allocated when the document was read
    double peakBeyond = 0;  // resident bytes at the peak of reading that the scene does not explain
};

// Runs this program once more to read the document at `path`.
MemoryUse measureMemory(const std::string& path);

// What that process does: reads the document and prints the two numbers.
void printMemoryUse(const std::string& path);

}  // namespace bench
