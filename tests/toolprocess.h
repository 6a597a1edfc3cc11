// Runs the tool as a program of its own, with the streams, the environment and the memory that a
// test gives it.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace kvt::test {

// A descriptor that is closed with its owner; -1 for none.
class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    int number() const { return number_; }

  private:
    int number_;
};

// What is written to it can be read back.
class Capture {
  public:
    Capture();
    int number() const { return file_.number(); }
    std::string text() const;

  private:
    Descriptor file_;
};

// A pipe that nobody reads any more.
Descriptor brokenPipe();

// The standard streams of the tool, a closed one as -1.
struct Streams {
    int in = -1;
    int out = -1;
    int err = -1;
};

using Arguments = std::vector<std::string>;

// What the tool finds beside its arguments and streams.
struct Surroundings {
    Arguments environment;
    // Bytes of address space; 0 for no limit.
    unsigned long memory = 0;
};

// Runs the tool in a session of its own, so without a terminal. Gives its exit status, or 128 and
// the signal that ended it.
int runTool(const Arguments& arguments, const Streams& streams,
            const Surroundings& surroundings = {});

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

bool operator==(const Outcome& a, const Outcome& b);

Outcome outcomeOf(const Arguments& arguments, int in = -1, const Surroundings& surroundings = {});

}  // namespace kvt::test
