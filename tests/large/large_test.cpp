// Documents past 2 and 4 GiB, and the counters that end there: from a pipe, from a file and from a
// text. Each test says how much memory it takes, and is skipped where the system has less.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "foundation/textbuilder.h"

namespace {

using ko::File;
using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::impl::BufferView;
using ko::mirel_sdk::impl::parseKvt;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Scene;

constexpr unsigned long MiB = 1UL << 20;
constexpr unsigned long GiB = 1UL << 30;
constexpr unsigned long largestCounter = std::numeric_limits<std::int32_t>::max();

// --- Documents that are nowhere as a whole

struct Part {
    std::string text;
    unsigned long times = 1;
};
using Parts = std::vector<Part>;

// `text` repeated up to a size near 1 MiB, as often as it takes for `bytes` characters.
Part filled(std::string_view text, unsigned long bytes) {
    Part part;
    while (part.text.size() + text.size() <= MiB)
        part.text += text;
    part.times = bytes / part.text.size() + 1;
    return part;
}

// `count` times that character.
Parts run(char c, unsigned long count) {
    return {{std::string(MiB, c), count / MiB}, {std::string(count % MiB, c)}};
}

Parts operator+(Parts a, const Parts& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

unsigned long sizeOf(const Parts& parts) {
    unsigned long size = 0;
    for (const Part& part : parts)
        size += part.text.size() * part.times;
    return size;
}

unsigned long breaksIn(const Parts& parts) {
    unsigned long breaks = 0;
    for (const Part& part : parts)
        breaks += part.times *
                  static_cast<unsigned long>(std::count(part.text.begin(), part.text.end(), '\n'));
    return breaks;
}

String textOf(const Parts& parts) {
    ko::TextBuilder text;
    text.reserve(sizeOf(parts));
    for (const Part& part : parts)
        for (unsigned long i = 0; i < part.times; ++i)
            text.append(part.text);
    return text.take();
}

// Writes the parts into a pipe from a thread of its own.
class Pipe {
  public:
    explicit Pipe(Parts parts) {
        std::signal(SIGPIPE, SIG_IGN);
        if (pipe(ends_.data()) != 0) throw std::runtime_error("cannot make a pipe");
        writer_ = std::thread([this, all = std::move(parts)] { write(all); });
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        close(ends_[0]);
        writer_.join();
    }
    File open() const { return File::open(("/proc/self/fd/" + std::to_string(ends_[0])).c_str()); }

  private:
    void write(const Parts& parts) const {
        for (const Part& part : parts)
            for (unsigned long i = 0; i < part.times; ++i)
                if (!send(part.text)) break;
        close(ends_[1]);
    }
    bool send(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t sent = ::write(ends_[1], text.data(), text.size());
            if (sent <= 0) return false;
            text.remove_prefix(static_cast<unsigned long>(sent));
        }
        return true;
    }

    std::array<int, 2> ends_{};
    std::thread writer_;
};

// --- Reading

template <class Read>
std::string logOf(Read read) {
    std::string log;
    const ko::LogCapture capture([&log](const LogRecord& record) {
        log += record.severity == ko::Severity::Error ? "error: " : "warning: ";
        log += record.text.view();
        log += '\n';
    });
    const bool ok = read();
    return log + (ok ? "ok\n" : "failed\n");
}

std::string readPiped(Scene& scene, const Parts& parts) {
    const Pipe pipe(parts);
    return logOf([&] {
        const File file = pipe.open();
        const bool ok = parseKvt(&scene, file, false);
        EXPECT_EQ(File::None, file.error());
        EXPECT_TRUE(!ok || file.position() == sizeOf(parts));
        return ok;
    });
}

std::string readText(Scene& scene, const Parts& parts) {
    const String text = textOf(parts);
    return logOf([&] { return parseString(&scene, text); });
}

// Skips the test where the system cannot give that much and keep a little.
void needMemory(unsigned long bytes) {
    std::ifstream table("/proc/meminfo");
    std::string word;
    unsigned long kilobytes = 0;
    while (table >> word && word != "MemAvailable:")
        continue;
    table >> kilobytes;
    if (1024 * kilobytes < bytes + 2 * GiB)
        GTEST_SKIP() << "takes " << static_cast<double>(bytes) / GiB << " GiB of memory";
}

class LargeDocument : public testing::TestWithParam<unsigned long> {
  protected:
    Scene scene_;
};

const Parts head = {{"t n:\n.x = 1;\n"}};
const Parts tail = {{".x = 2.5;\n.y = \"end\";"}};

std::string narrowingAt(unsigned long line, unsigned long column) {
    return "warning: TYPE WARNING (" + std::to_string(line) + "," + std::to_string(column) +
           "): narrowing Real to Int @ n.x.\nok\n";
}

// Blanks, line breaks and comments between two statements.
Parts spread(unsigned long bytes) {
    return head + Parts{filled(std::string(63, ' ') + "\n", bytes)} + tail;
}

void expectEnd(Scene& scene) {
    EXPECT_EQ(3, scene.findNode("n")->input("x")->asInt());
    EXPECT_EQ("end", scene.findNode("n")->input("y")->asText());
}

TEST_P(LargeDocument, IsReadFromAPipe) {
    const Parts parts = spread(GetParam());
    EXPECT_EQ(narrowingAt(breaksIn(parts), 8), readPiped(scene_, parts));
    expectEnd(scene_);
}

TEST_P(LargeDocument, IsReadFromAText) {
    needMemory(GetParam());
    if (IsSkipped()) return;
    const Parts parts = spread(GetParam());
    EXPECT_EQ(narrowingAt(breaksIn(parts), 8), readText(scene_, parts));
    expectEnd(scene_);
}

// The hole is full of NULs, which are blanks.
TEST_P(LargeDocument, IsReadFromAFileWithAHole) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::tmpfile(), std::fclose);
    ASSERT_NE(nullptr, stream);
    std::fputs(head[0].text.c_str(), stream.get());
    ASSERT_EQ(0, fseeko(stream.get(), static_cast<off_t>(GetParam()), SEEK_SET));
    std::fputs(("\n" + tail[0].text).c_str(), stream.get());
    std::fflush(stream.get());
    const File file = File::open(("/proc/self/fd/" + std::to_string(fileno(stream.get()))).c_str());
    EXPECT_EQ(narrowingAt(4, 8), logOf([&] { return parseKvt(&scene_, file, false); }));
    EXPECT_EQ(File::None, file.error());
    EXPECT_EQ(GetParam() + 1 + tail[0].text.size(), file.position());
    EXPECT_EQ(file.size(), file.position());
    expectEnd(scene_);
}

