// Reads every mutant of documents of up to 4 kB, in several processes, and dumps its scene.
// Usage: kvt-mutate [--jobs=N] [--every=N] FILE_OR_FOLDER...
//        kvt-mutate --only=DOCUMENT:CHANGE:INDEX
// A mutant that ends its process is reported in the form that --only takes; --only prints the
// mutant itself before it reads it.
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inputs.h"
#include "mutants.h"
#include "reading.h"

// Part of the sanitizer that finds leaks; null without one.
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();  // NOLINT: its name

namespace {

namespace fs = std::filesystem;
using kvt::fuzz::Change;
using kvt::fuzz::Input;
using kvt::fuzz::Mutants;

constexpr unsigned long largestDocument = 4096;
constexpr unsigned mostJobs = 64;
// Seconds of the processor's time for one mutant, which takes less than a millisecond.
constexpr unsigned hangLimit = 60;

struct Options {
    unsigned jobs = 1;
    unsigned long every = 1;
    std::string only;
    std::vector<std::string> paths;
};

// What a process is at, for the others to see.
struct Worker {
    std::atomic<unsigned long> document{0};
    std::atomic<Change> change{Change::Cut};
    std::atomic<unsigned long> index{0};
    std::atomic<unsigned long> done{0};
    pid_t process = 0;
};

// In memory that all processes share.
struct Board {
    std::atomic<unsigned long> nextDocument{0};
    Worker workers[mostJobs];
};

// Documents and kept inputs; what else is beside them is not read.
bool isDocument(const Input& input) {
    const std::string extension = fs::path(input.name).extension().string();
    return extension.empty() || extension == ".kvt" || extension.find(".inputs#") == 0;
}

// Adds those that are not too large and whose text is not among `texts` yet.
void addDocuments(const fs::path& path, std::set<std::string>& texts,
                  std::vector<Input>& documents) {
    for (Input& input : kvt::fuzz::inputsAt(path)) {
        if (!isDocument(input) || input.bytes.size() > largestDocument) continue;
        if (texts.insert(input.bytes).second) documents.push_back(std::move(input));
    }
}

// --- The processes that read

// Ends the process after so many seconds of the processor's time; 0 calls that off. A busy machine
// may let a process wait for long, so other clocks say nothing of it.
void setTimeLimit(unsigned seconds) {
    const itimerval limit = {{0, 0}, {static_cast<time_t>(seconds), 0}};
    setitimer(ITIMER_PROF, &limit, nullptr);
}

void checkLeaks() {
    if (!__lsan_do_recoverable_leak_check || __lsan_do_recoverable_leak_check() == 0) return;
    std::fprintf(stderr, "mutate: a mutant of this document leaks\n");
    std::exit(1);
}

void readMutants(const Mutants& mutants, unsigned long number, unsigned long every,
                 Worker& worker) {
    for (const Change change : kvt::fuzz::changes) {
        worker.change = change;
        for (unsigned long i = 0; i < mutants.count(change); ++i) {
            if (number++ % every != 0) continue;
            worker.index = i;
            setTimeLimit(hangLimit);
            kvt::fuzz::readAndDump(mutants.make(change, i));
            ++worker.done;
        }
    }
    setTimeLimit(0);
}

void work(const std::vector<Input>& documents, unsigned long every, Board& board, Worker& worker) {
    for (;;) {
        const unsigned long document = board.nextDocument++;
        if (document >= documents.size()) return;
        worker.document = document;
        // A sample takes other places in each document.
        readMutants(Mutants(documents[document].bytes), document, every, worker);
        checkLeaks();
    }
}

// --- The process that waits for them

unsigned long doneBy(const Board& board) {
    unsigned long done = 0;
    for (const Worker& worker : board.workers)
        done += worker.done;
    return done;
}

void reportFailure(const std::vector<Input>& documents, const Worker& worker, int status) {
    const std::string place = documents[worker.document].name + ':' +
                              std::string(nameOf(worker.change)) + ':' +
                              std::to_string(worker.index);
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGPROF) {
        std::fprintf(stderr, "mutate: still reading after %u seconds: --only=%s\n", hangLimit,
                     place.c_str());
    } else {
        std::fprintf(stderr, "mutate: FAILED: --only=%s\n", place.c_str());
    }
}

