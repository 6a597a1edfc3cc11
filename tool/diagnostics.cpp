#include "diagnostics.h"

#include "text.h"

namespace kvt {

void Diagnostics::report(const ko::LogRecord& record) {
    out_.write(palette_.strong);
    out_.write(file_);
    if (record.hasPosition) {
        out_.write(':');
        out_.number(record.line);
        out_.write(':');
        out_.number(record.column);
    }
    finishLine(record.severity, record.text.view());
}

void Diagnostics::reportError(std::string_view message) {
    out_.write(palette_.strong);
    out_.write(file_);
    finishLine(ko::Severity::Error, message);
}

void Diagnostics::finishLine(ko::Severity severity, std::string_view message) {
    const bool isError = severity == ko::Severity::Error;
    ++(isError ? errors_ : warnings_);
    out_.write(": ");
    out_.write(palette_.plain);
    out_.write(isError ? palette_.error : palette_.warning);
    out_.write(isError ? "error: " : "warning: ");
    out_.write(palette_.plain);
    writeMessage(out_, message);
    out_.write('\n');
    // A line is seen when it occurs, and before anything that is written elsewhere later.
    out_.flush();
}

}  // namespace kvt
