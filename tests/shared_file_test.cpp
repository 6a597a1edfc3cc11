// Files that several readers share, at once or one after the other: each goes on where the one
// before it has looked last, whatever was read ahead inside.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "reading.h"
#include "single.h"
#include "tokens.h"

namespace {

using ko::File;
using ko::mirel_sdk::impl::FileLexer;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::parseKvt;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::Token;
using kvt::test::collect;
using kvt::test::contents;
using kvt::test::documents;
using kvt::test::registerNodeTypes;
using kvt::test::Single;
using kvt::test::stateOf;
using kvt::test::token;

// --- Sources

enum class Kind { Memory, Regular, Pipe };

const char* nameOf(Kind kind) {
    switch (kind) {
        case Kind::Memory: return "Memory";
        case Kind::Regular: return "Regular";
        case Kind::Pipe: return "Pipe";
    }
    return "";
}

File opened(int descriptor) {
    return File::open(("/proc/self/fd/" + std::to_string(descriptor)).c_str());
}

// A file that lives in memory, but is read like any other.
File regular(std::string_view bytes) {
    const int descriptor = memfd_create("kvt-shared-file", 0);
    EXPECT_EQ(ssize_t(bytes.size()), pwrite(descriptor, bytes.data(), bytes.size(), 0));
    File file = opened(descriptor);
    close(descriptor);
    return file;
}

// The pipe takes all of the bytes before anyone reads.
File piped(std::string_view bytes) {
    std::array<int, 2> ends{};
    EXPECT_EQ(0, pipe(ends.data()));
    EXPECT_LE(int(bytes.size()), fcntl(ends[1], F_SETPIPE_SZ, 1 << 20));
    EXPECT_EQ(ssize_t(bytes.size()), write(ends[1], bytes.data(), bytes.size()));
    File file = opened(ends[0]);
    close(ends[0]);
    close(ends[1]);
    return file;
}

class SharedFiles : public testing::TestWithParam<Kind> {
  protected:
    // Of bytes that stay where they are.
    static File fileOf(std::string_view bytes) {
        switch (GetParam()) {
            case Kind::Memory: return File::memory(bytes.data(), bytes.size());
            case Kind::Regular: return regular(bytes);
            case Kind::Pipe: return piped(bytes);
        }
        return {};
    }
};

INSTANTIATE_TEST_SUITE_P(, SharedFiles, testing::Values(Kind::Memory, Kind::Regular, Kind::Pipe),
                         [](const auto& kind) { return nameOf(kind.param); });

std::string restOf(File& file) {
    std::string bytes;
    signed char c = 0;
    while (file.read(c))
        bytes += static_cast<char>(c);
    return bytes;
}

// Words and numbers that fill some blocks.
std::string longText() {
    std::string text;
    for (int i = 0; text.size() < 200'000; ++i)
        text += "word" + std::to_string(i) + '\n';
    return text;
}

void readTo(Token::Type last, Lexer& lexer) {
    Token token;
    do
        token = lexer.nextToken();
    while (token.type != last);
}

// --- Once the lexer is gone

TEST_P(SharedFiles, StandAfterTheLookaheadOfALexer) {
    const std::string text = "ab cd";
    for (unsigned long consumed = 0; consumed < text.size() + 3; ++consumed) {
        SCOPED_TRACE(consumed);
        File file = fileOf(text);
        {
            FileLexer lexer(file);
            for (unsigned long i = 0; i < consumed; ++i)
                lexer.consume();
        }
        const unsigned long lookedAt = std::min(consumed + 1, text.size());
        EXPECT_EQ(lookedAt, file.position());
        EXPECT_EQ(text.substr(lookedAt), restOf(file));
        EXPECT_EQ(text.size(), file.position());
    }
}

TEST_P(SharedFiles, StandAfterTheLookaheadInALaterBlock) {
    const std::string text = longText();
    File file = fileOf(text);
    unsigned long lookedAt = 0;
    {
        FileLexer lexer(file);
        while (lexer.pos < 150'000)
            lexer.nextToken();
        lookedAt = static_cast<unsigned long>(lexer.pos) + 1;
    }
    EXPECT_EQ(lookedAt, file.position());
    EXPECT_TRUE(text.substr(lookedAt) == restOf(file));
}

TEST_P(SharedFiles, StandAfterTheByteThatEndsAText) {
    const std::string text = "a \xFFrest";
    File file = fileOf(text);
    {
        FileLexer lexer(file);
        readTo(Token::Eof, lexer);
        lexer.nextToken();
    }
    EXPECT_EQ(3U, file.position());
    EXPECT_EQ("rest", restOf(file));
}

TEST_P(SharedFiles, StandAfterTheCharacterThatIsNoToken) {
    const std::string text = "a !rest";
    File file = fileOf(text);
    {
        FileLexer lexer(file);
        readTo(Token::Invalid, lexer);
    }
    EXPECT_EQ("rest", restOf(file));
}

TEST_P(SharedFiles, StandAfterTheByteOrderMarkAndTheLookahead) {
    const std::string text = "\xEF\xBB\xBF rest";
    File file = fileOf(text);
    { const FileLexer lexer(file); }
    EXPECT_EQ(4U, file.position());
    EXPECT_EQ("rest", restOf(file));
}

TEST_P(SharedFiles, StandAtTheEndOnceATextIsRead) {
    const std::string text = longText();
    File file = fileOf(text);
    {
        FileLexer lexer(file);
        readTo(Token::Eof, lexer);
        EXPECT_EQ(text.size(), file.position());
    }
    EXPECT_EQ(text.size(), file.position());
    EXPECT_EQ("", restOf(file));
    FileLexer next(file);
    EXPECT_EQ(Token::Eof, next.nextToken().type);
    EXPECT_EQ(File::None, file.error());
}

TEST_P(SharedFiles, GoOnInTheNextLexer) {
    const std::string text = "one two three";
    const File file = fileOf(text);
    EXPECT_EQ(token(Token::Id, "one", 1, 3), FileLexer(file).nextToken());
    EXPECT_EQ(token(Token::Id, "two", 1, 3), FileLexer(file).nextToken());
    EXPECT_EQ(token(Token::Id, "three", 1, 5), FileLexer(file).nextToken());
    EXPECT_EQ(Token::Eof, FileLexer(file).nextToken().type);
}

// --- While lexers live

TEST_P(SharedFiles, AreReadByLexersInTurn) {
    const std::string text = "aAbBcCdD";
    const File file = fileOf(text);
    FileLexer lower(file);
    FileLexer upper(file);
    for (const char expected : std::string("abcd")) {
        EXPECT_EQ(expected, lower.consume());
        EXPECT_EQ(expected - 'a' + 'A', upper.consume());
    }
    EXPECT_EQ(-1, lower.consume());
    EXPECT_EQ(-1, upper.consume());
}

TEST_P(SharedFiles, GoOnInOneLexerWhenAnotherIsGone) {
    const std::string text = "abcdefg";
    const File file = fileOf(text);
    auto first = std::make_unique<FileLexer>(file);
    FileLexer second(file);
    EXPECT_EQ('b', second.consume());
    first.reset();
    EXPECT_EQ('c', second.consume());
    EXPECT_EQ('d', second.consume());
}

TEST_P(SharedFiles, GiveWhatALexerHasNotLookedAt) {
    const std::string text = longText();
    File file = fileOf(text);
    FileLexer lexer(file);
    EXPECT_EQ(token(Token::Id, "word0", 1, 5), lexer.nextToken());
    std::string read;
    for (signed char c = 0; read.size() < 150'000 && file.read(c);)
        read += static_cast<char>(c);
    EXPECT_TRUE(text.substr(6, 150'000) == read);
    EXPECT_EQ(150'006U, file.position());
    // The lexer still has its lookahead, and goes on after what was read.
    const std::string asOne = "word0\n" + text.substr(150'006);
    Single expected(asOne);
    expected.nextToken();
    EXPECT_EQ(stateOf(expected), stateOf(lexer));
    while (expected.la != -1) {
        ASSERT_EQ(expected.nextToken(), lexer.nextToken());
        ASSERT_EQ(stateOf(expected), stateOf(lexer));
    }
}

TEST_P(SharedFiles, GiveWhatALexerHasNotLookedAtBetweenTwoCharacters) {
    const std::string text = "a1b2c3";
    File file = fileOf(text);
    FileLexer lexer(file);
    std::string consumed;
    std::string read;
    for (signed char c = 0; file.read(c);) {
        read += static_cast<char>(c);
        consumed += static_cast<char>(lexer.consume());
    }
    EXPECT_EQ("123", read);
    EXPECT_EQ("abc", consumed);
}

// --- Lent blocks

TEST_P(SharedFiles, LendWhatIsAtHand) {
    const std::string text = "abcdef";
    File file = fileOf(text);
    EXPECT_EQ(text, file.lendBlock([] { return 4UL; }));
    EXPECT_EQ(0U, file.position());
    EXPECT_EQ("cdef", file.lendBlock([] { return 1UL; }));
    EXPECT_EQ(2U, file.position());
    signed char c = 0;
    EXPECT_TRUE(file.read(c));
    EXPECT_EQ('f', c);
    EXPECT_EQ(6U, file.position());
}

TEST_P(SharedFiles, AskOnceForWhatTheyHaveLent) {
    const std::string text = "abc";
    File file = fileOf(text);
    int asked = 0;
    file.lendBlock([&asked] {
        ++asked;
        return 2UL;
    });
    EXPECT_EQ(0, asked);
    for (int i = 0; i < 3; ++i)
        file.takeBack();
    EXPECT_EQ(1, asked);
    EXPECT_EQ("bc", restOf(file));
    EXPECT_EQ(1, asked);
}

TEST_P(SharedFiles, LendNothingAtTheirEnd) {
    const std::string text = "abc";
    File file = fileOf(text);
    restOf(file);
    EXPECT_TRUE(file.lendBlock([]() -> unsigned long { throw std::logic_error("asked"); }).empty());
    file.takeBack();
    EXPECT_EQ(3U, file.position());
}

TEST(NoFile, LendsNothing) {
    File file;
    EXPECT_TRUE(file.lendBlock([] { return 0UL; }).empty());
    file.takeBack();
}

// --- Documents

// Takes single characters from a file.
class FromFile final : public Lexer {
  public:
    explicit FromFile(File file) : file_(std::move(file)) { bring(); }
    signed char consume() override {
        advance();
        if (la != -1) bring();
        return c;
    }

  private:
    void bring() {
        if (!file_.read(la)) la = -1;
    }

    File file_;
};

// Where a file of these bytes stands after the document that it begins with.
unsigned long standsByCharacters(std::string_view bytes) {
    const File file = File::memory(bytes.data(), bytes.size());
    Scene scene;
    registerNodeTypes(scene);
    collect([&] {
        FromFile lexer(file);
        KvtParser parser;
        return parser.parse(&scene, &lexer);
    });
    return file.position();
}

unsigned long stands(const File& file) {
    Scene scene;
    registerNodeTypes(scene);
    collect([&] { return parseKvt(&scene, file, false); });
    return file.position();
}

// With so much after it that its statements may be read ahead, and more than a block before it.
TEST(SharedDocuments, LeaveTheirFileWhereSingleCharactersWould) {
    for (const auto& document : documents()) {
        SCOPED_TRACE(document);
        const std::string text = contents(document) + "\n" + std::string(1'000, ' ');
        const std::string longer = std::string(70'000, '\n') + text;
        EXPECT_EQ(standsByCharacters(text), stands(File::memory(text.data(), text.size())));
        EXPECT_EQ(standsByCharacters(longer), stands(regular(longer)));
    }
}

TEST_P(SharedFiles, HoldDocumentsOneAfterTheOther) {
    const std::string text = "t a: .x = 1;\xFFt b: .x = 2; !t c: .x = 3;";
    const File file = fileOf(text);
    Scene scene;
    EXPECT_EQ("ok\n", collect([&] { return parseKvt(&scene, file, false); }).log);
    EXPECT_TRUE(scene.findNode("a"));
    EXPECT_FALSE(scene.findNode("b"));
    EXPECT_EQ("error: INVALID TOKEN (1,13): '!'\nfailed\n",
              collect([&] { return parseKvt(&scene, file, false); }).log);
    EXPECT_TRUE(scene.findNode("b"));
    EXPECT_FALSE(scene.findNode("c"));
    EXPECT_EQ("ok\n", collect([&] { return parseKvt(&scene, file, false); }).log);
    EXPECT_TRUE(scene.findNode("c"));
    EXPECT_EQ(text.size(), file.position());
}

}  // namespace
