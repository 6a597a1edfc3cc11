#include "reader/statements.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "bulk/charclass.h"
#include "bulk/charruns.h"
#include "bulk/shortnumbers.h"
#include "foundation/ascii.h"
#include "foundation/words.h"
#include "reader/keywords.h"
#include "reader/literals.h"
#include "reader/payload.h"
#include "reader/waitinglist.h"
#include "scene/ahead.h"
#include "scene/making.h"
#include "scene/renames.h"
#include "scene/store.h"

namespace ko::mirel_sdk::impl {

namespace {

bool isWholeWanted = true;

}  // namespace

void readStatementsWhole(bool isWanted) noexcept { isWholeWanted = isWanted; }

// A statement up to its value, or a declaration.
struct KvtParser::Statements::Head {
    enum Kind { Assign, Refer, Declare, OpenBlock };

    bool isDeclaration() const { return kind == Declare || kind == OpenBlock; }

    Kind kind = Assign;
    String type;    // of a declared node
    String node;    // declared, or that the target is of; empty for the one whose block it is
    String object;  // that the target is a member of; empty for an input of the node
    String input;
    Symbol objectName = 0;  // the two of them in the scene
    Symbol inputName = 0;
    unsigned long nodeHash = 0;       // of the node, where it is named
    String element;                   // of an array, "[3]" or "[*]"; empty for the input itself
    unsigned long index = 0;          // of that element, if it is not the one after the last
    AttrType group = AttrType::Null;  // of the value, where that begins with "pos3(" or the like
    const char* name = nullptr;       // the declared name
    const char* end = nullptr;        // its last character
};

// Of an assignment; of type Null for names, which wait for the end of the document.
struct KvtParser::Statements::Value {
    AttrData data;
    std::string_view text;  // of a String
    String node;
    String output;
    const char* end = nullptr;  // the ";"
};

// How the text went on from the end of a statement to the value of the next one: blanks, names and
// sign, and a parenthesis that the value begins with. What was written once after the same
// beginning is mostly written again, letter for letter, and need not be taken apart again.
struct KvtParser::Statements::Spelling {
    // Longer ones are not kept.
    static constexpr unsigned long wordCount = 4;
    static constexpr unsigned long longest = wordCount * words::size;

    // The first `count` characters of `longest`, at least one.
    void keep(const char* from, unsigned long count) {
        length = count;
        for (unsigned long i = 0; i < wordCount; ++i) {
            const unsigned long before = std::min(i * words::size, length);
            const unsigned long here = std::min(length - before, words::size);
            belongs[i] = here ? ~words::Word(0) >> 8 * (words::size - here) : 0;
            text[i] = words::load(from + i * words::size) & belongs[i];
        }
    }

    bool isAt(const char* at) const {
        words::Word differences = 0;
        for (unsigned long i = 0; i < wordCount; ++i)
            differences |= (words::load(at + i * words::size) & belongs[i]) ^ text[i];
        return differences == 0;
    }

    words::Word text[wordCount] = {};
    words::Word belongs[wordCount] = {};
    unsigned long length = 0;
    Head head;
    Spelling* next = nullptr;  // what stood after its statement last time
};

// === What stands in the text ====================================================================

// The characters of the run from `at` on. Each step takes what it is named for, or returns false
// and may have passed some of it: then the statement is left to the rules.
//
// All of it lives in registers: steps are inlined, and what is not gets the text as a value and
// returns the text after what it took, or nothing.
class KvtParser::Statements::Text {
  public:
    Text() = default;  // nothing
    Text(const char* at, const char* end)
        : at_(at), limit_(end - std::min<long>(end - at, reach)) {}

    explicit operator bool() const { return at_ != nullptr; }
    // Goes on after what a step returned.
    [[gnu::always_inline]] bool moveTo(const Text& behind) {
        if (!behind) return false;
        *this = behind;
        return true;
    }

    const char* at() const { return at_; }
    bool isNearEnd() const { return at_ >= limit_; }
    bool isAt(char c) const { return *at_ == c; }
    bool isAtNumber() const { return String::isDigit(*at_) || *at_ == '-'; }

