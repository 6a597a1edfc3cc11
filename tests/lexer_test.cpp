// The lexer: what each text splits into, and at which line and column every token stands. All of it
// holds for texts and for files alike, except where a test says otherwise.

#include <ko/ds.h>
#include <ko/foundation.h>
#include <ko/kvtparser.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tokens.h"

namespace {

using ko::File;
using ko::String;
using ko::mirel_sdk::impl::FileLexer;
using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;
using kvt::test::token;
using std::string_view_literals::operator""sv;

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();

Token eof(std::int32_t line, std::int32_t column) { return token(Token::Eof, "EOF", line, column); }

// --- Both sources

enum class Source { Text, File };

const char* nameOf(Source source) { return source == Source::Text ? "Text" : "File"; }

std::ostream& operator<<(std::ostream& out, Source source) { return out << nameOf(source); }

std::unique_ptr<Lexer> lexerOf(Source source, std::string_view text) {
    if (source == Source::Text) return std::make_unique<StringLexer>(String(text));
    return std::make_unique<FileLexer>(File::memory(text.data(), text.size()));
}

class Sources : public testing::TestWithParam<Source> {
  protected:
    static std::unique_ptr<Lexer> lexer(std::string_view text) { return lexerOf(GetParam(), text); }

    // The text splits into these tokens, of which the last comes again and again.
    static void expectTokens(std::string_view text, const std::vector<Token>& tokens) {
        SCOPED_TRACE(text);
        const auto scanner = lexer(text);
        for (const Token& expected : tokens)
            EXPECT_EQ(expected, scanner->nextToken());
        for (int again = 0; again < 3; ++again)
            EXPECT_EQ(tokens.back(), scanner->nextToken());
    }
};

INSTANTIATE_TEST_SUITE_P(, Sources, testing::Values(Source::Text, Source::File),
                         [](const auto& source) { return nameOf(source.param); });

// --- Characters, lines and columns

TEST_P(Sources, StartBeforeTheFirstCharacter) {
    const auto scanner = lexer("ab");
    EXPECT_EQ(0, scanner->c);
    EXPECT_EQ('a', scanner->la);
    EXPECT_EQ(0, scanner->pos);
    EXPECT_EQ(1, scanner->line);
    EXPECT_EQ(0, scanner->column);
}

TEST_P(Sources, CountLinesBehindLineBreaks) {
    struct Step {
        signed char c, la;
        std::int32_t pos, line, column;
    };
    const Step steps[] = {
        {'a', '\r', 1, 1, 1}, {'\r', '\n', 2, 1, 2}, {'\n', '\n', 3, 1, 3}, {'\n', 'b', 4, 2, 1},
        {'b', -1, 5, 3, 1},   {-1, -1, 6, 3, 2},     {-1, -1, 7, 3, 3},
    };
    const auto scanner = lexer("a\r\n\nb");
    for (const Step& step : steps) {
        SCOPED_TRACE(step.pos);
        EXPECT_EQ(step.c, scanner->consume());
        EXPECT_EQ(step.c, scanner->c);
        EXPECT_EQ(step.la, scanner->la);
        EXPECT_EQ(step.pos, scanner->pos);
        EXPECT_EQ(step.line, scanner->line);
        EXPECT_EQ(step.column, scanner->column);
    }
}

TEST_P(Sources, GiveSignedCharacters) {
    const auto scanner = lexer("\x80\xFE");
    EXPECT_EQ(-128, scanner->consume());
    EXPECT_EQ(-2, scanner->consume());
}

TEST_P(Sources, EndAtByteFF) {
    const auto scanner = lexer(
        "a\xFF"
        "bc");
    EXPECT_EQ('a', scanner->consume());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(-1, scanner->la);
        EXPECT_EQ(-1, scanner->consume());
    }
    expectTokens("a\xFF b"sv, {token(Token::Id, "a", 1, 1), eof(1, 1)});
    expectTokens(
        "\xFF"
        "a"sv,
        {eof(1, 0)});
}

TEST_P(Sources, GiveNulLikeAnyCharacter) {
    const auto scanner = lexer("a\0b"sv);
    EXPECT_EQ('a', scanner->consume());
    EXPECT_EQ(0, scanner->consume());
    EXPECT_EQ('b', scanner->consume());
    EXPECT_EQ(-1, scanner->la);
}

