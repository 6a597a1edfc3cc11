// Runs of characters as documents have them, short ones above all: the characters ahead are looked
// at sixteen at a time, where the machine can and as many are there, else one by one.
#pragma once

#include <cstdint>
#include <string_view>

#include "bulk/charclass.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace ko::chars {

inline constexpr unsigned long sixteen = 16;

#ifdef __SSE2__

// A bit for each of sixteen characters.
class Sixteen {
  public:
    explicit Sixteen(const char* at)
        : text_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at))) {}

    unsigned blanks() const {
        const __m128i upToSpace = _mm_cmpeq_epi8(_mm_min_epu8(text_, all(' ')), text_);
        return bits(_mm_or_si128(upToSpace, _mm_cmpeq_epi8(text_, all('\x7F'))));
    }
    unsigned idParts() const {
        const __m128i folded = _mm_or_si128(text_, all('\x20'));
        const __m128i ascii =
            _mm_or_si128(_mm_or_si128(within(folded, 'a', 26), within(text_, '0', 10)),
                         _mm_cmpeq_epi8(text_, all('_')));
        // Beyond ASCII the highest bit is set; the byte that ends the input has all.
        const unsigned ends = bits(_mm_cmpeq_epi8(text_, all('\xFF')));
        return bits(_mm_or_si128(ascii, text_)) & ~ends;
    }

    // Digits, points and signs.
    unsigned decimalParts() const {
        const __m128i fromMinus = within(text_, '-', '9' - '-' + 1);
        return bits(_mm_andnot_si128(_mm_cmpeq_epi8(text_, all('/')), fromMinus));
    }
    unsigned points() const { return bits(_mm_cmpeq_epi8(text_, all('.'))); }
    unsigned stringParts() const {
        const __m128i isEnd = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(text_, all('"')), _mm_cmpeq_epi8(text_, all('\\'))),
            _mm_cmpeq_epi8(text_, all('\xFF')));
        return bits(isEnd) ^ 0xFFFFU;
    }

  private:
    static __m128i all(char c) { return _mm_set1_epi8(c); }
    static unsigned bits(__m128i bytes) { return static_cast<unsigned>(_mm_movemask_epi8(bytes)); }
    // Characters from `first` on, `count` of them.
    static __m128i within(__m128i text, char first, char count) {
        const __m128i offset = _mm_sub_epi8(text, all(first));
        return _mm_cmpeq_epi8(_mm_min_epu8(offset, all(static_cast<char>(count - 1))), offset);
    }

    __m128i text_;
};

#else

class Sixteen {
  public:
    explicit Sixteen(const char* at) : at_(at) {}

    unsigned blanks() const {
        return bits([](char c) { return is(c, Blank); });
    }
    unsigned idParts() const {
        return bits([](char c) { return is(c, IdPart); });
    }

    unsigned decimalParts() const {
        return bits([](char c) { return c >= '-' && c <= '9' && c != '/'; });
    }
    unsigned points() const {
        return bits([](char c) { return c == '.'; });
    }
    unsigned stringParts() const {
        return bits([](char c) { return is(c, StringPart); });
    }

  private:
    template <class Belongs>
    unsigned bits(Belongs belongs) const {
        unsigned all = 0;
        for (unsigned i = 0; i < sixteen; ++i)
            all |= static_cast<unsigned>(belongs(at_[i])) << i;
        return all;
    }

    const char* at_;
};

#endif

// How many of sixteen characters, from the first on, have their bit set.
inline unsigned leading(unsigned bits) {
    return static_cast<unsigned>(__builtin_ctz(~bits));  // there are more bits than characters
}

}  // namespace ko::chars
