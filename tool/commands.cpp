#include "commands.h"

#include <algorithm>
#include <exception>
#include <new>
#include <system_error>

#include <ko/kvtparser.h>

#include "diagnostics.h"
#include "dump_json.h"
#include "dump_text.h"
#include "output.h"
#include "terminal.h"

namespace kvt {

using ko::File;
using ko::mirel_sdk::impl::Scene;

namespace {

File openFile(const std::string& name) {
    return name == "-" ? File::standardInput() : File::open(name.c_str());
}

// Reads the document. True when it was read to its end; whatever went wrong was reported.
bool readDocument(Scene& scene, const File& file, Diagnostics& diagnostics) {
    const ko::LogCapture capture(
        [&diagnostics](const ko::LogRecord& record) { diagnostics.report(record); });
    try {
        return ko::mirel_sdk::impl::parseKvt(&scene, file, false);
    } catch (const std::bad_alloc&) {
        diagnostics.reportError("out of memory");
    } catch (const std::exception& e) {
        diagnostics.report(ko::LogRecord(ko::Severity::Error, e.what()));
    }
    return false;
}

// True when nothing came between the tool and the bytes of the file; else it is reported.
bool ensureReadable(const File& file, Diagnostics& diagnostics) {
    if (file.error() == File::None) return true;
    diagnostics.reportError(file.errorText().view());
    return false;
}

// True when the file still has what it had when it was opened, unless its document ended before.
bool ensureWhole(File& file, Diagnostics& diagnostics) {
    signed char next = 0;
    if (file.position() >= file.size() || file.read(next)) return true;
    diagnostics.reportError("cannot read: the file has become shorter");
    return false;
}

// Likewise of both, once the document was read.
bool ensureWasRead(File file, Diagnostics& diagnostics) {
    return ensureReadable(file, diagnostics) && ensureWhole(file, diagnostics);
}

ExitStatus checkFile(const std::string& name, bool warningsAreErrors, Diagnostics& diagnostics) {
    const File file = openFile(name);
    if (!ensureReadable(file, diagnostics)) return CannotRun;
    Scene scene;
    readDocument(scene, file, diagnostics);
    if (!ensureWasRead(file, diagnostics)) return CannotRun;
    if (diagnostics.errors() > 0) return BadDocument;
    return warningsAreErrors && diagnostics.warnings() > 0 ? BadDocument : Success;
}

}  // namespace

ExitStatus check(const CheckOptions& options, std::FILE* diagnostics) {
    OutputStream out(diagnostics);
    const Palette& palette = paletteFor(diagnostics);
    ExitStatus worst = Success;
    for (const std::string& name : options.files) {
        Diagnostics ofFile(out, palette, name);
        worst = std::max(worst, checkFile(name, options.warningsAreErrors, ofFile));
    }
    return worst;
}

ExitStatus dump(const DumpOptions& options, std::FILE* output, std::FILE* diagnostics) {
    OutputStream diagnosticsOut(diagnostics);
    Diagnostics ofFile(diagnosticsOut, paletteFor(diagnostics), options.file);
    const File file = openFile(options.file);
    if (!ensureReadable(file, ofFile)) return CannotRun;

    OutputStream out(output);
    Scene scene;
    const bool ok = readDocument(scene, file, ofFile);
    const bool wasRead = ensureWasRead(file, ofFile);
    if (options.json) {
        dumpJson(out, scene, ok);
    } else {
        dumpText(out, scene, ok && wasRead, paletteFor(output));
    }
    if (!out.flush()) {
        reportFailure(writeError(out), diagnostics);
        return CannotRun;
    }
    if (!wasRead) return CannotRun;
    return ok ? Success : BadDocument;
}

std::string writeError(const OutputStream& out) {
    return "cannot write the output: " + std::system_category().message(out.error());
}

void reportFailure(const std::string& message, std::FILE* diagnostics) {
    OutputStream out(diagnostics);
    Diagnostics(out, paletteFor(diagnostics), "kvt").reportError(message);
}

}  // namespace kvt
