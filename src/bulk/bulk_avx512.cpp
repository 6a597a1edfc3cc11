// The operations of bulk.h in AVX-512, with its instructions that squeeze chosen characters
// together and put lanes in any order.
//
// To convert numbers, a window of the text is squeezed first: points and the minus before a number
// are taken out, and noted apart. What is left are digits and single spaces, and eight numbers of
// up to 16 digits are converted side by side, wherever their points were. What this cannot read
// goes the way that the AVX2 path sends it.
#if defined(__GNUC__) && !defined(__clang__)
// What the compiler's own header leaves undefined on purpose, some of its versions warn of.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "bulk/bulk_avx2.h"

#if defined(__x86_64__)

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "bulk/bulk_classes.h"

namespace ko::bulk {

namespace avx512 {

namespace {

#define KO_AVX512_TARGET \
    gnu::target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vbmi2,bmi,bmi2,lzcnt,popcnt")
#define KO_AVX512 [[KO_AVX512_TARGET]]
#define KO_AVX512_INLINE [[KO_AVX512_TARGET, gnu::always_inline]] inline

constexpr unsigned long step = 64;
constexpr std::uint64_t allBits = ~std::uint64_t(0);

KO_AVX512_INLINE unsigned long countOf(std::uint64_t bits) {
    return static_cast<unsigned long>(_mm_popcnt_u64(bits));
}

// --- Copying ------------------------------------------------------------------------------------

KO_AVX512_INLINE __m512i broadcast(const std::uint8_t (&table)[16]) {
    return _mm512_broadcast_i32x4(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}

KO_AVX512_INLINE __m512i classify(__m512i text, __m512i low, __m512i high) {
    const __m512i nibble = _mm512_set1_epi8(0x0F);
    const __m512i upper = _mm512_and_si512(_mm512_srli_epi16(text, 4), nibble);
    return _mm512_and_si512(_mm512_shuffle_epi8(low, _mm512_and_si512(text, nibble)),
                            _mm512_shuffle_epi8(high, upper));
}

// 64 characters at a time, the last of them by the plain path: what is of a number is kept, and the
// first character of each gap becomes its space.
KO_AVX512 Copied copyNumbers(const char* from, const char* end, char* to, Group group) {
    const ClassTables& tables = tablesOf(group);
    const __m512i low = broadcast(tables.low);
    const __m512i high = broadcast(tables.high);
    const __m512i ofNumber = _mm512_set1_epi8(numberBits);
    const __m512i spaces = _mm512_set1_epi8(' ');
    const char* read = from;
    std::uint64_t inNumber = 1;
    for (; end - from >= static_cast<long>(step); from += step) {
        const __m512i text = _mm512_loadu_si512(from);
        const __m512i classes = classify(text, low, high);
        if (_mm512_testn_epi8_mask(classes, classes)) break;
        const std::uint64_t numbers = _mm512_test_epi8_mask(classes, ofNumber);
        const std::uint64_t kept = numbers | numbers << 1 | inNumber;
        const __m512i spaced = _mm512_mask_blend_epi8(numbers, spaces, text);
        _mm512_storeu_si512(to, _mm512_maskz_compress_epi8(kept, spaced));
        to += countOf(kept);
        if (numbers) read = from + step - _lzcnt_u64(numbers);
        inNumber = numbers >> 63;
    }
    return avx2::copyRest({read, to}, from, end, inNumber != 0, group);
}

// --- Counting -----------------------------------------------------------------------------------

KO_AVX512 unsigned long countBreaks(std::string_view text) {
    const __m512i lineBreak = _mm512_set1_epi8('\n');
    unsigned long count = 0;
    for (; text.size() >= step; text.remove_prefix(step))
        count += countOf(_mm512_cmpeq_epi8_mask(_mm512_loadu_si512(text.data()), lineBreak));
    return count + plainOperations.countBreaks(text);
}

// --- A window of the text -----------------------------------------------------------------------

KO_AVX512_INLINE __m512i counting() {
    alignas(64) static constexpr std::uint8_t numbers[] = {
        0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
        22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43,
        44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63};
    return _mm512_load_si512(numbers);
}

// Writes `base` more than the place of each bit, and up to 15 others.
KO_AVX512_INLINE void notePlaces(std::uint64_t bits, std::uint32_t base, std::uint32_t* to) {
    __m512i places = _mm512_maskz_compress_epi8(bits, counting());
    const __m512i bases = _mm512_set1_epi32(static_cast<int>(base));
    for (unsigned long left = countOf(bits);;) {
        const __m512i some = _mm512_cvtepu8_epi32(_mm512_castsi512_si128(places));
        _mm512_storeu_si512(to, _mm512_add_epi32(some, bases));
        if (left <= 16) return;
        left -= 16;
        to += 16;
        places = _mm512_maskz_compress_epi8(allBits << 16, places);
    }
}

KO_AVX512_INLINE void notePlaces(std::uint64_t bits, unsigned long base, unsigned long* to) {
    __m512i places = _mm512_maskz_compress_epi8(bits, counting());
    const __m512i bases = _mm512_set1_epi64(static_cast<long long>(base));
    for (unsigned long left = countOf(bits);;) {
        const __m128i some = _mm512_castsi512_si128(places);
        _mm512_storeu_si512(to, _mm512_add_epi64(_mm512_cvtepu8_epi64(some), bases));
        _mm512_storeu_si512(to + 8,
                            _mm512_add_epi64(_mm512_cvtepu8_epi64(_mm_srli_si128(some, 8)), bases));
        if (left <= 16) return;
        left -= 16;
        to += 16;
        places = _mm512_maskz_compress_epi8(allBits << 16, places);
    }
}

// For each bit of `which` a byte that is not zero when `bits` has it too; writes 64 bytes.
KO_AVX512_INLINE void noteBits(std::uint64_t which, std::uint64_t bits, char* to) {
    _mm512_storeu_si512(to, _mm512_maskz_compress_epi8(which, _mm512_movm_epi8(bits)));
}

// The pieces between single spaces that end in a window of the text, and their digits. Of integers
// a point is none of what is noted apart: it stays, and is found to be no digit.
template <bool areReals>
class Window {
  public:
    // Reads from the begin of a piece on; false where a piece would be empty.
    KO_AVX512 bool read(std::string_view text, unsigned long begin) {
        begins_[0] = begin;
        ends_[0] = ~std::uint32_t(0);
        count_ = 0;
        isOdd_ = false;
        hasExponents_ = false;
        State state;
        bool isRegular = true;
        const unsigned long stop = begin + std::min(size, text.size() - begin);
        for (unsigned long at = begin; isRegular && at <= stop; at += step)
            isRegular = note(text, at, state);
        isAtEnd_ = begins_[count_] > text.size();
        // Those who take eight at a time find places to read from behind the last one too.
        _mm512_storeu_si512(ends_ + 1 + count_, _mm512_set1_epi32(static_cast<int>(state.digits)));
        return isRegular;
    }

    bool isAtEnd() const { return isAtEnd_; }
    // Some piece has parts of a number in such numbers or places that what was noted of them cannot
    // be told from that of others.
    bool isOdd() const { return isOdd_; }
    unsigned long count() const { return count_; }
    // Where the pieces begin in the text, and where the one after them does.
    const unsigned long* begins() const { return begins_; }

    const char* digits() const { return digits_; }
    // Where the digits of each piece end, and before the first where those before it would have.
    const std::uint32_t* ends() const { return ends_ + 1; }
    // Where the digits after each point begin.
    const std::uint32_t* points() const { return points_; }
    bool hasExponents() const { return hasExponents_; }
    // The exponents, four characters each.
    const char* exponents() const { return exponents_; }
    // For each piece a byte that is not zero when it has an exponent, a point, or a minus.
    const char* haveExponents() const { return haveExponents_; }
    const char* havePoints() const { return havePoints_; }
    const char* areNegative() const { return areNegative_; }

  private:
    static constexpr unsigned long size = 2048;
    static constexpr unsigned long most = size / 2 + 3 * step;

    // What goes from one block to the next.
    struct State {
        std::uint64_t behindSpace = 1;
        std::uint64_t behindPoint = 0;
        std::uint64_t letters = 0;
        unsigned char hasPoint = 0;  // the piece that has not ended
        unsigned char hasLetter = 0;
        unsigned long exponents = 0;  // characters of them
        std::uint32_t digits = 0;
        unsigned long pieces = 0;  // begun
        unsigned long points = 0;
    };

    KO_AVX512_INLINE bool note(std::string_view text, unsigned long at, State& state) {
        // The end of the text counts as a space.
        const unsigned long left = text.size() - at;
        const std::uint64_t inText = left < step ? (std::uint64_t(1) << left) - 1 : allBits;
        const __m512i block = _mm512_maskz_loadu_epi8(inText, text.data() + at);
        const std::uint64_t spaces =
            _mm512_cmpeq_epi8_mask(block, _mm512_set1_epi8(' ')) | ((inText + 1) & ~inText);
        const std::uint64_t begins = spaces << 1 | state.behindSpace;
        if (spaces & begins) return false;
        const std::uint64_t minus =
            _mm512_mask_cmpeq_epi8_mask(begins, block, _mm512_set1_epi8('-'));
        std::uint64_t kept = ~minus;
        if (areReals) {
            kept &= ~noteExponents(block, spaces, state);
            kept = notePoints(block, spaces, kept, state);
        }
        _mm512_storeu_si512(digits_ + state.digits, _mm512_maskz_compress_epi8(kept, block));
        notePlaces(_pext_u64(spaces, kept), state.digits, ends_ + 1 + count_);
        state.digits += static_cast<std::uint32_t>(countOf(kept));
        noteBits(begins, minus, areNegative_ + state.pieces);
        state.pieces += countOf(begins);
        notePlaces(spaces, at + 1, begins_ + 1 + count_);
        count_ += countOf(spaces);
        state.behindSpace = spaces >> 63;
        return true;
    }

    // A bit for the letter of an exponent, added to the bits of its piece, is carried to the space
    // that ends it, and turns over those on its way; where it is carried past another letter, that
    // one's bit stays. A regular exponent has four characters. Returns those of all.
    KO_AVX512_INLINE std::uint64_t noteExponents(__m512i block, std::uint64_t spaces,
                                                 State& state) {
        const __m512i inLowerCase = _mm512_or_si512(block, _mm512_set1_epi8('a' - 'A'));
        const std::uint64_t letters = _mm512_cmpeq_epi8_mask(inLowerCase, _mm512_set1_epi8('e'));
        if (letters == 0 && state.hasLetter == 0) {
            _mm512_storeu_si512(haveExponents_ + count_, _mm512_setzero_si512());
            state.letters = 0;
            return 0;
        }
        unsigned long long carried = 0;
        state.hasLetter = _addcarry_u64(state.hasLetter, ~spaces, letters, &carried);
        const std::uint64_t ends = carried & spaces;
        const std::uint64_t exponents = ~spaces & ~carried;
        if ((carried & letters) != 0 || ends != (letters << 4 | state.letters >> 60)) isOdd_ = true;
        noteBits(spaces, ends, haveExponents_ + count_);
        _mm512_storeu_si512(exponents_ + state.exponents,
                            _mm512_maskz_compress_epi8(exponents, block));
        state.exponents += countOf(exponents);
        state.letters = letters;
        hasExponents_ = true;
        return exponents;
    }

    // Of `kept` returns what are no points. The bit for a point is carried likewise.
    KO_AVX512_INLINE std::uint64_t notePoints(__m512i block, std::uint64_t spaces,
                                              std::uint64_t kept, State& state) {
        const std::uint64_t points = _mm512_cmpeq_epi8_mask(block, _mm512_set1_epi8('.'));
        const std::uint64_t behindPoints = points << 1 | state.behindPoint;
        unsigned long long carried = 0;
        state.hasPoint = _addcarry_u64(state.hasPoint, ~spaces, points, &carried);
        if ((carried & points) != 0 || (behindPoints & ~kept) != 0) isOdd_ = true;
        noteBits(spaces, carried, havePoints_ + count_);
        const std::uint64_t behind = _pext_u64(behindPoints, kept & ~points);
        notePlaces(behind, state.digits, points_ + state.points);
        state.points += countOf(behind);
        state.behindPoint = points >> 63;
        return kept & ~points;
    }

    bool isAtEnd_ = false;
    bool isOdd_ = false;
    bool hasExponents_ = false;
    unsigned long count_ = 0;
    unsigned long begins_[most];
    std::uint32_t ends_[most];
    std::uint32_t points_[most];
    char haveExponents_[most];
    char havePoints_[most];
    char areNegative_[most];
    char exponents_[size + 3 * step];
    char digits_[size + 3 * step];
};

// --- Eight numbers ------------------------------------------------------------------------------

constexpr unsigned long octet = 8;
constexpr unsigned lanes = 16;

struct Octet {
    __m512i mantissa;  // of the last 16 digits
    __m512i head;      // of those before them
    __m256i power;     // of ten that scales them
    __mmask8 isNegative;
    __mmask8 isTall;   // has a head
    __mmask8 isPlain;  // is what can be read here
    bool isSimple;     // no head, no exponent
};

// How far what was noted of parts that not all pieces have was used.
struct Used {
    unsigned long points = 0;
    unsigned long exponents = 0;
};

// The byte of the first or of the last four of eight 32-bit words in all lanes of its quarter.
KO_AVX512_INLINE __m512i inQuarters(__m256i words, int first) {
    const __m512i sources =
        _mm512_set_epi64(0x0C0C0C0C0C0C0C0C, 0x0C0C0C0C0C0C0C0C, 0x0808080808080808,
                         0x0808080808080808, 0x0404040404040404, 0x0404040404040404, 0, 0);
    return _mm512_permutexvar_epi8(
        _mm512_add_epi8(sources, _mm512_set1_epi8(static_cast<char>(4 * first))),
        _mm512_castsi256_si512(words));
}

// The values of the digits of four numbers, each at the end of its quarter, zeros before them.
// Those of number i end at `ends`, after `text`.
KO_AVX512_INLINE __m512i digitsOf(const char* text, __m512i ends, __m512i lengths) {
    const __m512i beforeEnd = _mm512_broadcast_i32x4(
        _mm_setr_epi8(16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1));
    const __mmask64 inNumber = _mm512_cmple_epu8_mask(beforeEnd, lengths);
    const __m512i characters = _mm512_maskz_permutexvar_epi8(
        inNumber, _mm512_sub_epi8(ends, beforeEnd), _mm512_loadu_si512(text));
    return _mm512_maskz_sub_epi8(inNumber, characters, _mm512_set1_epi8('0'));
}

// A bit for each of two times four numbers that has no other than digits.
KO_AVX512_INLINE unsigned areDigits(__m512i first, __m512i second) {
    const __m512i nine = _mm512_set1_epi8(9);
    const __m512i firstOver = _mm512_subs_epu8(first, nine);
    const __m512i secondOver = _mm512_subs_epu8(second, nine);
    const unsigned halves = static_cast<unsigned>(_mm512_test_epi64_mask(firstOver, firstOver)) |
                            static_cast<unsigned>(_mm512_test_epi64_mask(secondOver, secondOver))
                                << 8;
    return ~_pext_u32(halves | halves >> 1, 0x5555);
}

KO_AVX512_INLINE __m512i fourDigitSums(__m512i digits) {
    return _mm512_madd_epi16(_mm512_maddubs_epi16(digits, _mm512_set1_epi16(10 | 1 << 8)),
                             _mm512_set1_epi32(100 | 1 << 16));
}

// In their order, from four quarters and four quarters.
KO_AVX512_INLINE __m512i mantissasOf(__m512i first, __m512i second) {
    const __m512i fours = _mm512_packus_epi32(fourDigitSums(first), fourDigitSums(second));
    const __m512i eights = _mm512_madd_epi16(fours, _mm512_set1_epi32(10000 | 1 << 16));
    const __m512i higher = _mm512_mul_epu32(eights, _mm512_set1_epi64(100000000));
    const __m512i mixed = _mm512_add_epi64(higher, _mm512_srli_epi64(eights, 32));
    return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), mixed);
}

KO_AVX512_INLINE __mmask8 bytesToBits(const char* bytes) {
    const __m128i eight = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
    return static_cast<__mmask8>(_mm_movepi8_mask(eight));
}

KO_AVX512_INLINE __m256i loadWords(const std::uint32_t* words) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(words));
}