    [[gnu::always_inline]] bool take(char c) {
        if (*at_ != c) return false;
        ++at_;
        return true;
    }

    [[gnu::always_inline]] bool passBlanks() {
        while (at_ < limit_) {
            if (!chars::is(*at_, chars::Blank)) return true;
            at_ += chars::leading(chars::Sixteen(at_).blanks());
        }
        return false;
    }

    // An identifier or a reserved word.
    [[gnu::always_inline]] bool takeWord(String& word) {
        if (at_ >= limit_ || !chars::is(*at_, chars::IdPart) || String::isDigit(*at_)) return false;
        const unsigned length = chars::leading(chars::Sixteen(at_).idParts());
        if (!String::fitsShort(length)) return moveTo(behindLongWord(*this, word));
        word.assignShort(at_, length);
        at_ += length;
        return true;
    }

    [[gnu::always_inline]] bool takeName(String& name) {
        return takeWord(name) && !findReserved(name);
    }

    // The same as `name`, a short one that was taken before.
    [[gnu::always_inline]] bool takeAgain(const String& name) {
        const unsigned long length = name.len();
        if (at_ >= limit_ || length == 0 || !String::fitsShort(length)) return false;
        String again;
        again.assignShort(at_, length);
        if (again != name || chars::is(at_[length], chars::IdPart)) return false;
        at_ += length;
        return true;
    }

    [[gnu::always_inline]] bool takeNumber(AttrData& data) {
        const chars::Sixteen ahead(at_);
        const unsigned length = chars::leading(ahead.decimalParts());
        const unsigned points = ahead.points() & ((1U << length) - 1);
        const bool isReal = points != 0;
        const bool isShort =
            String::fitsShort(length) && !chars::is(at_[length], chars::NumberPart);
        const bool isRead =
            isShort && (isReal ? shortnumbers::toReal(at_, length, points, data.value)
                               : shortnumbers::toInteger(at_, length, data.value));
        if (!isRead) return moveTo(behindRareNumber(*this, data));
        data.type = isReal ? AttrType::Real : AttrType::Int;
        at_ += length;
        return true;
    }

    // The text between the quotes of a string that has no escapes.
    [[gnu::always_inline]] bool takeString(std::string_view& text) {
        const char* const begin = ++at_;
        unsigned length = chars::sixteen;
        for (; at_ < limit_ && length == chars::sixteen; at_ += length)
            length = chars::leading(chars::Sixteen(at_).stringParts());
        text = {begin, static_cast<unsigned long>(at_ - begin)};
        return length < chars::sixteen && take('"');
    }

    // numbers ")", as components of a value of `data.type`
    [[gnu::always_inline]] bool takeComponents(AttrData& data) {
        return moveTo(behindComponents(*this, data));
    }

    // "[" ( number | "*" ) "]", as an element is written
    bool takeIndex(Head& head) {
        const char* const begin = at_++;
        const unsigned digits = chars::leading(chars::Sixteen(at_).decimalParts());
        constexpr unsigned most = 9;
        const bool isNumber = String::isDigit(*at_) && digits <= most &&
                              shortnumbers::toInteger(at_, digits, &head.index);
        if (!isNumber && *at_ != '*') return false;
        at_ += isNumber ? digits : 1;
        head.element.assignShort(begin, static_cast<unsigned long>(at_ - begin) + 1);
        return take(']');
    }

    // Empty when its end is not at hand.
    std::string_view takeComment() {
        const char* const begin = at_;
        at_ = chars::skip(at_, limit_, chars::CommentPart);
        return {begin, at_ < limit_ ? static_cast<unsigned long>(at_ - begin) : 0};
    }

    [[gnu::always_inline]] bool isAt(const Spelling& spelling) const {
        return at_ < limit_ && spelling.isAt(at_);
    }
    void pass(const Spelling& spelling) { at_ += spelling.length; }

  private:
    // How far a step and the few characters after it may look without asking whether they are
    // there.
    static constexpr long reach = 64;

