// The tool: escapes, diagnostics, both dumps of scenes built in code, and the program itself.

#include <ko/scene.h>

#include <pthread.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "diagnostics.h"
#include "dump_json.h"
#include "dump_text.h"
#include "numbers.h"
#include "output.h"
#include "scene_walk.h"
#include "terminal.h"
#include "text.h"

namespace {

using ko::DataType;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Scene;
using nlohmann::json;
using std::string_view_literals::operator""sv;

// --- Help for the tests -------------------------------------------------------------------------

// What `write` hands to a stream.
std::string written(const std::function<void(kvt::OutputStream&)>& write) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const file = open_memstream(&text, &size);
    {
        kvt::OutputStream out(file);
        write(out);
        out.flush();
    }
    std::fclose(file);
    std::string result(text, size);
    std::free(text);
    return result;
}

std::string jsonTextOf(const Scene& scene, bool ok = true) {
    return written([&](kvt::OutputStream& out) { kvt::dumpJson(out, scene, ok); });
}

json jsonOf(const Scene& scene) { return json::parse(jsonTextOf(scene)); }

// The inputs of the scene's first node.
json inputsOf(const Scene& scene) { return jsonOf(scene)["nodes"][0]["inputs"]; }

std::string textOf(const Scene& scene, bool ok = true) {
    return written([&](kvt::OutputStream& out) { kvt::dumpText(out, scene, ok, kvt::noColours); });
}

bool contains(const std::string& text, std::string_view part) {
    return text.find(part) != std::string::npos;
}

Input* addValue(Node* node, const char* name, const AttrData& value) {
    Input* const input = node->createInput(name, value.type);
    EXPECT_TRUE(input->assign(value));
    return input;
}

template <class T>
AttrData bufferOf(DataType type, const std::vector<T>& components) {
    AttrData buffer = AttrData::ofBuffer(type, components.size() / ko::componentCount(type));
    EXPECT_EQ(buffer.buffer().bytes, components.size() * sizeof(T));
    if (!components.empty()) {
        std::memcpy(buffer.payload(), components.data(), components.size() * sizeof(T));
    }
    return buffer;
}

// One node "n" of type "t" with one input "x".
struct OneInput {
    explicit OneInput(const AttrData& value) { input = addValue(node, "x", value); }
    json dumped() const { return inputsOf(scene)[0]; }
    std::string text() const { return textOf(scene); }

    Scene scene;
    Node* node = scene.createNode("t", "n", "");
    Input* input = nullptr;
};

// --- Pieces of text -----------------------------------------------------------------------------

TEST(ToolTextTest, KnowsValidMultibyteCharacters) {
    EXPECT_EQ(kvt::multibyteLength("\xc2\x80"), 2);
    EXPECT_EQ(kvt::multibyteLength("\xdf\xbf rest"), 2);
    EXPECT_EQ(kvt::multibyteLength("\xe0\xa0\x80"), 3);
    EXPECT_EQ(kvt::multibyteLength("\xed\x9f\xbf"), 3);
    EXPECT_EQ(kvt::multibyteLength("\xee\x80\x80"), 3);
    EXPECT_EQ(kvt::multibyteLength("\xf0\x90\x80\x80"), 4);
    EXPECT_EQ(kvt::multibyteLength("\xf4\x8f\xbf\xbf"), 4);
}

TEST(ToolTextTest, RefusesWhatIsNoMultibyteCharacter) {
    const std::string_view refused[] = {
        "",
        "a",
        "\x80",              // a continuation by itself
        "\xc2",              // cut off
        "\xe2\x82",          // cut off
        "\xc2\x20",          // not continued
        "\xc0\x80",          // overlong
        "\xc1\xbf",          // overlong
        "\xe0\x9f\xbf",      // overlong
        "\xf0\x8f\xbf\xbf",  // overlong
        "\xed\xa0\x80",      // a surrogate
        "\xed\xbf\xbf",      // a surrogate
        "\xf4\x90\x80\x80",  // past the last code point
        "\xf8\x88\x80\x80\x80",
        "\xff",
    };
    for (const std::string_view text : refused)
        EXPECT_EQ(kvt::multibyteLength(text), 0) << text;
}

std::string visible(std::string_view text) {
    return written([&](kvt::OutputStream& out) { kvt::writeVisible(out, text); });
}

TEST(ToolTextTest, VisibleTextIsOneLine) {
    EXPECT_EQ(visible("a\nb\rc\td"), R"(a\nb\rc\td)");
    EXPECT_EQ(visible("\x01\x1b[31m\x7f"), R"(\x01\x1b[31m\x7f)");
    EXPECT_EQ(visible("a\0b"sv), R"(a\x00b)");
}

TEST(ToolTextTest, VisibleTextKeepsBackslashesQuotesAndUtf8) {
    EXPECT_EQ(visible(R"(a\n"b")"), R"(a\n"b")");
    EXPECT_EQ(visible("gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80"),
              "gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80");
}

TEST(ToolTextTest, VisibleTextShowsBytesThatAreNotUtf8) {
    EXPECT_EQ(visible("\xff\xe2\x82z\xed\xa0\x80"), R"(\xff\xe2\x82z\xed\xa0\x80)");
}

// The code point as UTF-8; `steering` ones have two or three bytes.
std::string utf8(unsigned codePoint) {
    const auto byte = [](unsigned bits) { return static_cast<char>(bits); };
    const char last = byte(0x80U | (codePoint & 0x3fU));
    if (codePoint < 0x800) return {byte(0xc0U | codePoint >> 6U), last};
    return {byte(0xe0U | codePoint >> 12U), byte(0x80U | (codePoint >> 6U & 0x3fU)), last};
}

bool steers(unsigned codePoint) {
    constexpr unsigned single[] = {0x61c, 0x200e, 0x200f, 0x2028, 0x2029, 0xfeff};
    return codePoint <= 0x9f || (codePoint >= 0x202a && codePoint <= 0x202e) ||
           (codePoint >= 0x2066 && codePoint <= 0x2069) ||
           std::find(std::begin(single), std::end(single), codePoint) != std::end(single);
}

std::string hexEscapes(const std::string& bytes) {
    std::string all;
    for (const char c : bytes) {
        char escape[5];
        std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(c) & 0xffU);
        all += escape;
    }
    return all;
}

TEST(ToolTextTest, VisibleTextHasNothingThatSteersATerminalAndAllElse) {
    for (unsigned codePoint = 0x80; codePoint <= 0xffff; ++codePoint) {
        if (codePoint >= 0xd800 && codePoint <= 0xdfff) continue;  // no UTF-8
        const std::string text = utf8(codePoint);
        EXPECT_EQ(visible(text), steers(codePoint) ? hexEscapes(text) : text) << codePoint;
    }
}

