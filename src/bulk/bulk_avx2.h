// What the AVX2 files share. Functions are compiled for it one by one, so that the rest of the
// library runs on any machine.
#pragma once

#include "bulk/bulk.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <cstdint>

#define KO_AVX2_TARGET gnu::target("avx2,bmi,lzcnt,popcnt")
#define KO_AVX2 [[KO_AVX2_TARGET]]

namespace ko::bulk::avx512 {

// On a machine that has AVX2.
bool isSupported();

}  // namespace ko::bulk::avx512

namespace ko::bulk::avx2 {

Conversion convertNumbers(std::string_view text, DataType type, unsigned char* dest,
                          unsigned long room);

// Ends by the plain path what was copied in steps. Of `from` on nothing is read yet; what was
// written ends within a number, or with the space after one. What is left may go on with that
// number, or with a gap that leads to one.
Copied copyRest(Copied done, const char* from, const char* end, bool inNumber, Group group);

// Pieces of a text on their way to `out`.
template <class Scalar>
struct Batch {
    const char* text;
    const unsigned long* begins;  // of the pieces, and of what stands after the last and a space
    unsigned long count;
    Scalar* out;

    std::string_view piece(unsigned long i) const {
        return {text + begins[i], begins[i + 1] - 1 - begins[i]};
    }
    bool convertOne(unsigned long i) const {
        return convertNumber(piece(i), dataTypeOf<Scalar>(),
                             reinterpret_cast<unsigned char*>(out) + i * sizeof(Scalar));
    }
};

// True when all are converted.
template <class Scalar>
KO_AVX2 bool convertBatch(const Batch<Scalar>& batch);

// The same for what a first turn left: of the pieces from `first` on those with a bit in `left`.
template <class Scalar>
KO_AVX2 bool convertLeft(const Batch<Scalar>& batch, unsigned long first, std::uint64_t left);

KO_AVX2 inline __m256i load(const char* at) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
}

// A bit for each byte's highest.
KO_AVX2 inline std::uint64_t joined(__m256i first, __m256i second) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(first)) |
           static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(second)))
               << 32;
}

// A bit for each of 64 characters that is `c`.
KO_AVX2 inline std::uint64_t placesOf(char c, const char* at) {
    const __m256i wanted = _mm256_set1_epi8(c);
    return joined(_mm256_cmpeq_epi8(load(at), wanted), _mm256_cmpeq_epi8(load(at + 32), wanted));
}

}  // namespace ko::bulk::avx2

#endif
