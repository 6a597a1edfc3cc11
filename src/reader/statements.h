// The fast way to read a document: whole statements, where they stand in the run.
#pragma once

#include <memory>
#include <string_view>

#include <ko/kvtparser.h>

namespace ko::mirel_sdk::impl {

// Whether documents are read that way, as they are unless a test says otherwise. Not while any
// document is read.
void readStatementsWhole(bool isWanted) noexcept;

// Reads the statements that most of a document is made of, without tokens, places or messages:
//
//     type name ;           type name :
//     [ node ] . input = value ;            value = number | string | bool | name | type ( numbers
//     ) [ node ] . object . input = value ; [ node ] . input |= node . output ;
//
// All else, and whatever would be told about these, is left to the rules of the parser: it leaves
// at the first statement that it does not take, of which nothing has been carried out, and the
// rules read that one from its beginning. So nothing is said twice, and each step here may refuse
// what is rare.
//
// A statement is carried out once the beginning of the next one has been seen. That is three tokens
// at least, as many as the parser looks ahead, so that one that is invalid ends the document before
// the statement in front of it, here as there.
class KvtParser::Statements {
  public:
    // Takes none for a scene other than `Scene` itself.
    explicit Statements(KvtParser& parser);
    Statements(const Statements&) = delete;
    Statements& operator=(const Statements&) = delete;
    ~Statements();

    // Reads and carries out what it takes, from the first unread token on. The parser then stands
    // as if the rules had read it.
    void read();

  private:
    class Text;
    struct Head;
    struct Value;
    struct Spelling;

    void makeRoom();
    void readFrom(Lexer::Place begin, Text text);
    void leaveBehind(const Lexer::Place& begin);
    void carryOutAll(Text text);
    void pushComments();

    // The next head: one that is kept, or `other`; null where none is seen.
    const Head* nextHead(Text& text, Head& other);
    const Head* keptHead(Text& text, Head& other);
    Text declaredAgain(Text text, Spelling& type, Head& other);
    const Head* otherHead(Text& text, Head& other);
    const Head* headBehindComments(Text& text, Head& other);
    const Head* learnHead(Text& text, const char* from, Head& other);
    const Head* learnTarget(Text& text, const char* from, Head& other);
    static void learnGroup(Text& text, const char* from, Head& head);
    void learnDeclaration(const char* from, const Head& head);
    void follow(Spelling& spelling, const char* from, unsigned long length);
    Spelling*& blockOf(const String& type);
    static void nameIn(Scene& scene, Head& head);
    bool seeComments(Text& text);
    Spelling& newSpelling();

    static bool seeHead(Text& text, Head& head);
    static bool seeTarget(Text& text, Head& head);
    static bool seeDeclaration(Text& text, Head& head);
    static bool seeDeclared(Text& text, Head& head);
    static bool seeValue(Text& text, const Head& head, Value& value);
    static bool seeOutput(Text& text, Value& value);
    static bool seeScalar(Text& text, const Head& head, Value& value);
    static AttrType seeGroup(Text& text, const String& name);

    bool carryOut(const Head& head);
    // Each carries the statement out, or returns false and nothing has been done.
    bool declare(const Head& head);
    bool assign(const Head& head, Value& value);
    bool storePlain(const Head& head, Node& node, const AttrData& data);
    static bool store(const FoundInput& target, const AttrData& data);
    bool storeText(const Head& head, Node& node, Value& value);
    bool storeLongText(const Head& head, Node& node, std::string_view text);
    static bool mayBeListed(const Head& head, const Node& node, const FoundInput& target);
    bool wait(const Head& head, Node& node, const Value& value);
    static bool isRenamed(const Head& head, const Node& node);
    FoundInput reach(const Head& head, Node& node, const NewInput& input) const;
    FoundInput reachFar(const Head& head, Node& node, const NewInput& input) const;
    static FoundInput reachInput(const Head& head, Node& node, const NewInput& wanted);
    FoundInput reachElement(const Head& head, Input& array, AttrType type) const;

    KvtParser& parser_;
    Scene* const scene_;
    // The last token of what was carried out; none before the first.
    std::string_view done_;
    // Up to where, in which run, the rules are to read because no head stood after comments.
    const char* leftTo_ = nullptr;
    unsigned long leftRun_ = 0;

    // What is seen of the statement at hand and of the one after it, if no spelling tells; and the
    // comments between them.
    std::unique_ptr<Head[]> others_;
    std::unique_ptr<Value> value_;
    ds::Vector<std::string_view> comments_;

    // Texts up to that length stand after their inputs.
    static constexpr unsigned long longestInPlace = 63;
    static constexpr unsigned long mostSpellings = 128;
    // The first leads to what stands first in the text, that of a declaration to what stands first
    // in its block.
    std::unique_ptr<Spelling[]> spellings_;
    // Those of declarations, by type; some lead to what has been replaced.
    static constexpr unsigned mostTypes = 32;
    Spelling* blocks_[mostTypes] = {};
    unsigned long used_ = 0;
    Spelling* last_ = nullptr;  // that of the head seen last
};

}  // namespace ko::mirel_sdk::impl
