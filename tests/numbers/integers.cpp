#include <algorithm>
#include <limits>
#include <string>
#include <type_traits>

#include "block.h"
#include "parts.h"

namespace kvt::test {

namespace {

// Holds every value that is written here, far beyond 64 bits on either side.
__extension__ using Wide = __int128;

constexpr unsigned long blockSize = 1024;

std::string digitsOf(Wide magnitude, int base) {
    std::string digits;
    do {
        digits += "0123456789abcdef"[static_cast<int>(magnitude % base)];
        magnitude /= base;
    } while (magnitude != 0);
    std::reverse(digits.begin(), digits.end());
    return digits;
}

// Unsigned types take no minus, not even before zero.
template <class Integer>
void add(Block<Integer>& block, const std::string& text, Wide value) {
    const bool fits = value >= std::numeric_limits<Integer>::min() &&
                      value <= Wide(std::numeric_limits<Integer>::max());
    if (fits && (std::is_signed_v<Integer> || text[0] != '-')) {
        block.add(text, static_cast<Integer>(value));
    } else {
        block.addRefused(text);
    }
}

// The value in every spelling, with leading zeros around the sixteen characters that paths take at
// once.
template <class Integer>
void addSpellings(Block<Integer>& block, Wide value) {
    const std::string sign = value < 0 ? "-" : "";
    const Wide magnitude = value < 0 ? -value : value;
    const std::string digits = digitsOf(magnitude, 10);
    for (const unsigned long length : {1UL, 14UL, 15UL, 16UL, 17UL, 24UL}) {
        const unsigned long zeros = length - std::min(length, digits.size());
        add(block, sign + std::string(zeros, '0') + digits, value);
    }
    for (const char* mark : {"u", "U"})
        add(block, sign + digits + mark, value);
    for (const char* prefix : {"0x", "0X", "0x0000000000"})
        add(block, sign + prefix + digitsOf(magnitude, 16), value);
    if (value >= 0) add(block, "+" + digits, value);
    if (value == 0) add(block, "-" + digits, value);
    for (const char* end : {".", ".0", "e0", "f", "-", "u1"})
        block.addRefused(sign + digits + end);
}

// Its bounds, those of others, and the powers of two and ten, each with what lies beside it.
template <class Integer>
void checkBounds(Sweep& sweep) {
    Block<Integer> block;
    Wide power = 1;
    for (int i = 0; i < 70; ++i, power *= 2)
        for (Wide beside = -2; beside <= 2; ++beside) {
            addSpellings(block, power + beside);
            addSpellings(block, -power + beside);
        }
    power = 1;
    for (int i = 0; i < 25; ++i, power *= 10)
        for (Wide beside = -2; beside <= 2; ++beside) {
            addSpellings(block, power + beside);
            addSpellings(block, -power + beside);
        }
    block.check(sweep);
}

template <class Integer>
void checkSome(Random& random, Sweep& sweep) {
    Block<Integer> block;
    for (unsigned long i = 0; i < blockSize; ++i) {
        // All lengths are as likely.
        const Wide magnitude = random.next() >> random.below(64);
        const Wide value = random.oneIn(2) ? -magnitude : magnitude;
        add(block, (value < 0 ? "-" : "") + digitsOf(magnitude, 10), value);
    }
    block.check(sweep);
}

template <class... Integers>
void sweepTypes(Sweep& sweep, unsigned long count) {
    sweep.run("bounds of integers", 1, [&](unsigned long) { (checkBounds<Integers>(sweep), ...); });
    sweep.run("integers", (count + blockSize - 1) / blockSize, [&](unsigned long i) {
        Random random(i);
        (checkSome<Integers>(random, sweep), ...);
    });
}

}  // namespace

void sweepIntegers(Sweep& sweep, unsigned long count) {
    sweepTypes<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
               unsigned long>(sweep, count);
}

}  // namespace kvt::test
