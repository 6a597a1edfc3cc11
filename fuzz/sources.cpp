// One document from a string, from memory, in blocks and from a file: the same scene, the same
// messages. The string is read by the rules alone and by the plain code for long runs, the others
// by the fastest.
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bulk/bulk.h"
#include "lexers.h"
#include "reader/statements.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::bulk::Path;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Scene;
using kvt::fuzz::Blocks;
using kvt::fuzz::fingerprint;
using kvt::fuzz::Reading;
using kvt::fuzz::require;

Reading readBlocks(Scene& scene, std::string_view text) {
    return kvt::fuzz::read([&] {
        Blocks lexer(text, fingerprint(text));
        KvtParser parser;
        return parser.parse(&scene, &lexer);
    });
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
    const std::string_view text = kvt::fuzz::withoutByteOrderMark(bytes);
    ko::bulk::usePath(Path::Plain);
    ko::mirel_sdk::impl::readStatementsWhole(false);
    const Outcome expected =
        outcomeOf(text, [&](Scene& scene) { return kvt::fuzz::readText(scene, text); });
    ko::mirel_sdk::impl::readStatementsWhole(true);
    if (ko::bulk::hasPath(Path::Avx2)) ko::bulk::usePath(Path::Avx2);
    requireSame(expected, outcomeOf(text, [&](Scene& scene) { return readBlocks(scene, text); }));
    // Opening a file takes longer than reading a short one.
    const bool fromFile = fingerprint(bytes) % 4 == 0;
    requireSame(expected, outcomeOf(text, [&](Scene& scene) {
                    return fromFile ? kvt::fuzz::readFile(scene, bytes, false)
                                    : kvt::fuzz::readBytes(scene, bytes, false);
                }));
    return 0;
}