TEST_P(LargeDocument, ReportsAnErrorBehindItsMiddle) {
    const Parts parts = spread(GetParam()) + Parts{{"\n .z = !"}};
    const std::string log = readPiped(scene_, parts);
    EXPECT_EQ("error: INVALID TOKEN (" + std::to_string(breaksIn(parts) + 1) + ",6): '!'\nfailed\n",
              log.substr(log.find('\n') + 1));
    expectEnd(scene_);
}

TEST_P(LargeDocument, MayBeOneComment) {
    needMemory(GetParam() + GiB);
    if (IsSkipped()) return;
    const Parts comment = Parts{{"#"}} + run('x', GetParam());
    EXPECT_EQ("ok\n", readPiped(scene_, comment + Parts{{"\nt n;"}}));
    ASSERT_EQ(1U, scene_.comments().size());
    EXPECT_EQ(GetParam() + 1, scene_.comments()[0].len());
    EXPECT_EQ(std::string_view::npos, scene_.comments()[0].view().find_first_not_of('x', 1));
    EXPECT_EQ(1U, scene_.nodeCount());
}

// Two characters for each byte.
TEST_P(LargeDocument, MayBeOneBuffer) {
    needMemory(GetParam() * 3 / 2 + GiB);
    if (IsSkipped()) return;
    const unsigned long count = GetParam() / 2;
    const Part most{std::string(), count / MiB};
    Parts numbers = {most, {std::string()}};
    for (unsigned long i = 0; i < MiB; ++i)
        numbers[0].text += "7 ";
    for (unsigned long i = 0; i < count % MiB; ++i)
        numbers[1].text += "8 ";
    EXPECT_EQ("ok\n", readPiped(scene_, Parts{{"t n: .x = byte[" + std::to_string(count) + "] {"}} +
                                            numbers + Parts{{"};"}}));
    const BufferView buffer = scene_.findNode("n")->input("x")->asBuffer();
    ASSERT_EQ(count, buffer.count);
    const auto* const bytes = static_cast<const unsigned char*>(buffer.data);
    const auto* const behind = bytes + count / MiB * MiB;
    EXPECT_EQ(count / MiB * MiB, std::count(bytes, behind, 7));
    EXPECT_EQ(count % MiB, std::count(behind, bytes + count, 8));
}

