// The tool without memory: it ends with status 2 and one line that says so, whatever it was about
// to do. What it wrote before is the beginning of what it writes otherwise.

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>

#include "toolprocess.h"

namespace {

namespace fs = std::filesystem;
using kvt::test::Arguments;
using kvt::test::Descriptor;
using kvt::test::Outcome;
using kvt::test::outcomeOf;
using kvt::test::Surroundings;

constexpr std::string_view outOfMemory = "kvt: error: out of memory\n";

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Whether `outcome` is that of a tool that runs out of memory on the way to `whole`.
testing::AssertionResult ranOut(const Outcome& outcome, const Outcome& whole) {
    const std::string_view err = outcome.err;
    const bool saysSo = endsWith(err, outOfMemory);
    const std::string_view before = err.substr(0, saysSo ? err.size() - outOfMemory.size() : 0);
    const bool isBeginning = startsWith(whole.err, before) && startsWith(whole.out, outcome.out);
    const bool isOfWholeLines = before.empty() || before.back() == '\n';
    if (outcome.status == 2 && saysSo && isBeginning && isOfWholeLines) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "status " << outcome.status << ", errors " << outcome.err
                                       << ", output " << outcome.out.substr(0, 200);
}

std::string manyInputs() {
    std::string text = "t n:\n";
    for (int i = 0; i < 20'000; ++i)
        text += ".input" + std::to_string(i) + " = " + std::to_string(i) + ";\n";
    return text;
}

// Of all that takes memory but buffers, for which a document itself is to blame. The long text
// fills the output's memory, so that some of it is written before the rest.
std::string mixedDocument() {
    return "# version: 1\n# time: now\n# a comment that is too long to stand in the text itself\n"
           "t a_node_with_a_name_that_is_long:\n.text = \"" +
           std::string(100'000, 'x') +
           "\";\n.o.p[3].q = \"a text that is too long to stand in the text itself\";\n"
           ".c |= other.out;\nt other:\n.x[2][1] = mat3(1 2 3 4 5 6 7 8 9);\n.n = other;\n"
           ".o.p.q.r.s.t = 1;\n";
}

constexpr const char* bufferDocument = "t n:\n.b = int32[9] {1 2 3};\n.c = byte[4] {.00010203};\n";

constexpr const char* wrongDocument =
    "t n:\n.x = 1;\n.x = \"a text that is not a number\";\n.x = 2.5;\n.y |= gone.out;\n";

// What the tool is asked to do, and how it ends with all memory.
struct Task {
    const char* name;
    Arguments arguments;
    int status;
};

std::ostream& operator<<(std::ostream& out, const Task& task) { return out << task.name; }

const Task goodTasks[] = {
    {"Help", {"--help"}, 0},        {"HelpForCheck", {"check", "--help"}, 0},
    {"Version", {"--version"}, 0},  {"Check", {"check", "--buffer-limit=1000000", "mixed"}, 0},
    {"Dump", {"dump", "mixed"}, 0}, {"DumpJson", {"dump", "--json", "mixed"}, 0},
};

const Task tasksWithMessages[] = {
    {"NoCommand", {}, 2},
    {"UnknownOption", {"check", "--frobnicate"}, 2},
    {"NoLimit", {"dump", "--element-limit", "many", "mixed"}, 2},
    {"MissingFile", {"check", "missing"}, 2},
    {"Check", {"check", "wrong", "mixed"}, 1},
    {"DumpJson", {"dump", "--json", "wrong"}, 0},
};

const Task tasksWithBuffers[] = {
    {"Check", {"check", "buffers"}, 0},
    {"DumpJson", {"dump", "--json", "buffers"}, 0},
};

const Task largeTasks[] = {
    {"Check", {"check", "large"}, 0},
    {"DumpJson", {"dump", "--json", "large"}, 0},
};

std::string nameOf(const testing::TestParamInfo<Task>& info) { return info.param.name; }

class ToolMemoryTest : public testing::TestWithParam<Task> {
  protected:
    ToolMemoryTest() : former_(fs::current_path()) {
        EXPECT_TRUE(mkdtemp(directory_.data()));
        fs::current_path(directory_);
        std::ofstream("mixed") << mixedDocument();
        std::ofstream("buffers") << bufferDocument;
        std::ofstream("wrong") << wrongDocument;
        std::ofstream("large") << manyInputs();
    }
    ~ToolMemoryTest() override {
        std::error_code ignored;
        fs::current_path(former_, ignored);
        fs::remove_all(directory_, ignored);
    }

    // With all memory.
    static Outcome wholeOutcome() {
        const Outcome whole = outcomeOf(GetParam().arguments);
        EXPECT_EQ(GetParam().status, whole.status);
        return whole;
    }

  private:
    fs::path former_;
    std::string directory_ = testing::TempDir() + "kvt-memory-" + std::string(6, 'X');
};

// --- Allocations that fail

// The output keeps so many back before it writes any.
constexpr unsigned long fewBytes = 1UL << 16;

// How often the tool ran out of memory, and how often after it had written something.
struct Failures {
    unsigned long all = 0;
    unsigned long afterOutput = 0;
};

// All allocations fail from the first one on, from the second one on, and so on.
Failures failFromEach(const Task& task, const Outcome& whole, const Arguments& environment) {
    constexpr unsigned long tooMany = 100'000;
    Failures failures;
    for (; failures.all < tooMany; ++failures.all) {
        Arguments variables = environment;
        variables.push_back("KVT_FAIL_FROM=" + std::to_string(failures.all));
        const Outcome outcome = outcomeOf(task.arguments, -1, {variables, 0});
        if (outcome == whole) return failures;
        const auto isRight = ranOut(outcome, whole);
        EXPECT_TRUE(isRight) << "from allocation " << failures.all;
        if (!isRight) return failures;
        if (!outcome.out.empty()) ++failures.afterOutput;
    }
    ADD_FAILURE() << "it never ends well";
    return failures;
}

class ToolAllocationTest : public ToolMemoryTest {};

TEST_P(ToolAllocationTest, AnyThatFailsEndsTheTool) {
    const Outcome whole = wholeOutcome();
    const Failures failures = failFromEach(GetParam(), whole, {"LD_PRELOAD=" KVT_FAILING_FROM_NTH});
    EXPECT_GT(failures.all, 100);
    const bool isWrittenInParts = whole.out.size() > fewBytes;
    EXPECT_EQ(failures.afterOutput > 0, isWrittenInParts);
}

INSTANTIATE_TEST_SUITE_P(Good, ToolAllocationTest, testing::ValuesIn(goodTasks), nameOf);
INSTANTIATE_TEST_SUITE_P(Messages, ToolAllocationTest, testing::ValuesIn(tasksWithMessages),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Buffers, ToolAllocationTest, testing::ValuesIn(tasksWithBuffers), nameOf);

// The C library takes memory for a file, and the system tells that too little of it is there.
bool couldNotOpen(const Outcome& outcome) {
    return outcome.status == 2 && outcome.out.empty() &&
           outcome.err == "mixed: error: cannot open: Cannot allocate memory\n";
}

// Whoever only noted that something failed would go on, and leave it out: streams of the standard
// library do.
class ToolSingleAllocationTest : public ToolMemoryTest {};

TEST_P(ToolSingleAllocationTest, ThatFailsIsNotPassedOver) {
    const Arguments environment = {"LD_PRELOAD=" KVT_FAILING_FROM_NTH};
    const Outcome whole = wholeOutcome();
    const unsigned long count = failFromEach(GetParam(), whole, environment).all;
    for (unsigned long i = 0; i < count; ++i) {
        const Arguments variables = {environment[0], "KVT_FAIL_ONCE=1",
                                     "KVT_FAIL_FROM=" + std::to_string(i)};
        const Outcome outcome = outcomeOf(GetParam().arguments, -1, {variables, 0});
        if (outcome == whole || couldNotOpen(outcome)) continue;
        ASSERT_TRUE(ranOut(outcome, whole)) << "allocation " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Good, ToolSingleAllocationTest, testing::ValuesIn(goodTasks), nameOf);

// An exception itself takes memory, which the C++ runtime sets aside where it can.
class ToolExceptionTest : public ToolMemoryTest {};

TEST_P(ToolExceptionTest, ThatHasNoMemoryEndsTheTool) {
    const Failures failures = failFromEach(
        GetParam(), wholeOutcome(), {"LD_PRELOAD=" KVT_FAILING_FROM_NTH, "KVT_NO_RESERVE=1"});
    EXPECT_GT(failures.all, 100);
}

INSTANTIATE_TEST_SUITE_P(Messages, ToolExceptionTest, testing::ValuesIn(tasksWithMessages), nameOf);

// --- Little address space

constexpr unsigned long kilobyte = 1024;
constexpr unsigned long megabyte = 1024 * kilobyte;

struct Attempt {
    Outcome outcome;
    bool hasBegun = false;
};

// The preloaded library tells through a file whether `main` began.
Attempt attemptWith(unsigned long memory) {
    const Descriptor mark(memfd_create("kvt-main", 0));
    const Arguments environment = {"LD_PRELOAD=" KVT_FAILING_FROM_NTH,
                                   "KVT_MAIN_BEGINS=" + std::to_string(mark.number())};
    Attempt attempt;
    attempt.outcome = outcomeOf(ToolMemoryTest::GetParam().arguments, -1, {environment, memory});
    attempt.hasBegun = lseek(mark.number(), 0, SEEK_CUR) > 0;
    return attempt;
}

// Before `main` it is the system that gives up: the loader with its message and status 127, or the
// kernel, which kills what it cannot set up.
bool couldNotBegin(const Attempt& attempt) {
    const int status = attempt.outcome.status;
    const bool isKilled = status == 128 + SIGKILL || status == 128 + SIGSEGV;
    return !attempt.hasBegun && (isKilled || (status == 127 && !attempt.outcome.err.empty()));
}

class ToolAddressSpaceTest : public ToolMemoryTest {};

TEST_P(ToolAddressSpaceTest, TooLittleEndsTheTool) {
    constexpr unsigned long step = 32 * kilobyte;
    const Outcome whole = wholeOutcome();
    unsigned long ends = 0;
    unsigned long successes = 0;
    for (unsigned long memory = 4 * megabyte; successes < 10; memory += step) {
        ASSERT_LT(memory, 512 * megabyte);
        const Attempt attempt = attemptWith(memory);
        const bool isWhole = attempt.outcome == whole;
        successes = isWhole ? successes + 1 : 0;
        if (isWhole || couldNotBegin(attempt)) continue;
        ASSERT_TRUE(ranOut(attempt.outcome, whole)) << memory / kilobyte << " KB";
        ++ends;
    }
    EXPECT_GT(ends, 0);
}

INSTANTIATE_TEST_SUITE_P(Good, ToolAddressSpaceTest, testing::ValuesIn(goodTasks), nameOf);
INSTANTIATE_TEST_SUITE_P(Messages, ToolAddressSpaceTest, testing::ValuesIn(tasksWithMessages),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Large, ToolAddressSpaceTest, testing::ValuesIn(largeTasks), nameOf);

// What a document asks for beyond that is its own error.
TEST(ToolBufferTest, ABufferThatCannotBeHadIsWrongInItsDocument) {
    const Descriptor document(memfd_create("kvt-document", MFD_CLOEXEC));
    constexpr std::string_view text = "t n:\n.x = byte[1000000000] {1};\n";
    ASSERT_EQ(static_cast<ssize_t>(text.size()),
              pwrite(document.number(), text.data(), text.size(), 0));
    const Outcome outcome = outcomeOf({"check", "-"}, document.number(), {{}, 256 * megabyte});
    EXPECT_EQ(1, outcome.status);
    EXPECT_NE(std::string::npos, outcome.err.find("invalid buffer element count")) << outcome.err;
}

}  // namespace