TEST_P(Sources, StopCountingAtTheLargestCounter) {
    const auto scanner = lexer("ab\ncd");
    scanner->pos = largest - 1;
    scanner->line = largest - 1;
    scanner->column = largest - 1;
    scanner->consume();
    EXPECT_EQ(largest, scanner->pos);
    EXPECT_EQ(largest, scanner->column);
    scanner->consume();
    EXPECT_EQ(largest, scanner->pos);
    EXPECT_EQ(largest, scanner->column);
    scanner->consume();  // the line break
    EXPECT_EQ(largest - 1, scanner->line);
    EXPECT_EQ('c', scanner->consume());
    EXPECT_EQ(largest, scanner->line);
    EXPECT_EQ(1, scanner->column);
    EXPECT_EQ(largest, scanner->pos);
    scanner->c = '\n';
    scanner->consume();
    EXPECT_EQ(largest, scanner->line);
}

TEST_P(Sources, ShowTheLargestCounters) {
    const auto scanner = lexer("(!");
    scanner->line = largest;
    scanner->column = largest;
    EXPECT_EQ(token(Token::Invalid, "INVALID PAREN LIST TOKEN (2147483647,2147483647): '!'",
                    largest, largest),
              scanner->nextToken());
}

TEST_P(Sources, HoldTheirOwnReference) {
    std::unique_ptr<Lexer> scanner;
    const std::string text = "abc";
    {
        const String counted{std::string_view(text)};
        const File file = File::memory(text.data(), text.size());
        if (GetParam() == Source::Text) {
            scanner = std::make_unique<StringLexer>(counted);
        } else {
            scanner = std::make_unique<FileLexer>(file);
        }
    }
    EXPECT_EQ(token(Token::Id, "abc", 1, 3), scanner->nextToken());
}

TEST(StringSource, CopiesGoOnByThemselves) {
    const std::string text = "first second third, longer than what stands in the text itself";
    StringLexer scanner{String(std::string_view(text))};
    scanner.nextToken();
    StringLexer copy(scanner);
    EXPECT_EQ(token(Token::Id, "second", 1, 12), scanner.nextToken());
    EXPECT_EQ(token(Token::Id, "third", 1, 18), scanner.nextToken());
    EXPECT_EQ(token(Token::Id, "second", 1, 12), copy.nextToken());
    scanner = copy;
    EXPECT_EQ(token(Token::Id, "third", 1, 18), scanner.nextToken());
    EXPECT_EQ(token(Token::Id, "third", 1, 18), copy.nextToken());
}

TEST(StringSource, CopiesOfAShortTextReadTheirOwn) {
    StringLexer scanner("a b");
    const StringLexer copy(scanner);
    scanner = StringLexer("c d");
    StringLexer second(copy);
    EXPECT_EQ(token(Token::Id, "a", 1, 1), second.nextToken());
    EXPECT_EQ(token(Token::Id, "c", 1, 1), scanner.nextToken());
}

TEST(StringSource, BeginsAnEmptyTextWithItsTerminator) {
    StringLexer scanner{String()};
    EXPECT_EQ(0, scanner.la);
    EXPECT_EQ(eof(1, 1), scanner.nextToken());
    EXPECT_EQ(eof(1, 1), scanner.nextToken());
}

TEST(StringSource, ReadsAByteOrderMarkAsLetters) {
    StringLexer scanner("\xEF\xBB\xBF a");
    EXPECT_EQ(token(Token::Id, "\xEF\xBB\xBF", 1, 3), scanner.nextToken());
}

TEST(FileSource, EndsWhereNothingCanBeRead) {
    FileLexer empty(File::memory("", 0));
    EXPECT_EQ(-1, empty.la);
    EXPECT_EQ(eof(1, 0), empty.nextToken());
    FileLexer none{File()};
    EXPECT_EQ(eof(1, 0), none.nextToken());
}

TEST(FileSource, GivesTheEndAsATokenOfAnyType) {
    FileLexer scanner(File::memory("", 0));
    EXPECT_EQ(token(Token::Dot, "\xFF", 1, 0), scanner.token(Token::Dot));
    EXPECT_EQ(-1, scanner.la);
    EXPECT_EQ(-1, scanner.c);
    EXPECT_EQ(Token::Eof, scanner.nextToken().type);
}

