// Sources, scenes and log sinks of a program's own that throw: at one of the calls of theirs, once
// or from then on, something that the reader tells of or something that only the program knows; or
// they remove nodes instead. The runs of a source are any cut of the text, gone when the next one
// is asked for.
//
// The first bytes of an input choose all that, the rest is the document.
#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "choices.h"
#include "consistency.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::impl::FileLexer;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;
using kvt::fuzz::Choices;
using kvt::fuzz::Log;
using kvt::fuzz::Reading;
using kvt::fuzz::require;

// --- What is thrown

// Known to the program alone.
struct OwnFailure {
    int number;
};

constexpr int ownNumber = 7;
constexpr const char* failureText = "it has failed: %s %n";

enum class Thrown { Runtime, Derived, BadAlloc, Logic, Own };

constexpr unsigned thrownKinds = 5;

[[noreturn]] void raise(Thrown thrown) {
    switch (thrown) {
        case Thrown::Runtime: throw std::runtime_error(failureText);
        case Thrown::Derived: throw std::range_error(failureText);
        case Thrown::BadAlloc: throw std::bad_alloc();
        case Thrown::Logic: throw std::invalid_argument(failureText);
        case Thrown::Own: break;
    }
    throw OwnFailure{ownNumber};
}

// A `std::runtime_error` ends a document like an error of its own.
bool endsDocument(Thrown thrown) { return thrown == Thrown::Runtime || thrown == Thrown::Derived; }

// Throws at one of the calls that pass by, or does something else that it is given to do.
class Fault {
  public:
    Fault(Thrown thrown, unsigned long callsBefore, bool fromThenOn)
        : thrown_(thrown), callsBefore_(callsBefore), fromThenOn_(fromThenOn) {}

    void pass() {
        const unsigned long call = calls_++;
        if (!isArmed_ || call < callsBefore_ || (hasStruck_ && !fromThenOn_)) return;
        hasStruck_ = true;
        if (!instead_) raise(thrown_);
        isArmed_ = false;
        instead_();
        isArmed_ = true;
    }
    void disarm() { isArmed_ = false; }
    void setInstead(std::function<void()> instead) { instead_ = std::move(instead); }

    Thrown thrown() const { return thrown_; }
    bool isRepeated() const { return fromThenOn_; }
    bool hasStruck() const { return hasStruck_; }
    bool hasThrown() const { return hasStruck_ && !instead_; }
    unsigned long callsBefore() const { return callsBefore_; }
    // Those that passed by.
    unsigned long calls() const { return calls_; }

  private:
    Thrown thrown_;
    unsigned long callsBefore_;
    bool fromThenOn_;
    std::function<void()> instead_;
    bool isArmed_ = true;
    bool hasStruck_ = false;
    unsigned long calls_ = 0;
};

Fault never() { return {Thrown::Own, ~0UL, false}; }

// --- Sources

// Where a text is cut: the lengths of its runs, again and again; none for one run.
using Cuts = std::vector<unsigned long>;

// Brings runs, each in memory of its own or all in the same, which is overwritten.
class Runs final : public Lexer {
  public:
    Runs(std::string_view text, const Cuts& cuts, bool inOneBuffer, Fault& fault)
        : text_(text), cuts_(cuts), inOneBuffer_(inOneBuffer), fault_(fault) {
        start(takeRun());
    }
    signed char consume() override { return step(); }

  private:
    std::string_view nextRun() override {
        if (inOneBuffer_) {
            std::fill_n(run_.get(), longest_, '"');
        } else {
            run_.reset();
        }
        fault_.pass();
        return takeRun();
    }
    std::string_view takeRun() {
        const unsigned long cut = cuts_.empty() ? text_.size() : cuts_[runs_++ % cuts_.size()];
        const unsigned long length = std::min(cut, text_.size());
        if (!run_ || length > longest_) {
            run_.reset(new char[length]);
            longest_ = length;
        }
        text_.copy(run_.get(), length);
        text_.remove_prefix(length);
        return {run_.get(), length};
    }

