#include "toolprocess.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdlib>
#include <tuple>

#include <gtest/gtest.h>

namespace kvt::test {

namespace {

// As a program is given them: the array and what it points to belong to `texts`.
std::vector<char*> pointersTo(Arguments& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

void give(int number, int as) {
    if (number < 0) {
        close(as);
    } else {
        dup2(number, as);
    }
}

void limitMemory(unsigned long bytes) {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    const rlimit limit = {bytes, bytes};
    if (bytes > 0) setrlimit(RLIMIT_AS, &limit);
}

// Between the fork and the program: no memory may be taken here.
[[noreturn]] void become(char* const* argv, char* const* environment, const Streams& streams,
                         unsigned long memory) {
    setsid();
    give(streams.in, STDIN_FILENO);
    give(streams.out, STDOUT_FILENO);
    give(streams.err, STDERR_FILENO);
    limitMemory(memory);
    execve(argv[0], argv, environment);
    _exit(126);
}

}  // namespace

Capture::Capture() : file_(memfd_create("kvt-capture", MFD_CLOEXEC)) {}

std::string Capture::text() const {
    std::string all(static_cast<unsigned long>(lseek(number(), 0, SEEK_END)), '\0');
    EXPECT_EQ(static_cast<ssize_t>(all.size()), pread(number(), all.data(), all.size(), 0));
    return all;
}

Descriptor brokenPipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    close(ends[0]);
    return Descriptor(ends[1]);
}

int runTool(const Arguments& arguments, const Streams& streams, const Surroundings& surroundings) {
    Arguments all = arguments;
    all.insert(all.begin(), KVT_TOOL_PATH);
    Arguments environment = surroundings.environment;
    const std::vector<char*> argv = pointersTo(all);
    const std::vector<char*> variables = pointersTo(environment);
    const pid_t child = fork();
    if (child == 0) become(argv.data(), variables.data(), streams, surroundings.memory);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool operator==(const Outcome& a, const Outcome& b) {
    return std::tie(a.status, a.out, a.err) == std::tie(b.status, b.out, b.err);
}

Outcome outcomeOf(const Arguments& arguments, int in, const Surroundings& surroundings) {
    const Capture out;
    const Capture err;
    const int status = runTool(arguments, {in, out.number(), err.number()}, surroundings);
    return {status, out.text(), err.text()};
}

}  // namespace kvt::test
