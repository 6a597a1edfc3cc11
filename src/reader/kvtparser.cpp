// The reader of KVT documents.
//
// A Lexer turns characters into tokens with one character of lookahead; comments, strings and
// bracketed groups are single tokens. KvtParser is a recursive-descent parser over a ring of three
// tokens, LL(3), and reads a document in one pass: each routine stands under the line of grammar
// that it reads. An assignment is read whole before anything is looked up in the scene; its value
// is stored at once. References to outputs and nodes wait until the end of the document, so that
// they may name nodes further down.
//
// These are the rules, and all that is ever said comes from them. Most statements do not need them:
// `KvtParser::Statements` reads those as characters, and the parser goes on where it stops.
//
// The first error ends the document: diagnostics throw, `KvtParser::parse` catches and logs. What
// the scene was given until then stays; what waits is dropped.
#include <ko/kvtparser.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>

#include "bulk/bulk.h"
#include "bulk/charclass.h"
#include "foundation/memory.h"
#include "foundation/messages.h"
#include "foundation/textbuilder.h"
#include "reader/beginnings.h"
#include "reader/grouptext.h"
#include "reader/keywords.h"
#include "reader/literals.h"
#include "reader/payload.h"
#include "reader/statements.h"
#include "reader/waitinglist.h"
#include "scene/conversions.h"

