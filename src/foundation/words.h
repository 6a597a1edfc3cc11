// Eight characters at a time, in one machine word: the first of them in its lowest bits.
#pragma once

#include <cstdint>
#include <cstring>

namespace ko::words {

using Word = std::uint64_t;

inline constexpr unsigned long size = sizeof(Word);

// The word with `byte` in every place.
constexpr Word all(unsigned byte) { return byte * Word(0x0101010101010101); }

inline constexpr Word highBits = all(0x80);

inline Word load(const char* at) noexcept {
    Word word = 0;
    std::memcpy(&word, at, sizeof word);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

// Writes the four characters in the lower half.
inline void storeHalf(unsigned char* to, Word word) noexcept {
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word) >> 32U;
#endif
    const auto half = static_cast<std::uint32_t>(word);
    std::memcpy(to, &half, sizeof half);
}

// The high bit of each byte that is zero.
constexpr Word zeros(Word word) { return ~(((word & ~highBits) + ~highBits) | word) & highBits; }

// The high bit of each byte that is `c`.
constexpr Word equal(Word word, char c) { return zeros(word ^ all(static_cast<unsigned char>(c))); }

// The place of the first byte whose high bit is set; there is one.
inline unsigned first(Word high) noexcept {
    return static_cast<unsigned>(__builtin_ctzll(high)) / 8;
}

// The high bits of the bytes of two words, a bit for each, those of `first` lowest.
constexpr unsigned gathered(Word first, Word second) {
    constexpr Word toTop = 0x0002040810204081;  // each high bit to its place in the highest byte
    const Word low = (first & highBits) * toTop >> 56U;
    const Word high = (second & highBits) * toTop >> 56U;
    return static_cast<unsigned>(low | high << 8U);
}

// With A-Z as a-z.
constexpr Word lowered(Word characters) {
    const Word low = characters & ~highBits;
    const Word fromA = low + all(0x80 - 'A');
    const Word behindZ = low + all(0x7F - 'Z');
    return characters | (fromA & ~behindZ & ~characters & highBits) >> 2U;
}

// Digits as values have no other bits than those of '0' changed.
constexpr Word digitValues(Word characters) { return characters ^ all('0'); }

// True when each byte is the value of a digit.
constexpr bool areDigits(Word values) {
    return ((((values & ~highBits) + all(0x7F - 9)) | values) & highBits) == 0;
}

// The number that eight values of digits make, the first one the highest.
constexpr Word sumOfDigits(Word values) {
    constexpr Word everyFourth = 0x000000FF000000FF;
    values = values * 10 + (values >> 8U);
    const Word higher = (values & everyFourth) * (100 + (Word(1000000) << 32U));
    const Word lower = (values >> 16U & everyFourth) * (1 + (Word(10000) << 32U));
    return (higher + lower) >> 32U;
}

}  // namespace ko::words
