#include "diagnostics.h"

#include "text.h"

namespace kvt {

using ko::Severity;

void Diagnostics::report(const ko::LogRecord& record) {
    const Position position{record.line, record.column};
    add(record.severity, record.hasPosition ? &position : nullptr, record.text.view());
}

void Diagnostics::reportError(std::string_view message) { add(Severity::Error, nullptr, message); }

void Diagnostics::add(Severity severity, const Position* position, std::string_view message) {
    ++(severity == Severity::Error ? errors_ : warnings_);
    if (writeError() != 0) return;
    try {
        writeLine(severity, position, message);
    } catch (const WriteFailure&) {
        return;  // which the stream remembers
    }
}

void Diagnostics::writeLine(Severity severity, const Position* position, std::string_view message) {
    const bool isError = severity == Severity::Error;
    out_.write(palette_.strong);
    writeVisible(out_, file_);
    if (position) {
        out_.write(':');
        out_.number(position->line);
        out_.write(':');
        out_.number(position->column);
    }
    out_.write(": ");
    out_.write(palette_.plain);
    out_.write(isError ? palette_.error : palette_.warning);
    out_.write(isError ? "error: " : "warning: ");
    out_.write(palette_.plain);
    writeVisible(out_, message);
    out_.write('\n');
    // A line is seen when it occurs, and before anything that is written elsewhere later.
    out_.flush();
}

}  // namespace kvt