    std::string_view text_;
    const Cuts& cuts_;
    bool inOneBuffer_;
    Fault& fault_;
    std::unique_ptr<char[]> run_;
    unsigned long longest_ = 0;
    unsigned long runs_ = 0;
};

// Implements no more than it has to.
class SingleCharacters final : public Lexer {
  public:
    SingleCharacters(std::string_view text, Fault& fault) : text_(text), fault_(fault) { bring(); }
    signed char consume() override {
        advance();
        if (la == -1) return c;
        fault_.pass();
        bring();
        return c;
    }

  private:
    void bring() {
        la = next_ < text_.size() ? static_cast<signed char>(text_[next_])
                                  : static_cast<signed char>(-1);
        ++next_;
    }

    std::string_view text_;
    Fault& fault_;
    unsigned long next_ = 0;
};

// --- A scene and a sink that throw

class HostileScene final : public Scene {
  public:
    explicit HostileScene(Fault& fault) : fault_(fault) {}

    void clearComments() override {
        fault_.pass();
        Scene::clearComments();
    }
    void setFileVersion(unsigned long version) override {
        fault_.pass();
        Scene::setFileVersion(version);
    }
    void setFileTime(String time) override {
        fault_.pass();
        Scene::setFileTime(std::move(time));
    }
    void pushFileComment(String comment) override {
        fault_.pass();
        Scene::pushFileComment(std::move(comment));
    }
    Node* findNode(const String& name) const override {
        fault_.pass();
        return Scene::findNode(name);
    }
    Node* createNode(String type, String name, String label) override {
        fault_.pass();
        return Scene::createNode(std::move(type), std::move(name), std::move(label));
    }
    Node* defineNode(String name) override {
        fault_.pass();
        return Scene::defineNode(std::move(name));
    }
    void removeNode(const String& name) override {
        fault_.pass();
        Scene::removeNode(name);
    }

  private:
    Fault& fault_;
};

// Keeps what it is given, and passes by a fault then.
class Sink {
  public:
    Sink(Fault& fault, bool ofProcess) {
        const auto take = [this, &fault](const LogRecord& record) {
            log_.push_back(kvt::fuzz::lineOf(record));
            fault.pass();
        };
        if (ofProcess) {
            before_ = ko::setLogSink(take);
        } else {
            capture_ = std::make_unique<ko::LogCapture>(take);
        }
        ofProcess_ = ofProcess;
    }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    ~Sink() {
        if (ofProcess_) ko::setLogSink(before_);
    }

    Log log() const { return log_; }

  private:
    Log log_;
    ko::LogSink before_;
    std::unique_ptr<ko::LogCapture> capture_;
    bool ofProcess_ = false;
};

// --- What an input chooses

enum class Thrower { Source, Sink, Scene };
enum class Kind { OwnRuns, OneBuffer, Characters, File, Text };
enum class Use { Parse, Tokens, ByHand };

struct Plan {
    explicit Plan(Choices& choices) {
        kind = static_cast<Kind>(choices.below(5));
        thrower = static_cast<Thrower>(choices.below(3));
        use = static_cast<Use>(choices.below(3));
        thrown = static_cast<Thrown>(choices.below(thrownKinds));
        callsBefore = choices.byte();
        const unsigned flags = choices.byte();
        fromThenOn = (flags & 1U) != 0;
        sinkOfProcess = (flags & 2U) != 0;
        removesNodes = (flags & 12U) == 12;
        for (unsigned left = choices.below(8); left > 0; --left)
            cuts.push_back(1UL + choices.byte());
        text = choices.rest();
    }

    std::unique_ptr<Lexer> lexer(Fault& fault) const {
        switch (kind) {
            case Kind::OwnRuns:
            case Kind::OneBuffer:
                return std::make_unique<Runs>(text, cuts, kind == Kind::OneBuffer, fault);
            case Kind::Characters: return std::make_unique<SingleCharacters>(text, fault);
            case Kind::File:
                return std::make_unique<FileLexer>(ko::File::memory(text.data(), text.size()));
            case Kind::Text: return std::make_unique<StringLexer>(String(text));
        }
        return nullptr;
    }
    Fault fault() const { return {thrown, callsBefore, fromThenOn}; }
    bool isOfRuns() const { return kind == Kind::OwnRuns || kind == Kind::OneBuffer; }
    // After so many characters a source of runs fails.
    unsigned long failingCharacter() const {
        if (cuts.empty()) return text.size();
        unsigned long sum = 0;
        for (unsigned long i = 0; i <= callsBefore; ++i)
            sum += cuts[i % cuts.size()];
        return std::min<unsigned long>(sum, text.size());
    }

