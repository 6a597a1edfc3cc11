// Converting numbers in AVX2, four side by side, in three turns. A loop that reads digit by digit
// waits for the end of each number before it can begin the next; here the ends of many are found
// first, from bitmaps of the spaces.
//
// The first turn takes them in order, each as the 16 characters up to its end: a sign, digits, a
// point. What it cannot vouch for is marked and, where reals are wanted, goes through the second
// turn, which knows exponents and up to 32 characters. What is still left is converted one by one
// by `convertNumber`.
#include "bulk/bulk_avx2.h"

#if defined(__x86_64__)

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>

namespace ko::bulk::avx2 {

namespace {

#define KO_AVX2_INLINE [[KO_AVX2_TARGET, gnu::always_inline]] inline

constexpr unsigned long quad = 4;
constexpr unsigned lanes = 16;

// --- Where numbers end --------------------------------------------------------------------------

// The pieces between single spaces, a window of the text at a time. Places count from its begin.
class Pieces {
  public:
    explicit Pieces(std::string_view text) : text_(text) { begins_[0] = 0; }

    // Finds the pieces that end in the next window; false where a piece would be empty.
    KO_AVX2 bool next() {
        const unsigned long stop = at_ + std::min(window, text_.size() - at_);
        for (; at_ < stop && text_.size() - at_ >= step; at_ += step)
            if (!note(placesOf(' ', text_.data() + at_))) return false;
        if (at_ == stop && at_ != text_.size()) return true;
        isAtEnd_ = true;
        return note(lastSpaces());
    }
    bool isAtEnd() const { return isAtEnd_; }
    unsigned long count() const { return count_; }
    // Where the pieces begin, and where the one after them does.
    const unsigned long* begins() const { return begins_; }
    // The pieces from `first` on stay for the next window.
    void drop(unsigned long first) {
        count_ -= first;
        std::copy(begins_ + first, begins_ + first + count_ + 1, begins_);
    }
    // What the pieces leave of the text.
    std::string_view rest() const { return text_.substr(std::min(begins_[count_], text_.size())); }

  private:
    static constexpr unsigned long step = 64;
    static constexpr unsigned long window = 2048;

    // Of fewer than 64 characters; the end of the text counts as a space.
    std::uint64_t lastSpaces() const {
        const std::string_view left = text_.substr(at_);
        std::uint64_t spaces = std::uint64_t(1) << left.size();
        for (unsigned long i = 0; i < left.size(); ++i)
            spaces |= static_cast<std::uint64_t>(left[i] == ' ') << i;
        return spaces;
    }

    // Always eight at a time: how many there are is hard to foresee.
    KO_AVX2_INLINE bool note(std::uint64_t spaces) {
        const auto behindSpace = static_cast<std::uint64_t>(begins_[count_] == at_);
        if (spaces & (spaces << 1 | behindSpace)) return false;
        const auto found = static_cast<unsigned long>(_mm_popcnt_u64(spaces));
        unsigned long* to = begins_ + count_ + 1;
        count_ += found;
        for (unsigned long done = 0; done < found; done += 8) {
            for (int i = 0; i < 8; ++i, spaces &= spaces - 1)
                *to++ = at_ + _tzcnt_u64(spaces) + 1;
        }
        return true;
    }

    std::string_view text_;
    unsigned long at_ = 0;
    bool isAtEnd_ = false;
    unsigned long count_ = 0;
    unsigned long begins_[window / 2 + 3 * step];
};

// --- Digits side by side ------------------------------------------------------------------------

// The 16 characters before each of two places, one in each half.
KO_AVX2_INLINE __m256i before(const char* first, const char* second) {
    const auto* const low = reinterpret_cast<const __m128i*>(first - lanes);
    const auto* const high = reinterpret_cast<const __m128i*>(second - lanes);
    return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(low)),
                                   _mm_loadu_si128(high), 1);
}

// The digits of two numbers, one at the end of each half: values, and zeros before the numbers and
// for their signs. What is no digit is above 9.
struct Pair {
    __m256i digits;
    __m256i signs;  // all bits of a byte that is a sign
};