// Waits for one process, and shows meanwhile how far all of them are.
int waitFor(const Worker& worker, const Board& board, unsigned long total) {
    constexpr useconds_t pause = 50'000;
    constexpr unsigned pausesBetweenReports = 200;
    int status = 0;
    for (unsigned pauses = 1; waitpid(worker.process, &status, WNOHANG) == 0; ++pauses) {
        usleep(pause);
        if (pauses % pausesBetweenReports == 0)
            std::fprintf(stderr, "mutate: %lu of %lu\n", doneBy(board), total);
    }
    return status;
}

unsigned long countMutants(const std::vector<Input>& documents) {
    unsigned long count = 0;
    for (const Input& document : documents) {
        const Mutants mutants(document.bytes);
        for (const Change change : kvt::fuzz::changes)
            count += mutants.count(change);
    }
    return count;
}

Board& makeBoard() {
    void* const memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    return *new (memory) Board;
}

void startWorker(const std::vector<Input>& documents, unsigned long every, Board& board,
                 Worker& worker) {
    worker.process = fork();
    if (worker.process < 0) throw std::runtime_error("cannot start a process");
    if (worker.process > 0) return;
    work(documents, every, board, worker);
    std::exit(0);
}

int mutateAll(const Options& options) {
    std::vector<Input> documents;
    std::set<std::string> texts;
    for (const std::string& path : options.paths)
        addDocuments(path, texts, documents);
    if (documents.empty()) throw std::runtime_error("no documents");
    const unsigned long total = countMutants(documents) / options.every;
    Board& board = makeBoard();
    for (unsigned i = 0; i < options.jobs; ++i)
        startWorker(documents, options.every, board, board.workers[i]);
    bool failed = false;
    for (unsigned i = 0; i < options.jobs; ++i) {
        const Worker& worker = board.workers[i];
        const int status = waitFor(worker, board, total);
        if (status != 0) reportFailure(documents, worker, status);
        failed = failed || status != 0;
    }
    std::printf("mutate: %lu mutants of %lu documents%s\n", doneBy(board), documents.size(),
                failed ? ", and then reading failed" : " were read");
    return failed ? 1 : 0;
}

int mutateOnly(const std::string& place) {
    const std::size_t second = place.rfind(':');
    const std::size_t first = second == 0 ? second : place.rfind(':', second - 1);
    if (first == std::string::npos || second == first)
        throw std::runtime_error("--only takes DOCUMENT:CHANGE:INDEX");
    const std::string name = place.substr(first + 1, second - first - 1);
    const unsigned long index = std::stoul(place.substr(second + 1));
    const Mutants mutants(kvt::fuzz::inputNamed(place.substr(0, first)).bytes);
    for (const Change change : kvt::fuzz::changes) {
        if (nameOf(change) != name || index >= mutants.count(change)) continue;
        const std::string mutant = mutants.make(change, index);
        std::fwrite(mutant.data(), 1, mutant.size(), stdout);
        std::fflush(stdout);
        kvt::fuzz::readAndDump(mutant);
        return 0;
    }
    throw std::runtime_error("there is no such mutant: " + place);
}

// The text after `name` in an argument that begins with it; null in any other.
const char* valueOf(const char* argument, std::string_view name) {
    return std::string_view(argument).substr(0, name.size()) == name ? argument + name.size()
                                                                     : nullptr;
}

Options optionsFrom(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (const char* const jobs = valueOf(argv[i], "--jobs=")) {
            options.jobs = static_cast<unsigned>(std::clamp(std::stoul(jobs), 1UL, 64UL));
        } else if (const char* const every = valueOf(argv[i], "--every=")) {
            options.every = std::max(std::stoul(every), 1UL);
        } else if (const char* const only = valueOf(argv[i], "--only=")) {
            options.only = only;
        } else {
            options.paths.emplace_back(argv[i]);
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = optionsFrom(argc, argv);
        return options.only.empty() ? mutateAll(options) : mutateOnly(options.only);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "mutate: %s\n", e.what());
        return 2;
    }
}
