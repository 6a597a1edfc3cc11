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

// The high bit of each byte that is zero.
constexpr Word zeros(Word word) { return ~(((word & ~highBits) + ~highBits) | word) & highBits; }

// The high bit of each byte that is `c`.
constexpr Word equal(Word word, char c) { return zeros(word ^ all(static_cast<unsigned char>(c))); }

// The place of the first byte whose high bit is set; there is one.
inline unsigned first(Word high) noexcept {
    return static_cast<unsigned>(__builtin_ctzll(high)) / 8;
}

}  // namespace ko::words