// `lengths` has the length of a number in each byte of its half; `signPlaces` likewise how far from
// the end a minus may stand, which is at the begin of the number.
KO_AVX2_INLINE Pair readPair(__m256i text, __m256i lengths, __m256i signPlaces) {
    const __m256i fromEnd = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1));
    const __m256i isBefore = _mm256_cmpgt_epi8(fromEnd, lengths);
    const __m256i values = _mm256_sub_epi8(text, _mm256_set1_epi8('0'));
    const __m256i signs = _mm256_and_si256(_mm256_cmpeq_epi8(text, _mm256_set1_epi8('-')),
                                           _mm256_cmpeq_epi8(fromEnd, signPlaces));
    return {_mm256_andnot_si256(_mm256_or_si256(isBefore, signs), values), signs};
}

KO_AVX2_INLINE __m256i pointsOf(const Pair& pair) {
    return _mm256_cmpeq_epi8(pair.digits, _mm256_set1_epi8('.' - '0'));
}

// What stands after the last point of each half; as much as there is when it has none.
struct BehindPoint {
    unsigned low;
    unsigned high;
};

KO_AVX2_INLINE BehindPoint behindPoint(__m256i points) {
    const auto places = static_cast<unsigned>(_mm256_movemask_epi8(points));
    constexpr unsigned none = 1U << (lanes - 1);  // as if it stood before the half
    return {_lzcnt_u32(places << lanes | none), _lzcnt_u32(places | none)};
}

// For each number of digits after a point, where the digits are taken from when it goes.
struct Closings {
    alignas(lanes) std::uint8_t sources[lanes + 1][lanes];
};

constexpr Closings makeClosings() {
    constexpr std::uint8_t noSource = 0x80;
    Closings closings{};
    for (unsigned behind = 0; behind <= lanes; ++behind)
        for (unsigned lane = 0; lane < lanes; ++lane) {
            const bool isMoved = lane + behind < lanes;
            const unsigned source = isMoved ? lane - 1 : lane;
            closings.sources[behind][lane] =
                lane == 0 && isMoved ? noSource : static_cast<std::uint8_t>(source);
        }
    return closings;
}

constexpr Closings closings = makeClosings();

KO_AVX2_INLINE __m128i closing(unsigned behindPoint) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(closings.sources[behindPoint]));
}

KO_AVX2_INLINE __m256i withoutPoint(const Pair& pair, BehindPoint behind) {
    const __m256i low = _mm256_castsi128_si256(closing(behind.low));
    return _mm256_shuffle_epi8(pair.digits, _mm256_inserti128_si256(low, closing(behind.high), 1));
}

// Four numbers of 16 digits.
struct Digits {
    __m256i sums;     // of eight digits each, the higher half of a number before the lower
    __m256i areReal;  // all bits where each digit is one
};

// Bytes of the four numbers in one word each, which is zero where all of them are.
KO_AVX2_INLINE __m256i gather(__m256i even, __m256i odd) {
    return _mm256_or_si256(_mm256_unpacklo_epi64(even, odd), _mm256_unpackhi_epi64(even, odd));
}

KO_AVX2_INLINE __m256i allBits() { return _mm256_set1_epi8(-1); }

KO_AVX2_INLINE __m256i areZero(__m256i words) {
    return _mm256_cmpeq_epi64(words, _mm256_setzero_si256());
}

// `even` has the first and the third number, `odd` the second and the fourth.
KO_AVX2_INLINE Digits addUp(__m256i even, __m256i odd) {
    const __m256i ten = _mm256_set1_epi8(10);
    const __m256i noDigitsOfEven = _mm256_cmpeq_epi8(_mm256_max_epu8(even, ten), even);
    const __m256i noDigitsOfOdd = _mm256_cmpeq_epi8(_mm256_max_epu8(odd, ten), odd);
    const __m256i noDigits = gather(noDigitsOfEven, noDigitsOfOdd);
    const __m256i tens = _mm256_set1_epi16(10 | 1 << 8);
    const __m256i hundreds = _mm256_set1_epi32(100 | 1 << 16);
    const __m256i fours =
        _mm256_packus_epi32(_mm256_madd_epi16(_mm256_maddubs_epi16(even, tens), hundreds),
                            _mm256_madd_epi16(_mm256_maddubs_epi16(odd, tens), hundreds));
    return {_mm256_madd_epi16(fours, _mm256_set1_epi32(10000 | 1 << 16)), areZero(noDigits)};
}

