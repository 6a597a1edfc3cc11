// The tool when its files, its streams or its terminal fail: each failure is one clear message and
// its exit status, and none is taken for the end of a document.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <pty.h>
#include <stdio.h>  // fopencookie
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "commands.h"
#include "ordinaryuser.h"
#include "toolprocess.h"

namespace {

namespace fs = std::filesystem;
using ko::File;
using ko::mirel_sdk::impl::Scene;
using kvt::test::Arguments;
using kvt::test::brokenPipe;
using kvt::test::Capture;
using kvt::test::Descriptor;
using kvt::test::OrdinaryUser;
using kvt::test::Outcome;
using kvt::test::outcomeOf;
using kvt::test::runTool;
using nlohmann::json;

// --- Documents

constexpr const char* goodDocument = "t n:\n.x = 1;\n";
constexpr const char* brokenDocument = "t n:\n.x = 1;\n.y = ;\n";
constexpr const char* brokenMessage =
    ":3:5: error: BAD TOKEN (3,5): expected '(scalar|buffer|reference)', found ';'.\n";

// A directory of its own for each test, gone with it.
class Faults : public testing::Test {
  protected:
    Faults() { EXPECT_TRUE(mkdtemp(directory_.data())); }
    ~Faults() override {
        std::error_code ignored;
        fs::remove_all(directory_, ignored);
    }

    std::string path(const std::string& name) const { return directory_ + '/' + name; }

    std::string write(const std::string& name, std::string_view text) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }

  private:
    std::string directory_ = testing::TempDir() + "kvt-faults-" + std::string(6, 'X');
};

