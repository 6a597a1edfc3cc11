// The operations of bulk.h in AVX2, compiled for it function by function so that the rest of the
// library runs on any machine.
#include "bulk.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "charclass.h"

namespace ko::bulk {

bool hasPath(Path path) noexcept {
    return path == Path::Plain ||
           (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
            __builtin_cpu_supports("popcnt"));
}

namespace {

#define KO_AVX2 [[gnu::target("avx2,bmi,popcnt")]]

// --- Copying ------------------------------------------------------------------------------------
//
// A character's class is the bits that the tables share for its low and its high four bits: 0 to 3
// for numbers, 4 to 7 for what separates them.

struct ClassTables {
    alignas(16) std::uint8_t low[16];
    alignas(16) std::uint8_t high[16];
};

constexpr std::uint8_t numberBits = 0x0F;
constexpr std::uint8_t digit = 1;       // 0-9
constexpr std::uint8_t letter = 2;      // A-F, I, N and a-f, i, n
constexpr std::uint8_t letterU = 4;     // U, u
constexpr std::uint8_t sign = 8;        // + - .
constexpr std::uint8_t control = 16;    // below the space
constexpr std::uint8_t separator = 32;  // space, comma; in braces ( and )
constexpr std::uint8_t bracket = 64;    // [ and ]; in parens { and }
constexpr std::uint8_t del = 128;       // 0x7F

constexpr ClassTables makeTables(Group group) {
    ClassTables tables{};
    for (int i = 0; i < 16; ++i) {
        int low = control;
        if (i <= 9) low |= digit;
        if ((i >= 1 && i <= 6) || i == 9 || i == 14) low |= letter;
        if (i == 5) low |= letterU;
        if (i == 11 || i == 13 || i == 14) low |= sign;
        if (i == 0 || i == 12) low |= separator;
        if (group == Group::Braces && (i == 8 || i == 9)) low |= separator;
        if (i == 11 || i == 13) low |= bracket;
        if (i == 15) low |= del;
        tables.low[i] = static_cast<std::uint8_t>(low);
    }
    tables.high[0] = control;
    tables.high[1] = control;
    tables.high[2] = sign | separator;
    tables.high[3] = digit;
    tables.high[4] = letter;
    tables.high[5] = letterU | bracket;
    tables.high[6] = letter;
    tables.high[7] = letterU | del;
    if (group == Group::Parens) tables.high[7] |= bracket;
    return tables;
}

constexpr ClassTables parensTables = makeTables(Group::Parens);
constexpr ClassTables bracesTables = makeTables(Group::Braces);

struct Masks {
    std::uint64_t number;
    std::uint64_t other;  // neither of a number nor between numbers
};

KO_AVX2 inline __m256i broadcast(const std::uint8_t (&table)[16]) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}

KO_AVX2 inline std::uint64_t joined(__m256i first, __m256i second) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(first)) |
           static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(second)))
               << 32;
}

KO_AVX2 inline __m256i load(const char* at) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
}

KO_AVX2 inline __m256i classify(__m256i text, __m256i low, __m256i high) {
    const __m256i nibble = _mm256_set1_epi8(0x0F);
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(text, 4), nibble);
    return _mm256_and_si256(_mm256_shuffle_epi8(low, _mm256_and_si256(text, nibble)),
                            _mm256_shuffle_epi8(high, upper));
}

KO_AVX2 inline Masks masksOf(const char* at, __m256i low, __m256i high) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i numbers = _mm256_set1_epi8(numberBits);
    const __m256i first = classify(load(at), low, high);
    const __m256i second = classify(load(at + 32), low, high);
    return {~joined(_mm256_cmpeq_epi8(_mm256_and_si256(first, numbers), zero),
                    _mm256_cmpeq_epi8(_mm256_and_si256(second, numbers), zero)),
            joined(_mm256_cmpeq_epi8(first, zero), _mm256_cmpeq_epi8(second, zero))};
}

// Appends `length` characters at `from`; writes up to a multiple of 16 of them.
KO_AVX2 inline void append(Copied& copied, const char* from, unsigned long length) {
    constexpr unsigned long step = 16;  // known to the compiler: one load and one store
    for (unsigned long done = 0; done < length; done += step)
        std::memcpy(copied.written + done, from + done, step);
    copied.written += length;
    copied.read = from + length;
}

