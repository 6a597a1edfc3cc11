// The operations of bulk.h in AVX2, compiled for it function by function so that the rest of the
// library runs on any machine.
#include "bulk_avx2.h"

#if defined(__x86_64__)

#include <cpuid.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "bulk_classes.h"
#include "charclass.h"

namespace ko::bulk {

namespace avx2 {

namespace {

// --- Copying ------------------------------------------------------------------------------------

struct Masks {
    std::uint64_t number;
    std::uint64_t other;  // neither of a number nor between numbers
};

KO_AVX2 inline __m256i broadcast(const std::uint8_t (&table)[16]) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
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

constexpr long copyStep = 32;
static_assert(copyStep <= copySlack);

// Copies runs of numbers whole. Where they begin and end is noted first, for many of them.
class Runs {
  public:
    // At the first character of a number.
    Runs(const char* begin, char* to) : begin_(begin) { done_.written = to; }

    // A bit where a number ends and where one begins, by turns; the first ends one.
    KO_AVX2 void note(const char* at, std::uint64_t edges) {
        const auto found = static_cast<unsigned long>(_mm_popcnt_u64(edges));
        const char** to = edges_ + count_;
        count_ += found;
        // Always some at a time: how many there are is hard to foresee.
        constexpr unsigned long some = 8;
        for (unsigned long noted = 0; noted < found; noted += some)
            for (unsigned long i = 0; i < some; ++i, edges &= edges - 1)
                *to++ = at + _tzcnt_u64(edges);
        if (count_ >= most) copy();
    }

    // Copies what was noted, and of a number that has not ended what is before `end`.
    KO_AVX2 Copied finish(const char* end) {
        copy();
        append(count_ == 0 ? end : edges_[0]);
        return done_;
    }

  private:
    static constexpr unsigned long most = 512;

    KO_AVX2 void copy() {
        unsigned long i = 0;
        for (; i + 1 < count_; i += 2) {
            append(edges_[i]);
            *done_.written++ = ' ';
            begin_ = edges_[i + 1];
        }
        if (i < count_) edges_[0] = edges_[i];
        count_ -= i;
    }

    // Reads and writes whole steps.
    KO_AVX2 void append(const char* end) {
        const long length = end - begin_;
        for (long done = 0; done < length; done += copyStep)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(done_.written + done),
                                load(begin_ + done));
        done_.written += length;
        done_.read = end;
    }

    const char* begin_;  // of the first number that is not copied yet
    Copied done_;
    unsigned long count_ = 0;
    const char* edges_[most + 64];
};

// 64 characters at a time, the last of them by the plain path.
KO_AVX2 Copied copyNumbers(const char* from, const char* end, char* to, Group group) {
    constexpr long step = 64;
    const ClassTables& tables = tablesOf(group);
    const __m256i low = broadcast(tables.low);
    const __m256i high = broadcast(tables.high);
    Runs runs(from, to);
    std::uint64_t inNumber = 1;
    bool isStopped = false;
    for (; !isStopped && end - from >= step + copyStep; from += step) {
        const Masks masks = masksOf(from, low, high);
        isStopped = masks.other != 0;
        const std::uint64_t numbers =
            isStopped ? masks.number & _blsmsk_u64(masks.other) : masks.number;
        runs.note(from, numbers ^ (numbers << 1 | inNumber));
        inNumber = numbers >> 63;
    }
    Copied done = runs.finish(from);
    if (isStopped) return done;
    // What is left may go on with the number, or with a gap that leads to one.
    const char* const next =
        chars::skip(from, end, group == Group::Parens ? chars::ParensGap : chars::BracesGap);
    if (next == end || !chars::is(*next, chars::NumberPart)) return done;
    if (!inNumber || next != from) *done.written++ = ' ';
    return plainOperations.copyNumbers(next, end, done.written, group);
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
