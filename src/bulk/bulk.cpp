#include "bulk/bulk.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "bulk/charclass.h"
#include "foundation/words.h"

namespace ko::bulk {

namespace {

// --- One number ---------------------------------------------------------------------------------

template <class Integer>
bool convertInteger(std::string_view text, unsigned char* dest) noexcept {
    Integer value = 0;
    if (!parseInteger(text, value, String::Auto)) return false;
    std::memcpy(dest, &value, sizeof value);
    return true;
}

template <class Real>
bool convertReal(std::string_view text, unsigned char* dest) noexcept {
    Real value = 0;
    if (!parseNumber(text, value)) return false;
    std::memcpy(dest, &value, sizeof value);
    return true;
}

// --- The plain path: copying --------------------------------------------------------------------

// Sixteen characters are looked at in one go, since few numbers are longer: that one ends in the
// first or the second eight is hard to foresee.
constexpr long pairSize = 2 * words::size;

#if defined(__SSE2__)

__m128i load(const char* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }

unsigned bitsOf(__m128i wide) { return static_cast<unsigned>(_mm_movemask_epi8(wide)); }

// A bit for each of 16 characters that is a space.
unsigned spacesAmong(const char* at) {
    return bitsOf(_mm_cmpeq_epi8(load(at), _mm_set1_epi8(' ')));
}

// A bit for each of 16 characters that is no digit, point or minus, as most of a number are.
unsigned othersAmong(const char* at) {
    const __m128i text = load(at);
    const __m128i isBelow = _mm_cmplt_epi8(text, _mm_set1_epi8('-'));
    const __m128i isAbove = _mm_cmpgt_epi8(text, _mm_set1_epi8('9'));
    const __m128i isSlash = _mm_cmpeq_epi8(text, _mm_set1_epi8('/'));
    return bitsOf(_mm_or_si128(_mm_or_si128(isBelow, isAbove), isSlash));
}

#else

unsigned spacesAmong(const char* at) {
    return words::gathered(words::equal(words::load(at), ' '),
                           words::equal(words::load(at + words::size), ' '));
}

words::Word others(words::Word text) {
    const words::Word low = text & ~words::highBits;
    const words::Word fromMinus = low + words::all(0x80 - '-');
    const words::Word behindNine = low + words::all(0x7F - '9');
    return ~fromMinus | behindNine | text | words::equal(text, '/');
}

unsigned othersAmong(const char* at) {
    return words::gathered(others(words::load(at)), others(words::load(at + words::size)));
}

#endif

// Copies the characters of a number at `from`; writes whole words.
Copied copyNumber(const char* from, const char* end, char* to) {
    unsigned others = 0;
    while (others == 0 && end - from >= pairSize) {
        others = othersAmong(from);
        std::memcpy(to, from, pairSize);
        const long count = others ? __builtin_ctz(others) : pairSize;
        from += count;
        to += count;
    }
    while (from != end && chars::is(*from, chars::NumberPart))
        *to++ = *from++;
    return {from, to};
}

Copied copyNumbers(const char* from, const char* end, char* to, Group group) {
    const chars::Class gap = group == Group::Parens ? chars::ParensGap : chars::BracesGap;
    for (;;) {
        const Copied copied = copyNumber(from, end, to);
        from = chars::skip(copied.read, end, gap);
        if (from == end || !chars::is(*from, chars::NumberPart)) return copied;
        to = copied.written;
        *to++ = ' ';
    }
}

// --- The plain path: converting -----------------------------------------------------------------
//
// Sixteen characters up to the end of a number are taken as two words. Their point is squeezed out,
// and their digits are added up side by side. What is not just digits with a sign and a point, and
// what the arithmetic here cannot vouch for, goes to `convertNumber`.

constexpr unsigned long mostDigits = 2 * words::size;

struct Plain {
    bool isNegative = false;
    bool hasPoint = false;
    unsigned long behindPoint = 0;  // digits
    std::uint64_t mantissa = 0;     // below 10^16
};

// The last `count` bytes of a word, zeros before them. In two steps: no shift may be by all bits.
words::Word last(words::Word word, unsigned long count) {
    const unsigned long half = 4 * (words::size - count);
    return word >> half >> half << half << half;
}

// Takes out the byte whose place `point` marks: those before it move up, `fill` comes first.
words::Word without(words::Word point, words::Word word, words::Word fill) {
    const words::Word before = (point >> 7U) - 1;
    const words::Word behind = ~(before << 8U | 0xFFU);
    return (word & behind) | (word & before) << 8U | fill;
}

// Of the values of so many digits and a point, at the ends of two words with zeros before them.
bool addUp(words::Word higher, words::Word lower, unsigned long length, Plain& number) {
    constexpr char point = '.' ^ '0';
    const words::Word inLow = words::equal(lower, point);
    const words::Word inHigh = words::equal(higher, point);
    number.hasPoint = (inLow | inHigh) != 0;
    if (inLow) {
        number.behindPoint = words::size - 1 - words::first(inLow);
        lower = without(inLow & -inLow, lower, higher >> 56U);
        higher <<= 8U;
    } else if (inHigh) {
        number.behindPoint = mostDigits - 1 - words::first(inHigh);
        higher = without(inHigh & -inHigh, higher, 0);
    }
    if (number.hasPoint && length == 1) return false;
    number.mantissa = words::sumOfDigits(higher) * 100000000 + words::sumOfDigits(lower);
    return words::areDigits(lower) && words::areDigits(higher);
}

// A double that lies just between two floats may have been rounded to there.
bool isBetweenFloats(double number) {
    constexpr std::uint64_t lostBits = 0x1FFFFFFF;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return (bits & lostBits) == (lostBits + 1) / 2;
}

// Of [begin, end), which 16 characters of the same text stand before or in. This and the next are
// false for what they cannot read.
bool readPlain(const char* begin, const char* end, Plain& number) {
    number.isNegative = *begin == '-';
    begin += number.isNegative ? 1 : 0;
    const auto length = static_cast<unsigned long>(end - begin);
    if (length == 0 || length > mostDigits) return false;
    const unsigned long inLower = std::min(length, words::size);
    const words::Word lower = words::digitValues(words::load(end - words::size));
    const words::Word higher = words::digitValues(words::load(end - mostDigits));
    return addUp(last(higher, length - inLower), last(lower, inLower), length, number);
}

// As `addUp`, of at most 8 characters.
[[gnu::always_inline]] inline bool addUpFew(words::Word word, unsigned long length, Plain& number) {
    const words::Word point = words::equal(word, '.' ^ '0');
    if (point) {
        if (length == 1) return false;
        number.hasPoint = true;
        number.behindPoint = words::size - 1 - words::first(point);
        word = without(point & -point, word, 0);
    }
    number.mantissa = words::sumOfDigits(word);
    return words::areDigits(word);
}

// Of so few characters that they and their sign stand in 16 that begin with them.
[[gnu::always_inline]] inline bool readPlainAhead(const char* at, unsigned long length,
                                                  Plain& number) {
    number.isNegative = *at == '-';
    if (number.isNegative) {
        ++at;
        --length;
    }
    if (length == 0 || length >= mostDigits) return false;
    const words::Word first = words::digitValues(words::load(at));
    if (length <= words::size) {
        return addUpFew(first << 8 * (words::size - length), length, number);
    }
    const words::Word lower = words::digitValues(words::load(at + length - words::size));
    return addUp(first << 8 * (mostDigits - length), lower, length, number);
}

// An exact mantissa divided by an exact power of ten is rounded once, as it should be.
template <class Real>
bool valueOf(const Plain& number, Real& value) {
    static constexpr double divisors[2][mostDigits] = {
        {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15},
        {-1e0, -1e1, -1e2, -1e3, -1e4, -1e5, -1e6, -1e7, -1e8, -1e9, -1e10, -1e11, -1e12, -1e13,
         -1e14, -1e15}};
    constexpr std::uint64_t exactLimit = std::uint64_t(1) << 53;
    const double exact = static_cast<double>(static_cast<std::int64_t>(number.mantissa)) /
                         divisors[number.isNegative][number.behindPoint];
    value = static_cast<Real>(exact);
    if (std::is_same_v<Real, float> && isBetweenFloats(exact)) return false;
    return number.mantissa <= exactLimit;
}

template <class Integer>
bool integerOf(const Plain& number, Integer& value) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<Integer>::max());
    constexpr bool isSigned = std::is_signed_v<Integer>;
    const std::uint64_t isNegative = number.isNegative;
    value = static_cast<Integer>((number.mantissa ^ (0 - isNegative)) + isNegative);
    return !number.hasPoint && (isSigned || !number.isNegative) &&
           number.mantissa <= largest + (isSigned ? isNegative : 0);
}

