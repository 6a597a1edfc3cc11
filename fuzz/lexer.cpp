// The tokens of a text, from a string and in blocks, against those of a source that brings one
// character at a time: the same, and the lexer at the same place after each.
#include <ko/kvtparser.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "lexers.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::mirel_sdk::impl::Lexer;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::impl::Token;
using kvt::fuzz::Blocks;
using kvt::fuzz::Characters;
using kvt::fuzz::require;

void requireSamePlace(const Lexer& expected, const Lexer& found) {
    require(expected.c == found.c && expected.la == found.la, "lexers with different characters");
    require(expected.pos == found.pos, "lexers at different positions");
    require(expected.line == found.line && expected.column == found.column,
            "lexers in different lines or columns");
}

void requireSameToken(const Token& expected, const Token& found) {
    require(expected.type == found.type, "tokens of different types");
    require(expected.text == found.text, "tokens with different texts");
    require(expected.line == found.line && expected.column == found.column,
            "tokens at different places");
}

// Goes on after the character that an invalid token names, and a little past the end.
void requireSameTokens(Lexer&& expected, Lexer&& found) {
    requireSamePlace(expected, found);
    for (int ends = 0; ends < 2;) {
        const Token token = expected.nextToken();
        requireSameToken(token, found.nextToken());
        requireSamePlace(expected, found);
        if (token.type == Token::Eof) ++ends;
        if (token.type == Token::Invalid)
            require(expected.consume() == found.consume(), "different characters were consumed");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = kvt::fuzz::textOf(data, size);
    requireSameTokens(Characters::ofString(text), StringLexer(ko::String(text)));
    requireSameTokens(Characters(text), Blocks(text, kvt::fuzz::fingerprint(text)));
    // With so much after it that no run ends near its tokens.
    const std::string longer = std::string(text) + '\n' + std::string(150, ' ');
    requireSameTokens(Characters(longer), StringLexer(ko::String(longer)));
    return 0;
}
