// The benchmarks: how fast documents are read, next to what a program could use instead.
#include <exception>
#include <iostream>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "memory.h"
#include "suite.h"

namespace bench {

namespace {

constexpr const char* usage =
    "usage: ./dev bench [--quick] [--only=REGEX] [--against DIR]\n"
    "       ./dev bench [--quick] --document=NAME FILE\n"
    "\n"
    "  --quick      a tenth of the sizes\n"
    "  --only       the contests whose names match: meshes, shuffled, integers, statements,\n"
    "               scene, nodes, connections, identifiers, bytes, memory\n"
    "  --against    contests with an older library too: DIR is a checkout of its commit that is\n"
    "               built; their names end in \"older\"\n"
    "  --document   writes a document, to read it under a profiler: meshes, shuffled, integers,\n"
    "               statements, nodes, connections, identifiers, declarations, paths, members,\n"
    "               group\n";

// What is wrong with the arguments, in a line.
struct BadArguments : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    bool isQuick = false;
    bool comparesOlder = false;
    bool asksForHelp = false;
    bool asksForMemory = false;  // of reading the file, for the contest of that name
    std::string only;
    std::string document;
    std::string file;
};

// Takes what follows `name` in the argument; false when it begins otherwise.
bool take(const std::string& argument, const std::string& name, std::string& value) {
    if (argument.rfind(name, 0) != 0) return false;
    value = argument.substr(name.size());
    return true;
}

bool takeFile(const std::string& argument, Options& options) {
    if (!options.file.empty() || argument.rfind('-', 0) == 0) return false;
    options.file = argument;
    return true;
}

void readOption(const std::string& argument, Options& options) {
    if (argument == "--quick") {
        options.isQuick = true;
    } else if (argument == "--against") {
        options.comparesOlder = true;
    } else if (argument == "--help") {
        options.asksForHelp = true;
    } else if (argument == "--memory-of") {
        options.asksForMemory = true;
    } else if (!take(argument, "--only=", options.only) &&
               !take(argument, "--document=", options.document) && !takeFile(argument, options)) {
        throw BadArguments("there is no argument " + argument);
    }
}

Options readOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i)
        readOption(argv[i], options);
    const bool takesFile = options.asksForMemory || !options.document.empty();
    if (takesFile && options.file.empty()) throw BadArguments("the name of a file is missing");
    if (!takesFile && !options.file.empty())
        throw BadArguments("there is no argument " + options.file);
    return options;
}

std::regex expression(const std::string& text) {
    try {
        return std::regex(text);
    } catch (const std::regex_error&) {
        throw BadArguments("no regular expression: " + text);
    }
}

void writeDocument(const Suite& suite, const Options& options) {
    try {
        writeFile(options.file, suite.document(options.document).kvt);
    } catch (const std::out_of_range&) {
        throw BadArguments("there is no document " + options.document);
    }
}

void runContests(Suite& suite, const Options& options) {
    if (!suite.run(expression(options.only)))
        throw BadArguments("no contest has a name like " + options.only);
    suite.print(std::cout);
}

void run(const Options& options) {
    if (options.asksForHelp) {
        std::cout << usage;
        return;
    }
    if (options.asksForMemory) return printMemoryUse(options.file);
    Suite suite(options.isQuick, options.comparesOlder);
    if (options.document.empty()) {
        runContests(suite, options);
    } else {
        writeDocument(suite, options);
    }
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    try {
        bench::run(bench::readOptions(argc, argv));
        return 0;
    } catch (const bench::BadArguments& error) {
        std::cerr << "kvt-bench: " << error.what() << "; --help tells of all\n";
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "kvt-bench: " << error.what() << '\n';
        return 1;
    }
}