TEST(FileSource, DoesNotCountAByteOrderMark) {
    FileLexer scanner(
        File::memory("\xEF\xBB\xBF"
                     "a",
                     4));
    EXPECT_EQ(token(Token::Id, "a", 1, 1), scanner.nextToken());
}

// A source of one's own: the lexer asks for nothing but characters.
class Repeated final : public Lexer {
  public:
    Repeated() { la = 'a'; }
    signed char consume() override {
        advance();
        la = pos < 3 ? 'a' : -1;
        return c;
    }
};

TEST(OwnSource, FeedsTheLexer) {
    Repeated scanner;
    EXPECT_EQ(token(Token::Id, "aaa", 1, 3), scanner.nextToken());
    EXPECT_EQ(eof(1, 3), scanner.nextToken());
}

// --- Making tokens

TEST_P(Sources, MakeATokenOfOneCharacterAtThePositionBeforeIt) {
    const auto scanner = lexer("ab");
    EXPECT_EQ(token(Token::Comma, "a", 1, 0), scanner->token(Token::Comma));
    EXPECT_EQ(token(Token::Star, "b", 1, 1), scanner->token(Token::Star));
    EXPECT_EQ(-1, scanner->la);
}

TEST_P(Sources, MakeATokenOfTextAtTheirPosition) {
    const auto scanner = lexer("ab");
    scanner->consume();
    EXPECT_EQ(token(Token::Real, "text", 1, 1), scanner->token(Token::Real, "text"));
    ko::ds::Vector<char> chars;
    EXPECT_EQ(token(Token::Id, "", 1, 1), scanner->token(Token::Id, chars));
    for (const char c : "x\0y"sv)
        chars.push_back(c);
    EXPECT_EQ(token(Token::Id, "x\0y"sv, 1, 1), scanner->token(Token::Id, chars));
    EXPECT_EQ('b', scanner->la);
}

TEST_P(Sources, MakeErrorTokensAndConsumeNothing) {
    const auto scanner = lexer("a\nb!");
    for (int i = 0; i < 3; ++i)
        scanner->consume();
    EXPECT_EQ(token(Token::Invalid, "INVALID BRACE LIST TOKEN (2,1): '!'", 2, 1),
              scanner->invalidListToken("BRACE"));
    EXPECT_EQ(token(Token::Eof, "UNEXPECTED EOF while parsing NUMBER", 2, 1),
              scanner->unexpectedEof("NUMBER"));
    EXPECT_EQ('!', scanner->la);
}

// --- The dispatcher

struct Punctuation {
    char character;
    Token::Type type;
};

constexpr Punctuation punctuation[] = {
    {'\'', Token::Quote}, {'*', Token::Star},       {'+', Token::Plus},  {',', Token::Comma},
    {'.', Token::Dot},    {'/', Token::Slash},      {':', Token::Colon}, {';', Token::Semicolon},
    {'=', Token::Equals}, {'\\', Token::Backslash}, {'|', Token::Pipe},
};

TEST(Tokens, HaveFixedCodes) {
    const int codes[] = {Token::Eof,      Token::Invalid,      Token::Id,     Token::Integer,
                         Token::Real,     Token::Comment,      Token::Braces, Token::Parens,
                         Token::Brackets, Token::StringLiteral};
    for (int code = 0; code < 10; ++code)
        EXPECT_EQ(code, codes[code]);
    EXPECT_EQ(15, Token::Dot);
    EXPECT_EQ(16, Token::Comma);
    EXPECT_EQ(17, Token::Colon);
    EXPECT_EQ(18, Token::Semicolon);
    EXPECT_EQ(19, Token::Quote);
    EXPECT_EQ(21, Token::Slash);
    EXPECT_EQ(22, Token::Backslash);
    EXPECT_EQ(29, Token::Equals);
    EXPECT_EQ(30, Token::Plus);
    EXPECT_EQ(32, Token::Star);
    EXPECT_EQ(33, Token::Pipe);
    EXPECT_EQ(35, Token::True);
    EXPECT_EQ(36, Token::False);
    EXPECT_EQ(37, Token::Null);
    EXPECT_EQ(4U, sizeof(Token::Type));
    EXPECT_EQ(token(Token::Eof, "", 0, 0), Token());
}