// Where eight numbers stand among the digits.
struct Places {
    const char* first;  // the text of the first four
    const char* fifth;
    __m256i ends;
    __m256i lengths;
    __m256i behind;  // ends after the text of each four

    KO_AVX512_INLINE Places(const char* digits, const std::uint32_t* numberEnds)
        : first(digits + (numberEnds[-1] + 1)),
          fifth(digits + (numberEnds[3] + 1)),
          ends(loadWords(numberEnds)) {
        const __m256i begins = _mm256_add_epi32(loadWords(numberEnds - 1), _mm256_set1_epi32(1));
        const __m256i fours = _mm256_setr_epi32(0, 0, 0, 0, 4, 4, 4, 4);
        lengths = _mm256_sub_epi32(ends, begins);
        behind = _mm256_sub_epi32(ends, _mm256_permutevar8x32_epi32(begins, fours));
    }
};

// What the last 16 digits of each make.
KO_AVX512_INLINE __m512i lastDigits(const Places& places, __mmask8& isPlain) {
    const __m512i first =
        digitsOf(places.first, inQuarters(places.behind, 0), inQuarters(places.lengths, 0));
    const __m512i second =
        digitsOf(places.fifth, inQuarters(places.behind, 4), inQuarters(places.lengths, 4));
    isPlain &= static_cast<__mmask8>(areDigits(first, second));
    return mantissasOf(first, second);
}