KO_AVX2_INLINE __m256i mantissaOf(__m256i sums) {
    const __m256i higher = _mm256_mul_epu32(sums, _mm256_set1_epi64x(100000000));
    return _mm256_add_epi64(higher, _mm256_srli_epi64(sums, 32));
}

// Of integers below 2^52.
KO_AVX2_INLINE __m256d toReals(__m256i integers) {
    const __m256i exponentOf52 = _mm256_set1_epi64x(0x4330000000000000);
    return _mm256_sub_pd(_mm256_castsi256_pd(_mm256_or_si256(integers, exponentOf52)),
                         _mm256_castsi256_pd(exponentOf52));
}

KO_AVX2_INLINE unsigned whereTrue(__m256i wide) {
    return static_cast<unsigned>(_mm256_movemask_pd(_mm256_castsi256_pd(wide)));
}

// --- First turn ---------------------------------------------------------------------------------

struct Quad {
    __m256i mantissa;    // below 10^16
    __m256i isNegative;  // all bits after a minus
    __m256d divisor;     // a power of ten
    __m256i isPlain;     // all bits where the number is what this turn can read
};

// By the number of digits after the point; without one it is as if there were 16.
constexpr double divisors[lanes + 1] = {1e0, 1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7, 1e8,
                                        1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e0};

KO_AVX2_INLINE __m256i lengthsOf(const unsigned long* begins) {
    const __m256i withSpaces = _mm256_sub_epi64(load(reinterpret_cast<const char*>(begins + 1)),
                                                load(reinterpret_cast<const char*>(begins)));
    return _mm256_sub_epi64(withSpaces, _mm256_set1_epi64x(1));
}

// An integer's point is left where it is, and found to be no digit.
template <bool areReals>
KO_AVX2_INLINE Quad readQuad(const char* text, const unsigned long* begins) {
    const __m256i lengths = lengthsOf(begins);
    const __m256i evenLengths = _mm256_shuffle_epi8(lengths, _mm256_setzero_si256());
    const __m256i oddLengths = _mm256_shuffle_epi8(lengths, _mm256_set1_epi8(8));
    const char* const end = text - 1;
    const Pair even = readPair(before(end + begins[1], end + begins[3]), evenLengths, evenLengths);
    const Pair odd = readPair(before(end + begins[2], end + begins[4]), oddLengths, oddLengths);
    Quad numbers;
    numbers.isNegative = _mm256_xor_si256(areZero(gather(even.signs, odd.signs)), allBits());
    __m256i digitCounts = _mm256_add_epi64(lengths, numbers.isNegative);
    Digits digits;
    if (areReals) {
        const __m256i evenPoints = pointsOf(even);
        const __m256i oddPoints = pointsOf(odd);
        const BehindPoint ofEven = behindPoint(evenPoints);
        const BehindPoint ofOdd = behindPoint(oddPoints);
        digits = addUp(withoutPoint(even, ofEven), withoutPoint(odd, ofOdd));
        numbers.divisor = _mm256_setr_pd(divisors[ofEven.low], divisors[ofOdd.low],
                                         divisors[ofEven.high], divisors[ofOdd.high]);
        // A point that is not the last character has a digit after it.
        const __m256i lastPoints = _mm256_unpackhi_epi64(evenPoints, oddPoints);
        digitCounts = _mm256_sub_epi64(digitCounts, _mm256_srli_epi64(lastPoints, 63));
    } else {
        digits = addUp(even.digits, odd.digits);
        numbers.divisor = _mm256_set1_pd(1);
    }
    numbers.mantissa = mantissaOf(digits.sums);
    const __m256i isShort = _mm256_cmpgt_epi64(_mm256_set1_epi64x(lanes + 1), lengths);
    const __m256i hasDigits = _mm256_cmpgt_epi64(digitCounts, _mm256_setzero_si256());
    numbers.isPlain = _mm256_and_si256(digits.areReal, _mm256_and_si256(isShort, hasDigits));
    return numbers;
}