TEST(ToolTextTest, WidthIsThatOfTheVisibleText) {
    const std::string_view texts[] = {"",      "abc",      "a\n",      "\x1b[0m",
                                      "q\"\\", "\xff\xfe", "\xc2\x9b", "\xe2\x80\xae"};
    for (const std::string_view text : texts) {
        EXPECT_EQ(kvt::visibleWidth(text, 100), visible(text).size()) << text;
    }
    EXPECT_EQ(kvt::visibleWidth("\xc3\xbc\xe2\x82\xac\xf0\x9f\x98\x80", 100), 3);
}

TEST(ToolTextTest, WidthIsCountedUpToItsLimit) {
    EXPECT_EQ(kvt::visibleWidth("abcdef", 3), 3);
    EXPECT_EQ(kvt::visibleWidth("ab\xff", 3), 3);
    EXPECT_EQ(kvt::visibleWidth("abc", 0), 0);
    EXPECT_EQ(kvt::visibleWidth(std::string(1'000'000, 'x'), 32), 32);
}

std::string quoted(std::string_view text, unsigned long limit) {
    return written([&](kvt::OutputStream& out) { kvt::writeQuoted(out, text, limit); });
}

TEST(ToolTextTest, QuotedTextEscapesQuotesAndBackslashes) {
    EXPECT_EQ(quoted(R"(a "b" \c)", 100), R"("a \"b\" \\c")");
    EXPECT_EQ(quoted("", 100), R"("")");
}

TEST(ToolTextTest, QuotedTextIsShortenedToWholeCharacters) {
    EXPECT_EQ(quoted("abc", 3), R"("abc")");
    EXPECT_EQ(quoted("abcd", 3), R"("abc"... (4 bytes))");
    EXPECT_EQ(quoted("\xf0\x9f\x98\x80\xf0\x9f\x98\x80", 1), "\"\xf0\x9f\x98\x80\"... (8 bytes)");
    EXPECT_EQ(quoted("\n\n\n", 2), R"("\n\n"... (3 bytes))");
}

std::string jsonString(std::string_view text) {
    return written([&](kvt::OutputStream& out) { kvt::writeJsonString(out, text); });
}

TEST(ToolTextTest, JsonStringsReadBackAsTheyWere) {
    std::string all;
    for (char c = 0; c < 127; ++c)
        all += c;
    all += "\x7f\xc2\x80\xc3\xbc\xe2\x80\xa8\xe2\x82\xac\xf0\x9f\x98\x80";
    EXPECT_EQ(json::parse(jsonString(all)).get<std::string>(), all);
    EXPECT_EQ(jsonString("a\"\\\n\x01"), R"("a\"\\\n\u0001")");
}

TEST(ToolTextTest, JsonStringsHaveNothingThatSteersATerminalAndReadBack) {
    for (unsigned codePoint = 0x80; codePoint <= 0xffff; ++codePoint) {
        if (codePoint >= 0xd800 && codePoint <= 0xdfff) continue;
        const std::string text = utf8(codePoint);
        const std::string string = jsonString(text);
        EXPECT_EQ(string.find(text) == std::string::npos, steers(codePoint)) << string;
        EXPECT_EQ(json::parse(string).get<std::string>(), text);
    }
}

