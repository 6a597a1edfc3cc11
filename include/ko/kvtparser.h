// The reader of KVT documents: `parseKvt` reads a file and `parseString` a text into a scene.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include <ko/ds.h>
#include <ko/foundation.h>
#include <ko/math.h>
#include <ko/scene.h>
#include <ko/types.h>

#pragma GCC visibility push(default)

namespace ko::chars {
enum Class : unsigned char;
}

namespace ko {
struct Said;
}

namespace ko::mirel_sdk::impl {

// One lexical token.
struct Token {
    // The codes are fixed; the gaps are reserved and never produced.
    enum Type : std::int32_t {
        Eof = 0,
        Invalid = 1,
        Id = 2,
        Integer = 3,
        Real = 4,
        Comment = 5,
        Braces = 6,
        Parens = 7,
        Brackets = 8,
        StringLiteral = 9,
        Dot = 15,
        Comma = 16,
        Colon = 17,
        Semicolon = 18,
        Quote = 19,
        Slash = 21,
        Backslash = 22,
        Equals = 29,
        Plus = 30,
        Star = 32,
        Pipe = 33,
        True = 35,
        False = 36,
        Null = 37,
    };

    Type type = Eof;
    // As it stood in the input, the canonical spelling of a keyword, the normalised text of a
    // group, or a finished message.
    String text;
    std::int32_t line = 0;
    std::int32_t column = 0;
};

// Turns characters into tokens, one character of lookahead ahead of itself. Never throws for bad
// text: problems are `Invalid` tokens and `Eof` tokens with a message.
//
// Characters can be consumed one by one; the scanners take the runs that a source has at hand. What
// a source throws reaches whoever asked for a token, and the lexer is at the end of its input then.
class Lexer {
  public:
    virtual ~Lexer() = default;
    // Moves on by one character and returns it; -1 at the end of the input and from then on.
    virtual signed char consume() = 0;

    Token nextToken();
    // The scanners behind `nextToken`; each begins at the lookahead.
    Token id();
    Token number();
    Token parens();
    Token braces();

    // A token of the next character, at the position of the one before it.
    Token token(Token::Type type);
    // A token at the position of the character consumed last; consumes nothing.
    Token token(Token::Type type, String text) const;
    Token token(Token::Type type, const ds::Vector<char>& chars) const;
    // `what` is "PAREN", "BRACE" or "BRACKET".
    Token invalidListToken(const String& what) const;
    // `what` is "PARENS", "BRACES", "BRACKETS", "STRING", "ID" or "NUMBER".
    Token unexpectedEof(const String& what) const;

    signed char c = 0;        // consumed last; 0 before the first
    signed char la = 0;       // the next one; -1 at the end of the input; the source sets it
    std::int32_t pos = 0;     // index of `la`; this and the next two stop at 2^31 - 1
    std::int32_t line = 1;    // of `c`
    std::int32_t column = 0;  // of `c`, from 1; 0 before the first

  protected:
    // Takes `la` as the current character; the source then brings the next one.
    void advance() noexcept;

    // For a source that has its characters at hand in runs: the first run, whose first character
    // becomes the lookahead; the next one, valid until it is asked again and empty at the end; and
    // what `consume` does for such a source.
    void start(std::string_view run);
    virtual std::string_view nextRun() { return {}; }
    signed char step();
    // The run now stands at `to` instead of `from`.
    void moveRun(const char* from, const char* to);
    // Leaves the run, but for the lookahead, and tells how many characters after that it has.
    unsigned long leaveRun() noexcept;

  private:
    friend class KvtParser;

    // The next character, from the run if there is one.
    signed char one() { return next_ ? step() : consumeOne(); }
    signed char consumeOne();
    // The lookahead and what is at hand after it; not at the end of the input.
    std::string_view ahead() const;
    // Consumes that many characters of `ahead()`, at least one; no line break among them, or any.
    inline void skipInLine(unsigned long count);
    void skip(unsigned long count);
    inline void moveTo(const char* to, unsigned long count);
    inline void fetch();
    void fetchRun();
    void enterRun(const char* end);

    // Where a lexer with runs stands, to go on from there while it is in that run.
    struct Place {
        const char* next = nullptr;
        unsigned long run = 0;
        std::int32_t pos = 0;
        std::int32_t line = 0;
        std::int32_t column = 0;
        signed char c = 0;

