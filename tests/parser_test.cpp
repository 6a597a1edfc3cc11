// The operations of the parser, called one by one after `prime`: the lookahead, the diagnostics,
// the statements and the readers of values. What they do in whole documents stands in documents/.

#include <ko/ds.h>
#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>
#include <ko/types.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "tokens.h"

namespace {

using ko::DataType;
using ko::LogCapture;
using ko::Severity;
using ko::String;
using ko::ds::Vector;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;
using ko::mirel_sdk::interfaces::IInput;
using kvt::test::token;
using std::string_view_literals::operator""sv;

// A parser that has been primed with a text.
struct Parsing {
    explicit Parsing(std::string_view text) : lexer(String(text)) { parser.prime(&scene, &lexer); }

    // Reads another text from its start, with the same scene.
    void restart(std::string_view text) {
        lexer = StringLexer(String(text));
        parser.prime(&scene, &lexer);
    }

    Scene scene;
    StringLexer lexer;
    KvtParser parser;
};

// A record whose payload goes with it, as no input takes it.
struct Record : KvtParser::AssignInfo {
    Record() = default;
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record() { freePayload(data); }
};

// The message that `action` throws; empty if it throws none.
std::string thrownBy(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(typeid(std::runtime_error), typeid(e));
        return e.what();
    }
    return {};
}

// What `action` logs: the severity's letter and the text.
std::vector<std::string> loggedBy(const std::function<void()>& action) {
    const LogCapture capture;
    action();
    std::vector<std::string> messages;
    for (const ko::LogRecord& record : capture.records()) {
        messages.emplace_back(record.severity == Severity::Error ? "E " : "W ");
        messages.back() += record.text.view();
    }
    return messages;
}

using Messages = std::vector<std::string>;

// --- The lookahead

TEST(Lookahead, HoldsTheFirstThreeTokens) {
    const Parsing p("a = 5 ;");
    EXPECT_EQ(Token::Id, p.parser.la(1));
    EXPECT_EQ(Token::Equals, p.parser.la(2));
    EXPECT_EQ(Token::Integer, p.parser.la(3));
    EXPECT_EQ(token(Token::Id, "a", 1, 1), p.parser.lt(1));
    EXPECT_EQ(token(Token::Equals, "=", 1, 2), p.parser.lt(2));
    EXPECT_EQ(token(Token::Integer, "5", 1, 5), p.parser.lt(3));
    EXPECT_EQ(token(Token::Eof, "", 0, 0), p.parser.lastToken());
}

TEST(Lookahead, RepeatsTheEnd) {
    const Parsing p("a");
    EXPECT_EQ(token(Token::Eof, "EOF", 1, 1), p.parser.lt(2));
    EXPECT_EQ(token(Token::Eof, "EOF", 1, 1), p.parser.lt(3));
}

TEST(Lookahead, HoldsTheEndThatCarriesAMessage) {
    const Parsing p("a \"b");
    EXPECT_EQ(token(Token::Eof, "UNEXPECTED EOF while parsing STRING", 1, 4), p.parser.lt(2));
    EXPECT_EQ(token(Token::Eof, "EOF", 1, 4), p.parser.lt(3));
}

TEST(Lookahead, MovesOnByOneToken) {
    Parsing p("a b c d e f g h");
    for (const char name : "abcdefgh"sv) {
        const Token taken = p.parser.consume();
        EXPECT_EQ(std::string(1, name), taken.text.view());
        EXPECT_EQ(taken, p.parser.lastToken());
    }
    EXPECT_EQ(Token::Eof, p.parser.la(1));
    EXPECT_EQ(token(Token::Eof, "EOF", 1, 15), p.parser.consume());
}

TEST(Lookahead, StopsAtAnInvalidTokenThatEnters) {
    Parsing p("a b c ! d");
    EXPECT_EQ("INVALID TOKEN (1,6): '!'", thrownBy([&p] { p.parser.consume(); }));
    EXPECT_EQ(token(Token::Id, "a", 1, 1), p.parser.lastToken());
    EXPECT_EQ(token(Token::Id, "a", 1, 1), p.parser.lt(1));
    EXPECT_EQ(token(Token::Id, "b", 1, 3), p.parser.lt(2));
    EXPECT_EQ(token(Token::Id, "c", 1, 5), p.parser.lt(3));
}

TEST(Lookahead, RefusesAnInvalidTokenAmongTheFirstThree) {
    EXPECT_EQ("INVALID TOKEN (1,0): '!'", thrownBy([] { const Parsing p("!"); }));
    EXPECT_EQ("INVALID TOKEN (1,2): '!'", thrownBy([] { const Parsing p("a !"); }));
    EXPECT_EQ("INVALID BRACE LIST TOKEN (1,5): ';'", thrownBy([] { const Parsing p("a b {;"); }));
    EXPECT_EQ("", thrownBy([] { const Parsing p("a b c !"); }));
}

TEST(Lookahead, MatchesByType) {
    Parsing p("a =");
    Token taken = token(Token::Star, "*", 7, 7);
    EXPECT_FALSE(p.parser.match(taken, Token::Equals));
    EXPECT_EQ(token(Token::Star, "*", 7, 7), taken);
    EXPECT_EQ(Token::Id, p.parser.la(1));
    EXPECT_TRUE(p.parser.match(taken, Token::Id));
    EXPECT_EQ(token(Token::Id, "a", 1, 1), taken);
    EXPECT_TRUE(p.parser.match(taken, Token::Equals));
    EXPECT_TRUE(p.parser.match(taken, Token::Eof));
}

// --- Diagnostics

void internalError(KvtParser& parser, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    parser.internalError("SOME ERROR", fmt, args);
}

TEST(Diagnostics, CarryTheLastTokensPosition) {
    Parsing p("a\nbc d");
    KvtParser& parser = p.parser;
    EXPECT_EQ("PARSE ERROR (0,0): x.", thrownBy([&] { parser.parseError("x"); }));
    parser.consume();
    parser.consume();
    EXPECT_EQ("PARSE ERROR (2,2): x 5 'y'.",
              thrownBy([&] { parser.parseError("x %d '%s'", 5, "y"); }));
    EXPECT_EQ("BUFFER ERROR (2,2): Cannot add 3 @ index 18446744073709551615 of float[2]..",
              thrownBy([&] {
                  parser.bufferError("Cannot add %s @ index %lu of %s[%lu].", "3", ~0UL, "float",
                                     2UL);
              }));
    EXPECT_EQ("SOME ERROR (2,2): a b.", thrownBy([&] { internalError(parser, "a %s", "b"); }));
}