// An exact mantissa divided by an exact power of ten is rounded once, as it should be.
KO_AVX2_INLINE __m256d divided(Quad& numbers) {
    const __m256i exact = _mm256_cmpgt_epi64(_mm256_set1_epi64x(1LL << 52), numbers.mantissa);
    numbers.isPlain = _mm256_and_si256(numbers.isPlain, exact);
    const __m256d signs =
        _mm256_and_pd(_mm256_castsi256_pd(numbers.isNegative), _mm256_set1_pd(-0.0));
    return _mm256_or_pd(_mm256_div_pd(toReals(numbers.mantissa), numbers.divisor), signs);
}

// The lower halves of 64-bit words.
KO_AVX2_INLINE __m128i narrowed(__m256i wide) {
    const __m256i even = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
    return _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(wide, even));
}

// Writes the plain ones of four lanes. Integers are blended as if they were reals: byte by byte,
// g++ 12 compiles that wrongly where char has no sign.
KO_AVX2_INLINE void putPlain(__m256d values, __m256i isPlain, double* out) {
    const __m256d former = _mm256_loadu_pd(out);
    _mm256_storeu_pd(out, _mm256_blendv_pd(former, values, _mm256_castsi256_pd(isPlain)));
}

KO_AVX2_INLINE void putPlain(__m128 values, __m256i isPlain, float* out) {
    const __m128 former = _mm_loadu_ps(out);
    _mm_storeu_ps(out, _mm_blendv_ps(former, values, _mm_castsi128_ps(narrowed(isPlain))));
}

// Each of these writes the numbers that it vouches for, and leaves the places of others.

KO_AVX2_INLINE void store(Quad& numbers, double* out) {
    const __m256d reals = divided(numbers);
    putPlain(reals, numbers.isPlain, out);
}

// A double that lies just between two floats may have been rounded to there.
KO_AVX2_INLINE void store(Quad& numbers, float* out) {
    const __m256d reals = divided(numbers);
    const __m256i lost =
        _mm256_and_si256(_mm256_castpd_si256(reals), _mm256_set1_epi64x(0x1FFFFFFF));
    const __m256i isBetween = _mm256_cmpeq_epi64(lost, _mm256_set1_epi64x(0x10000000));
    numbers.isPlain = _mm256_andnot_si256(isBetween, numbers.isPlain);
    putPlain(_mm256_cvtpd_ps(reals), numbers.isPlain, out);
}

KO_AVX2_INLINE void put(__m256i values, __m256i isPlain, std::uint64_t* out) {
    putPlain(_mm256_castsi256_pd(values), isPlain, reinterpret_cast<double*>(out));
}

KO_AVX2_INLINE void put(__m256i values, __m256i isPlain, std::uint32_t* out) {
    putPlain(_mm_castsi128_ps(narrowed(values)), isPlain, reinterpret_cast<float*>(out));
}

// The lowest bytes of each, as many as a `Small` has.
template <class Small>
KO_AVX2_INLINE std::uint64_t lowBytes(__m256i values) {
    const __m128i bytes =
        _mm_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i shorts = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1);
    return static_cast<std::uint64_t>(
        _mm_cvtsi128_si64(_mm_shuffle_epi8(narrowed(values), sizeof(Small) == 1 ? bytes : shorts)));
}

template <class Small>
KO_AVX2_INLINE void put(__m256i values, __m256i isPlain, Small* out) {
    constexpr unsigned long size = quad * sizeof(Small);
    std::uint64_t former = 0;
    std::memcpy(&former, out, size);
    const std::uint64_t plain = lowBytes<Small>(isPlain);
    const std::uint64_t merged = (former & ~plain) | (lowBytes<Small>(values) & plain);
    std::memcpy(out, &merged, size);
}

template <class Integer>
KO_AVX2_INLINE void store(Quad& numbers, Integer* out) {
    constexpr bool isSigned = std::is_signed_v<Integer>;
    const __m256i isNegative = numbers.isNegative;
    if (!isSigned) numbers.isPlain = _mm256_andnot_si256(isNegative, numbers.isPlain);
    if (sizeof(Integer) < 8) {
        const __m256i largest =
            _mm256_set1_epi64x(static_cast<long long>(std::numeric_limits<Integer>::max()));
        const __m256i limit = isSigned ? _mm256_sub_epi64(largest, isNegative) : largest;
        numbers.isPlain =
            _mm256_andnot_si256(_mm256_cmpgt_epi64(numbers.mantissa, limit), numbers.isPlain);
    }
    const __m256i values =
        _mm256_sub_epi64(_mm256_xor_si256(numbers.mantissa, isNegative), isNegative);
    put(values, numbers.isPlain, reinterpret_cast<std::make_unsigned_t<Integer>*>(out));
}