    Kind kind;
    Thrower thrower;
    Use use;
    Thrown thrown;
    unsigned long callsBefore;
    bool fromThenOn;
    bool sinkOfProcess;
    bool removesNodes;
    Cuts cuts;
    std::string_view text;
};

// --- Endings

struct Ending {
    bool isThrown = false;
    bool isRead = false;              // unless something was thrown
    Thrown thrown = Thrown::Runtime;  // if it was
    std::string text;                 // of a `std::runtime_error`
};

Ending endingOf(const std::function<bool()>& entryPoint) {
    try {
        return {false, entryPoint(), {}, {}};
    } catch (const std::range_error& error) {
        return {true, false, Thrown::Derived, error.what()};
    } catch (const std::runtime_error& error) {
        return {true, false, Thrown::Runtime, error.what()};
    } catch (const std::bad_alloc&) {
        return {true, false, Thrown::BadAlloc, {}};
    } catch (const std::invalid_argument&) {
        return {true, false, Thrown::Logic, {}};
    } catch (const OwnFailure& failure) {
        require(failure.number == ownNumber, "another failure than was thrown");
        return {true, false, Thrown::Own, {}};
    }
}

// --- The end of a lexer

void requireAtEnd(Lexer& lexer) {
    for (int i = 0; i < 3; ++i) {
        const Ending ending = endingOf([&] { return lexer.nextToken().type == Token::Eof; });
        require(ending.isRead, "a lexer that goes on after its failure or its end");
    }
}

// Takes tokens to the end, which is at most so far away.
void requireEnd(Lexer& lexer, unsigned long length, const Fault& source) {
    for (unsigned long i = 0; i <= length + 1; ++i) {
        if (source.hasThrown()) return requireAtEnd(lexer);
        Token token;
        const Ending ending = endingOf([&] {
            token = lexer.nextToken();
            if (token.type == Token::Invalid) lexer.token(Token::Invalid);  // passes over it
            return true;
        });
        require(!ending.isThrown || source.hasThrown(), "a lexer that throws by itself");
        if (!ending.isThrown && token.type == Token::Eof) return requireAtEnd(lexer);
    }
    require(false, "a lexer without an end");
}

// --- The scene afterwards

constexpr std::string_view later =
    "later_t later_n: .x = 1; .s = \"a text that is too long to stand in the string itself\";"
    ".list[1].y = vec3(1 2 3); .b = int32[3]{1 2 3}; .c |= later_n.out; .d = later_n;";

// The newest node of a scene as a dump shows it.
std::string newestOf(const std::string& json) { return json.substr(json.rfind("\n  {\"name\"")); }

std::string laterIn(Scene& scene) {
    const Reading reading = kvt::fuzz::readText(scene, later);
    require(reading.ok && reading.log.empty(), "a good document that is not read");
    return newestOf(kvt::fuzz::dumpedJson(scene, true));
}

void requireUsable(Scene& scene) {
    static const std::string expected = [] {
        Scene untouched;
        return laterIn(untouched);
    }();
    kvt::fuzz::requireConsistent(scene);
    kvt::fuzz::dumpedText(scene, false);
    scene.setElementLimit(~0UL);
    require(laterIn(scene) == expected, "a good document that is read otherwise");
    kvt::fuzz::purge(scene);
}

// --- A document through all that

class Attempt {
  public:
    explicit Attempt(const Plan& plan)
        : plan_(plan),
          source_(plan.thrower == Thrower::Source ? plan.fault() : never()),
          sink_(plan.thrower == Thrower::Sink ? plan.fault() : never()),
          sceneFault_(plan.thrower == Thrower::Scene ? plan.fault() : never()),
          scene_(sceneFault_) {
        if (!plan.removesNodes) return;
        for (Fault* const fault : {&source_, &sink_, &sceneFault_})
            fault->setInstead([this] { removeNodes(); });
    }

