// The diagnostics of one document, a line each.
#pragma once

#include <string_view>

#include <ko/foundation.h>

#include "output.h"
#include "terminal.h"

namespace kvt {

// Prints what is reported about one file as it comes, and counts it.
class Diagnostics {
  public:
    // `file` as the user wrote it; it must outlive this object.
    Diagnostics(OutputStream& out, const Palette& palette, std::string_view file)
        : out_(out), palette_(palette), file_(file) {}

    // "FILE:LINE:COLUMN: KIND: MESSAGE", or "FILE: KIND: MESSAGE" for one without a position.
    void report(const ko::LogRecord& record);
    // An error that has no position in the document.
    void reportError(std::string_view message);

    unsigned long warnings() const { return warnings_; }
    unsigned long errors() const { return errors_; }
    // The system's number for the first line that could not be written; 0 when there was none.
    // Those after it are counted only.
    int writeError() const { return out_.error(); }

  private:
    // Where a message begins in the document.
    struct Position {
        int line;
        int column;
    };

    void add(ko::Severity severity, const Position* position, std::string_view message);
    void writeLine(ko::Severity severity, const Position* position, std::string_view message);

    OutputStream& out_;
    const Palette& palette_;
    std::string_view file_;
    unsigned long warnings_ = 0;
    unsigned long errors_ = 0;
};

}  // namespace kvt
