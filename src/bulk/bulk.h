// Work on long runs of characters: the numbers of a group, collapsed into its token, then converted
// into a buffer. Each operation has a plain implementation, which says what it does, and may have
// one in wider instructions that does the same; which are used is settled once, at run time.
#pragma once

#include <string_view>

#include <ko/types.h>

#include "foundation/typetable.h"

namespace ko::bulk {

// What separates the numbers of a group besides blanks and commas.
enum class Group { Parens, Braces };

struct Copied {
    const char* read = nullptr;  // after the last character taken, which is one of a number
    char* written = nullptr;     // after the last one written
};

// Copies the numbers at `from`, which is on a character of a number, one space between them
// whatever separates them in [from, end); stops after the last that only separators and numbers
// lead to. `to` has room for `end - from` characters.
using CopyNumbers = Copied (*)(const char* from, const char* end, char* to, Group group);

struct Conversion {
    unsigned long count = 0;  // numbers read, converted or not
    bool allConverted = true;
    std::string_view excess;  // the first number that there is no room for
};

// Converts the pieces between spaces of `text` to scalars of type `type`, one after the other at
// `dest`, at most `room` of them. A piece that is no such number leaves its place as it is.
using ConvertNumbers = Conversion (*)(std::string_view text, DataType type, unsigned char* dest,
                                      unsigned long room);

// Converts one number; false, and nothing is written, for what is none or for another type.
bool convertNumber(std::string_view text, DataType type, unsigned char* dest) noexcept;

// Converts the number of `length` characters at `at`, where sixteen can be read, to a long or a
// double; false, and nothing is written, also for what is longer, no plain decimal, or needs more
// care.
template <class Scalar>
bool convertAhead(const char* at, unsigned long length, void* dest) noexcept;

// The line breaks in a text.
using CountBreaks = unsigned long (*)(std::string_view text);

struct Operations {
    CopyNumbers copyNumbers;
    ConvertNumbers convertNumbers;
    CountBreaks countBreaks;
};

enum class Path { Plain, Avx2, Avx512 };

// The fastest that this machine has, or what `usePath` said.
const Operations& operations() noexcept;
// Whether this machine can take the path. For tests and benchmarks.
bool hasPath(Path path) noexcept;
void usePath(Path path) noexcept;

// The conversion for `type`: a path has `as<Scalar>` for each scalar, and `other` for any other
// type.
template <class PathConversions>
Conversion convertByType(std::string_view text, DataType type, unsigned char* dest,
                         unsigned long room) {
    using P = PathConversions;
    switch (singleNumber(type)) {
        case NumberType::Char: return P::template as<signed char>(text, dest, room);
        case NumberType::Byte: return P::template as<unsigned char>(text, dest, room);
        case NumberType::Int16: return P::template as<short>(text, dest, room);
        case NumberType::Int32: return P::template as<int>(text, dest, room);
        case NumberType::Int64: return P::template as<long>(text, dest, room);
        case NumberType::UInt16: return P::template as<unsigned short>(text, dest, room);
        case NumberType::UInt32: return P::template as<unsigned int>(text, dest, room);
        case NumberType::UInt64: return P::template as<unsigned long>(text, dest, room);
        case NumberType::Float: return P::template as<float>(text, dest, room);
        case NumberType::Double: return P::template as<double>(text, dest, room);
        case NumberType::None:
        case NumberType::Bool:
        case NumberType::Ptr: break;
    }
    return P::other(text, type, dest, room);
}

extern const Operations plainOperations;
extern const Operations avx2Operations;
extern const Operations avx512Operations;

}  // namespace ko::bulk