// 64 characters at a time, the last of them by the plain path: each run of a number is copied
// whole, a space before it where a gap stands before it.
KO_AVX2 Copied copyNumbers(const char* from, const char* end, char* to, Group group) {
    constexpr long step = 64;
    const ClassTables& tables = group == Group::Parens ? parensTables : bracesTables;
    const __m256i low = broadcast(tables.low);
    const __m256i high = broadcast(tables.high);
    Copied done;
    done.read = from;
    done.written = to;
    bool inNumber = true;
    while (end - from >= step + 16) {
        const Masks masks = masksOf(from, low, high);
        std::uint64_t numbers = masks.number;
        if (masks.other) numbers &= _blsmsk_u64(masks.other);
        while (numbers) {
            const auto start = static_cast<unsigned long>(_tzcnt_u64(numbers));
            const std::uint64_t behind = ~(numbers >> start);
            const unsigned long left = 64 - start;
            const unsigned long length =
                behind ? std::min(left, static_cast<unsigned long>(_tzcnt_u64(behind))) : left;
            if (start != 0 || !inNumber) *done.written++ = ' ';
            append(done, from + start, length);
            numbers = start + length < 64 ? numbers >> (start + length) << (start + length) : 0;
        }
        if (masks.other) return done;
        inNumber = done.read == from + step;
        from += step;
    }
    // What is left may go on with the number, or with a gap that leads to one.
    const char* const next =
        chars::skip(from, end, group == Group::Parens ? chars::ParensGap : chars::BracesGap);
    if (next == end || !chars::is(*next, chars::NumberPart)) return done;
    if (!inNumber || next != from) *done.written++ = ' ';
    return plainOperations.copyNumbers(next, end, done.written, group);
}

// --- Converting ---------------------------------------------------------------------------------
//
// The edges of many numbers are found first, from bitmaps of the spaces; then four numbers of up to
// 16 characters, sign and point included, are converted side by side. Each is loaded so that it
// ends with its half of a register, its point squeezed out and its digits added up pairwise into
// one integer, the mantissa. Whatever is not plain digits, and a result whose rounding the
// arithmetic here cannot vouch for, is left to `convertNumber`.

constexpr unsigned long quad = 4;
constexpr long lanes = 16;

struct Piece {
    const char* begin;
    const char* end;
};

struct Quad {
    __m256i mantissa;  // below 10^16
    __m256i negative;  // 1 or 0
    __m256d scale;     // 10^digits behind the point
    unsigned pointed;  // a bit for each number with a point
    unsigned odd;      // a bit for each that is not plain
};

constexpr double powersOf10[lanes] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

KO_AVX2 inline __m256i inHalves(int first, int second) {
    return _mm256_inserti128_si256(_mm256_set1_epi8(static_cast<char>(first)),
                                   _mm_set1_epi8(static_cast<char>(second)), 1);
}

KO_AVX2 inline __m256i endingAt(const char* first, const char* second) {
    const auto* const low = reinterpret_cast<const __m128i*>(first - lanes);
    const auto* const high = reinterpret_cast<const __m128i*>(second - lanes);
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(low)),
                                   _mm_loadu_si128(high), 1);
}

// What was found out about two numbers side by side.
struct Pair {
    __m256i digits;  // four 16-bit sums of four digits in each half, as 32-bit words
    unsigned minus[2];
    unsigned fraction[2];  // digits behind the point
    unsigned pointed;
    unsigned odd;
};

