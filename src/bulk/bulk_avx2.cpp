// The operations of bulk.h in AVX2, compiled for it function by function so that the rest of the
// library runs on any machine.
#include "bulk/bulk_avx2.h"

#if defined(__x86_64__)

#include <cpuid.h>

#include <cstdint>

#include "bulk/bulk_classes.h"
#include "bulk/charclass.h"

namespace ko::bulk {

namespace avx2 {

namespace {

// --- Copying ------------------------------------------------------------------------------------

KO_AVX2 inline __m256i broadcast(const std::uint8_t (&table)[16]) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}

KO_AVX2 inline __m256i classify(__m256i text, __m256i low, __m256i high) {
    const __m256i nibble = _mm256_set1_epi8(0x0F);
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi16(text, 4), nibble);
    return _mm256_and_si256(_mm256_shuffle_epi8(low, _mm256_and_si256(text, nibble)),
                            _mm256_shuffle_epi8(high, upper));
}

// For each choice of eight characters, the lowest bit for the first: where those chosen come from,
// side by side in the lowest bytes.
struct Squeezes {
    std::uint64_t sources[256];
};

constexpr Squeezes makeSqueezes() {
    Squeezes squeezes{};
    for (unsigned choice = 0; choice < 256; ++choice) {
        unsigned count = 0;
        for (std::uint64_t i = 0; i < 8; ++i)
            if (choice >> i & 1U) squeezes.sources[choice] |= i << 8 * count++;
    }
    return squeezes;
}

constexpr Squeezes squeezes = makeSqueezes();

// Writes the characters that have a bit in `kept` and, after them, up to 8 others; returns where
// those begin.
KO_AVX2 inline char* squeeze(__m128i text, unsigned kept, char* to) {
    const unsigned low = kept & 0xFF;
    const unsigned high = kept >> 8U & 0xFF;
    const __m128i sources = _mm_set_epi64x(static_cast<long long>(squeezes.sources[high]),
                                           static_cast<long long>(squeezes.sources[low]));
    const __m128i inHalves = _mm_set_epi64x(0x0808080808080808, 0);
    const __m128i squeezed = _mm_shuffle_epi8(text, _mm_add_epi8(sources, inHalves));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), squeezed);
    to += _mm_popcnt_u32(low);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_unpackhi_epi64(squeezed, squeezed));
    return to + _mm_popcnt_u32(high);
}

KO_AVX2 inline char* squeeze(__m256i text, std::uint64_t kept, char* to) {
    to = squeeze(_mm256_castsi256_si128(text), static_cast<unsigned>(kept & 0xFFFF), to);
    return squeeze(_mm256_extracti128_si256(text, 1), static_cast<unsigned>(kept >> 16U & 0xFFFF),
                   to);
}

// The text with a space for each character of a gap; those of numbers are all above the space.
// Blending would take no less time, and g++ 12 compiles that wrongly where char has no sign.
KO_AVX2 inline __m256i withSpaces(__m256i text, __m256i gaps) {
    return _mm256_max_epu8(_mm256_andnot_si256(gaps, text), _mm256_set1_epi8(' '));
}

// 64 characters at a time, the last of them by the plain path: what is of a number is kept, and the
// first character of each gap becomes its space.
KO_AVX2 Copied copyNumbers(const char* from, const char* end, char* to, Group group) {
    constexpr long step = 64;
    const ClassTables& tables = tablesOf(group);
    const __m256i low = broadcast(tables.low);
    const __m256i high = broadcast(tables.high);
    const __m256i ofNumber = _mm256_set1_epi8(numberBits);
    const __m256i none = _mm256_setzero_si256();
    const char* read = from;
    std::uint64_t inNumber = 1;
    for (; end - from >= step; from += step) {
        const __m256i first = load(from);
        const __m256i second = load(from + step / 2);
        const __m256i firstClasses = classify(first, low, high);
        const __m256i secondClasses = classify(second, low, high);
        if (joined(_mm256_cmpeq_epi8(firstClasses, none), _mm256_cmpeq_epi8(secondClasses, none)))
            break;
        const __m256i firstGaps = _mm256_cmpeq_epi8(_mm256_and_si256(firstClasses, ofNumber), none);
        const __m256i secondGaps =
            _mm256_cmpeq_epi8(_mm256_and_si256(secondClasses, ofNumber), none);
        const std::uint64_t numbers = ~joined(firstGaps, secondGaps);
        const std::uint64_t kept = numbers | numbers << 1 | inNumber;
        to = squeeze(withSpaces(first, firstGaps), kept, to);
        to = squeeze(withSpaces(second, secondGaps), kept >> 32, to);
        if (numbers) read = from + step - _lzcnt_u64(numbers);
        inNumber = numbers >> 63;
    }
    return copyRest({read, to}, from, end, inNumber != 0, group);
}

// --- Counting -----------------------------------------------------------------------------------

KO_AVX2 unsigned long countBreaks(std::string_view text) {
    constexpr unsigned long step = 64;
    unsigned long count = 0;
    for (; text.size() >= step; text.remove_prefix(step))
        count += static_cast<unsigned long>(_mm_popcnt_u64(placesOf('\n', text.data())));
    return count + plainOperations.countBreaks(text);
}

// --- The choice ---------------------------------------------------------------------------------

bool hasLzcnt() {
    constexpr unsigned leaf = 0x80000001;
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    return __get_cpuid(leaf, &a, &b, &c, &d) != 0 && (c >> 5U & 1U) != 0;
}

}  // namespace

Copied copyRest(Copied done, const char* from, const char* end, bool inNumber, Group group) {
    const char* const next =
        chars::skip(from, end, group == Group::Parens ? chars::ParensGap : chars::BracesGap);
    if (next == end || !chars::is(*next, chars::NumberPart)) {
        return {done.read, inNumber ? done.written : done.written - 1};
    }
    if (inNumber && next != from) *done.written++ = ' ';
    return plainOperations.copyNumbers(next, end, done.written, group);
}

}  // namespace avx2

bool hasPath(Path path) noexcept {
    if (path == Path::Plain) return true;
    const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                         __builtin_cpu_supports("popcnt") && avx2::hasLzcnt();
    return hasAvx2 && (path == Path::Avx2 || avx512::isSupported());
}

const Operations avx2Operations = {avx2::copyNumbers, avx2::convertNumbers, avx2::countBreaks};

}  // namespace ko::bulk

#else

namespace ko::bulk {

bool hasPath(Path path) noexcept { return path == Path::Plain; }
const Operations avx2Operations = plainOperations;

}  // namespace ko::bulk

#endif
