// Documents that put what steers a terminal or a line into every place that a message or a dump
// can quote, in files with such names: nothing of it comes out of the tool, and each message stays
// one line.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "commands.h"
#include "diagnostics.h"
#include "dump_text.h"
#include "output.h"
#include "reading.h"
#include "terminal.h"
#include "toolprocess.h"

namespace {

namespace fs = std::filesystem;
using ko::LogRecord;
using ko::Severity;
using ko::String;
using ko::mirel_sdk::impl::Scene;
using kvt::test::Outcome;
using kvt::test::Random;
using nlohmann::json;

// --- What documents are made of

// What steers a terminal or a line, the code points beside it, what is no UTF-8, and escapes that
// a text of a document may hold; between bars.
constexpr std::string_view hostileTexts =
    "\x1b[2J\x1b[1;1H|\x1b]0;title\x07|\x9b"
    "31m|\r|\n|\t|\v|\f|\b|\x01|\x0e|\x1f|\x7f|"
    "\xc2\x80|\xc2\x85|\xc2\x9b|\xc2\x9f|\xc2\xa0|\xd8\x9b|\xd8\x9c|\xd8\x9d|"
    "\xe2\x80\x8d|\xe2\x80\x8e|\xe2\x80\x8f|\xe2\x80\x90|\xe2\x80\xa7|\xe2\x80\xa8|\xe2\x80\xa9|"
    "\xe2\x80\xaa|\xe2\x80\xab|\xe2\x80\xac|\xe2\x80\xad|\xe2\x80\xae|\xe2\x80\xaf|\xe2\x81\xa5|"
    "\xe2\x81\xa6|\xe2\x81\xa7|\xe2\x81\xa8|\xe2\x81\xa9|\xe2\x81\xaa|\xef\xbb\xbe|\xef\xbb\xbf|"
    "\xf0\x9f\x98\x80|\x80|\xbf|\xc2|\xe2\x80|\xf0\x9f\x98|\xc0\x80|\xe0\x82\x9b|\xed\xa0\x80|"
    "\xf4\x90\x80\x80|\xf8\x88\x80\x80\x80|\xfe|"
    "\\x1b[31m|\\n|\\r|\\x9b|\\xe2\\x80\\xae|\\\\";

std::vector<std::string_view> splitAtBars(std::string_view text) {
    std::vector<std::string_view> all;
    for (; text.find('|') != std::string_view::npos; text.remove_prefix(text.find('|') + 1))
        all.push_back(text.substr(0, text.find('|')));
    all.push_back(text);
    return all;
}

bool isOfName(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return String::isLetter(c) || String::isDigit(c) || c == '_';
    });
}

std::string hostile(Random& random, bool ofName) {
    static const std::vector<std::string_view> pieces = splitAtBars(hostileTexts);
    std::string all;
    for (unsigned long left = 1 + random.below(3); left > 0;) {
        const std::string_view piece = pieces[random.below(pieces.size())];
        if (ofName && !isOfName(piece)) continue;
        all += piece;
        --left;
    }
    // What is quoted of a long name is cut, also inside of a character.
    const unsigned long times = random.oneIn(12) ? 2 + random.below(200) : 1;
    std::string repeated;
    for (unsigned long i = 0; i < times; ++i)
        repeated += all;
    return repeated;
}

// In each, '%' stands for a text of its own, '@' for the same one everywhere: bytes of a name.
constexpr const char* forms[] = {
    // What dumps show.
    "t@ n@:\n.x@ = 1;\n.text = \"%\";\n.o.@.b = n@;\n.c |= n@.@;\n",
    "# %\n# version: @\n# time: %\n# comment %\nt n: # % \n",
    // Values of other types, and values that are narrowed.
    "t n@:\n.x@ = 1;\n.x@ = \"%\";\n",
    "t n@:\n.x@ = 1;\n.x@ = 2.5;\n.x@.y[2] = 1;\n",
    "t n@;\nwith n@;\n.x@ = 1;\n.x@ = mat3(1 2 @);\n",
    // Links that lead nowhere, or are none.
    "t n@:\n.x@ |= no@.out;\n.y@ |= n@.out@;\n.z@ = no@;\n",
    "t n:\n.x |= @;\n",
    "t n:\n.x |= @.a.@;\n",
    // Nodes and inputs that there are not.
    "n@.x = 1;\n",
    ".x@ = 1;\n",
    "t n:\n.@ = null;\n.@[0] = 1;\n",
    "t n:\n.@.b = 1;\n.@.b.c@ = 2;\n",
    "remove n@;\nt n@;\nt n@;\ndefine @;\n",
    // Indices.
    "t n:\n.x = 1;\n.x[%] = 1;\n",
    "t n:\n.x@[1%] = 1;\n",
    "t n:\n.x@[4194304] = 1;\n",
    // Numbers and compact bytes.
    "t n:\n.x = vec3(1 % 2);\n",
    "t n:\n.x = vec3f[%] {1 2 3};\n",
    "t n:\n.x = int32[2] {1 %};\n",
    "t n:\n.x = @ {1 2};\n",
    "t n@:\n.x@ = float[1] {1 2 3};\n",
    "t n@:\n.x@ = float[3] {1};\n",
    "t n:\n.x = byte[9] {.00%};\n",
    "t n@:\n.x@ = byte[9] {.+@};\n",
    // Texts without an end, and what is no statement.
    "t n:\n.x = \"%;\n.y = \"%\"\n",
    "t n@ %;\n",
    "%t n:\n",
    "t n:\n.x = 1 %;\n",
    // Types that a program registers.
    "choice n@:\n.mode = \"%\";\n.any = \"%\";\n.any = \"@\";\n",
    "filter f@:\n.amount@ = \"@\";\n",
    "renamed n@:\n.list@[7] = \"%\";\nn@.x |= n@.color@;\n",
};

