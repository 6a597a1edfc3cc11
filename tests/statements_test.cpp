// Most statements are read whole where enough of the text is at hand, all others by the rules; a
// source of single characters never has enough. Both ways give the same scene, messages, tokens and
// places.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "../fuzz/inputs.h"
#include "bytes.h"
#include "reader/statements.h"
#include "reading.h"
#include "single.h"
#include "tokens.h"

namespace {

using ko::String;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;
using kvt::test::Random;
using kvt::test::Single;

// All that can be seen of a reading, after every statement too.
class Watched {
  public:
    std::string read(Lexer& lexer) {
        const ko::LogCapture capture([this](const ko::LogRecord& record) {
            messages_.insert(std::string(record.text.view()));
        });
        kvt::test::registerNodeTypes(scene_);
        ko::mirel_sdk::impl::registerInputRename("t", "gone", "[gone]");
        KvtParser parser;
        bool isRead = true;
        try {
            parser.prime(&scene_, &lexer);
            while (parser.la(1) != Token::Eof && isRead) {
                isRead = readStatement(parser);
                show(parser, lexer);
            }
        } catch (const std::runtime_error& error) {
            isRead = false;
            seen_ << error.what() << '\n';
            show(parser, lexer);
        }
        parser.pendingConnections.forEach([this](const auto& entry) { show(entry.value); });
        parser.pendingIdentifiers.forEach([this](const auto& entry) { show(entry.value); });
        parser.resolveConnections();
        parser.resolveIdentifiers();
        showMessages();
        return seen_.str() + kvt::test::jsonOf(scene_, isRead);
    }

  private:
    static bool readStatement(KvtParser& parser) {
        return parser.parseComment() || parser.parseRemove() || parser.parseDefine() ||
               parser.parseDeclare() || parser.parseWith() || parser.parseAssign();
    }

    // What comes at once comes at the end of a document, in no fixed order.
    void showMessages() {
        for (const std::string& message : messages_)
            seen_ << message << '\n';
        messages_.clear();
    }

    void show(const KvtParser& parser, const Lexer& lexer) {
        showMessages();
        seen_ << kvt::test::stateOf(lexer) << '\n' << parser.lastToken() << '\n';
        for (int i = 1; i <= 3; ++i)
            seen_ << parser.lt(i) << '\n';
    }

    // Of the maps, whose order is that of addresses, a line each.
    void show(const KvtParser::AssignInfo& info) {
        std::ostringstream line;
        for (const Token& t : info.path)
            line << t << ' ';
        for (const Token& t : info.refPath)
            line << t << ' ';
        for (const Token* const t :
             {&info.token0, &info.token1, &info.token2, &info.token3, &info.token4})
            line << *t << ' ';
        line << info.gotScalar << info.gotBuffer << info.gotReference << info.gotIdentifier;
        messages_.insert(line.str());
    }

    Scene scene_;
    std::ostringstream seen_;
    std::multiset<std::string> messages_;
};

// A run after the other, of so many characters. Where a run was, other statements stand when it is
// gone.
class Runs final : public Lexer {
  public:
    Runs(std::string_view text, unsigned long size) : text_(text), size_(size) { start(nextRun()); }
    signed char consume() override { return step(); }

  private:
    std::string_view nextRun() override {
        constexpr std::string_view other = "                    .q=1;.r=2;.s=3;";
        for (unsigned long i = 0; i < run_.size(); ++i)
            run_[i] = other[i % other.size()];
        gone_ = std::move(run_);
        run_ = std::string(text_.substr(0, size_));
        text_.remove_prefix(run_.size());
        return run_;
    }

