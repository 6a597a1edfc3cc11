// The benchmarks. Each contest makes its documents, lets all contenders read them in turns (so that
// whatever else the machine does hits all alike), and asks for the rows of the table at the end.
// Ratios are those of the medians of the reading thread's CPU time.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bulk.h"
#include "content.h"
#include "memory.h"
#include "pass.h"
#include "readers.h"
#include "table.h"

namespace bench {

namespace {

constexpr const char* usage =
    "usage: kvt-bench [--quick] [--only=REGEX] [--benchmark_...]\n"
    "       kvt-bench [--quick] --document=CONTEST FILE\n"
    "\n"
    "  --quick      a tenth of the sizes\n"
    "  --only       the contests whose names match: meshes, shuffled, integers, statements,\n"
    "               nodes, connections, identifiers, bytes, memory\n"
    "  --document   writes the document of a contest, to read it under a profiler\n";

// A directory for documents that goes when the run ends.
class TemporaryDirectory {
  public:
    TemporaryDirectory()
        : path_(std::filesystem::temp_directory_path() /
                ("kvt-bench-" + std::to_string(getpid()))) {
        std::filesystem::create_directories(path_);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string file(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

void writeFile(const std::string& path, const ko::String& text) {
    std::ofstream file(path, std::ios::binary);
    file.write(text.buf(), static_cast<std::streamsize>(text.len()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

// Keeps a file in the system's cache, as far as a process may: some systems drop from it what they
// will read again a second later.
class CachedFile {
  public:
    explicit CachedFile(const std::string& path) : size_(std::filesystem::file_size(path)) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        bytes_ = mmap(nullptr, size_, PROT_READ, MAP_SHARED, file, 0);
        close(file);
        if (bytes_ != MAP_FAILED) mlock(bytes_, size_);
    }
    CachedFile(const CachedFile&) = delete;
    CachedFile& operator=(const CachedFile&) = delete;
    ~CachedFile() {
        if (bytes_ != MAP_FAILED) munmap(bytes_, size_);
    }

  private:
    unsigned long size_;
    void* bytes_ = MAP_FAILED;
};

struct Options {
    bool isQuick = false;
    std::string only;
    std::string documentOf;
    std::string memoryOf;
    std::vector<std::string> others;
};

Options readOptions(int argc, char** argv) {
    Options options;
    const auto take = [](std::string_view argument, std::string_view name, std::string& value) {
        if (argument.substr(0, name.size()) != name) return false;
        value = argument.substr(name.size());
        return true;
    };
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--quick") {
            options.isQuick = true;
        } else if (!take(argument, "--only=", options.only) &&
                   !take(argument, "--document=", options.documentOf) &&
                   !take(argument, "--memory-of=", options.memoryOf)) {
            options.others.push_back(argument);
        }
    }
    return options;
}

class Suite {
  public:
    explicit Suite(bool isQuick)
        : divisor_(isQuick ? 10 : 1), program_(std::filesystem::read_symlink("/proc/self/exe")) {}

    void run(const std::string& only);
    Content document(const std::string& contest) const;

  private:
    using Make = Content (*)(unsigned long);

    Content meshes() const { return makeMeshes(10, 250000 / divisor_); }
    Content shuffled() const { return makeShuffled(10, 250000 / divisor_); }
    Content integers() const { return makeIntegers(10, 2500000 / divisor_); }
    Content statements() const { return makeStatements(200000 / divisor_); }
    Content oneGroup() const { return makeOneGroup(20000000 / divisor_); }

    void meshContest();
    void shuffledContest();
    void integerContest();
    void statementContest();
    void growthContest(const std::string& name, Make make, bool hasThird);
    void byteContest();
    void memoryContest();

    // What every contest over one document has.
    void addOurs(const std::string& contest, const Content& content);
    void addDocumentPeers(const std::string& contest, const Content& content);
    void addLoops(const std::string& contest, const Content& content);

    void add(const std::string& name, const Load& load, int passes, Reader read,
             Memory memory = Memory::New);
    // Short passes are to be repeated often: what else the host does hits them harder.
    void measure(int repetitions = 5);
    void compareAvx2(const std::string& contest);

    unsigned long divisor_;
    std::string program_;
    TemporaryDirectory directory_;
    std::unique_ptr<CachedFile> file_;
    std::vector<benchmark::internal::Benchmark*> contenders_;
    Samples samples_;
    Table table_{samples_};
};

void Suite::add(const std::string& name, const Load& load, int passes, Reader read, Memory memory) {
    table_.setLoad(name, load);
    const auto pass = [read = std::move(read), memory](benchmark::State& state) {
        double wall = 0;
        for ([[maybe_unused]] const auto each : state) {
            const PassTimes times = timePass(read, memory);
            state.SetIterationTime(times.cpu);
            wall += times.wall;
        }
        state.counters[wallCounter] = wall;
    };
    contenders_.push_back(
        benchmark::RegisterBenchmark(name.c_str(), pass)->Iterations(passes)->UseManualTime());
}

void Suite::compareAvx2(const std::string& contest) {
    if (ko::bulk::hasPath(ko::bulk::Path::Avx2)) {
        table_.compare(contest + ", AVX2 path", contest + ", from_chars");
    }
}

void Suite::measure(int repetitions) {
    for (auto* const contender : contenders_)
        contender->Repetitions(repetitions);
    malloc_trim(0);  // what was freed since is not handed on to the processes of the passes
    benchmark::RunSpecifiedBenchmarks(&samples_);
    benchmark::ClearRegisteredBenchmarks();
    contenders_.clear();
}

Load loadOf(const Content& content, bool countsBytes) {
    return {content.kvt.len(), content.items, countsBytes};
}

void Suite::addOurs(const std::string& contest, const Content& content) {
    const std::string path = directory_.file(contest + ".kvt");
    writeFile(path, content.kvt);
    file_ = std::make_unique<CachedFile>(path);
    const unsigned long nodes = content.nodes;
    const Load load = loadOf(content, !content.numbers.empty());
    add(contest + ", file", load, 1, [path, nodes] { return readFile(path, nodes); });
    add(contest + ", string", load, 1, [&content] { return readText(content); });
    if (content.numbers.empty()) return;
    // With other instructions than the best of this machine; other passes do not see the switch.
    const auto addPath = [&](const char* name, ko::bulk::Path choice) {
        add(contest + name, load, 1, [path, nodes, choice] {
            ko::bulk::usePath(choice);
            return readFile(path, nodes);
        });
    };
    addPath(", plain path", ko::bulk::Path::Plain);
    if (ko::bulk::hasPath(ko::bulk::Path::Avx2)) addPath(", AVX2 path", ko::bulk::Path::Avx2);
}

void Suite::addLoops(const std::string& contest, const Content& content) {
    const Load load = loadOf(content, true);
    add(contest + ", from_chars", load, 1, [&content] { return stdFromChars(content); });
    add(contest + ", fast_float", load, 1, [&content] { return fastFloat(content); });
}

void Suite::addDocumentPeers(const std::string& contest, const Content& content) {
    const Load load = loadOf(content, !content.numbers.empty());
    add(contest + ", simdjson", load, 1, [&content] { return simdJson(content); });
    add(contest + ", RapidJSON", load, 1, [&content] { return rapidJson(content); });
    add(contest + ", RapidJSON exact", load, 1, [&content] { return rapidJsonExact(content); });
    add(contest + ", nlohmann", load, 1, [&content] { return nlohmannJson(content); });
}

void Suite::meshContest() {
    const Content content = meshes();
    addOurs("meshes", content);
    addLoops("meshes", content);
    addDocumentPeers("meshes", content);
    measure();
    table_.compare("meshes, file", "meshes, from_chars", {1.6, 2.5});
    table_.compare("meshes, file", "meshes, fast_float");
    table_.compare("meshes, file", "meshes, simdjson", {2.0, 3.0});
    table_.compare("meshes, file", "meshes, RapidJSON exact", {4.5, 6.4});
    table_.compare("meshes, file", "meshes, RapidJSON");
    table_.compare("meshes, file", "meshes, nlohmann");
    table_.compare("meshes, string", "meshes, from_chars");
    table_.compare("meshes, plain path", "meshes, from_chars", {0.7, 1.1});
    compareAvx2("meshes");
}

void Suite::shuffledContest() {
    const Content content = shuffled();
    addOurs("shuffled", content);
    addLoops("shuffled", content);
    addDocumentPeers("shuffled", content);
    measure();
    table_.compare("shuffled, file", "shuffled, from_chars", {2.0, 4.0});
    table_.compare("shuffled, file", "shuffled, fast_float");
    table_.compare("shuffled, file", "shuffled, simdjson");
    table_.compare("shuffled, file", "shuffled, RapidJSON exact");
    table_.compare("shuffled, file", "shuffled, RapidJSON");
    table_.compare("shuffled, file", "shuffled, nlohmann");
    table_.compare("shuffled, string", "shuffled, from_chars");
    table_.compare("shuffled, plain path", "shuffled, from_chars");
    compareAvx2("shuffled");
}

void Suite::integerContest() {
    const Content content = integers();
    addOurs("integers", content);
    addLoops("integers", content);
    addDocumentPeers("integers", content);
    measure();
    table_.compare("integers, file", "integers, from_chars", {1.6, 2.8});
    table_.compare("integers, file", "integers, simdjson");
    table_.compare("integers, file", "integers, RapidJSON exact");
    table_.compare("integers, file", "integers, nlohmann");
    table_.compare("integers, string", "integers, from_chars");
    table_.compare("integers, plain path", "integers, from_chars");
    compareAvx2("integers");
}

void Suite::statementContest() {
    const Content content = statements();
    addOurs("statements", content);
    addDocumentPeers("statements", content);
    measure(15);
    table_.compare("statements, file", "statements, RapidJSON", {0.75, 2.0});
    table_.compare("statements, file", "statements, RapidJSON exact");
    table_.compare("statements, file", "statements, simdjson", {0, 1.0});
    table_.compare("statements, file", "statements, nlohmann");
    table_.compare("statements, string", "statements, RapidJSON");
}

// The same kind of document at a tenth and at full size, and at a hundredth if `hasThird`.
void Suite::growthContest(const std::string& name, Make make, bool hasThird) {
    std::vector<Content> contents;
    std::vector<std::string> names;
    for (unsigned long size = 1000000 / divisor_, i = 0; i < (hasThird ? 3 : 2); ++i, size /= 10) {
        contents.push_back(make(size));
        names.push_back(name + ", " + std::to_string(size));
    }
    constexpr int passes[] = {1, 5, 25};
    for (unsigned long i = 0; i < contents.size(); ++i) {
        const auto read = [&content = contents[i]] { return readText(content); };
        add(names[i], loadOf(contents[i], false), passes[i], read, Memory::Kept);
    }
    measure();
    table_.compareGrowth(names[0], names[1], {12, 10.5});
    if (hasThird) table_.compareGrowth(names[1], names[2], {});
}

void Suite::byteContest() {
    const unsigned long pixels = 16777216 / divisor_;
    const Content numbers = makeImageNumbers(pixels);
    const Content compact = makeImageBytes(pixels);
    const Content block = makeImageBlock(pixels);
    const Load load{4 * pixels, 4 * pixels, true};
    add("bytes, numbers", load, 1, [&] { return readText(numbers); });
    add("bytes, compact", load, 1, [&] { return readText(compact); });
    add("bytes, block", load, 1, [&] { return readText(block); });
    add("bytes, from_chars", load, 1, [&] { return stdFromChars(numbers); });
    add("bytes, simdjson", load, 1, [&] { return simdJson(numbers); });
    measure();
    table_.compare("bytes, numbers", "bytes, from_chars");
    table_.compare("bytes, numbers", "bytes, simdjson");
    table_.compare("bytes, compact", "bytes, numbers");
    table_.compare("bytes, block", "bytes, numbers");
}

void Suite::memoryContest() {
    const auto measureDocument = [&](const Content& content) {
        const std::string path = directory_.file("memory.kvt");
        writeFile(path, content.kvt);
        MemoryUse use = measureMemory(program_, path);
        use.scene /= static_cast<double>(content.kvt.len());
        use.peakBeyond /= static_cast<double>(content.kvt.len());
        return use;
    };
    const MemoryUse ofMeshes = measureDocument(meshes());
    const MemoryUse ofOneGroup = measureDocument(oneGroup());
    const MemoryUse ofStatements = measureDocument(statements());
    table_.addShare("meshes, scene", ofMeshes.scene, {0.55, 0.48});
    table_.addShare("meshes, peak beyond", ofMeshes.peakBeyond, {0.5, 0.1});
    table_.addShare("one group, scene", ofOneGroup.scene, {});
    table_.addShare("one group, peak beyond", ofOneGroup.peakBeyond, {2.1, 1.1});
    table_.addShare("statements, scene", ofStatements.scene, {6, 3});
    table_.addShare("statements, peak beyond", ofStatements.peakBeyond, {});
}

Content Suite::document(const std::string& contest) const {
    if (contest == "meshes") return meshes();
    if (contest == "shuffled") return shuffled();
    if (contest == "integers") return integers();
    if (contest == "statements") return statements();
    if (contest == "nodes") return makeStatements(1000000 / divisor_);
    if (contest == "connections") return makeConnections(1000000 / divisor_);
    if (contest == "identifiers") return makeIdentifiers(1000000 / divisor_);
    if (contest == "memory") return oneGroup();
    throw std::runtime_error("there is no document for the contest " + contest);
}

void Suite::run(const std::string& only) {
    const std::vector<std::pair<const char*, std::function<void()>>> contests = {
        {"meshes", [&] { meshContest(); }},
        {"shuffled", [&] { shuffledContest(); }},
        {"integers", [&] { integerContest(); }},
        {"statements", [&] { statementContest(); }},
        {"nodes", [&] { growthContest("nodes", makeStatements, false); }},
        {"connections", [&] { growthContest("connections", makeConnections, true); }},
        {"identifiers", [&] { growthContest("identifiers", makeIdentifiers, true); }},
        {"bytes", [&] { byteContest(); }},
        {"memory", [&] { memoryContest(); }},
    };
    for (const auto& [name, contest] : contests) {
        if (!std::regex_search(name, std::regex(only))) continue;
        std::cerr << "kvt-bench: " << name << '\n';
        contest();
    }
    std::cout
        << "MB/s of the document (bytes: of the image) or millions of statements a second "
           "(connections,\nidentifiers: of nodes), ns for one number, byte, statement or node; "
           "medians of the thread's\nCPU time. On the clock it took "
        << samples_.waiting() << " times as long.\n\n";
    table_.print(std::cout);
}

int run(int argc, char** argv) {
    Options options = readOptions(argc, argv);
    if (!options.memoryOf.empty()) {
        printMemoryUse(options.memoryOf);
        return 0;
    }
    if (!options.documentOf.empty() && options.others.size() == 1) {
        const Suite suite(options.isQuick);
        writeFile(options.others[0], suite.document(options.documentOf).kvt);
        return 0;
    }
    // Later arguments win: this may be overridden.
    std::vector<std::string> arguments = {argv[0], "--benchmark_enable_random_interleaving=true"};
    arguments.insert(arguments.end(), options.others.begin(), options.others.end());
    std::vector<char*> pointers;
    pointers.reserve(arguments.size());
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (count > 1) {
        std::cerr << usage;
        return 2;
    }
    Suite(options.isQuick).run(options.only);
    return 0;
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    try {
        return bench::run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "kvt-bench: " << error.what() << '\n';
        return 1;
    }
}
