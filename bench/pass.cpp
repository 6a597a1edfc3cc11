#include "pass.h"

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <ctime>
#include <exception>
#include <iostream>
#include <limits>
#include <stdexcept>

namespace bench {

namespace {

double secondsOn(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// The process gives no memory back.
void keepMemory() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
}

// Reads and sends the times; what was read goes with the process.
[[noreturn]] void readAndExit(const Reader& read, Memory memory, int channel) {
    try {
        if (memory == Memory::Kept) {
            keepMemory();
            read();
        }
        const double cpu = secondsOn(CLOCK_THREAD_CPUTIME_ID);
        const double wall = secondsOn(CLOCK_MONOTONIC);
        const Result result = read();
        const PassTimes times{secondsOn(CLOCK_THREAD_CPUTIME_ID) - cpu,
                              secondsOn(CLOCK_MONOTONIC) - wall};
        _exit(write(channel, &times, sizeof times) == sizeof times ? 0 : 1);
    } catch (const std::exception& error) {
        std::cerr << "kvt-bench: " << error.what() << std::endl;
        _exit(1);
    }
}

PassTimes timeInChild(const Reader& read, Memory memory) {
    std::array<int, 2> channel{};
    if (pipe(channel.data()) != 0) throw std::runtime_error("cannot make a pipe");
    const pid_t child = fork();
    if (child == 0) readAndExit(read, memory, channel[1]);
    close(channel[1]);
    PassTimes times;
    const bool wasSent = child > 0 && ::read(channel[0], &times, sizeof times) == sizeof times;
    close(channel[0]);
    if (child > 0) waitpid(child, nullptr, 0);
    if (!wasSent) throw std::runtime_error("a pass failed");
    return times;
}

}  // namespace

PassTimes timePass(const Reader& read, Memory memory) {
    // A virtual machine may have to ask its host for memory that was idle for a while, which takes
    // longer than reading and hits one contender or another: the first process asks for it.
    if (memory == Memory::New) timeInChild(read, memory);
    return timeInChild(read, memory);
}

}  // namespace bench