// Converts four pieces; a bit for each that is left to do.
template <class Scalar>
KO_AVX2_INLINE unsigned convertQuad(const char* text, const unsigned long* begins, Scalar* out) {
    Quad numbers = readQuad<std::is_floating_point_v<Scalar>>(text, begins);
    store(numbers, out);
    return ~whereTrue(numbers.isPlain) & 0xF;
}

// --- Second turn --------------------------------------------------------------------------------
//
// Reals of up to 32 characters, with an exponent of a sign and two digits or without one. Their
// digits are taken 16 and 16, the arithmetic is that of doubles, and what it rounds along the way
// is allowed for: a float is vouched for unless the double is so near the middle of two floats that
// the true value may lie on its other side, a double only when nothing was rounded before the last
// step.
//
// Which numbers have an exponent, a head or a sign is hard to foresee: conditions are numbers here,
// 0 or 1, and counted with.

constexpr unsigned long mostCharacters = 2UL * lanes;
constexpr unsigned long exponentLength = 4;
constexpr long largestExponent = 99;
constexpr long smallestPower = -largestExponent - 3L * lanes;
constexpr long largestExactPower = 22;
// Twice the units of the last bit that all steps may be off, those to the powers of ten included.
constexpr long long uncertain = 512;

// Powers of ten; of the negative ones what to divide by, and negative itself.
struct Powers {
    double from[largestExponent - smallestPower + 1];
};

constexpr Powers makePowers() {
    Powers powers{};
    double power = 1;
    for (long i = 0; i <= -smallestPower; ++i, power *= 10) {
        powers.from[-smallestPower - i] = -power;
        if (i <= largestExponent) powers.from[-smallestPower + i] = power;
    }
    return powers;
}

constexpr Powers powers = makePowers();

// A number without its exponent.
struct Stripped {
    const char* end;
    unsigned long length;
    unsigned long isNegative;
    unsigned long isOdd;  // not one that this turn can read
    long power;
};

KO_AVX2_INLINE Stripped strip(const char* text, const unsigned long* begin) {
    const char* const end = text + begin[1] - 1;
    std::uint32_t last = 0;
    std::memcpy(&last, end - exponentLength, exponentLength);
    const std::uint32_t sign = last >> 8U & 0xFFU;
    const std::uint32_t tens = (last >> 16U & 0xFFU) - '0';
    const std::uint32_t ones = (last >> 24U) - '0';
    const unsigned hasSign = static_cast<unsigned>(sign == '+') | (sign == '-');
    const unsigned hasDigits = static_cast<unsigned>(tens <= 9) & (ones <= 9);
    const unsigned long hasExponent = ((last & 0xDFU) == 'E') & hasSign & hasDigits;
    const long direction = ',' - static_cast<long>(sign);  // those beside it are + and -
    const unsigned long length = begin[1] - 1 - begin[0] - exponentLength * hasExponent;
    return {end - exponentLength * hasExponent, std::min(length, mostCharacters),
            text[begin[0]] == '-', length - 1 >= mostCharacters,
            static_cast<long>(hasExponent) * direction * static_cast<long>(tens * 10 + ones)};
}

// How many characters are among the last 16 of a number, and before those.
struct Parts {
    unsigned long head;
    unsigned long tail;

    KO_AVX2_INLINE explicit Parts(const Stripped& number)
        : tail(std::min(number.length, static_cast<unsigned long>(lanes))) {
        head = number.length - tail;
    }
    // Where a minus may stand in the tail.
    KO_AVX2_INLINE unsigned long signInTail() const { return (head == 0) * tail; }
};

KO_AVX2_INLINE __m256i inHalves(unsigned long low, unsigned long high) {
    return _mm256_set_m128i(_mm_set1_epi8(static_cast<char>(high)),
                            _mm_set1_epi8(static_cast<char>(low)));
}