// The same of the digits before those.
KO_AVX512_INLINE __m512i headsOf(const Places& places, __mmask8& isPlain) {
    const __m256i taken = _mm256_set1_epi32(lanes);
    Places heads = places;
    heads.behind = _mm256_sub_epi32(places.behind, taken);
    heads.lengths = _mm256_sub_epi32(_mm256_max_epu32(places.lengths, taken), taken);
    return lastDigits(heads, isPlain);
}

constexpr unsigned long exponentLength = 4;

// Exponents of a sign and two digits.
KO_AVX512_INLINE __m256i exponentsOf(__m256i characters, __mmask8 which, __mmask8& isPlain) {
    const __m256i zero = _mm256_set1_epi32('0');
    const __m256i nine = _mm256_set1_epi32(9);
    const __m256i byte = _mm256_set1_epi32(0xFF);
    const __m256i tens =
        _mm256_sub_epi32(_mm256_and_si256(_mm256_srli_epi32(characters, 16), byte), zero);
    const __m256i ones = _mm256_sub_epi32(_mm256_srli_epi32(characters, 24), zero);
    const __m256i sign = _mm256_and_si256(_mm256_srli_epi32(characters, 8), byte);
    const __mmask8 isMinus = _mm256_cmpeq_epi32_mask(sign, _mm256_set1_epi32('-'));
    const __mmask8 isPlus = _mm256_cmpeq_epi32_mask(sign, _mm256_set1_epi32('+'));
    const __mmask8 hasDigits =
        _mm256_cmple_epu32_mask(tens, nine) & _mm256_cmple_epu32_mask(ones, nine);
    isPlain &= static_cast<__mmask8>(~which | ((isMinus | isPlus) & hasDigits));
    const __m256i size = _mm256_add_epi32(_mm256_mullo_epi32(tens, _mm256_set1_epi32(10)), ones);
    return _mm256_mask_sub_epi32(_mm256_maskz_mov_epi32(which, size), which & isMinus,
                                 _mm256_setzero_si256(), size);
}

