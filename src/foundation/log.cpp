#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include <ko/foundation.h>

#include "foundation/ascii.h"

namespace ko {

namespace {

// --- The frame of a message: KIND (line,column): ... --------------------------------------------

bool skip(std::string_view& text, std::string_view expected) noexcept {
    if (text.substr(0, expected.size()) != expected) return false;
    text.remove_prefix(expected.size());
    return true;
}

bool readCounter(std::string_view& text, int& counter) noexcept {
    unsigned long digits = 0;
    while (digits < text.size() && String::isDigit(text[digits]))
        ++digits;
    if (!parseInteger(text.substr(0, digits), counter, String::Decimal)) return false;
    text.remove_prefix(digits);
    return true;
}

// The kinds are in capitals and begin the message, so quoted text can never look like a frame.
bool readFrame(std::string_view text, int& line, int& column) noexcept {
    unsigned long kind = 0;
    while (kind < text.size() && ((text[kind] >= 'A' && text[kind] <= 'Z') || text[kind] == ' ')) {
        ++kind;
    }
    if (kind < 2 || text[kind - 1] != ' ' || text[0] == ' ') return false;
    text.remove_prefix(kind);
    int readLine = 0;
    int readColumn = 0;
    const bool isFrame = skip(text, "(") && readCounter(text, readLine) && skip(text, ",") &&
                         readCounter(text, readColumn) && skip(text, "): ");
    if (!isFrame) return false;
    line = readLine;
    column = readColumn;
    return true;
}

// --- Sinks --------------------------------------------------------------------------------------

void writeToStandardError(const LogRecord& record) {
    std::string line = record.severity == Severity::Error ? "error: " : "warning: ";
    line += record.text.view();
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

// The sink is shared, so that one thread may replace it while another is inside it.
struct ProcessSink {
    std::mutex mutex;
    std::shared_ptr<const LogSink> sink;
};

ProcessSink& processSink() {
    static ProcessSink sink;
    return sink;
}

std::shared_ptr<const LogSink> currentSink() {
    ProcessSink& process = processSink();
    const std::lock_guard lock(process.mutex);
    return process.sink;
}

thread_local LogCapture* innermostCapture = nullptr;
// Whether this thread is inside the process-wide sink.
thread_local bool isInProcessSink = false;

void reportFormatted(Severity severity, const char* fmt, va_list args) {
    report(LogRecord(severity, String::formatv(fmt, args)));
}

}  // namespace

LogRecord::LogRecord(Severity severityOfText, String finishedText)
    : severity(severityOfText), text(std::move(finishedText)) {
    hasPosition = readFrame(text.view(), line, column);
}

LogSink setLogSink(LogSink sink) {
    auto replacement = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
    ProcessSink& process = processSink();
    {
        const std::lock_guard lock(process.mutex);
        std::swap(process.sink, replacement);
    }
    return replacement ? *replacement : LogSink();
}

namespace {

// Holds another value while it lives.
template <class T>
class Temporarily {
  public:
    Temporarily(T& variable, T value)
        : variable_(variable), before_(std::exchange(variable, value)) {}
    Temporarily(const Temporarily&) = delete;
    Temporarily& operator=(const Temporarily&) = delete;
    ~Temporarily() { variable_ = before_; }

  private:
    T& variable_;
    T before_;
};

// What the process-wide sink logs itself goes where messages go without one.
void reportToProcess(const LogRecord& record) {
    const auto sink = isInProcessSink ? nullptr : currentSink();
    if (!sink) return writeToStandardError(record);
    const Temporarily inside(isInProcessSink, true);
    (*sink)(record);
}

}  // namespace

LogCapture::LogCapture() : outer_(std::exchange(innermostCapture, this)) {}

LogCapture::LogCapture(LogSink sink)
    : sink_(std::move(sink)), outer_(std::exchange(innermostCapture, this)) {}

LogCapture::~LogCapture() { innermostCapture = outer_; }

void report(const LogRecord& record) {
    LogCapture* const capture = innermostCapture;
    if (capture && capture->sink_) {
        // What the capture's sink logs itself goes to the capture around it.
        const Temporarily outer(innermostCapture, capture->outer_);
        capture->sink_(record);
    } else if (capture) {
        capture->records_.push_back(record);
    } else {
        reportToProcess(record);
    }
}

void logWarning(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    reportFormatted(Severity::Warning, fmt, args);
    va_end(args);
}

void logError(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    reportFormatted(Severity::Error, fmt, args);
    va_end(args);
}

}  // namespace ko