KO_AVX2 inline Pair readPair(const Piece* pieces) {
    const __m256i lane = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
    const __m256i zero = _mm256_set1_epi8('0');
    const long lengths[] = {pieces[0].end - pieces[0].begin, pieces[1].end - pieces[1].begin};
    const int first[] = {static_cast<int>(lanes - lengths[0]),
                         static_cast<int>(lanes - lengths[1])};

    __m256i text = endingAt(pieces[0].end, pieces[1].end);
    text = _mm256_blendv_epi8(text, zero, _mm256_cmpgt_epi8(inHalves(first[0], first[1]), lane));
    const __m256i isMinus = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('-'));
    const auto minus = static_cast<unsigned>(_mm256_movemask_epi8(isMinus));
    const auto points =
        static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(text, _mm256_set1_epi8('.'))));

    Pair pair{};
    int point[2];
    for (int i = 0; i < 2; ++i) {
        const unsigned ownMinus = (minus >> (lanes * i)) & 0xFFFF;
        const unsigned ownPoints = (points >> (lanes * i)) & 0xFFFF;
        point[i] = ownPoints ? static_cast<int>(_tzcnt_u32(ownPoints)) : -1;
        pair.minus[i] = ownMinus != 0;
        pair.pointed |= static_cast<unsigned>(ownPoints != 0) << i;
        pair.fraction[i] = ownPoints ? static_cast<unsigned>(lanes - 1 - point[i]) : 0;
        // Digits there must be, beside a sign at the front and one point.
        const long digits = lengths[i] - pair.minus[i] - (ownPoints != 0);
        const bool isOdd = lengths[i] > lanes || digits < 1 || (ownPoints & (ownPoints - 1)) ||
                           (pair.minus[i] && ownMinus != 1U << first[i]);
        pair.odd |= static_cast<unsigned>(isOdd) << i;
    }
    text = _mm256_sub_epi8(_mm256_blendv_epi8(text, zero, isMinus), zero);
    // Up to the point each lane takes its left neighbour, the first a zero.
    const __m256i behindPoint = _mm256_cmpgt_epi8(lane, inHalves(point[0], point[1]));
    const __m256i source =
        _mm256_sub_epi8(lane, _mm256_andnot_si256(behindPoint, _mm256_set1_epi8(1)));
    const __m256i digits = _mm256_shuffle_epi8(text, source);
    const __m256i isNoDigit =
        _mm256_cmpeq_epi8(_mm256_max_epu8(digits, _mm256_set1_epi8(10)), digits);
    const auto noDigits = static_cast<unsigned>(_mm256_movemask_epi8(isNoDigit));
    pair.odd |= static_cast<unsigned>((noDigits & 0xFFFF) != 0);
    pair.odd |= static_cast<unsigned>(noDigits >> lanes != 0) << 1U;
    const __m256i pairs = _mm256_maddubs_epi16(digits, _mm256_set1_epi16(10 | 1 << 8));
    pair.digits = _mm256_madd_epi16(pairs, _mm256_set1_epi32(100 | 1 << 16));
    return pair;
}

KO_AVX2 inline Quad readQuad(const Piece* pieces) {
    const Pair first = readPair(pieces);
    const Pair second = readPair(pieces + 2);
    // Sums of eight digits, higher and lower, of the first, third, second and fourth number.
    const __m256i sums = _mm256_madd_epi16(_mm256_packus_epi32(first.digits, second.digits),
                                           _mm256_set1_epi32(10000 | 1 << 16));
    const __m256i higher =
        _mm256_mul_epu32(sums, _mm256_set1_epi64x(100000000));  // of the even words
    const __m256i mantissa = _mm256_add_epi64(higher, _mm256_srli_epi64(sums, 32));
    constexpr int inOrder = 0 | 2 << 2 | 1 << 4 | 3 << 6;
    return {_mm256_permute4x64_epi64(mantissa, inOrder),
            _mm256_setr_epi64x(first.minus[0], first.minus[1], second.minus[0], second.minus[1]),
            _mm256_setr_pd(powersOf10[first.fraction[0]], powersOf10[first.fraction[1]],
                           powersOf10[second.fraction[0]], powersOf10[second.fraction[1]]),
            first.pointed | second.pointed << 2U, first.odd | second.odd << 2U};
}

KO_AVX2 inline unsigned whereTrue(__m256i wide) {
    return static_cast<unsigned>(_mm256_movemask_pd(_mm256_castsi256_pd(wide)));
}

// An exact mantissa divided by an exact power of ten is rounded once, as it should be.
KO_AVX2 inline __m256d toReals(Quad& numbers) {
    const __m256i exactLimit = _mm256_set1_epi64x((1LL << 52) - 1);
    numbers.odd |= whereTrue(_mm256_cmpgt_epi64(numbers.mantissa, exactLimit));
    const __m256i exponentOf52 = _mm256_set1_epi64x(0x4330000000000000);
    const __m256d whole =
        _mm256_sub_pd(_mm256_castsi256_pd(_mm256_or_si256(numbers.mantissa, exponentOf52)),
                      _mm256_castsi256_pd(exponentOf52));
    const __m256i signBit = _mm256_slli_epi64(numbers.negative, 63);
    return _mm256_or_pd(_mm256_div_pd(whole, numbers.scale), _mm256_castsi256_pd(signBit));
}

