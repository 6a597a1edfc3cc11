// The lexer against scanners that take one character at a time: the plain scanner, which knows the
// rules of the format and nothing of the lexer, for all documents, their truncations and random
// bytes, from texts, from files and from runs of any length; and a source of single characters.

#include <ko/foundation.h>
#include <ko/kvtparser.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "bulk/bulk.h"
#include "bulkpaths.h"
#include "bytes.h"
#include "plainscanner.h"
#include "reading.h"
#include "single.h"
#include "tokens.h"

namespace {

using ko::File;
using ko::String;
using ko::bulk::Path;
using ko::mirel_sdk::impl::FileLexer;
using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;
using kvt::test::Block;
using kvt::test::contents;
using kvt::test::documents;
using kvt::test::PathGuard;
using kvt::test::PlainScanner;
using kvt::test::Random;
using kvt::test::shown;
using kvt::test::Single;
using kvt::test::stateOf;
using std::string_view_literals::operator""sv;

namespace fs = std::filesystem;

// --- Sources

// Brings a text in runs of up to `longestRun` characters, each in a block that is gone when the
// next one is asked for.
class InRuns final : public Lexer {
  public:
    InRuns(std::string_view text, unsigned long longestRun)
        : text_(text), longestRun_(longestRun), random_(longestRun) {
        start(takeRun());
    }
    signed char consume() override { return step(); }

  private:
    std::string_view nextRun() override { return takeRun(); }
    std::string_view takeRun() {
        const unsigned long length = 1 + random_.below(longestRun_);
        block_ = std::make_unique<Block>(text_.substr(0, length));
        text_.remove_prefix(block_->view().size());
        return block_->view();
    }

    std::string_view text_;
    unsigned long longestRun_;
    Random random_;
    std::unique_ptr<Block> block_;
};

constexpr unsigned long blockSize = 64UL * 1024;

// A file whose first block ends within a text.
class BlockFile {
  public:
    BlockFile() = default;
    BlockFile(const BlockFile&) = delete;
    BlockFile& operator=(const BlockFile&) = delete;
    ~BlockFile() { close(descriptor_); }

    // A line of `filler`, then `text`, of which `inBlock` characters still stand in the block.
    void write(std::string_view text, unsigned long inBlock, char filler) {
        bytes_.assign(blockSize - inBlock - 1, filler);
        bytes_ += '\n';
        bytes_ += text;
        const auto size = static_cast<ssize_t>(bytes_.size());
        EXPECT_EQ(size, pwrite(descriptor_, bytes_.data(), bytes_.size(), 0));
        EXPECT_EQ(0, ftruncate(descriptor_, size));
    }

    File open() const { return File::open(path_.c_str()); }