TEST_P(Sources, ReadPunctuation) {
    for (const auto& [character, type] : punctuation) {
        const std::string text(1, character);
        expectTokens(text, {token(type, text, 1, 0), eof(1, 1)});
        expectTokens(" \n" + text, {token(type, text, 1, 2), eof(2, 1)});
        expectTokens(text + text, {token(type, text, 1, 0), token(type, text, 1, 1), eof(1, 2)});
    }
}

// Every character that can start no token, and none that can.
TEST_P(Sources, RefuseOtherCharacters) {
    const std::string_view invalid = "!$%&)<>?@]^`}~";
    for (int code = 33; code < 127; ++code) {
        const char character = static_cast<char>(code);
        const Token found = lexer(std::string("\n ") + character)->nextToken();
        if (invalid.find(character) != std::string_view::npos) {
            const std::string message = std::string("INVALID TOKEN (2,1): '") + character + "'";
            EXPECT_EQ(token(Token::Invalid, message, 2, 1), found);
        } else {
            EXPECT_NE(Token::Invalid, found.type) << character;
        }
    }
}

TEST_P(Sources, LeaveAnInvalidCharacterWhereItIs) {
    expectTokens("a )", {token(Token::Id, "a", 1, 1),
                         token(Token::Invalid, "INVALID TOKEN (1,2): ')'", 1, 2)});
    expectTokens("}", {token(Token::Invalid, "INVALID TOKEN (1,0): '}'", 1, 0)});
}

TEST_P(Sources, SkipBlanks) {
    expectTokens(" ", {eof(1, 1)});
    expectTokens("\t\v\f\r \x01\x1F\x7F", {eof(1, 8)});
    expectTokens("\0\0"sv, {eof(1, 2)});
    expectTokens("\n", {eof(1, 1)});
    expectTokens("\n\n", {eof(2, 1)});
    expectTokens("a\n", {token(Token::Id, "a", 1, 1), eof(1, 2)});
    expectTokens(
        "\0a\x01"
        "b\x7F"sv,
        {token(Token::Id, "a", 1, 2), token(Token::Id, "b", 1, 4), eof(1, 5)});
}

TEST_P(Sources, StampWordsWithTheirLastCharacter) {
    expectTokens("a=1", {token(Token::Id, "a", 1, 1), token(Token::Equals, "=", 1, 1),
                         token(Token::Integer, "1", 1, 3), eof(1, 3)});
    expectTokens("a\nb", {token(Token::Id, "a", 1, 1), token(Token::Id, "b", 2, 1), eof(2, 1)});
    expectTokens(
        "n.x = vec3(1 2 3);\n",
        {token(Token::Id, "n", 1, 1), token(Token::Dot, ".", 1, 1), token(Token::Id, "x", 1, 3),
         token(Token::Equals, "=", 1, 4), token(Token::Id, "vec3", 1, 10),
         token(Token::Parens, "(1 2 3)", 1, 17), token(Token::Semicolon, ";", 1, 17), eof(1, 19)});
}

// --- Comments

TEST_P(Sources, ReadComments) {
    expectTokens("# version: 3\r\n", {token(Token::Comment, "# version: 3", 1, 12), eof(1, 14)});
    expectTokens("# a \t\nb",
                 {token(Token::Comment, "# a \t", 1, 5), token(Token::Id, "b", 2, 1), eof(2, 1)});
    expectTokens("#", {token(Token::Comment, "#", 1, 1), eof(1, 1)});
    expectTokens("##\"({", {token(Token::Comment, "##\"({", 1, 5), eof(1, 5)});
    expectTokens("#a\0b\x80"sv, {token(Token::Comment, "#a\0b\x80"sv, 1, 5), eof(1, 5)});
    expectTokens("a#b\r#c", {token(Token::Id, "a", 1, 1), token(Token::Comment, "#b", 1, 3),
                             token(Token::Comment, "#c", 1, 6), eof(1, 6)});
    expectTokens(
        "#a\xFF"
        "b",
        {token(Token::Comment, "#a", 1, 2), eof(1, 2)});
}