KO_AVX2 inline void store(Quad& numbers, double* out) { _mm256_storeu_pd(out, toReals(numbers)); }

// A double that lies just between two floats may have been rounded to there.
KO_AVX2 inline void store(Quad& numbers, float* out) {
    const __m256d reals = toReals(numbers);
    const __m256i lost =
        _mm256_and_si256(_mm256_castpd_si256(reals), _mm256_set1_epi64x(0x1FFFFFFF));
    numbers.odd |= whereTrue(_mm256_cmpeq_epi64(lost, _mm256_set1_epi64x(0x10000000)));
    _mm_storeu_ps(out, _mm256_cvtpd_ps(reals));
}

template <class Integer>
KO_AVX2 inline void store(Quad& numbers, Integer* out) {
    constexpr bool isSigned = std::is_signed_v<Integer>;
    const __m256i none = _mm256_setzero_si256();
    const __m256i isNegative = _mm256_sub_epi64(none, numbers.negative);
    numbers.odd |= numbers.pointed;
    if (!isSigned) numbers.odd |= whereTrue(isNegative);
    if (sizeof(Integer) < 8) {
        const __m256i largest =
            _mm256_set1_epi64x(static_cast<long long>(std::numeric_limits<Integer>::max()));
        const __m256i limit = isSigned ? _mm256_add_epi64(largest, numbers.negative) : largest;
        numbers.odd |= whereTrue(_mm256_cmpgt_epi64(numbers.mantissa, limit));
    }
    const __m256i value =
        _mm256_sub_epi64(_mm256_xor_si256(numbers.mantissa, isNegative), isNegative);
    alignas(32) long values[quad];
    _mm256_store_si256(reinterpret_cast<__m256i*>(values), value);
    for (unsigned long i = 0; i < quad; ++i)
        out[i] = static_cast<Integer>(values[i]);
}

// The pieces between single spaces, a window of the text at a time.
class Pieces {
  public:
    explicit Pieces(std::string_view text)
        : begin_(text.data()), at_(begin_), end_(begin_ + text.size()) {}

    // Finds the pieces that end in the next window; false where a piece would be empty.
    KO_AVX2 bool next() {
        count_ = 0;
        for (long read = 0; read < window && !isAtEnd_; read += step) {
            const std::uint64_t spaces = spacesAt(at_);
            const auto behindSpace = static_cast<std::uint64_t>(at_ == begin_);
            if (spaces & (spaces << 1 | behindSpace)) return false;
            note(spaces);
            isAtEnd_ = end_ - at_ < step;
            if (!isAtEnd_) at_ += step;
        }
        return true;
    }
    bool isAtEnd() const { return isAtEnd_; }
    const Piece* begin() const { return pieces_; }
    const Piece* end() const { return pieces_ + count_; }
    // What the pieces found so far leave of the text.
    std::string_view rest() const { return {begin_, static_cast<unsigned long>(end_ - begin_)}; }

  private:
    static constexpr long step = 64;
    static constexpr long window = 2048;

    // A bit for each space in the next 64 characters; the end of the text counts as one.
    KO_AVX2 std::uint64_t spacesAt(const char* at) const {
        const long left = end_ - at;
        if (left >= step) {
            const __m256i space = _mm256_set1_epi8(' ');
            return joined(_mm256_cmpeq_epi8(load(at), space),
                          _mm256_cmpeq_epi8(load(at + 32), space));
        }
        std::uint64_t spaces = 1ULL << left;
        for (long i = 0; i < left; ++i)
            spaces |= static_cast<std::uint64_t>(at[i] == ' ') << i;
        return spaces;
    }

    KO_AVX2 void note(std::uint64_t spaces) {
        for (; spaces; spaces &= spaces - 1) {
            const char* const end = at_ + _tzcnt_u64(spaces);
            pieces_[count_++] = {begin_, end};
            begin_ = end + 1;
        }
    }

    const char* begin_;  // of the piece that the next space ends
    const char* at_;
    const char* end_;
    bool isAtEnd_ = false;
    unsigned long count_ = 0;
    Piece pieces_[window / 2 + step];
};

