// Which values fit inputs of another type, and what they become there.
#include "scene/conversions.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "foundation/typetable.h"

namespace ko::mirel_sdk {

namespace {

Family familyOf(AttrType type) { return about(type).family; }

bool isScalar(Family family) {
    return family == Family::Bool || family == Family::Whole || family == Family::Real;
}

}  // namespace

bool canConvert(AttrType from, AttrType to, bool* narrowing) {
    *narrowing = false;
    const Family target = familyOf(to);
    switch (familyOf(from)) {
        case Family::Bool: return isScalar(target);
        case Family::Whole: *narrowing = target == Family::Bool; return isScalar(target);
        case Family::Real:
            *narrowing = target == Family::Whole;
            return target == Family::Whole || target == Family::Real || target == Family::Vector;
        case Family::Vector:
        case Family::Matrix:
            if (target != familyOf(from)) return false;
            *narrowing = componentCount(to) < componentCount(from);
            return true;
        case Family::Alone: break;
    }
    return from == to;
}

namespace impl {

namespace {

// To the nearest whole number, half away from zero. What is added lies just below one half, so that
// the largest number below one half is not carried up to 1.
double rounded(double number) {
    constexpr double almostHalf = 0.49999999999999994;
    return std::trunc(number + std::copysign(almostHalf, number));
}

constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 18446744073709551616.0;

long toInt(double number) {
    const double whole = rounded(number);
    if (std::isnan(whole)) return 0;
    if (whole >= twoTo63) return std::numeric_limits<long>::max();
    if (whole < -twoTo63) return std::numeric_limits<long>::min();
    return static_cast<long>(whole);
}

unsigned long toUInt(double number) {
    const double whole = rounded(number);
    if (std::isnan(whole) || whole <= 0) return 0;
    if (whole >= twoTo64) return std::numeric_limits<unsigned long>::max();
    return static_cast<unsigned long>(whole);
}

bool isWhole(AttrType type) { return familyOf(type) == Family::Whole; }

bool convertToBool(const AttrData& from, AttrData& to) {
    if (!isWhole(from.type) && from.type != AttrType::Real) return false;
    const bool isSet =
        from.type == AttrType::Real ? rounded(from.real()) != 0 : from.integer() != 0;
    to = AttrData::ofBool(isSet);
    return true;
}

// Between Int and UInt the 64 bits stay as they are.
bool convertToWhole(const AttrData& from, AttrData& to) {
    if (from.type == AttrType::Bool) {
        to.value[0] = from.boolean() ? 1 : 0;
    } else if (isWhole(from.type)) {
        to.value[0] = from.value[0];
    } else if (from.type == AttrType::Real) {
        to.value[0] = to.type == AttrType::UInt ? toUInt(from.real())
                                                : static_cast<std::uint64_t>(toInt(from.real()));
    } else {
        return false;
    }
    return true;
}

bool convertToReal(const AttrData& from, AttrData& to) {
    if (!isWhole(from.type)) return false;
    to.setReal(from.type == AttrType::Int ? static_cast<double>(from.integer())
                                          : static_cast<double>(from.uinteger()));
    return true;
}

// A real goes into all four components, whatever the type uses of them.
bool convertToVector(const AttrData& from, AttrData& to) {
    if (from.type == AttrType::Real) {
        for (int i = 0; i < 4; ++i)
            to.setComponent(i, from.real());
        return true;
    }
    if (!isVectorType(from.type)) return false;
    const unsigned long shared = std::min(componentCount(from.type), componentCount(to.type));
    std::copy_n(from.value, shared, to.value);
    return true;
}

// The upper-left part is what both matrices share; a larger one is the identity beyond it.
bool convertToMatrix(const AttrData& from, AttrData& to) {
    if (familyOf(from.type) != Family::Matrix) return false;
    const unsigned long fromSize = rowLength(from.type);
    const unsigned long toSize = rowLength(to.type);
    const unsigned long shared = std::min(fromSize, toSize);
    to = AttrData::defaultOf(to.type);
    for (unsigned long row = 0; row < shared; ++row)
        std::copy_n(from.value + row * fromSize, shared, to.value + row * toSize);
    return true;
}

}  // namespace

bool convert(const AttrData& from, AttrType type, AttrData& to) {
    to = AttrData();
    to.type = type;
    switch (familyOf(type)) {
        case Family::Bool: return convertToBool(from, to);
        case Family::Whole: return convertToWhole(from, to);
        case Family::Real: return convertToReal(from, to);
        case Family::Vector: return convertToVector(from, to);
        case Family::Matrix: return convertToMatrix(from, to);
        case Family::Alone: break;
    }
    return false;
}

}  // namespace impl
}  // namespace ko::mirel_sdk
