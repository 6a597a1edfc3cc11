// What the C library makes of a decimal; it has the locale that a program begins with.
#pragma once

#include <cmath>
#include <cstdlib>
#include <string>
#include <type_traits>

#include "block.h"

namespace kvt::test {

template <class Real>
Real reference(const std::string& text) {
    if constexpr (std::is_same_v<Real, float>) {
        return std::strtof(text.c_str(), nullptr);
    } else {
        return std::strtod(text.c_str(), nullptr);
    }
}

// What is too large there is refused here.
template <class Real>
void addLikeReference(Block<Real>& block, const std::string& decimal) {
    const Real expected = reference<Real>(decimal);
    if (std::isinf(expected)) {
        block.addRefused(decimal);
    } else {
        block.add(decimal, expected);
    }
}

}  // namespace kvt::test