TEST(ToolTextTest, JsonReplacesEachByteThatIsNotUtf8) {
    EXPECT_EQ(jsonString("a\xff\xe2\x82z"), "\"a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbdz\"");
    EXPECT_EQ(jsonString("\xed\xa0\x80"), "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"");
    EXPECT_EQ(jsonString("\xc0\x80"), "\"\xef\xbf\xbd\xef\xbf\xbd\"");
}

// --- Numbers and the stream ---------------------------------------------------------------------

template <class Real>
std::string real(Real value) {
    return written([&](kvt::OutputStream& out) { kvt::writeReal(out, value, "'"); });
}

TEST(ToolNumberTest, RealsAreTheShortestTextThatReadsBack) {
    EXPECT_EQ(real(0.1), "0.1");
    EXPECT_EQ(real(0.1F), "0.1");
    EXPECT_EQ(real(16777216.0F), "16777216");
    EXPECT_EQ(real(1e300), "1e+300");
    EXPECT_EQ(real(-0.0), "-0");
    EXPECT_EQ(real(std::numeric_limits<double>::denorm_min()), "5e-324");
    EXPECT_EQ(real(0.1 + 0.2), "0.30000000000000004");
}

TEST(ToolNumberTest, WordsStandInQuotes) {
    EXPECT_EQ(real(std::numeric_limits<double>::infinity()), "'inf'");
    EXPECT_EQ(real(-std::numeric_limits<float>::infinity()), "'-inf'");
    EXPECT_EQ(real(std::nan("")), "'nan'");
    EXPECT_EQ(real(-std::nanf("")), "'nan'");
}

TEST(ToolOutputTest, WritesTextsOfAnyLengthInOrder) {
    std::string expected;
    const std::string got = written([&](kvt::OutputStream& out) {
        for (unsigned long length : {1UL, 65535UL, 65536UL, 3UL, 65537UL, 200000UL, 0UL, 7UL}) {
            const std::string text(length, static_cast<char>('a' + length % 26));
            out.write(text);
            out.write('|');
            out.number(length);
            expected += text + '|' + std::to_string(length);
        }
    });
    EXPECT_TRUE(got == expected);
}

TEST(ToolOutputTest, NoticesAFullDisk) {
    std::FILE* const full = std::fopen("/dev/full", "w");
    ASSERT_TRUE(full);
    kvt::OutputStream out(full);
    out.write("text");
    EXPECT_EQ(out.error(), 0);
    EXPECT_THROW(out.flush(), kvt::WriteFailure);
    EXPECT_EQ(out.error(), ENOSPC);
    EXPECT_THROW(out.write(std::string(1'000'000, 'x')), kvt::WriteFailure);
    EXPECT_THROW(out.flush(), kvt::WriteFailure);
    std::fclose(full);
}

TEST(ToolOutputTest, MayGoAfterAFailure) {
    std::FILE* const full = std::fopen("/dev/full", "w");
    { kvt::OutputStream(full).write("text"); }
    std::fclose(full);
}

// --- Diagnostics --------------------------------------------------------------------------------

std::string diagnostic(ko::Severity severity, const char* text,
                       const kvt::Palette& palette = kvt::noColours) {
    return written([&](kvt::OutputStream& out) {
        kvt::Diagnostics(out, palette, "dir/a.kvt").report(ko::LogRecord(severity, text));
    });
}

TEST(ToolDiagnosticsTest, PositionStandsBehindTheFile) {
    EXPECT_EQ(diagnostic(ko::Severity::Error, "PARSE ERROR (3,14): array too large: n.x."),
              "dir/a.kvt:3:14: error: PARSE ERROR (3,14): array too large: n.x.\n");
    EXPECT_EQ(diagnostic(ko::Severity::Warning, "TYPE WARNING (0,0): a."),
              "dir/a.kvt:0:0: warning: TYPE WARNING (0,0): a.\n");
}

TEST(ToolDiagnosticsTest, MessageWithoutPosition) {
    EXPECT_EQ(diagnostic(ko::Severity::Warning, "Invalid output: a."),
              "dir/a.kvt: warning: Invalid output: a.\n");
}

TEST(ToolDiagnosticsTest, OneLineWhateverTheMessageHolds) {
    EXPECT_EQ(diagnostic(ko::Severity::Error, "a\nb\x1b\xff\\"),
              "dir/a.kvt: error: a\\nb\\x1b\\xff\\\n");
}

std::string failureOf(std::string_view file) {
    return written([file](kvt::OutputStream& out) {
        kvt::Diagnostics(out, kvt::noColours, file).reportError("PARSE ERROR (1,2): no position");
    });
}

TEST(ToolDiagnosticsTest, FileIsEscapedLikeTheMessage) {
    EXPECT_EQ(failureOf("-"), "-: error: PARSE ERROR (1,2): no position\n");
    EXPECT_EQ(failureOf("a\n\x1b[2J\xff \xe2\x80\xae\xc3\xbc\\"),
              R"(a\n\x1b[2J\xff \xe2\x80\xae)"
              "\xc3\xbc\\: error: "
              "PARSE ERROR (1,2): no position\n");
}

TEST(ToolDiagnosticsTest, ColoursSurroundThePlainText) {
    std::string line = diagnostic(ko::Severity::Error, "BAD (1,2): m", kvt::terminalColours);
    EXPECT_TRUE(contains(line, "\x1b[")) << line;
    for (std::size_t at = line.find('\x1b'); at != std::string::npos; at = line.find('\x1b')) {
        line.erase(at, line.find('m', at) - at + 1);
    }
    EXPECT_EQ(line, diagnostic(ko::Severity::Error, "BAD (1,2): m"));
}

TEST(ToolTerminalTest, ColoursForATerminalThatMayHaveThem) {
    int controller = -1;
    int terminal = -1;
    ASSERT_EQ(openpty(&controller, &terminal, nullptr, nullptr, nullptr), 0);
    std::FILE* const stream = fdopen(terminal, "w");
    unsetenv("NO_COLOR");
    setenv("TERM", "xterm", 1);
    EXPECT_EQ(&kvt::paletteFor(stream), &kvt::terminalColours);
    setenv("NO_COLOR", "", 1);
    EXPECT_EQ(&kvt::paletteFor(stream), &kvt::terminalColours);
    setenv("NO_COLOR", "1", 1);
    EXPECT_EQ(&kvt::paletteFor(stream), &kvt::noColours);
    unsetenv("NO_COLOR");
    setenv("TERM", "dumb", 1);
    EXPECT_EQ(&kvt::paletteFor(stream), &kvt::noColours);
    std::fclose(stream);
    close(controller);
}

TEST(ToolTerminalTest, NoColoursForAFile) {
    std::FILE* const file = std::tmpfile();
    EXPECT_EQ(&kvt::paletteFor(file), &kvt::noColours);
    std::fclose(file);
}

TEST(ToolDiagnosticsTest, ALostLineIsCountedAndRemembered) {
    std::FILE* const full = std::fopen("/dev/full", "w");
    kvt::OutputStream out(full);
    kvt::Diagnostics diagnostics(out, kvt::noColours, "f");
    EXPECT_EQ(diagnostics.writeError(), 0);
    diagnostics.reportError("e");
    diagnostics.reportError(std::string(1'000'000, 'e'));
    EXPECT_EQ(diagnostics.writeError(), ENOSPC);
    EXPECT_EQ(diagnostics.errors(), 2);
    std::fclose(full);
}

TEST(ToolDiagnosticsTest, CountsByKind) {
    written([](kvt::OutputStream& out) {
        kvt::Diagnostics diagnostics(out, kvt::noColours, "f");
        diagnostics.report(ko::LogRecord(ko::Severity::Warning, "w"));
        diagnostics.report(ko::LogRecord(ko::Severity::Warning, "w"));
        diagnostics.reportError("e");
        EXPECT_EQ(diagnostics.warnings(), 2);
        EXPECT_EQ(diagnostics.errors(), 1);
    });
}

// --- JSON ---------------------------------------------------------------------------------------

TEST(ToolJsonTest, EmptyScene) {
    const Scene scene;
    EXPECT_EQ(jsonOf(scene), json::parse(R"(
        {"ok": true, "version": 1, "time": "", "comments": [], "nodes": []})"));
    EXPECT_EQ(json::parse(jsonTextOf(scene, false))["ok"], false);
    EXPECT_EQ(jsonTextOf(scene).back(), '\n');
}

TEST(ToolJsonTest, MembersStandInTheirOrder) {
    Scene scene;
    scene.pushFileComment("# c");
    Node* const node = scene.createNode("t", "n", "");
    addValue(node, "x", AttrData::ofInt(1))->connect(node->output("out"));
    const auto ordered = nlohmann::ordered_json::parse(jsonTextOf(scene));
    EXPECT_EQ(ordered.dump(), R"({"ok":true,"version":1,"time":"","comments":["# c"],"nodes":[)"
                              R"({"name":"n","type":"t","definition":false,"inputs":[)"
                              R"({"name":"x","type":"Int","value":1,"connection":"n.out"}]}]})");
}

TEST(ToolJsonTest, Header) {
    Scene scene;
    scene.setFileVersion(~0UL);
    scene.setFileTime("now\n");
    scene.pushFileComment("# version: 7");
    scene.pushFileComment("#");
    const json dumped = jsonOf(scene);
    EXPECT_EQ(dumped["version"], ~0UL);
    EXPECT_EQ(dumped["time"], "now\n");
    EXPECT_EQ(dumped["comments"], json::parse(R"(["# version: 7", "#"])"));
}

TEST(ToolJsonTest, NodesInOrderWithTheirMark) {
    Scene scene;
    scene.createNode("sphere", "b", "a label");
    scene.defineNode("light");
    scene.createNode("cube", "a", "");
    EXPECT_EQ(jsonOf(scene)["nodes"], json::parse(R"([
        {"name": "b", "type": "sphere", "definition": false, "inputs": []},
        {"name": "light", "type": "light", "definition": true, "inputs": []},
        {"name": "a", "type": "cube", "definition": false, "inputs": []}])"));
}

struct DefaultRow {
    AttrType type;
    const char* expected;
};

const DefaultRow defaultRows[] = {
    {AttrType::Null, R"({"type": "Null"})"},
    {AttrType::Bool, R"({"type": "Bool", "value": false})"},
    {AttrType::Int, R"({"type": "Int", "value": 0})"},
    {AttrType::UInt, R"({"type": "UInt", "value": 0})"},
    {AttrType::Real, R"({"type": "Real", "value": 0})"},
    {AttrType::Vec2, R"({"type": "Vec2", "value": [0, 0]})"},
    {AttrType::Vec3, R"({"type": "Vec3", "value": [0, 0, 0]})"},
    {AttrType::Vec4, R"({"type": "Vec4", "value": [0, 0, 0, 0]})"},
    {AttrType::Pos2, R"({"type": "Pos2", "value": [0, 0]})"},
    {AttrType::Pos3, R"({"type": "Pos3", "value": [0, 0, 0]})"},
    {AttrType::Quat, R"({"type": "Quat", "value": [0, 0, 0, 1]})"},
    {AttrType::Rgba, R"({"type": "Rgba", "value": [0, 0, 0, 1]})"},
    {AttrType::Mat3, R"({"type": "Mat3", "value": [1, 0, 0, 0, 1, 0, 0, 0, 1]})"},
    {AttrType::Mat4,
     R"({"type": "Mat4", "value": [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]})"},
    {AttrType::String, R"({"type": "String", "value": ""})"},
    {AttrType::Node, R"({"type": "Node"})"},
    {AttrType::Buffer, R"({"type": "Buffer", "elementType": "Null", "count": 0, "data": []})"},
    {AttrType::Array, R"({"type": "Array", "elementType": "Null", "elements": []})"},
    {AttrType::Object, R"({"type": "Object", "inputs": []})"},
};

TEST(ToolJsonTest, EveryTypeHasItsDefault) {
    ASSERT_EQ(std::size(defaultRows), ko::mirel_sdk::attrTypeCount);
    for (const DefaultRow& row : defaultRows) {
        Scene scene;
        scene.createNode("t", "n", "")->createInput("x", row.type);
        json expected = json::parse(row.expected);
        expected["name"] = "x";
        EXPECT_EQ(inputsOf(scene)[0], expected);
    }
}

TEST(ToolJsonTest, UntouchedElementsAreDumpedButNotCreated) {
    for (const DefaultRow& row : defaultRows) {
        Scene scene;
        Input* const array = scene.createNode("t", "n", "")->createArray("x", row.type);
        array->appendElements(3);
        const json expected = json::parse(row.expected);
        EXPECT_EQ(inputsOf(scene)[0]["elementType"], expected["type"]);
        EXPECT_EQ(inputsOf(scene)[0]["elements"], json({expected, expected, expected}));
        for (unsigned long i = 0; i < 3; ++i)
            EXPECT_FALSE(array->touchedAt(i));
    }
}

TEST(ToolJsonTest, UntouchedElementsAmongTouchedOnes) {
    Scene scene;
    Input* const array = scene.createNode("t", "n", "")->createArray("x", AttrType::Int);
    array->appendElements(5);
    array->inputAt(1)->assign(AttrData::ofInt(7));
    EXPECT_EQ(inputsOf(scene)[0], json::parse(R"(
        {"name": "x", "type": "Array", "elementType": "Int", "elements": [
            {"type": "Int", "value": 0}, {"type": "Int", "value": 7}, {"type": "Int", "value": 0},
            {"type": "Int", "value": 0}, {"type": "Int", "value": 0}]})"));
}

TEST(ToolJsonTest, UntouchedElementsAsTheyWereDeclared) {
    Scene scene;
    Node* const node = scene.createNode("t", "n", "");
    Input* const buffers = node->createArray("buffers", AttrType::Buffer);
    buffers->appendElements(1);
    buffers->declareElements(AttrData::declareBuffer(DataType::Vec3f));
    buffers->appendElements(1);
    Input* const arrays = node->createArray("arrays", AttrType::Array);
    arrays->appendElements(1);
    arrays->declareElements(AttrData::declareArray(AttrType::Real));
    arrays->appendElements(1);
    EXPECT_EQ(inputsOf(scene)[0]["elements"], json::parse(R"([
        {"type": "Buffer", "elementType": "Vec3f", "count": 0, "data": []},
        {"type": "Buffer", "elementType": "Null", "count": 0, "data": []}])"));
    EXPECT_EQ(inputsOf(scene)[1]["elements"], json::parse(R"([
        {"type": "Array", "elementType": "Real", "elements": []},
        {"type": "Array", "elementType": "Null", "elements": []}])"));
}

TEST(ToolJsonTest, ElementsMayDifferInType) {
    Scene scene;
    Input* const array = scene.createNode("t", "n", "")->createInput("x", AttrType::Array);
    array->appendElements(2);
    array->set(AttrData::declareArray(AttrType::Int));
    array->appendElements(1);
    EXPECT_EQ(inputsOf(scene)[0]["elements"], json::parse(R"([
        {"type": "Null"}, {"type": "Null"}, {"type": "Int", "value": 0}])"));
}

TEST(ToolJsonTest, Scalars) {
    EXPECT_EQ(OneInput(AttrData::ofBool(true)).dumped()["value"], true);
    EXPECT_EQ(OneInput(AttrData::ofReal(0.1)).dumped()["value"], 0.1);
    EXPECT_EQ(OneInput(AttrData::ofText("a\"b")).dumped()["value"], "a\"b");
}

TEST(ToolJsonTest, IntegersAreExact) {
    constexpr long least = std::numeric_limits<long>::min();
    EXPECT_EQ(OneInput(AttrData::ofInt(least)).dumped()["value"].get<long>(), least);
    EXPECT_EQ(OneInput(AttrData::ofUInt(~0UL)).dumped()["value"].get<unsigned long>(), ~0UL);
}

TEST(ToolJsonTest, RealsThatAreNoNumbersAreStrings) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const double components[] = {infinity, -infinity, std::nan(""), -0.0};
    const OneInput vector(AttrData::ofComponents(AttrType::Vec4, components));
    EXPECT_TRUE(contains(jsonTextOf(vector.scene), R"("value": ["inf", "-inf", "nan", -0])"));
    EXPECT_EQ(OneInput(AttrData::ofReal(-infinity)).dumped()["value"], "-inf");
}

TEST(ToolJsonTest, ComponentsOfEveryVectorAndMatrix) {
    const AttrType types[] = {AttrType::Vec2, AttrType::Vec3, AttrType::Vec4,
                              AttrType::Pos2, AttrType::Pos3, AttrType::Quat,
                              AttrType::Rgba, AttrType::Mat3, AttrType::Mat4};
    double components[16];
    for (int i = 0; i < 16; ++i)
        components[i] = i + 0.5;
    for (const AttrType type : types) {
        const std::vector<double> expected(components,
                                           components + ko::mirel_sdk::componentCount(type));
        const OneInput vector(AttrData::ofComponents(type, components));
        EXPECT_EQ(vector.dumped()["value"], json(expected)) << attrTypeName(type);
    }
}

template <class T>
void expectLimits(DataType type) {
    const std::vector<T> limits{std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max(),
                                T(1)};
    const json dumped = OneInput(bufferOf(type, limits)).dumped();
    EXPECT_EQ(dumped["elementType"], dataTypeName(type));
    EXPECT_EQ(dumped["count"], 3);
    EXPECT_EQ(dumped["data"].get<std::vector<T>>(), limits) << dataTypeName(type);
}

TEST(ToolJsonTest, BuffersOfEveryScalarType) {
    expectLimits<signed char>(DataType::Char);
    expectLimits<unsigned char>(DataType::Byte);
    expectLimits<std::int16_t>(DataType::Int16);
    expectLimits<std::int32_t>(DataType::Int32);
    expectLimits<std::int64_t>(DataType::Int64);
    expectLimits<std::uint16_t>(DataType::UInt16);
    expectLimits<std::uint32_t>(DataType::UInt32);
    expectLimits<std::uint64_t>(DataType::UInt64);
    expectLimits<std::uint64_t>(DataType::Ptr);
    expectLimits<float>(DataType::Float);
    expectLimits<double>(DataType::Double);
}

TEST(ToolJsonTest, BufferOfTruthValues) {
    const OneInput buffer(bufferOf<unsigned char>(DataType::Bool, {0, 1, 255}));
    EXPECT_EQ(buffer.dumped()["data"], json::parse("[false, true, true]"));
}

TEST(ToolJsonTest, FloatsAreShortestAsFloats) {
    const float infinity = std::numeric_limits<float>::infinity();
    const OneInput buffer(bufferOf<float>(DataType::Float, {0.1F, infinity, -infinity, -0.0F}));
    EXPECT_TRUE(contains(jsonTextOf(buffer.scene), R"("data": [0.1, "inf", "-inf", -0])"));
}

TEST(ToolJsonTest, BufferDataIsFlat) {
    const json vectors = OneInput(bufferOf<float>(DataType::Vec3f, {1, 2, 3, 4, 5, 6})).dumped();
    EXPECT_EQ(vectors, json::parse(R"({"name": "x", "type": "Buffer", "elementType": "Vec3f",
                                       "count": 2, "data": [1, 2, 3, 4, 5, 6]})"));
    const json colours = OneInput(bufferOf<unsigned char>(DataType::Rgb8, {0, 128, 255})).dumped();
    EXPECT_EQ(colours["data"], json::parse("[0, 128, 255]"));
    EXPECT_EQ(colours["count"], 1);
}

TEST(ToolJsonTest, ObjectsAndArraysNest) {
    Scene scene;
    Input* const object = scene.createNode("t", "n", "")->createInput("o", AttrType::Object);
    Input* const list = object->createArray("list", AttrType::Object);
    list->appendElements(2);
    list->inputAt(1)->createInput("deep", AttrType::Bool);
    object->createInput("after", AttrType::Null);
    EXPECT_EQ(inputsOf(scene)[0], json::parse(R"(
        {"name": "o", "type": "Object", "inputs": [
            {"name": "list", "type": "Array", "elementType": "Object", "elements": [
                {"type": "Object", "inputs": []},
                {"type": "Object", "inputs": [{"name": "deep", "type": "Bool", "value": false}]}]},
            {"name": "after", "type": "Null"}]})"));
}

TEST(ToolJsonTest, ConnectionsAndReferencesStandBesideAnyValue) {
    Scene scene;
    Node* const node = scene.createNode("t", "n", "");
    Node* const other = scene.createNode("tex", "o\xff", "");
    for (const AttrType type :
         {AttrType::Null, AttrType::Real, AttrType::Array, AttrType::Object}) {
        Input* const input = node->createInput(attrTypeName(type), type);
        input->connect(other->output("out"));
        input->setNode(node);
    }
    addValue(node, "buffer", AttrData::ofBuffer(DataType::Float, 1))->setNode(other);
    const json inputs = inputsOf(scene);
    EXPECT_EQ(inputs[0], json::parse("{\"name\": \"Null\", \"type\": \"Node\", \"connection\": "
                                     "\"o\xef\xbf\xbd.out\", \"node\": \"n\"}"));
    EXPECT_EQ(inputs[1]["value"], 0);
    for (unsigned long i = 0; i < 4; ++i) {
        EXPECT_EQ(inputs[i]["connection"], "o\xef\xbf\xbd.out");
        EXPECT_EQ(inputs[i]["node"], "n");
    }
    EXPECT_EQ(inputs[4]["node"], "o\xef\xbf\xbd");
    EXPECT_FALSE(inputs[4].contains("connection"));
}

TEST(ToolJsonTest, NamesAreEscaped) {
    Scene scene;
    scene.createNode("t\"", "n\n", "")->createInput("\xff\\", AttrType::Null);
    const json node = jsonOf(scene)["nodes"][0];
    EXPECT_EQ(node["type"], "t\"");
    EXPECT_EQ(node["name"], "n\n");
    EXPECT_EQ(node["inputs"][0]["name"], "\xef\xbf\xbd\\");
}

// --- Depth and breadth --------------------------------------------------------------------------

Input* nest(Node* node, unsigned long levels) {
    Input* input = node->createInput("o", AttrType::Object);
    for (unsigned long i = 1; i < levels; ++i)
        input = input->createInput("o", AttrType::Object);
    return input;
}

// Runs `task` on a thread with a small stack.
void onSmallStack(std::function<void()> task) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256UL * 1024);
    pthread_t thread{};
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &task), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(ToolDumpTest, DepthNeedsNoStackAndNoWideLines) {
    constexpr unsigned long levels = 100'000;
    Scene scene;
    nest(scene.createNode("t", "n", ""), levels)->createInput("x", AttrType::Int);
    onSmallStack([&scene] {
        const std::string dumped = jsonTextOf(scene);
        EXPECT_TRUE(contains(dumped, R"({"name": "x", "type": "Int", "value": 0}]})"));
        EXPECT_LT(dumped.size(), levels * 120);
        const std::string text = textOf(scene);
        EXPECT_TRUE(contains(text, " x  Int  0\n"));
        EXPECT_LT(text.size(), levels * 120);
    });
}

TEST(ToolDumpTest, LongNamesDoNotWidenTheLinesBesideThem) {
    Scene scene;
    Node* const node = scene.createNode("t", "n", "");
    node->createInput(String(std::string(1'000'000, 'a')), AttrType::Int);
    for (unsigned long i = 0; i < 1000; ++i)
        node->createInput(String(i + 1), AttrType::Int);
    EXPECT_LT(textOf(scene).size(), 1'100'000);
}

// --- Outputs that fail --------------------------------------------------------------------------

constexpr unsigned long lengthy = 200'000;

void addNodes(Scene& scene) {
    for (unsigned long i = 0; i < lengthy; ++i)
        scene.createNode("t", String(i), "");
}

void addInputs(Scene& scene) {
    Node* const node = scene.createNode("t", "n", "");
    for (unsigned long i = 0; i < lengthy; ++i)
        node->createInput(String(i + 1), AttrType::Int);
}

void addObjects(Scene& scene) { nest(scene.createNode("t", "n", ""), lengthy); }

void addElements(Scene& scene) {
    scene.createNode("t", "n", "")->createArray("x", AttrType::Int)->appendElements(lengthy);
}

void addComments(Scene& scene) {
    for (unsigned long i = 0; i < lengthy; ++i)
        scene.pushFileComment(String(i));
}

void addBuffer(Scene& scene) {
    addValue(scene.createNode("t", "n", ""), "x", AttrData::ofBuffer(DataType::Byte, lengthy));
}

void addLongName(Scene& scene) { scene.createNode("t", String(std::string(lengthy, 'n')), ""); }

// A dump into a stream that takes nothing, which is not flushed at its end.
void dumpInVain(const Scene& scene, bool asJson) {
    std::FILE* const full = std::fopen("/dev/full", "w");
    std::setvbuf(full, nullptr, _IONBF, 0);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> guard(full, std::fclose);
    kvt::OutputStream out(full);
    if (asJson) {
        kvt::dumpJson(out, scene, true);
    } else {
        kvt::dumpText(out, scene, true, kvt::noColours);
    }
}

TEST(ToolDumpTest, StopsAtTheFirstWriteThatFails) {
    for (const auto add : {addNodes, addInputs, addObjects, addComments, addLongName}) {
        Scene scene;
        add(scene);
        EXPECT_THROW(dumpInVain(scene, false), kvt::WriteFailure);
        EXPECT_THROW(dumpInVain(scene, true), kvt::WriteFailure);
    }
}

// The text form shows their beginning.
TEST(ToolDumpTest, StopsAmongElementsAndNumbersOfBuffersToo) {
    for (const auto add : {addElements, addBuffer}) {
        Scene scene;
        add(scene);
        EXPECT_THROW(dumpInVain(scene, true), kvt::WriteFailure);
    }
}

// --- Text ---------------------------------------------------------------------------------------

TEST(ToolDumpTextTest, Header) {
    Scene scene;
    EXPECT_EQ(textOf(scene), "version   1\nnodes     0\n");
    scene.setFileTime("today");
    scene.pushFileComment("# one\t\x1b");
    scene.pushFileComment("# two");
    EXPECT_EQ(textOf(scene, false),
              "version   1\n"
              "time      today\n"
              "nodes     0, and then reading stopped\n"
              "comments  # one\\t\\x1b\n"
              "          # two\n");
}

TEST(ToolDumpTextTest, NodesWithAlignedInputs) {
    Scene scene;
    Node* const node = scene.createNode("sphere", "ball", "");
    Node* const texture = scene.createNode("image", "wood", "");
    scene.defineNode("light");
    addValue(node, "radius", AttrData::ofReal(1.5));
    addValue(node, "on", AttrData::ofBool(true));
    const double position[] = {0, 1, -2};
    addValue(node, "position", AttrData::ofComponents(AttrType::Pos3, position))
        ->connect(texture->output("uv"));
    addValue(node, "file", AttrData::ofText("a \"b\""));
    node->createInput("material", AttrType::Node)->setNode(texture);
    node->createInput("tint", AttrType::Null)->connect(texture->output("colour"));
    node->createInput("m", AttrType::Mat3);
    EXPECT_EQ(textOf(scene), R"(version   1
nodes     3

sphere ball
    radius    Real    1.5
    on        Bool    true
    position  Pos3    (0 1 -2) <- wood.uv
    file      String  "a \"b\""
    material  Node    -> wood
    tint      Null    <- wood.colour
    m         Mat3    (1 0 0) (0 1 0) (0 0 1)

image wood

light light (definition)
)");
}

TEST(ToolDumpTextTest, ObjectsAndArraysAreNested) {
    Scene scene;
    Input* const object = scene.createNode("t", "n", "")->createInput("o", AttrType::Object);
    Input* const list = object->createArray("list", AttrType::Int);
    list->appendElements(12);
    list->inputAt(1)->assign(AttrData::ofInt(7));
    object->createInput("empty", AttrType::Array);
    object->createInput("thing", AttrType::Object);
    EXPECT_TRUE(contains(textOf(scene), R"(
t n
    o  Object
        list   Array   Int[12]
            [0]      Int  0
            [1]      Int  7
            [2..11]  Int  0
        empty  Array   Null[0]
        thing  Object
)")) << textOf(scene);
}

TEST(ToolDumpTextTest, BuffersAreShortened) {
    std::vector<float> numbers;
    for (int i = 0; i < 30; ++i)
        numbers.push_back(static_cast<float>(i) / 2);
    EXPECT_TRUE(contains(OneInput(bufferOf(DataType::Float, numbers)).text(),
                         "Float[30] 0 0.5 1 1.5 2 2.5 3 3.5 4 ...\n"));
    EXPECT_TRUE(contains(OneInput(bufferOf(DataType::Vec3f, numbers)).text(),
                         "Vec3f[10] (0 0.5 1) (1.5 2 2.5) (3 3.5 4) ...\n"));
    EXPECT_TRUE(contains(OneInput(AttrData::ofBuffer(DataType::Mat4f, 1)).text(),
                         "Mat4f[1] (0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0)\n"));
    EXPECT_TRUE(contains(OneInput(AttrData::ofBuffer(DataType::Byte, 2)).text(), "Byte[2] 0 0\n"));
    EXPECT_TRUE(contains(OneInput(AttrData::ofBuffer(DataType::Byte, 0)).text(), "Byte[0]\n"));
}

TEST(ToolDumpTextTest, LongTextsAreShortened) {
    const std::string text = OneInput(AttrData::ofText(std::string(100'000, 'y'))).text();
    EXPECT_LT(text.size(), 200);
    EXPECT_TRUE(contains(text, "yyy\"... (100000 bytes)\n")) << text;
}

TEST(ToolDumpTextTest, ColoursOnlyFromThePalette) {
    const OneInput input(AttrData::ofText("\x1b[31m"));
    input.input->setNode(input.node);
    EXPECT_FALSE(contains(input.text(), "\x1b"));
    const std::string coloured = written([&](kvt::OutputStream& out) {
        kvt::dumpText(out, input.scene, true, kvt::terminalColours);
    });
    EXPECT_TRUE(contains(coloured, "\x1b["));
    EXPECT_FALSE(contains(coloured, "\x1b[31m"));
}

// --- The program --------------------------------------------------------------------------------

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

unsigned long lineCount(const std::string& text) {
    return static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n'));
}

// Runs the program in a directory of its own.
class ToolProgramTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(mkdtemp(directory_.data())); }
    void TearDown() override { std::system(("rm -rf " + directory_).c_str()); }

    void write(const std::string& name, std::string_view text) const {
        std::ofstream(directory_ + '/' + name, std::ios::binary) << text;
    }

    // `arguments` and `redirections` as a shell reads them.
    Outcome run(const std::string& arguments, const std::string& input = "",
                const std::string& redirections = "< .in > .out 2> .err") const {
        write(".in", input);
        write(".out", "");
        write(".err", "");
        const std::string command =
            "cd " + directory_ + " && '" KVT_TOOL_PATH "' " + arguments + ' ' + redirections;
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readAll(directory_ + "/.out"),
                readAll(directory_ + "/.err")};
    }

    std::string directory_ = ::testing::TempDir() + "kvt-tool-" + std::string(6, 'X');
};

constexpr const char* goodDocument = "sphere s:\n.x = 1;\n";
constexpr const char* warningDocument = "sphere s:\n.x |= a.b;\n";
constexpr const char* wrongTypeDocument = "sphere s:\n.x = 1;\n.x = \"a\";\n.y = 2;\n";
constexpr const char* brokenDocument = "sphere s:\n.x = 1;\n.y = ;\n.z = 3;\n";
// Its first token is already invalid.
constexpr const char* invalidDocument = "$\n";

TEST_F(ToolProgramTest, VersionAndHelp) {
    const Outcome version = run("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "kvt " KVT_VERSION "\n");
    EXPECT_EQ(version.err, "");
    for (const char* const arguments : {"--help", "check --help", "dump --help", "-h"}) {
        const Outcome help = run(arguments);
        EXPECT_EQ(help.status, 0);
        EXPECT_TRUE(contains(help.out, "kvt")) << help.out;
        const bool isOfCommand = contains(arguments, "check") || contains(arguments, "dump");
        EXPECT_EQ(contains(help.out, "--buffer-limit BYTES"), isOfCommand) << help.out;
        EXPECT_EQ(contains(help.out, "--element-limit N"), isOfCommand) << help.out;
        EXPECT_EQ(help.err, "");
    }
}

TEST_F(ToolProgramTest, WrongArgumentsAreOneLine) {
    write("a", goodDocument);
    const char* const wrong[] = {
        "",
        "frobnicate a",
        "check",
        "dump",
        "dump a a",
        "dump --xml a",
        "check --json a",
        "--werror check a",
        "dump --json=maybe a",
        "--frobnicate",
        "'' a",
        "'a\nb' a",
        "check --",
        "dump --",
        "check - a -",
        "check -- - -",
        "check --element-limit",
        "dump --element-limit -1 a",
        "dump --element-limit= a",
        "dump --element-limit 1k a",
        "dump --element-limit ' 1' a",
        "dump --element-limit 0x10 a",
        "check --buffer-limit 18446744073709551616 a",
        "check --buffer-limit 1 --buffer-limit 2 a",
        "check --buffer-limit [1 a",
    };
    for (const char* const arguments : wrong) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_EQ(lineCount(outcome.err), 1) << outcome.err;
        EXPECT_EQ(outcome.err.rfind("kvt: error: ", 0), 0) << outcome.err;
    }
}

TEST_F(ToolProgramTest, WrongArgumentsAreNamed) {
    EXPECT_TRUE(contains(run("").err, "a command is required"));
    EXPECT_TRUE(contains(run("frobnicate a").err, "unknown command: frobnicate"));
    EXPECT_TRUE(contains(run("check --bogus a").err, "unknown option: --bogus"));
    EXPECT_TRUE(contains(run("dump a b").err, "unexpected argument: b"));
    EXPECT_TRUE(contains(run("check").err, "FILE is required"));
    EXPECT_TRUE(contains(run("check --").err, "FILE is required"));
    EXPECT_TRUE(contains(run("--").err, "a command is required"));
    EXPECT_TRUE(contains(run("check - -").err, "- may be given once"));
    EXPECT_TRUE(contains(run("dump --buffer-limit 1k a").err,
                         "--buffer-limit: not a whole number below 2^64: 1k"));
}

TEST_F(ToolProgramTest, WrongArgumentsAreEscaped) {
    EXPECT_TRUE(contains(run("check --b\x1b\xe2\x80\xae").err,
                         R"(unknown option: --b\x1b\xe2\x80\xae (see)"));
    EXPECT_TRUE(contains(run("'\xff\n'").err, R"(unknown command: \xff\n (see)"));
    EXPECT_TRUE(contains(run("check --buffer-limit '[\x9b' a").err, R"(2^64: [\x9b (see)"));
}

TEST_F(ToolProgramTest, LimitsAreThoseOfTheScene) {
    write("a", "t n:\n.b = byte[10] {1};\n.c = byte[10] {1};\n.a[3] = 1;\n.d[1] = 1;\n");
    for (const std::string command : {"check", "dump", "dump --json"}) {
        EXPECT_EQ(run(command + " --buffer-limit 10 --element-limit=6 a").status, 0);
        const Outcome buffer = run(command + " --buffer-limit 9 a");
        EXPECT_EQ(buffer.status, 1);
        EXPECT_TRUE(contains(buffer.err, "invalid buffer element count: ")) << buffer.err;
        const Outcome elements = run(command + " a --element-limit 5");
        EXPECT_EQ(elements.status, 1);
        EXPECT_TRUE(contains(elements.err, "array too large: n.d")) << elements.err;
    }
    EXPECT_EQ(run("check --element-limit 010 a").status, 0);  // ten
    EXPECT_EQ(run("check --buffer-limit 0 a").status, 1);
    EXPECT_EQ(run("check --buffer-limit 18446744073709551615 a").status, 0);
}

TEST_F(ToolProgramTest, CheckEndsWithTheStateOfTheDocument) {
    write("good", goodDocument);
    write("warning", warningDocument);
    write("wrong", wrongTypeDocument);
    write("broken", brokenDocument);
    write("invalid", invalidDocument);
    EXPECT_EQ(run("check good").status, 0);
    EXPECT_EQ(run("check --werror good").status, 0);
    EXPECT_EQ(run("check warning").status, 0);
    EXPECT_EQ(run("check --werror warning").status, 1);
    EXPECT_EQ(run("check wrong").status, 1);
    EXPECT_EQ(run("check broken").status, 1);
    EXPECT_EQ(run("check invalid").status, 1);
}

TEST_F(ToolProgramTest, CheckReportsEveryFile) {
    write("broken", brokenDocument);
    write("good", goodDocument);
    write("warning", warningDocument);
    const Outcome outcome = run("check broken missing good . warning");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "broken:3:5: error: BAD TOKEN (3,5): expected '(scalar|buffer|reference)', "
              "found ';'.\n"
              "missing: error: cannot open: No such file or directory\n"
              ".: error: is a directory\n"
              "warning: warning: Cannot connect nonexistent node a to s.x.\n");
}

TEST_F(ToolProgramTest, CheckTakesStandardInputAmongFiles) {
    write("good", goodDocument);
    const Outcome outcome = run("check good -", invalidDocument);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "-:1:0: error: INVALID TOKEN (1,0): '$'\n");
}

TEST_F(ToolProgramTest, UnusualFileNames) {
    for (const char* const name : {"check", "dump", "[a]", "[a,b]", "{}", "a b", "%s", "-x"}) {
        write(name, brokenDocument);
        const Outcome outcome = run(std::string("check -- '") + name + '\'');
        EXPECT_EQ(outcome.status, 1) << name;
        EXPECT_EQ(outcome.err.rfind(std::string(name) + ":3:5: error: ", 0), 0) << outcome.err;
    }
    EXPECT_EQ(run("dump '[a]'").status, 1);
    EXPECT_EQ(run("check check dump").status, 1);
}

TEST_F(ToolProgramTest, DiagnosticsAreOneLineWhateverTheDocumentHolds) {
    write("a", "sphere s:\n.x |= a\xfe.b;\n.y = \xc3\xbc;\n");
    write("b", "sphere s:\n.x = 1;\n.x = \"a\nb\x1b[2J\";\n\x01 s = \"a\n\";\n");
    for (const char* const file : {"a", "b"}) {
        const Outcome outcome = run(std::string("check ") + file);
        EXPECT_FALSE(outcome.err.empty());
        std::istringstream lines(outcome.err);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_EQ(line.rfind(std::string(file) + ':', 0), 0) << line;
            EXPECT_FALSE(contains(line, "\x1b")) << line;
            EXPECT_NO_THROW(static_cast<void>(json(line).dump())) << line;  // valid UTF-8
        }
    }
    EXPECT_TRUE(contains(run("check a").err, R"(node a\xfe to s.x)"));
    EXPECT_TRUE(contains(run("check a").err, "node \xc3\xbc to s.y"));
}

TEST_F(ToolProgramTest, DumpWritesTheScene) {
    write("good", goodDocument);
    const Outcome text = run("dump good");
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(text.out, "version   1\nnodes     1\n\nsphere s\n    x  Int  1\n");
    const json expected = json::parse(R"({
        "ok": true, "version": 1, "time": "", "comments": [], "nodes": [
            {"name": "s", "type": "sphere", "definition": false, "inputs": [
                {"name": "x", "type": "Int", "value": 1}]}]})");
    EXPECT_EQ(json::parse(run("dump --json good").out), expected);
    EXPECT_EQ(json::parse(run("dump - --json", goodDocument).out), expected);
}

