// Work in a process of its own, so that each piece begins with the same memory whoever was before
// it.
#pragma once

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <type_traits>

// Of the library, where it is one that takes memory from the system itself.
namespace ko::memory {
[[gnu::weak]] void keepLargePages(unsigned long most) noexcept;
}

namespace bench {

// What a process reads into.
enum class Memory {
    Kept,  // that it has from reading the same before
    New,   // that the kernel hands out meanwhile
};

// From here on the process gives no memory back.
inline void keepMemory() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
    if (ko::memory::keepLargePages) ko::memory::keepLargePages(~0UL);
}

template <class Work>
[[noreturn]] void sendAndExit(const Work& work, int channel) {
    try {
        const auto result = work();
        _exit(write(channel, &result, sizeof result) == sizeof result ? 0 : 1);
    } catch (const std::exception& error) {
        std::cerr << program_invocation_short_name << ": " << error.what() << std::endl;
        _exit(1);
    }
}

// What `work` returns in a process of its own; all else that it makes goes with that process.
// Throws std::runtime_error when `work` throws, which has told why then.
template <class Work>
auto inChild(const Work& work) {
    decltype(work()) result{};
    static_assert(std::is_trivially_copyable_v<decltype(result)>);
    std::array<int, 2> channel{};
    if (pipe(channel.data()) != 0) throw std::runtime_error("cannot make a pipe");
    const pid_t child = fork();
    if (child == 0) sendAndExit(work, channel[1]);
    close(channel[1]);
    const bool wasSent = child > 0 && read(channel[0], &result, sizeof result) == sizeof result;
    close(channel[0]);
    if (child > 0) waitpid(child, nullptr, 0);
    if (!wasSent) throw std::runtime_error("a process of its own failed");
    return result;
}

}  // namespace bench
