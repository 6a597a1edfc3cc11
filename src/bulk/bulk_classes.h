// The characters of groups as tables for instructions that look up many at once. The class of a
// character is the bits that the entries for its low and for its high four bits share: bits 0 to 3
// for numbers, 4 to 7 for what separates them.
#pragma once

#include <cstdint>

#include "bulk/bulk.h"
#include "bulk/charclass.h"

namespace ko::bulk {

struct ClassTables {
    alignas(16) std::uint8_t low[16];
    alignas(16) std::uint8_t high[16];
};

inline constexpr std::uint8_t numberBits = 0x0F;
inline constexpr std::uint8_t digit = 1;       // 0-9
inline constexpr std::uint8_t letter = 2;      // A-F, I, N and a-f, i, n
inline constexpr std::uint8_t letterU = 4;     // U, u
inline constexpr std::uint8_t sign = 8;        // + - .
inline constexpr std::uint8_t control = 16;    // below the space
inline constexpr std::uint8_t separator = 32;  // space, comma; in braces ( and )
inline constexpr std::uint8_t bracket = 64;    // [ and ]; in parens { and }
inline constexpr std::uint8_t del = 128;       // 0x7F

constexpr ClassTables makeTables(Group group) {
    ClassTables tables{};
    for (int i = 0; i < 16; ++i) {
        int low = control;
        if (i <= 9) low |= digit;
        if ((i >= 1 && i <= 6) || i == 9 || i == 14) low |= letter;
        if (i == 5) low |= letterU;
        if (i == 11 || i == 13 || i == 14) low |= sign;
        if (i == 0 || i == 12) low |= separator;
        if (group == Group::Braces && (i == 8 || i == 9)) low |= separator;
        if (i == 11 || i == 13) low |= bracket;
        if (i == 15) low |= del;
        tables.low[i] = static_cast<std::uint8_t>(low);
    }
    tables.high[0] = control;
    tables.high[1] = control;
    tables.high[2] = sign | separator;
    tables.high[3] = digit;
    tables.high[4] = letter;
    tables.high[5] = letterU | bracket;
    tables.high[6] = letter;
    tables.high[7] = letterU | del;
    if (group == Group::Parens) tables.high[7] |= bracket;
    return tables;
}

inline constexpr ClassTables parensTables = makeTables(Group::Parens);
inline constexpr ClassTables bracesTables = makeTables(Group::Braces);

// The classes of all characters are those of the lexical rules. What is beyond ASCII has none here:
// a wide path leaves it to the rules.
constexpr bool agreesWithRules(const ClassTables& tables, chars::Class gap) {
    for (unsigned c = 0; c < 256; ++c) {
        const unsigned found = tables.low[c % 16] & tables.high[c / 16];
        const unsigned wanted = c < 0x80 ? chars::table[c] : 0;
        if (((found & numberBits) != 0) != ((wanted & chars::NumberPart) != 0)) return false;
        if (((found & ~unsigned(numberBits)) != 0) != ((wanted & gap) != 0)) return false;
    }
    return true;
}
static_assert(agreesWithRules(parensTables, chars::ParensGap));
static_assert(agreesWithRules(bracesTables, chars::BracesGap));

constexpr const ClassTables& tablesOf(Group group) {
    return group == Group::Parens ? parensTables : bracesTables;
}

}  // namespace ko::bulk