TEST(Diagnostics, ShowWholeTexts) {
    Parsing p("");
    const std::string text(100'000, 'x');
    EXPECT_EQ("PARSE ERROR (0,0): " + text + ".",
              thrownBy([&] { p.parser.parseError("%s", text.c_str()); }));
}

TEST(Diagnostics, ShowAnUnexpectedToken) {
    Parsing p("a b");
    EXPECT_EQ("BAD TOKEN (7,9): expected ';', found 'x'.",
              thrownBy([&] { p.parser.tokenError(";", token(Token::Id, "x", 7, 9)); }));
    EXPECT_EQ("a message",
              thrownBy([&] { p.parser.tokenError(token(Token::Invalid, "a message", 7, 9)); }));
}

TEST(Diagnostics, ShowTypes) {
    Parsing p("a b");
    Node* const node = p.scene.createNode("t", "n", "");
    Input* const list = node->createArray("list", AttrType::Object);
    list->appendElements(2);
    Input* const input = list->inputAt(1)->createInput("x", AttrType::Vec3);
    p.parser.consume();
    p.parser.consume();
    EXPECT_EQ("TYPE ERROR (1,3): cannot assign Int to Vec3 @ n.list[1].x.",
              thrownBy([&] { p.parser.typeError("Int", input, false); }));
    EXPECT_EQ("TYPE ERROR (1,3): cannot assign Int[] to Vec3 @ n.list[1].x.",
              thrownBy([&] { p.parser.typeError("Int", input, true); }));
    EXPECT_EQ(Messages{"W TYPE WARNING (1,3): narrowing Vec4 to Vec3 @ n.list[1].x."},
              loggedBy([&] { p.parser.narrowTypeWarning("Vec4", input); }));
    EXPECT_EQ(Messages{"E TYPE ERROR (1,3): expected Array @ n.list but found 5."},
              loggedBy([&] { p.parser.wrongTypeWarning("5", list); }));
}

TEST(Diagnostics, ThatAreThrownAreNotLogged) {
    Parsing p("a");
    Input* const input = p.scene.createNode("t", "n", "")->createInput("x", AttrType::Int);
    EXPECT_EQ(Messages{}, loggedBy([&] {
                  thrownBy([&] { p.parser.parseError("x"); });
                  thrownBy([&] { p.parser.bufferError("x"); });
                  thrownBy([&] { p.parser.typeError("x", input, false); });
                  thrownBy([&] { p.parser.tokenError("x", Token()); });
              }));
}

// --- Paths

struct Path {
    std::string_view text;
    const char* taken;  // null where there is no path
    Token::Type next;   // the token after it
};

constexpr Path paths[] = {
    {"n.x", "n.x", Token::Eof},
    {"n . x ;", "n.x", Token::Semicolon},
    {".x", ".x", Token::Eof},
    {"n.x.y.z =", "n.x.y.z", Token::Equals},
    {"n.x[1].y[*][ 2 ] =", "n.x[1].y[*][ 2 ]", Token::Equals},
    {".x[1]", ".x[1]", Token::Eof},
    {"n.x.", "n.x", Token::Dot},
    {"n.x.[1]", "n.x", Token::Dot},
    {"n.x y", "n.x", Token::Id},
    {"n.x.5", "n.x", Token::Dot},
    {"n.x.true", "n.x", Token::Dot},
    {"n", nullptr, Token::Id},
    {"n.", nullptr, Token::Id},
    {"n x", nullptr, Token::Id},
    {"n[1]", nullptr, Token::Id},
    {"n.5", nullptr, Token::Id},
    {"n.null", nullptr, Token::Id},
    {"null.x", nullptr, Token::Null},
    {".", nullptr, Token::Dot},
    {"..x", nullptr, Token::Dot},
    {".[1]", nullptr, Token::Dot},
    {"[1]", nullptr, Token::Brackets},
    {"", nullptr, Token::Eof},
};

TEST(Paths, AreReadAsFarAsTheyGo) {
    for (const Path& path : paths) {
        SCOPED_TRACE(path.text);
        Parsing p(path.text);
        Vector<Token> tokens;
        EXPECT_EQ(path.taken != nullptr, p.parser.path(tokens));
        EXPECT_EQ(path.taken ? path.taken : "", KvtParser::collapse(tokens).view());
        EXPECT_EQ(path.next, p.parser.la(1));
    }
}

TEST(Paths, AreAppended) {
    Parsing p("a.b[1]");
    Vector<Token> tokens;
    tokens.push_back(token(Token::Star, "*", 1, 1));
    EXPECT_TRUE(p.parser.path(tokens));
    ASSERT_EQ(5U, tokens.size());
    EXPECT_EQ(token(Token::Star, "*", 1, 1), tokens[0]);
    EXPECT_EQ(token(Token::Id, "a", 1, 1), tokens[1]);
    EXPECT_EQ(token(Token::Dot, ".", 1, 1), tokens[2]);
    EXPECT_EQ(token(Token::Id, "b", 1, 3), tokens[3]);
    EXPECT_EQ(token(Token::Brackets, "[1]", 1, 6), tokens[4]);
    EXPECT_EQ("*a.b[1]", KvtParser::collapse(tokens).view());
    EXPECT_EQ("", KvtParser::collapse(Vector<Token>()).view());
}

// --- The record of an assignment

TEST(AssignInfo, StartsEmpty) {
    const KvtParser::AssignInfo info;
    EXPECT_TRUE(info.path.isEmpty());
    EXPECT_TRUE(info.refPath.isEmpty());
    for (const Token& each : {info.token0, info.token1, info.token2, info.token3, info.token4})
        EXPECT_EQ(Token(), each);
    EXPECT_FALSE(info.gotScalar || info.gotBuffer || info.gotReference || info.gotIdentifier);
    EXPECT_EQ(AttrType::Null, info.data.type);
    for (const std::uint64_t word : info.data.value)
        EXPECT_EQ(0U, word);
    EXPECT_EQ("", info.valueString().view());
}

TEST(AssignInfo, IsCopiedWhole) {
    KvtParser::AssignInfo copy;
    {
        KvtParser::AssignInfo info;
        info.path.push_back(token(Token::Id, "a", 1, 2));
        info.refPath.push_back(token(Token::Null, "null", 3, 4));
        info.token4 = token(Token::Id, "b", 5, 6);
        info.gotIdentifier = true;
        info.data = AttrData::ofInt(7);
        copy = info;
        info.path[0].text = "changed";
        info.token4 = Token();
    }
    ASSERT_EQ(1U, copy.path.size());
    EXPECT_EQ(token(Token::Id, "a", 1, 2), copy.path[0]);
    EXPECT_EQ(token(Token::Null, "null", 3, 4), copy.refPath[0]);
    EXPECT_EQ(token(Token::Id, "b", 5, 6), copy.token4);
    EXPECT_TRUE(copy.gotIdentifier);
    EXPECT_EQ(7, copy.data.integer());
}

struct ValueText {
    std::string_view value;
    Token::Type count;
    std::string_view shown;
};

constexpr ValueText valueTexts[] = {
    {"12345678901234567890", Token::Eof, "12345678901234567890"},
    {"123456789012345678901", Token::Eof, "12345678901234567890..."},
    {"", Token::Eof, ""},
    {"float", Token::Eof, "float"},
    {"float", Token::Invalid, "float"},
    {"float", Token::Id, "float[]"},
    {"float", Token::Brackets, "float[]"},
    {"123456789012345678", Token::Brackets, "123456789012345678[]"},
    {"1234567890123456789", Token::Brackets, "1234567890123456789[..."},
    {"12345678901234567890", Token::Brackets, "12345678901234567890..."},
};

TEST(AssignInfo, ShowsAShortenedValue) {
    for (const ValueText& each : valueTexts) {
        KvtParser::AssignInfo info;
        info.token0.text = String(each.value);
        info.token1.type = each.count;
        EXPECT_EQ(each.shown, info.valueString().view());
    }
}

// --- Scalars

struct Scalar {
    std::string_view text;
    AttrType type;
    std::vector<std::uint64_t> words;
};

std::uint64_t bits(double number) {
    std::uint64_t word = 0;
    std::memcpy(&word, &number, sizeof word);
    return word;
}

std::vector<std::uint64_t> reals(const std::vector<double>& numbers) {
    std::vector<std::uint64_t> words;
    for (const double number : numbers)
        words.push_back(bits(number));
    return words;
}

TEST(Scalars, AreConverted) {
    const Scalar scalars[] = {
        {"true", AttrType::Bool, {1}},
        {"FALSE", AttrType::Bool, {0}},
        {"5", AttrType::Int, {5}},
        {"-5", AttrType::Int, {~4UL}},
        {"010", AttrType::Int, {10}},
        {"5U", AttrType::Int, {5}},
        {"9223372036854775807", AttrType::Int, {0x7FFF'FFFF'FFFF'FFFF}},
        {"-9223372036854775808", AttrType::Int, {0x8000'0000'0000'0000}},
        {"5u", AttrType::UInt, {5}},
        {"-5u", AttrType::UInt, {~4UL}},
        {"9223372036854775807u", AttrType::UInt, {0x7FFF'FFFF'FFFF'FFFF}},
        {"1.5", AttrType::Real, {bits(1.5)}},
        {"-2.", AttrType::Real, {bits(-2)}},
        {"2f", AttrType::Real, {bits(2)}},
        {"1.e5", AttrType::Real, {bits(1e5)}},
        {"-inf", AttrType::Real, {0xFFF0'0000'0000'0000}},
        {"{1 2}", AttrType::Object, {}},
        {"{}", AttrType::Object, {}},
        {"[0]", AttrType::Array, {}},
        {"vec2(1 2)", AttrType::Vec2, reals({1, 2})},
        {"VEC3(1,2,3)", AttrType::Vec3, reals({1, 2, 3})},
        {"Vec4 (1 2 3 4 5)", AttrType::Vec4, reals({1, 2, 3, 4})},
        {"pos2(1 2)", AttrType::Pos2, reals({1, 2})},
        {"pos3(1 2 3)", AttrType::Pos3, reals({1, 2, 3})},
        {"quat(1 2 3 4)", AttrType::Quat, reals({1, 2, 3, 4})},
        {"Rgba(1 0 0)", AttrType::Rgba, reals({1, 0, 0, 1})},
        {"rgba(1 0 0 n)", AttrType::Rgba, reals({1, 0, 0, 1})},
        {"mat3(1 2 3 4 5 6 7 8 9)", AttrType::Mat3, reals({1, 2, 3, 4, 5, 6, 7, 8, 9})},
        {"mat4(1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16)", AttrType::Mat4,
         reals({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16})},
    };
    for (const Scalar& scalar : scalars) {
        SCOPED_TRACE(scalar.text);
        Parsing p(scalar.text);
        Record info;
        EXPECT_TRUE(p.parser.scalar(info));
        EXPECT_EQ(Token::Eof, p.parser.la(1));
        EXPECT_EQ(scalar.type, info.data.type);
        for (unsigned long i = 0; i < 16; ++i)
            EXPECT_EQ(i < scalar.words.size() ? scalar.words[i] : 0, info.data.value[i]) << i;
        EXPECT_FALSE(info.gotScalar);
    }
}

TEST(Scalars, KeepTheTokensOfAMathValue) {
    Parsing p("vec2( 1,2 )");
    Record info;
    EXPECT_TRUE(p.parser.scalar(info));
    EXPECT_EQ(token(Token::Id, "vec2", 1, 4), info.token0);
    EXPECT_EQ(token(Token::Parens, "(1 2)", 1, 11), info.token3);
    EXPECT_EQ(Token(), info.token1);
    EXPECT_EQ(token(Token::Parens, "(1 2)", 1, 11), p.parser.lastToken());
}

struct Text {
    std::string_view literal;
    std::string_view value;
};

TEST(Scalars, AreUnescapedTexts) {
    const Text texts[] = {
        {R"("")", ""},           {R"("abc")", "abc"},
        {R"("a\"b")", "a\"b"},   {R"("a\\b\n")", "a\\b\n"},
        {R"("\x41\q")", "A\\q"}, {"\"a\nb\"", "a\nb"},
        {"\"a\0b\""sv, "a"},     {R"("a\0b")", "a"},
        {"\"\x80\"", "\x80"},
    };
    for (const Text& text : texts) {
        SCOPED_TRACE(text.literal);
        Parsing p(text.literal);
        Record info;
        EXPECT_TRUE(p.parser.scalar(info));
        EXPECT_EQ(AttrType::String, info.data.type);
        ASSERT_NE(nullptr, info.data.payload());
        EXPECT_EQ(text.value, info.data.text());
        for (int i = 1; i < 16; ++i)
            EXPECT_EQ(0U, info.data.value[i]);
    }
}

struct Refused {
    std::string_view text;
    AttrType type;
};

// Taken all the same, with the type of the value that they are not.
constexpr Refused refusedScalars[] = {
    {"1e5", AttrType::Int},
    {"1e5u", AttrType::UInt},
    {"12bd", AttrType::Int},
    {"-", AttrType::Int},
    {"1-2", AttrType::Int},
    {"9223372036854775808", AttrType::Int},
    {"-9223372036854775809", AttrType::Int},
    {"18446744073709551615u", AttrType::UInt},
    {"1.2.3", AttrType::Real},
    {"1a", AttrType::Real},
    {"1.e309", AttrType::Real},
    {"1.5u", AttrType::Real},
    {"-.", AttrType::Real},
    {"vec2()", AttrType::Vec2},
    {"vec3(1 2)", AttrType::Vec3},
    {"vec3(1 - 3)", AttrType::Vec3},
    {"vec4(1 2 3)", AttrType::Vec4},
    {"pos2(1)", AttrType::Pos2},
    {"pos3(1u 2 3)", AttrType::Pos3},
    {"quat(1 2 3)", AttrType::Quat},
    {"rgba(1 2)", AttrType::Rgba},
    {"rgba(1 n 2 3)", AttrType::Rgba},
    {"mat3(1 2 3 4 5 6 7 8)", AttrType::Mat3},
    {"mat4(1 2 3 4 5 6 7 8 9)", AttrType::Mat4},
};

TEST(Scalars, ThatDoNotConvertAreTaken) {
    for (const Refused& refused : refusedScalars) {
        SCOPED_TRACE(refused.text);
        Parsing p(refused.text);
        Record info;
        EXPECT_FALSE(p.parser.scalar(info));
        EXPECT_EQ(Token::Eof, p.parser.la(1));
        EXPECT_EQ(refused.type, info.data.type);
    }
}

TEST(Scalars, ThatAreNoneStay) {
    for (const std::string_view text :
         {"foo"sv, "null"sv, "vec3"sv, "vec3[1]"sv, "vec3 {1 2 3}"sv, "vec5(1 2)"sv, "vec2f(1 2)"sv,
          "float[1] {1}"sv, ";"sv, "(1 2)"sv, "."sv, "+"sv, "#"sv, ""sv, "\"abc"sv, "bool(1)"sv}) {
        SCOPED_TRACE(text);
        Parsing p(text);
        Record info;
        const Token first = p.parser.lt(1);
        EXPECT_FALSE(p.parser.scalar(info));
        EXPECT_EQ(first, p.parser.lt(1));
        EXPECT_EQ(AttrType::Null, info.data.type);
    }
}

// --- Values

TEST(Values, BeginWithEquals) {
    Parsing p("5 ;");
    Record info;
    EXPECT_FALSE(p.parser.value(info));
    EXPECT_EQ(Token::Integer, p.parser.la(1));
}

TEST(Values, AreScalars) {
    Parsing p("= 5 ; x");
    Record info;
    EXPECT_TRUE(p.parser.value(info));
    EXPECT_TRUE(info.gotScalar);
    EXPECT_FALSE(info.gotBuffer || info.gotReference || info.gotIdentifier);
    EXPECT_EQ(token(Token::Integer, "5", 1, 3), info.token0);
    EXPECT_EQ(Token::Id, p.parser.la(1));
}

TEST(Values, AreBuffers) {
    Parsing p("= float[1] {1};");
    Record info;
    EXPECT_TRUE(p.parser.value(info));
    EXPECT_TRUE(info.gotBuffer);
    EXPECT_FALSE(info.gotScalar || info.gotReference || info.gotIdentifier);
}

TEST(Values, AreIdentifiers) {
    for (const auto type : {Token::Id, Token::Null}) {
        Parsing p(type == Token::Id ? "= name;" : "= NULL;");
        const Token word =
            type == Token::Id ? token(type, "name", 1, 6) : token(type, "null", 1, 6);
        Record info;
        EXPECT_TRUE(p.parser.value(info));
        EXPECT_TRUE(info.gotIdentifier);
        EXPECT_FALSE(info.gotScalar || info.gotReference || info.gotBuffer);
        EXPECT_EQ(word, info.token4);
        EXPECT_EQ(word, info.token0);
        EXPECT_EQ(AttrType::Null, info.data.type);
    }
}

TEST(Values, KeepTheTypeOfARefusedLiteral) {
    Parsing p("= 1e5 name;");
    Record info;
    EXPECT_TRUE(p.parser.value(info));
    EXPECT_TRUE(info.gotIdentifier);
    EXPECT_EQ(AttrType::Int, info.data.type);
    EXPECT_EQ("name", info.token0.text.view());
}

TEST(Values, MustStandBetweenEqualsAndSemicolon) {
    const Text errors[] = {
        {"= ;", "BAD TOKEN (1,2): expected '(scalar|buffer|reference)', found ';'."},
        {"= (1);", "BAD TOKEN (1,5): expected '(scalar|buffer|reference)', found '(1)'."},
        {"= 1e5;", "BAD TOKEN (1,5): expected '(scalar|buffer|reference)', found ';'."},
        {"= vec3(1 2);", "BAD TOKEN (1,11): expected '(scalar|buffer|reference)', found ';'."},
        {"= 5", "BAD TOKEN (1,3): expected ';', found 'EOF'."},
        {"= \"abc\" 5;", "BAD TOKEN (1,9): expected ';', found '5'."},
        {"= float[1] {1} {",
         "BAD TOKEN (1,16): expected ';', found 'UNEXPECTED EOF while parsing "
         "BRACES'."},
        {"= a.b;", "BAD TOKEN (1,3): expected ';', found '.'."},
    };
    for (const Text& error : errors) {
        SCOPED_TRACE(error.literal);
        Parsing p(error.literal);
        Record info;
        EXPECT_EQ(error.value, thrownBy([&] { p.parser.value(info); }));
    }
}

// --- Buffers

TEST(Buffers, AreDescribedByTheirValue) {
    Parsing p("Vec3F[ 2 ] { 1 2 3, 4 5 6 } ;");
    Record info;
    EXPECT_TRUE(p.parser.buffer(info));
    EXPECT_EQ(token(Token::Id, "Vec3F", 1, 5), info.token0);
    EXPECT_EQ(token(Token::Brackets, "[ 2 ]", 1, 10), info.token1);
    EXPECT_EQ(token(Token::Braces, "{1 2 3 4 5 6}", 1, 27), info.token2);
    EXPECT_EQ(AttrType::Buffer, info.data.type);
    EXPECT_EQ(2U, info.data.value[1]);
    EXPECT_EQ(24U, info.data.value[2]);
    EXPECT_EQ(static_cast<std::uint64_t>(DataType::Vec3f), info.data.value[3]);
    EXPECT_EQ(0U, info.data.value[4]);
    float numbers[6] = {};
    std::memcpy(numbers, info.data.payload(), sizeof numbers);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(static_cast<float>(i + 1), numbers[i]);
    EXPECT_FALSE(info.gotBuffer);
    EXPECT_EQ(Token::Semicolon, p.parser.la(1));
}

TEST(Buffers, OfNoElementsHaveNoData) {
    for (const std::string_view text : {"float[0] {}"sv, "float[0] {1}"sv, "byte[0] {.}"sv}) {
        Parsing p(text);
        Record info;
        EXPECT_EQ(Messages{}, loggedBy([&] { EXPECT_TRUE(p.parser.buffer(info)); }));
        EXPECT_EQ(AttrType::Buffer, info.data.type);
        EXPECT_EQ(nullptr, info.data.payload());
        EXPECT_EQ(0U, info.data.value[1]);
        EXPECT_EQ(0U, info.data.value[2]);
        EXPECT_NE(DataType::Null, info.data.bufferType());
    }
}

TEST(Buffers, ThatAreNoneStay) {
    for (const std::string_view text :
         {"float{1 2}"sv, "float[2]"sv, "float[2] (1 2)"sv, "float"sv, "vec3[1] {1 2 3}"sv,
          "bool[1] {1}"sv, "real[1] {1}"sv, "xformf[1] {1}"sv, "ptr[1] {1}"sv, "null[1] {1}"sv,
          "5[1] {1}"sv, "[1] {1}"sv, ""sv}) {
        SCOPED_TRACE(text);
        Parsing p(text);
        Record info;
        const Token first = p.parser.lt(1);
        EXPECT_FALSE(p.parser.buffer(info));
        EXPECT_EQ(first, p.parser.lt(1));
        EXPECT_EQ(Token(), info.token0);
        EXPECT_EQ(AttrType::Null, info.data.type);
    }
}

TEST(Buffers, KeepWhatWasReadBeforeAnError) {
    Parsing p("int32[3] {1 e 3}");
    Record info;
    EXPECT_EQ("PARSE ERROR (1,16): Failed to read 'int32' buffer..",
              thrownBy([&] { p.parser.buffer(info); }));
    EXPECT_EQ(AttrType::Buffer, info.data.type);
    EXPECT_EQ(DataType::Int32, info.data.bufferType());
    EXPECT_EQ(3U, info.data.value[1]);
    std::int32_t numbers[3] = {};
    std::memcpy(numbers, info.data.payload(), sizeof numbers);
    EXPECT_EQ(1, numbers[0]);
    EXPECT_EQ(0, numbers[1]);
    EXPECT_EQ(3, numbers[2]);
}

TEST(Buffers, OfARefusedCountKeepTheirTokens) {
    Parsing p("float[1 2] {1}");
    Record info;
    EXPECT_EQ("PARSE ERROR (1,14): invalid buffer element count: [1 2].",
              thrownBy([&] { p.parser.buffer(info); }));
    EXPECT_EQ("float", info.token0.text.view());
    EXPECT_EQ(nullptr, info.data.payload());
}

TEST(Buffers, CountWholeElementsOrComponents) {
    Parsing p("vec3f[2] {1 2 3 4 5}");
    Record few;
    EXPECT_EQ(Messages{"W Too few elements (1) for vec3f[2] buffer, remainder set to zero."},
              loggedBy([&] { EXPECT_TRUE(p.parser.buffer(few)); }));
    p.restart("vec3f[2] {1 2 3 4 5 6 7}");
    Record many;
    EXPECT_EQ("BUFFER ERROR (1,24): Cannot add 7 @ index 6 of vec3f[2]..",
              thrownBy([&] { p.parser.buffer(many); }));
}

// --- Elements

struct Element {
    DataType type;
    std::string_view text;
    std::vector<unsigned char> bytes;  // none where the text is refused
};

TEST(Elements, AreWrittenInTheirWidth) {
    const Element elements[] = {
        {DataType::Char, "-128", {0x80}},
        {DataType::Char, "128", {}},
        {DataType::Byte, "255", {0xFF}},
        {DataType::Byte, "256", {}},
        {DataType::Byte, "-1", {}},
        {DataType::Int16, "-2", {0xFE, 0xFF}},
        {DataType::Int16, "32768", {}},
        {DataType::Int32, "258", {2, 1, 0, 0}},
        {DataType::Int32, "2147483648", {}},
        {DataType::Int32, "1.5", {}},
        {DataType::Int64, "-1", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {DataType::Int64, "9223372036854775808", {}},
        {DataType::UInt16, "65535", {0xFF, 0xFF}},
        {DataType::UInt16, "65536", {}},
        {DataType::UInt32, "4294967295", {0xFF, 0xFF, 0xFF, 0xFF}},
        {DataType::UInt32, "4294967296", {}},
        {DataType::UInt64,
         "18446744073709551615",
         {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {DataType::UInt64, "-1", {}},
        {DataType::UInt64, "0x10u", {0x10, 0, 0, 0, 0, 0, 0, 0}},
        {DataType::Float, "1", {0, 0, 0x80, 0x3F}},
        {DataType::Float, "-inf", {0, 0, 0x80, 0xFF}},
        {DataType::Float, "1e39", {}},
        {DataType::Float, "e", {}},
        {DataType::Double, "1", {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},
        {DataType::Double, "1e309", {}},
        {DataType::Double, "", {}},
    };
    constexpr unsigned char untouched = 0xA5;
    Parsing p("");
    for (const Element& element : elements) {
        SCOPED_TRACE(element.text);
        for (unsigned long offset = 0; offset < 8; ++offset) {  // whatever the alignment
            unsigned char memory[24];
            std::memset(memory, untouched, sizeof memory);
            EXPECT_EQ(!element.bytes.empty(),
                      p.parser.parseElem(String(element.text), element.type, memory + offset));
            for (unsigned long i = 0; i < sizeof memory; ++i) {
                const bool isWritten = i >= offset && i - offset < element.bytes.size();
                EXPECT_EQ(isWritten ? element.bytes[i - offset] : untouched, memory[i]) << i;
            }
        }
    }
}

TEST(Elements, OfOtherTypesAreRefused) {
    Parsing p("");
    for (std::uint32_t code = 0; code < 70; ++code) {
        const auto type = static_cast<DataType>(code);
        unsigned char memory[8] = {};
        const bool isNumber = code >= 2 && code <= 11;
        EXPECT_EQ(isNumber, p.parser.parseElem("1", type, memory)) << code;
        EXPECT_EQ(isNumber, memory[0] != 0 || memory[7] != 0 || memory[3] != 0) << code;
    }
}

// --- References

TEST(References, BeginWithAPipe) {
    Parsing p("= n.x;");
    Record info;
    EXPECT_FALSE(p.parser.connect(info));
    EXPECT_EQ(Token::Equals, p.parser.la(1));
}

TEST(References, KeepTheirPath) {
    Parsing p("| = m.out[1].x ; y");
    Record info;
    EXPECT_TRUE(p.parser.connect(info));
    EXPECT_TRUE(info.gotReference);
    EXPECT_FALSE(info.gotScalar || info.gotBuffer || info.gotIdentifier);
    EXPECT_EQ("m.out[1].x", KvtParser::collapse(info.refPath).view());
    EXPECT_TRUE(info.path.isEmpty());
    EXPECT_EQ(token(Token::Id, "m", 1, 5), info.token0);
    EXPECT_EQ(AttrType::Null, info.data.type);
    EXPECT_EQ(Token::Id, p.parser.la(1));
}

TEST(References, MayBeNull) {
    Parsing p("|= NULL;");
    Record info;
    EXPECT_TRUE(p.parser.connect(info));
    EXPECT_TRUE(info.gotReference);
    ASSERT_EQ(1U, info.refPath.size());
    EXPECT_EQ(token(Token::Null, "null", 1, 7), info.refPath[0]);
    EXPECT_EQ(token(Token::Null, "null", 1, 7), info.token0);
}

TEST(References, AreTheValueOfTheirRecordWhateverItHeld) {
    Parsing p("|= a.b; |= null;");
    Record info;
    EXPECT_TRUE(p.parser.connect(info));
    EXPECT_TRUE(p.parser.connect(info));
    EXPECT_EQ(token(Token::Null, "null", 1, 15), info.token0);
    EXPECT_EQ("a.bnull", KvtParser::collapse(info.refPath).view());
}

TEST(References, MustBeWhole) {
    const Text errors[] = {
        {"| m.out;", "BAD TOKEN (1,3): expected '=', found 'm'."},
        {"|| ;", "BAD TOKEN (1,1): expected '=', found '|'."},
        {"|", "BAD TOKEN (1,1): expected '=', found 'EOF'."},
        {"|= m;", "BAD TOKEN (1,4): expected '(null|path)', found 'm'."},
        {"|= ;", "BAD TOKEN (1,3): expected '(null|path)', found ';'."},
        {"|= \"m.out\";", "BAD TOKEN (1,10): expected '(null|path)', found '\"m.out\"'."},
        {"|= m.out", "BAD TOKEN (1,8): expected ';', found 'EOF'."},
        {"|= m.out.;", "BAD TOKEN (1,8): expected ';', found '.'."},
        {"|= null.out;", "BAD TOKEN (1,7): expected ';', found '.'."},
    };
    for (const Text& error : errors) {
        SCOPED_TRACE(error.literal);
        Parsing p(error.literal);
        Record info;
        EXPECT_EQ(error.value, thrownBy([&] { p.parser.connect(info); }));
        EXPECT_FALSE(info.gotReference);
    }
}

// --- Comments, remove and define

struct Comment {
    std::string_view text;
    unsigned long version;  // 1 where it is not set
    const char* time;
    const char* warning;
};

constexpr Comment comments[] = {
    {"# anything", 1, "", nullptr},
    {"#version:7", 7, "", nullptr},
    {"# version:\t0x10u ", 16, "", nullptr},
    {"# version: 18446744073709551615", ~0UL, "", nullptr},
    {"# version: 18446744073709551616", 1, "", "# version: 18446744073709551616"},
    {"# version: ", 1, "", "# version: "},
    {"# version: -1", 1, "", "# version: -1"},
    {"# version: 1.0", 1, "", "# version: 1.0"},
    {"# a: version: 2", 1, "", "# a: version: 2"},
    {"# version: 2 time: 3", 1, "", "# version: 2 time: 3"},
    {"# time: a: b ", 1, "a: b", nullptr},
    {"# a:b time: c", 1, "b time: c", nullptr},
    {"# time:", 1, "", nullptr},
    {"# time: \t", 1, "", nullptr},
    {"# Version: 2", 1, "", nullptr},
    {"# TIME: 2", 1, "", nullptr},
    {"# version : 2", 1, "", nullptr},
};

TEST(Comments, SetTheHeaderAndAreKept) {
    for (const Comment& comment : comments) {
        SCOPED_TRACE(comment.text);
        Parsing p(comment.text);
        Messages expected;
        if (comment.warning) {
            expected.push_back(std::string("W Failed to parse KVT version comment: ") +
                               comment.warning);
        }
        EXPECT_EQ(expected, loggedBy([&] { EXPECT_TRUE(p.parser.parseComment()); }));
        EXPECT_EQ(comment.version, p.scene.fileVersion());
        EXPECT_EQ(comment.time, p.scene.fileTime().view());
        ASSERT_EQ(1U, p.scene.comments().size());
        EXPECT_EQ(comment.text, p.scene.comments()[0].view());
        EXPECT_FALSE(p.parser.parseComment());
    }
}

TEST(Comments, AreTakenOnlyInFront) {
    Parsing p("a # b");
    EXPECT_FALSE(p.parser.parseComment());
    EXPECT_EQ(Token::Id, p.parser.la(1));
    EXPECT_TRUE(p.scene.comments().empty());
}

TEST(Removal, TakesAKeywordInAnyLetterCase) {
    Parsing p("remove a; ReMoVe b; REMOVE gone; c");
    p.scene.createNode("t", "a", "");
    p.scene.createNode("t", "b", "");
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(p.parser.parseRemove());
    EXPECT_EQ(0U, p.scene.nodeCount());
    EXPECT_EQ(Token::Id, p.parser.la(1));
}

TEST(RemovalAndDefinition, ThatAreNoneStay) {
    for (const std::string_view text :
         {"% a"sv, "% a:"sv, "%;"sv, "% = 5;"sv, "%.x = 5;"sv, "% 5;"sv, "% true;"sv, "%d a;"sv,
          "% \"a\";"sv, "% # a\n b;"sv, "a % ;"sv}) {
        for (const char* const keyword : {"remove", "define"}) {
            std::string statement(text);
            statement.replace(statement.find('%'), 1, keyword);
            SCOPED_TRACE(statement);
            Parsing p(statement);
            const Token first = p.parser.lt(1);
            EXPECT_FALSE(p.parser.parseRemove());
            EXPECT_FALSE(p.parser.parseDefine());
            EXPECT_EQ(first, p.parser.lt(1));
            EXPECT_TRUE(p.parser.definedNodes().isEmpty());
        }
    }
}

// --- Declarations and with-blocks

TEST(Declarations, FindOrCreateANode) {
    Parsing p("t n; u n; t m:");
    EXPECT_TRUE(p.parser.parseDeclare());
    Node* const node = p.scene.findNode("n");
    ASSERT_NE(nullptr, node);
    EXPECT_EQ("t", node->type().view());
    EXPECT_EQ("", node->label().view());
    EXPECT_EQ(nullptr, p.parser.withNode());
    EXPECT_TRUE(p.parser.parseDeclare());
    EXPECT_EQ(1U, p.scene.nodeCount());
    EXPECT_TRUE(p.parser.parseDeclare());
    EXPECT_EQ(p.scene.findNode("m"), p.parser.withNode());
    EXPECT_FALSE(p.parser.parseDeclare());
}

// A scene with a mind of its own.
struct Refusing : Scene {
    Node* createNode(String type, String name, String label) override {
        if (type == "light") return nullptr;
        return Scene::createNode(std::move(type), std::move(name), std::move(label));
    }
};

TEST(Declarations, OfANodeThatTheSceneRefusesLeaveNoNodeToAssignTo) {
    Refusing scene;
    StringLexer lexer(String("cube a: light b: light c; cube d;"));
    KvtParser parser;
    parser.prime(&scene, &lexer);
    EXPECT_TRUE(parser.parseDeclare());
    EXPECT_EQ(scene.findNode("a"), parser.withNode());
    EXPECT_TRUE(parser.parseDeclare());
    EXPECT_EQ(nullptr, parser.withNode());
    EXPECT_TRUE(parser.parseDeclare());
    EXPECT_TRUE(parser.parseDeclare());
    EXPECT_EQ(2U, scene.nodeCount());
}

TEST(Declarations, ThatAreNoneStay) {
    for (const std::string_view text : {"t n"sv, "t n ="sv, "t n,"sv, "t ;"sv, "t :"sv, "t true;"sv,
                                        "null n;"sv, "5 n;"sv, "t 5;"sv, ""sv, "t"sv, "a b c"sv}) {
        SCOPED_TRACE(text);
        Parsing p(text);
        const Token first = p.parser.lt(1);
        EXPECT_FALSE(p.parser.parseDeclare());
        EXPECT_EQ(first, p.parser.lt(1));
        EXPECT_EQ(0U, p.scene.nodeCount());
    }
}

TEST(Declarations, TestNoKeyword) {
    Parsing p("with a: remove b: define c;");
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(p.parser.parseDeclare());
    EXPECT_EQ("with", p.scene.findNode("a")->type().view());
    EXPECT_EQ("remove", p.scene.findNode("b")->type().view());
    EXPECT_EQ("define", p.scene.findNode("c")->type().view());
    EXPECT_EQ(p.scene.findNode("b"), p.parser.withNode());
}

// A node of a scene that is gone is no one's to ask for what follows.
TEST(Declarations, AskNothingOfTheNodeBeforeThem) {
    KvtParser parser;
    for (int i = 0; i < 2; ++i) {
        Scene scene;
        StringLexer lexer{String("t n: .a = 1;"sv)};
        ASSERT_TRUE(parser.parse(&scene, &lexer));
        EXPECT_EQ(scene.findNode("n"), parser.withNode());
    }
}

TEST(WithBlocks, SelectANode) {
    Parsing p("WiTh n: x");
    Node* const node = p.scene.createNode("t", "n", "");
    EXPECT_TRUE(p.parser.parseWith());
    EXPECT_EQ(node, p.parser.withNode());
    EXPECT_EQ(Token::Id, p.parser.la(1));
}

TEST(WithBlocks, ThatAreNoneStay) {
    for (const std::string_view text :
         {"with n;"sv, "with n"sv, "with:"sv, "with 5:"sv, "width n:"sv, "n with:"sv, ""sv}) {
        SCOPED_TRACE(text);
        Parsing p(text);
        const Token first = p.parser.lt(1);
        EXPECT_FALSE(p.parser.parseWith());
        EXPECT_EQ(first, p.parser.lt(1));
    }
}

TEST(WithBlocks, SelectNoneWhereNothingFits) {
    Parsing p("t n: with gone: x");
    EXPECT_TRUE(p.parser.parseDeclare());
    EXPECT_NE(nullptr, p.parser.withNode());
    EXPECT_TRUE(p.parser.parseWith());
    EXPECT_EQ(nullptr, p.parser.withNode());
    EXPECT_EQ(token(Token::Id, "x", 1, 17), p.parser.lt(1));
    EXPECT_EQ(1U, p.scene.nodeCount());
}

// A parser that has read definitions, in the order in which they stand here.
struct Defining : Parsing {
    Defining()
        : Parsing(
              "define a; define b; DEFINE c; define d; define new; define a; with cam: with "
              "Cam: with lens: with CAM: with b: with new:") {
        scene.createNode("cam", "a", "");
        scene.createNode("cam", "b", "");
        scene.createNode("Cam", "c", "");
        scene.createNode("lens", "d", "");
        for (int i = 0; i < 6; ++i)
            EXPECT_TRUE(parser.parseDefine());
    }
};

TEST(Definitions, AreKeptInOrder) {
    const Defining p;
    std::string names;
    for (const Node* const node : p.parser.definedNodes())
        names += std::string(node->name().view()) + ' ';
    EXPECT_EQ("a b c d new a ", names);
    EXPECT_FALSE(p.scene.findNode("a")->isDefinition());
    EXPECT_TRUE(p.scene.findNode("new")->isDefinition());
}

TEST(Definitions, AreSelectedByTypeTheLastFirst) {
    Defining p;
    const char* const selected[] = {"a", "c", "d", nullptr, "b", "new"};
    for (const char* const name : selected) {
        EXPECT_TRUE(p.parser.parseWith());
        EXPECT_EQ(name ? p.scene.findNode(name) : nullptr, p.parser.withNode());
    }
}

TEST(Definitions, ThatWereRemovedStaySafe) {
    Defining p;
    p.scene.removeNode("d");
    p.restart("with lens: .x = 1;");
    EXPECT_TRUE(p.parser.parseWith());
    ASSERT_NE(nullptr, p.parser.withNode());
    EXPECT_TRUE(p.parser.withNode()->isRemoved());
    EXPECT_TRUE(p.parser.parseAssign());
}

// --- Assignments

TEST(Assignments, ThatAreNoneStay) {
    for (const std::string_view text : {"t n;"sv, "n[1] = 2;"sv, "5"sv, ""sv, ". = 5;"sv}) {
        SCOPED_TRACE(text);
        Parsing p(text);
        const Token first = p.parser.lt(1);
        EXPECT_FALSE(p.parser.parseAssign());
        EXPECT_EQ(first, p.parser.lt(1));
    }
}

TEST(Assignments, WithoutAValueLoseTheirPath) {
    Parsing p("n.x[1] 5;");
    EXPECT_FALSE(p.parser.parseAssign());
    EXPECT_EQ(Token::Integer, p.parser.la(1));
    EXPECT_EQ(token(Token::Brackets, "[1]", 1, 6), p.parser.lastToken());
}

TEST(Assignments, StoreAtOnce) {
    Parsing p("n.x = 5; n.s = \"abc\";");
    Node* const node = p.scene.createNode("t", "n", "");
    EXPECT_TRUE(p.parser.parseAssign());
    EXPECT_EQ(5, node->input("x")->asInt());
    EXPECT_TRUE(p.parser.parseAssign());
    EXPECT_EQ("abc", node->input("s")->asText());
    EXPECT_EQ(0U, p.parser.pendingConnections.size());
    EXPECT_EQ(0U, p.parser.pendingIdentifiers.size());
}

TEST(Assignments, OfReferencesWait) {
    Parsing p("n.x |= a.b; n.x |= c.d; n.y |= null; n.x = m; n.x = n; n.z = null;");
    Node* const node = p.scene.createNode("t", "n", "");
    for (int i = 0; i < 6; ++i)
        EXPECT_TRUE(p.parser.parseAssign());
    IInput* const x = node->input("x");
    EXPECT_EQ(2U, p.parser.pendingConnections.size());
    EXPECT_EQ(2U, p.parser.pendingIdentifiers.size());
    EXPECT_EQ("c.d", KvtParser::collapse(p.parser.pendingConnections.find(x).refPath).view());
    EXPECT_EQ("n.x", KvtParser::collapse(p.parser.pendingConnections.find(x).path).view());
    EXPECT_TRUE(p.parser.pendingConnections.find(x).gotReference);
    EXPECT_EQ(token(Token::Id, "n", 1, 53), p.parser.pendingIdentifiers.find(x).token4);
    EXPECT_EQ(AttrType::Null, node->input("x")->type());
    EXPECT_EQ(nullptr, node->input("x")->nodeReference());
}

TEST(Assignments, ThatWaitHoldNothingOfFormerValues) {
    Parsing p(
        "n.b = float[2] {1 2}; n.m = mat4(1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16);"
        "n.x = foo; n.y |= n.o;");
    Node* const node = p.scene.createNode("t", "n", "");
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(p.parser.parseAssign());
    const KvtParser::AssignInfo& connection = p.parser.pendingConnections.find(node->input("y"));
    for (const Token* const t :
         {&connection.token1, &connection.token2, &connection.token3, &connection.token4})
        EXPECT_EQ(Token(), *t);
    for (const std::uint64_t word : p.parser.pendingIdentifiers.find(node->input("x")).data.value)
        EXPECT_EQ(0U, word);
    for (const std::uint64_t word : p.parser.pendingConnections.find(node->input("y")).data.value)
        EXPECT_EQ(0U, word);
}

TEST(Assignments, ThatWaitAreDroppedWithTheDocument) {
    Scene scene;
    KvtParser parser;
    StringLexer document(String("t n: .x |= n.o; .y = n; ;"));
    EXPECT_EQ(1U, loggedBy([&] { EXPECT_FALSE(parser.parse(&scene, &document)); }).size());
    EXPECT_EQ(0U, parser.pendingConnections.size());
    EXPECT_EQ(0U, parser.pendingIdentifiers.size());
    parser.resolveConnections();
    EXPECT_EQ(nullptr, scene.findNode("n")->input("x")->connection());
}

TEST(Assignments, ThatWaitCanBeKeptBeyondTheirParser) {
    std::string longPath = "n";
    for (int i = 0; i < 40; ++i)
        longPath += ".step";
    auto p = std::make_unique<Parsing>("n.x |= a.b; " + longPath + " |= c.d;");
    p->scene.createNode("t", "n", "");
    EXPECT_TRUE(p->parser.parseAssign());
    EXPECT_TRUE(p->parser.parseAssign());
    const auto kept = std::move(p->parser.pendingConnections);
    p.reset();
    std::vector<std::string> shown;
    kept.forEachInserted([&shown](const auto& entry) {
        const KvtParser::AssignInfo info = entry.value;
        shown.emplace_back(KvtParser::collapse(info.path).view());
        shown.emplace_back(KvtParser::collapse(info.refPath).view());
    });
    EXPECT_EQ((std::vector<std::string>{"n.x", "a.b", longPath, "c.d"}), shown);
}

TEST(Assignments, ThatWaitAreResolvedWhenAsked) {
    Parsing p("n.x |= n.out; n.y |= null; n.x = n; n.y = null;");
    Node* const node = p.scene.createNode("t", "n", "");
    Input* const y = node->createInput("y", AttrType::Null);
    y->connect(node->output("old"));
    y->setNode(node);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(p.parser.parseAssign());
    p.parser.resolveConnections();
    EXPECT_EQ("n.out", node->input("x")->connection()->fullName().view());
    EXPECT_EQ(nullptr, node->input("x")->nodeReference());
    EXPECT_EQ(nullptr, y->connection());
    EXPECT_EQ(node, y->nodeReference());
    p.parser.resolveIdentifiers();
    EXPECT_EQ(node, node->input("x")->nodeReference());
    EXPECT_EQ(nullptr, y->nodeReference());
}

TEST(Assignments, ThatWaitWithoutAPathAreWarnedOf) {
    Parsing p("");
    Node* const node = p.scene.createNode("t", "n", "");
    p.parser.pendingConnections.insert(node->createInput("x", AttrType::Null), {});
    const LogCapture log;
    p.parser.resolveConnections();
    ASSERT_EQ(1U, log.records().size());
    EXPECT_EQ("Invalid output: .", log.records()[0].text.view());
}

TEST(Assignments, ThatWaitForOtherThanTwoNamesAreWarnedOf) {
    Parsing p("");
    Node* const node = p.scene.createNode("t", "n", "");
    KvtParser::AssignInfo info;
    for (const Token& t : {token(Token::Id, "n", 1, 1), token(Token::Slash, "/", 1, 2),
                           token(Token::Id, "out", 1, 3)})
        info.refPath.push_back(t);
    p.parser.pendingConnections.insert(node->createInput("x", AttrType::Null), info);
    const LogCapture log;
    p.parser.resolveConnections();
    ASSERT_EQ(1U, log.records().size());
    EXPECT_EQ("Invalid output: n/out.", log.records()[0].text.view());
    EXPECT_EQ(nullptr, node->findOutput("out"));
}

// Whatever the tokens are said to be.
TEST(Assignments, ThatWaitGoByTheTextOfTheirReferences) {
    Parsing p("");
    Node* const node = p.scene.createNode("t", "n", "");
    const auto file = [&](const char* input, const char* first, const char* between,
                          const char* last) {
        KvtParser::AssignInfo info;
        for (const Token& t : {token(Token::Id, first, 1, 1), token(Token::Dot, between, 1, 2),
                               token(Token::Id, last, 1, 3)})
            info.refPath.push_back(t);
        p.parser.pendingConnections.insert(node->createInput(input, AttrType::Null), info);
    };
    file("a", "n.b", ".", "c");
    file("b", "n", ".", "c.d");
    file("c", "n", "", ".out");
    file("d", "", ".", "n.out");
    file("e", "n", "/", "out");
    const LogCapture log;
    p.parser.resolveConnections();
    std::multiset<std::string> messages;
    for (const auto& record : log.records())
        messages.insert(std::string(record.text.view()));
    EXPECT_EQ((std::multiset<std::string>{"Invalid output: n.b.c.", "Invalid output: n.c.d.",
                                          "Invalid output: n/out."}),
              messages);
    const Output* const output = node->findOutput("out");
    ASSERT_TRUE(output);
    EXPECT_EQ(output, node->input("c")->connection());
    EXPECT_EQ(output, node->input("d")->connection());
}

TEST(Assignments, KeepTheirInputsWhileTheyWait) {
    Parsing p("n.list[1].x |= m.out; n.list[0].y = m;");
    p.scene.createNode("t", "n", "");
    p.scene.createNode("t", "m", "");
    EXPECT_TRUE(p.parser.parseAssign());
    EXPECT_TRUE(p.parser.parseAssign());
    p.scene.removeNode("n");
    p.scene.purgeRemoved();
    p.scene.removeNode("m");
    EXPECT_EQ(2U, loggedBy([&] {
                      p.parser.resolveConnections();
                      p.parser.resolveIdentifiers();
                  }).size());
}

TEST(Assignments, ReadTheWholeStatementFirst) {
    Parsing p("n.x = 5 n.y = 6;");
    Node* const node = p.scene.createNode("t", "n", "");
    EXPECT_EQ("BAD TOKEN (1,9): expected ';', found 'n'.",
              thrownBy([&] { p.parser.parseAssign(); }));
    EXPECT_EQ(0U, node->inputCount());
}

// --- Resolving, where no order is promised

TEST(Resolution, TriesEveryEntry) {
    Scene scene;
    StringLexer document(
        "t n; n.a |= .x; n.b |= gone.x; n.c |= n.out; n.d |= a.b.c; n.e = gone; n.f = n; n.g = "
        "no;");
    KvtParser parser;
    Messages messages = loggedBy([&] { EXPECT_TRUE(parser.parse(&scene, &document)); });
    std::sort(messages.begin(), messages.begin() + 3);
    std::sort(messages.begin() + 3, messages.end());
    const Messages expected = {"W Cannot connect nonexistent node gone to n.b.",
                               "W Invalid output: .x.", "W Invalid output: a.b.c.",
                               "W Cannot assign nonexistent node gone to n.e.",
                               "W Cannot assign nonexistent node no to n.g."};
    EXPECT_EQ(expected, messages);
    Node* const node = scene.findNode("n");
    EXPECT_NE(nullptr, node->input("c")->connection());
    EXPECT_EQ(node, node->input("f")->nodeReference());
}

}  // namespace