    std::string_view text_;
    unsigned long size_;
    std::string run_;
    std::string gone_;
};

// The inputs that are attached to each output and node, in their order.
std::string linksOf(const Scene& scene) {
    std::ostringstream links;
    for (const Node* const node : scene.nodes()) {
        links << node->name().view() << ':';
        for (const Input* const input : node->referring())
            links << ' ' << input->fullName().view();
        for (unsigned long i = 0; i < node->outputCount(); ++i) {
            links << " | " << node->outputAt(i)->name().view();
            for (const Input* const input : node->outputAt(i)->connected())
                links << ' ' << input->fullName().view();
        }
        links << '\n';
    }
    return links.str();
}

// All that the values hold, besides payloads.
std::string wordsOf(const Scene& scene) {
    std::ostringstream words;
    for (const Node* const node : scene.nodes()) {
        for (const Input* at = node->inputAt(0); at; at = at->nextInNode()) {
            const AttrData value = at->value();
            for (unsigned long i = value.hasPayload() ? 1 : 0; i < std::size(value.value); ++i)
                words << value.value[i] << ' ';
        }
        words << '\n';
    }
    return words.str();
}

// Messages come at once at the end of a document, in no fixed order.
std::string sortedLines(const std::string& text) {
    std::multiset<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.insert(line + '\n');
    std::string sorted;
    for (const std::string& line : lines)
        sorted += line;
    return sorted;
}

// Whether older documents have names of their own; without any, no name is looked up.
bool areNamesRenamed = true;

// What a reading yields, whatever it is read with.
template <class Read>
std::string outcomeOf(Read read) {
    Scene scene;
    scene.setBufferLimit(1UL << 16U);  // kept inputs ask for much more, which takes time
    scene.setElementLimit(1UL << 12U);
    kvt::test::registerNodeTypes(scene);
    if (areNamesRenamed) {
        ko::mirel_sdk::impl::registerInputRename("t", "gone", "[gone]");
    } else {
        ko::mirel_sdk::impl::clearRenames();
    }
    const kvt::test::Reading reading = read(scene);
    return sortedLines(reading.log) + kvt::test::jsonOf(scene, reading.ok) + linksOf(scene) +
           wordsOf(scene);
}

// The same, and where lexer and parser stand after it.
template <class Source, class... Args>
std::string parsedFrom(Args... args) {
    std::ostringstream end;
    const std::string outcome = outcomeOf([&](Scene& scene) {
        Source lexer(args...);
        KvtParser parser;
        const auto reading = kvt::test::collect([&] { return parser.parse(&scene, &lexer); });
        end << kvt::test::stateOf(lexer) << '\n'
            << (parser.withNode() ? parser.withNode()->name().view() : "") << '\n';
        for (int i = 0; i <= 3; ++i)
            end << (i ? parser.lt(i) : parser.lastToken()) << '\n';
        return reading;
    });
    return outcome + end.str();
}

// By the rules alone, as long as this lives.
class ByTheRules {
  public:
    ByTheRules() { ko::mirel_sdk::impl::readStatementsWhole(false); }
    ByTheRules(const ByTheRules&) = delete;
    ByTheRules& operator=(const ByTheRules&) = delete;
    ~ByTheRules() { ko::mirel_sdk::impl::readStatementsWhole(true); }
};

// From a string, a file, runs and single characters; in none of the last can a statement be whole.
void expectSameOutcome(const std::string& text) {
    areNamesRenamed = text.size() % 2 == 0 || text.find("gone") != std::string::npos;
    const auto fromText = [&text](Scene& scene) { return kvt::test::readText(&scene, text); };
    const auto fromFile = [&text](Scene& scene) { return kvt::test::readBytes(&scene, text); };
    const std::string byTheRules = [&] {
        const ByTheRules alone;
        return outcomeOf(fromText);
    }();
    ASSERT_EQ(byTheRules, outcomeOf(fromText)) << text;
    ASSERT_EQ(byTheRules, outcomeOf(fromFile)) << text;
    const std::string parsed = parsedFrom<Single>(std::string_view(text));
    ASSERT_EQ(parsed, parsedFrom<StringLexer>(String(std::string_view(text)))) << text;
    ASSERT_EQ(parsed, parsedFrom<Runs>(std::string_view(text), 65 + text.size() % 100)) << text;
}

TEST(Statements, AreNotReadFromARunThatIsGone) {
    for (const char* const rest :
         {"# said", "t m;", ".b = 2;", "t m: .c |= n.o;", "t m: .c = \""}) {
        const std::string text = "t n: .a = 1; " + std::string(rest) + std::string(100, 'x');
        const std::string parsed = parsedFrom<Single>(std::string_view(text));
        for (const unsigned long size : {20UL, 100UL, 1000UL})
            EXPECT_EQ(parsed, parsedFrom<Runs>(std::string_view(text), size)) << text;
    }
}

// Where a log sink reads on with the document's own lexer, or moves its place, nobody goes back.
TEST(Statements, AreReadFromWhereTheLexerStands) {
    const std::string text =
        "t n: .i = 1; .i = 2.5; .a = 1; .b = 2; .c = 3; .d = 4; # said\n .e = 5; $" +
        std::string(200, ' ');
    const auto readWith = [&text](const std::function<void(StringLexer&)>& disturb) {
        Scene scene;
        StringLexer lexer{String(std::string_view(text))};
        KvtParser parser;
        bool isDone = false;
        std::string log;
        const ko::LogCapture capture([&](const ko::LogRecord& record) {
            log += std::string(record.text.view()) + '\n';
            if (!std::exchange(isDone, true)) disturb(lexer);
        });
        const bool isRead = parser.parse(&scene, &lexer);
        return log + kvt::test::jsonOf(scene, isRead);
    };
    const std::function<void(StringLexer&)> disturbances[] = {
        [](StringLexer& lexer) {
            for (int i = 0; i < 6; ++i)
                lexer.nextToken();
        },
        [](StringLexer& lexer) { lexer.consume(); },
        [](StringLexer& lexer) { lexer.line = 500; },
        [](StringLexer& lexer) {
            lexer = StringLexer(String("t m: .x = 1; # and\n.y = 2; .z = 3;"));
        },
    };
    for (const auto& disturb : disturbances) {
        const std::string byTheRules = [&] {
            const ByTheRules alone;
            return readWith(disturb);
        }();
        EXPECT_EQ(byTheRules, readWith(disturb));
    }
}

// After a text as much as reading its last statement whole needs, which begins no statement.
std::string padded(const std::string& text) { return text + std::string(200, ' '); }

void expectSameReading(const std::string& text) {
    const std::string all = padded(text);
    Single single(all);
    StringLexer lexer{String(std::string_view(all))};
    ASSERT_EQ(Watched().read(single), Watched().read(lexer)) << text;
    ASSERT_NO_FATAL_FAILURE(expectSameOutcome(all));
}

// Sanitizers take several times as long: with them, every fourth beginning has to do.
#ifdef KVT_SANITIZED
constexpr unsigned long step = 4;
#else
constexpr unsigned long step = 1;
#endif

// A file passes over a byte order mark, where a text has a letter.
void expectSameOutcomesOfBeginnings(std::string text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (text.compare(0, mark.size(), mark) == 0) text.erase(0, mark.size());
    for (unsigned long length = text.size() % step; length <= text.size(); length += step)
        ASSERT_NO_FATAL_FAILURE(expectSameOutcome(padded(text.substr(0, length))));
}

constexpr const char* targets[] = {
    ".a",
    ".b",
    ".true",
    ".nulls",
    ".real",
    ".int",
    ".bool",
    ".vec3",
    ".mat4",
    ".x",
    ".rgba",
    ".array",
    ".string",
    ".mode",
    ".any",
    ".amount",
    ".list",
    ".object",
    "n.a",
    ".a.b",
    ".a[1]",
    ".a[0]",
    ".b[*]",
    ".array[0]",
    ".array[*]",
    ".list[2]",
    ".object.c[0]",
    "n.b[1]",
    ".a [007]",
    ".a[-1]",
    ".a[]",
    ".a[1234567890]",
    ".a[1].b",
    ".a[0][1]",
    ".long_name_of_20_",
    ".7",
    ". a",
    ".fourteen_of_14",
    ".fifteen_of_15_",
};

constexpr const char* scalars[] = {
    "1",
    "-1",
    "0",
    "007",
    "-0",
    "12345678",
    "123456789",
    "12345678901234",
    "-1234567890123",
    "123456789012345",
    "9007199254740993",
    "9223372036854775808",
    "1u",
    "0x10",
    "1e5",
    "1-2",
    "--1",
    "1.5",
    "-0.0",
    "0.1",
    "5.",
    "-5.",
    "-.5",
    "1.2.3",
    "-.",
    "-1.",
    "-",
    "1.5f",
    "1.00000000",
    "12345678.25",
    "0.00000000000001",
    "99999999999.99",
    "3.14159265358979",
    "nan",
    "inf",
    "-inf",
    "true",
    "False",
    "TRUE",
    "null",
    "Null",
    "other",
    "n",
    "a.b",
    "\"text\"",
    "\"\"",
    "\"fast\"",
    "\"fine\"",
    "\"none\"",
    "\"a\\\"b\"",
    "\"a\\n\"",
    "\"0123456789ab\"",
    "\"0123456789abc\"",
    "\"of two\nlines\"",
    "\"open",
    "\"=;.\"",
    "{}",
    "{1 2}",
    "[]",
    "[3]",
    "int32[2] {1 2}",
    "byte[2] {.0102}",
    "$",
    "(1 2 3)",
    "",
};

constexpr const char* references[] = {
    "null",
    "Null",
    "other.out",
    "n.out",
    "n.a",
    "n . out",
    "n.\nout",
    " n.out",
    "\n  n.out",
    "n .out",
    "n",
    "n.",
    ".out",
    "n.out.x",
    "n.out[1]",
    "n.true",
    "n.null",
    "true.out",
    "null.out",
    "Nulls.falsely",
    "fourteen_of_14.fourteen_of_14",
    "fifteen_of_15__.out",
    "n.fifteen_of_15__",
    "n,out",
    "1.out",
    "n.1",
    "",
};

constexpr const char* groups[] = {
    "(1 2 3)",
    "(1, 2, 3)",
    "(1 2)",
    "(1)",
    "()",
    "( 1 2 3 )",
    "( 1 2 3)",
    "(1 2 3,)",
    "(,1,,2, 3)",
    "(-1 -0 .5)",
    "(1 2 3 4)",
    "(1 2 3 4 5)",
    "(1 2 3 x)",
    "(1 2 3 nan)",
    "(1..5 2 3)",
    "(1e5 2 3)",
    "(1\n2\n3)",
    "((1 2) 3)",
    "(1.5, 2.25, -3.125, 0.1)",
    "(1 2 3 4 5 6 7 8 9)",
    "(12345678.5 1 2)",
    "(1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1)",
    "(1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1 2)",
    "(0 0 0 1234567890123456)",
    "(0 0 0 12345678901234567)",
    "(1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 9007199254740993)",
    "(+1 2 3)",
    "(. 2 3)",
    "(1 -. 3)",
    "(1 2 3",
    "(1 2 3;",
    "(1.23456789 2.3456789 3.456789 4.56789 5.6789 6.789 7.89 8.9 9.)",
};

constexpr const char* groupTypes[] = {
    "pos3", "vec2", "vec3",  "vec4", "rgba", "quat",    "mat3",
    "mat4", "POS3", "pos3 ", "pos2", "true", "unknown", "of_fifteen_long",
};

constexpr const char* gaps[] = {
    "",          "",   "",     " ",  " ",        "\n",
    "\n    ",    "\t", "\r\n", "  ", "\n\n  \n", "                  ",
    " # said\n",
};

template <std::size_t N>
std::string anyOf(Random& random, const char* const (&texts)[N]) {
    return texts[random.below(N)];
}

std::string anyValue(Random& random) {
    if (random.oneIn(3)) return anyOf(random, groupTypes) + anyOf(random, groups);
    return anyOf(random, scalars);
}

// As exporters write it, but for a token now and then.
std::string anyAssignment(Random& random) {
    const auto space = [&random] { return random.oneIn(4) ? anyOf(random, gaps) : " "; };
    std::string text = anyOf(random, targets) + space();
    if (random.oneIn(8)) {
        text += (random.oneIn(6) ? "|\n=" : "|=") + space() + anyOf(random, references);
    } else {
        text += "=" + space() + anyValue(random);
    }
    text += (random.oneIn(10) ? anyOf(random, gaps) : "");
    text += random.oneIn(40) ? random.oneOf(".:=!a1") : ';';
    return text + anyOf(random, gaps);
}

TEST(Statements, AreReadAlikeWholeAndByTheRules) {
    constexpr const char* heads[] = {
        "t n:",          "scalars n:",    "vectors n: ",
        "matrices n:\n", "others n:\n  ", "choice n:",
        "filter n:",     "renamed n:\n",  "",
    };
    Random random(23);
    for (int round = 0; round < 6000; ++round) {
        std::string text = anyOf(random, heads);
        for (unsigned long left = 1 + random.below(6); left > 0; --left) {
            text += anyAssignment(random);
            if (random.oneIn(12)) text += "t other" + std::string(random.oneIn(2) ? ":" : ";");
        }
        ASSERT_NO_FATAL_FAILURE(expectSameReading(text));
    }
}

TEST(Statements, ThatAreRenamedToNoInputAreRefusedAlike) {
    expectSameReading("t n:\n .here = 1;\n .gone = 2;\n .here = 3;");
}

TEST(Statements, OfEachValueAreReadAlikeBeforeAnyOther) {
    const auto expectSame = [](const std::string& value) {
        for (const char* const next : {".b = 1;", ".b |= n.out;", "t m;", "t m:\n.c = 2;", "$", ""})
            ASSERT_NO_FATAL_FAILURE(expectSameReading("t n:\n .a = " + value + ";\n " + next));
    };
    for (const char* const scalar : scalars)
        ASSERT_NO_FATAL_FAILURE(expectSame(scalar));
    for (const char* const reference : references) {
        for (const char* const target : {".a", ".a.b", ".true", "n.a"}) {
            for (const char* const sign : {"|=", " |=", "|= ", " |= ", " | = ", " |\n= "}) {
                const std::string text = std::string(target) + sign + reference;
                for (const char* const next : {";\n .b = 1;", ";t m:\n.c|=n.a;", ",", ""})
                    ASSERT_NO_FATAL_FAILURE(expectSameReading("t n:\n " + text + next));
            }
        }
    }
    for (const char* const type : groupTypes)
        for (const char* const group : groups)
            ASSERT_NO_FATAL_FAILURE(expectSame(std::string(type) + group));
}

// Up to the limit and beyond it.
TEST(Statements, OfElementsAreReadAlike) {
    const auto elements = [](const std::string& value, const std::string& index, int count) {
        std::string text = "t n:";
        for (int i = 0; i < count; ++i)
            text += "\n.e[" + (index.empty() ? std::to_string(i) : index) + "] " + value + ";";
        return text + "\n.e[0] " + value + ";";
    };
    for (const char* const value : {"= 1", "= 1.5", "= \"said\"", "= true", "= vec2(1 2)", "= m",
                                    "|= n.out", "= null", "|= null"}) {
        for (const char* const index : {"", "*", "0", "1"}) {
            ASSERT_NO_FATAL_FAILURE(expectSameReading(elements(value, index, 5)));
            ASSERT_NO_FATAL_FAILURE(expectSameReading("t n: .e = 1;" + elements(value, index, 3)));
            ASSERT_NO_FATAL_FAILURE(
                expectSameReading("t n: .e[0] = vec3(1 2 3);" + elements(value, index, 3)));
        }
        ASSERT_NO_FATAL_FAILURE(expectSameOutcome(padded(elements(value, "", 5000))));
    }
    ko::mirel_sdk::impl::registerInputRename("t", "[1]", "[0]");
    expectSameReading(elements("= 1", "", 5));
    ko::mirel_sdk::impl::clearRenames();
}

TEST(Statements, ThatReferAgainReplaceTheReference) {
    expectSameReading("t n:\n .a |= n.x;\n .a |= n.y;\n .b |= n.x;\n .a = 1;\n .a |= n.z;");
}

// In the same order and in another one, of so many that they are found through an index.
TEST(Statements, ThatReferAgainToMuchReplaceTheReferences) {
    std::string text = "t n:";
    const auto refer = [&text](int input, const std::string& output) {
        text += ".i" + std::to_string(input) + " |= n." + output + ";";
    };
    constexpr int count = 600;
    for (int i = 0; i < count; ++i)
        refer(i, "a");
    for (int i = 0; i < count; ++i)
        refer(i, "b" + std::to_string(i));
    for (int i = count; i-- > 0;)
        refer(i, "c" + std::to_string(i));
    expectSameReading(text);
}

TEST(Statements, BehindEachBeginningOfABlockAreReadAlike) {
    for (const char* const head : {"t n:", "t n :", "t  n:\n", "t\nn:", "define t;", "with t:",
                                   "with n:", "remove n;", "t true:", "t n;", "null n:", "t 1:"}) {
        for (const char* const next :
             {".a = 1;", "\n    .a |= n.out;", " .true = 1;", "t m:\n .b = 2;", "\n\n\n\n .a=1;",
              "                 .a = 1;", ". a = 1;", ".a . b = 1;", "# said\n .a = 1;", "$", ""}) {
            const std::string text = std::string(head) + next;
            ASSERT_NO_FATAL_FAILURE(expectSameReading(text));
            ASSERT_NO_FATAL_FAILURE(expectSameReading("t n:\n.b = 2;\n" + text));
        }
    }
}

TEST(Statements, OfDocumentsAreReadAlikeWholeAndByTheRules) {
    for (const auto& document : kvt::test::documents())
        ASSERT_NO_FATAL_FAILURE(expectSameReading(kvt::test::contents(document))) << document;
}

// A statement may end anywhere.
TEST(Statements, OfBeginningsOfDocumentsAreReadAlikeWholeAndByTheRules) {
    for (const auto& document : kvt::test::documents())
        ASSERT_NO_FATAL_FAILURE(expectSameOutcomesOfBeginnings(kvt::test::contents(document)))
            << document;
}

class StatementsOfKeptInputs : public testing::TestWithParam<const char*> {};

TEST_P(StatementsOfKeptInputs, AreReadAlikeWholeAndByTheRules) {
    const std::filesystem::path corpus = std::filesystem::path(KVT_SOURCE_DIR) / "fuzz" / "corpus";
    const auto inputs = kvt::fuzz::inputsAt(corpus / (std::string(GetParam()) + ".inputs"));
    ASSERT_FALSE(inputs.empty());
    for (const kvt::fuzz::Input& input : inputs)
        ASSERT_NO_FATAL_FAILURE(expectSameOutcomesOfBeginnings(input.bytes)) << input.name;
}

INSTANTIATE_TEST_SUITE_P(Corpora, StatementsOfKeptInputs,
                         testing::Values("document", "hostile", "lexer", "numbers", "scene",
                                         "session", "sources", "two"),
                         [](const auto& corpus) { return std::string(corpus.param); });

}  // namespace