TEST_F(ToolProgramTest, DumpWritesTheSceneSoFar) {
    write("broken", brokenDocument);
    const Outcome outcome = run("dump --json broken");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(lineCount(outcome.err), 1);
    const json dumped = json::parse(outcome.out);
    EXPECT_EQ(dumped["ok"], false);
    EXPECT_EQ(dumped["nodes"][0]["inputs"][0]["value"], 1);
    EXPECT_TRUE(contains(run("dump broken").out, "reading stopped"));
}

TEST_F(ToolProgramTest, DumpEndsWellWhenTheDocumentWasReadToItsEnd) {
    const Outcome outcome = run("dump --json -", wrongTypeDocument);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(lineCount(outcome.err), 1);
    EXPECT_EQ(json::parse(outcome.out)["ok"], true);
}

TEST_F(ToolProgramTest, DumpReportsAnExceptionLikeAnyError) {
    const Outcome outcome = run("dump --json -", invalidDocument);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "-:1:0: error: INVALID TOKEN (1,0): '$'\n");
    EXPECT_EQ(json::parse(outcome.out)["ok"], false);
}

TEST_F(ToolProgramTest, DumpOfAFileThatCannotBeOpenedIsNothing) {
    for (const char* const arguments : {"dump missing", "dump --json missing", "dump ."}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(lineCount(outcome.err), 1);
    }
}