        bool operator!=(const Place& other) const {
            return next != other.next || run != other.run || pos != other.pos ||
                   line != other.line || column != other.column || c != other.c;
        }
    };
    Place place() const;
    bool isAtHand(const Place& place) const;
    void moveOn(const Place& from, const char* to);

    void skipBlanks();
    unsigned take(chars::Class belonging, String& text);
    String takeAcross(chars::Class belonging);

    // As `nextToken`, in the place of another one.
    void read(Token& t);
    void readSign(Token::Type type, Token& t);
    void readId(Token& t);
    void readNumber(Token& t);
    inline void finish(Token::Type type, Token& t) const;
    Token comment();
    Token string();
    Token stringAcross();
    Token brackets();
    Token group(Token::Type type);  // Parens or Braces
    static Token kept(Token t);

    const char* next_ = nullptr;  // after the lookahead; null for a source without runs
    const char* run_ = nullptr;   // where the run begins that it stands in
    const char* end_ = nullptr;   // and where it ends
    unsigned long runs_ = 0;      // so far
};

// Reads a file, in blocks that it borrows: whoever else reads the file, meanwhile or later, goes on
// after the lookahead.
class FileLexer final : public Lexer {
  public:
    explicit FileLexer(File file);
    FileLexer(const FileLexer&) = delete;
    FileLexer& operator=(const FileLexer&) = delete;
    ~FileLexer() override { file_.takeBack(); }
    signed char consume() override { return step(); }

  private:
    std::string_view nextRun() override;

    File file_;
};

// Reads a text.
class StringLexer final : public Lexer {
  public:
    explicit StringLexer(String text);
    StringLexer(const StringLexer& other);
    StringLexer& operator=(const StringLexer& other);
    ~StringLexer() override = default;
    signed char consume() override { return step(); }

  private:
    String text_;
};

// Reads one document into a scene: recursive descent over a ring of three lookahead tokens. The
// entry points make one per document; the single operations are there to be driven one by one.
class KvtParser {
  public:
    // One assignment statement. Copies share the payload of `data`.
    struct AssignInfo {
        ds::Vector<Token> path;     // the target
        ds::Vector<Token> refPath;  // the referenced output
        Token token0;               // the value, as messages show it
        Token token1;               // a buffer's count
        Token token2;               // a buffer's data
        Token token3;               // the group of a math value
        Token token4;               // an identifier value
        bool gotScalar = false;
        bool gotBuffer = false;
        bool gotReference = false;
        bool gotIdentifier = false;
        AttrData data;

        // As just made, but with the memory that its paths have.
        void clear();
        // The value for messages: at most so many characters and "...", "[]" after a buffer's
        // type.
        static constexpr unsigned long longestShown = 20;
        String valueString() const;
    };

    KvtParser();
    KvtParser(const KvtParser&) = delete;
    KvtParser& operator=(const KvtParser&) = delete;
    ~KvtParser();

    // Reads the document. True when it was read to its end; after an error, which is logged, what
    // the scene was given stays. Throws std::runtime_error for an `Invalid` token among the first
    // three. A std::runtime_error that the lexer's source, the scene or a log sink throws after
    // those ends the document like an error, with its text; the sink's at that last message, and
    // anything else that they throw, reaches the caller. The scene can be used as before.
    bool parse(interfaces::IScene* scene, Lexer* lexer);
    // The first step of `parse`: takes scene and lexer (both stay the caller's) and fills the ring
    // anew.
    void prime(interfaces::IScene* scene, Lexer* lexer);

    // Lookahead. `i` runs from 1 to 3; before `prime` there is none.
    Token::Type la(int i) const { return peek(i).type; }
    Token lt(int i) const { return peek(i); }
    // Takes the next token. Throws when an `Invalid` one enters the ring after it.
    Token consume();
    // Takes the next token into `t` if it has `type`.
    bool match(Token& t, Token::Type type);

