// The scene is what was handed out between the two ends of reading: by the allocator, and by the
// system to others than the allocator. The peak is the kernel's high-water mark of resident memory
// over what was resident before, less the scene.
#include "memory.h"

#include <malloc.h>

#include <cstdio>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>

#include "files.h"
#include "kvt.h"

namespace bench {

namespace {

// A field of this process's status, in bytes.
double statusField(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        double kilobytes = 0;
        if (word == name + ":" && status >> kilobytes) return 1024 * kilobytes;
        status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    throw std::runtime_error("/proc/self/status has no " + name);
}

// Blocks that the allocator maps alone are part of both sizes of the process.
double allocated() {
    const struct mallinfo2 info = mallinfo2();
    const double heap = static_cast<double>(info.arena);
    return static_cast<double>(info.uordblks) + statusField("VmSize") - heap;
}

}  // namespace

MemoryUse measureMemory(const std::string& path) {
    const auto [scene, peakBeyond] = runProgram(thisProgram(), "--memory-of", path);
    return {scene, peakBeyond};
}

void printMemoryUse(const std::string& path) {
    const double allocatedBefore = allocated();
    const double residentBefore = statusField("VmRSS");
    const auto scene = sceneOfFile(path);
    const double sceneBytes = allocated() - allocatedBefore;
    const double peak = statusField("VmHWM") - residentBefore;
    std::printf("%.0f %.0f\n", sceneBytes, peak - sceneBytes);
}

}  // namespace bench