    void parse();
    void takeTokens();
    void driveByHand();

  private:
    Ending parseOnce();
    void removeNodes();
    void requireAsExpected(const Ending& ending);
    void requireAsWithout(const Ending& ending, const Reading& without);
    void requireDocumentEnded(const Ending& ending, const Reading& without);
    void requirePrefix(const Reading& without) const;
    bool isInPriming() const;
    void requireAsByCharacters(const Ending& ending) const;
    void parseAgain();
    void takeStatements(KvtParser& parser) const;
    static void resolve(KvtParser& parser);
    void end();
    const Fault& fault() const;

    const Plan& plan_;
    Fault source_;
    Fault sink_;
    Fault sceneFault_;
    HostileScene scene_;
    std::unique_ptr<Lexer> lexer_ = plan_.lexer(source_);
    Log log_;
};

const Fault& Attempt::fault() const {
    switch (plan_.thrower) {
        case Thrower::Source: return source_;
        case Thrower::Sink: return sink_;
        default: return sceneFault_;
    }
}

Ending Attempt::parseOnce() {
    const Sink sink(sink_, plan_.sinkOfProcess);
    Ending ending = endingOf([&] {
        KvtParser parser;
        return parser.parse(&scene_, lexer_.get());
    });
    log_ = sink.log();
    return ending;
}

// Every other one.
void Attempt::removeNodes() {
    bool isNext = true;
    for (const Node* const node : scene_.nodes()) {
        if (isNext) scene_.removeNode(node->name());
        isNext = !isNext;
    }
}

void Attempt::parse() {
    kvt::fuzz::prepare(scene_, plan_.text);
    const Ending ending = parseOnce();
    requireAsExpected(ending);
    parseAgain();
    requireEnd(*lexer_, plan_.text.size(), source_);
    end();
}

void Attempt::requireAsExpected(const Ending& ending) {
    Scene untroubled;
    kvt::fuzz::prepare(untroubled, plan_.text);
    const bool isFile = plan_.kind == Kind::File;
    if (source_.hasThrown() && plan_.isOfRuns()) requireAsByCharacters(ending);
    const Reading without = kvt::fuzz::readText(
        untroubled, isFile ? kvt::fuzz::withoutByteOrderMark(plan_.text) : plan_.text);
    if (!fault().hasStruck()) {
        requireAsWithout(ending, without);
        require(kvt::fuzz::dumpedJson(scene_, ending.isRead) ==
                    kvt::fuzz::dumpedJson(untroubled, without.ok),
                "different scenes");
    } else if (!fault().hasThrown()) {
        require(!ending.isThrown || !without.ok, "an exception that nobody has thrown");
    } else if (endsDocument(fault().thrown())) {
        requireDocumentEnded(ending, without);
    } else {
        require(ending.isThrown && ending.thrown == fault().thrown(),
                "a failure that does not reach the program");
    }
}

void Attempt::requireAsWithout(const Ending& ending, const Reading& without) {
    require(ending.isRead == without.ok, "another ending");
    Log log = log_;
    if (ending.isThrown) log.push_back("thrown: " + ending.text);
    kvt::fuzz::sortEnd(log);
    require(log == without.log, "different messages");
}

void Attempt::requireDocumentEnded(const Ending& ending, const Reading& without) {
    const bool isItself =
        ending.isThrown && ending.thrown == fault().thrown() && ending.text == failureText;
    if (plan_.thrower == Thrower::Source && isInPriming()) {
        require(isItself && log_.empty(),
                "a failure among the first tokens that is taken for less");
        require(scene_.nodeCount() == 0, "a document before its first tokens");
        return;
    }
    // A sink may have refused the error itself.
    const bool wasOfTheError = plan_.thrower == Thrower::Sink && !without.ok &&
                               fault().callsBefore() + 1 == without.log.size();
    const bool mayLeave = plan_.thrower == Thrower::Sink && (fault().isRepeated() || wasOfTheError);
    if (mayLeave && isItself) return;
    require(!ending.isThrown && !ending.isRead, "a failure that does not end the document");
    if (mayLeave) return;
    require(!log_.empty() && log_.back() == std::string("error: ") + failureText,
            "a failure that is not told of");
    requirePrefix(without);
}