KO_AVX2_INLINE Pair readHeads(const Stripped& low, const Stripped& high) {
    const __m256i lengths = inHalves(Parts(low).head, Parts(high).head);
    return readPair(before(low.end - lanes, high.end - lanes), lengths, lengths);
}

KO_AVX2_INLINE Pair readTails(const Stripped& low, const Stripped& high) {
    const Parts ofLow(low);
    const Parts ofHigh(high);
    return readPair(before(low.end, high.end), inHalves(ofLow.tail, ofHigh.tail),
                    inHalves(ofLow.signInTail(), ofHigh.signInTail()));
}

// What follows from the point and the exponent.
struct Scale {
    double factor;  // of the head
    double power;
    double sign;
    unsigned long isOdd;
    unsigned long isExact;  // only the last step may round
};

KO_AVX2_INLINE Scale scaleOf(const Stripped& number, unsigned behindHead, unsigned behindTail) {
    static constexpr double factors[] = {1e16, 1e15};
    static constexpr double signs[] = {0.0, -0.0};
    const unsigned long hasHead = Parts(number).head > number.isNegative;
    const unsigned long isPointInHead = behindHead < lanes;
    const unsigned long isPointInTail = behindTail < lanes;
    const unsigned long fraction =
        isPointInTail * behindTail + isPointInHead * (lanes + behindHead);
    const long power = number.power - static_cast<long>(fraction);
    const unsigned long others = number.isNegative + isPointInHead + isPointInTail;
    return {factors[isPointInTail], powers.from[power - smallestPower], signs[number.isNegative],
            number.isOdd | (isPointInHead & isPointInTail) | (number.length == others),
            (1 - hasHead) & (power <= largestExactPower) & (power >= -largestExactPower)};
}

KO_AVX2_INLINE unsigned bits(unsigned long a, unsigned long b, unsigned long c, unsigned long d) {
    return static_cast<unsigned>(a | b << 1U | c << 2U | d << 3U);
}

// Four of them, on their way to a real.
struct Wide {
    __m256d magnitude;
    __m256d sign;
    unsigned exact;  // a bit for each that only the last step may have rounded
    unsigned plain;  // a bit for each that this turn can read
};

// Of 16 digits: rounded above 2^53.
KO_AVX2_INLINE __m256d realOf(const Digits& digits) {
    const __m256i low = _mm256_set1_epi64x(0xFFFFFFFF);
    const __m256d higher = toReals(_mm256_and_si256(digits.sums, low));
    const __m256d lower = toReals(_mm256_srli_epi64(digits.sums, 32));
    return _mm256_add_pd(_mm256_mul_pd(higher, _mm256_set1_pd(1e8)), lower);
}

KO_AVX2_INLINE Wide readWide(const char* text, const unsigned long* const (&begins)[quad]) {
    const Stripped a = strip(text, begins[0]);
    const Stripped b = strip(text, begins[1]);
    const Stripped c = strip(text, begins[2]);
    const Stripped d = strip(text, begins[3]);
    const Pair headAC = readHeads(a, c);
    const Pair headBD = readHeads(b, d);
    const Pair tailAC = readTails(a, c);
    const Pair tailBD = readTails(b, d);
    const BehindPoint inHeadAC = behindPoint(pointsOf(headAC));
    const BehindPoint inHeadBD = behindPoint(pointsOf(headBD));
    const BehindPoint inTailAC = behindPoint(pointsOf(tailAC));
    const BehindPoint inTailBD = behindPoint(pointsOf(tailBD));
    const Digits heads = addUp(withoutPoint(headAC, inHeadAC), withoutPoint(headBD, inHeadBD));
    const Digits tails = addUp(withoutPoint(tailAC, inTailAC), withoutPoint(tailBD, inTailBD));

    const Scale ofA = scaleOf(a, inHeadAC.low, inTailAC.low);
    const Scale ofB = scaleOf(b, inHeadBD.low, inTailBD.low);
    const Scale ofC = scaleOf(c, inHeadAC.high, inTailAC.high);
    const Scale ofD = scaleOf(d, inHeadBD.high, inTailBD.high);
    const __m256d factor = _mm256_setr_pd(ofA.factor, ofB.factor, ofC.factor, ofD.factor);
    const __m256d whole = _mm256_add_pd(_mm256_mul_pd(realOf(heads), factor), realOf(tails));

    const __m256d power = _mm256_setr_pd(ofA.power, ofB.power, ofC.power, ofD.power);
    const __m256d quotient = _mm256_div_pd(whole, _mm256_sub_pd(_mm256_setzero_pd(), power));
    const __m256i isWithin53 =
        _mm256_cmpgt_epi64(_mm256_set1_epi64x((1LL << 53) + 1), mantissaOf(tails.sums));
    return {_mm256_blendv_pd(_mm256_mul_pd(whole, power), quotient, power),
            _mm256_setr_pd(ofA.sign, ofB.sign, ofC.sign, ofD.sign),
            whereTrue(isWithin53) & bits(ofA.isExact, ofB.isExact, ofC.isExact, ofD.isExact),
            whereTrue(_mm256_and_si256(heads.areReal, tails.areReal)) &
                ~bits(ofA.isOdd, ofB.isOdd, ofC.isOdd, ofD.isOdd)};
}

