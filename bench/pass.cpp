#include "pass.h"

#include <ctime>

namespace bench {

namespace {

double secondsOn(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// What was read goes with the process.
PassTimes timeHere(const Reader& read, Memory memory) {
    if (memory == Memory::Kept) {
        keepMemory();
        read();
    }
    const double cpu = secondsOn(CLOCK_THREAD_CPUTIME_ID);
    const double wall = secondsOn(CLOCK_MONOTONIC);
    const Result result = read();
    return {secondsOn(CLOCK_THREAD_CPUTIME_ID) - cpu, secondsOn(CLOCK_MONOTONIC) - wall};
}

}  // namespace

// A virtual machine may have to ask its host for memory that was idle for a while, which takes many
// times as long as reading. What the pass that counts gets is what the one before it gave back.
PassTimes timePass(const Reader& read, Memory memory) {
    const auto pass = [&] { return timeHere(read, memory); };
    if (memory == Memory::New) inChild(pass);
    return inChild(pass);
}

}  // namespace bench
