// Golden documents: each is read as a text and as a file, and its messages and its scene are
// compared with the files beside it. See documents/README.md.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "reading.h"

namespace {

namespace fs = std::filesystem;
using ko::File;
using ko::mirel_sdk::impl::parseKvt;
using ko::mirel_sdk::impl::Scene;
using kvt::test::collect;
using kvt::test::Reading;

fs::path fileOf(const std::string& name, const char* extension) {
    return fs::path(KVT_TEST_DOCUMENTS) / (name + extension);
}

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream) << file << " cannot be opened";
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The names of the files in the folder that have this extension, without it.
std::set<std::string> namesOf(const char* extension) {
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(KVT_TEST_DOCUMENTS)) {
        if (entry.path().extension() == extension) names.insert(entry.path().stem().string());
    }
    return names;
}

bool hasScene(const std::string& name) { return name.rfind("no_scene", 0) != 0; }

void expectScene(const Scene& scene, bool ok, const std::string& name) {
    const auto expected = nlohmann::json::parse(contents(fileOf(name, ".json")));
    const auto found = nlohmann::json::parse(kvt::test::jsonOf(scene, ok));
    EXPECT_EQ(expected, found) << "to get there: " << nlohmann::json::diff(expected, found).dump(1);
}

class Documents : public testing::TestWithParam<std::string> {
  protected:
    template <class Read>
    static void expectReading(Read read) {
        Scene scene;
        kvt::test::registerNodeTypes(scene);
        const Reading reading = read(hasScene(GetParam()) ? &scene : nullptr);
        EXPECT_EQ(contents(fileOf(GetParam(), ".log")), reading.log);
        if (hasScene(GetParam())) expectScene(scene, reading.ok, GetParam());
    }
};

TEST_P(Documents, AreReadAsExpected) {
    {
        SCOPED_TRACE("as a text");
        const std::string text = contents(fileOf(GetParam(), ".kvt"));
        expectReading([&text](Scene* scene) { return kvt::test::readText(scene, text); });
    }
    {
        SCOPED_TRACE("as a file");
        const std::string path = fileOf(GetParam(), ".kvt").string();
        expectReading([&path](Scene* scene) {
            return collect([&] { return parseKvt(scene, File::open(path.c_str()), false); });
        });
    }
}

INSTANTIATE_TEST_SUITE_P(, Documents, testing::ValuesIn(namesOf(".kvt")),
                         [](const auto& document) { return document.param; });

TEST(DocumentFiles, StandTogether) {
    const std::set<std::string> documents = namesOf(".kvt");
    EXPECT_EQ(documents, namesOf(".log"));
    std::set<std::string> withScene;
    std::copy_if(documents.begin(), documents.end(), std::inserter(withScene, withScene.end()),
                 hasScene);
    EXPECT_EQ(withScene, namesOf(".json"));
}

// --- Every message has its document

// A line that the reader may log: "%d" stands for a number, "%c" for a character, "%w" for a word,
// "%s" for any text.
struct Format {
    const char* name;
    const char* line;
};

std::ostream& operator<<(std::ostream& out, const Format& format) { return out << format.line; }

constexpr Format formats[] = {
    // The lexer's.
    {"InvalidToken", "error: INVALID TOKEN (%d,%d): '%c'"},
    {"InvalidTokenThrown", "thrown: INVALID TOKEN (%d,%d): '%c'"},
    {"InvalidParenListToken", "error: INVALID PAREN LIST TOKEN (%d,%d): '%c'"},
    {"InvalidBraceListToken", "error: INVALID BRACE LIST TOKEN (%d,%d): '%c'"},
    {"InvalidBracketListToken", "error: INVALID BRACKET LIST TOKEN (%d,%d): '%c'"},
    {"InvalidBracketListTokenThrown", "thrown: INVALID BRACKET LIST TOKEN (%d,%d): '%c'"},
    {"UnexpectedEofParens", "error: %s, found 'UNEXPECTED EOF while parsing PARENS'."},
    {"UnexpectedEofBraces", "error: %s, found 'UNEXPECTED EOF while parsing BRACES'."},
    {"UnexpectedEofBrackets", "error: %s, found 'UNEXPECTED EOF while parsing BRACKETS'."},
    {"UnexpectedEofString", "error: %s, found 'UNEXPECTED EOF while parsing STRING'."},
    // Tokens that a statement does not take.
    {"ExpectedEquals", "error: BAD TOKEN (%d,%d): expected '=', found '%s'."},
    {"ExpectedSemicolon", "error: BAD TOKEN (%d,%d): expected ';', found '%s'."},
    {"ExpectedNullOrPath", "error: BAD TOKEN (%d,%d): expected '(null|path)', found '%s'."},
    {"ExpectedValue",
     "error: BAD TOKEN (%d,%d): expected '(scalar|buffer|reference)', found '%s'."},
    {"UnrecognizedToken", "error: PARSE ERROR (%d,%d): unrecognized token '%s'.."},
    {"NoScene", "error: PARSE ERROR (%d,%d): no scene to read into."},
    // The target of an assignment.
    {"WithNodeNotSet", "error: PARSE ERROR (%d,%d): 'with' node not set (input: %s)."},
    {"NodeNotFound", "error: PARSE ERROR (%d,%d): node '%s' not found ."},
    {"InvalidIndex", "error: PARSE ERROR (%d,%d): invalid input array index: [%s]."},
    {"InputNotFound", "error: PARSE ERROR (%d,%d): input '%s' not found.."},
    {"ArrayTooLarge", "error: array too large: %s"},
    {"CannotAssign", "error: TYPE ERROR (%d,%d): cannot assign %w to %w @ %s."},
    {"CannotAssignElements", "error: TYPE ERROR (%d,%d): cannot assign %w[] to %w @ %s."},
    // Values.
    {"WrongType", "error: TYPE ERROR (%d,%d): expected %w @ %s but found %s."},
    {"NarrowType", "warning: TYPE WARNING (%d,%d): narrowing %w to %w @ %s."},
    {"NoEnumValue", "warning: ENUM WARNING (%d,%d): setting non-existent enum value '%s' @ %s."},
    {"InvalidCount", "error: PARSE ERROR (%d,%d): invalid buffer element count: [%s]."},
    {"CannotAdd", "error: BUFFER ERROR (%d,%d): Cannot add %s @ index %d of %w[%d].."},
    {"TooFewElements", "warning: Too few elements (%d) for %w[%d] buffer, remainder set to zero."},
    {"FailedToRead", "error: PARSE ERROR (%d,%d): Failed to read '%w' buffer.."},
    {"CompactBytes", "error: PARSE ERROR (%d,%d): compact bytes: %s."},
    {"CompactBlock", "error: PARSE ERROR (%d,%d): compact block: %s."},
    // The header and the end of a document.
    {"VersionComment", "warning: Failed to parse KVT version comment: #%s"},
    {"InvalidOutput", "warning: Invalid output: %s."},
    {"NoNodeToConnect", "warning: Cannot connect nonexistent node %w to %s."},
    {"NoOutputToConnect", "warning: Cannot connect nonexistent output %s to %s."},
    {"NoNodeToAssign", "warning: Cannot assign nonexistent node %w to %s."},
};

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }
bool isWordCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