// Writes all values; a bit for each that is good.
KO_AVX2_INLINE unsigned store(const Wide& numbers, double (&out)[quad]) {
    _mm256_storeu_pd(out, _mm256_or_pd(numbers.magnitude, numbers.sign));
    return numbers.plain & numbers.exact;
}

KO_AVX2_INLINE unsigned store(const Wide& numbers, float (&out)[quad]) {
    const __m256d magnitude = numbers.magnitude;
    _mm_storeu_ps(out, _mm256_cvtpd_ps(_mm256_or_pd(magnitude, numbers.sign)));
    const __m256d smallest = _mm256_set1_pd(std::numeric_limits<float>::min());
    const __m256d largest = _mm256_set1_pd(std::numeric_limits<float>::max());
    const __m256d isNormal = _mm256_and_pd(_mm256_cmp_pd(magnitude, smallest, _CMP_GE_OQ),
                                           _mm256_cmp_pd(magnitude, largest, _CMP_LE_OQ));
    const __m256d isZero = _mm256_cmp_pd(magnitude, _mm256_setzero_pd(), _CMP_EQ_OQ);
    const __m256i lost =
        _mm256_add_epi64(_mm256_castpd_si256(magnitude), _mm256_set1_epi64x(uncertain / 2));
    const __m256i isNearMiddle =
        _mm256_cmpeq_epi64(_mm256_and_si256(lost, _mm256_set1_epi64x(0x20000000 - uncertain)),
                           _mm256_set1_epi64x(0x10000000));
    return numbers.plain & whereTrue(_mm256_andnot_si256(
                               isNearMiddle, _mm256_castpd_si256(_mm256_or_pd(isNormal, isZero))));
}

// Takes four pieces through the second turn, the rest of them one by one.
template <class Real>
KO_AVX2 bool convertWide(const Batch<Real>& batch, const unsigned long (&pieces)[quad],
                         unsigned long count) {
    const unsigned long* const begins[quad] = {batch.begins + pieces[0], batch.begins + pieces[1],
                                               batch.begins + pieces[2], batch.begins + pieces[3]};
    Real values[quad];
    const unsigned good = store(readWide(batch.text, begins), values);
    bool allConverted = true;
    for (unsigned long i = 0; i < count; ++i) {
        if (good >> i & 1U) {
            std::memcpy(batch.out + pieces[i], values + i, sizeof(Real));
        } else if (!batch.convertOne(pieces[i])) {
            allConverted = false;
        }
    }
    return allConverted;
}

template <class Scalar>
KO_AVX2 bool convertEach(const Batch<Scalar>& batch, unsigned long first, std::uint64_t left) {
    bool allConverted = true;
    for (; left; left &= left - 1)
        if (!batch.convertOne(first + _tzcnt_u64(left))) allConverted = false;
    return allConverted;
}

// Takes pieces through the second turn.
template <class Real>
KO_AVX2 bool convertFours(const Batch<Real>& batch, unsigned long first, std::uint64_t left) {
    bool allConverted = true;
    while (left) {
        unsigned long pieces[quad];
        unsigned long count = 0;
        for (unsigned long& piece : pieces) {
            // With fewer than four the last takes all places that are left.
            piece = left ? first + _tzcnt_u64(left) : pieces[count - 1];
            if (left) ++count;
            left &= left - 1;
        }
        if (!convertWide(batch, pieces, count)) allConverted = false;
    }
    return allConverted;
}