bool convertPiece(const Piece& piece, DataType type, unsigned char* dest) {
    const auto length = static_cast<unsigned long>(piece.end - piece.begin);
    return convertNumber({piece.begin, length}, type, dest);
}

template <class Scalar>
KO_AVX2 inline bool convertQuad(const Piece* pieces, unsigned char* dest) {
    Scalar values[quad];
    Quad numbers = readQuad(pieces);
    store(numbers, values);
    if (!numbers.odd) {
        std::memcpy(dest, values, sizeof values);
        return true;
    }
    bool allConverted = true;
    for (unsigned long i = 0; i < quad; ++i, dest += sizeof(Scalar)) {
        if (!(numbers.odd >> i & 1)) {
            std::memcpy(dest, &values[i], sizeof(Scalar));
        } else if (!convertPiece(pieces[i], dataTypeOf<Scalar>(), dest)) {
            allConverted = false;
        }
    }
    return allConverted;
}

template <class Scalar>
KO_AVX2 Conversion convertAs(std::string_view text, unsigned char* dest, unsigned long room) {
    constexpr DataType type = dataTypeOf<Scalar>();
    const char* const firstFull = text.data() + lanes;  // an end that 16 characters stand before
    Conversion result;
    Pieces pieces(text);
    bool isRegular = true;
    while (isRegular && !pieces.isAtEnd()) {
        isRegular = pieces.next();
        for (const Piece* at = pieces.begin(); at != pieces.end();) {
            unsigned char* const place = dest + result.count * sizeof(Scalar);
            const unsigned long left =
                std::min(static_cast<unsigned long>(pieces.end() - at), room - result.count);
            const bool isQuad = left >= quad && at->end >= firstFull;
            if (left == 0) {
                result.excess = {at->begin, static_cast<unsigned long>(at->end - at->begin)};
                return result;
            }
            const bool isConverted =
                isQuad ? convertQuad<Scalar>(at, place) : convertPiece(*at, type, place);
            if (!isConverted) result.allConverted = false;
            at += isQuad ? quad : 1;
            result.count += isQuad ? quad : 1;
        }
    }
    if (isRegular) return result;
    Conversion rest = plainOperations.convertNumbers(
        pieces.rest(), type, dest + result.count * sizeof(Scalar), room - result.count);
    rest.count += result.count;
    rest.allConverted = rest.allConverted && result.allConverted;
    return rest;
}

Conversion convertNumbers(std::string_view text, DataType type, unsigned char* dest,
                          unsigned long room) {
    switch (type) {
        case DataType::Char: return convertAs<signed char>(text, dest, room);
        case DataType::Byte: return convertAs<unsigned char>(text, dest, room);
        case DataType::Int16: return convertAs<short>(text, dest, room);
        case DataType::Int32: return convertAs<int>(text, dest, room);
        case DataType::Int64: return convertAs<long>(text, dest, room);
        case DataType::UInt16: return convertAs<unsigned short>(text, dest, room);
        case DataType::UInt32: return convertAs<unsigned int>(text, dest, room);
        case DataType::UInt64: return convertAs<unsigned long>(text, dest, room);
        case DataType::Float: return convertAs<float>(text, dest, room);
        case DataType::Double: return convertAs<double>(text, dest, room);
        default: return plainOperations.convertNumbers(text, type, dest, room);
    }
}

// --- Counting -----------------------------------------------------------------------------------

KO_AVX2 unsigned long countBreaks(std::string_view text) {
    constexpr unsigned long step = 64;
    const __m256i lineBreak = _mm256_set1_epi8('\n');
    unsigned long count = 0;
    for (; text.size() >= step; text.remove_prefix(step)) {
        const char* const at = text.data();
        count += static_cast<unsigned long>(_mm_popcnt_u64(joined(
            _mm256_cmpeq_epi8(load(at), lineBreak), _mm256_cmpeq_epi8(load(at + 32), lineBreak))));
    }
    return count + plainOperations.countBreaks(text);
}

}  // namespace

const Operations avx2Operations = {copyNumbers, convertNumbers, countBreaks};

}  // namespace ko::bulk

#else

namespace ko::bulk {

bool hasPath(Path path) noexcept { return path == Path::Plain; }
const Operations avx2Operations = plainOperations;

}  // namespace ko::bulk

#endif