    [[gnu::noinline]] static Text behindLongWord(Text text, String& word) {
        const char* const end = chars::skip(text.at_, text.limit_, chars::IdPart);
        word.assign({text.at_, static_cast<unsigned long>(end - text.at_)});
        return text.behind(end);
    }

    // Exponents, hexadecimal digits, words, and whatever else a number may be.
    [[gnu::noinline]] static Text behindRareNumber(Text text, AttrData& data) {
        const std::string_view number = text.rareNumber();
        const bool isReal = (chars::unionOf(number) & chars::RealMark) != 0;
        const Text rest = text.behind(number.data() + number.size());
        const bool isRead = rest && (isReal ? readReal(number, data) : readInteger(number, data));
        return isRead ? rest : Text();
    }

    [[gnu::noinline]] static Text behindComponents(Text text, AttrData& data) {
        std::fill_n(data.value, 4, 0);
        const unsigned long count = componentCount(data.type);
        unsigned long i = 0;
        for (; text.passGap() && !text.isAt(')'); ++i)
            if (i == count || !text.takeComponent(&data.value[i])) return {};
        const bool lacksAlpha = data.type == AttrType::Rgba && i == 3;
        if (lacksAlpha) data.setComponent(3, 1);
        return (i == count || lacksAlpha) && text.take(')') ? text : Text();
    }

    [[gnu::always_inline]] bool takeComponent(std::uint64_t* number) {
        const chars::Sixteen ahead(at_);
        const unsigned length = chars::leading(ahead.decimalParts());
        const bool isShort =
            String::fitsShort(length) && !chars::is(at_[length], chars::NumberPart);
        if (!isShort || !shortnumbers::toReal(at_, length, ahead.points(), number)) {
            return moveTo(behindRareComponent(*this, number));
        }
        at_ += length;
        return true;
    }

    [[gnu::noinline]] static Text behindRareComponent(Text text, std::uint64_t* component) {
        const std::string_view number = text.rareNumber();
        double value = 0;
        if (!parseNumber(number, value)) return {};
        std::memcpy(component, &value, sizeof value);
        return text.behind(number.data() + number.size());
    }

    std::string_view rareNumber() const {
        const char* const end = chars::skip(at_, limit_, chars::NumberPart);
        return {at_, static_cast<unsigned long>(end - at_)};
    }

    // What may stand between the numbers of a group, before the first and after the last.
    [[gnu::always_inline]] bool passGap() {
        while (at_ < limit_ && chars::is(*at_, chars::ParensGap))
            ++at_;
        return at_ < limit_;
    }

    // Nothing where the rest may not be at hand.
    Text behind(const char* end) const {
        Text moved = *this;
        moved.at_ = end;
        return end < limit_ ? moved : Text();
    }