template <class Scalar>
bool writeAs(const Plain& number, void* dest) {
    Scalar value = 0;
    if constexpr (std::is_floating_point_v<Scalar>) {
        if (!valueOf(number, value)) return false;
    } else {
        if (!integerOf(number, value)) return false;
    }
    std::memcpy(dest, &value, sizeof value);
    return true;
}

template <class Scalar>
bool convertPlain(std::string_view text, unsigned char* dest) {
    Plain number;
    return readPlain(text.data(), text.data() + text.size(), number) &&
           writeAs<Scalar>(number, dest);
}

// Converts a piece that has, or has not, 16 characters of text before its end.
using Convert = bool (*)(std::string_view piece, bool isDeep, unsigned char* dest);

template <class Scalar>
bool convertPiece(std::string_view piece, bool isDeep, unsigned char* dest) {
    return (isDeep && convertPlain<Scalar>(piece, dest)) ||
           convertNumber(piece, dataTypeOf<Scalar>(), dest);
}

bool refusePiece(std::string_view, bool, unsigned char*) { return false; }

// The next space from `at` on, or the end.
const char* nextSpace(const char* at, const char* end) {
    for (; end - at >= pairSize; at += pairSize) {
        const unsigned spaces = spacesAmong(at);
        if (spaces) return at + __builtin_ctz(spaces);
    }
    return std::find(at, end, ' ');
}