std::string filled(std::string_view form, Random& random) {
    const std::string same = hostile(random, true);
    std::string document;
    for (const char c : form) {
        if (c == '%') {
            document += hostile(random, random.oneIn(3));
        } else if (c == '@') {
            document += same;
        } else {
            document += c;
        }
    }
    return document;
}

// A golden document, which may provoke any message, with hostile text at a few places.
std::string disturbed(std::string document, Random& random) {
    for (unsigned long left = 1 + random.below(4); left > 0; --left) {
        const unsigned long at = random.below(document.size() + 1);
        const bool isInName = at > 0 && isOfName(document.substr(at - 1, 1));
        document.insert(at, hostile(random, isInName && !random.oneIn(4)));
    }
    return document;
}

constexpr unsigned long documentCount = 3000;

// Calls `use` for each document, with a hostile name for its file.
// With --gtest_shuffle other documents are read, and with --gtest_repeat=N others each time.
int chosenSeed() { return testing::UnitTest::GetInstance()->random_seed(); }

void forEachDocument(const std::function<void(const std::string&, const std::string&)>& use) {
    const std::vector<fs::path> golden = kvt::test::documents();
    ASSERT_FALSE(golden.empty());
    Random random(17 + static_cast<unsigned>(chosenSeed()));
    for (unsigned long i = 0; i < documentCount; ++i) {
        const std::string document =
            i % 2 == 0
                ? filled(forms[i / 2 % std::size(forms)], random)
                : disturbed(kvt::test::contents(golden[random.below(golden.size())]), random);
        use(document, 'f' + hostile(random, false).substr(0, 200));
    }
}

// --- What comes out

// The code point of valid UTF-8 that `text` begins with, which it loses.
unsigned takeCodePoint(std::string_view& text) {
    const unsigned first = static_cast<unsigned char>(text[0]);
    const unsigned length = first < 0x80 ? 1 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    unsigned codePoint = length == 1 ? first : first & (0x7fU >> length);
    for (unsigned i = 1; i < length; ++i)
        codePoint = codePoint << 6U | (static_cast<unsigned char>(text[i]) & 0x3fU);
    text.remove_prefix(length);
    return codePoint;
}

bool steers(unsigned codePoint) {
    static const std::set<unsigned> single = {0x61c, 0x200e, 0x200f, 0x2028, 0x2029, 0xfeff};
    return (codePoint < 32 && codePoint != '\n') || (codePoint >= 127 && codePoint <= 0x9f) ||
           (codePoint >= 0x202a && codePoint <= 0x202e) ||
           (codePoint >= 0x2066 && codePoint <= 0x2069) || single.count(codePoint) > 0;
}

bool isUtf8(const std::string& text) {
    try {
        return !json(text).dump().empty();
    } catch (const json::exception&) {
        return false;
    }
}

bool isHarmless(const std::string& text) {
    if (!isUtf8(text)) return false;
    for (std::string_view rest = text; !rest.empty();)
        if (steers(takeCodePoint(rest))) return false;
    return true;
}

unsigned long lineCount(std::string_view text) {
    return static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n'));
}

TEST(ToolHostileTextTest, KnowsWhatSteers) {
    EXPECT_TRUE(isHarmless("plain \xc3\xbc\n\xe2\x80\x90 \xf0\x9f\x98\x80"));
    for (const char* const text : {"\x1b", "\x7f", "\r", "\xc2\x85", "\xe2\x80\xae", "\xef\xbb\xbf",
                                   "\xff", "\xc2", "\xd8\x9c"}) {
        EXPECT_FALSE(isHarmless(text)) << kvt::test::shown(text);
    }
}

// What is written to its stream.
class Memory {
  public:
    Memory() : stream_(open_memstream(&chars_, &size_)) {}
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    ~Memory() {
        std::fclose(stream_);
        std::free(chars_);
    }
    std::FILE* stream() const { return stream_; }
    std::string text() const {
        std::fflush(stream_);
        return {chars_, size_};
    }

  private:
    char* chars_ = nullptr;
    std::size_t size_ = 0;
    std::FILE* stream_;
};