// Minus the digits after the point, and the exponent.
KO_AVX512_INLINE __m256i powersOf(const Window<true>& window, unsigned long first, __m256i ends,
                                  Used& used, __mmask8& isPlain) {
    const __mmask8 pointed = bytesToBits(window.havePoints() + first);
    const __m256i begun =
        _mm256_maskz_expand_epi32(pointed, loadWords(window.points() + used.points));
    const __m256i power = _mm256_maskz_sub_epi32(pointed, begun, ends);
    used.points += countOf(pointed);
    if (!window.hasExponents()) return power;
    const __mmask8 which = bytesToBits(window.haveExponents() + first);
    const __m256i characters = _mm256_maskz_expand_epi32(
        which, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(
                   window.exponents() + exponentLength * used.exponents)));
    used.exponents += countOf(which);
    return _mm256_add_epi32(power, exponentsOf(characters, which, isPlain));
}

template <bool areReals>
KO_AVX512_INLINE Octet readOctet(const Window<areReals>& window, unsigned long first, Used& used) {
    const Places places(window.digits(), window.ends() + first);
    Octet numbers{};
    numbers.isNegative = bytesToBits(window.areNegative() + first);
    numbers.isTall = _mm256_cmpgt_epu32_mask(places.lengths, _mm256_set1_epi32(lanes));
    // Those that have digits, and stand near enough to the first of the four.
    const __m256i reach = _mm256_set1_epi32(static_cast<int>(step));
    numbers.isPlain = _mm256_test_epi32_mask(places.lengths, places.lengths) &
                      _mm256_cmple_epu32_mask(places.behind, reach);
    numbers.mantissa = lastDigits(places, numbers.isPlain);
    if constexpr (areReals) {
        numbers.power = powersOf(window, first, places.ends, used, numbers.isPlain);
        numbers.isSimple = numbers.isTall == 0 && !window.hasExponents();
        if (numbers.isTall) {
            const __m256i most = _mm256_set1_epi32(2 * lanes);
            numbers.isPlain &= _mm256_cmple_epu32_mask(places.lengths, most);
            numbers.head = headsOf(places, numbers.isPlain);
        }
    } else {
        numbers.isPlain &= static_cast<__mmask8>(~numbers.isTall);
    }
    return numbers;
}

