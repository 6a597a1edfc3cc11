// One document from a string, from memory, in blocks and from a file: the same scene, the same
// messages. The string is read by the plain code for long runs, the others by the fastest.
#include <sys/mman.h>
#include <unistd.h>

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bulk.h"
#include "lexers.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::File;
using ko::bulk::Path;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Scene;
using kvt::fuzz::Blocks;
using kvt::fuzz::fingerprint;
using kvt::fuzz::Reading;
using kvt::fuzz::require;

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

Reading readFile(Scene& scene, std::string_view text) {
    static TemporaryFile file;
    return kvt::fuzz::read(
        [&] { return ko::mirel_sdk::impl::parseKvt(&scene, File::open(file.write(text)), false); });
}

Reading readBlocks(Scene& scene, std::string_view text) {
    return kvt::fuzz::read([&] {
        Blocks lexer(text, fingerprint(text));
        KvtParser parser;
        return parser.parse(&scene, &lexer);
    });
}

std::string_view withoutByteOrderMark(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return text.substr(0, mark.size()) == mark ? text.substr(mark.size()) : text;
}

struct Outcome {
    std::vector<std::string> log;
    std::string scene;
};

template <class Read>
Outcome outcomeOf(std::string_view text, Read readInto) {
    Scene scene;
    kvt::fuzz::prepare(scene, text);
    const Reading reading = readInto(scene);
    return {reading.log, kvt::fuzz::dumpedJson(scene, reading.ok)};
}

void requireSame(const Outcome& expected, const Outcome& found) {
    require(expected.log == found.log, "different messages");
    require(expected.scene == found.scene, "different scenes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = kvt::fuzz::textOf(data, size);
    const std::string_view text = withoutByteOrderMark(bytes);
    ko::bulk::usePath(Path::Plain);
    const Outcome expected =
        outcomeOf(text, [&](Scene& scene) { return kvt::fuzz::readText(scene, text); });
    if (ko::bulk::hasPath(Path::Avx2)) ko::bulk::usePath(Path::Avx2);
    requireSame(expected, outcomeOf(text, [&](Scene& scene) { return readBlocks(scene, text); }));
    // Opening a file takes longer than reading a short one.
    const bool fromFile = fingerprint(bytes) % 4 == 0;
    requireSame(expected, outcomeOf(text, [&](Scene& scene) {
                    return fromFile ? readFile(scene, bytes)
                                    : kvt::fuzz::readBytes(scene, bytes, false);
                }));
    return 0;
}
