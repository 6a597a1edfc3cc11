#include "commands.h"

#include <algorithm>
#include <cerrno>
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

void limit(Scene& scene, const ReadLimits& limits) {
    scene.setBufferLimit(limits.bufferBytes);
    scene.setElementLimit(limits.elements);
}

// Reads the document and hands what goes wrong to `sink`. True when it was read to its end.
bool readDocument(Scene& scene, const File& file, const ko::LogSink& sink) {
    const ko::LogCapture capture(sink);
    try {
        return ko::mirel_sdk::impl::parseKvt(&scene, file, false);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        sink(ko::LogRecord(ko::Severity::Error, e.what()));
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

// Ends what is going on when a diagnostic could not be written.
void ensureWritten(const Diagnostics& diagnostics) {
    if (diagnostics.writeError() != 0) throw WriteFailure{diagnostics.writeError()};
}

ExitStatus checkFile(const std::string& name, const CheckOptions& options,
                     Diagnostics& diagnostics) {
    const File file = openFile(name);
    if (!ensureReadable(file, diagnostics)) return CannotRun;
    Scene scene;
    limit(scene, options.limits);
    readDocument(scene, file, [&diagnostics](const ko::LogRecord& record) {
        diagnostics.report(record);
        ensureWritten(diagnostics);
    });
    if (!ensureWasRead(file, diagnostics)) return CannotRun;
    if (diagnostics.errors() > 0) return BadDocument;
    return options.warningsAreErrors && diagnostics.warnings() > 0 ? BadDocument : Success;
}

ExitStatus checkFiles(const CheckOptions& options, OutputStream& out, const Palette& palette) {
    ExitStatus worst = Success;
    for (const std::string& name : options.files) {
        Diagnostics ofFile(out, palette, name);
        worst = std::max(worst, checkFile(name, options, ofFile));
        ensureWritten(ofFile);
    }
    return worst;
}

// How a command ends when `what` cannot be written: a reader that has gone wants no more of it.
ExitStatus endOf(const WriteFailure& failure, const char* what, std::FILE* diagnostics) {
    if (failure.error == EPIPE) return Success;
    const std::string reason = std::system_category().message(failure.error);
    reportFailure("cannot write the " + std::string(what) + ": " + reason, diagnostics);
    return CannotRun;
}

void writeScene(std::FILE* output, const Scene& scene, bool json, bool wasRead, bool ok) {
    OutputStream out(output);
    if (json) {
        dumpJson(out, scene, ok);
    } else {
        dumpText(out, scene, ok && wasRead, paletteFor(output));
    }
    out.flush();
}

// The scene is printed whole also when nobody hears what is wrong with its document.
ExitStatus dumpFile(const DumpOptions& options, std::FILE* output, Diagnostics& diagnostics) {
    const File file = openFile(options.file);
    if (!ensureReadable(file, diagnostics)) return CannotRun;
    Scene scene;
    limit(scene, options.limits);
    const bool ok = readDocument(
        scene, file, [&diagnostics](const ko::LogRecord& record) { diagnostics.report(record); });
    const bool wasRead = ensureWasRead(file, diagnostics);
    writeScene(output, scene, options.json, wasRead, ok);
    if (!wasRead) return CannotRun;
    return ok ? Success : BadDocument;
}

}  // namespace

ExitStatus check(const CheckOptions& options, std::FILE* diagnostics) {
    OutputStream out(diagnostics);
    try {
        return checkFiles(options, out, paletteFor(diagnostics));
    } catch (const WriteFailure& failure) {
        return endOf(failure, "diagnostics", diagnostics);
    }
}

ExitStatus dump(const DumpOptions& options, std::FILE* output, std::FILE* diagnostics) {
    OutputStream out(diagnostics);
    Diagnostics ofFile(out, paletteFor(diagnostics), options.file);
    try {
        const ExitStatus status = dumpFile(options, output, ofFile);
        const int lost = ofFile.writeError();
        if (lost == 0 || lost == EPIPE) return status;
        return endOf(WriteFailure{lost}, "diagnostics", diagnostics);
    } catch (const WriteFailure& failure) {
        return endOf(failure, "output", diagnostics);
    }
}

ExitStatus print(std::string_view text, std::FILE* output, std::FILE* diagnostics) {
    try {
        OutputStream out(output);
        out.write(text);
        out.flush();
        return Success;
    } catch (const WriteFailure& failure) {
        return endOf(failure, "output", diagnostics);
    }
}

void reportFailure(const std::string& message, std::FILE* diagnostics) {
    OutputStream out(diagnostics);
    Diagnostics(out, paletteFor(diagnostics), "kvt").reportError(message);
}

}  // namespace kvt
