// Work on long runs of characters: the numbers of a group, collapsed into its token, then converted
// into a buffer. Each operation has a plain implementation, which says what it does, and may have
// one in wider instructions that does the same; which are used is settled once, at run time.
#pragma once

#include <string_view>

#include <ko/types.h>

namespace ko::bulk {

// What separates the numbers of a group besides blanks and commas.
enum class Group { Parens, Braces };

struct Copied {
    const char* read = nullptr;  // behind the last character taken, which is one of a number
    char* written = nullptr;     // behind the last one written
};

// Copies the numbers at `from`, which is on a character of a number, one space between them
// whatever separates them in [from, end); stops behind the last that only separators and numbers
// lead to. `to` has room for `end - from` characters and `copySlack` more.
using CopyNumbers = Copied (*)(const char* from, const char* end, char* to, Group group);
inline constexpr unsigned long copySlack = 64;

struct Conversion {
    unsigned long count = 0;  // numbers read, converted or not
    bool allConverted = true;
    std::string_view excess;  // the first number that there is no room for
};

// Converts the pieces between spaces of `text` to scalars of type `type`, one behind the other at
// `dest`, at most `room` of them. A piece that is no such number leaves its place as it is.
using ConvertNumbers = Conversion (*)(std::string_view text, DataType type, unsigned char* dest,
                                      unsigned long room);

// Converts one number; false, and nothing is written, for what is none or for another type.
bool convertNumber(std::string_view text, DataType type, unsigned char* dest) noexcept;

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

extern const Operations plainOperations;
extern const Operations avx2Operations;
extern const Operations avx512Operations;

}  // namespace ko::bulk
