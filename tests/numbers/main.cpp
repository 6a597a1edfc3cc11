// Reads numbers by the hundred million and compares them with what they were printed from, with the
// C library and with exact arithmetic. Ends with 1 when a number was read differently.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "parts.h"

namespace {

struct Options {
    unsigned long stride = 1;
    unsigned long doubles = 100'000'000;
    unsigned long halfwayDensity = 100;
    unsigned long integers = 10'000'000;
    unsigned threads = 2;
};

// What takes some seconds.
constexpr Options quick = {16'411, 200'000, 1, 100'000, 2};

// Takes the number of "--name=NUMBER", at least 1.
bool take(const char* argument, const char* name, unsigned long& number) {
    const unsigned long length = std::strlen(name);
    if (std::strncmp(argument, name, length) != 0) return false;
    char* end = nullptr;
    number = std::strtoul(argument + length, &end, 10);
    return *end == '\0' && number > 0;
}

bool readOption(const char* argument, Options& options) {
    if (std::strcmp(argument, "--quick") == 0) {
        options = quick;
        return true;
    }
    unsigned long threads = options.threads;
    if (take(argument, "--threads=", threads)) {
        options.threads = static_cast<unsigned>(threads);
        return true;
    }
    return take(argument, "--stride=", options.stride) ||
           take(argument, "--doubles=", options.doubles);
}

int run(const Options& options) {
    kvt::test::Sweep sweep(options.threads);
    kvt::test::sweepIntegers(sweep, options.integers);
    kvt::test::sweepHalfway(sweep, options.halfwayDensity);
    kvt::test::sweepDoubles(sweep, options.doubles);
    kvt::test::sweepFloats(sweep, options.stride);
    std::printf("%lu differences in all\n", sweep.differences());
    return sweep.differences() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        for (int i = 1; i < argc; ++i) {
            if (readOption(argv[i], options)) continue;
            std::fputs("usage: numbers [--quick] [--stride=N] [--doubles=N] [--threads=N]\n",
                       stderr);
            return 2;
        }
        return run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "numbers: %s\n", error.what());
        return 2;
    }
}
