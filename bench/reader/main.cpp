// Reads a document with the library that this program was built with, and prints how long it took:
// CPU time of the thread, time on the clock. Built once with this library and once with an older
// one, of which it uses no more than a program that reads a document does.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

#include "../kvt.h"
#include "../pass.h"

// The switch between the paths of the library is in its own headers, whose place has changed.
// Without one there is but the plain path.
#if __has_include("bulk/bulk.h")
#include "bulk/bulk.h"
#define HAS_PATHS
#elif __has_include("bulk.h")
#include "bulk.h"
#define HAS_PATHS
#endif

namespace bench {

namespace {

constexpr const char* usage =
    "usage: kvt-bench-reader [--text] [--kept] [--plain] FILE\n"
    "\n"
    "  --text    reads the file's text in memory instead of the file\n"
    "  --kept    reads twice and prints the times of the second reading, in kept memory\n"
    "  --plain   without the instructions that not all machines have\n";

struct Options {
    bool isText = false;
    bool isKept = false;
    bool isPlain = false;
    std::string path;
};

// False for arguments that are none.
bool readOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--text") {
            options.isText = true;
        } else if (argument == "--kept") {
            options.isKept = true;
        } else if (argument == "--plain") {
            options.isPlain = true;
        } else if (options.path.empty() && argument.substr(0, 1) != "-") {
            options.path = argument;
        } else {
            return false;
        }
    }
    return !options.path.empty();
}

void usePlainPath() {
#ifdef HAS_PATHS
    ko::bulk::usePath(ko::bulk::Path::Plain);
#endif
}

ko::String textOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    return ko::String(std::string_view(text));
}

int run(int argc, char** argv) {
    Options options;
    if (!readOptions(argc, argv, options)) {
        std::cerr << usage;
        return 2;
    }
    if (options.isPlain) usePlainPath();
    const ko::String text = options.isText ? textOf(options.path) : ko::String();
    const auto read = [&]() -> Result {
        return options.isText ? sceneOfText(text) : sceneOfFile(options.path);
    };
    const PassTimes times = timePass(read, options.isKept ? Memory::Kept : Memory::New);
    std::printf("%.9f %.9f\n", times.cpu, times.wall);
    return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    try {
        return bench::run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "kvt-bench-reader: " << error.what() << '\n';
        return 1;
    }
}
