// The words of the format that have a meaning by themselves: what they stand for, in any letter
// case.
#pragma once

#include <cstdint>

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/types.h>

#include "foundation/ascii.h"
#include "foundation/typetable.h"
#include "foundation/words.h"

namespace ko::mirel_sdk::impl {

// The bit of a letter of either case.
constexpr unsigned letterBit(char letter) {
    return 1U << (static_cast<unsigned char>(letter) & 31U);
}

// A word that is no identifier, as the first bytes of a short text.
struct ReservedWord {
    char spelling[words::size];
    Token::Type type;
};

inline constexpr ReservedWord reservedWords[] = {
    {"true", Token::True}, {"false", Token::False}, {"null", Token::Null}};

// Most identifiers begin with a letter that no reserved word begins with.
inline constexpr unsigned reservedFirstLetters = [] {
    unsigned letters = 0;
    for (const ReservedWord& word : reservedWords)
        letters |= letterBit(word.spelling[0]);
    return letters;
}();

// The reserved word that a text is, or null.
inline const ReservedWord* findReserved(const String& text) {
    const char first = text.buf()[0];
    if ((reservedFirstLetters & letterBit(first)) == 0) return nullptr;
    const bool mayBeReserved = text.len() == 4 || text.len() == 5;
    if (!mayBeReserved) return nullptr;
    for (const ReservedWord& word : reservedWords) {
        if (ascii::lower(first) != word.spelling[0]) continue;
        const bool isIt = words::lowered(words::load(text.buf())) == words::load(word.spelling);
        return isIt ? &word : nullptr;
    }
    return nullptr;
}

// What comments say of the file.
inline constexpr const char* versionField = "version:";
inline constexpr const char* timeField = "time:";

// What stands before a group to make it a value.
struct MathType {
    char spelling[words::size] = {};  // of fewer characters, and zeros
    AttrType type = AttrType::Null;
};

struct MathTypes {
    constexpr MathTypes() {
        for (std::uint32_t i = 0; i < attrTypeCount; ++i)
            if (attrTypes.rows[i].keyword == Keyword::Yes) add(attrTypes.rows[i].name, AttrType(i));
    }
    constexpr void add(const char* name, AttrType type) {
        for (unsigned long i = 0; name[i] != '\0'; ++i)
            types[count].spelling[i] = ascii::lower(name[i]);
        types[count++].type = type;
    }
    constexpr const MathType* begin() const { return types; }
    constexpr const MathType* end() const { return types + count; }

    MathType types[attrTypeCount] = {};
    unsigned long count = 0;
};
inline constexpr MathTypes mathTypes;

// The type that a name before a group stands for, or Null.
inline AttrType mathTypeNamed(const String& name) {
    if (name.len() >= words::size) return AttrType::Null;
    const words::Word lowered = words::lowered(words::load(name.buf()));
    for (const MathType& type : mathTypes)
        if (lowered == words::load(type.spelling)) return type.type;
    return AttrType::Null;
}

}  // namespace ko::mirel_sdk::impl
