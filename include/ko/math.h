// Math values, plain arrays of components in the order in which the format writes them, and their
// reading from text.
#pragma once

#include <string_view>

#include <ko/foundation.h>

#pragma GCC visibility push(default)

namespace ko::math {

// A direction: x, y, (z), (w).
template <int N, class T>
struct VecT {
    T c[N];
    static const VecT zero;
};

// A point: x, y, (z).
template <int N, class T>
struct PosT {
    T c[N];
    static const PosT zero;
};

// A rotation: x, y, z, w.
template <class T>
struct QuatT {
    T c[4];
    static const QuatT identity;
};

// A colour: r, g, b, a.
template <class T>
struct RgbaT {
    T c[4];
    static const RgbaT black;  // opaque
};

// A square matrix, row by row.
template <int N, class T>
struct MatT {
    T c[N * N];
    static const MatT identity;

    static constexpr MatT makeIdentity() {
        MatT m{};
        for (int i = 0; i < N; ++i)
            m.c[i * N + i] = T(1);
        return m;
    }
};

// A box: its minimum corner, then its maximum corner.
template <class T>
struct AabbT {
    PosT<3, T> min;
    PosT<3, T> max;
    static const AabbT identity;  // the degenerate box at the origin
};

template <int N, class T>
inline constexpr VecT<N, T> VecT<N, T>::zero{};
template <int N, class T>
inline constexpr PosT<N, T> PosT<N, T>::zero{};
template <class T>
inline constexpr QuatT<T> QuatT<T>::identity{{0, 0, 0, 1}};
template <class T>
inline constexpr RgbaT<T> RgbaT<T>::black{{0, 0, 0, 1}};
template <int N, class T>
inline constexpr MatT<N, T> MatT<N, T>::identity = MatT<N, T>::makeIdentity();
template <class T>
inline constexpr AabbT<T> AabbT<T>::identity{};

// Reads the first N pieces of `text`, which spaces separate, into `out`: every one of them even
// after a failure; a piece that fails leaves its component. With fewer pieces nothing is read. True
// when all were read.
template <int N, class T>
bool parseComponents(std::string_view text, T* out) {
    std::string_view pieces[N];
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::string_view& piece : pieces) {
        while (at != end && *at == ' ')
            ++at;
        const char* const begin = at;
        while (at != end && *at != ' ')
            ++at;
        if (begin == at) return false;
        piece = {begin, static_cast<unsigned long>(at - begin)};
    }
    bool allRead = true;
    for (int i = 0; i < N; ++i)
        allRead = parseNumber(pieces[i], out[i]) && allRead;
    return allRead;
}

// Four components, or three and an alpha of 1; a fourth that is no number counts as not there.
template <class T>
bool parseRgba(std::string_view text, T* out) {
    if (parseComponents<4>(text, out)) return true;
    if (!parseComponents<3>(text, out)) return false;
    out[3] = T(1);
    return true;
}

}  // namespace ko::math

namespace ko {

template <int N, class T>
bool String::parse(const String& text, math::VecT<N, T>& out) {
    return math::parseComponents<N>(text.view(), out.c);
}

template <int N, class T>
bool String::parse(const String& text, math::PosT<N, T>& out) {
    return math::parseComponents<N>(text.view(), out.c);
}

template <class T>
bool String::parse(const String& text, math::QuatT<T>& out) {
    return math::parseComponents<4>(text.view(), out.c);
}

template <int N, class T>
bool String::parse(const String& text, math::MatT<N, T>& out) {
    return math::parseComponents<N * N>(text.view(), out.c);
}

template <class T>
bool String::parse(const String& text, math::RgbaT<T>& out) {
    return math::parseRgba(text.view(), out.c);
}

}  // namespace ko

#pragma GCC visibility pop