// --- Strings

TEST_P(Sources, ReadStrings) {
    for (const std::string_view text :
         {R"("")"sv, R"("abc")"sv, R"("a\"b")"sv, R"("a\\")"sv, R"("\\\"")"sv, R"("\n\q")"sv,
          "\"a\0b\""sv, "\"a\tb\x80\""sv, R"("# (;")"sv, R"("\\")"sv}) {
        const auto column = static_cast<std::int32_t>(text.size());
        expectTokens(text, {token(Token::StringLiteral, text, 1, column), eof(1, column)});
    }
    expectTokens("\"a\nb\";", {token(Token::StringLiteral, "\"a\nb\"", 2, 2),
                               token(Token::Semicolon, ";", 2, 2), eof(2, 3)});
    expectTokens(R"("a""b")", {token(Token::StringLiteral, R"("a")", 1, 3),
                               token(Token::StringLiteral, R"("b")", 1, 6), eof(1, 6)});
}

TEST_P(Sources, EndWithinAString) {
    struct Case {
        std::string_view text;
        std::int32_t line, column;
    };
    const Case cases[] = {{"\"", 1, 1},        {"\"abc", 1, 4},    {R"("a\")", 1, 4},
                          {R"("a\\\")", 1, 6}, {"\"a\n", 1, 3},    {"\"a\nb", 2, 1},
                          {R"("\)", 1, 2},     {"\"a\xFF\"", 1, 2}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.text);
        const auto scanner = lexer(each.text);
        EXPECT_EQ(token(Token::Eof, "UNEXPECTED EOF while parsing STRING", each.line, each.column),
                  scanner->nextToken());
        EXPECT_EQ(eof(each.line, each.column), scanner->nextToken());
    }
}

// --- Identifiers

TEST_P(Sources, ReadIdentifiers) {
    for (const std::string_view text :
         {"a"sv, "_"sv, "abc_1"sv, "_9"sv, "Zz"sv, "trueish"sv, "nulll"sv, "truefalse"sv, "_true"sv,
          "inf"sv, "nan"sv, "e5"sv, "h\xC3\xA9"sv, "\x80"sv, "\xFE"sv}) {
        const auto column = static_cast<std::int32_t>(text.size());
        expectTokens(text, {token(Token::Id, text, 1, column), eof(1, column)});
    }
}

TEST_P(Sources, ReadKeywordsInAnyLetterCase) {
    for (const std::string_view text : {"true"sv, "TRUE"sv, "True"sv, "tRuE"sv})
        expectTokens(text, {token(Token::True, "true", 1, 4), eof(1, 4)});
    for (const std::string_view text : {"false"sv, "FALSE"sv, "False"sv})
        expectTokens(text, {token(Token::False, "false", 1, 5), eof(1, 5)});
    for (const std::string_view text : {"null"sv, "NULL"sv, "nULL"sv})
        expectTokens(text, {token(Token::Null, "null", 1, 4), eof(1, 4)});
}

TEST_P(Sources, EndIdentifiersAtOtherCharacters) {
    expectTokens("a-b",
                 {token(Token::Id, "a", 1, 1), token(Token::Integer, "-b", 1, 3), eof(1, 3)});
    expectTokens("a.b:c", {token(Token::Id, "a", 1, 1), token(Token::Dot, ".", 1, 1),
                           token(Token::Id, "b", 1, 3), token(Token::Colon, ":", 1, 3),
                           token(Token::Id, "c", 1, 5), eof(1, 5)});
    expectTokens("a\0b"sv, {token(Token::Id, "a", 1, 1), token(Token::Id, "b", 1, 3), eof(1, 3)});
    expectTokens("true.x", {token(Token::True, "true", 1, 4), token(Token::Dot, ".", 1, 4),
                            token(Token::Id, "x", 1, 6), eof(1, 6)});
}

TEST_P(Sources, TakeAnyFirstCharacterOfAnIdentifierWhenAsked) {
    const auto scanner = lexer("1ab c");
    EXPECT_EQ(token(Token::Id, "1ab", 1, 3), scanner->id());
    EXPECT_EQ(token(Token::Id, " c", 1, 5), scanner->id());
    EXPECT_EQ(token(Token::Eof, "UNEXPECTED EOF while parsing ID", 1, 5), scanner->id());
}