// Eight reals without their signs.
struct Reals {
    __m512d magnitude;
    __mmask8 isExact;  // rounded once, as it should be
};

// An exact mantissa divided by an exact power of ten.
KO_AVX512_INLINE Reals simpleReals(Octet& numbers) {
    const __m512d lowPowers = _mm512_setr_pd(1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7);
    const __m512d highPowers = _mm512_setr_pd(1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15);
    const __m512i fraction =
        _mm512_cvtepi32_epi64(_mm256_sub_epi32(_mm256_setzero_si256(), numbers.power));
    numbers.isPlain &= _mm512_cmplt_epu64_mask(fraction, _mm512_set1_epi64(2 * octet));
    const __m512d divisors = _mm512_permutex2var_pd(lowPowers, fraction, highPowers);
    return {_mm512_div_pd(_mm512_cvtepi64_pd(numbers.mantissa), divisors),
            _mm512_cmple_epu64_mask(numbers.mantissa, _mm512_set1_epi64(1LL << 53))};
}

constexpr int largestPower = 31;
constexpr int largestExactPower = 22;
constexpr double powersOf10[largestPower + 1] = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
    1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22, 1e23, 1e24, 1e25, 1e26, 1e27, 1e28, 1e29, 1e30, 1e31};

// The same with heads and exponents, a few steps rounded.
KO_AVX512_INLINE Reals scaledReals(Octet& numbers) {
    const __m256i size = _mm256_abs_epi32(numbers.power);
    const __m256i largest = _mm256_set1_epi32(largestPower);
    numbers.isPlain &= _mm256_cmple_epu32_mask(size, largest);
    const __m512d powers =
        _mm512_i32gather_pd(_mm256_min_epu32(size, largest), powersOf10, sizeof(double));
    const __m512d whole =
        _mm512_add_pd(_mm512_mul_pd(_mm512_cvtepi64_pd(numbers.head), _mm512_set1_pd(1e16)),
                      _mm512_cvtepi64_pd(numbers.mantissa));
    const __mmask8 isDivided = _mm256_cmplt_epi32_mask(numbers.power, _mm256_setzero_si256());
    const __mmask8 isExact = static_cast<__mmask8>(
        ~numbers.isTall & _mm512_cmple_epu64_mask(numbers.mantissa, _mm512_set1_epi64(1LL << 53)) &
        _mm256_cmple_epu32_mask(size, _mm256_set1_epi32(largestExactPower)));
    return {_mm512_mask_div_pd(_mm512_mul_pd(whole, powers), isDivided, whole, powers), isExact};
}