std::string largeDocument() {
    std::string text = "t n:\n";
    for (int i = 0; i < 20'000; ++i)
        text += ".input" + std::to_string(i) + " = " + std::to_string(i) + ";\n";
    return text;
}

// --- Files that cannot be opened

// Both commands say it in one line, and write nothing else.
void expectUnreadable(const std::string& file, const std::string& message) {
    const std::vector<Arguments> all = {{"check", file}, {"dump", file}, {"dump", "--json", file}};
    for (const Arguments& arguments : all) {
        const Outcome outcome = outcomeOf(arguments);
        EXPECT_EQ(2, outcome.status);
        EXPECT_EQ("", outcome.out);
        EXPECT_EQ(file + ": error: " + message + '\n', outcome.err);
    }
}

TEST_F(Faults, AMissingFileIsReported) {
    expectUnreadable(path("missing"), "cannot open: No such file or directory");
}

TEST_F(Faults, ADirectoryIsReported) { expectUnreadable(path(""), "is a directory"); }

TEST_F(Faults, APathThroughAFileIsReported) {
    expectUnreadable(write("file", goodDocument) + "/inside", "cannot open: Not a directory");
}

TEST_F(Faults, AnEndlessNameIsReported) {
    expectUnreadable(path(std::string(300, 'x')), "cannot open: File name too long");
}

TEST_F(Faults, ACircleOfLinksIsReported) {
    fs::create_symlink(path("b"), path("a"));
    fs::create_symlink(path("a"), path("b"));
    expectUnreadable(path("a"), "cannot open: Too many levels of symbolic links");
}

// Within this process: nobody but the administrator may be able to run the program itself.
TEST_F(Faults, AFileWithoutReadPermissionIsReported) {
    const std::string name = write("secret", goodDocument);
    ASSERT_EQ(0, chmod(name.c_str(), 0));
    std::FILE* const stream = std::tmpfile();
    {
        const OrdinaryUser ordinary;
        EXPECT_EQ(kvt::CannotRun, kvt::check({{name}, false, {}}, stream));
        EXPECT_EQ(kvt::CannotRun, kvt::dump({name, true, {}}, stream, stream));
    }
    std::rewind(stream);
    std::string written(1000, '\0');
    written.resize(std::fread(written.data(), 1, written.size(), stream));
    std::fclose(stream);
    const std::string line = name + ": error: cannot open: Permission denied\n";
    EXPECT_EQ(line + line, written);
}

// --- Pipes

// Writes into a pipe from another thread, the given number of bytes at a time, and closes it.
std::thread writer(const std::string& pipe, std::string text, unsigned long atOnce) {
    return std::thread([pipe, text = std::move(text), atOnce] {
        const Descriptor descriptor(open(pipe.c_str(), O_WRONLY));
        for (unsigned long at = 0; at < text.size(); at += atOnce) {
            const std::string part = text.substr(at, atOnce);
            EXPECT_EQ(static_cast<ssize_t>(part.size()),
                      ::write(descriptor.number(), part.data(), part.size()));
            std::this_thread::yield();
        }
    });
}

class PipeFaults : public Faults {
  protected:
    PipeFaults() { EXPECT_EQ(0, mkfifo(path("pipe").c_str(), 0600)); }

    Outcome piped(Arguments arguments, const std::string& text, unsigned long atOnce) const {
        std::thread writing = writer(path("pipe"), text, atOnce);
        arguments.push_back(path("pipe"));
        Outcome outcome = outcomeOf(arguments);
        writing.join();
        return outcome;
    }
};

TEST_F(PipeFaults, APipeIsReadLikeAFile) {
    const std::string document = largeDocument();
    const Outcome expected = outcomeOf({"dump", "--json", write("file", document)});
    const Outcome found = piped({"dump", "--json"}, document, 100'000);
    EXPECT_EQ(0, found.status);
    EXPECT_EQ("", found.err);
    EXPECT_TRUE(expected.out == found.out);
}

TEST_F(PipeFaults, APipeMayBringSingleBytes) {
    const Outcome outcome = piped({"dump"}, brokenDocument, 1);
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(path("pipe") + brokenMessage, outcome.err);
    EXPECT_EQ("version   1\nnodes     1, and then reading stopped\n\nt n\n    x  Int  1\n",
              outcome.out);
}

TEST_F(PipeFaults, APipeThatEndsWithinAStatementEndsTheDocumentThere) {
    const Outcome outcome = piped({"check"}, "t n:\n.x = 1", 3);
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(path("pipe") + ":2:6: error: BAD TOKEN (2,6): expected ';', found 'EOF'.\n",
              outcome.err);
}

// --- Read errors

// Both ends of a terminal that hands bytes on as they are.
struct Terminal {
    Terminal() {
        int ends[2] = {-1, -1};
        termios raw = {};
        cfmakeraw(&raw);
        EXPECT_EQ(0, openpty(&ends[0], &ends[1], nullptr, &raw, nullptr));
        for (const int end : ends)
            fcntl(end, F_SETFD, FD_CLOEXEC);  // or the tool would keep it open
        controller = Descriptor(ends[0]);
        line = Descriptor(ends[1]);
    }

    Descriptor controller;
    Descriptor line;
};

// Brings a text and then a read error, as a terminal does whose other end has gone.
class FailingInput {
  public:
    explicit FailingInput(std::string text)
        : writer_([text = std::move(text), line = std::move(terminal_.line)] {
              EXPECT_EQ(static_cast<ssize_t>(text.size()),
                        ::write(line.number(), text.data(), text.size()));
          }) {}
    FailingInput(const FailingInput&) = delete;
    FailingInput& operator=(const FailingInput&) = delete;
    ~FailingInput() { writer_.join(); }
    int number() const { return terminal_.controller.number(); }

  private:
    Terminal terminal_;
    std::thread writer_;
};

constexpr const char* readError = "-: error: cannot read: Input/output error\n";

TEST_F(Faults, AReadErrorBetweenStatementsIsNotTheEnd) {
    const FailingInput checked(goodDocument);
    const Outcome check = outcomeOf({"check", "-"}, checked.number());
    EXPECT_EQ(2, check.status);
    EXPECT_EQ(readError, check.err);

    const FailingInput dumped(goodDocument);
    const Outcome dump = outcomeOf({"dump", "-"}, dumped.number());
    EXPECT_EQ(2, dump.status);
    EXPECT_EQ(readError, dump.err);
    EXPECT_EQ("version   1\nnodes     1, and then reading stopped\n\nt n\n    x  Int  1\n",
              dump.out);
}

TEST_F(Faults, AReadErrorWithinAStatementIsNamedBesideWhatIsMissing) {
    const FailingInput input("t n:\n.x = 1");
    const Outcome outcome = outcomeOf({"dump", "--json", "-"}, input.number());
    EXPECT_EQ(2, outcome.status);
    EXPECT_EQ(
        "-:2:6: error: BAD TOKEN (2,6): expected ';', found 'EOF'.\n" + std::string(readError),
        outcome.err);
    EXPECT_EQ(false, json::parse(outcome.out)["ok"]);
}

TEST_F(Faults, AReadErrorAfterManyBlocksIsReported) {
    const FailingInput input(largeDocument());
    const Outcome outcome = outcomeOf({"dump", "--json", "-"}, input.number());
    EXPECT_EQ(2, outcome.status);
    EXPECT_EQ(readError, outcome.err);
    EXPECT_EQ(20'000, json::parse(outcome.out)["nodes"][0]["inputs"].size());
}

TEST_F(Faults, AReadErrorDoesNotKeepCheckFromTheOtherFiles) {
    const std::string broken = write("broken", brokenDocument);
    const FailingInput input(goodDocument);
    const Outcome outcome = outcomeOf({"check", "-", broken}, input.number());
    EXPECT_EQ(2, outcome.status);
    EXPECT_EQ(readError + broken + brokenMessage, outcome.err);
}

// Takes the place of standard input while it lives.
class StandardInput {
  public:
    explicit StandardInput(int number) : former_(dup(STDIN_FILENO)) {
        dup2(number, STDIN_FILENO);
        std::clearerr(stdin);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;
    ~StandardInput() {
        dup2(former_.number(), STDIN_FILENO);
        std::clearerr(stdin);
    }

  private:
    Descriptor former_;
};

// What a host sees: a good document, unless it asks the file.
TEST_F(Faults, AReadErrorIsTheEndForTheReaderButTheFileKnows) {
    const FailingInput input(goodDocument);
    const StandardInput guard(input.number());
    const File file = File::standardInput();
    Scene scene;
    EXPECT_TRUE(ko::mirel_sdk::impl::parseKvt(&scene, file, false));
    EXPECT_TRUE(scene.findNode("n"));
    EXPECT_EQ(File::CannotRead, file.error());
    EXPECT_EQ("cannot read: Input/output error", file.errorText().view());
}

// --- Files that change while they are read

// Cuts a file off as soon as something is written to it.
struct Cutting {
    std::string file;
    unsigned long size;
    std::string written;
};

ssize_t cutOff(void* cookie, const char* bytes, std::size_t count) {
    auto& cutting = *static_cast<Cutting*>(cookie);
    fs::resize_file(cutting.file, cutting.size);
    cutting.written.append(bytes, count);
    return static_cast<ssize_t>(count);
}

// The first statement gives a warning, at which the file loses what is after `size` bytes.
class ShrinkingFile : public Faults {
  protected:
    kvt::ExitStatus check(std::string document, unsigned long size) {
        const std::string text = "t n: .x = 1; .x = 2.5;\n" + std::move(document);
        cutting_ = {write("file", text), size, ""};
        cookie_io_functions_t functions = {};
        functions.write = cutOff;
        std::FILE* const stream = fopencookie(&cutting_, "w", functions);
        const kvt::ExitStatus status = kvt::check({{cutting_.file}, false, {}}, stream);
        std::fclose(stream);
        return status;
    }

    // What was reported after the warning.
    std::string report() const { return cutting_.written.substr(cutting_.written.find('\n') + 1); }
    std::string shrunk() const {
        return cutting_.file + ": error: cannot read: the file has become shorter\n";
    }

  private:
    Cutting cutting_;
};

// Many more bytes than a file brings at once.
std::string comments() {
    std::string text;
    for (int i = 0; i < 20'000; ++i)
        text += "# some comment\n";
    return text;
}

TEST_F(ShrinkingFile, IsReportedAlsoWhenItEndsBetweenStatements) {
    EXPECT_EQ(kvt::CannotRun, check(comments(), 200'000));
    EXPECT_EQ(shrunk(), report());
}

TEST_F(ShrinkingFile, IsReportedBesideWhatIsMissing) {
    const std::string unfinished = comments() + ".y = \"" + comments() + "\";\n";
    EXPECT_EQ(kvt::CannotRun, check(unfinished, 400'000));
    const std::string text = report();
    EXPECT_NE(std::string::npos, text.find("UNEXPECTED EOF while parsing STRING")) << text;
    EXPECT_EQ(2, std::count(text.begin(), text.end(), '\n')) << text;
    EXPECT_NE(std::string::npos, text.find(shrunk())) << text;
}

TEST_F(ShrinkingFile, MayKeepAllThatWasRead) {
    EXPECT_EQ(kvt::BadDocument, check(".y = ;\n" + comments(), 200'000));
    EXPECT_EQ(kvt::Success, check(std::string(1000, '#'), 10));  // was read whole before
    EXPECT_EQ("", report());
}

// The document ends before the file does.
TEST_F(ShrinkingFile, IsNotOneThatHoldsMoreThanItsDocument) {
    const std::string file =
        write("file", std::string(goodDocument) + '\xFF' + std::string(300'000, '$'));
    const Outcome outcome = outcomeOf({"check", file});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
}

// --- Outputs

constexpr const char* cannotWrite = "kvt: error: cannot write the output: ";

// What writes to standard output, much and little.
std::vector<Arguments> writingCommands(const std::string& good, const std::string& large) {
    return {{"dump", good},  {"dump", "--json", good},  {"--version"},     {"--help"},
            {"dump", large}, {"dump", "--json", large}, {"dump", "--help"}};
}

class OutputFaults : public Faults {
  protected:
    // Writing to `out` fails: one message says so.
    void expectFailure(int out, const std::string& reason) const {
        for (const Arguments& arguments : allWritingCommands()) {
            const Capture err;
            EXPECT_EQ(2, runWritingTo(out, err, arguments)) << arguments.back();
            EXPECT_EQ(cannotWrite + reason + '\n', err.text()) << arguments.back();
        }
    }

    std::vector<Arguments> allWritingCommands() const { return writingCommands(good_, large_); }

    int runWritingTo(int out, const Capture& err, const Arguments& arguments) const {
        return runTool(arguments, {in_.number(), out, err.number()});
    }

    // How `check` ends, and `dump` after it has written the scene, when diagnostics go to `err`.
    void expectStatusWithout(int err, int ofCheck, int ofDump) const {
        const Capture out;
        EXPECT_EQ(0, runTool({"check", good_}, {-1, -1, err}));
        EXPECT_EQ(ofCheck, runTool({"check", broken_}, {-1, -1, err}));
        EXPECT_EQ(ofCheck, runTool({"check", broken_, good_}, {-1, -1, err}));
        EXPECT_EQ(ofCheck, runTool({"check", path("missing")}, {-1, -1, err}));
        EXPECT_EQ(ofCheck, runTool({"check", "-"}, {-1, -1, err}));
        EXPECT_EQ(2, runTool({"frobnicate"}, {-1, -1, err}));
        EXPECT_EQ(ofDump, runTool({"dump", broken_}, {in_.number(), out.number(), err}));
        EXPECT_EQ("version   1\nnodes     1, and then reading stopped\n\nt n\n    x  Int  1\n",
                  out.text());
    }

    const std::string& good() const { return good_; }
    const std::string& broken() const { return broken_; }

  private:
    // Open, so that a document takes the place of a closed output.
    Descriptor in_{open("/dev/null", O_RDONLY | O_CLOEXEC)};
    std::string good_ = write("good", goodDocument);
    std::string large_ = write("large", largeDocument());
    std::string broken_ = write("broken", brokenDocument);
};

// A terminal whose other end has gone.
Descriptor goneTerminal() {
    Terminal terminal;
    return std::move(terminal.line);
}

TEST_F(OutputFaults, AFullDiskIsReportedOnce) {
    const Descriptor full(open("/dev/full", O_WRONLY));
    expectFailure(full.number(), "No space left on device");
}

// Who reads no further wants no more: `kvt dump FILE | head`.
TEST_F(OutputFaults, AReaderThatHasGoneEndsTheOutputQuietly) {
    const Descriptor pipe = brokenPipe();
    for (const Arguments& arguments : allWritingCommands()) {
        const Capture err;
        EXPECT_EQ(0, runWritingTo(pipe.number(), err, arguments)) << arguments.back();
        EXPECT_EQ("", err.text()) << arguments.back();
    }
}

TEST_F(OutputFaults, AReaderThatHasGoneHidesNoDiagnostics) {
    const Descriptor pipe = brokenPipe();
    const Capture err;
    EXPECT_EQ(0, runWritingTo(pipe.number(), err, {"dump", broken()}));
    EXPECT_EQ(broken() + brokenMessage, err.text());
}

// Of a size that the shell sets, in blocks of 512 bytes.
TEST_F(OutputFaults, AnOutputThatMayNotGrowIsReportedOnce) {
    const std::string command =
        "cd '" + path("") + "' && ulimit -f 8 && exec '" KVT_TOOL_PATH "' dump large > out 2> err";
    EXPECT_EQ(2, WEXITSTATUS(std::system(command.c_str())));
    std::ifstream err(path("err"));
    std::string line;
    std::getline(err, line);
    EXPECT_EQ(cannotWrite + std::string("File too large"), line);
    EXPECT_EQ(EOF, err.peek());
}

TEST_F(OutputFaults, AClosedOutputIsReportedOnce) { expectFailure(-1, "Bad file descriptor"); }

TEST_F(OutputFaults, AnOutputForReadingIsReportedOnce) {
    const Descriptor file(open(good().c_str(), O_RDONLY));
    expectFailure(file.number(), "Bad file descriptor");
}

TEST_F(OutputFaults, ATerminalThatHasGoneIsReportedOnce) {
    const Descriptor terminal = goneTerminal();
    expectFailure(terminal.number(), "Input/output error");
}

TEST_F(OutputFaults, TheStatusTellsWhenDiagnosticsCannotBeWritten) {
    const Descriptor full(open("/dev/full", O_WRONLY));
    const Descriptor terminal = goneTerminal();
    for (const int err : {full.number(), terminal.number(), -1})
        expectStatusWithout(err, 2, 2);
}

// The scene was written whole, so what `dump` says about its document stands.
TEST_F(OutputFaults, AReaderOfDiagnosticsThatHasGoneEndsCheckQuietly) {
    const Descriptor pipe = brokenPipe();
    expectStatusWithout(pipe.number(), 0, 1);
}

// Sends statements that each give a diagnostic until nobody takes them any more, but not for ever.
// True when nobody took the last.
bool isLeft(int socket) {
    std::string statements = "t n: .x = 1;\n";
    for (int i = 0; i < 1000; ++i)
        statements += "n.x = 2.5;\n";
    for (int i = 0; i < 1000; ++i)
        if (send(socket, statements.data(), statements.size(), MSG_NOSIGNAL) < 0) return true;
    shutdown(socket, SHUT_WR);
    return false;
}

TEST_F(OutputFaults, CheckReadsNoFurtherThanItsFirstDiagnosticThatIsLost) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
    const Descriptor sender(ends[0]);
    const Descriptor full(open("/dev/full", O_WRONLY));
    bool wasLeft = false;
    std::thread sending([&] { wasLeft = isLeft(sender.number()); });
    {
        const Descriptor receiver(ends[1]);
        EXPECT_EQ(2, runTool({"check", "-"}, {receiver.number(), -1, full.number()}));
    }
    sending.join();
    EXPECT_TRUE(wasLeft);
}

TEST_F(OutputFaults, AClosedInputIsReportedOnce) {
    const std::string message = "-: error: cannot read: Bad file descriptor\n";
    EXPECT_EQ(message, outcomeOf({"check", "-"}).err);
    const Outcome outcome = outcomeOf({"dump", "--json", "-"});
    EXPECT_EQ(2, outcome.status);
    EXPECT_EQ(message, outcome.err);
    EXPECT_EQ(2, outcomeOf({"check", good(), "-"}).status);
}

// All else in this file runs so; here what is written is looked at.
TEST_F(OutputFaults, NoTerminalIsNeeded) {
    const Outcome outcome = outcomeOf({"dump", good()});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.err);
    EXPECT_EQ("version   1\nnodes     1\n\nt n\n    x  Int  1\n", outcome.out);
}

}  // namespace
