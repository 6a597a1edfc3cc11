// How time and memory grow with documents of hostile shapes: each doubles from 1 to 64 MB, and what
// more than follows is marked.
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
    "  --file      reads from a file, in its blocks, instead of a text in memory\n";

// A doubling of the document takes at most so much more.
constexpr double mostPerDoubling = 2.3;
constexpr double megabyte = 1 << 20;
// Below that a difference says nothing.
constexpr double leastSeconds = 0.01;
constexpr double leastBytes = 4 * megabyte;
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

double growthOf(double now, double before, double least) {
    return before >= least ? now / before : 0;
}

bool growsTooFast(const Reading& now, const Reading& before) {
    return growthOf(now.seconds, before.seconds, leastSeconds) > mostPerDoubling ||
           growthOf(now.freeSeconds, before.freeSeconds, leastSeconds) > mostPerDoubling ||
           growthOf(now.peak, before.peak, leastBytes) > mostPerDoubling;
}

std::string growthText(double growth) {
    char text[16];
    std::snprintf(text, sizeof text, growth > mostPerDoubling ? "%.2f!" : "%.2f ", growth);
    return growth > 0 ? text : "- ";
}

void printHead() {
    std::printf("%-28s%4s%9s%8s%9s%8s%10s%10s%8s%8s\n", "shape", "MB", "read, s", "growth",
                "free, s", "growth", "scene, MB", "peak, MB", "growth", "peak/MB");
}

void printRow(const char* name, unsigned long size, const Reading& now, const Reading& before) {
    std::printf("%-28s%4lu%9.3f%8s%9.3f%8s%10.1f%10.1f%8s%8.1f\n", name, size, now.seconds,
                growthText(growthOf(now.seconds, before.seconds, leastSeconds)).c_str(),
                now.freeSeconds,
                growthText(growthOf(now.freeSeconds, before.freeSeconds, leastSeconds)).c_str(),
                now.scene / megabyte, now.peak / megabyte,
                growthText(growthOf(now.peak, before.peak, leastBytes)).c_str(),
                now.peak / megabyte / static_cast<double>(size));
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
Reading readSeveralTimes(const Document& document, Source source, const Reading& before) {
    Reading reading = readBothWays(document, source);
    for (int i = 1; i < 5 && growsTooFast(reading, before); ++i)
        reading = least(reading, readBothWays(document, source));
    return reading;
}

// The readings that grew too fast.
int measureShape(const Shape& shape, const Options& options) {
    int tooFast = 0;
    Reading before;
    for (unsigned long size = 1; size <= std::min(options.largest, shape.largest); size *= 2) {
        const Document document = shape.make(size << 20U);
        malloc_trim(0);
        if (2.5 * before.peak > availableMemory() / 2) {
            std::printf("%-28s%4lu  left out: it would take half of the memory\n", shape.name,
                        size);
            break;
        }
        const Reading reading = readSeveralTimes(document, options.source, before);
        printRow(shape.name, size, reading, before);
        if (growsTooFast(reading, before)) ++tooFast;
        if (growsTooFast(reading, before) && reading.seconds > longestSeconds) break;
        before = reading;
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
    std::printf("\n%d doublings took more than %.1f times as much; they are marked with !\n",
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