  private:
    int descriptor_ = memfd_create("kvt-scanner", 0);
    std::string path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    std::string bytes_;
};

// --- Comparing

// The lexer gives the tokens of the text, up to the end and after it.
void expectTokensOf(std::string_view text, Lexer& lexer) {
    PlainScanner scanner(text);
    for (int ends = 0; ends < 3;) {
        const Token expected = scanner.next();
        ASSERT_EQ(expected, lexer.nextToken()) << shown(text);
        if (expected.type == Token::Eof) ++ends;
        if (expected.type == Token::Invalid) {
            scanner.skip();
            lexer.consume();
        }
    }
}

// A file does not bring the mark at its start.
std::string_view withoutMark(std::string_view text) {
    return text.substr(text.substr(0, 3) == "\xEF\xBB\xBF" ? 3 : 0);
}

// With so much after it that no run ends near its tokens.
std::string farFromTheEnd(std::string_view text) {
    return std::string(text) + "\n" + std::string(150, ' ');
}

// Every source gives the tokens of the text, as it is and with much after it.
void expectTokens(std::string_view text) {
    const std::string longer = farFromTheEnd(text);
    StringLexer ofLonger{String(longer)};
    ASSERT_NO_FATAL_FAILURE(expectTokensOf(longer, ofLonger));
    InRuns inLongRuns(longer, 2 * longer.size());
    ASSERT_NO_FATAL_FAILURE(expectTokensOf(longer, inLongRuns));
    StringLexer ofText{String(text)};
    // An empty text has its terminator as the lookahead.
    ASSERT_NO_FATAL_FAILURE(expectTokensOf(text.empty() ? "\0"sv : text, ofText));
    const Block block(text);
    FileLexer ofFile(File::memory(block.view().data(), block.view().size()));
    ASSERT_NO_FATAL_FAILURE(expectTokensOf(withoutMark(text), ofFile));
    for (const unsigned long longestRun : {1UL, 2 + text.size() % 16}) {
        InRuns inRuns(text, longestRun);
        ASSERT_NO_FATAL_FAILURE(expectTokensOf(text, inRuns));
    }
}

// A file gives the tokens of the text, wherever in it a block ends.
void expectTokensInBlocks(BlockFile& file, std::string_view text, char filler) {
    // The blank stands on a line of its own, whose columns do not depend on the filler.
    const std::string behindBlank = ' ' + std::string(text);
    const std::string behindLine = '\n' + behindBlank;
    for (unsigned long inBlock = 0; inBlock <= behindBlank.size(); ++inBlock) {
        file.write(behindBlank, inBlock, filler);
        FileLexer lexer(file.open());
        if (filler == '#') {
            const auto length = static_cast<std::int32_t>(blockSize - inBlock - 1);
            ASSERT_EQ(length, lexer.nextToken().column);
        }
        ASSERT_NO_FATAL_FAILURE(expectTokensOf(behindLine, lexer)) << inBlock;
    }
}

// Tests that run once on each path that this machine can take.
class ScannerPaths : public testing::TestWithParam<Path> {
  protected:
    void SetUp() override {
        if (!ko::bulk::hasPath(GetParam())) GTEST_SKIP() << "not on this machine";
    }

