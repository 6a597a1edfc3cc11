// The log: records and their positions, sinks, captures, threads.

#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ko::LogCapture;
using ko::logError;
using ko::LogRecord;
using ko::LogSink;
using ko::logWarning;
using ko::setLogSink;
using ko::Severity;
using ko::String;
using std::string_view_literals::operator""sv;

using Texts = std::vector<std::string>;

Texts textsOf(const std::vector<LogRecord>& records) {
    Texts texts;
    for (const LogRecord& record : records)
        texts.emplace_back(record.text.view());
    return texts;
}

// Sets the process-wide sink while it lives.
class ScopedSink {
  public:
    explicit ScopedSink(LogSink sink) : former_(setLogSink(std::move(sink))) {}
    ~ScopedSink() { setLogSink(former_); }
    ScopedSink(const ScopedSink&) = delete;
    ScopedSink& operator=(const ScopedSink&) = delete;

  private:
    LogSink former_;
};

// Collects from any thread.
class Collector {
  public:
    LogSink sink() {
        return [this](const LogRecord& record) {
            const std::lock_guard lock(mutex_);
            records_.push_back(record);
        };
    }
    std::vector<LogRecord> records() const {
        const std::lock_guard lock(mutex_);
        return records_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

// --- records

TEST(LogRecordTest, KeepsSeverityAndText) {
    const LogRecord warning(Severity::Warning, "a text");
    EXPECT_EQ(warning.severity, Severity::Warning);
    EXPECT_EQ(warning.text.view(), "a text");
    EXPECT_EQ(LogRecord(Severity::Error, "a text").severity, Severity::Error);
}

struct Framed {
    const char* text;
    int line;
    int column;
};

const Framed framed[] = {
    {"BAD TOKEN (3,4): expected ';', found 'x'.", 3, 4},
    {"INVALID TOKEN (1,2): '!'", 1, 2},
    {"INVALID PAREN LIST TOKEN (12,345): ';'", 12, 345},
    {"INVALID BRACE LIST TOKEN (12,345): 'x'", 12, 345},
    {"INVALID BRACKET LIST TOKEN (1,1): 'x'", 1, 1},
    {"PARSE ERROR (7,8): invalid index: []. ", 7, 8},
    {"BUFFER ERROR (9,10): Cannot add 3 @ index 2 of int32[2].", 9, 10},
    {"TYPE ERROR (5,6): cannot assign Int[] to Array @ m.list.", 5, 6},
    {"TYPE WARNING (5,6): narrowing Vec3 to Vec2 @ m.uv.", 5, 6},
    {"ENUM WARNING (5,6): setting non-existent enum value 'x'.", 5, 6},
    {"PARSE ERROR (0,0): no scene to read into.", 0, 0},
    {"BAD TOKEN (2147483647,2147483647): expected ';', found 'x'.", 2147483647, 2147483647},
    {"BAD TOKEN (1,0): expected ';', found ''.", 1, 0},
};

TEST(LogRecordTest, PositionIsThatOfTheFrame) {
    for (const Framed& row : framed) {
        SCOPED_TRACE(row.text);
        const LogRecord record(Severity::Error, row.text);
        EXPECT_TRUE(record.hasPosition);
        EXPECT_EQ(record.line, row.line);
        EXPECT_EQ(record.column, row.column);
        EXPECT_EQ(record.text.view(), row.text);
    }
}

const Framed framedAroundAQuote[] = {
    {"BAD TOKEN (3,4): expected ';', found 'TYPE ERROR (9,9): '.", 3, 4},
    {"BAD TOKEN (3,4): expected 'PARSE ERROR (1,1): ', found 'x'.", 3, 4},
    {"PARSE ERROR (3,4): Failed to read '(9,9): ' buffer.", 3, 4},
    {"ENUM WARNING (3,4): setting non-existent enum value 'PARSE ERROR (9,9): x'.", 3, 4},
    {"PARSE ERROR (3,4): line\nPARSE ERROR (9,9): x.", 3, 4},
};

TEST(LogRecordTest, FrameInQuotedTextDoesNotReplaceTheFrameOfTheMessage) {
    for (const Framed& row : framedAroundAQuote) {
        SCOPED_TRACE(row.text);
        const LogRecord record(Severity::Error, row.text);
        EXPECT_TRUE(record.hasPosition);
        EXPECT_EQ(record.line, row.line);
        EXPECT_EQ(record.column, row.column);
    }
}

const char* const unframed[] = {
    "",
    "plain text",
    "Failed to parse KVT version comment: # PARSE ERROR (1,2): x",
    "Cannot assign nonexistent node PARSE ERROR (1,2): x to a.b.",
    "Cannot connect nonexistent node (1,2): to a.b.",
    "Cannot connect nonexistent output a.b to TYPE ERROR (1,2): .",
    "Invalid output: BAD TOKEN (1,2): x.",
    "Too few elements (3) for vec3f[4] buffer, remainder set to zero.",
    "array too large: m.list",
    "\nPARSE ERROR (1,2): x",
    " PARSE ERROR (1,2): x",
    " (1,2): x",
    "UNEXPECTED EOF while parsing STRING",
    "PARSE ERROR (1,2)",
    "PARSE ERROR (1,2) x",
    "PARSE ERROR (1): x",
    "PARSE ERROR (1,2,3): x",
    "PARSE ERROR (,): x",
    "PARSE ERROR (1,): x",
    "PARSE ERROR (,2): x",
    "PARSE ERROR (a,b): x",
    "PARSE ERROR 1,2: x",
    "PARSE ERROR: x",
    "(1,2): x",
};

TEST(LogRecordTest, MessageWithoutFrameHasNoPosition) {
    for (const char* text : unframed) {
        SCOPED_TRACE(text);
        const LogRecord record(Severity::Warning, text);
        EXPECT_FALSE(record.hasPosition);
        EXPECT_EQ(record.line, 0);
        EXPECT_EQ(record.column, 0);
        EXPECT_EQ(record.text.view(), text);
    }
}

// --- captures

TEST(LogCaptureTest, CollectsWarningsAndErrorsInOrder) {
    const LogCapture capture;
    logWarning("first %d", 1);
    logError("second %s", "two");
    logWarning("third");
    ASSERT_EQ(textsOf(capture.records()), (Texts{"first 1", "second two", "third"}));
    EXPECT_EQ(capture.records()[0].severity, Severity::Warning);
    EXPECT_EQ(capture.records()[1].severity, Severity::Error);
    EXPECT_EQ(capture.records()[2].severity, Severity::Warning);
}

TEST(LogCaptureTest, IsEmptyAtFirst) {
    const LogCapture capture;
    EXPECT_TRUE(capture.records().empty());
}

TEST(LogCaptureTest, RecordsHaveTheirPositions) {
    const LogCapture capture;
    logError("PARSE ERROR (%d,%d): %s.", 3, 14, "detail");
    logWarning("no frame");
    ASSERT_EQ(capture.records().size(), 2U);
    EXPECT_TRUE(capture.records()[0].hasPosition);
    EXPECT_EQ(capture.records()[0].line, 3);
    EXPECT_EQ(capture.records()[0].column, 14);
    EXPECT_FALSE(capture.records()[1].hasPosition);
}

TEST(LogCaptureTest, TextIsUnchanged) {
    const LogCapture capture;
    const std::string texts[] = {"100% %s %n", "line\nbreak\r\t",
                                 " blanks ",   "\xC3\xA4\xFF",
                                 "",           std::string(1'000'000, 'x')};
    for (const std::string& text : texts)
        logError("%s", text.c_str());
    EXPECT_EQ(textsOf(capture.records()), Texts(std::begin(texts), std::end(texts)));
}

TEST(LogCaptureTest, TakesReadyRecordsToo) {
    const LogCapture capture;
    LogRecord record(Severity::Warning, String("a\0b"sv));
    record.hasPosition = true;
    record.line = 5;
    record.column = 6;
    ko::report(record);
    ASSERT_EQ(capture.records().size(), 1U);
    EXPECT_EQ(capture.records()[0].text.view(), "a\0b"sv);
    EXPECT_TRUE(capture.records()[0].hasPosition);
    EXPECT_EQ(capture.records()[0].line, 5);
    EXPECT_EQ(capture.records()[0].column, 6);
}

TEST(LogCaptureTest, InnermostCaptureTakesTheMessage) {
    const LogCapture outer;
    logWarning("before");
    {
        const LogCapture middle;
        logWarning("middle");
        {
            const LogCapture inner;
            logError("inner");
            EXPECT_EQ(textsOf(inner.records()), (Texts{"inner"}));
        }
        logWarning("middle again");
        EXPECT_EQ(textsOf(middle.records()), (Texts{"middle", "middle again"}));
    }
    logWarning("after");
    EXPECT_EQ(textsOf(outer.records()), (Texts{"before", "after"}));
}

TEST(LogCaptureTest, HandsMessagesToItsSinkInsteadOfKeepingThem) {
    std::vector<LogRecord> taken;
    const LogCapture capture([&taken](const LogRecord& record) { taken.push_back(record); });
    logWarning("one");
    logError("two");
    EXPECT_EQ(textsOf(taken), (Texts{"one", "two"}));
    EXPECT_TRUE(capture.records().empty());
}

TEST(LogCaptureTest, WhatItsSinkLogsGoesToTheCaptureAround) {
    const LogCapture outer;
    const LogCapture inner(
        [](const LogRecord& record) { logError("seen: %s", record.text.buf()); });
    logWarning("one");
    logWarning("two");
    EXPECT_EQ(textsOf(outer.records()), (Texts{"seen: one", "seen: two"}));
}

TEST(LogCaptureTest, WhatItsSinkLogsGoesToTheProcessWideSinkWhenThereIsNoCaptureAround) {
    Collector collector;
    const ScopedSink scoped(collector.sink());
    const LogCapture capture([](const LogRecord& record) { ko::report(record); });
    logWarning("passed on");
    EXPECT_EQ(textsOf(collector.records()), (Texts{"passed on"}));
}

TEST(LogCaptureTest, GoesOnAfterItsSinkThrew) {
    bool throwing = true;
    Texts taken;
    const LogCapture outer;
    const LogCapture inner([&](const LogRecord& record) {
        if (throwing) throw 1;
        taken.emplace_back(record.text.view());
    });
    EXPECT_THROW(logWarning("thrown"), int);
    throwing = false;
    logWarning("taken");
    EXPECT_EQ(taken, (Texts{"taken"}));
    EXPECT_TRUE(outer.records().empty());
}

TEST(LogCaptureTest, KeepsMessagesFromTheProcessWideSink) {
    Collector collector;
    const ScopedSink scoped(collector.sink());
    {
        const LogCapture capture;
        logError("captured");
    }
    logError("not captured");
    EXPECT_EQ(textsOf(collector.records()), (Texts{"not captured"}));
}

TEST(LogCaptureTest, DoesNotSeeMessagesOfOtherThreads) {
    Collector collector;
    const ScopedSink scoped(collector.sink());
    const LogCapture capture;
    std::thread([] { logError("from elsewhere"); }).join();
    logError("from here");
    EXPECT_EQ(textsOf(capture.records()), (Texts{"from here"}));
    EXPECT_EQ(textsOf(collector.records()), (Texts{"from elsewhere"}));
}

// Logs `count` messages of its own inside a capture and tells whether it saw just those.
bool capturesOnlyItsOwn(int thread, int count) {
    const LogCapture capture;
    for (int i = 0; i < count; ++i)
        logWarning("thread %d message %d", thread, i);
    Texts expected;
    for (int i = 0; i < count; ++i) {
        expected.push_back("thread " + std::to_string(thread) + " message " + std::to_string(i));
    }
    return textsOf(capture.records()) == expected;
}

TEST(LogCaptureTest, ThreadsCaptureSideBySide) {
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&right, i] { right += capturesOnlyItsOwn(i, 500) ? 1 : 0; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(right, 8);
}

TEST(LogCaptureTest, EndsWithItsScopeAlsoWhenAnExceptionLeavesIt) {
    const LogCapture outer;
    try {
        const LogCapture inner;
        throw 1;
    } catch (int) {
        logError("outside");
    }
    EXPECT_EQ(textsOf(outer.records()), (Texts{"outside"}));
}

// --- the process-wide sink

TEST(LogSinkTest, ReceivesRecords) {
    Collector collector;
    const ScopedSink scoped(collector.sink());
    logWarning("TYPE WARNING (%d,%d): narrowing.", 1, 2);
    logError("plain");
    const std::vector<LogRecord> records = collector.records();
    ASSERT_EQ(textsOf(records), (Texts{"TYPE WARNING (1,2): narrowing.", "plain"}));
    EXPECT_EQ(records[0].severity, Severity::Warning);
    EXPECT_TRUE(records[0].hasPosition);
    EXPECT_EQ(records[0].column, 2);
    EXPECT_EQ(records[1].severity, Severity::Error);
    EXPECT_FALSE(records[1].hasPosition);
}

TEST(LogSinkTest, MayLogItself) {
    int depth = 0;
    int deepest = 0;
    const ScopedSink scoped([&](const LogRecord& record) {
        deepest = std::max(deepest, ++depth);
        logWarning("about %s", record.text.buf());
        --depth;
    });
    testing::internal::CaptureStderr();
    logError("this");
    logError("that");
    EXPECT_EQ("warning: about this\nwarning: about that\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(1, deepest);
}

TEST(LogSinkTest, MayCaptureWhatItLogsItself) {
    Texts captured;
    const ScopedSink scoped([&](const LogRecord& record) {
        const LogCapture capture;
        logWarning("about %s", record.text.buf());
        captured = textsOf(capture.records());
    });
    logError("this");
    EXPECT_EQ(captured, (Texts{"about this"}));
}

TEST(LogSinkTest, IsCalledAgainAfterItHasThrown) {
    int calls = 0;
    const ScopedSink scoped([&](const LogRecord&) {
        ++calls;
        throw 1;
    });
    EXPECT_THROW(logError("this"), int);
    EXPECT_THROW(logError("that"), int);
    EXPECT_EQ(2, calls);
}

TEST(LogSinkTest, SettingReturnsTheFormer) {
    Collector first;
    Collector second;
    const ScopedSink scoped(first.sink());
    const LogSink former = setLogSink(second.sink());
    ASSERT_TRUE(former);
    former(LogRecord(Severity::Error, "to the former"));
    logError("to the present");
    EXPECT_EQ(textsOf(first.records()), (Texts{"to the former"}));
    EXPECT_EQ(textsOf(second.records()), (Texts{"to the present"}));
}

TEST(LogSinkTest, FormerCanBeSetAgain) {
    Collector first;
    Collector second;
    const ScopedSink scoped(first.sink());
    setLogSink(setLogSink(second.sink()));
    logError("back to the first");
    EXPECT_EQ(textsOf(first.records()), (Texts{"back to the first"}));
    EXPECT_TRUE(second.records().empty());
}

TEST(LogSinkTest, ReceivesMessagesOfAllThreads) {
    Collector collector;
    const ScopedSink scoped(collector.sink());
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int k = 0; k < 200; ++k)
                logWarning("message");
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(collector.records().size(), 1600U);
}

TEST(LogSinkTest, ThreadsAreInsideTheSinkAtTheSameTime) {
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0;
    // Leaves the sink only when the other thread has entered it.
    const ScopedSink scoped([&](const LogRecord&) {
        std::unique_lock lock(mutex);
        ++inside;
        changed.notify_all();
        changed.wait(lock, [&inside] { return inside == 2; });
    });
    std::thread other([] { logError("one"); });
    logError("two");
    other.join();
    EXPECT_EQ(inside, 2);
}

TEST(LogSinkTest, MayBeReplacedWhileThreadsLog) {
    Collector collector;
    const ScopedSink scoped(collector.sink());
    std::thread logging([] {
        for (int i = 0; i < 2'000; ++i)
            logWarning("message");
    });
    for (int i = 0; i < 2'000; ++i)
        setLogSink(collector.sink());
    logging.join();
    EXPECT_EQ(collector.records().size(), 2'000U);
}

TEST(LogSinkTest, IsDestroyedWhenItIsReplaced) {
    const auto token = std::make_shared<int>(0);
    {
        const ScopedSink scoped([token](const LogRecord&) {});
        EXPECT_EQ(token.use_count(), 2);
    }
    EXPECT_EQ(token.use_count(), 1);
}

// --- standard error

// What the default sink writes while `log` runs.
template <class Log>
std::string writtenByDefaultSink(Log log) {
    const ScopedSink scoped(nullptr);
    testing::internal::CaptureStderr();
    log();
    return testing::internal::GetCapturedStderr();
}

TEST(DefaultSinkTest, WritesSeverityAndMessageOnALine) {
    const std::string written = writtenByDefaultSink([] {
        logWarning("Invalid output: %s.", "a.b.c");
        logError("PARSE ERROR (%d,%d): detail.", 1, 2);
    });
    EXPECT_EQ(written, "warning: Invalid output: a.b.c.\nerror: PARSE ERROR (1,2): detail.\n");
}

TEST(DefaultSinkTest, WritesNothingWhenACaptureTakesTheMessage) {
    const std::string written = writtenByDefaultSink([] {
        const LogCapture capture;
        logError("captured");
    });
    EXPECT_EQ(written, "");
}

TEST(DefaultSinkTest, WritesNothingToStandardOutput) {
    testing::internal::CaptureStdout();
    writtenByDefaultSink([] { logError("to standard error"); });
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(DefaultSinkTest, WritesLongMessagesWhole) {
    const std::string text(300'000, 'x');
    const std::string written = writtenByDefaultSink([&text] { logWarning("%s", text.c_str()); });
    EXPECT_EQ(written, "warning: " + text + "\n");
}

TEST(DefaultSinkTest, IsBackWhenAnEmptySinkIsSet) {
    Collector collector;
    const ScopedSink scoped(collector.sink());
    const std::string written = writtenByDefaultSink([] { logError("default"); });
    EXPECT_EQ(written, "error: default\n");
    EXPECT_TRUE(collector.records().empty());
    logError("custom");
    EXPECT_EQ(textsOf(collector.records()), (Texts{"custom"}));
}

TEST(DefaultSinkTest, WritesLinesOfThreadsWhole) {
    const std::string text(200, 'x');
    const std::string written = writtenByDefaultSink([&text] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&text] {
                for (int k = 0; k < 50; ++k)
                    logWarning("%s", text.c_str());
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    });
    std::string expected;
    for (int i = 0; i < 200; ++i)
        expected += "warning: " + text + "\n";
    EXPECT_EQ(written, expected);
}

}  // namespace
