// Numbers of a few characters, as most of a document's are, converted where they stand.
#pragma once

#include <cstdint>
#include <cstring>

#include "bulk/bulk.h"
#include "foundation/words.h"

namespace ko::shortnumbers {

// The digits after the point of a number of eight characters at most stay where they are, those
// before it move up by one: which of the bytes are which, by how many stand after the point.
struct Split {
    words::Word behind[words::size];
    words::Word before[words::size];
};

constexpr Split makeSplit() {
    Split split{};
    for (unsigned long i = 0; i < words::size; ++i) {
        split.behind[i] = i ? ~words::Word(0) << 8 * (words::size - i) : 0;
        split.before[i] = i + 1 < words::size ? ~words::Word(0) >> 8 * (i + 1) : 0;
    }
    return split;
}

inline constexpr Split split = makeSplit();
inline constexpr double powersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7};

// The characters of a number without its sign, as values at the end of a word, zeros before them.
[[gnu::always_inline]] inline words::Word valuesOf(const char* digits, unsigned long count) {
    return words::digitValues(words::load(digits)) << 8 * (words::size - count);
}

// Of what is made of digits, points and signs, digits alone lack this bit as values.
constexpr bool areDigits(words::Word values) { return (values & words::all(0x10)) == 0; }

// The next two convert the number of `length` digits, points and signs at `at`, where sixteen
// characters can be read; false for what is no number or needs more care.
//
// With a bit for each of the characters that is a point.
[[gnu::always_inline]] inline bool toReal(const char* at, unsigned length, unsigned points,
                                          void* dest) {
    const unsigned long sign = *at == '-' ? 1 : 0;
    const unsigned long count = length - sign;
    points &= (1U << length) - 1;
    const bool isShort = count - 1 < words::size && (points & (points - 1)) == 0;
    if (!isShort) return bulk::convertAhead<double>(at, length, dest);
    words::Word values = valuesOf(at + sign, count);
    unsigned long behind = 0;
    if (points) {
        if (count == 1) return false;
        behind = length - 1 - static_cast<unsigned long>(__builtin_ctz(points));
        values = (values & split.behind[behind]) | (values & split.before[behind]) << 8U;
    }
    if (!areDigits(values)) return false;
    const double magnitude =
        static_cast<double>(static_cast<std::int64_t>(words::sumOfDigits(values)));
    const double number = magnitude / powersOfTen[behind];
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    bits |= sign << 63U;
    std::memcpy(dest, &bits, sizeof bits);
    return true;
}

// Without a point.
[[gnu::always_inline]] inline bool toInteger(const char* at, unsigned length, void* dest) {
    const unsigned long sign = *at == '-' ? 1 : 0;
    const unsigned long count = length - sign;
    if (count - 1 >= words::size) return bulk::convertAhead<long>(at, length, dest);
    const words::Word values = valuesOf(at + sign, count);
    if (!areDigits(values)) return false;
    const std::uint64_t number = (words::sumOfDigits(values) ^ (0 - sign)) + sign;
    std::memcpy(dest, &number, sizeof number);
    return true;
}

}  // namespace ko::shortnumbers
