#include "mutants.h"

#include <utility>

#include "lexers.h"

namespace kvt::fuzz {

namespace {

// Bytes that text does not have, quotes, what begins or ends something, parts of numbers and names.
constexpr std::string_view tellingBytes("\0\x7F\x80\xFF\"'#\n.;[){9-e", 16);

}  // namespace

std::string_view nameOf(Change change) {
    switch (change) {
        case Change::Cut: return "cut";
        case Change::Byte: return "byte";
        case Change::Insert: return "insert";
        case Change::Delete: return "delete";
        case Change::Double: return "double";
        case Change::Swap: return "swap";
    }
    return {};
}

Mutants::Mutants(std::string document) : document_(std::move(document)) {
    using LexerToken = ko::mirel_sdk::impl::Token;
    Characters lexer(document_);
    for (;;) {
        while (lexer.la != -1 && (ko::String::isSpace(static_cast<char>(lexer.la)) ||
                                  !ko::String::isPrintable(static_cast<char>(lexer.la))))
            lexer.consume();
        if (lexer.la == -1) return;
        const auto begin = static_cast<unsigned long>(lexer.pos);
        if (lexer.nextToken().type == LexerToken::Invalid) lexer.consume();
        tokens_.push_back({begin, static_cast<unsigned long>(lexer.pos)});
    }
}

unsigned long Mutants::count(Change change) const {
    switch (change) {
        case Change::Cut: return document_.size();
        case Change::Byte:
        case Change::Insert: return document_.size() * tellingBytes.size();
        case Change::Delete:
        case Change::Double: return tokens_.size();
        case Change::Swap: return tokens_.empty() ? 0 : tokens_.size() - 1;
    }
    return 0;
}

std::string Mutants::make(Change change, unsigned long index) const {
    if (change == Change::Cut) return document_.substr(0, index);
    if (change == Change::Byte || change == Change::Insert) {
        const unsigned long at = index / tellingBytes.size();
        const std::string_view byte = tellingBytes.substr(index % tellingBytes.size(), 1);
        return withMiddle(at, byte, change == Change::Byte ? at + 1 : at);
    }
    const Token token = tokens_[index];
    if (change == Change::Delete) return withMiddle(token.begin, {}, token.end);
    const std::string text(textOf(token));
    if (change == Change::Double) return withMiddle(token.begin, text + ' ' + text, token.end);
    const Token next = tokens_[index + 1];
    const std::string_view between = textOf({token.end, next.begin});
    return withMiddle(token.begin, std::string(textOf(next)).append(between).append(text),
                      next.end);
}

std::string_view Mutants::textOf(Token token) const {
    return std::string_view(document_).substr(token.begin, token.end - token.begin);
}

std::string Mutants::withMiddle(unsigned long begin, std::string_view middle,
                                unsigned long end) const {
    return document_.substr(0, begin).append(middle).append(document_, end);
}

}  // namespace kvt::fuzz
