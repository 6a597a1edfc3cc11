// Numbers of a document as values.
#pragma once

#include <cstdint>
#include <string_view>

#include <ko/foundation.h>
#include <ko/scene.h>

namespace ko::mirel_sdk::impl {

// Unsigned integers too go through the signed parser; they end at 2^63 - 1.
inline bool readInteger(std::string_view text, AttrData& data) {
    data.type = text.back() == 'u' ? AttrType::UInt : AttrType::Int;
    long value = 0;
    if (!parseInteger(text, value, String::Auto)) return false;
    data.value[0] = static_cast<std::uint64_t>(value);
    return true;
}

inline bool readReal(std::string_view text, AttrData& data) {
    data.type = AttrType::Real;
    double value = 0;
    if (!parseNumber(text, value)) return false;
    data.setReal(value);
    return true;
}

}  // namespace ko::mirel_sdk::impl
