// Sources, scenes and log sinks of a program's own that throw while a document is read. A
// std::runtime_error ends the document with its text, once reading has begun; anything else reaches
// the caller as it is. Either way the scene can be used as before, and a lexer whose source threw
// is at the end of its input.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "reading.h"

namespace {

using ko::File;
using ko::LogCapture;
using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::parseKvt;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;

// What a program throws that has no class of the standard library in it.
struct Stop {};

using Throw = std::function<void()>;

// --- Sources that fail

// Brings a text in runs of a few characters, each gone when the next is asked for, and then throws,
// once or again and again.
class FailingRuns final : public Lexer {
  public:
    FailingRuns(std::string_view text, unsigned long length, Throw fail)
        : text_(text), length_(length), fail_(std::move(fail)) {
        start(takeRun());
    }
    signed char consume() override { return step(); }
    int asked() const { return asked_; }

  private:
    std::string_view nextRun() override {
        ++asked_;
        if (text_.empty()) fail_();
        return takeRun();
    }
    std::string_view takeRun() {
        run_.assign(text_.substr(0, length_));
        text_.remove_prefix(run_.size());
        return {run_.data(), run_.size()};
    }

    std::string_view text_;
    unsigned long length_;
    Throw fail_;
    std::string run_;
    int asked_ = 0;
};

// The same character by character.
class FailingCharacters final : public Lexer {
  public:
    FailingCharacters(std::string_view text, Throw fail) : text_(text), fail_(std::move(fail)) {
        la = text_[0];
    }
    signed char consume() override {
        if (next_ == text_.size()) fail_();
        advance();
        la = static_cast<signed char>(text_[next_++]);
        return c;
    }

  private:
    std::string_view text_;
    Throw fail_;
    unsigned long next_ = 1;
};

const Throw throwError = [] { throw std::runtime_error("the source is gone"); };
const Throw throwStop = [] { throw Stop(); };

// A document with tokens of every kind.
constexpr std::string_view document =
    "# version: 1\nt n:\n.a = -1.5e3; .b = \"te\\\"xt\"; .list[2] = vec3(1 2 3);\n"
    ".f = float[3] {1, 2, 3}; .c |= n.out; .d = other; .e = TRUE;\n";

void expectEnd(Lexer& lexer) {
    EXPECT_EQ(-1, lexer.la);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Token::Eof, lexer.nextToken().type);
    Scene scene;
    KvtParser parser;
    EXPECT_TRUE(parser.parse(&scene, &lexer));
    EXPECT_EQ(0U, scene.nodeCount());
}

TEST(FailedSource, OfRunsIsAtItsEnd) {
    for (unsigned long length = 1; length <= document.size(); ++length) {
        for (unsigned long end = length; end <= document.size(); ++end) {
            FailingRuns lexer(document.substr(0, end), length, throwStop);
            Scene scene;
            KvtParser parser;
            EXPECT_THROW(parser.parse(&scene, &lexer), Stop);
            ASSERT_NO_FATAL_FAILURE(expectEnd(lexer));
            EXPECT_LE(lexer.asked(), static_cast<int>((end + length - 1) / length));
        }
    }
}

TEST(FailedSource, OfCharactersIsAtItsEnd) {
    for (unsigned long end = 1; end <= document.size(); ++end) {
        FailingCharacters lexer(document.substr(0, end), throwStop);
        Scene scene;
        KvtParser parser;
        EXPECT_THROW(parser.parse(&scene, &lexer), Stop);
        ASSERT_NO_FATAL_FAILURE(expectEnd(lexer));
    }
}

TEST(FailedSource, IsNotAskedAgain) {
    FailingRuns lexer("word", 2, throwStop);
    EXPECT_THROW(lexer.nextToken(), Stop);
    EXPECT_EQ(Token::Eof, lexer.nextToken().type);
    EXPECT_EQ(-1, lexer.consume());
    EXPECT_EQ(2, lexer.asked());
}

// --- What comes of it

enum class Ending { Read, Stopped, Error, BadAlloc, Stop };

std::ostream& operator<<(std::ostream& out, Ending ending) {
    constexpr const char* names[] = {"read", "stopped", "runtime_error", "bad_alloc", "Stop"};
    return out << names[static_cast<int>(ending)];
}

struct Outcome {
    Ending ending = Ending::Read;
    std::vector<std::string> log;
};

Ending endingOf(const std::function<bool()>& read) {
    try {
        return read() ? Ending::Read : Ending::Stopped;
    } catch (const std::runtime_error&) {
        return Ending::Error;
    } catch (const std::bad_alloc&) {
        return Ending::BadAlloc;
    } catch (const Stop&) {
        return Ending::Stop;
    }
}