  private:
    PathGuard guard_{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(, ScannerPaths, testing::ValuesIn(kvt::test::allPaths), kvt::test::nameOf);

// Tokens of every kind, short and long, whole and not.
std::vector<std::string> tokens() {
    return {
        "name",
        "_" + std::string(40, 'x'),
        "TrUe",
        "false",
        "null",
        "h\xC3\xA9llo",
        "-12.5e+7",
        "123456789012345678901234567890",
        "# a comment, \\ \"of\" (some) length",
        "#\r",
        R"("")",
        R"("a \"text\" with \\ and \n")",
        R"("\\\\\\\"")",
        "\"two\nlines\n\"",
        "[ 1\n2 ]",
        "[*]",
        "(1, 2.5, -inf)",
        "(0.25, -1, 12345678901234567890.5 7)",
        "( 1,2 )",
        "((1 2)\n(3 4) , )",
        "{1,2,,3\n\n[4]\t(5)}",
        "{" + std::string(70, '1') + " " + std::string(20, ' ') + std::string(30, '2') + "}",
        "(1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30)",
        "(1 ;",
        "[1 x",
        "\n\r\n \t \n",
        ";=.,:'|*+/\\",
        "!$)",
    };
}

// --- The rules

TEST_P(ScannerPaths, FollowTheRulesForDocuments) {
    std::vector<fs::path> all = documents();
    for (const fs::path& example : documents(KVT_EXAMPLES))
        all.push_back(example);
    for (const fs::path& document : all) {
        const std::string text = contents(document);
        // Every truncation of a short one.
        const unsigned long stride = 1 + text.size() / 300;
        for (unsigned long length = text.size() % stride; length <= text.size(); length += stride)
            ASSERT_NO_FATAL_FAILURE(expectTokens(text.substr(0, length))) << document;
    }
}

TEST_P(ScannerPaths, FollowTheRulesInAnyBlockOfAFile) {
    BlockFile file;
    for (const fs::path& document : documents()) {
        if (fs::file_size(document) > 600) continue;  // it takes a file for each character
        ASSERT_NO_FATAL_FAILURE(expectTokensInBlocks(file, contents(document), '#')) << document;
    }
    for (const std::string& token : tokens())
        for (const char filler : {'#', ' '})
            ASSERT_NO_FATAL_FAILURE(expectTokensInBlocks(file, token + " behind\n", filler));
}

TEST_P(ScannerPaths, FollowTheRulesForEveryByte) {
    const std::string_view surroundings[] = {"",  "a",   "1", "#",  "\"", "\"\\", "[",  "[1",
                                             "(", "(1 ", "{", "{1", "{(", "({",   "((", "{{1 "};
    const std::string numbers = "12 3.5, -4e-6 nan [7] " + std::string(100, '8') + " 9\n";
    for (const std::string_view before : surroundings) {
        for (int code = 0; code < 256; ++code) {
            const std::string text = std::string(before) + static_cast<char>(code);
            for (const std::string& behind : {std::string(), numbers}) {
                ASSERT_NO_FATAL_FAILURE(expectTokens(text + behind));
                ASSERT_NO_FATAL_FAILURE(expectTokens(text + behind + " )}]\";" + text));
            }
        }
    }
}

std::string randomBytes(Random& random) {
    constexpr std::string_view sets[] = {
        "ab1 \n\"\\#(){}[],.;-=",
        "0123456789.-+eEnif ,\n()",
        "0123456789.-+ ,{}[]()\t",
        "{} ()[],1",
        "1 ,()",
        "12 ,()[]{}\n",
        "12.-e,\t\x01 []",
        "\"\\\na",
    };
    const unsigned long set = random.below(std::size(sets) + 1);
    std::string text;
    if (random.oneIn(2)) text += random.oneOf("({\"[");
    for (unsigned long left = random.below(random.oneIn(20) ? 300 : 80); left > 0; --left) {
        const bool isAny = set == std::size(sets) || random.oneIn(200);
        text += isAny ? static_cast<char>(random.next()) : random.oneOf(sets[set]);
    }
    if (random.oneIn(2)) text += "))}}]\";";
    return text;
}

TEST_P(ScannerPaths, FollowTheRulesForRandomBytes) {
    Random random(12);
    for (int round = 0; round < 12000; ++round)
        ASSERT_NO_FATAL_FAILURE(expectTokens(randomBytes(random)));
}

TEST_P(ScannerPaths, FollowTheRulesForRandomTokens) {
    Random random(17);
    const std::vector<std::string> all = tokens();
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        for (unsigned long left = random.below(12); left > 0; --left) {
            text += all[random.below(all.size())];
            if (!random.oneIn(4)) text += random.oneOf(" \n\t;.");
        }
        if (!text.empty() && random.oneIn(2))
            text[random.below(text.size())] = static_cast<char>(random.next());
        ASSERT_NO_FATAL_FAILURE(expectTokens(text));
    }
}

TEST_P(ScannerPaths, FollowTheRulesForAnyTwoTokens) {
    for (const std::string& first : tokens())
        for (const std::string& second : tokens())
            ASSERT_NO_FATAL_FAILURE(expectTokens(first + "\n" + second));
}

TEST_P(ScannerPaths, FollowTheRulesForTokensOfManyBlocks) {
    Random random(14);
    std::string text = "{0";
    while (text.size() < 300'000) {
        text += random.oneIn(3) ? " ,\n" : " ";
        text += std::string(1 + random.below(12), random.oneOf("0123456789"));
    }
    text += "}; \"" + std::string(200'000, 's') + "\\\"\n\" " + std::string(150'000, 'i') + '\n' +
            std::string(150'000, ' ') + "#" + std::string(150'000, 'c');
    ASSERT_NO_FATAL_FAILURE(expectTokens(text));
    BlockFile file;
    file.write(text, 0, ' ');
    FileLexer lexer(file.open());
    ASSERT_NO_FATAL_FAILURE(expectTokensOf('\n' + text, lexer));
}

