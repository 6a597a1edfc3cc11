#include "plainscanner.h"

namespace kvt::test {

using ko::String;

namespace {

// --- Classes of characters

bool isOneOf(int c, std::string_view set) {
    return c >= 0 && set.find(static_cast<char>(c)) != std::string_view::npos;
}

bool isDigit(int c) { return isOneOf(c, "0123456789"); }
bool isHexDigit(int c) { return isOneOf(c, "0123456789abcdefABCDEF"); }
// Every byte beyond ASCII but the one that stands for the end.
bool isBeyondAscii(int c) { return c < -1; }
bool isLetter(int c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isBeyondAscii(c);
}
bool isPrintable(int c) { return (c >= 32 && c <= 126) || isBeyondAscii(c); }
bool isBlank(int c) { return isOneOf(c, " \t\n\v\f\r") || (c != -1 && !isPrintable(c)); }

bool isInWord(int c) { return isLetter(c) || isDigit(c) || c == '_'; }
bool isInNumber(int c) { return isHexDigit(c) || isOneOf(c, "+-.IiNnUu"); }
bool isInBrackets(int c) { return isOneOf(c, "[]*") || isDigit(c) || isBlank(c); }
bool isInGroup(int c) { return isHexDigit(c) || isOneOf(c, "+,-.()[]{}INUinu") || isBlank(c); }

bool isKeyword(const std::string& word, std::string_view keyword) {
    std::string lower;
    for (const char c : word)
        lower += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return lower == keyword;
}

}  // namespace

// --- Characters

PlainScanner::PlainScanner(std::string_view text) : text_(text), ahead_(characterAt(0)) {}

int PlainScanner::characterAt(unsigned long place) const {
    return place < text_.size() ? static_cast<signed char>(text_[place]) : endOfText;
}

bool PlainScanner::isBlankAhead() const { return isBlank(ahead_); }

void PlainScanner::skip() {
    if (current_ == '\n') {
        ++line_;
        column_ = 1;
    } else {
        ++column_;
    }
    current_ = ahead_;
    ++place_;
    ahead_ = characterAt(place_);
}

char PlainScanner::take() {
    skip();
    return static_cast<char>(current_);
}

// --- Tokens

PlainScanner::Token PlainScanner::make(Token::Type type, std::string_view text) const {
    return {type, String(text), line_, column_};
}

PlainScanner::Token PlainScanner::invalid(const std::string& what) const {
    return make(Token::Invalid, "INVALID " + what + "TOKEN (" + std::to_string(line_) + ',' +
                                    std::to_string(column_) + "): '" + static_cast<char>(ahead_) +
                                    '\'');
}

PlainScanner::Token PlainScanner::unexpectedEnd(const std::string& what) const {
    return make(Token::Eof, "UNEXPECTED EOF while parsing " + what);
}

struct PlainScanner::GroupRules {
    char open, close;
    std::string_view separators;
    Token::Type type;
    const char* refused;
    const char* unfinished;
};

PlainScanner::Token PlainScanner::next() {
    static constexpr GroupRules parens = {'(',           ')',           ",[]{}",
                                          Token::Parens, "PAREN LIST ", "PARENS"};
    static constexpr GroupRules braces = {'{',           '}',           ",()[]",
                                          Token::Braces, "BRACE LIST ", "BRACES"};
    while (isBlankAhead())
        skip();
    switch (ahead_) {
        case endOfText: return make(Token::Eof, "EOF");
        case '"': return string();
        case '#': return comment();
        case '[': return brackets();
        case '(': return group(parens);
        case '{': return group(braces);
        case '\'': return punctuation(Token::Quote);
        case '*': return punctuation(Token::Star);
        case '+': return punctuation(Token::Plus);
        case ',': return punctuation(Token::Comma);
        case '.': return punctuation(Token::Dot);
        case '/': return punctuation(Token::Slash);
        case ':': return punctuation(Token::Colon);
        case ';': return punctuation(Token::Semicolon);
        case '=': return punctuation(Token::Equals);
        case '\\': return punctuation(Token::Backslash);
        case '|': return punctuation(Token::Pipe);
        default: break;
    }
    if (isLetter(ahead_) || ahead_ == '_') return word();
    if (isDigit(ahead_) || ahead_ == '-') return number();
    return invalid("");
}

// Stands where the character before it stood.
PlainScanner::Token PlainScanner::punctuation(Token::Type type) {
    Token token = make(type, "");
    token.text = String(std::string_view(std::string(1, take())));
    return token;
}

PlainScanner::Token PlainScanner::comment() {
    std::string text;
    while (ahead_ != '\n' && ahead_ != '\r' && !isAtEnd())
        text += take();
    return make(Token::Comment, text);
}

// A backslash takes a quote or backslash after it along, whatever else it stands before.
PlainScanner::Token PlainScanner::string() {
    std::string text(1, take());
    while (true) {
        if (current_ == '\\' && (ahead_ == '"' || ahead_ == '\\')) text += take();
        if (ahead_ == '"') break;
        if (isAtEnd()) return unexpectedEnd("STRING");
        text += take();
    }
    text += take();
    return make(Token::StringLiteral, text);
}

PlainScanner::Token PlainScanner::brackets() {
    std::string text;
    do {
        if (isAtEnd()) return unexpectedEnd("BRACKETS");
        if (!isInBrackets(ahead_)) return invalid("BRACKET LIST ");
        text += take();
    } while (ahead_ != ']');
    text += take();
    return make(Token::Brackets, text);
}

// Keeps the outermost delimiters only; what separates numbers becomes one blank.
PlainScanner::Token PlainScanner::group(const GroupRules& rules) {
    std::string text;
    int depth = 0;
    do {
        if (isAtEnd()) return unexpectedEnd(rules.unfinished);
        if (!isInGroup(ahead_)) return invalid(rules.refused);
        takeInGroup(rules, text, depth);
    } while (depth > 0 || ahead_ != rules.close);
    text += take();
    return make(rules.type, text);
}

void PlainScanner::takeInGroup(const GroupRules& rules, std::string& text, int& depth) {
    if (ahead_ == rules.open && !text.empty()) {
        ++depth;
        skip();
    } else if (ahead_ == rules.close && depth > 0) {
        --depth;
        skip();
    } else if (isBlankAhead() || isOneOf(ahead_, rules.separators)) {
        takeGap(rules, text);
    } else {
        text += take();
    }
}

void PlainScanner::takeGap(const GroupRules& rules, std::string& text) {
    if (isBlankAhead()) {
        while (isBlankAhead())
            skip();
    } else {
        skip();
    }
    const bool isFirst = text.back() == rules.open;
    if (!isBlank(text.back()) && !isFirst && ahead_ != rules.close) text += ' ';
}

PlainScanner::Token PlainScanner::word() {
    std::string text;
    do
        text += take();
    while (isInWord(ahead_));
    if (isKeyword(text, "true")) return make(Token::True, "true");
    if (isKeyword(text, "false")) return make(Token::False, "false");
    if (isKeyword(text, "null")) return make(Token::Null, "null");
    return make(Token::Id, text);
}

PlainScanner::Token PlainScanner::number() {
    std::string text;
    do
        text += take();
    while (isInNumber(ahead_));
    const bool isReal = text.find_first_of(".fFnNaAiI") != std::string::npos;
    return make(isReal ? Token::Real : Token::Integer, text);
}

}  // namespace kvt::test