Outcome outcomeOf(const std::function<bool()>& read) {
    const LogCapture capture;
    Outcome outcome{endingOf(read), {}};
    for (const LogRecord& record : capture.records())
        outcome.log.emplace_back(record.text.view());
    return outcome;
}

// A scene after a failure reads a document like any other: nothing of the one before waits still.
void expectUsable(Scene& scene) {
    const auto before = scene.nodeCount();
    const auto reading = kvt::test::readText(
        &scene, "t fresh__: .x = 1; .y |= fresh__.out; .z = fresh__; .l[1] = \"text\";");
    EXPECT_EQ("ok\n", reading.log);
    EXPECT_EQ(before + 1, scene.nodeCount());
    kvt::test::jsonOf(scene, true);
    scene.removeNode("fresh__");
    scene.purgeRemoved();
}

// What a thrower does, and how a document ends by it that is being read.
struct Thrown {
    const char* name;
    Throw fail;
    Ending ending;
    const char* text;  // that is logged; null for none
};

const Thrown thrown[] = {
    {"RuntimeError", throwError, Ending::Stopped, "the source is gone"},
    {"DerivedError",
     [] { throw std::system_error(std::make_error_code(std::errc::io_error), "disk"); },
     Ending::Stopped, nullptr},
    {"BadAlloc", [] { throw std::bad_alloc(); }, Ending::BadAlloc, nullptr},
    {"OwnType", throwStop, Ending::Stop, nullptr},
};

std::ostream& operator<<(std::ostream& out, const Thrown& row) { return out << row.name; }

class Exceptions : public testing::TestWithParam<Thrown> {
  protected:
    static void expectEnding(const Outcome& outcome) {
        EXPECT_EQ(GetParam().ending, outcome.ending);
        if (GetParam().ending != Ending::Stopped) {
            EXPECT_TRUE(outcome.log.empty());
        } else {
            ASSERT_EQ(1U, outcome.log.size());
            if (GetParam().text) {
                EXPECT_EQ(GetParam().text, outcome.log[0]);
            }
        }
    }
    // Before reading has begun nothing is caught.
    static Ending endingAtTheStart() {
        return GetParam().ending == Ending::Stopped ? Ending::Error : GetParam().ending;
    }

    Scene scene_;
};

INSTANTIATE_TEST_SUITE_P(, Exceptions, testing::ValuesIn(thrown),
                         [](const auto& row) { return row.param.name; });

TEST_P(Exceptions, OfASourceEndTheDocument) {
    FailingRuns lexer("t n: .x = 1; .y = n; .z |= n.out; t m; t o;", 5, GetParam().fail);
    KvtParser parser;
    expectEnding(outcomeOf([&] { return parser.parse(&scene_, &lexer); }));
    EXPECT_EQ(0U, parser.pendingConnections.size());
    EXPECT_EQ(0U, parser.pendingIdentifiers.size());
    ASSERT_TRUE(scene_.findNode("n") && scene_.findNode("n")->input("z"));
    EXPECT_EQ(1, scene_.findNode("n")->input("x")->asInt());
    EXPECT_EQ(nullptr, scene_.findNode("n")->input("z")->connection());
    expectUsable(scene_);
}

TEST_P(Exceptions, OfASourceAmongTheFirstThreeTokensReachTheCaller) {
    FailingRuns lexer("t n", 2, GetParam().fail);
    KvtParser parser;
    const Outcome outcome = outcomeOf([&] { return parser.parse(&scene_, &lexer); });
    EXPECT_EQ(endingAtTheStart(), outcome.ending);
    EXPECT_TRUE(outcome.log.empty());
    expectUsable(scene_);
}

// --- Scenes that fail

// Throws in one of its operations.
class FailingScene final : public Scene {
  public:
    FailingScene(std::string operation, Throw fail)
        : operation_(std::move(operation)), fail_(std::move(fail)) {}
    void mend() { operation_.clear(); }

    void clearComments() override {
        failIn("clearComments");
        Scene::clearComments();
    }
    void setFileVersion(unsigned long version) override {
        failIn("setFileVersion");
        Scene::setFileVersion(version);
    }
    void setFileTime(String time) override {
        failIn("setFileTime");
        Scene::setFileTime(std::move(time));
    }
    void pushFileComment(String comment) override {
        failIn("pushFileComment");
        Scene::pushFileComment(std::move(comment));
    }
    Node* findNode(const String& name) const override {
        failIn("findNode");
        return Scene::findNode(name);
    }
    Node* createNode(String type, String name, String label) override {
        failIn("createNode");
        return Scene::createNode(std::move(type), std::move(name), std::move(label));
    }
    Node* defineNode(String name) override {
        failIn("defineNode");
        return Scene::defineNode(std::move(name));
    }
    void removeNode(const String& name) override {
        failIn("removeNode");
        Scene::removeNode(name);
    }