// --- Numbers

TEST_P(Sources, TellIntegersFromReals) {
    for (const std::string_view text :
         {"0"sv, "42"sv, "-7"sv, "1e5"sv, "1E+5"sv, "12bd"sv, "-"sv, "1-2"sv, "5u"sv, "5U"sv,
          "-e"sv, "0b1"sv, "1+2-3"sv, "--"sv}) {
        const auto column = static_cast<std::int32_t>(text.size());
        expectTokens(text, {token(Token::Integer, text, 1, column), eof(1, column)});
    }
    for (const std::string_view text :
         {"1.5"sv, "-2."sv, "0.5e-3"sv, "2f"sv, "2F"sv, "1f"sv, "-nan"sv, "-inf"sv, "-INF"sv,
          "1a"sv, "1A"sv, "1i"sv, "1I"sv, "1n"sv, "1N"sv, "1.e5"sv, "1.2.3"sv, "-."sv, "1.5u"sv}) {
        const auto column = static_cast<std::int32_t>(text.size());
        expectTokens(text, {token(Token::Real, text, 1, column), eof(1, column)});
    }
}

TEST_P(Sources, EndNumbersAtOtherCharacters) {
    expectTokens("1.0,2.0", {token(Token::Real, "1.0", 1, 3), token(Token::Comma, ",", 1, 3),
                             token(Token::Real, "2.0", 1, 7), eof(1, 7)});
    expectTokens("0x1F",
                 {token(Token::Integer, "0", 1, 1), token(Token::Id, "x1F", 1, 4), eof(1, 4)});
    expectTokens("3g", {token(Token::Integer, "3", 1, 1), token(Token::Id, "g", 1, 2), eof(1, 2)});
    expectTokens(".5", {token(Token::Dot, ".", 1, 0), token(Token::Integer, "5", 1, 2), eof(1, 2)});
    expectTokens("+5",
                 {token(Token::Plus, "+", 1, 0), token(Token::Integer, "5", 1, 2), eof(1, 2)});
    expectTokens("- 5",
                 {token(Token::Integer, "-", 1, 1), token(Token::Integer, "5", 1, 3), eof(1, 3)});
    expectTokens("1_0",
                 {token(Token::Integer, "1", 1, 1), token(Token::Id, "_0", 1, 3), eof(1, 3)});
    expectTokens(
        "1\0"
        "2"sv,
        {token(Token::Integer, "1", 1, 1), token(Token::Integer, "2", 1, 3), eof(1, 3)});
    expectTokens(
        "1\xFF"
        "2",
        {token(Token::Integer, "1", 1, 1), eof(1, 1)});
}

TEST_P(Sources, TakeAnyFirstCharacterOfANumberWhenAsked) {
    const auto scanner = lexer("xFx+1.");
    EXPECT_EQ(token(Token::Real, "xF", 1, 2), scanner->number());
    EXPECT_EQ(token(Token::Real, "x+1.", 1, 6), scanner->number());
    EXPECT_EQ(token(Token::Eof, "UNEXPECTED EOF while parsing NUMBER", 1, 6), scanner->number());
}

// --- Brackets

TEST_P(Sources, ReadBrackets) {
    for (const std::string_view text :
         {"[]"sv, "[3]"sv, "[*]"sv, "[ 2 ]"sv, "[[3]"sv, "[**1 2]"sv, "[\t\x01 ]"sv, "[1\0]"sv}) {
        const auto column = static_cast<std::int32_t>(text.size());
        expectTokens(text, {token(Token::Brackets, text, 1, column), eof(1, column)});
    }
    expectTokens("[1\n2]", {token(Token::Brackets, "[1\n2]", 2, 2), eof(2, 2)});
    expectTokens("[1][2]", {token(Token::Brackets, "[1]", 1, 3),
                            token(Token::Brackets, "[2]", 1, 6), eof(1, 6)});
    expectTokens("[1]]", {token(Token::Brackets, "[1]", 1, 3),
                          token(Token::Invalid, "INVALID TOKEN (1,3): ']'", 1, 3)});
}

