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
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/messages.h"
#include "reading.h"

namespace {

namespace fs = std::filesystem;
using ko::File;
using ko::Message;
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

// --- Every message of the registry has its document

// What only a program can provoke, which no document can.
bool isOfPrograms(Message message) {
    return message == Message::NotCompact || message == Message::WrongAccess ||
           message == Message::InconsistentBuffer;
}

std::vector<Message> messagesOfDocuments() {
    std::vector<Message> ofDocuments;
    for (std::uint32_t i = 0; i < ko::messageCount; ++i)
        if (!isOfPrograms(Message(i))) ofDocuments.push_back(Message(i));
    return ofDocuments;
}

// As a log shows it, with anything before and after it: a token's message is told inside others.
std::string shownFormat(const ko::MessageRow& row) {
    std::string format = row.format;
    for (std::size_t at = 0; (at = format.find("%lu", at)) != std::string::npos;)
        format.replace(at, 3, "%d");
    const std::string frame = row.frame ? row.frame + std::string(" (%d,%d): ") : "";
    return "%s" + frame + format + "%s";
}

class RegisteredMessages : public testing::TestWithParam<Message> {};

TEST_P(RegisteredMessages, HaveADocument) {
    const std::vector<std::string> messages = allMessages();
    const ko::MessageRow& row = rowOf(GetParam());
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(),
                            [format = shownFormat(row)](const std::string& message) {
                                return matches(message, format);
                            }))
        << "no document provokes " << row.code;
}

INSTANTIATE_TEST_SUITE_P(, RegisteredMessages, testing::ValuesIn(messagesOfDocuments()),
                         [](const auto& message) {
                             std::string name = rowOf(message.param).code;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST(MessageRegistry, HasACodeForEachThatIsLikeNoOther) {
    std::set<std::string> codes;
    for (const ko::MessageRow& row : ko::messages::rows) {
        const std::string_view code = row.code;
        EXPECT_TRUE(codes.emplace(code).second) << code;
        EXPECT_EQ(code.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"), std::string_view::npos)
            << code;
    }
    EXPECT_EQ(codes.size(), ko::messageCount);
}

TEST(MessageRegistry, TakesNoArgumentsButThoseOfTheText) {
    using ko::messages::fits;
    EXPECT_TRUE((fits<const char*, unsigned long>("%s at %lu")));
    EXPECT_TRUE((fits<>("nothing")));
    EXPECT_FALSE((fits<const char*>("%s at %lu")));
    EXPECT_FALSE((fits<const char*, unsigned long, char>("%s at %lu")));
    EXPECT_FALSE((fits<unsigned long, const char*>("%s at %lu")));
    EXPECT_FALSE((fits<long>("%d")));
}

}  // namespace