  private:
    void failIn(std::string_view operation) const {
        if (operation == operation_) fail_();
    }

    std::string operation_;
    Throw fail_;
};

TEST_P(Exceptions, OfASceneEndTheDocument) {
    const char* const text =
        "# version: 2\n# time: now\nremove nothing; define d; t n: .x = 1; .y |= n.out;";
    for (const char* const operation : {"setFileVersion", "setFileTime", "pushFileComment",
                                        "removeNode", "findNode", "defineNode", "createNode"}) {
        SCOPED_TRACE(operation);
        FailingScene scene(operation, GetParam().fail);
        expectEnding(outcomeOf([&] { return parseString(&scene, text); }));
        scene.mend();
        expectUsable(scene);
    }
}

TEST_P(Exceptions, OfASceneWhoseHeaderIsResetReachTheCaller) {
    for (const char* const operation : {"clearComments", "setFileVersion", "setFileTime"}) {
        SCOPED_TRACE(operation);
        FailingScene scene(operation, GetParam().fail);
        const Outcome outcome =
            outcomeOf([&] { return parseKvt(&scene, File::memory("t n;", 4), false); });
        EXPECT_EQ(endingAtTheStart(), outcome.ending);
        EXPECT_TRUE(outcome.log.empty());
        scene.mend();
        expectUsable(scene);
    }
}

// --- Sinks that fail

// Throws at the first message, and keeps those that follow.
struct FailingSink {
    void operator()(const LogRecord& record) {
        if (std::exchange(isFirst, false)) fail();
        log.emplace_back(record.text.view());
    }

    Throw fail;
    bool isFirst = true;
    std::vector<std::string> log = {};
};

TEST_P(Exceptions, OfASinkEndTheDocument) {
    const char* const documents[] = {
        "t n: .x = 1; .x = 2.5; .y = 1;",                 // a value that is narrowed
        "t n: .x = 1; .x = \"text\"; .y = 1;",            // a value that does not fit
        "t n: .x = 1; .z = float[2] {1}; .y = 1;",        // a buffer that lacks numbers
        "t n: .x = 1; # version: none\n.y = 1;",          // a header that is no number
        "t n: .x = 1; .a |= gone.out; .b = gone; .y |=;"  // an error, which is the last message
    };
    for (const char* const text : documents) {
        SCOPED_TRACE(text);
        FailingSink sink{GetParam().fail};
        Scene scene;
        const LogCapture capture(std::ref(sink));
        const Ending ending = endingOf([&] { return parseString(&scene, text); });
        const bool isLast = text == documents[4];
        EXPECT_EQ(isLast ? endingAtTheStart() : GetParam().ending, ending);
        EXPECT_EQ(!isLast && ending == Ending::Stopped ? 1U : 0U, sink.log.size());
        EXPECT_EQ(1, scene.findNode("n")->input("x")->asNumber());
        EXPECT_EQ(nullptr, scene.findNode("n")->input("y"));
        expectUsable(scene);
    }
}

// What leads somewhere is connected and set before anything is told.
TEST_P(Exceptions, OfASinkAtTheEndOfTheDocumentLeaveWhatWasConnected) {
    parseString(&scene_, "t n: .off |= n.out;");
    std::string text = "n.a |= gone.out; n.b = gone; n.off |= null; n.node = n;";
    for (int i = 0; i < 100; ++i)
        text += "n.x" + std::to_string(i) + " |= n.out;";
    FailingSink sink{GetParam().fail};
    const LogCapture capture(std::ref(sink));
    const Ending ending =
        endingOf([&] { return parseString(&scene_, String(std::string_view(text))); });
    EXPECT_EQ(GetParam().ending, ending);
    const Node& node = *scene_.findNode("n");
    EXPECT_EQ(nullptr, node.input("a")->connection());
    EXPECT_EQ(nullptr, node.input("off")->connection());
    EXPECT_EQ(&node, node.input("node")->nodeReference());
    for (int i = 0; i < 100; ++i)
        EXPECT_NE(nullptr,
                  node.input(String("x") + String(static_cast<unsigned long>(i)))->connection())
            << i;
    expectUsable(scene_);
}

// A parser that has read one document knows nothing of it in the next.
TEST(AnotherDocument, BeginsWithoutTheBlockOfTheOneBefore) {
    Scene scene;
    KvtParser parser;
    StringLexer first("t n: .x = 1;");
    StringLexer second(".y = 1;");
    EXPECT_TRUE(parser.parse(&scene, &first));
    const LogCapture capture;
    EXPECT_FALSE(parser.parse(&scene, &second));
    ASSERT_EQ(1U, capture.records().size());
    EXPECT_EQ("PARSE ERROR (1,6): 'with' node not set (input: .y).",
              capture.records()[0].text.view());
}

}  // namespace
