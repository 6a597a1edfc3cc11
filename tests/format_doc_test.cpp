// The format guide: every document in it gives the messages that stand after it, and every message
// of its tables is given by some document.

#include <ko/kvtparser.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ko::LogCapture;
using ko::LogRecord;
using ko::Severity;
using ko::String;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Scene;
using Lines = std::vector<std::string>;

// --- the guide

// A fenced block: what stands after its opening fence, the line of that fence, and the text.
struct Block {
    std::string mark;
    unsigned long line = 0;
    Lines text;
};

struct Example {
    Block document;
    Lines messages;
};

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

Lines guideLines() {
    std::ifstream file(KVT_DOCS "/format.md");
    Lines lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

std::vector<Block> blocksOf(const Lines& guide) {
    const std::string fence = "```";
    std::vector<Block> blocks;
    bool inside = false;
    for (unsigned long i = 0; i < guide.size(); ++i) {
        const std::string& line = guide[i];
        if (startsWith(line, fence)) {
            inside = !inside;
            if (inside) blocks.push_back({line.substr(fence.size()), i + 1, {}});
        } else if (inside) {
            blocks.back().text.push_back(line);
        }
    }
    EXPECT_FALSE(inside) << "the last block is not closed";
    return blocks;
}

std::vector<Example> examplesOf(const Lines& guide) {
    const std::vector<Block> blocks = blocksOf(guide);
    std::vector<Example> examples;
    for (unsigned long i = 0; i < blocks.size(); ++i) {
        if (!startsWith(blocks[i].mark, "kvt")) continue;
        const bool hasMessages = i + 1 < blocks.size() && blocks[i + 1].mark == "text";
        examples.push_back({blocks[i], hasMessages ? blocks[i + 1].text : Lines()});
    }
    return examples;
}

Lines allMessages(const Lines& guide) {
    Lines messages;
    for (const Example& example : examplesOf(guide)) {
        messages.insert(messages.end(), example.messages.begin(), example.messages.end());
    }
    return messages;
}

// The first cells of the tables that list messages, placeholders and all.
Lines messagePatterns(const Lines& guide) {
    Lines patterns;
    bool inside = false;
    for (const std::string& line : guide) {
        if (startsWith(line, "| message |")) inside = true;
        if (line.empty()) inside = false;
        if (!inside || !startsWith(line, "| `")) continue;
        const unsigned long start = line.find('`') + 1;
        const std::string cell = line.substr(start, line.find("` |") - start);
        // In a table a bar of the message itself is written with a backslash.
        patterns.push_back(std::regex_replace(cell, std::regex("\\\\\\|"), "|"));
    }
    return patterns;
}

// --- reading

struct Outcome {
    bool finished = false;
    Lines messages;
};

// The node type that the guide tells of.
NodeType lampType() {
    NodeType type("lamp");
    type.input("intensity", AttrData::ofReal(1))
        .enumeration("falloff", {"none", "linear", "quadratic"})
        .output("light")
        .renameInput("power", "intensity");
    return type;
}

std::string asPrinted(const LogRecord& record) {
    const char* const kind = record.severity == Severity::Error ? "error: " : "warning: ";
    return kind + std::string(record.text.view());
}

Outcome readInto(Scene* scene, const String& text) {
    const LogCapture log;
    Outcome outcome;
    std::string thrown;
    try {
        outcome.finished = parseString(scene, text);
    } catch (const std::runtime_error& error) {
        thrown = error.what();
    }
    for (const LogRecord& record : log.records())
        outcome.messages.push_back(asPrinted(record));
    if (!thrown.empty()) outcome.messages.push_back("error: " + thrown);
    return outcome;
}

Outcome read(const Block& document) {
    std::string text;
    for (const std::string& line : document.text)
        text += line + '\n';
    Scene scene;
    if (contains(document.mark, "registered")) scene.registerType(lampType());
    Scene* const target = contains(document.mark, "without-scene") ? nullptr : &scene;
    Outcome outcome = readInto(target, String(std::string_view(text)));
    ko::mirel_sdk::impl::clearRenames();
    return outcome;
}

// What the default sink prints for the format `pattern` and any arguments.
std::regex printsOf(const std::string& pattern) {
    const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    std::string shape = std::regex_replace(pattern, special, R"(\$&)");
    shape = std::regex_replace(shape, std::regex("%d"), "[0-9]+");
    shape = std::regex_replace(shape, std::regex("%c"), ".");
    shape = std::regex_replace(shape, std::regex("%s"), ".*");
    return std::regex("(warning|error): " + shape);
}

// --- tests

TEST(FormatGuideTest, DocumentsGiveTheMessagesBehindThem) {
    const std::vector<Example> examples = examplesOf(guideLines());
    ASSERT_FALSE(examples.empty());
    for (const Example& example : examples) {
        SCOPED_TRACE("format.md:" + std::to_string(example.document.line));
        const Outcome outcome = read(example.document);
        EXPECT_EQ(outcome.messages, example.messages);
        EXPECT_EQ(outcome.finished, !contains(example.document.mark, "fails"));
    }
}

TEST(FormatGuideTest, MarksSayWhetherThereAreMessages) {
    const std::regex marks("kvt( warns| fails)?( registered| without-scene)?");
    for (const Example& example : examplesOf(guideLines())) {
        SCOPED_TRACE("format.md:" + std::to_string(example.document.line));
        const std::string& mark = example.document.mark;
        EXPECT_TRUE(std::regex_match(mark, marks)) << mark;
        EXPECT_EQ(!example.messages.empty(), contains(mark, "warns") || contains(mark, "fails"));
    }
}

TEST(FormatGuideTest, EveryListedMessageHasADocument) {
    const Lines guide = guideLines();
    const Lines messages = allMessages(guide);
    const Lines patterns = messagePatterns(guide);
    ASSERT_FALSE(patterns.empty());
    for (const std::string& pattern : patterns) {
        const std::regex prints = printsOf(pattern);
        const auto isPrint = [&](const std::string& line) { return regex_match(line, prints); };
        EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), isPrint)) << pattern;
    }
}

TEST(FormatGuideTest, EveryShownMessageIsListed) {
    const Lines guide = guideLines();
    std::vector<std::regex> prints;
    for (const std::string& pattern : messagePatterns(guide))
        prints.push_back(printsOf(pattern));
    for (const std::string& line : allMessages(guide)) {
        const auto hasPrint = [&](const std::regex& print) { return regex_match(line, print); };
        EXPECT_TRUE(std::any_of(prints.begin(), prints.end(), hasPrint)) << line;
    }
}

}  // namespace