KO_AVX512_INLINE Reals realsOf(Octet& numbers) {
    return numbers.isSimple ? simpleReals(numbers) : scaledReals(numbers);
}

KO_AVX512_INLINE __m512d withSigns(const Octet& numbers, __m512d magnitude) {
    return _mm512_mask_sub_pd(magnitude, numbers.isNegative, _mm512_set1_pd(-0.0), magnitude);
}

// Each of these writes the numbers that it vouches for, and leaves the places of others.

KO_AVX512_INLINE void store(Octet& numbers, double* out) {
    const Reals reals = realsOf(numbers);
    numbers.isPlain &= reals.isExact;
    _mm512_mask_storeu_pd(out, numbers.isPlain, withSigns(numbers, reals.magnitude));
}

// What the steps rounded matters only where a double is near the middle of two floats. There is no
// subnormal float among these.
KO_AVX512_INLINE void store(Octet& numbers, float* out) {
    constexpr long long uncertain = 64;  // twice the units of its last bit
    const __m512d magnitude = realsOf(numbers).magnitude;
    const __m512i lost = _mm512_and_si512(
        _mm512_add_epi64(_mm512_castpd_si512(magnitude), _mm512_set1_epi64(uncertain / 2)),
        _mm512_set1_epi64(0x20000000 - uncertain));
    const __m512d largest = _mm512_set1_pd(std::numeric_limits<float>::max());
    numbers.isPlain &=
        static_cast<__mmask8>(_mm512_cmpneq_epi64_mask(lost, _mm512_set1_epi64(0x10000000)) &
                              _mm512_cmp_pd_mask(magnitude, largest, _CMP_LE_OQ));
    _mm256_mask_storeu_ps(out, numbers.isPlain, _mm512_cvtpd_ps(withSigns(numbers, magnitude)));
}