// --- Single characters and whole tokens

// The lexers give the same tokens and stand at the same places, up to the end and after it.
void expectSameTokens(Lexer& expected, Lexer& found) {
    for (int ends = 0; ends < 3;) {
        const Token token = expected.nextToken();
        ASSERT_EQ(token, found.nextToken());
        if (token.type == Token::Eof) ++ends;
        if (token.type == Token::Invalid) {
            expected.consume();
            found.consume();
        }
        ASSERT_EQ(stateOf(expected), stateOf(found));
    }
}

TEST(Runs, StopCountingAtTheLargestCounter) {
    constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
    std::string longGroup = "(1";
    for (int i = 0; i < 30; ++i)
        longGroup += " 1";
    longGroup += ')';
    std::vector<std::string> each = tokens();
    each.insert(each.end(), {std::string(14, ' ') + longGroup, std::string(15, '\n') + longGroup});
    const auto expectSame = [](const std::string& text, auto setCounters) {
        Single expected(text);
        InRuns found(text, 600);
        setCounters(expected);
        setCounters(found);
        ASSERT_NO_FATAL_FAILURE(expectSameTokens(expected, found)) << text;
    };
    for (const std::string& token : each) {
        const std::string text = farFromTheEnd("\n" + token + "\n\n" + token + " a\nb");
        for (std::int32_t left = 0; left < 200; left += left < 6 ? 1 : 9) {
            const std::int32_t value = largest - left;
            expectSame(text, [=](Lexer& lexer) { lexer.pos = value; });
            expectSame(text, [=](Lexer& lexer) { lexer.line = value; });
            expectSame(text, [=](Lexer& lexer) { lexer.column = value; });
            expectSame(text, [=](Lexer& lexer) { lexer.pos = lexer.line = lexer.column = value; });
        }
    }
}

// Single characters and whole tokens may be asked for in turn.
TEST(Runs, MayBeLeftForSingleCharacters) {
    Random random(13);
    for (int round = 0; round < 500; ++round) {
        std::string text;
        for (int i = 0; i < 6; ++i)
            text += tokens()[random.below(tokens().size())] + " ";
        if (random.oneIn(2)) text = farFromTheEnd(text);
        Single expected(text);
        InRuns found(text, 1 + random.below(random.oneIn(2) ? 60 : 900));
        while (expected.la != -1) {
            for (unsigned long left = 1 + random.below(4); left > 0; --left)
                ASSERT_EQ(expected.consume(), found.consume());
            ASSERT_EQ(stateOf(expected), stateOf(found));
            ASSERT_EQ(expected.nextToken(), found.nextToken()) << text;
            ASSERT_EQ(stateOf(expected), stateOf(found));
        }
    }
}

// Each scanner takes whatever character comes first.
TEST(Runs, MayBeScannedFromAnyCharacter) {
    using Scanner = Token (Lexer::*)();
    constexpr Scanner scanners[] = {&Lexer::id, &Lexer::number, &Lexer::parens, &Lexer::braces,
                                    &Lexer::nextToken};
    Random random(16);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (unsigned long left = 1 + random.below(40); left > 0; --left)
            text += random.oneIn(30) ? static_cast<char>(random.next())
                                     : random.oneOf("ab12.-\n\n ,(){}[]#\"");
        if (random.oneIn(2)) text = farFromTheEnd(text);
        Single expected(text);
        InRuns found(text, 1 + random.below(random.oneIn(2) ? 30 : 600));
        for (int step = 0; step < 12; ++step) {
            const Scanner scan = scanners[random.below(std::size(scanners))];
            ASSERT_EQ((expected.*scan)(), (found.*scan)()) << shown(text);
            ASSERT_EQ(stateOf(expected), stateOf(found)) << shown(text);
        }
    }
}

}  // namespace