TEST_P(Sources, RefuseOtherCharactersInBrackets) {
    const std::string allowed = "0123456789*[] ";
    for (int code = 32; code < 255; ++code) {
        if (code == 127) continue;  // a blank
        const char character = static_cast<char>(code);
        const Token found = lexer(std::string("[") + character + "]")->nextToken();
        if (allowed.find(character) != std::string::npos) {
            EXPECT_EQ(Token::Brackets, found.type) << character;
        } else {
            const auto message = std::string("INVALID BRACKET LIST TOKEN (1,1): '") + character;
            EXPECT_EQ(token(Token::Invalid, message + "'", 1, 1), found);
        }
    }
}

TEST_P(Sources, GoOnAtTheCharacterThatBracketsRefuse) {
    const auto scanner = lexer("[1x]");
    EXPECT_EQ(token(Token::Invalid, "INVALID BRACKET LIST TOKEN (1,2): 'x'", 1, 2),
              scanner->nextToken());
    EXPECT_EQ(token(Token::Id, "x", 1, 3), scanner->nextToken());
}

TEST_P(Sources, EndWithinBrackets) {
    const auto scanner = lexer("[1 ");
    EXPECT_EQ(token(Token::Eof, "UNEXPECTED EOF while parsing BRACKETS", 1, 3),
              scanner->nextToken());
    EXPECT_EQ(eof(1, 3), scanner->nextToken());
    expectTokens("[",
                 {token(Token::Eof, "UNEXPECTED EOF while parsing BRACKETS", 1, 1), eof(1, 1)});
    expectTokens("[1\xFF]",
                 {token(Token::Eof, "UNEXPECTED EOF while parsing BRACKETS", 1, 2), eof(1, 2)});
}

// --- Parenthesised and braced groups

struct Group {
    std::string_view written;
    std::string_view text;
};

// Written with parentheses; braces are the other way round in both columns.
constexpr Group groups[] = {
    {"()", "()"},
    {"( )", "()"},
    {"(1)", "(1)"},
    {"(1,2,3)", "(1 2 3)"},
    {"(1 , 2)", "(1 2)"},
    {"(1,2)", "(1 2)"},
    {"( 1 ,2 )", "(1 2)"},
    {"( (1, 2) )", "(1 2)"},
    {"((1,2),(3,4))", "(1 2 3 4)"},
    {"((1 2)(3 4))", "(1 23 4)"},
    {"(((1)))", "(1)"},
    {"(1 ,)", "(1 )"},
    {"(1, )", "(1 )"},
    {"(1,)", "(1)"},
    {"(1  \t\n 2)", "(1 2)"},
    {"(,1)", "(1)"},
    {"(,,1,,2)", "(1 2)"},
    {"(1[2]3)", "(1 2 3)"},
    {"(nan, -inf, 1e-3)", "(nan -inf 1e-3)"},
    {"(+1 INF 2U 3u .5 NAN)", "(+1 INF 2U 3u .5 NAN)"},
    {"(0123456789abcdefABCDEF)", "(0123456789abcdefABCDEF)"},
    {"(1 (2))", "(1 2)"},
    {"((1) 2)", "(1 2)"},
    {"(1( )2)", "(12)"},
    {"(()1)", "(1)"},
    {"(1 ())", "(1 )"},
};

std::string withBraces(std::string_view text) {
    std::string swapped(text);
    const std::string_view from = "(){}";
    const std::string_view to = "{}()";
    for (char& c : swapped) {
        const auto place = from.find(c);
        if (place != std::string_view::npos) c = to[place];
    }
    return swapped;
}

TEST_P(Sources, NormaliseGroups) {
    for (const Group& group : groups) {
        const std::string written(group.written);
        SCOPED_TRACE(written);
        const Token parens = lexer(written)->nextToken();
        EXPECT_EQ(Token::Parens, parens.type);
        EXPECT_EQ(group.text, parens.text.view());
        const Token braces = lexer(withBraces(written))->nextToken();
        EXPECT_EQ(Token::Braces, braces.type);
        EXPECT_EQ(withBraces(group.text), braces.text.view());
    }
}