// In a directory of its own, and in this process.
class ToolHostileTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(mkdtemp(directory_.data())); }
    void TearDown() override { fs::remove_all(directory_); }

    std::string write(const std::string& document, std::string name) const {
        std::replace(name.begin(), name.end(), '/', '_');
        const std::string path = directory_ + '/' + name;
        std::ofstream(path, std::ios::binary) << document;
        return path;
    }

  private:
    std::string directory_ = testing::TempDir() + "kvt-hostile-" + std::string(6, 'X');
};

// Words of each message that quotes a document.
const std::set<std::string> quotingMessages = {
    "INVALID PAREN LIST TOKEN (",
    "INVALID BRACE LIST TOKEN (",
    "INVALID BRACKET LIST TOKEN (",
    "BAD TOKEN (",
    ": unrecognized token '",
    ": cannot assign ",
    ": narrowing ",
    ": expected ",
    "Failed to parse KVT version comment: ",
    ": input '",
    ": 'with' node not set (input: ",
    ": node '",
    "array too large: ",
    ": setting non-existent enum value '",
    "Invalid output: ",
    "Cannot connect nonexistent node ",
    "Cannot connect nonexistent output ",
    "Cannot assign nonexistent node ",
};

// Takes what is in the message out of the words that are still to be found.
void note(std::set<std::string>& missing, std::string_view message) {
    for (auto words = missing.begin(); words != missing.end();) {
        const bool isFound = message.find(*words) != std::string_view::npos;
        words = isFound ? missing.erase(words) : std::next(words);
    }
}

// What a program would be told about the document, one text for each message.
std::vector<LogRecord> recordsOf(const std::string& document, Scene& scene) {
    const ko::LogCapture capture;
    std::vector<LogRecord> thrown;
    try {
        const ko::File file = ko::File::memory(document.data(), document.size());
        ko::mirel_sdk::impl::parseKvt(&scene, file, false);
    } catch (const std::runtime_error& e) {
        thrown.emplace_back(Severity::Error, e.what());
    }
    std::vector<LogRecord> all = capture.records();
    all.insert(all.end(), thrown.begin(), thrown.end());
    return all;
}

TEST_F(ToolHostileTest, CommandsPrintNothingThatSteers) {
    forEachDocument([this](const std::string& document, const std::string& name) {
        Scene scene;
        const unsigned long messages = recordsOf(document, scene).size();
        const std::string file = write(document, name);
        const Memory checked;
        const Memory dumped;
        const Memory reported;
        kvt::check({{file}, true, {}}, checked.stream());
        kvt::dump({file, false, {}}, dumped.stream(), reported.stream());
        kvt::dump({file, true, {}}, dumped.stream(), reported.stream());
        fs::remove(file);
        ASSERT_TRUE(isHarmless(checked.text())) << checked.text();
        ASSERT_TRUE(isHarmless(dumped.text())) << dumped.text();
        ASSERT_TRUE(isHarmless(reported.text())) << reported.text();
        ASSERT_EQ(messages, lineCount(checked.text())) << checked.text();
        ASSERT_EQ(2 * messages, lineCount(reported.text())) << reported.text();
    });
}

// Enumerations and renames belong to types that a program registers.
TEST_F(ToolHostileTest, MessagesAboutRegisteredTypesHaveNothingThatSteers) {
    std::set<std::string> missing = quotingMessages;
    forEachDocument([&missing](const std::string& document, const std::string& name) {
        Scene scene;
        kvt::test::registerNodeTypes(scene);
        const Memory memory;
        kvt::OutputStream out(memory.stream());
        kvt::Diagnostics diagnostics(out, kvt::noColours, name);
        const std::vector<LogRecord> records = recordsOf(document, scene);
        for (const LogRecord& record : records) {
            const std::string_view message = record.text.view();
            if (!isHarmless(std::string(message))) note(missing, message);
            diagnostics.report(record);
        }
        ASSERT_EQ(records.size(), lineCount(memory.text())) << memory.text();
        kvt::dumpText(out, scene, true, kvt::noColours);
        out.flush();
        ASSERT_TRUE(isHarmless(memory.text())) << memory.text();
    });
    // Of other documents some thousand may lack the rarest.
    const bool hasAll = missing.empty() || chosenSeed() != 0;
    EXPECT_TRUE(hasAll) << testing::PrintToString(missing);
}

TEST_F(ToolHostileTest, TheProgramPrintsNothingThatSteers) {
    unsigned long count = 0;
    forEachDocument([this, &count](const std::string& document, const std::string& name) {
        if (++count % 100 != 0) return;
        const std::string file = write(document, name);
        for (const char* const command : {"check", "dump", file.c_str()}) {
            const Outcome outcome = kvt::test::outcomeOf({command, "--", file});
            ASSERT_TRUE(isHarmless(outcome.out)) << outcome.out;
            ASSERT_TRUE(isHarmless(outcome.err)) << outcome.err;
        }
        const Outcome wrong = kvt::test::outcomeOf({"check", '-' + name, "--buffer-limit", name});
        ASSERT_TRUE(isHarmless(wrong.err)) << wrong.err;
        ASSERT_EQ(1UL, lineCount(wrong.err)) << wrong.err;
        fs::remove(file);
    });
}

}  // namespace