INSTANTIATE_TEST_SUITE_P(, LargeDocument, testing::Values(2 * GiB + MiB + 5, 4 * GiB + MiB + 5),
                         [](const auto& size) {
                             return "Past" + std::to_string(size.param / GiB) + "GiB";
                         });

// The text, its inside and what the scene keeps.
TEST(LargeString, IsReadPast2GiB) {
    constexpr unsigned long size = 2 * GiB + MiB + 5;
    needMemory(3 * size);
    if (testing::Test::IsSkipped()) return;
    Scene scene;
    EXPECT_EQ("ok\n", readPiped(scene, Parts{{"t n: .x = \""}} + run('x', size) + Parts{{"\";"}}));
    const std::string_view text = scene.findNode("n")->input("x")->asText();
    EXPECT_EQ(size, text.size());
    EXPECT_EQ(std::string_view::npos, text.find_first_not_of('x'));
}

TEST(LargeBuffer, MayHoldOneNumberOf4GiB) {
    Scene scene;
    EXPECT_EQ(
        "warning: Too few elements (1) for byte[4294967297] buffer, remainder set to zero.\n"
        "ok\n",
        readPiped(scene, {{"t n: .x = byte[4294967297] {7};"}}));
    const BufferView buffer = scene.findNode("n")->input("x")->asBuffer();
    EXPECT_EQ(4294967297U, buffer.count);
    EXPECT_EQ(7, static_cast<const unsigned char*>(buffer.data)[0]);
    EXPECT_EQ(0, static_cast<const unsigned char*>(buffer.data)[4294967296]);
}

// A literal and a match over it whose length is continued by many bytes of 255.
TEST(LargeBuffer, IsReadFromABlockPast4GiB) {
    constexpr unsigned long lengths = (4 * GiB + MiB) / 255;
    constexpr unsigned long count = 1 + 15 + 4 + 255 * lengths + 3;
    needMemory(2 * count + GiB);
    if (testing::Test::IsSkipped()) return;
    Scene scene;
    EXPECT_EQ(
        "ok\n",
        readPiped(scene, Parts{{"t n: .x = byte[" + std::to_string(count) + "] {.+1F070100"}} +
                             run('F', 2 * lengths) + Parts{{"0030010203};"}}));
    const BufferView buffer = scene.findNode("n")->input("x")->asBuffer();
    ASSERT_EQ(count, buffer.count);
    const auto* const bytes = static_cast<const unsigned char*>(buffer.data);
    EXPECT_EQ(count - 3, std::count(bytes, bytes + count - 3, 7));
    EXPECT_EQ(3, bytes[count - 1]);
}

// --- The counters

// The lines before, at and after the last that is counted.
TEST(LineCounter, StopsAtItsLimit) {
    for (const unsigned long line : {largestCounter - 1, largestCounter, largestCounter + 1}) {
        Scene scene;
        const Parts parts = head + run('\n', line - 3) + Parts{{"   "}} + tail;
        EXPECT_EQ(narrowingAt(std::min(line, largestCounter), 11), readPiped(scene, parts));
        expectEnd(scene);
    }
}

// The statement ends in the column before, at and after the last that is counted.
TEST(ColumnCounter, StopsAtItsLimit) {
    for (const unsigned long column : {largestCounter - 1, largestCounter, largestCounter + 1}) {
        Scene scene;
        const Parts parts = head + run(' ', column - 8) + tail;
        EXPECT_EQ(narrowingAt(3, std::min(column, largestCounter)), readPiped(scene, parts));
        expectEnd(scene);
    }
}

}  // namespace