    const char* at_ = nullptr;
    const char* limit_ = nullptr;
};

// === Heads ======================================================================================

// head = declaration | target ( "=" | "|" "=" )
inline bool KvtParser::Statements::seeHead(Text& text, Head& head) {
    if (!text.passBlanks()) return false;
    head.node = String();
    if (!text.isAt('.') && (!text.takeName(head.node) || !text.passBlanks())) return false;
    return text.isAt('.') ? seeTarget(text, head) : seeDeclaration(text, head);
}

// target = [ Id ] "." Id [ "." Id ] [ Brackets ]
inline bool KvtParser::Statements::seeTarget(Text& text, Head& head) {
    head.object = String();
    head.element = String();
    if (!text.take('.') || !text.takeName(head.input) || !text.passBlanks()) return false;
    if (text.isAt('.')) {
        head.object = head.input;
        if (!text.take('.') || !text.takeName(head.input) || !text.passBlanks()) return false;
    }
    if (text.isAt('[') && (!text.takeIndex(head) || !text.passBlanks())) return false;
    head.kind = text.take('|') ? Head::Refer : Head::Assign;
    return text.take('=');
}

namespace {

// Whether that, before another name, is no type.
bool isStatementWord(const String& word) {
    return ascii::equalNoCase(word.view(), "remove") || ascii::equalNoCase(word.view(), "define");
}

}  // namespace

// declaration = Id Id ( ";" | ":" ), the type and the name; "remove" and "define" look like one
inline bool KvtParser::Statements::seeDeclaration(Text& text, Head& head) {
    head.type = head.node;
    return seeDeclared(text, head);
}

// After the type.
[[gnu::always_inline]] inline bool KvtParser::Statements::seeDeclared(Text& text, Head& head) {
    head.name = text.at();
    if (!text.takeName(head.node) || !text.passBlanks()) return false;
    head.nodeHash = head.node.hash();
    head.end = text.at();
    head.kind = text.isAt(':') ? Head::OpenBlock : Head::Declare;
    const bool isOther = head.kind == Head::Declare && isStatementWord(head.type);
    return !isOther && (text.take(':') || text.take(';'));
}

// --- As they were spelled before

[[gnu::always_inline]] inline const KvtParser::Statements::Head* KvtParser::Statements::nextHead(
    Text& text, Head& other) {
    if (const Head* const kept = keptHead(text, other)) return kept;
    Text behind = text;
    const Head* const seen = otherHead(behind, other);
    text = behind;
    return seen;
}

[[gnu::always_inline]] inline const KvtParser::Statements::Head* KvtParser::Statements::keptHead(
    Text& text, Head& other) {
    Spelling* const expected = last_->next;
    if (!expected || !text.isAt(*expected)) return nullptr;
    if (expected->head.isDeclaration()) {
        return text.moveTo(declaredAgain(text, *expected, other)) ? &other : nullptr;
    }
    text.pass(*expected);
    last_ = expected;
    return &expected->head;
}

// The type was kept, the name follows.
KvtParser::Statements::Text KvtParser::Statements::declaredAgain(Text text, Spelling& type,
                                                                 Head& other) {
    text.pass(type);
    other.type = type.head.type;
    if (!seeDeclared(text, other)) return {};
    last_ = &type;
    return text;
}

const KvtParser::Statements::Head* KvtParser::Statements::otherHead(Text& text, Head& other) {
    const char* const from = text.at();
    if (!text.passBlanks()) return nullptr;
    return text.isAt('#') ? headBehindComments(text, other) : learnHead(text, from, other);
}

// Where no head follows, all those comments are left to the rules, and are not looked at again.
const KvtParser::Statements::Head* KvtParser::Statements::headBehindComments(Text& text,
                                                                             Head& other) {
    const bool areSeen = seeComments(text);
    leftTo_ = text.at();
    if (!areSeen) return nullptr;
    const Head* const kept = keptHead(text, other);
    return kept ? kept : learnHead(text, text.at(), other);
}

const KvtParser::Statements::Head* KvtParser::Statements::learnHead(Text& text, const char* from,
                                                                    Head& other) {
    if (!seeHead(text, other)) return nullptr;
    if (!other.isDeclaration()) return learnTarget(text, from, other);
    learnDeclaration(from, other);
    return &other;
}

// Keeps the spelling of a target that will mean the same again: not of one that names a node.
const KvtParser::Statements::Head* KvtParser::Statements::learnTarget(Text& text, const char* from,
                                                                      Head& other) {
    if (!text.passBlanks()) return nullptr;
    if (!other.node.isEmpty()) other.nodeHash = other.node.hash();
    nameIn(*scene_, other);
    if (other.kind == Head::Assign) learnGroup(text, from, other);
    const auto length = static_cast<unsigned long>(text.at() - from);
    if (!other.node.isEmpty() || length > Spelling::longest) return &other;
    Spelling& learned = newSpelling();
    learned.head = other;
    follow(learned, from, length);
    return &learned.head;
}

// What a value in parentheses begins with is mostly the same too.
void KvtParser::Statements::learnGroup(Text& text, const char* from, Head& head) {
    Text behind = text;
    String name;
    head.group = behind.takeWord(name) ? seeGroup(behind, name) : AttrType::Null;
    const auto length = static_cast<unsigned long>(behind.at() - from);
    if (length > Spelling::longest) head.group = AttrType::Null;
    if (head.group != AttrType::Null) text = behind;
}

// The beginning, up to the name. What stood in the last block of the type is mostly what stands in
// this one, whatever the blocks between them.
void KvtParser::Statements::learnDeclaration(const char* from, const Head& head) {
    const auto length = static_cast<unsigned long>(head.name - from);
    if (length > Spelling::longest) {
        last_ = &spellings_[0];
        return;
    }
    Spelling*& block = blockOf(head.type);
    const bool isKnown = block && block->head.isDeclaration() && block->head.type == head.type;
    if (!isKnown) {
        block = &newSpelling();
        block->head.kind = Head::Declare;
        block->head.type = head.type;
    }
    follow(*block, from, length);
}

// It stands after the last one, spelled like that.
void KvtParser::Statements::follow(Spelling& spelling, const char* from, unsigned long length) {
    spelling.keep(from, length);
    last_->next = &spelling;
    last_ = &spelling;
}

KvtParser::Statements::Spelling*& KvtParser::Statements::blockOf(const String& type) {
    return blocks_[type.hash() % mostTypes];
}

void KvtParser::Statements::nameIn(Scene& scene, Head& head) {
    Names& names = scene.store_->pool.names();
    head.objectName = names.intern(head.object);
    head.inputName = names.intern(head.input);
}

// Comments in front of a head, up to the end of the last; none that says something of the file.
bool KvtParser::Statements::seeComments(Text& text) {
    for (;;) {
        const std::string_view comment = text.takeComment();
        const auto says = [&](const char* field) { return comment.find(field) != String::npos; };
        if (comment.empty() || says(versionField) || says(timeField)) return false;
        comments_.push_back(comment);
        Text behind = text;
        if (!behind.passBlanks()) return false;
        if (!behind.isAt('#')) return true;
        text = behind;
    }
}

// In the place of an old one where there are too many: whoever leads to that one finds another
// there, and one that is as true. The one in use stays.
KvtParser::Statements::Spelling& KvtParser::Statements::newSpelling() {
    do
        used_ = used_ % (mostSpellings - 1) + 1;
    while (&spellings_[used_] == last_);
    return spellings_[used_];
}

// === Values =====================================================================================

// value = ( scalar | Id | Id "." Id ) ";", the last after "|=" only
[[gnu::always_inline]] inline bool KvtParser::Statements::seeValue(Text& text, const Head& head,
                                                                   Value& value) {
    if (!text.passBlanks()) return false;
    const bool isSeen =
        head.kind == Head::Refer ? seeOutput(text, value) : seeScalar(text, head, value);
    if (!isSeen || !text.passBlanks()) return false;
    value.end = text.at();
    return text.take(';');
}

[[gnu::always_inline]] inline bool KvtParser::Statements::seeOutput(Text& text, Value& value) {
    value.data.type = AttrType::Null;
    return text.takeName(value.node) && text.take('.') &&
           (text.takeAgain(value.output) || text.takeName(value.output));
}

// scalar = number | string | "true" | "false" | Id | group numbers ")"
[[gnu::always_inline]] inline bool KvtParser::Statements::seeScalar(Text& text, const Head& head,
                                                                    Value& value) {
    value.data.type = head.group;
    if (head.group != AttrType::Null) return text.takeComponents(value.data);
    if (text.isAtNumber()) return text.takeNumber(value.data);
    if (text.isAt('"')) {
        value.data.type = AttrType::String;
        return text.takeString(value.text);
    }
    if (!text.takeWord(value.node)) return false;
    if (const ReservedWord* const reserved = findReserved(value.node)) {
        value.data.setBool(reserved->type == Token::True);
        return reserved->type != Token::Null;
    }
    if (!text.isAt('(')) return true;
    value.data.type = seeGroup(text, value.node);
    return value.data.type != AttrType::Null && text.takeComponents(value.data);
}

// group = Id "(", the name of a type of values in parentheses
inline AttrType KvtParser::Statements::seeGroup(Text& text, const String& name) {
    return text.take('(') ? mathTypeNamed(name) : AttrType::Null;
}

// === Carrying out ===============================================================================

// What other scenes do when they are asked is their own affair, and their programs may look.
KvtParser::Statements::Statements(KvtParser& parser)
    : parser_(parser), scene_(isWholeWanted ? parser.plainScene() : nullptr) {}

KvtParser::Statements::~Statements() = default;

// Only where there is something to read; it is used for the whole document.
void KvtParser::Statements::makeRoom() {
    spellings_ = std::make_unique<Spelling[]>(mostSpellings);
    others_ = std::make_unique<Head[]>(2);
    value_ = std::make_unique<Value>();
}

void KvtParser::Statements::read() {
    const Lexer& lexer = *parser_.lexer_;
    const Lexer::Place& begin = parser_.begins_[parser_.head_];
    if (!scene_ || lexer.place() != parser_.reached_ || !lexer.isAtHand(begin)) return;
    if (begin.run != leftRun_) leftTo_ = nullptr;
    leftRun_ = begin.run;
    const Text text(begin.next - 1, lexer.end_);
    if ((leftTo_ && begin.next <= leftTo_) || text.isNearEnd()) return;
    if (!spellings_) makeRoom();
    readFrom(begin, text);
}

void KvtParser::Statements::readFrom(Lexer::Place begin, Text text) {
    done_ = {};
    comments_.clear();
    last_ = &spellings_[0];
    try {
        carryOutAll(text);
        if (done_.empty()) return;
        parser_.lexer_->moveOn(begin, done_.data());
        for (unsigned i = 0; i <= lookahead; ++i)
            parser_.advance();
    } catch (...) {
        if (!done_.empty()) leaveBehind(begin);
        throw;
    }
}

// Nothing that was carried out is read again, whoever goes on with the lexer or the parser.
void KvtParser::Statements::leaveBehind(const Lexer::Place& begin) {
    parser_.lexer_->moveOn(begin, done_.data() + done_.size());
    for (Token& t : parser_.ring_)
        t = Token();
}

void KvtParser::Statements::carryOutAll(Text text) {
    const Head* head = nullptr;
    for (unsigned turn = 0;; turn ^= 1U) {
        const Head* const next = nextHead(text, others_[turn]);
        if (!next) return;
        if (next->isDeclaration()) Ahead::place(*scene_, next->nodeHash);
        if (head && !carryOut(*head)) return;
        head = next;
        if (!comments_.isEmpty()) pushComments();
        if (!head->isDeclaration() && !seeValue(text, *head, *value_)) return;
    }
}

[[gnu::always_inline]] inline bool KvtParser::Statements::carryOut(const Head& head) {
    const bool isDone = head.isDeclaration() ? declare(head) : assign(head, *value_);
    if (isDone) done_ = {head.isDeclaration() ? head.end : value_->end, 1};
    return isDone;
}

void KvtParser::Statements::pushComments() {
    for (const std::string_view comment : comments_) {
        scene_->pushFileComment(String(comment));
        done_ = comment;
    }
    comments_.clear();
}

inline bool KvtParser::Statements::declare(const Head& head) {
    Node* const node = scene_->findOrCreateNode(head.type, head.node, head.nodeHash);
    if (head.kind == Head::OpenBlock) parser_.withNode_ = node;
    return true;
}

inline bool KvtParser::Statements::assign(const Head& head, Value& value) {
    Node* const node = head.node.isEmpty() ? parser_.withNode_
                                           : scene_->store_->nodes.find(head.node, head.nodeHash);
    if (!node) return false;
    if (value.data.type == AttrType::Null) return wait(head, *node, value);
    if (value.data.type == AttrType::String) return storeText(head, *node, value);
    return storePlain(head, *node, value.data);
}

namespace {

std::uint32_t elementTypeOf(AttrType type) { return static_cast<std::uint32_t>(type); }

}  // namespace

// Whether older documents say one of those names for another.
bool KvtParser::Statements::isRenamed(const Head& head, const Node& node) {
    const auto isOld = [&node](const String& name) {
        return updateInputName(node.type(), name) != name;
    };
    return isOld(head.object) || isOld(head.input) || isOld(head.element);
}

// The target, if there is one or can be. An object or array that is made for it stays: the rules
// would make it too before they find that it cannot hold the target.
[[gnu::always_inline]] inline FoundInput KvtParser::Statements::reach(const Head& head, Node& node,
                                                                      const NewInput& input) const {
    const bool isOfNode = head.objectName == 0 && head.element.isEmpty();
    if (!isOfNode || renames::any()) return reachFar(head, node, input);
    return node.findOrCreate(input);
}

FoundInput KvtParser::Statements::reachFar(const Head& head, Node& node,
                                           const NewInput& input) const {
    if (renames::any() && isRenamed(head, node)) return {};
    if (head.element.isEmpty()) return reachInput(head, node, input);
    const NewInput array = {input.name, AttrType::Array, elementTypeOf(input.type)};
    const FoundInput found = reachInput(head, node, array);
    return found.input ? reachElement(head, *found.input, input.type) : found;
}

FoundInput KvtParser::Statements::reachInput(const Head& head, Node& node, const NewInput& wanted) {
    if (head.objectName == 0) return node.findOrCreate(wanted);
    Input* const object = node.findOrCreate({head.objectName, AttrType::Object}).input;
    return object->isObject() ? object->findOrCreate(wanted) : FoundInput();
}

// An element that is there, or the one after the last.
FoundInput KvtParser::Statements::reachElement(const Head& head, Input& array,
                                               AttrType type) const {
    const bool canHold = array.isArray() && (type == AttrType::Null || array.arrayType() == type);
    if (!canHold) return {};
    const unsigned long count = array.inputCount();
    const unsigned long index = head.element[1] == '*' ? count : head.index;
    const bool isFull = scene_->elementCount() >= scene_->elementLimit();
    if (index > count || (index == count && isFull)) return {};
    array.growTo(index);
    return {array.inputAt(index), false};
}

// An input that is made gets the value at once.
inline bool KvtParser::Statements::storePlain(const Head& head, Node& node, const AttrData& data) {
    const NewInput input = {head.inputName, data.type, 0, 0, data.value};
    const FoundInput target = reach(head, node, input);
    return target.isNew ? target.input != nullptr : store(target, data);
}

// Only a value of the target's own type: all others are fitted by the rules.
inline bool KvtParser::Statements::store(const FoundInput& target, const AttrData& data) {
    return target.input && target.input->type() == data.type && target.input->assign(data);
}

// Only what no list of values has anything to say of.
inline bool KvtParser::Statements::storeText(const Head& head, Node& node, Value& value) {
    const std::string_view text = value.text.substr(0, value.text.find('\0'));
    if (text.size() > longestInPlace) return storeLongText(head, node, text);
    const unsigned long room = (text.size() + words::size) / words::size * words::size;
    const FoundInput target = reach(head, node, {head.inputName, AttrType::String, 0, room});
    if (mayBeListed(head, node, target)) return false;
    if (!target.input || target.input->type() != AttrType::String) return false;
    target.input->assignText(text);
    return true;
}

// Where there may be no memory for the text, the input must not be made first.
bool KvtParser::Statements::storeLongText(const Head& head, Node& node, std::string_view text) {
    AttrData data = AttrData::ofText(text);
    const PayloadGuard guard(*scene_, data);
    const FoundInput target = reach(head, node, {head.inputName, AttrType::String});
    if (mayBeListed(head, node, target) || !store(target, data)) return false;
    data.clear();
    return true;
}

bool KvtParser::Statements::mayBeListed(const Head& head, const Node& node,
                                        const FoundInput& target) {
    const bool isOfNode = head.object.isEmpty() && head.element.isEmpty();
    return isOfNode && !target.isNew && node.nodeType();
}

// Only parsers that nobody looks into.
inline bool KvtParser::Statements::wait(const Head& head, Node& node, const Value& value) {
    if (parser_.pending_ == Pending::Records) return false;
    const FoundInput target = reach(head, node, {head.inputName, AttrType::Null});
    if (!target.input) return false;
    if (head.kind == Head::Refer) {
        parser_.outputsToConnect_->add(target.input, target.isNew, value.node, value.output);
    } else {
        parser_.nodesToSet_->add(target.input, target.isNew, value.node);
    }
    return true;
}

}  // namespace ko::mirel_sdk::impl