// The characters at the start of `text` that `belongs` accepts.
template <class Belongs>
std::size_t run(std::string_view text, Belongs belongs) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), belongs) -
                                    text.begin());
}

bool matches(std::string_view line, std::string_view format) {
    const std::size_t literal = std::min(format.find('%'), format.size());
    if (line.substr(0, literal) != format.substr(0, literal)) return false;
    line.remove_prefix(literal);
    format.remove_prefix(literal);
    if (format.empty()) return line.empty();
    const char placeholder = format[1];
    format.remove_prefix(2);
    if (placeholder == 's') {
        for (std::size_t length = 0; length <= line.size(); ++length)
            if (matches(line.substr(length), format)) return true;
        return false;
    }
    const std::size_t length = placeholder == 'd'   ? run(line, isDigit)
                               : placeholder == 'w' ? run(line, isWordCharacter)
                                                    : std::min<std::size_t>(1, line.size());
    return length > 0 && matches(line.substr(length), format);
}

// The lines of all logs that are messages.
std::vector<std::string> allMessages() {
    std::vector<std::string> messages;
    for (const std::string& name : namesOf(".log")) {
        std::istringstream log(contents(fileOf(name, ".log")));
        for (std::string line; std::getline(log, line);)
            if (line != "ok" && line != "failed") messages.push_back(line);
    }
    return messages;
}

class Formats : public testing::TestWithParam<Format> {};

TEST_P(Formats, HaveADocument) {
    const std::vector<std::string> messages = allMessages();
    EXPECT_TRUE(
        std::any_of(messages.begin(), messages.end(),
                    [](const std::string& message) { return matches(message, GetParam().line); }))
        << "no document provokes " << GetParam();
}

INSTANTIATE_TEST_SUITE_P(, Formats, testing::ValuesIn(formats),
                         [](const auto& format) { return std::string(format.param.name); });

TEST(DocumentFiles, HoldOnlyKnownMessages) {
    for (const std::string& message : allMessages()) {
        EXPECT_TRUE(
            std::any_of(std::begin(formats), std::end(formats),
                        [&message](const Format& format) { return matches(message, format.line); }))
            << message;
    }
}

// The texts between double quotes in C++ code; what is escaped in them stays so.
std::vector<std::string> literalsOf(std::string_view code) {
    std::vector<std::string> literals;
    for (std::size_t at = 0; at < code.size(); ++at) {
        const char opening = code[at];
        if (code.substr(at, 2) == "//") at = std::min(code.find('\n', at), code.size() - 1);
        const bool isSeparator = opening == '\'' && at > 0 && isDigit(code[at - 1]);
        if (isSeparator || (opening != '"' && opening != '\'')) continue;
        const std::size_t start = ++at;
        while (code[at] != opening)
            at += code[at] == '\\' ? 2 : 1;
        if (opening == '"') literals.emplace_back(code.substr(start, at - start));
    }
    return literals;
}

// Whether a literal of the reader's is part of a message: words or something to fill in.
bool isMessage(const std::string& literal) {
    return literal.find_first_of(" %") != std::string::npos;
}

// The message as it is spelt in the source, anywhere in a line.
std::string asFormat(std::string literal) {
    for (std::size_t at = 0; (at = literal.find("%lu", at)) != std::string::npos;)
        literal.replace(at, 3, "%d");
    return "%s" + literal + "%s";
}

TEST(DocumentFiles, HoldAllThatTheReaderSays) {
    const std::vector<std::string> messages = allMessages();
    const std::string source = contents(fs::path(KVT_SOURCE_DIR) / "src" / "kvtparser.cpp");
    std::size_t checked = 0;
    for (const std::string& literal : literalsOf(source)) {
        if (!isMessage(literal)) continue;
        ++checked;
        EXPECT_TRUE(std::any_of(
            messages.begin(), messages.end(),
            [format = asFormat(literal)](const auto& message) { return matches(message, format); }))
            << "no document provokes " << literal;
    }
    EXPECT_LT(20U, checked);
}

}  // namespace
