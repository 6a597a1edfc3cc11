// Runs much work on some threads, says how far it is, and keeps count of what was wrong.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

namespace kvt::test {

class Sweep {
  public:
    explicit Sweep(unsigned threads) : threads_(threads) {}

    // Calls `work` with each number below `count`, and prints what came of it.
    void run(const char* name, unsigned long count, const std::function<void(unsigned long)>& work);

    // From any thread: numbers were read, one was read wrongly.
    void count(unsigned long numbers) { numbers_ += numbers; }
    void complain(const std::string& difference);

    unsigned long differences() const { return allDifferences_; }

  private:
    void worker(const char* name, unsigned long count,
                const std::function<void(unsigned long)>& work);
    void tellProgress(const char* name, unsigned long done, unsigned long count);

    unsigned threads_;
    std::atomic<unsigned long> next_{0};
    std::atomic<unsigned long> done_{0};
    std::atomic<unsigned long> numbers_{0};
    std::atomic<unsigned long> differences_{0};
    unsigned long allDifferences_ = 0;
    std::mutex printing_;
};

// The same numbers on every run, whatever thread asks for them.
class Random {
  public:
    explicit Random(unsigned long seed) : state_(seed * 0xD1342543DE82EF95) {}
    unsigned long next() {
        state_ += 0x9E3779B97F4A7C15;
        unsigned long bits = state_;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
        return bits ^ (bits >> 31);
    }
    unsigned long below(unsigned long limit) { return next() % limit; }
    bool oneIn(unsigned long count) { return below(count) == 0; }

  private:
    unsigned long state_;
};

}  // namespace kvt::test