template <class Integer>
KO_AVX512_INLINE void put(__m512i values, __mmask8 which, Integer* out) {
    if constexpr (sizeof(Integer) == 1) {
        _mm512_mask_cvtepi64_storeu_epi8(out, which, values);
    } else if constexpr (sizeof(Integer) == 2) {
        _mm512_mask_cvtepi64_storeu_epi16(out, which, values);
    } else if constexpr (sizeof(Integer) == 4) {
        _mm512_mask_cvtepi64_storeu_epi32(out, which, values);
    } else {
        _mm512_mask_storeu_epi64(out, which, values);
    }
}

template <class Integer>
KO_AVX512_INLINE void store(Octet& numbers, Integer* out) {
    constexpr bool isSigned = std::is_signed_v<Integer>;
    const __m512i largest =
        _mm512_set1_epi64(static_cast<long long>(std::numeric_limits<Integer>::max()));
    const __m512i one = _mm512_set1_epi64(1);
    const __m512i limit =
        isSigned ? _mm512_mask_add_epi64(largest, numbers.isNegative, largest, one) : largest;
    numbers.isPlain &= _mm512_cmple_epu64_mask(numbers.mantissa, limit);
    if (!isSigned) numbers.isPlain &= static_cast<__mmask8>(~numbers.isNegative);
    put(_mm512_mask_sub_epi64(numbers.mantissa, numbers.isNegative, _mm512_setzero_si512(),
                              numbers.mantissa),
        numbers.isPlain, out);
}

