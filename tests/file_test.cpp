// Files, memory blocks and pipes as sources of bytes.

#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "ordinaryuser.h"

namespace {

using ko::File;
using kvt::test::OrdinaryUser;
using std::string_view_literals::operator""sv;

constexpr std::string_view mark = "\xEF\xBB\xBF";

std::string readAll(File& file) {
    std::string bytes;
    signed char c = 0;
    while (file.read(c))
        bytes += static_cast<char>(c);
    return bytes;
}

// A directory of its own for each test, gone with it.
class FileTest : public testing::Test {
  protected:
    FileTest() {
        std::string pattern = std::filesystem::temp_directory_path() / "kvt-file-";
        pattern += std::string(6, 'X');  // replaced by letters that make the name unique
        directory_ = mkdtemp(pattern.data());
    }
    ~FileTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }

    std::string path(const char* name) const { return directory_ + "/" + name; }

    // A new file that holds `bytes`.
    std::string write(std::string_view bytes) const {
        std::string name = path("file");
        std::ofstream(name, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
        return name;
    }

    const std::string& directory() const { return directory_; }

  private:
    std::string directory_;
};

void expectOneLine(const ko::String& text) {
    EXPECT_FALSE(text.isEmpty());
    EXPECT_FALSE(text.contains("\n", false)) << text.view();
}

void expectNothingToRead(File& file) {
    signed char c = 7;
    EXPECT_FALSE(file.read(c));
    EXPECT_FALSE(file.read(c));
    EXPECT_EQ(file.position(), 0U);
}

// --- what cannot be read

TEST_F(FileTest, WithoutSourceThereIsNothingToRead) {
    File file;
    EXPECT_EQ(file.error(), File::CannotOpen);
    expectOneLine(file.errorText());
    EXPECT_EQ(file.size(), 0U);
    expectNothingToRead(file);
}

TEST_F(FileTest, MissingFileCannotBeOpened) {
    File file = File::open(path("missing.kvt").c_str());
    EXPECT_EQ(file.error(), File::CannotOpen);
    EXPECT_TRUE(file.errorText().contains(std::strerror(ENOENT), true)) << file.errorText().view();
    expectOneLine(file.errorText());
    EXPECT_EQ(file.size(), 0U);
    expectNothingToRead(file);
}

TEST_F(FileTest, EmptyPathCannotBeOpened) {
    File file = File::open("");
    EXPECT_EQ(file.error(), File::CannotOpen);
    expectOneLine(file.errorText());
    expectNothingToRead(file);
}

TEST_F(FileTest, PathThroughAFileCannotBeOpened) {
    File file = File::open((write("x") + "/inside").c_str());
    EXPECT_EQ(file.error(), File::CannotOpen);
    EXPECT_TRUE(file.errorText().contains(std::strerror(ENOTDIR), true));
    expectNothingToRead(file);
}

TEST_F(FileTest, EndlessPathCannotBeOpened) {
    File file = File::open(std::string(100'000, 'x').c_str());
    EXPECT_EQ(file.error(), File::CannotOpen);
    EXPECT_TRUE(file.errorText().contains(std::strerror(ENAMETOOLONG), true));
    expectNothingToRead(file);
}

TEST_F(FileTest, CircleOfLinksCannotBeOpened) {
    std::filesystem::create_symlink(path("b"), path("a"));
    std::filesystem::create_symlink(path("a"), path("b"));
    File file = File::open(path("a").c_str());
    EXPECT_EQ(file.error(), File::CannotOpen);
    EXPECT_TRUE(file.errorText().contains(std::strerror(ELOOP), true));
    expectNothingToRead(file);
}

TEST_F(FileTest, FileWithoutReadPermissionCannotBeOpened) {
    const std::string name = write("secret");
    ASSERT_EQ(chmod(name.c_str(), 0), 0);
    const OrdinaryUser ordinary;
    File file = File::open(name.c_str());
    EXPECT_EQ(file.error(), File::CannotOpen);
    EXPECT_TRUE(file.errorText().contains(std::strerror(EACCES), true));
    expectNothingToRead(file);
}

TEST_F(FileTest, DirectoryIsToldApart) {
    for (const std::string& name : {directory(), directory() + "/", std::string("/")}) {
        SCOPED_TRACE(name);
        File file = File::open(name.c_str());
        EXPECT_EQ(file.error(), File::IsDirectory);
        expectOneLine(file.errorText());
        expectNothingToRead(file);
    }
}

TEST_F(FileTest, LinkToADirectoryIsADirectory) {
    std::filesystem::create_directory_symlink(directory(), path("link"));
    EXPECT_EQ(File::open(path("link").c_str()).error(), File::IsDirectory);
}

TEST_F(FileTest, ReadErrorIsToldApartFromTheEnd) {
    // The first page of a process is never mapped, so reading its memory from 0 fails.
    File file = File::open("/proc/self/mem");
    signed char c = 0;
    EXPECT_FALSE(file.read(c));
    EXPECT_EQ(file.error(), File::CannotRead);
    expectOneLine(file.errorText());
    expectNothingToRead(file);
    EXPECT_EQ(file.error(), File::CannotRead);
}

TEST_F(FileTest, ErrorsHaveDifferentTexts) {
    const ko::String missing = File::open(path("missing").c_str()).errorText();
    const ko::String isDirectory = File::open(directory().c_str()).errorText();
    EXPECT_TRUE(missing != isDirectory);
}

// --- what can be read

TEST_F(FileTest, BytesAreReadInOrder) {
    File file = File::open(write("abc").c_str());
    EXPECT_EQ(file.error(), File::None);
    signed char c = 0;
    for (const char expected : "abc"sv) {
        ASSERT_TRUE(file.read(c));
        EXPECT_EQ(c, expected);
    }
    EXPECT_FALSE(file.read(c));
}

TEST_F(FileTest, EndOfTheFileIsNoError) {
    File file = File::open(write("abc").c_str());
    readAll(file);
    EXPECT_EQ(file.error(), File::None);
    EXPECT_TRUE(file.errorText().isEmpty());
}

TEST_F(FileTest, EndOfTheFileStays) {
    File file = File::open(write("abc").c_str());
    readAll(file);
    signed char c = 0;
    for (int i = 0; i < 10; ++i)
        EXPECT_FALSE(file.read(c));
    EXPECT_EQ(file.position(), 3U);
}

TEST_F(FileTest, EmptyFileEndsAtOnce) {
    File file = File::open(write("").c_str());
    EXPECT_EQ(file.error(), File::None);
    expectNothingToRead(file);
    EXPECT_EQ(file.error(), File::None);
    EXPECT_EQ(file.size(), 0U);
}

TEST_F(FileTest, EveryByteIsRead) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    File file = File::open(write(bytes).c_str());
    EXPECT_EQ(readAll(file), bytes);
}

TEST_F(FileTest, LastByteValueIsReadAsMinusOneAndDoesNotEndTheFile) {
    File file = File::open(write("\xFFx").c_str());
    signed char c = 0;
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(c, -1);
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(c, 'x');
}

TEST_F(FileTest, LineBreaksAreReadAsTheyStand) {
    File file = File::open(write("a\r\nb\rc\n\032d").c_str());
    EXPECT_EQ(readAll(file), "a\r\nb\rc\n\032d");
}

TEST_F(FileTest, MillionsOfBytesAreRead) {
    std::string bytes;
    for (unsigned i = 0; i < 3'000'001; ++i)
        bytes += static_cast<char>(i * i >> 3U);
    File file = File::open(write(bytes).c_str());
    EXPECT_TRUE(readAll(file) == bytes);
    EXPECT_EQ(file.position(), bytes.size());
}

TEST_F(FileTest, SizesAroundAnyBlockAreReadWhole) {
    for (const unsigned long block : {4096UL, 8192UL, 16384UL, 32768UL, 65536UL, 131072UL}) {
        for (unsigned long size = block - 2; size <= block + 2; ++size) {
            const std::string bytes(size, 'x');
            File file = File::open(write(bytes).c_str());
            EXPECT_EQ(readAll(file).size(), size);
            EXPECT_EQ(file.position(), size);
        }
    }
}

TEST_F(FileTest, FileIsReadAfterItsNameIsGone) {
    const std::string name = write("still there");
    File file = File::open(name.c_str());
    std::filesystem::remove(name);
    EXPECT_EQ(readAll(file), "still there");
}

// --- position and size

TEST_F(FileTest, PositionCountsTheBytesRead) {
    File file = File::open(write("abcdef").c_str());
    EXPECT_EQ(file.position(), 0U);
    signed char c = 0;
    for (unsigned long i = 1; i <= 6; ++i) {
        ASSERT_TRUE(file.read(c));
        EXPECT_EQ(file.position(), i);
    }
    EXPECT_FALSE(file.read(c));
    EXPECT_EQ(file.position(), 6U);
}

TEST_F(FileTest, SizeIsThatOfTheWholeFile) {
    File file = File::open(write("abcdef").c_str());
    EXPECT_EQ(file.size(), 6U);
    signed char c = 0;
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(file.size(), 6U);
}

TEST_F(FileTest, PositionAndSizeCountTheByteOrderMark) {
    File file = File::open(write(std::string(mark) + "ab").c_str());
    EXPECT_EQ(file.size(), 5U);
    signed char c = 0;
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(file.position(), 4U);
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(file.position(), 5U);
}

TEST_F(FileTest, AnotherThreadMayFollowThePosition) {
    const std::string bytes(500'000, 'x');
    File file = File::open(write(bytes).c_str());
    std::atomic<bool> done{false};
    bool descended = false;
    std::thread follower([&descended, &done, observed = file] {
        for (unsigned long last = 0; !done;) {
            const unsigned long now = observed.position();
            descended = descended || now < last || now > observed.size();
            last = now;
        }
    });
    const std::string read = readAll(file);
    done = true;
    follower.join();
    EXPECT_EQ(read.size(), bytes.size());
    EXPECT_FALSE(descended);
}

// --- byte order mark

TEST_F(FileTest, ByteOrderMarkIsPassedOver) {
    File file = File::open(write(std::string(mark) + "abc").c_str());
    EXPECT_EQ(readAll(file), "abc");
}

TEST_F(FileTest, ByteOrderMarkAloneIsAnEmptyText) {
    File file = File::open(write(mark).c_str());
    signed char c = 0;
    EXPECT_FALSE(file.read(c));
    EXPECT_EQ(file.error(), File::None);
    EXPECT_EQ(file.position(), 3U);
}

TEST_F(FileTest, OnlyTheFirstByteOrderMarkIsPassedOver) {
    const std::string twice = std::string(mark) + std::string(mark) + "a";
    File file = File::open(write(twice).c_str());
    EXPECT_EQ(readAll(file), std::string(mark) + "a");
}

TEST_F(FileTest, ByteOrderMarkElsewhereIsText) {
    const std::string inside = "a" + std::string(mark) + "b";
    File file = File::open(write(inside).c_str());
    EXPECT_EQ(readAll(file), inside);
}

TEST_F(FileTest, ByteOrderMarkAtTheBeginOfALaterBlockIsText) {
    for (unsigned long block = 512; block <= 1'048'576; block *= 2) {
        const std::string bytes = std::string(block, 'x') + std::string(mark) + "y";
        File file = File::open(write(bytes).c_str());
        EXPECT_TRUE(readAll(file) == bytes) << block;
    }
}

constexpr std::string_view almostMarks[] = {
    "\xEF"sv,          "\xEF\xBB"sv,      "\xEFx"sv,         "\xEF\xBBx"sv,
    "\xEF\xBB\xBEx"sv, "\xEF\xBF\xBBx"sv, "\xEE\xBB\xBFx"sv, "\xBB\xBFx"sv,
    "\xBFx"sv,         "\xFE\xFFx"sv,     "\xFF\xFEx"sv,     " \xEF\xBB\xBFx"sv,
};

TEST_F(FileTest, PartOfAByteOrderMarkIsText) {
    for (const std::string_view bytes : almostMarks) {
        File file = File::open(write(bytes).c_str());
        EXPECT_EQ(readAll(file), bytes);
        EXPECT_EQ(file.position(), bytes.size());
    }
}

// --- copies

TEST_F(FileTest, CopiesShareTheirPosition) {
    File file = File::open(write("abcdef").c_str());
    File copy = file;
    signed char c = 0;
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(c, 'a');
    ASSERT_TRUE(copy.read(c));
    EXPECT_EQ(c, 'b');
    EXPECT_EQ(file.position(), 2U);
    EXPECT_EQ(copy.position(), 2U);
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(c, 'c');
    EXPECT_EQ(readAll(copy), "def");
    EXPECT_FALSE(file.read(c));
}

TEST_F(FileTest, CopyOutlivesTheOriginal) {
    File copy;
    {
        File file = File::open(write("abc").c_str());
        signed char c = 0;
        ASSERT_TRUE(file.read(c));
        copy = file;
    }
    EXPECT_EQ(readAll(copy), "bc");
}

TEST_F(FileTest, MoveKeepsTheSource) {
    File file = File::open(write("abc").c_str());
    File taker(std::move(file));
    File assigned;
    assigned = std::move(taker);
    EXPECT_EQ(assigned.error(), File::None);
    EXPECT_EQ(readAll(assigned), "abc");
}

TEST_F(FileTest, OpeningTwiceGivesTwoPositions) {
    const std::string name = write("abc");
    File first = File::open(name.c_str());
    File second = File::open(name.c_str());
    EXPECT_EQ(readAll(first), "abc");
    EXPECT_EQ(readAll(second), "abc");
}

long openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

TEST_F(FileTest, FileIsClosedWithItsLastCopy) {
    const std::string name = write("abc");
    const long before = openDescriptors();
    {
        File copy;
        {
            const File file = File::open(name.c_str());
            copy = file;
        }
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

// --- memory

TEST(MemoryFileTest, BytesAreReadInOrder) {
    File file = File::memory("abc", 3);
    EXPECT_EQ(file.error(), File::None);
    EXPECT_EQ(readAll(file), "abc");
    EXPECT_EQ(file.error(), File::None);
    EXPECT_TRUE(file.errorText().isEmpty());
}

TEST(MemoryFileTest, NulsAndEveryOtherByteAreRead) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    File file = File::memory(bytes.data(), bytes.size());
    EXPECT_EQ(readAll(file), bytes);
}

TEST(MemoryFileTest, PositionAndSizeCountBytes) {
    File file = File::memory("abc", 3);
    EXPECT_EQ(file.size(), 3U);
    EXPECT_EQ(file.position(), 0U);
    signed char c = 0;
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(file.position(), 1U);
    readAll(file);
    EXPECT_EQ(file.position(), 3U);
    EXPECT_EQ(file.size(), 3U);
}

TEST(MemoryFileTest, EmptyBlockEndsAtOnce) {
    for (const char* bytes : {"", static_cast<const char*>(nullptr)}) {
        File file = File::memory(bytes, 0);
        EXPECT_EQ(file.error(), File::None);
        EXPECT_EQ(file.size(), 0U);
        expectNothingToRead(file);
    }
}

TEST(MemoryFileTest, ByteOrderMarkIsPassedOver) {
    const std::string marked = std::string(mark) + "ab";
    File file = File::memory(marked.data(), marked.size());
    EXPECT_EQ(file.size(), 5U);
    EXPECT_EQ(readAll(file), "ab");
    EXPECT_EQ(file.position(), 5U);
}

TEST(MemoryFileTest, PartOfAByteOrderMarkIsText) {
    for (const std::string_view bytes : almostMarks) {
        // In a block of exactly its size, so that reading past it is noticed.
        const std::vector<char> block(bytes.begin(), bytes.end());
        File file = File::memory(block.data(), block.size());
        EXPECT_EQ(readAll(file), bytes);
    }
}

TEST(MemoryFileTest, CopiesShareTheirPosition) {
    File file = File::memory("abc", 3);
    File copy = file;
    signed char c = 0;
    ASSERT_TRUE(copy.read(c));
    ASSERT_TRUE(file.read(c));
    EXPECT_EQ(c, 'b');
    EXPECT_EQ(copy.position(), 2U);
}

// --- pipes

class PipeTest : public FileTest {
  protected:
    PipeTest() : name_(path("pipe")) { EXPECT_EQ(mkfifo(name_.c_str(), 0600), 0); }

    // Writes the parts one after the other, each when the reader has taken the former.
    std::thread writer(std::vector<std::string> parts) const {
        return writer(std::move(parts), [] {});
    }

    // Likewise, and does `between` when the reader has taken a part.
    std::thread writer(std::vector<std::string> parts, std::function<void()> between) const {
        return std::thread([name = name_, parts = std::move(parts), between = std::move(between)] {
            const int descriptor = ::open(name.c_str(), O_WRONLY);
            for (const std::string& part : parts) {
                EXPECT_EQ(::write(descriptor, part.data(), part.size()), ssize_t(part.size()));
                waitUntilTaken(descriptor);
                between();
            }
            ::close(descriptor);
        });
    }

    const char* name() const { return name_.c_str(); }

  private:
    static void waitUntilTaken(int descriptor) {
        for (int waiting = 1; waiting != 0;) {
            ASSERT_EQ(ioctl(descriptor, FIONREAD, &waiting), 0);
            std::this_thread::yield();
        }
    }

    std::string name_;
};

TEST_F(PipeTest, BytesAreReadToTheEnd) {
    std::thread writing = writer({"abc", "def", "g"});
    File file = File::open(name());
    EXPECT_EQ(file.error(), File::None);
    EXPECT_EQ(readAll(file), "abcdefg");
    EXPECT_EQ(file.error(), File::None);
    EXPECT_EQ(file.position(), 7U);
    writing.join();
}

TEST_F(PipeTest, SizeIsUnknown) {
    std::thread writing = writer({"abc"});
    File file = File::open(name());
    EXPECT_EQ(file.size(), 0U);
    readAll(file);
    EXPECT_EQ(file.size(), 0U);
    writing.join();
}

TEST_F(PipeTest, ByteOrderMarkThatArrivesInPiecesIsPassedOver) {
    std::thread writing = writer({"\xEF", "\xBB", "\xBF", "a", "bc"});
    File file = File::open(name());
    EXPECT_EQ(readAll(file), "abc");
    EXPECT_EQ(file.position(), 6U);
    writing.join();
}

TEST_F(PipeTest, PartOfAByteOrderMarkThatArrivesInPiecesIsText) {
    std::thread writing = writer({"\xEF", "\xBB", "x"});
    File file = File::open(name());
    EXPECT_EQ(readAll(file), "\xEF\xBBx");
    writing.join();
}

TEST_F(PipeTest, PipeThatNobodyFillsIsAnEmptyText) {
    std::thread writing = writer({});
    File file = File::open(name());
    expectNothingToRead(file);
    EXPECT_EQ(file.error(), File::None);
    writing.join();
}

std::vector<std::string> single(std::string_view bytes) {
    std::vector<std::string> all;
    for (const char byte : bytes)
        all.emplace_back(1, byte);
    return all;
}

TEST_F(PipeTest, BytesThatArriveOneByOneAreReadToTheEnd) {
    std::string bytes;
    for (int i = 0; i < 1000; ++i)
        bytes += static_cast<char>(i);
    std::thread writing = writer(single(bytes));
    File file = File::open(name());
    EXPECT_EQ(readAll(file), bytes);
    EXPECT_EQ(file.error(), File::None);
    writing.join();
}

std::atomic<int> interruptions{0};

// A signal that interrupts what the system does for a thread.
class InterruptingSignal {
  public:
    InterruptingSignal() {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++interruptions; };
        sigaction(SIGUSR1, &action, &former_);
    }
    ~InterruptingSignal() { sigaction(SIGUSR1, &former_, nullptr); }
    InterruptingSignal(const InterruptingSignal&) = delete;
    InterruptingSignal& operator=(const InterruptingSignal&) = delete;

    static void send(pthread_t thread) { pthread_kill(thread, SIGUSR1); }

  private:
    struct sigaction former_ = {};
};

TEST_F(PipeTest, InterruptedReadsGoOn) {
    const InterruptingSignal signal;
    interruptions = 0;
    const std::string bytes(500, 'x');
    std::thread writing = writer(single(bytes), [reader = pthread_self()] {
        InterruptingSignal::send(reader);
        std::this_thread::sleep_for(std::chrono::microseconds(100));  // the reader waits again
    });
    File file = File::open(name());
    EXPECT_EQ(readAll(file), bytes);
    EXPECT_EQ(file.error(), File::None);
    writing.join();
    EXPECT_LT(0, interruptions);
}

// Waits until a thread of this process sleeps, as one does that opens a pipe.
void waitUntilAsleep(const std::string& thread) {
    std::string state;
    while (state != "S") {
        std::ifstream status("/proc/self/task/" + thread + "/stat");
        std::string field;
        status >> field >> field >> state;
        std::this_thread::yield();
    }
}

// Opens the pipe `name`. While that waits for someone to write, a file of 5,000 bytes takes its
// place.
File openReplacedPipe(const std::string& name, const std::string& regular) {
    const std::string otherName = name + ".writer";
    EXPECT_EQ(mkfifo(name.c_str(), 0600), 0);
    std::filesystem::create_hard_link(name, otherName);
    std::atomic<bool> isOpening{false};
    std::thread replacing([&, opener = std::to_string(gettid())] {
        while (!isOpening)
            std::this_thread::yield();
        waitUntilAsleep(opener);
        std::filesystem::rename(regular, name);
        const int writer = open(otherName.c_str(), O_RDWR);  // which waits for no reader
        EXPECT_EQ(write(writer, "piped", 5), 5);
        close(writer);
    });
    isOpening = true;
    File file = File::open(name.c_str());
    replacing.join();
    return file;
}

// The opener may have slept for another reason, and then opens the file: it tries again.
TEST_F(FileTest, SizeIsThatOfTheFileThatWasOpenedNotOfAnotherAtItsPath) {
    for (int i = 0;; ++i) {
        const std::string name = path("pipe") + std::to_string(i);
        File file = openReplacedPipe(name, write(std::string(5'000, 'a')));
        const std::string bytes = readAll(file);
        if (bytes != "piped") continue;
        EXPECT_EQ(file.size(), 0U);
        return;
    }
}

TEST_F(FileTest, DescriptorIsClosedInProgramsThatAreStarted) {
    const std::string name = write("abc");
    const File file = File::open(name.c_str());
    int flags = -1;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(entry.path(), ignored) != name) continue;
        flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
    }
    EXPECT_EQ(flags, FD_CLOEXEC);
}

TEST_F(FileTest, FileThatGrowsWhileItIsReadIsReadToItsNewEnd) {
    const std::string name = write(std::string(100'000, 'a'));
    File file = File::open(name.c_str());
    signed char c = 0;
    ASSERT_TRUE(file.read(c));
    std::ofstream(name, std::ios::binary | std::ios::app) << std::string(100'000, 'b');
    EXPECT_EQ(readAll(file).size(), 199'999U);
    EXPECT_EQ(file.error(), File::None);
}

TEST_F(FileTest, FileThatShrinksWhileItIsReadEndsBeforeItsSize) {
    const std::string name = write(std::string(200'000, 'a'));
    File file = File::open(name.c_str());
    signed char c = 0;
    ASSERT_TRUE(file.read(c));
    std::filesystem::resize_file(name, 150'000);
    EXPECT_EQ(readAll(file).size(), 149'999U);
    EXPECT_EQ(file.error(), File::None);
    EXPECT_EQ(file.position(), 150'000U);
    EXPECT_EQ(file.size(), 200'000U);
}

}  // namespace
