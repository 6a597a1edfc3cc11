// Which token each character begins.
#pragma once

#include <array>

#include <ko/foundation.h>
#include <ko/kvtparser.h>

namespace ko::mirel_sdk::impl {

// The characters that stand for themselves.
struct Sign {
    char c;
    Token::Type type;
};

inline constexpr Sign signs[] = {
    {'.', Token::Dot},    {',', Token::Comma}, {':', Token::Colon},      {';', Token::Semicolon},
    {'\'', Token::Quote}, {'/', Token::Slash}, {'\\', Token::Backslash}, {'=', Token::Equals},
    {'+', Token::Plus},   {'*', Token::Star},  {'|', Token::Pipe}};

constexpr std::array<Token::Type, 256> makeBeginnings() {
    std::array<Token::Type, 256> types{};
    for (unsigned i = 0; i < types.size(); ++i) {
        const char c = static_cast<char>(i);
        const bool isId = String::isLetter(c) || c == '_';
        const bool isNumber = String::isDigit(c) || c == '-';
        types[i] = isId ? Token::Id : isNumber ? Token::Integer : Token::Invalid;
    }
    for (const Sign& sign : signs)
        types[static_cast<unsigned char>(sign.c)] = sign.type;
    types['"'] = Token::StringLiteral;
    types['#'] = Token::Comment;
    types['('] = Token::Parens;
    types['['] = Token::Brackets;
    types['{'] = Token::Braces;
    types[0xFF] = Token::Eof;
    return types;
}

inline constexpr std::array<Token::Type, 256> beginnings = makeBeginnings();

// The type of the token that a character begins; of a number, whatever it turns out to be.
inline Token::Type typeBegunBy(char c) { return beginnings[static_cast<unsigned char>(c)]; }

}  // namespace ko::mirel_sdk::impl