TEST_P(Sources, TakeTheOtherDelimitersAsSeparators) {
    expectTokens("(1{2}3)", {token(Token::Parens, "(1 2 3)", 1, 7), eof(1, 7)});
    expectTokens("({1})", {token(Token::Parens, "(1)", 1, 5), eof(1, 5)});
    expectTokens("{1(2)3}", {token(Token::Braces, "{1 2 3}", 1, 7), eof(1, 7)});
    expectTokens("{(1 2)(3 4)}", {token(Token::Braces, "{1 2 3 4}", 1, 12), eof(1, 12)});
    expectTokens("(1}2)", {token(Token::Parens, "(1 2)", 1, 5), eof(1, 5)});
}

TEST_P(Sources, StampGroupsWithTheirEnd) {
    expectTokens("(1\n2)(3)", {token(Token::Parens, "(1 2)", 2, 2),
                               token(Token::Parens, "(3)", 2, 5), eof(2, 5)});
    expectTokens("{1 \n};", {token(Token::Braces, "{1}", 2, 1), token(Token::Semicolon, ";", 2, 1),
                             eof(2, 2)});
}

TEST_P(Sources, TakeBytesThatAreNotPrintableAsBlanksInGroups) {
    expectTokens(
        "(1\0\x7F\x01"
        "2)"sv,
        {token(Token::Parens, "(1 2)", 1, 7), eof(1, 7)});
}

TEST_P(Sources, RefuseOtherCharactersInGroups) {
    const std::string allowed = "0123456789abcdefABCDEF+,-.()[]{}INUinu ";
    for (int code = 32; code < 255; ++code) {
        if (code == 127) continue;  // a blank
        const char character = static_cast<char>(code);
        for (const bool inParens : {true, false}) {
            const std::string open = inParens ? "(1" : "{1";
            const Token found = lexer(open + character + " ))}}")->nextToken();
            if (allowed.find(character) != std::string::npos) {
                EXPECT_EQ(inParens ? Token::Parens : Token::Braces, found.type) << character;
            } else {
                const std::string message = std::string("INVALID ") +
                                            (inParens ? "PAREN" : "BRACE") +
                                            " LIST TOKEN (1,2): '" + character + "'";
                EXPECT_EQ(token(Token::Invalid, message, 1, 2), found);
            }
        }
    }
}

TEST_P(Sources, GoOnAtTheCharacterThatAGroupRefuses) {
    const auto scanner = lexer("(1;2)");
    EXPECT_EQ(token(Token::Invalid, "INVALID PAREN LIST TOKEN (1,2): ';'", 1, 2),
              scanner->nextToken());
    EXPECT_EQ(token(Token::Semicolon, ";", 1, 2), scanner->nextToken());
    EXPECT_EQ(token(Token::Integer, "2", 1, 4), scanner->nextToken());
    EXPECT_EQ(token(Token::Invalid, "INVALID TOKEN (1,4): ')'", 1, 4), scanner->nextToken());
}

TEST_P(Sources, EndWithinAGroup) {
    struct Case {
        std::string_view text;
        std::int32_t line, column;
    };
    const Case cases[] = {{"(", 1, 1},     {"(1 2", 1, 4},  {"((1)", 1, 4},
                          {"(1 \n", 1, 4}, {"(1\n2", 2, 1}, {"(1\xFF)", 1, 2}};
    for (const Case& each : cases) {
        SCOPED_TRACE(each.text);
        const Token parens =
            token(Token::Eof, "UNEXPECTED EOF while parsing PARENS", each.line, each.column);
        const Token braces =
            token(Token::Eof, "UNEXPECTED EOF while parsing BRACES", each.line, each.column);
        expectTokens(each.text, {parens, eof(each.line, each.column)});
        expectTokens(withBraces(each.text), {braces, eof(each.line, each.column)});
    }
}

TEST_P(Sources, ReadGroupsWhenAsked) {
    EXPECT_EQ(token(Token::Parens, "(1 2)", 1, 5), lexer("(1,2)3")->parens());
    EXPECT_EQ(token(Token::Braces, "{1 2}", 1, 5), lexer("{1,2}3")->braces());
    EXPECT_EQ(token(Token::Eof, "UNEXPECTED EOF while parsing PARENS", 1, 1), lexer("(")->parens());
}

}  // namespace