    // Statements: each takes one and returns true, or takes nothing and returns false;
    // `parseAssign` leaves a path taken when neither a reference nor a value follows. They need a
    // scene.
    bool parseComment();
    bool parseRemove();
    bool parseDefine();
    bool parseDeclare();
    bool parseWith();
    bool parseAssign();
    // Parts of an assignment, likewise. The payload that they leave in `info.data` is the caller's
    // to hand on.
    bool path(ds::Vector<Token>& tokens);
    bool connect(AssignInfo& info);
    bool value(AssignInfo& info);
    bool scalar(AssignInfo& info);  // false also for a literal that it takes but cannot convert
    bool buffer(AssignInfo& info);
    // Converts `text` to one number of the scalar type `type` at `dest`, of any alignment.
    bool parseElem(const String& text, DataType type, unsigned char* dest);
    // The texts of the tokens, put together.
    static String collapse(const ds::Vector<Token>& tokens);

    // The end of the document: connects what assignments referred to, sets the nodes they named.
    void resolveConnections();
    void resolveIdentifiers();

    // Diagnostics. Those that do not return throw std::runtime_error with the finished message.
    [[noreturn]] void tokenError(const Token& t);
    [[noreturn]] void tokenError(const String& expected, const Token& found);
    [[noreturn, gnu::format(printf, 3, 0)]] void internalError(const String& kind, const char* fmt,
                                                               va_list args);
    [[noreturn, gnu::format(printf, 2, 3)]] void bufferError(const char* fmt, ...);
    [[noreturn, gnu::format(printf, 2, 3)]] void parseError(const char* fmt, ...);
    [[noreturn]] void typeError(const String& value, interfaces::IInput* input, bool array);
    // Logs a warning.
    void narrowTypeWarning(const String& value, interfaces::IInput* input);
    // Logs an error; the document goes on.
    void wrongTypeWarning(const String& value, interfaces::IInput* input);

    // The token taken last, whose position the messages carry.
    const Token& lastToken() const { return peek(0); }
    // The node that relative paths begin at, or null.
    Node* withNode() const { return withNode_; }
    const ds::Vector<Node*>& definedNodes() const { return definedNodes_; }

  private:
    class [[gnu::visibility("hidden")]] Statements;
    struct Walk;
    // What a step should lead to.
    struct Expected {
        AttrType type;
        AttrType elementType = AttrType::Null;
    };
    using Records = ds::HashMap<interfaces::IInput*, AssignInfo>;

    // What is kept of an assignment until it is resolved: its record, or only the names in it,
    // which is enough where nobody can look at the maps, and takes far less memory.
    enum class Pending { Records, Names };
    explicit KvtParser(Pending pending);
    friend bool parseString(interfaces::IScene* scene, String text);
    friend bool parseKvt(interfaces::IScene* scene, File file, bool keepHeader);

    // A reference to an output. One that is not of two names stands in `node` as it was written.
    struct OutputName {
        OutputName(const String& nodeName, const String& outputName)
            : node(nodeName), output(outputName) {}
        explicit OutputName(const ds::Vector<Token>& path);
        StringVector parts() const;
        bool isNull() const;
        // Whether `node` is the name of a node.
        bool isOfNode() const { return !output.isEmpty(); }

        String node;
        String output;
    };
    // A node, or none.
    struct NodeName {
        explicit NodeName(const String& name) : node(name) {}
        explicit NodeName(const Token& reference);
        bool isNull() const { return node.isEmpty(); }
        bool isOfNode() const { return !isNull(); }

        String node;
    };

    // What waits for the end of the document, in its order: inputs, each with what it refers to.
    template <class Name>
    struct Waiting {
        template <class... Names>
        explicit Waiting(interfaces::IInput* target, const Names&... names)
            : input(target), refersTo(names...) {}

        interfaces::IInput* input;  // null where another assignment to it came later
        Name refersTo;
    };
    template <class Name>
    class WaitingList;

    class Reading;
    void hold(Scene& scene);
    Node* given(Node* node);
    Node* findNode(const String& name);
    Scene* plainScene() const;

    // The i-th unread token in place; with 0, the one taken last.
    const Token& peek(int i) const {
        return ring_[(head_ + static_cast<unsigned>(i) - 1) % ringSize];
    }
    // As `consume` and `match`, for tokens that nobody keeps.
    void advance();
    inline bool skip(Token::Type type);
    inline void take(ds::Vector<Token>& tokens, int count);
    [[noreturn]] void refuse(Token& next);
    bool statement();
    void dropPending() noexcept;
    bool isNamed(const char* keyword, Token::Type end) const;
    String takeName();

