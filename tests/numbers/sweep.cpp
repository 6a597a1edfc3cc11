#include "sweep.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace kvt::test {

void Sweep::run(const char* name, unsigned long count,
                const std::function<void(unsigned long)>& work) {
    const auto begin = std::chrono::steady_clock::now();
    next_ = done_ = numbers_ = differences_ = 0;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < threads_; ++i)
        threads.emplace_back([&] { worker(name, count, work); });
    for (std::thread& thread : threads)
        thread.join();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%s: %lu numbers, %lu differences, %.1f s\n", name, numbers_.load(),
                differences_.load(), took.count());
    std::fflush(stdout);
    allDifferences_ += differences_;
}

void Sweep::worker(const char* name, unsigned long count,
                   const std::function<void(unsigned long)>& work) {
    for (unsigned long i = next_++; i < count; i = next_++) {
        work(i);
        tellProgress(name, ++done_, count);
    }
}

// Every twentieth part, of what is large enough to wait for.
void Sweep::tellProgress(const char* name, unsigned long done, unsigned long count) {
    constexpr unsigned long parts = 20;
    constexpr unsigned long large = 10'000;
    if (count < large || done * parts / count == (done - 1) * parts / count) return;
    const std::lock_guard<std::mutex> lock(printing_);
    std::printf("%s: %lu %%\n", name, done * 100 / count);
    std::fflush(stdout);
}

void Sweep::complain(const std::string& difference) {
    constexpr unsigned long mostShown = 20;
    if (differences_++ >= mostShown) return;
    const std::lock_guard<std::mutex> lock(printing_);
    std::printf("%s\n", difference.c_str());
    std::fflush(stdout);
}

}  // namespace kvt::test
