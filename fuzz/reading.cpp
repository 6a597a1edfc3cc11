#include "reading.h"

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <ko/foundation.h>
#include <ko/kvtparser.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <stdexcept>

#include "../tests/reading.h"
#include "dump_json.h"
#include "dump_text.h"
#include "output.h"
#include "terminal.h"
#include "text.h"

// A buffer that cannot be had is a matter of the document, so the sanitizer gives null for it, and
// does so early. A short quarantine and short stacks make it quick.
extern "C" const char* __asan_default_options();   // NOLINT: the sanitizer looks for this name
extern "C" const char* __asan_default_options() {  // NOLINT
    return "allocator_may_return_null=1:max_allocation_size_mb=64:quarantine_size_mb=16:"
           "malloc_context_size=6:detect_leaks=1";
}

namespace kvt::fuzz {

using ko::File;
using ko::LogRecord;
using ko::Severity;
using ko::String;
using ko::mirel_sdk::impl::Scene;

namespace {

constexpr unsigned long elementLimit = 1000;
constexpr unsigned long bufferLimit = 4096;

// Keeps what is written to its stream.
class Memory {
  public:
    Memory() : stream_(fopencookie(this, "w", {nullptr, append, nullptr, nullptr})) {
        require(stream_ != nullptr, "no memory stream");
        std::setvbuf(stream_, nullptr, _IONBF, 0);
    }
    ~Memory() { std::fclose(stream_); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    std::FILE* stream() const { return stream_; }
    std::string take() { return std::move(text_); }

  private:
    static ssize_t append(void* memory, const char* bytes, std::size_t count) {
        static_cast<Memory*>(memory)->text_.append(bytes, count);
        return static_cast<ssize_t>(count);
    }

    std::FILE* stream_;
    std::string text_;
};

// A file that lives in memory, and is opened by a path.
class TemporaryFile {
  public:
    TemporaryFile() : descriptor_(memfd_create("document", MFD_CLOEXEC)) {
        require(descriptor_ >= 0, "no temporary file");
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~TemporaryFile() { close(descriptor_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const char* write(std::string_view text) {
        require(ftruncate(descriptor_, 0) == 0, "the temporary file cannot be emptied");
        const ssize_t written = pwrite(descriptor_, text.data(), text.size(), 0);
        require(written == static_cast<ssize_t>(text.size()), "the temporary file is full");
        return path_.c_str();
    }

  private:
    int descriptor_;
    std::string path_;
};

bool namesNodeType(std::string_view documents) {
    constexpr std::string_view names[] = {"scalars", "vectors", "matrices", "others",
                                          "choice",  "filter",  "renamed"};
    return std::any_of(std::begin(names), std::end(names), [documents](std::string_view name) {
        return documents.find(name) != std::string_view::npos;
    });
}

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

void requireNoControls(std::string_view dump) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' && c != '\n'; };
    require(std::none_of(dump.begin(), dump.end(), isControl), "a control character in a dump");
    PieceReader pieces(dump);
    for (Piece piece; pieces.next(piece);)
        require(piece.kind != Piece::Invalid, "a dump that is not UTF-8");
}

// Strings are closed, and so is every bracket.
void requireBalanced(std::string_view json) {
    std::string open;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (c == '"') {
            for (++i; i < json.size() && json[i] != '"'; ++i)
                if (json[i] == '\\') ++i;
            require(i < json.size(), "JSON with an open string");
        } else if (c == '{' || c == '[') {
            open += static_cast<char>(c + 2);  // what closes it
        } else if (c == '}' || c == ']') {
            require(!open.empty() && open.back() == c, "JSON that closes what is not open");
            open.pop_back();
        }
    }
    require(open.empty(), "JSON that ends too early");
}

}  // namespace

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz: %s\n", what);
    std::abort();
}

std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

std::uint64_t fingerprint(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return hash ^ hash >> 32U;
}

void prepare(Scene& scene, std::string_view documents) {
    // Registering them takes longer than reading a short document.
    if (namesNodeType(documents)) kvt::test::registerNodeTypes(scene);
    scene.setElementLimit(elementLimit);
    scene.setBufferLimit(bufferLimit);
}

std::string lineOf(const LogRecord& record) {
    std::string line = record.severity == Severity::Error ? "error: " : "warning: ";
    return line.append(record.text.view());
}

bool isOfTheEnd(std::string_view line) {
    return startsWith(line, "warning: Cannot ") || startsWith(line, "warning: Invalid output: ");
}

void sortEnd(Log& log) { std::sort(std::find_if(log.begin(), log.end(), isOfTheEnd), log.end()); }

Reading read(const std::function<bool()>& entryPoint) {
    Reading reading;
    const ko::LogCapture capture(
        [&reading](const LogRecord& record) { reading.log.push_back(lineOf(record)); });
    try {
        reading.ok = entryPoint();
    } catch (const std::runtime_error& e) {
        reading.log.push_back(std::string("thrown: ") + e.what());
    }
    sortEnd(reading.log);
    return reading;
}

Reading readText(Scene& scene, std::string_view text) {
    return read([&] { return ko::mirel_sdk::impl::parseString(&scene, String(text)); });
}

Reading readBytes(Scene& scene, std::string_view bytes, bool keepHeader) {
    return read([&] {
        const File file = File::memory(bytes.data(), bytes.size());
        return ko::mirel_sdk::impl::parseKvt(&scene, file, keepHeader);
    });
}

Reading readFile(Scene& scene, std::string_view bytes, bool keepHeader) {
    static TemporaryFile file;
    return read([&] {
        return ko::mirel_sdk::impl::parseKvt(&scene, File::open(file.write(bytes)), keepHeader);
    });
}

bool takeStatement(ko::mirel_sdk::impl::KvtParser& parser) {
    return parser.parseComment() || parser.parseRemove() || parser.parseDefine() ||
           parser.parseDeclare() || parser.parseWith() || parser.parseAssign();
}

std::string_view withoutByteOrderMark(std::string_view bytes) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return bytes.substr(0, mark.size()) == mark ? bytes.substr(mark.size()) : bytes;
}

std::string dumpedText(const Scene& scene, bool ok) {
    static Memory memory;
    {
        OutputStream out(memory.stream());
        dumpText(out, scene, ok, noColours);
    }
    std::string dump = memory.take();
    requireNoControls(dump);
    return dump;
}

std::string dumpedJson(const Scene& scene, bool ok) {
    static Memory memory;
    {
        OutputStream out(memory.stream());
        dumpJson(out, scene, ok);
    }
    std::string dump = memory.take();
    requireNoControls(dump);
    requireBalanced(dump);
    return dump;
}

void readAndDump(std::string_view document) {
    Scene scene;
    prepare(scene, document);
    // Every other document may ask for buffers of any size. The text form shows their beginning.
    const bool isLimited = document.size() % 2 == 0;
    if (!isLimited) scene.setBufferLimit(~0UL);
    const bool ok = readText(scene, document).ok;
    dumpedText(scene, ok);
    if (isLimited) dumpedJson(scene, ok);
}

}  // namespace kvt::fuzz
