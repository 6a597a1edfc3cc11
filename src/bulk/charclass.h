// The classes of characters that the format's lexical rules speak of, as one table.
#pragma once

#include <array>

#include <ko/foundation.h>

namespace ko::chars {

enum Class : unsigned char {
    Blank = 1,         // separates tokens
    IdPart = 2,        // of an identifier, after its first character
    NumberPart = 4,    // of a number, in a group from its first character on, else after it
    RealMark = 8,      // makes a number a real
    ParensGap = 16,    // between the numbers of a parenthesised group
    BracesGap = 32,    // between the numbers of a braced group
    CommentPart = 64,  // of a comment
    StringPart = 128,  // of a string, neither its end nor a backslash
};

constexpr bool isOneOf(char c, std::string_view set) {
    return set.find(c) != std::string_view::npos;
}

// The byte 0xFF is in no class: it ends the input.
constexpr unsigned char classesOf(char c) {
    if (c == '\xFF') return 0;
    const bool isBlank = String::isSpace(c) || !String::isPrintable(c);
    int classes = 0;
    if (isBlank) classes |= Blank;
    if (String::isLetter(c) || String::isDigit(c) || c == '_') classes |= IdPart;
    if (String::isHexDigit(c) || isOneOf(c, "+-.IiNnUu")) classes |= NumberPart;
    if (isOneOf(c, ".fFnNaAiI")) classes |= RealMark;
    if (isBlank || isOneOf(c, ",[]{}")) classes |= ParensGap;
    if (isBlank || isOneOf(c, ",()[]")) classes |= BracesGap;
    if (c != '\n' && c != '\r') classes |= CommentPart;
    if (c != '"' && c != '\\') classes |= StringPart;
    return static_cast<unsigned char>(classes);
}

constexpr std::array<unsigned char, 256> makeTable() {
    std::array<unsigned char, 256> table{};
    for (unsigned i = 0; i < table.size(); ++i)
        table[i] = classesOf(static_cast<char>(i));
    return table;
}

inline constexpr std::array<unsigned char, 256> table = makeTable();

inline unsigned classes(char c) { return table[static_cast<unsigned char>(c)]; }
inline bool is(char c, Class wanted) { return classes(c) & wanted; }

// The classes that any character of the text is in.
inline unsigned unionOf(std::string_view text) {
    unsigned all = 0;
    for (const char c : text)
        all |= classes(c);
    return all;
}

// The first place in [at, end) that is not of the class.
inline const char* skip(const char* at, const char* end, Class wanted) {
    while (at != end && is(*at, wanted))
        ++at;
    return at;
}

}  // namespace ko::chars
