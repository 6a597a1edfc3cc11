// How inputs are made: in one piece, since that is much of what a small statement takes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <ko/scene.h>

#include "foundation/typetable.h"
#include "scene/namedlist.h"
#include "scene/pool.h"

namespace ko::mirel_sdk::impl {

constexpr std::uint32_t codeOf(AttrType type) { return static_cast<std::uint32_t>(type); }

// As an input keeps them: a code that is none stays one that is none.
inline constexpr std::uint32_t noType = (1U << 5) - 1;
inline constexpr std::uint32_t noElementType = (1U << 6) - 1;
static_assert(attrTypeCount <= noType);
static_assert(dataTypeCount <= noElementType && attrTypeCount <= noElementType);
constexpr std::uint32_t keptType(AttrType type) { return std::min(codeOf(type), noType); }
constexpr std::uint32_t keptElementType(std::uint32_t code) {
    return std::min(code, noElementType);
}

// Of vectors, whatever the type uses of them.
inline constexpr unsigned long vectorSize = vectorComponents * sizeof(double);

// What stands after an input is a vector as a rule: of that size a copy is a few moves and no
// call.
inline void copyBehind(void* to, const void* from, unsigned long bytes) {
    if (bytes == vectorSize) {
        std::memcpy(to, from, vectorSize);
    } else {
        std::memcpy(to, from, bytes);
    }
}

// What a value of a type has after its input.
constexpr unsigned long sizeBehindOf(const AttrTypeRow& row) {
    switch (row.storage) {
        case Storage::Components: return std::max(vectorSize, row.components * sizeof(double));
        case Storage::Text: return sizeof(std::uint64_t);
        case Storage::Buffer: return 2 * sizeof(unsigned long);
        case Storage::None:
        case Storage::Bool:
        case Storage::Int:
        case Storage::UInt:
        case Storage::Real:
        case Storage::Elements:
        case Storage::Inputs: break;
    }
    return 0;
}

struct SizesBehind {
    constexpr SizesBehind() {
        for (std::uint32_t i = 0; i < attrTypeCount; ++i)
            of[i] = static_cast<unsigned char>(sizeBehindOf(rowOf(AttrType(i))));
    }
    unsigned char of[noType + 1] = {};
};
inline constexpr SizesBehind sizesBehind;

inline Input::Input(std::uint32_t place, const Made& made) noexcept
    : place_(place & Pool::lastPlace),
      type_(keptType(made.type) & noType),
      elementType_(keptElementType(made.elementType) & noElementType),
      links_(NoLinks),
      position_(static_cast<std::uint32_t>(made.position)),
      name_(made.name),
      owner_(made.owner),
      word_{} {
    const unsigned long size = sizesBehind.of[type_];
    if (size > 0) {
        const void* const words = made.value;
        copyBehind(behind<char>(), words ? words : AttrData::defaultComponents(made.type), size);
    } else if (made.value) {
        word_.word = made.value[0];
    }
    if (made.textRoom > 0) behind<TextSize>()->room = made.textRoom & 0xFF;
}

inline Input* Input::make(Pool& pool, const Made& made) {
    const unsigned long behind = sizesBehind.of[keptType(made.type)] + made.textRoom;
    return pool.makeLonger<Input>(behind, made);
}

inline Input* Input::addTo(NamedList<Input>& list, Pool& pool, Made made, unsigned long expected) {
    made.position = list.size();
    Input* const input = make(pool, made);
    try {
        list.add(pool, input, expected);
    } catch (...) {
        input->release();
        throw;
    }
    return input;
}

inline FoundInput Node::findOrCreate(const NewInput& wanted) {
    if (Input* const found = inputs_.find(wanted.name)) return {found, false};
    return {add(wanted), true};
}

inline Input* Node::add(const NewInput& wanted) {
    const Input::Made made = {Input::Owner(this), wanted.name,     wanted.type,
                              wanted.elementType, wanted.textRoom, wanted.value};
    return Input::addTo(inputs_, pool(), made, kind_->expectedInputs);
}

}  // namespace ko::mirel_sdk::impl