namespace ko::mirel_sdk::impl {

using interfaces::IInput;
using interfaces::IScene;

// === Lexer sources ==============================================================================

namespace {

// Not distinguished from the byte 0xFF, which therefore ends a document.
constexpr signed char endOfInput = -1;

// Where position, line and column stop.
constexpr std::int32_t largestCounter = std::numeric_limits<std::int32_t>::max();

void add(std::int32_t& counter, unsigned long count) noexcept {
    constexpr unsigned long largest = largestCounter;
    const unsigned long sum = static_cast<unsigned long>(counter) + count;
    counter = static_cast<std::int32_t>(std::min(sum, largest));
}

}  // namespace

void Lexer::start(std::string_view run) {
    next_ = run.data();
    enterRun(next_ + run.size());
    fetch();
}

void Lexer::enterRun(const char* end) {
    run_ = next_;
    end_ = end;
    ++runs_;
}

inline void Lexer::fetch() {
    if (next_ == end_) return fetchRun();
    la = static_cast<signed char>(*next_++);
}

// A source that throws has no more characters: whoever catches that may ask for tokens still. The
// run is gone also where no other follows.
void Lexer::fetchRun() {
    la = endOfInput;
    ++runs_;
    const std::string_view run = nextRun();
    if (run.empty()) return;
    next_ = run.data();
    enterRun(next_ + run.size());
    la = static_cast<signed char>(*next_++);
}

// The same for a source that brings its characters one by one.
signed char Lexer::consumeOne() {
    try {
        return consume();
    } catch (...) {
        la = endOfInput;
        throw;
    }
}

// A line break ends its line: the line moves on with the character after it.
void Lexer::advance() noexcept {
    if (c == '\n') {
        add(line, 1);
        column = 1;
    } else {
        add(column, 1);
    }
    c = la;
    add(pos, 1);
}

signed char Lexer::step() {
    advance();
    if (la != endOfInput) fetch();
    return c;
}

void Lexer::moveRun(const char* from, const char* to) {
    const long taken = next_ - from;
    const long length = end_ - from;
    next_ = to;
    enterRun(to + length);
    next_ += taken;
}

Lexer::Place Lexer::place() const { return {next_, runs_, pos, line, column, c}; }

bool Lexer::isAtHand(const Place& place) const {
    return place.run == runs_ && place.next && run_ < place.next && place.next <= next_;
}

// The lookahead is `to` then.
void Lexer::moveOn(const Place& from, const char* to) {
    next_ = from.next;
    c = from.c;
    la = static_cast<signed char>(next_[-1]);
    pos = from.pos;
    line = from.line;
    column = from.column;
    const long count = to - (next_ - 1);
    if (count > 0) skip(static_cast<unsigned long>(count));
}

// The run may be gone then, so the lookahead becomes one by itself.
unsigned long Lexer::leaveRun() noexcept {
    const auto left = static_cast<unsigned long>(end_ - next_);
    next_ = reinterpret_cast<const char*>(&la) + 1;
    enterRun(next_);
    return left;
}

std::string_view Lexer::ahead() const {
    if (!next_) return {reinterpret_cast<const char*>(&la), 1};
    return {next_ - 1, static_cast<unsigned long>(end_ - next_) + 1};
}

// Of the run; line and column are those of the character before `to` already.
inline void Lexer::moveTo(const char* to, unsigned long count) {
    add(pos, count);
    c = static_cast<signed char>(to[-1]);
    next_ = to;
    fetch();
}

inline void Lexer::skipInLine(unsigned long count) {
    if (!next_) {
        consumeOne();
        return;
    }
    if (c == '\n') {
        add(line, 1);
        column = 0;
    }
    add(column, count);
    moveTo(next_ + count - 1, count);
}

namespace {

unsigned long countBreaks(std::string_view text) {
    constexpr unsigned long few = 32;
    if (text.size() > few) return bulk::operations().countBreaks(text);
    return static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

void Lexer::skip(unsigned long count) {
    if (!next_) {
        consumeOne();
        return;
    }
    // A break moves the line for what follows it: those before the last character count here.
    const std::string_view passed(next_ - 1, count - 1);
    const unsigned long breaks = countBreaks(passed);
    if (breaks > 0) {
        const unsigned long untilLast = passed.rfind('\n') + 1;
        skipInLine(untilLast);
        add(line, breaks - 1);
        count -= untilLast;
    }
    skipInLine(count);
}

FileLexer::FileLexer(File file) : file_(std::move(file)) { start(FileLexer::nextRun()); }

std::string_view FileLexer::nextRun() {
    return file_.lendBlock([this] { return leaveRun(); });
}

// The lookahead of an empty text is its terminator, which is skipped as a blank.
StringLexer::StringLexer(String text) : text_(std::move(text)) {
    start({text_.buf(), std::max(text_.len(), 1UL)});
}

StringLexer::StringLexer(const StringLexer& other) : Lexer(other), text_(other.text_) {
    moveRun(other.text_.buf(), text_.buf());
}

StringLexer& StringLexer::operator=(const StringLexer& other) {
    Lexer::operator=(other);
    text_ = other.text_;
    moveRun(other.text_.buf(), text_.buf());
    return *this;
}

// === Tokens =====================================================================================

Token Lexer::token(Token::Type type) {
    Token t{type, String(static_cast<char>(la)), line, column};
    if (la == endOfInput) {
        advance();
    } else {
        skipInLine(1);
    }
    return t;
}

Token Lexer::token(Token::Type type, String text) const {
    return {type, std::move(text), line, column};
}

Token Lexer::token(Token::Type type, const ds::Vector<char>& chars) const {
    return token(type, String(std::string_view(chars.data(), chars.size())));
}

Token Lexer::invalidListToken(const String& what) const {
    return token(Token::Invalid, say<Message::InvalidListToken>(what.buf(), line, column, la).text);
}

Token Lexer::unexpectedEof(const String& what) const {
    return token(Token::Eof, say<Message::UnexpectedEnd>(what.buf()).text);
}

// === Lexer ======================================================================================

void Lexer::skipBlanks() {
    while (chars::is(la, chars::Blank)) {
        const std::string_view run = ahead();
        const char* const stop = chars::skip(run.data(), run.data() + run.size(), chars::Blank);
        skip(static_cast<unsigned long>(stop - run.data()));
    }
}

// Consumes the lookahead, whatever it is, and the characters after it of that class, into `text`.
// No line break is of the class. Returns the classes that they are in.
unsigned Lexer::take(chars::Class belonging, String& text) {
    const std::string_view run = ahead();
    const char* const end = run.data() + run.size();
    const char* at = run.data();
    unsigned classes = chars::classes(*at);
    unsigned next = 0;
    while (++at != end && ((next = chars::classes(*at)) & belonging))
        classes |= next;
    if (at == end || la == '\n') {
        text = takeAcross(belonging);
        return chars::unionOf(text.view());
    }
    const auto length = static_cast<unsigned long>(at - run.data());
    text.assign(run.substr(0, length));
    skipInLine(length);
    return classes;
}

// The same where the text begins with a line break or may go on in the next run.
String Lexer::takeAcross(chars::Class belonging) {
    TextBuilder text;
    text.push(static_cast<char>(one()));
    while (chars::is(la, belonging)) {
        const std::string_view run = ahead();
        const char* const stop = chars::skip(run.data(), run.data() + run.size(), belonging);
        const auto length = static_cast<unsigned long>(stop - run.data());
        text.append(run.substr(0, length));
        skipInLine(length);
    }
    return text.take();
}

// The token for whoever may keep it: a long group has all the room that it grew to.
Token Lexer::kept(Token t) {
    const bool isGroup = t.type == Token::Parens || t.type == Token::Braces;
    if (isGroup && t.text.len() >= TextBuilder::longText) t.text = String(t.text.view());
    return t;
}

inline void Lexer::finish(Token::Type type, Token& t) const {
    t.type = type;
    t.line = line;
    t.column = column;
}

// A sign has the position of the character before it.
void Lexer::readSign(Token::Type type, Token& t) {
    t.text.assign(static_cast<char>(la));
    finish(type, t);
    skipInLine(1);
}

Token Lexer::nextToken() {
    Token t;
    read(t);
    return kept(std::move(t));
}

namespace {

// In any letter case; the token has one.
inline void recogniseWord(Token& t) {
    const ReservedWord* const word = findReserved(t.text);
    if (!word) return;
    t.type = word->type;
    t.text.assign({word->spelling, t.text.len()});
}

}  // namespace

void Lexer::read(Token& t) {
    skipBlanks();
    const Token::Type type = typeBegunBy(la);
    switch (type) {
        case Token::Eof: t = token(Token::Eof, "EOF"); return;
        case Token::Id: return readId(t);
        case Token::Integer: return readNumber(t);
        case Token::StringLiteral: t = string(); return;
        case Token::Comment: t = comment(); return;
        case Token::Brackets: t = brackets(); return;
        case Token::Parens:
        case Token::Braces: t = group(type); return;
        case Token::Invalid:
            t = token(Token::Invalid, say<Message::InvalidToken>(line, column, la).text);
            return;
        case Token::Dot:
        case Token::Comma:
        case Token::Colon:
        case Token::Semicolon:
        case Token::Quote:
        case Token::Slash:
        case Token::Backslash:
        case Token::Equals:
        case Token::Plus:
        case Token::Star:
        case Token::Pipe: return readSign(type, t);
        case Token::Real:
        case Token::True:
        case Token::False:
        case Token::Null: break;  // known by more than their first character
    }
}

Token Lexer::id() {
    if (la == endOfInput) return unexpectedEof("ID");
    Token t;
    readId(t);
    return t;
}

// id = ( letter | "_" ) { letter | "_" | digit }
void Lexer::readId(Token& t) {
    take(chars::IdPart, t.text);
    finish(Token::Id, t);
    recogniseWord(t);
}

Token Lexer::number() {
    if (la == endOfInput) return unexpectedEof("NUMBER");
    Token t;
    readNumber(t);
    return t;
}

// number = ( "-" | digit ) { hex digit | "+" | "-" | "." | "I" | "i" | "N" | "n" | "U" | "u" }
//
// What is real follows from letters alone. An `a` counts, for `nan`; an `e` does not, so `1e5` is
// an integer.
void Lexer::readNumber(Token& t) {
    const unsigned classes = take(chars::NumberPart, t.text);
    finish(classes & chars::RealMark ? Token::Real : Token::Integer, t);
}

// comment = "#" { any character but a line break }
Token Lexer::comment() {
    String text;
    take(chars::CommentPart, text);
    return token(Token::Comment, std::move(text));
}

// string = '"' { any character but '"' and '\' | '\' | '\"' | '\\' } '"'
//
// Kept as written; whoever takes the value resolves the escapes.
Token Lexer::string() {
    const std::string_view run = ahead();
    const char* const end = run.data() + run.size();
    const char* const stop = chars::skip(run.data() + 1, end, chars::StringPart);
    if (stop == end || *stop != '"') return stringAcross();
    const auto length = static_cast<unsigned long>(stop + 1 - run.data());
    String text(run.substr(0, length));
    skip(length);
    return token(Token::StringLiteral, std::move(text));
}

// The same where the text has a backslash or may go on in the next run.
Token Lexer::stringAcross() {
    TextBuilder text;
    text.push(static_cast<char>(one()));
    for (;;) {
        if (c == '\\' && (la == '"' || la == '\\')) text.push(static_cast<char>(one()));
        if (la == endOfInput) return unexpectedEof("STRING");
        if (chars::is(la, chars::StringPart)) {
            const std::string_view run = ahead();
            const char* const end = run.data() + run.size();
            const char* const stop = chars::skip(run.data(), end, chars::StringPart);
            text.append(run.substr(0, static_cast<unsigned long>(stop - run.data())));
            skip(static_cast<unsigned long>(stop - run.data()));
            continue;
        }
        const bool isEnd = la == '"';
        text.push(static_cast<char>(one()));
        if (isEnd) return token(Token::StringLiteral, text.take());
    }
}

// brackets = "[" { digit | "*" | "[" | blank } "]"
Token Lexer::brackets() {
    TextBuilder text;
    do {
        const bool isAllowed = chars::is(la, chars::Blank) || String::isDigit(la) || la == '[' ||
                               la == ']' || la == '*';
        if (!isAllowed) return invalidListToken("BRACKET");
        text.push(static_cast<char>(one()));
        if (la == endOfInput) return unexpectedEof("BRACKETS");
    } while (la != ']');
    text.push(static_cast<char>(one()));
    return token(Token::Brackets, text.take());
}

Token Lexer::parens() { return kept(group(Token::Parens)); }
Token Lexer::braces() { return kept(group(Token::Braces)); }

// parens = "(" { character of a number | separator | blank | parens } ")", braces likewise
//
// Groups of a million numbers are read here.
Token Lexer::group(Token::Type type) {
    const GroupRules& rules = type == Token::Parens ? rulesOfParens : rulesOfBraces;
    GroupText group(rules);
    for (;;) {
        if (la == endOfInput) return unexpectedEof(rules.plural);
        const unsigned long count = group.read(ahead());
        if (count == 0) return invalidListToken(rules.name);
        skip(count);
        if (group.isClosed()) return token(type, group.takeWithRoom());
    }
}

// === Diagnostics ================================================================================

namespace {

[[noreturn]] void raise(const String& message) {
    throw std::runtime_error(std::string(message.view()));
}

}  // namespace

void KvtParser::tokenError(const Token& t) { raise(t.text); }

void KvtParser::tokenError(const String& expected, const Token& found) {
    raise(say<Message::BadToken>(found.line, found.column, expected.buf(), found.text.buf()).text);
}

// The detail at the place of the token taken last.
String KvtParser::framed(const char* kind, const String& detail) const {
    return String::format("%s (%d,%d): %s.", kind, lastToken().line, lastToken().column,
                          detail.buf());
}

void KvtParser::internalError(const String& kind, const char* fmt, va_list args) {
    raise(framed(kind.buf(), String::formatv(fmt, args)));
}

void KvtParser::bufferError(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    internalError("BUFFER ERROR", fmt, args);
}

void KvtParser::parseError(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    internalError(messages::parse, fmt, args);
}

String KvtParser::shown(const Said& said) const {
    const char* const frame = rowOf(said.message).frame;
    return frame ? framed(frame, said.text) : said.text;
}

void KvtParser::fail(const Said& said) const { raise(shown(said)); }

void KvtParser::tell(const Said& said) const {
    report(LogRecord(rowOf(said.message).severity, shown(said)));
}

void KvtParser::typeError(const String& value, IInput* input, bool array) {
    fail(say<Message::CannotAssign>(value.buf(), array ? "[]" : "", input->typeName().buf(),
                                    input->fullName().buf()));
}

void KvtParser::narrowTypeWarning(const String& value, IInput* input) {
    tell(
        say<Message::NarrowedValue>(value.buf(), input->typeName().buf(), input->fullName().buf()));
}

void KvtParser::wrongTypeWarning(const String& value, IInput* input) {
    tell(say<Message::WrongType>(input->typeName().buf(), input->fullName().buf(), value.buf()));
}

KvtParser::KvtParser() : KvtParser(Pending::Records) {}
KvtParser::KvtParser(Pending pending)
    : pending_(pending),
      outputsToConnect_(std::make_unique<Outputs>()),
      nodesToSet_(std::make_unique<Nodes>()) {}
KvtParser::~KvtParser() = default;

// === Lookahead ==================================================================================

// An invalid token never gets into the ring.
void KvtParser::advance() {
    const unsigned place = (head_ + lookahead) % ringSize;
    Token& next = ring_[place];
    const Lexer::Place begin = lexer_->place();
    // Somebody else has read on: nobody goes back over that.
    if (begin != reached_) std::fill(std::begin(begins_), std::end(begins_), Lexer::Place());
    begins_[place] = begin;
    lexer_->read(next);
    reached_ = lexer_->place();
    if (next.type == Token::Invalid) refuse(next);
    head_ = (head_ + 1) % ringSize;
}

void KvtParser::prime(IScene* scene, Lexer* lexer) {
    scene_ = scene;
    lexer_ = lexer;
    bufferBytes_ = 0;
    for (Token& t : ring_)
        t = Token();
    for (unsigned i = 0; i < lookahead; ++i)
        advance();
}

void KvtParser::refuse(Token& next) {
    const Token invalid = std::exchange(next, Token());
    ring_[(head_ - 1) % ringSize] = peek(1);
    tokenError(invalid);
}

Token KvtParser::consume() {
    advance();
    return lastToken();
}

inline bool KvtParser::skip(Token::Type type) {
    if (la(1) != type) return false;
    advance();
    return true;
}

bool KvtParser::match(Token& t, Token::Type type) {
    if (!skip(type)) return false;
    t = lastToken();
    return true;
}

// === Statements =================================================================================

// Nothing is purged in the scenes whose nodes the parser knows, until they are forgotten.
class KvtParser::Reading {
  public:
    explicit Reading(KvtParser& parser) : parser_(parser) {
        if (Scene* const scene = parser_.plainScene()) parser_.hold(*scene);
        parser_.isReading_ = true;
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    ~Reading() {
        parser_.isReading_ = false;
        for (Scene* const scene : parser_.heldScenes_)
            scene->endReading();
        parser_.heldScenes_.clear();
    }

  private:
    KvtParser& parser_;
};

void KvtParser::hold(Scene& scene) {
    heldScenes_.push_back(&scene);
    scene.beginReading();
}

// A node that the scene has handed out, maybe of another scene.
Node* KvtParser::given(Node* node) {
    if (!node || !isReading_) return node;
    Scene* const scene = &node->scene();
    const bool isHeld =
        std::find(heldScenes_.begin(), heldScenes_.end(), scene) != heldScenes_.end();
    if (!isHeld) hold(*scene);
    return node;
}

Node* KvtParser::findNode(const String& name) { return given(scene_->findNode(name)); }

// The scene where it does what it does as `Scene` has it, else null.
Scene* KvtParser::plainScene() const {
    const bool isPlain = scene_ && typeid(*scene_) == typeid(Scene);
    return isPlain ? static_cast<Scene*>(scene_) : nullptr;
}

// document = { statement }
bool KvtParser::parse(IScene* scene, Lexer* lexer) {
    dropPending();
    withNode_ = nullptr;
    definedNodes_.clear();
    prime(scene, lexer);
    const Reading reading(*this);
    Statements statements(*this);
    try {
        while (la(1) != Token::Eof && la(1) != Token::Invalid) {
            if (!scene_) fail(say<Message::NoScene>());
            statements.read();
            if (!statement()) fail(say<Message::UnrecognizedToken>(peek(1).text.buf()));
        }
        resolve();
        return true;
    } catch (const std::runtime_error& error) {
        dropPending();
        logError("%s", error.what());
        return false;
    } catch (...) {
        dropPending();
        throw;
    }
}

void KvtParser::dropPending() noexcept {
    pendingConnections = {};
    pendingIdentifiers = {};
    *outputsToConnect_ = {};
    *nodesToSet_ = {};
}

// statement = comment | remove | define | declare | with | assign
//
// A `with` looks like a declaration and is taken as one, of type `with` if the node is not there.
bool KvtParser::statement() {
    return parseComment() || parseRemove() || parseDefine() || parseDeclare() || parseWith() ||
           parseAssign();
}

// comment = Comment; one with "version:" or "time:" also sets the scene's version or time
bool KvtParser::parseComment() {
    if (!skip(Token::Comment)) return false;
    const String comment = lastToken().text;
    const String field = comment.fromFirst(':', false).trim(true, true);
    if (comment.contains(versionField, false)) {
        unsigned long version = 0;
        if (String::parse(field, version, String::Auto)) {
            scene_->setFileVersion(version);
        } else {
            tell(say<Message::BadVersion>(comment.buf()));
        }
    } else if (comment.contains(timeField, false) && !field.isEmpty()) {
        scene_->setFileTime(field);
    }
    scene_->pushFileComment(comment);
    return true;
}

// Whether the next tokens are the keyword, a name and `end`.
bool KvtParser::isNamed(const char* keyword, Token::Type end) const {
    return la(1) == Token::Id && la(2) == Token::Id && la(3) == end &&
           peek(1).text.compareNoCase(keyword) == 0;
}

// Takes keyword or type, name and end, and returns the name.
String KvtParser::takeName() {
    String name = peek(2).text;
    for (unsigned i = 0; i < lookahead; ++i)
        advance();
    return name;
}

// remove = "remove" Id ";"
bool KvtParser::parseRemove() {
    if (!isNamed("remove", Token::Semicolon)) return false;
    scene_->removeNode(takeName());
    return true;
}

// define = "define" Id ";"
bool KvtParser::parseDefine() {
    if (!isNamed("define", Token::Semicolon)) return false;
    const String name = takeName();
    Node* node = findNode(name);
    if (!node) node = given(scene_->defineNode(name));
    definedNodes_.push_back(node);
    return true;
}

// declare = Id Id ( ";" | ":" ), the type and the name; with ":" assignments to the node follow
bool KvtParser::parseDeclare() {
    const bool isBlock = la(3) == Token::Colon;
    if (la(1) != Token::Id || la(2) != Token::Id) return false;
    if (!isBlock && la(3) != Token::Semicolon) return false;
    const String type = peek(1).text;
    const String name = takeName();
    Node* node = findNode(name);
    if (!node) node = given(scene_->createNode(type, name, String()));
    if (isBlock) withNode_ = node;
    return true;
}

// with = "with" Id ":", the name of a node or the type of a defined one
bool KvtParser::parseWith() {
    if (!isNamed("with", Token::Colon)) return false;
    const String name = takeName();
    withNode_ = findNode(name);
    if (withNode_) return true;
    for (Node* const node : definedNodes_)
        if (node && node->type() == name) withNode_ = node;
    return true;
}

inline void KvtParser::take(ds::Vector<Token>& tokens, int count) {
    for (int i = 0; i < count; ++i) {
        advance();
        tokens.push_back(lastToken());
    }
}

// path = ( Id "." Id | "." Id ) { Brackets | "." Id }
bool KvtParser::path(ds::Vector<Token>& tokens) {
    const bool isAbsolute = la(1) == Token::Id;
    if (isAbsolute && (la(2) != Token::Dot || la(3) != Token::Id)) return false;
    if (!isAbsolute && (la(1) != Token::Dot || la(2) != Token::Id)) return false;
    take(tokens, isAbsolute ? 3 : 2);
    for (;;) {
        if (la(1) == Token::Brackets) {
            take(tokens, 1);
        } else if (la(1) == Token::Dot && la(2) == Token::Id) {
            take(tokens, 2);
        } else {
            return true;
        }
    }
}

String KvtParser::collapse(const ds::Vector<Token>& tokens) {
    std::string text;
    for (const Token& t : tokens)
        text += t.text.view();
    return String(text);
}

// reference = "|" "=" ( "null" | path ) ";"
bool KvtParser::connect(AssignInfo& info) {
    if (!skip(Token::Pipe)) return false;
    if (!skip(Token::Equals)) tokenError("=", peek(1));
    const unsigned long first = info.refPath.size();
    if (skip(Token::Null)) {
        info.refPath.push_back(lastToken());
    } else if (!path(info.refPath)) {
        tokenError("(null|path)", peek(1));
    }
    info.token0 = info.refPath[first];
    if (!skip(Token::Semicolon)) tokenError(";", peek(1));
    info.gotReference = true;
    return true;
}

// === Values =====================================================================================

// value = "=" ( scalar | buffer | Id | "null" ) ";"
bool KvtParser::value(AssignInfo& info) {
    if (!skip(Token::Equals)) return false;
    if (scalar(info)) {
        info.gotScalar = true;
    } else if (buffer(info)) {
        info.gotBuffer = true;
    } else {
        identifier(info);
    }
    if (!skip(Token::Semicolon)) tokenError(";", peek(1));
    return true;
}

void KvtParser::identifier(AssignInfo& info) {
    const bool isIdentifier = la(1) == Token::Id || la(1) == Token::Null;
    if (!isIdentifier) tokenError("(scalar|buffer|reference)", peek(1));
    info.gotIdentifier = true;
    advance();
    info.token4 = lastToken();
    info.token0 = lastToken();
}

// --- Scalars ------------------------------------------------------------------------------------

namespace {

// The text of a group or a string without its delimiters.
std::string_view inside(const Token& group) {
    return group.text.view().substr(1, group.text.len() - 2);
}

// A string between its quotes.
bool readText(const String& text, AttrData& data) {
    data.setText(text.substring(1, text.len() - 2).unescape().view());
    return true;
}

bool isLiteral(Token::Type type) {
    return type == Token::True || type == Token::False || type == Token::Integer ||
           type == Token::Real || type == Token::StringLiteral || type == Token::Braces ||
           type == Token::Brackets;
}

bool readLiteral(const Token& literal, AttrData& data) {
    const std::string_view text = literal.text.view();
    if (literal.type == Token::Integer) return readInteger(text, data);
    if (literal.type == Token::Real) return readReal(text, data);
    if (literal.type == Token::StringLiteral) return readText(literal.text, data);
    if (literal.type == Token::Braces || literal.type == Token::Brackets) {
        data.type = literal.type == Token::Braces ? AttrType::Object : AttrType::Array;
    } else {
        data.setBool(literal.type == Token::True);
    }
    return true;
}

template <int N>
bool readComponents(std::string_view text, AttrData& data) {
    double components[N];
    std::memcpy(components, data.value, sizeof components);
    const bool isRead = math::parseComponents<N>(text, components);
    std::memcpy(data.value, components, sizeof components);
    return isRead;
}

// A colour may leave out its alpha, which is 1 then.
bool readColour(std::string_view text, AttrData& data) {
    double components[4];
    std::memcpy(components, data.value, sizeof components);
    const bool isRead = math::parseRgba(text, components);
    std::memcpy(data.value, components, sizeof components);
    return isRead;
}

bool readMath(std::string_view text, AttrType type, AttrData& data) {
    data.type = type;
    if (type == AttrType::Rgba) return readColour(text, data);
    switch (componentCount(type)) {
        case 2: return readComponents<2>(text, data);
        case 3: return readComponents<3>(text, data);
        case 4: return readComponents<4>(text, data);
        case 9: return readComponents<9>(text, data);
        default: return readComponents<16>(text, data);
    }
}

}  // namespace

// scalar = "true" | "false" | Integer | Real | String | Braces | Brackets | math value
//
// A literal that does not convert is taken all the same, so that what stands after it, a ";" as a
// rule, ends the statement with an error.
bool KvtParser::scalar(AssignInfo& info) {
    if (!isLiteral(la(1))) return mathValue(info);
    advance();
    info.token0 = lastToken();
    return readLiteral(info.token0, info.data);
}

// math value = Id Parens, the identifier a type: vec3(1 0 0)
bool KvtParser::mathValue(AssignInfo& info) {
    if (la(1) != Token::Id || la(2) != Token::Parens) return false;
    const AttrType type = mathTypeNamed(peek(1).text);
    if (type == AttrType::Null) return false;
    advance();
    info.token0 = lastToken();
    advance();
    info.token3 = lastToken();
    return readMath(inside(info.token3), type, info.data);
}

// --- Buffers ------------------------------------------------------------------------------------

namespace {

// The element type that `keyword` names, or Null.
DataType elementTypeNamed(const String& keyword) {
    if (const auto* const scalar = scalarBufferTypes().findNode(keyword)) return scalar->value;
    if (const auto* const vector = vectorBufferTypes().findNode(keyword)) return vector->value;
    return DataType::Null;
}

}  // namespace

bool KvtParser::parseElem(const String& text, DataType type, unsigned char* dest) {
    return bulk::convertNumber(text.view(), type, dest);
}

// buffer = Id Brackets Braces, the identifier an element type: vec3f[2] {0 0 0 1 1 1}
bool KvtParser::buffer(AssignInfo& info) {
    if (la(1) != Token::Id || la(2) != Token::Brackets || la(3) != Token::Braces) return false;
    const DataType type = elementTypeNamed(peek(1).text.toLower(true));
    if (type == DataType::Null) return false;
    for (Token* const kept : {&info.token0, &info.token1, &info.token2}) {
        advance();
        *kept = lastToken();
    }
    allocateBuffer(info, type);
    if (!info.data.payload()) return true;  // of no elements, whatever the group says
    const std::string_view data = inside(info.token2);
    if (componentSize(type) == 1 && !data.empty() && data.front() == '.') {
        readCompactBytes(info);
    } else {
        readComponents(info);
    }
    return true;
}

// What the next buffer may take of the scene's limits.
unsigned long KvtParser::bufferBytesLeft() const {
    if (!scene_) return noBufferLimit;
    const unsigned long total = scene_->bufferTotalLimit();
    return std::min(scene_->bufferLimit(), total - std::min(total, bufferBytes_));
}

// Takes zeroed memory for the count that the statement gives; none for a count of 0.
void KvtParser::allocateBuffer(AssignInfo& info, DataType type) {
    const char* const written = info.token1.text.buf();
    unsigned long elements = 0;
    if (!String::parse(info.token1.text.trimChars("[]", ""), elements, String::Auto)) {
        fail(say<Message::BadCount>(written));
    }
    info.data = AttrData::declareBuffer(type);
    info.data.value[1] = elements;
    // No memory is larger, so none is asked for.
    constexpr auto largest = static_cast<unsigned long>(std::numeric_limits<std::ptrdiff_t>::max());
    if (elements > std::min(largest, bufferBytesLeft()) / elementSize(type)) {
        fail(say<Message::BadCount>(written));
    }
    const unsigned long bytes = elements * elementSize(type);
    info.data.value[2] = bytes;
    bufferBytes_ += bytes;
    if (bytes == 0) return;
    info.data.setPayload(std::calloc(bytes, 1));
    if (!info.data.payload()) fail(say<Message::BadCount>(written));
    memory::adviseLarge(info.data.payload(), bytes);
}

// Bytes that the text does not give stay zero.
void KvtParser::readCompactBytes(AssignInfo& info) {
    const std::string_view text = inside(info.token2);
    const BufferView buffer = info.data.buffer();
    String error;
    const ByteArray bytes = decompress(reinterpret_cast<const unsigned char*>(text.data()),
                                       text.size(), error, buffer.bytes);
    const std::unique_ptr<unsigned char[]> owner(bytes.data);
    if (bytes.size == 0) parseError("%s", error.buf());
    std::memcpy(info.data.payload(), bytes.data, bytes.size);
}

// Numbers one after the other, whatever the element; those that the text does not give stay zero.
void KvtParser::readComponents(AssignInfo& info) {
    const BufferView buffer = info.data.buffer();
    const char* const keyword = info.token0.text.buf();
    const bulk::Conversion numbers = bulk::operations().convertNumbers(
        inside(info.token2), componentType(buffer.type),
        static_cast<unsigned char*>(info.data.payload()), buffer.components());
    if (!numbers.excess.empty()) {
        fail(say<Message::ExcessNumber>(String(numbers.excess).buf(), numbers.count, keyword,
                                        buffer.count));
    }
    if (numbers.count < buffer.components()) {
        tell(say<Message::TooFewElements>(numbers.count / componentCount(buffer.type), keyword,
                                          buffer.count));
    }
    if (!numbers.allConverted) fail(say<Message::BadNumber>(keyword));
}

// === Assignment =================================================================================

namespace {

// The path as messages show it: a relative one begins with the name of its node.
String shownPath(const ds::Vector<Token>& path, const Node* node) {
    const String written = KvtParser::collapse(path);
    return node && written.startsWith(".", false) ? node->name() + written : written;
}

}  // namespace

void KvtParser::AssignInfo::clear() {
    path.clear();
    refPath.clear();
    token0 = Token();
    // No end of input is kept here, and the four seldom hold anything.
    if ((token1.type | token2.type | token3.type | token4.type) != Token::Eof) {
        token1 = token2 = token3 = token4 = Token();
    }
    gotScalar = gotBuffer = gotReference = gotIdentifier = false;
    data.clear();
}

String KvtParser::AssignInfo::valueString() const {
    String text = token0.text;
    if (token1.type > Token::Invalid) text = text + "[]";
    return text.len() > longestShown ? text.substring(0, longestShown) + "..." : text;
}

// A walk along the target path of an assignment.
struct KvtParser::Walk {
    // The steps are names and indices. Where the next one after `i` stands, past a dot; at the end
    // of the path when there is none.
    unsigned long stepBehind(unsigned long i) const {
        const ds::Vector<Token>& path = info.path;
        const bool isBehindDot = i + 1 < path.size() && path[i + 1].type == Token::Dot;
        return isBehindDot ? i + 2 : i + 1;
    }
    bool isEnd(unsigned long i) const { return i == info.path.size(); }
    bool isIndex(unsigned long i) const { return info.path[i].type == Token::Brackets; }

    Node& node;
    const AssignInfo& info;
    Input* input = nullptr;   // reached so far
    Input* parent = nullptr;  // the one before it
    bool isNew = false;       // whether `input` was made on the way
};

// assign = path ( reference | value )
bool KvtParser::parseAssign() {
    AssignInfo& info = assignment_;
    info.clear();
    const PayloadGuard guard(*scene_, info.data);
    if (!path(info.path)) return false;
    if (!connect(info) && !value(info)) return false;
    assign(info);
    return true;
}

void KvtParser::assign(AssignInfo& info) {
    Walk walk{assignedNode(info), info};
    if (!reachTarget(walk)) inputNotFound(info, walk.node);
    carryOut(walk, info);
}

inline void KvtParser::carryOut(const Walk& walk, AssignInfo& info) {
    if (info.gotReference) {
        if (pending_ == Pending::Records) return keepRecord(pendingConnections, walk, info);
        outputsToConnect_->add(walk.input, walk.isNew, info.refPath);
    } else if (info.gotIdentifier) {
        if (pending_ == Pending::Records) return keepRecord(pendingIdentifiers, walk, info);
        nodesToSet_->add(walk.input, walk.isNew, info.token4);
    } else {
        storeValue(*walk.input, walk.parent, info);
    }
}

void KvtParser::inputNotFound(const AssignInfo& info, const Node& node) {
    fail(say<Message::UnknownInput>(shownPath(info.path, &node).buf()));
}

Node& KvtParser::assignedNode(const AssignInfo& info) {
    const Token& first = info.path[0];
    const bool isRelative = first.type == Token::Dot;
    Node* const node = isRelative ? withNode_ : findNode(first.text);
    if (node) return *node;
    const String written = shownPath(info.path, nullptr);
    if (isRelative) fail(say<Message::NoWithNode>(written.buf()));
    fail(say<Message::UnknownNode>(written.buf()));
}

// --- The walk to the target ---------------------------------------------------------------------

namespace {

// Whether there are inputs below this one, or can be.
bool mayHold(const Input& input) {
    return input.isObject() || input.isArray() || input.type() == AttrType::Null;
}

}  // namespace

Input* KvtParser::reachTarget(Walk& walk) {
    for (unsigned long i = walk.stepBehind(0); !walk.isEnd(i); i = walk.stepBehind(i)) {
        Input* const next = takeStep(walk, i);
        if (!next) return nullptr;
        walk.parent = std::exchange(walk.input, next);
    }
    return walk.input;
}

// What step `i` should lead to: the value itself at the end, else what the next steps lead into.
KvtParser::Expected KvtParser::expectedAt(const Walk& walk, unsigned long i) {
    const AttrType valueType = walk.info.data.type;
    const unsigned long next = walk.stepBehind(i);
    if (walk.isEnd(next)) return {valueType, AttrType::Null};
    if (!walk.isIndex(next)) return {AttrType::Object, AttrType::Null};
    const unsigned long second = walk.stepBehind(next);
    if (walk.isEnd(second)) return {AttrType::Array, valueType};
    return {AttrType::Array, walk.isIndex(second) ? AttrType::Array : AttrType::Object};
}

// Finds or creates the input that step `i` names; null when there can be none.
Input* KvtParser::takeStep(Walk& walk, unsigned long i) {
    const Token& token = walk.info.path[i];
    const String name = updateInputName(walk.node.type(), token.text);
    const Expected expected = expectedAt(walk, i);
    if (walk.input && !mayHold(*walk.input)) return nullptr;
    if (walk.input && walk.input->isArray()) {
        walk.isNew = false;  // as far as anyone keeps count
        return takeIndexStep(*walk.input, name, token, expected.type);
    }
    const FoundInput step =
        walk.input ? walk.input->findOrCreate(name, expected.type, expected.elementType)
                   : walk.node.findOrCreate(name, expected.type, expected.elementType);
    walk.isNew = step.isNew;
    const bool isLast = walk.isEnd(walk.stepBehind(i));
    if (step.input && !step.isNew && !isLast) checkIntermediate(*step.input, expected);
    return step.input;
}

// index = "[" ( number | "*" ) "]"; the array grows to hold it, "*" is the place after its end
Input* KvtParser::takeIndexStep(Input& array, const String& name, const Token& token,
                                AttrType expected) {
    if (array.arrayType() == AttrType::Null) array.set(AttrData::declareArray(expected));
    if (expected != AttrType::Null && expected != array.arrayType()) {
        typeError(attrTypeName(expected), &array, false);
    }
    const String text = name.trimChars("[]", "");
    unsigned long index = array.inputCount();
    if (text != "*" && !String::parse(text, index, String::Auto)) {
        fail(say<Message::BadIndex>(token.text.buf()));
    }
    array.growTo(index);
    return array.inputAt(index);
}

// An input that was there before must be what the steps after it lead into: an array, of the right
// elements as far as that is known, or an object.
void KvtParser::checkIntermediate(Input& input, const Expected& expected) {
    if (input.type() == AttrType::Null) return;
    if (expected.type != input.type()) typeError(attrTypeName(expected.type), &input, false);
    if (!input.isArray() || expected.elementType == AttrType::Null) return;
    if (expected.elementType != input.arrayType()) {
        typeError(attrTypeName(expected.elementType), &input, true);
    }
}

// --- Storing ------------------------------------------------------------------------------------

namespace {

// The first value in an array of buffers or arrays tells what all its undeclared elements hold.
void declareSiblings(Input* parent, const AttrData& data) {
    if (!parent) return;
    const AttrType elements = parent->arrayType();
    if (elements != AttrType::Buffer && elements != AttrType::Array) return;
    AttrData declaration;
    declaration.type = elements;
    declaration.setElementType(data.bufferType());
    parent->declareElements(declaration);
}

// True for most values that need not be fitted: those of their input's own type, which is no
// buffer.
bool takesAsIs(const Input& target, const AttrData& data) {
    const bool isPlain = !target.isArray() && !target.isObject() && !target.isBuffer();
    return isPlain && target.type() == data.type;
}

}  // namespace

// In the place of one that waits for the target already: the last assignment to an input wins.
void KvtParser::keepRecord(Records& pending, const Walk& walk, const AssignInfo& info) {
    auto* const earlier = walk.isNew ? nullptr : pending.findNode(walk.input);
    if (earlier) {
        earlier->value = info;
        return;
    }
    held_.push_back(RefersTo<IInput>(walk.input));  // first, so that nothing waits without it
    pending.emplace(walk.input, info);
}

inline void KvtParser::storeValue(Input& target, Input* parent, AssignInfo& info) {
    if (!takesAsIs(target, info.data) && !fit(info, target)) return;
    declareSiblings(parent, info.data);
    target.assign(info.data);
    if (info.data.hasPayload()) info.data.clear();  // the payload is the target's now
    checkEnumeration(target);
}

// Makes the value one that the target takes, or says why it takes none.
bool KvtParser::fit(AssignInfo& info, Input& target) {
    AttrData& data = info.data;
    if (target.isArray() || target.isObject()) {
        wrongTypeWarning(info.valueString(), &target);
        return false;
    }
    if (target.isBuffer() && data.type == AttrType::Buffer) {
        const DataType declared = target.bufferType();
        if (declared == DataType::Null || declared == data.bufferType()) return true;
        wrongTypeWarning(dataTypeName(data.bufferType()), &target);
        return false;
    }
    bool narrowing = false;
    AttrData converted;
    if (!canConvert(data.type, target.type(), &narrowing) ||
        !convert(data, target.type(), converted)) {
        wrongTypeWarning(attrTypeName(data.type), &target);
        return false;
    }
    if (narrowing) narrowTypeWarning(attrTypeName(data.type), &target);
    data = converted;
    return true;
}

void KvtParser::checkEnumeration(const Input& target) {
    if (target.type() != AttrType::String) return;
    const Enumeration* const values = target.enumeration();
    if (!values || !values->isActive()) return;
    const String text(target.asText());
    if (values->find(text)) return;
    tell(say<Message::UnknownEnumValue>(text.buf(), target.fullName().buf()));
}

// === Entry points ===============================================================================

bool parseString(IScene* scene, String text) {
    KvtParser parser(KvtParser::Pending::Names);
    StringLexer lexer(std::move(text));
    return parser.parse(scene, &lexer);
}

bool parseKvt(IScene* scene, File file, bool keepHeader) {
    if (scene && !keepHeader) {
        scene->clearComments();
        scene->setFileVersion(KVX_FILE_VERSION_1);
        scene->setFileTime("");
    }
    KvtParser parser(KvtParser::Pending::Names);
    FileLexer lexer(std::move(file));
    return parser.parse(scene, &lexer);
}

}  // namespace ko::mirel_sdk::impl