TEST_F(ToolProgramTest, ReadErrorsAreReported) {
    const Outcome dumped = run("dump --json -", "", "< . > .out 2> .err");
    EXPECT_EQ(dumped.status, 2);
    EXPECT_EQ(dumped.err, "-: error: cannot read: Is a directory\n");
    EXPECT_EQ(json::parse(dumped.out)["nodes"], json::array());
    EXPECT_EQ(run("check -", "", "< . 2> .err").status, 2);
}

TEST_F(ToolProgramTest, AFullDiskIsReportedOnce) {
    write("good", goodDocument);
    for (const char* const arguments : {"dump good", "dump --json good", "--version", "--help"}) {
        const Outcome outcome = run(arguments, "", "> /dev/full 2> .err");
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.err, "kvt: error: cannot write the output: No space left on device\n");
    }
}

TEST_F(ToolProgramTest, DiagnosticsComeBeforeTheDump) {
    write("broken", brokenDocument);
    const Outcome outcome = run("dump broken", "", "> .out 2>&1");
    EXPECT_EQ(outcome.out.rfind("broken:3:5: error: ", 0), 0) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "\nversion   1\n")) << outcome.out;
}

TEST_F(ToolProgramTest, NoColoursInFiles) {
    write("broken", brokenDocument);
    const Outcome outcome = run("dump broken");
    EXPECT_FALSE(contains(outcome.out + outcome.err, "\x1b"));
}

}  // namespace