// A bit for each of the pieces from `first` on that has too little text before its end for the
// second turn.
template <class Scalar>
KO_AVX2 std::uint64_t areNearBegin(const Batch<Scalar>& batch, unsigned long first) {
    constexpr unsigned long reach = mostCharacters + exponentLength;
    std::uint64_t near = 0;
    for (unsigned long i = first; i < batch.count && batch.begins[i + 1] - 1 < reach; ++i)
        near = near << 1 | 1U;
    return near;
}

}  // namespace

template <class Scalar>
KO_AVX2 bool convertLeft(const Batch<Scalar>& batch, unsigned long first, std::uint64_t left) {
    if constexpr (std::is_floating_point_v<Scalar>) {
        const std::uint64_t near = areNearBegin(batch, first) & left;
        const bool areConverted = convertEach(batch, first, near);
        return convertFours(batch, first, left & ~near) && areConverted;
    } else {
        return convertEach(batch, first, left);
    }
}

template <class Scalar>
KO_AVX2 bool convertBatch(const Batch<Scalar>& batch) {
    constexpr unsigned long most = 64;
    bool allConverted = true;
    unsigned long i = 0;
    // Those that have no 16 characters before their end.
    for (; i < batch.count && batch.begins[i + 1] - 1 < lanes; ++i)
        if (!batch.convertOne(i)) allConverted = false;
    while (i + quad <= batch.count) {
        const unsigned long first = i;
        std::uint64_t left = 0;
        for (; i + quad <= batch.count && i < first + most; i += quad)
            left |=
                static_cast<std::uint64_t>(convertQuad(batch.text, batch.begins + i, batch.out + i))
                << (i - first);
        if (left && !convertLeft(batch, first, left)) allConverted = false;
    }
    for (; i < batch.count; ++i)
        if (!batch.convertOne(i)) allConverted = false;
    return allConverted;
}

template bool convertLeft(const Batch<signed char>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<unsigned char>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<short>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<unsigned short>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<int>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<unsigned int>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<long>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<unsigned long>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<float>&, unsigned long, std::uint64_t);
template bool convertLeft(const Batch<double>&, unsigned long, std::uint64_t);
template bool convertBatch(const Batch<signed char>&);
template bool convertBatch(const Batch<unsigned char>&);
template bool convertBatch(const Batch<short>&);
template bool convertBatch(const Batch<unsigned short>&);
template bool convertBatch(const Batch<int>&);
template bool convertBatch(const Batch<unsigned int>&);
template bool convertBatch(const Batch<long>&);
template bool convertBatch(const Batch<unsigned long>&);
template bool convertBatch(const Batch<float>&);
template bool convertBatch(const Batch<double>&);

namespace {

template <class Scalar>
KO_AVX2 Conversion convertAs(std::string_view text, unsigned char* dest, unsigned long room) {
    Conversion result;
    auto* const out = reinterpret_cast<Scalar*>(dest);
    Pieces pieces(text);
    bool isRegular = true;
    while (isRegular && !pieces.isAtEnd()) {
        isRegular = pieces.next();
        const bool isLast = !isRegular || pieces.isAtEnd();
        const unsigned long found = isLast ? pieces.count() : pieces.count() / quad * quad;
        const unsigned long count = std::min(found, room - result.count);
        const Batch<Scalar> batch{text.data(), pieces.begins(), count, out + result.count};
        if (!convertBatch(batch)) result.allConverted = false;
        result.count += count;
        if (count < found) {
            result.excess = batch.piece(count);
            return result;
        }
        pieces.drop(found);
    }
    if (isRegular) return result;
    Conversion rest =
        plainOperations.convertNumbers(pieces.rest(), dataTypeOf<Scalar>(),
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

}  // namespace

Conversion convertNumbers(std::string_view text, DataType type, unsigned char* dest,
                          unsigned long room) {
    return convertByType<Conversions>(text, type, dest, room);
}

}  // namespace ko::bulk::avx2

#endif
