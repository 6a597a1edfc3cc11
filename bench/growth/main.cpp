// How time, memory and log grow with documents of hostile shapes: each doubles from 1 to 64 MB, and
// what more than follows is marked.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <limits>
#include <regex>
#include <string>
#include <string_view>

#include "measure.h"
#include "shapes.h"

namespace growth {

namespace {

constexpr const char* usage =
    "usage: kvt-growth [--only=REGEX] [--largest=MB] [--file]\n"
    "\n"
    "  --only      the shapes whose names match\n"
    "  --largest   the size to double up to, 64 without it\n"
    "  --file      reads from a file, in its blocks, instead of a text in memory\n"
    "\n"
    "Time, memory and log that grow too fast are marked with !, and counted in the last line. The\n"
    "status is 0 all the same, since the times of single doublings depend on the machine.\n";

// A doubling of the document takes at most so much more.
constexpr double mostPerDoubling = 2.3;
constexpr double megabyte = 1 << 20;
// Below that a difference says nothing.
constexpr double leastSeconds = 0.01;
constexpr double leastBytes = 4 * megabyte;
constexpr double leastLog = megabyte / 16;
// What grows too fast is not followed beyond that.
constexpr double longestSeconds = 2;

struct Options {
    std::string only;
    unsigned long largest = 64;
    Source source;
};

bool readOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--file") {
            options.source.isFile = true;
        } else if (argument.rfind("--only=", 0) == 0) {
            options.only = argument.substr(7);
        } else if (argument.rfind("--largest=", 0) == 0) {
            options.largest = std::stoul(argument.substr(10));
        } else {
            return false;
        }
    }
    return true;
}

// What a document is compared with.
struct Smaller {
    Reading half;            // of half the size
    double memoryPerMB = 0;  // the most of all smaller ones, at the peak
};

// How many times as much as half the document took; 0 where that was too little to tell.
struct Growth {
    double seconds = 0;
    double freeSeconds = 0;
    double memory = 0;
    double log = 0;

    bool isTooFast() const {
        return std::max({seconds, freeSeconds, memory, log}) > mostPerDoubling;
    }
    // What is too fast may have been the machine's doing; a log is the same every time.
    bool isCertain() const { return log > mostPerDoubling || !isTooFast(); }
};

double growthOf(double now, double before, double least) {
    return before >= least ? now / before : 0;
}

double memoryPerMB(const Reading& reading, unsigned long size) {
    return reading.peak / megabyte / static_cast<double>(size);
}

Growth growthOf(const Reading& now, const Smaller& smaller, unsigned long size) {
    const Reading& half = smaller.half;
    Growth growth{growthOf(now.seconds, half.seconds, leastSeconds),
                  growthOf(now.freeSeconds, half.freeSeconds, leastSeconds),
                  growthOf(now.peak, half.peak, leastBytes), growthOf(now.log, half.log, leastLog)};
    // Memory is taken in leaps. A leap is none too many unless it leads to more for each byte.
    if (memoryPerMB(now, size) <= smaller.memoryPerMB)
        growth.memory = std::min(growth.memory, mostPerDoubling);
    return growth;
}

std::string growthText(double growth) {
    char text[16];
    std::snprintf(text, sizeof text, growth > mostPerDoubling ? "%.2f!" : "%.2f ", growth);
    return growth > 0 ? text : "- ";
}

void printHead() {
    std::printf("%-28s%4s%9s%8s%9s%8s%10s%10s%8s%8s%10s%8s\n", "shape", "MB", "read, s", "growth",
                "free, s", "growth", "scene, MB", "peak, MB", "growth", "peak/MB", "log, MB",
                "growth");
}

void printRow(const char* name, unsigned long size, const Reading& now, const Growth& growth) {
    std::printf("%-28s%4lu%9.3f%8s%9.3f%8s%10.1f%10.1f%8s%8.1f%10.1f%8s\n", name, size, now.seconds,
                growthText(growth.seconds).c_str(), now.freeSeconds,
                growthText(growth.freeSeconds).c_str(), now.scene / megabyte, now.peak / megabyte,
                growthText(growth.memory).c_str(), memoryPerMB(now, size), now.log / megabyte,
                growthText(growth.log).c_str());
    std::fflush(stdout);
}

Reading readBothWays(const Document& document, Source source) {
    Reading reading = readInKeptMemory(document, source);
    const Reading once = readOnce(document, source);
    reading.scene = once.scene;
    reading.peak = once.peak;
    return reading;
}

// Where it seems to grow too fast a few times more, before that is believed.
Reading readSeveralTimes(const Document& document, Source source, const Smaller& smaller,
                         unsigned long size) {
    Reading reading = readBothWays(document, source);
    for (int i = 1; i < 5 && !growthOf(reading, smaller, size).isCertain(); ++i)
        reading = least(reading, readBothWays(document, source));
    return reading;
}

// The readings that grew too fast.
int measureShape(const Shape& shape, const Options& options) {
    int tooFast = 0;
    Smaller smaller;
    for (unsigned long size = 1; size <= std::min(options.largest, shape.largest); size *= 2) {
        const Document document = shape.make(size << 20U);
        malloc_trim(0);
        if (2.5 * smaller.half.peak > availableMemory() / 2) {
            std::printf("%-28s%4lu  left out: it would take half of the memory\n", shape.name,
                        size);
            break;
        }
        const Reading reading = readSeveralTimes(document, options.source, smaller, size);
        const Growth growth = growthOf(reading, smaller, size);
        printRow(shape.name, size, reading, growth);
        if (growth.isTooFast()) ++tooFast;
        if (growth.isTooFast() && reading.seconds > longestSeconds) break;
        smaller = {reading, std::max(smaller.memoryPerMB, memoryPerMB(reading, size))};
    }
    return tooFast;
}

int run(int argc, char** argv) {
    Options options;
    if (!readOptions(argc, argv, options)) {
        std::cerr << usage;
        return 2;
    }
    int tooFast = 0;
    printHead();
    for (const Shape& shape : shapes())
        if (std::regex_search(shape.name, std::regex(options.only)))
            tooFast += measureShape(shape, options);
    std::printf("\n%d doublings took or logged more than %.1f times as much; marked with !\n",
                tooFast, mostPerDoubling);
    return 0;
}

}  // namespace

}  // namespace growth

int main(int argc, char** argv) {
    try {
        return growth::run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "kvt-growth: " << error.what() << '\n';
        return 1;
    }
}
