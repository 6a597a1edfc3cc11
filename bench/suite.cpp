// Each contest makes its documents, says who reads them, and asks for its rows of the table.
#include "suite.h"

#include <iomanip>
#include <iostream>
#include <map>

#include "bulk/bulk.h"
#include "jsonscene.h"
#include "kvt.h"
#include "memory.h"
#include "readers.h"

namespace bench {

namespace {

// For ten times as many.
constexpr Goal growth{12, 10.5};

constexpr OlderContest olderContests[] = {
    {"statements", "statements", "", {1.8, 2.1}},
    {"connections", "connections", "--text --kept", {1.5, 1.9}},
    {"identifiers", "identifiers", "--text --kept", {1.5, 1.9}},
    {"declarations", "declarations", "", {1.0, 1.3}},
    {"absolute paths", "paths", "", {1.0, 1.3}},
    {"members of objects", "members", "", {1.0, 1.3}},
    {"meshes", "meshes", "", {0.97, 1.0}},
    {"shuffled", "shuffled", "", {0.97, 1.0}},
    {"integers", "integers", "", {0.97, 1.0}},
    {"plain path", "meshes", "--plain", {0.97, 1.0}},
};

Load loadOf(const Content& content) {
    return {content.kvt.len(), content.items, !content.numbers.empty()};
}

// A reader's pass in a process of its own.
Contest::Pass in(Memory memory, Reader read) {
    return [read = std::move(read), memory] { return timePass(read, memory); };
}

// The same by a program of its own.
Contest::Pass by(const std::string& program, const std::string& options, const std::string& path) {
    return [=] {
        const auto [cpu, wall] = runProgram(programBeside(program), options, path);
        return PassTimes{cpu, wall};
    };
}

using ReadContent = std::function<Result(const Content&)>;

void addPeer(Contest& contest, const std::string& name, const Content& content,
             const ReadContent& read) {
    contest.add(name, loadOf(content), in(Memory::New, [&content, read] { return read(content); }));
}

}  // namespace

void Suite::addOurs(Contest& contest, const std::string& name, const Content& content) {
    const std::string path = fileOf(content);
    const unsigned long nodes = content.nodes;
    contest.add(name + ", file", loadOf(content),
                in(Memory::New, [path, nodes] { return readFile(path, nodes); }));
    addPeer(contest, name + ", string", content, readText);
    if (content.numbers.empty()) return;
    // With other instructions than the best of this machine; other passes do not see the switch.
    const auto addPath = [&](const char* suffix, ko::bulk::Path choice) {
        if (!ko::bulk::hasPath(choice)) return;
        contest.add(name + suffix, loadOf(content), in(Memory::New, [path, nodes, choice] {
                        ko::bulk::usePath(choice);
                        return readFile(path, nodes);
                    }));
    };
    addPath(", plain path", ko::bulk::Path::Plain);
    addPath(", AVX2 path", ko::bulk::Path::Avx2);
}

void Suite::addLoops(Contest& contest, const std::string& name, const Content& content) {
    addPeer(contest, name + ", from_chars", content, stdFromChars);
    addPeer(contest, name + ", fast_float", content, fastFloat);
}

void Suite::addDocumentPeers(Contest& contest, const std::string& name, const Content& content) {
    addPeer(contest, name + ", simdjson", content, simdJson);
    addPeer(contest, name + ", RapidJSON", content, rapidJson);
    addPeer(contest, name + ", RapidJSON exact", content, rapidJsonExact);
    addPeer(contest, name + ", nlohmann", content, nlohmannJson);
}

std::string Suite::fileOf(const Content& content) {
    std::string path = directory_.file("document.kvt");
    file_.reset();
    writeFile(path, content.kvt);
    file_ = std::make_unique<CachedFile>(path);
    return path;
}

void Suite::measure(Contest& contest) {
    contest.measure();
    for (const Row& row : contest.rows())
        table_.add(row);
    total_.cpu += contest.total().cpu;
    total_.wall += contest.total().wall;
}

// --- Contests -----------------------------------------------------------------------------------

void Suite::meshContest() {
    const Content content = document("meshes");
    Contest contest;
    addOurs(contest, "meshes", content);
    addLoops(contest, "meshes", content);
    addDocumentPeers(contest, "meshes", content);
    contest.compare("meshes, file", "meshes, from_chars", {1.6, 2.5});
    contest.compare("meshes, file", "meshes, fast_float");
    contest.compare("meshes, file", "meshes, simdjson", {2.0, 3.0});
    contest.compare("meshes, file", "meshes, RapidJSON exact", {4.5, 6.4});
    contest.compare("meshes, file", "meshes, RapidJSON");
    contest.compare("meshes, file", "meshes, nlohmann");
    contest.compare("meshes, string", "meshes, from_chars");
    contest.compare("meshes, plain path", "meshes, from_chars", {0.7, 1.1});
    contest.compare("meshes, AVX2 path", "meshes, from_chars");
    measure(contest);
}

void Suite::shuffledContest() {
    const Content content = document("shuffled");
    Contest contest;
    addOurs(contest, "shuffled", content);
    addLoops(contest, "shuffled", content);
    addDocumentPeers(contest, "shuffled", content);
    contest.compare("shuffled, file", "shuffled, from_chars", {2.0, 4.0});
    contest.compare("shuffled, file", "shuffled, fast_float");
    contest.compare("shuffled, file", "shuffled, simdjson");
    contest.compare("shuffled, file", "shuffled, RapidJSON exact");
    contest.compare("shuffled, file", "shuffled, RapidJSON");
    contest.compare("shuffled, file", "shuffled, nlohmann");
    contest.compare("shuffled, string", "shuffled, from_chars");
    contest.compare("shuffled, plain path", "shuffled, from_chars");
    contest.compare("shuffled, AVX2 path", "shuffled, from_chars");
    measure(contest);
}

void Suite::integerContest() {
    const Content content = document("integers");
    Contest contest;
    addOurs(contest, "integers", content);
    addLoops(contest, "integers", content);
    addDocumentPeers(contest, "integers", content);
    contest.compare("integers, file", "integers, from_chars", {1.6, 2.8});
    contest.compare("integers, file", "integers, simdjson");
    contest.compare("integers, file", "integers, RapidJSON exact");
    contest.compare("integers, file", "integers, nlohmann");
    contest.compare("integers, string", "integers, from_chars");
    contest.compare("integers, plain path", "integers, from_chars");
    contest.compare("integers, AVX2 path", "integers, from_chars");
    measure(contest);
}

void Suite::statementContest() {
    const Content content = document("statements");
    Contest contest;
    addOurs(contest, "statements", content);
    addDocumentPeers(contest, "statements", content);
    contest.compare("statements, file", "statements, simdjson", {1.0, 1.2});
    contest.compare("statements, file", "statements, RapidJSON", {1.6, 2.0});
    contest.compare("statements, file", "statements, RapidJSON exact");
    contest.compare("statements, file", "statements, nlohmann");
    contest.compare("statements, string", "statements, RapidJSON");
    measure(contest);
}

// All make the same scene of it; whether they do is looked at first.
void Suite::sceneContest() {
    const Content content = document("statements");
    inChild([&] {
        const auto expected = sceneOfText(content.kvt);
        requireSame(*sceneByRapidJson(content), *expected);
        requireSame(*sceneBySimdJson(content), *expected);
        return true;
    });
    Contest contest;
    addPeer(contest, "scene, KVT", content, readText);
    addPeer(contest, "scene, RapidJSON", content, sceneByRapidJson);
    addPeer(contest, "scene, simdjson", content, sceneBySimdJson);
    contest.compare("scene, KVT", "scene, RapidJSON");
    contest.compare("scene, KVT", "scene, simdjson");
    measure(contest);
}

// The same kind of document at a tenth and at full size, and at a hundredth if `hasThird`.
void Suite::growthContest(const std::string& name, Make make, bool hasThird, Goal limit) {
    std::vector<Content> contents;
    for (unsigned long size = 1000000 / divisor_, i = 0; i < (hasThird ? 3 : 2); ++i, size /= 10)
        contents.push_back(make(size));
    const auto nameOf = [&](const Content& content) {
        return name + ", " + std::to_string(content.nodes);
    };
    Contest contest;
    for (const Content& each : contents)
        contest.add(nameOf(each), loadOf(each),
                    in(Memory::Kept, [&each] { return readText(each); }));
    contest.compareGrowth(nameOf(contents[0]), nameOf(contents[1]), limit);
    if (hasThird) contest.compareGrowth(nameOf(contents[1]), nameOf(contents[2]));
    measure(contest);
}

void Suite::byteContest() {
    const unsigned long pixels = 16777216 / divisor_;
    const Content numbers = makeImageNumbers(pixels);
    const Content compact = makeImageBytes(pixels);
    const Content block = makeImageBlock(pixels);
    const Load load{4 * pixels, 4 * pixels, true};
    Contest contest;
    const auto add = [&](const char* name, const Content& content, const ReadContent& read) {
        contest.add(name, load, in(Memory::New, [&content, read] { return read(content); }));
    };
    add("bytes, numbers", numbers, readText);
    add("bytes, compact", compact, readText);
    add("bytes, block", block, readText);
    add("bytes, from_chars", numbers, stdFromChars);
    add("bytes, simdjson", numbers, simdJson);
    contest.compare("bytes, numbers", "bytes, from_chars");
    contest.compare("bytes, numbers", "bytes, simdjson");
    contest.compare("bytes, compact", "bytes, numbers");
    contest.compare("bytes, block", "bytes, numbers");
    measure(contest);
}

void Suite::memoryContest() {
    const auto measureDocument = [&](const Content& content) {
        MemoryUse use = measureMemory(fileOf(content));
        use.scene /= static_cast<double>(content.kvt.len());
        use.peakBeyond /= static_cast<double>(content.kvt.len());
        return use;
    };
    const MemoryUse ofMeshes = measureDocument(document("meshes"));
    const MemoryUse ofOneGroup = measureDocument(document("group"));
    const MemoryUse ofStatements = measureDocument(document("statements"));
    table_.addShare("meshes, scene", ofMeshes.scene, {0.55, 0.48});
    table_.addShare("meshes, peak beyond", ofMeshes.peakBeyond, {0.5, 0.1});
    table_.addShare("one group, scene", ofOneGroup.scene, {});
    table_.addShare("one group, peak beyond", ofOneGroup.peakBeyond, {2.1, 1.1});
    table_.addShare("statements, scene", ofStatements.scene, {3.3, 2.8});
    table_.addShare("statements, peak beyond", ofStatements.peakBeyond, {});
}

void Suite::olderContest(const OlderContest& older) {
    const Content content = document(older.document);
    const std::string path = fileOf(content);
    const std::string today = older.name + std::string(", today");
    const std::string before = older.name + std::string(", older");
    Contest contest;
    contest.add(today, loadOf(content), by("kvt-bench-reader", older.options, path));
    contest.add(before, loadOf(content), by("kvt-bench-older", older.options, path));
    contest.compare(today, before, older.goal);
    measure(contest);
}

// --- Running ------------------------------------------------------------------------------------

Content Suite::document(const std::string& name) const {
    const std::map<std::string, std::function<Content()>> documents = {
        {"meshes", [&] { return makeMeshes(10, 250000 / divisor_); }},
        {"shuffled", [&] { return makeShuffled(10, 250000 / divisor_); }},
        {"integers", [&] { return makeIntegers(10, 2500000 / divisor_); }},
        {"group", [&] { return makeOneGroup(20000000 / divisor_); }},
        {"statements", [&] { return makeStatements(200000 / divisor_); }},
        {"nodes", [&] { return makeStatements(1000000 / divisor_); }},
        {"connections", [&] { return makeConnections(1000000 / divisor_); }},
        {"identifiers", [&] { return makeIdentifiers(1000000 / divisor_); }},
        {"declarations", [&] { return makeDeclarations(1000000 / divisor_); }},
        {"paths", [&] { return makePaths(200000 / divisor_); }},
        {"members", [&] { return makeMembers(200000 / divisor_); }},
    };
    return documents.at(name)();
}

std::vector<Suite::Named> Suite::contests() {
    std::vector<Named> contests = {
        {"meshes", [&] { meshContest(); }},
        {"shuffled", [&] { shuffledContest(); }},
        {"integers", [&] { integerContest(); }},
        {"statements", [&] { statementContest(); }},
        {"scene", [&] { sceneContest(); }},
        {"nodes", [&] { growthContest("nodes", makeStatements, false, growth); }},
        {"connections", [&] { growthContest("connections", makeConnections, true, {}); }},
        {"identifiers", [&] { growthContest("identifiers", makeIdentifiers, true, {}); }},
        {"bytes", [&] { byteContest(); }},
        {"memory", [&] { memoryContest(); }},
    };
    if (!comparesOlder_) return contests;
    for (const OlderContest& each : olderContests)
        contests.emplace_back(each.name + std::string(", older"), [&] { olderContest(each); });
    return contests;
}

bool Suite::run(const std::regex& only) {
    bool isAny = false;
    for (const auto& [name, contest] : contests()) {
        if (!std::regex_search(name, only)) continue;
        std::cerr << "kvt-bench: " << name << std::endl;
        contest();
        isAny = true;
    }
    return isAny;
}

void Suite::print(std::ostream& out) const {
    out << "MB/s of the document (bytes: of the image) or millions of statements a second "
           "(connections,\nidentifiers: of nodes), ns for one number, byte, statement or node; "
           "medians of the thread's\nCPU time. A ratio is the median of so many pairs of passes, "
           "exact to so many percent either way.\n";
    if (total_.cpu > 0)
        out << "On the clock all took " << std::setprecision(2) << total_.wall / total_.cpu
            << " times as long.\n";
    out << '\n';
    table_.print(out);
}

}  // namespace bench