template <Convert convert>
Conversion convertEach(std::string_view text, unsigned long size, unsigned char* dest,
                       unsigned long room) {
    Conversion result;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at != end;) {
        const char* const begin = at;
        const char* const stop = nextSpace(begin, end);
        at = stop == end ? end : stop + 1;
        if (begin == stop) continue;
        const std::string_view piece(begin, static_cast<unsigned long>(stop - begin));
        if (result.count == room) {
            result.excess = piece;
            break;
        }
        const bool isDeep = stop - text.data() >= static_cast<long>(mostDigits);
        if (!convert(piece, isDeep, dest)) result.allConverted = false;
        dest += size;
        ++result.count;
    }
    return result;
}

template <class Scalar>
Conversion convertAs(std::string_view text, unsigned char* dest, unsigned long room) {
    return convertEach<convertPiece<Scalar>>(text, sizeof(Scalar), dest, room);
}

struct Conversions {
    template <class Scalar>
    static Conversion as(std::string_view text, unsigned char* dest, unsigned long room) {
        return convertAs<Scalar>(text, dest, room);
    }
    static Conversion other(std::string_view text, DataType /*type*/, unsigned char* dest,
                            unsigned long room) {
        return convertEach<refusePiece>(text, 0, dest, room);
    }
};

Conversion convertNumbers(std::string_view text, DataType type, unsigned char* dest,
                          unsigned long room) {
    return convertByType<Conversions>(text, type, dest, room);
}

unsigned long countBreaks(std::string_view text) {
    constexpr unsigned long mostWords = 255;  // that a byte can count
    unsigned long count = 0;
    while (text.size() >= words::size) {
        const unsigned long some = std::min(text.size() / words::size, mostWords);
        words::Word counts = 0;
        for (unsigned long i = 0; i < some; ++i)
            counts += words::equal(words::load(text.data() + i * words::size), '\n') >> 7U;
        for (; counts; counts >>= 8U)
            count += counts & 0xFFU;
        text.remove_prefix(some * words::size);
    }
    return count + static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

template <class Scalar>
bool convertAhead(const char* at, unsigned long length, void* dest) noexcept {
    Plain number;
    return readPlainAhead(at, length, number) && writeAs<Scalar>(number, dest);
}

template bool convertAhead<long>(const char*, unsigned long, void*) noexcept;
template bool convertAhead<double>(const char*, unsigned long, void*) noexcept;

bool convertNumber(std::string_view text, DataType type, unsigned char* dest) noexcept {
    switch (singleNumber(type)) {
        case NumberType::Char: return convertInteger<signed char>(text, dest);
        case NumberType::Byte: return convertInteger<unsigned char>(text, dest);
        case NumberType::Int16: return convertInteger<short>(text, dest);
        case NumberType::Int32: return convertInteger<int>(text, dest);
        case NumberType::Int64: return convertInteger<long>(text, dest);
        case NumberType::UInt16: return convertInteger<unsigned short>(text, dest);
        case NumberType::UInt32: return convertInteger<unsigned int>(text, dest);
        case NumberType::UInt64: return convertInteger<unsigned long>(text, dest);
        case NumberType::Float: return convertReal<float>(text, dest);
        case NumberType::Double: return convertReal<double>(text, dest);
        case NumberType::None:
        case NumberType::Bool:
        case NumberType::Ptr: break;
    }
    return false;
}

const Operations plainOperations = {copyNumbers, convertNumbers, countBreaks};

// --- The choice ---------------------------------------------------------------------------------

namespace {

std::atomic<const Operations*> chosen{nullptr};

const Operations& operationsOf(Path path) noexcept {
    switch (path) {
        case Path::Avx512: return avx512Operations;
        case Path::Avx2: return avx2Operations;
        case Path::Plain: break;
    }
    return plainOperations;
}

Path fastest() noexcept {
    for (const Path path : {Path::Avx512, Path::Avx2})
        if (hasPath(path)) return path;
    return Path::Plain;
}

}  // namespace

const Operations& operations() noexcept {
    const Operations* now = chosen.load(std::memory_order_relaxed);
    if (!now) {
        now = &operationsOf(fastest());
        chosen.store(now, std::memory_order_relaxed);
    }
    return *now;
}

void usePath(Path path) noexcept { chosen.store(&operationsOf(path), std::memory_order_relaxed); }

}  // namespace ko::bulk