// --- A text -------------------------------------------------------------------------------------

// Converts the pieces of a window; true when all are converted.
template <class Scalar, bool areReals>
KO_AVX512 bool convertWindow(const Window<areReals>& window, const avx2::Batch<Scalar>& batch) {
    if (window.isOdd()) return avx2::convertBatch(batch);
    bool allConverted = true;
    Used used;
    for (unsigned long first = 0; first < batch.count; first += step) {
        std::uint64_t left = 0;
        const unsigned long count = std::min(batch.count - first, step);
        for (unsigned long i = 0; i < count; i += octet) {
            Octet numbers = readOctet(window, first + i, used);
            const unsigned wanted = count - i < octet ? (1U << (count - i)) - 1 : 0xFF;
            numbers.isPlain &= static_cast<__mmask8>(wanted);
            store(numbers, batch.out + first + i);
            left |= static_cast<std::uint64_t>(wanted & ~numbers.isPlain) << i;
        }
        if (left && !avx2::convertLeft(batch, first, left)) allConverted = false;
    }
    return allConverted;
}

template <class Scalar>
KO_AVX512 Conversion convertAs(std::string_view text, unsigned char* dest, unsigned long room) {
    Conversion result;
    auto* const out = reinterpret_cast<Scalar*>(dest);
    Window<std::is_floating_point_v<Scalar>> window;
    unsigned long begin = 0;
    bool isRegular = true;
    do {
        isRegular = window.read(text, begin);
        const unsigned long count = std::min(window.count(), room - result.count);
        const avx2::Batch<Scalar> batch{text.data(), window.begins(), count, out + result.count};
        if (!convertWindow(window, batch)) result.allConverted = false;
        result.count += count;
        begin = window.begins()[count];
        if (count < window.count()) {
            result.excess = batch.piece(count);
            return result;
        }
        // A piece longer than a window.
        if (count == 0) isRegular = false;
    } while (isRegular && !window.isAtEnd());
    if (isRegular) return result;
    Conversion rest = plainOperations.convertNumbers(
        text.substr(std::min(begin, text.size())), dataTypeOf<Scalar>(),
        dest + result.count * sizeof(Scalar), room - result.count);
    rest.count += result.count;
    rest.allConverted = rest.allConverted && result.allConverted;
    return rest;
}

struct Conversions {
    template <class Scalar>
    static Conversion as(std::string_view text, unsigned char* dest, unsigned long room) {
        return convertAs<Scalar>(text, dest, room);
    }
    static Conversion other(std::string_view text, DataType type, unsigned char* dest,
                            unsigned long room) {
        return plainOperations.convertNumbers(text, type, dest, room);
    }
};

Conversion convertNumbers(std::string_view text, DataType type, unsigned char* dest,
                          unsigned long room) {
    return convertByType<Conversions>(text, type, dest, room);
}

}  // namespace

bool isSupported() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
           __builtin_cpu_supports("bmi2");
}

}  // namespace avx512

const Operations avx512Operations = {avx512::copyNumbers, avx512::convertNumbers,
                                     avx512::countBreaks};

}  // namespace ko::bulk

#else

namespace ko::bulk {

const Operations avx512Operations = plainOperations;

}  // namespace ko::bulk

#endif