// A source of single characters that fails at the same place ends the document likewise.
void Attempt::requireAsByCharacters(const Ending& ending) const {
    Plan plan = plan_;
    plan.kind = Kind::Characters;
    plan.callsBefore = plan_.failingCharacter() - 1;
    Attempt other(plan);
    kvt::fuzz::prepare(other.scene_, plan.text);
    const Ending found = other.parseOnce();
    require(found.isThrown == ending.isThrown && found.isRead == ending.isRead,
            "another ending with single characters");
    require(other.log_ == log_, "different messages with single characters");
    require(kvt::fuzz::dumpedJson(other.scene_, true) == kvt::fuzz::dumpedJson(scene_, true),
            "different scenes with single characters");
}

// What was told before the failure.
void Attempt::requirePrefix(const Reading& without) const {
    for (unsigned long i = 0; i + 1 < log_.size(); ++i) {
        require(i < without.log.size(), "more messages than without a failure");
        if (kvt::fuzz::isOfTheEnd(without.log[i])) return;
        require(log_[i] == without.log[i], "different messages before a failure");
    }
}

// Whether the source fails before the parser has the tokens that it looks ahead at.
bool Attempt::isInPriming() const {
    Fault counting = never();
    const std::unique_ptr<Lexer> lexer = plan_.lexer(counting);
    Scene scene;
    KvtParser parser;
    endingOf([&] {
        parser.prime(&scene, lexer.get());
        return true;
    });
    return plan_.callsBefore < counting.calls();
}

// By another parser: a lexer that failed has nothing more.
void Attempt::parseAgain() {
    const bool isAtEnd = source_.hasThrown();
    const std::string before = kvt::fuzz::dumpedJson(scene_, true);
    const Ending ending = parseOnce();
    if (!isAtEnd) return;
    require(!ending.isThrown && ending.isRead && log_.empty(), "a document after a failure");
    require(before == kvt::fuzz::dumpedJson(scene_, true), "a lexer that goes on after a failure");
}

void Attempt::end() {
    sceneFault_.disarm();
    requireUsable(scene_);
}

void Attempt::takeTokens() { requireEnd(*lexer_, plan_.text.size(), source_); }

// Whatever is thrown.
void Attempt::driveByHand() {
    kvt::fuzz::prepare(scene_, plan_.text);
    {
        const Sink sink(sink_, plan_.sinkOfProcess);
        KvtParser parser;
        const Ending primed = endingOf([&] {
            parser.prime(&scene_, lexer_.get());
            return true;
        });
        if (!primed.isThrown) takeStatements(parser);
        resolve(parser);
    }
    requireEnd(*lexer_, plan_.text.size(), source_);
    end();
}

// One after the other, or a token where there is none. An invalid token is never passed.
void Attempt::takeStatements(KvtParser& parser) const {
    const unsigned long most = 2 * plan_.text.size();
    for (unsigned long i = 0; i < most && parser.la(1) != Token::Eof; ++i) {
        endingOf([&] {
            if (!kvt::fuzz::takeStatement(parser)) parser.consume();
            return true;
        });
    }
}

void Attempt::resolve(KvtParser& parser) {
    endingOf([&] {
        parser.resolveConnections();
        parser.resolveIdentifiers();
        return true;
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices choices(kvt::fuzz::textOf(data, size));
    const Plan plan(choices);
    const bool isForUs = plan.text.find("later_") == std::string_view::npos;
    if (plan.text.empty() || !isForUs) return 0;
    Attempt attempt(plan);
    switch (plan.use) {
        case Use::Parse: attempt.parse(); break;
        case Use::Tokens: attempt.takeTokens(); break;
        case Use::ByHand: attempt.driveByHand(); break;
    }
    return 0;
}