    // Values.
    void identifier(AssignInfo& info);
    bool mathValue(AssignInfo& info);
    unsigned long bufferBytesLeft() const;
    void allocateBuffer(AssignInfo& info, DataType type);
    void readCompactBytes(AssignInfo& info);
    void readComponents(AssignInfo& info);

    String framed(const char* kind, const String& detail) const;
    String shown(const Said& said) const;
    [[noreturn]] void fail(const Said& said) const;
    void tell(const Said& said) const;

    // An assignment in two steps: its statement is read, then carried out.
    void assign(AssignInfo& info);
    inline void carryOut(const Walk& walk, AssignInfo& info);
    [[noreturn]] void inputNotFound(const AssignInfo& info, const Node& node);
    Node& assignedNode(const AssignInfo& info);
    Input* reachTarget(Walk& walk);
    static Expected expectedAt(const Walk& walk, unsigned long i);
    Input* takeStep(Walk& walk, unsigned long i);
    Input* takeIndexStep(Input& array, const String& name, const Token& token, AttrType expected);
    void checkIntermediate(Input& input, const Expected& expected);
    void keepRecord(Records& pending, const Walk& walk, const AssignInfo& info);
    inline void storeValue(Input& target, Input* parent, AssignInfo& info);
    bool fit(AssignInfo& info, Input& target);
    void checkEnumeration(const Input& target);
    template <class Name>
    using Batch = ds::Vector<const Waiting<Name>*>;
    using Outputs = WaitingList<OutputName>;
    using Nodes = WaitingList<NodeName>;
    Outputs takeOutputs();
    Nodes takeNodes();
    void resolve();
    bool connectAll(const Outputs& waiting);
    bool connectWhatIsThere(const Batch<OutputName>& batch);
    void tellUnconnected(const Outputs& waiting);
    void warnUnconnected(interfaces::IInput& input, const OutputName& name);
    Node* nodeOf(const OutputName& name);
    static Output* outputOf(Node& node, const OutputName& name);
    bool setAll(const Nodes& waiting);
    void tellUnset(const Nodes& waiting);
    bool setWhatIsThere(const Batch<NodeName>& batch);
    Node* nodeOf(const NodeName& name);
    template <class Name>
    void findNodes(const Batch<Name>& batch, Node** nodes);

    Lexer* lexer_ = nullptr;
    static constexpr unsigned lookahead = 3;
    static constexpr unsigned ringSize = lookahead + 1;

    // The unread tokens from `head_` on and, before it, the one taken last; and where the lexer
    // stood before each.
    Token ring_[ringSize];
    Lexer::Place begins_[ringSize];
    Lexer::Place reached_;  // after the last token
    unsigned head_ = 0;
    interfaces::IScene* scene_ = nullptr;
    bool isReading_ = false;
    ds::Vector<Scene*> heldScenes_;  // while a document is read: those whose nodes are known
    Node* withNode_ = nullptr;
    unsigned long bufferBytes_ = 0;  // that buffers have asked for so far
    ds::Vector<Node*> definedNodes_;

    // What an assignment is read into, one after the other.
    AssignInfo assignment_;
    const Pending pending_ = Pending::Records;
    const std::unique_ptr<Outputs> outputsToConnect_;
    const std::unique_ptr<Nodes> nodesToSet_;
    // Keep the inputs of the records alive, one reference each: whoever drives the parser may
    // purge removed nodes meanwhile. What a document does destroys no input.
    ds::Vector<RefersTo<interfaces::IInput>> held_;

  public:
    // Assignments that wait for the end of the document, by target: to be connected to an output,
    // to be given a node. The last assignment to an input wins.
    ds::HashMap<interfaces::IInput*, AssignInfo> pendingConnections;
    ds::HashMap<interfaces::IInput*, AssignInfo> pendingIdentifiers;
};

// Reads `text` into `scene`, which keeps its header. True when the document was read to its end,
// false after an error, which is logged. Throws std::runtime_error when one of the first three
// tokens is invalid, std::bad_alloc, and what scene and log sinks throw, as `KvtParser::parse` has
// it; the scene stays usable.
bool parseString(interfaces::IScene* scene, String text);

// Reads `file` into `scene`, likewise. Unless `keepHeader`, the scene's comments, version and time
// are reset first. A read error counts as the end of the file: ask `File::error()`.
bool parseKvt(interfaces::IScene* scene, File file, bool keepHeader);

}  // namespace ko::mirel_sdk::impl

#pragma GCC visibility pop
