// Numbers from text. The grammar is checked here, digit by digit; reals that plain arithmetic
// rounds correctly are converted here too, the others by the standard library. Neither knows a
// locale.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

#include <ko/foundation.h>

#include "ascii.h"

namespace ko {

namespace {

// --- Integers -----------------------------------------------------------------------------------

// integer = [ "+" | "-" ] [ "0x" ] digit { digit } [ "u" ]
struct IntegerText {
    bool negative = false;
    int base = 10;
    std::string_view digits;
};

IntegerText splitInteger(std::string_view text, String::Radix radix) noexcept {
    IntegerText parts;
    text = ascii::trimmed(text);
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        parts.negative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (!text.empty() && ascii::lower(text.back()) == 'u') text.remove_suffix(1);
    parts.base = radix == String::Auto ? 10 : radix;
    if (radix == String::Auto && text.size() > 1 && text[0] == '0' &&
        ascii::lower(text[1]) == 'x') {
        parts.base = 16;
        text.remove_prefix(2);
    }
    parts.digits = text;
    return parts;
}

// Whole text or nothing; `digits` has no sign of its own.
bool readMagnitude(const IntegerText& parts, unsigned long& magnitude) noexcept {
    const char* const end = parts.digits.data() + parts.digits.size();
    const auto [stop, error] = std::from_chars(parts.digits.data(), end, magnitude, parts.base);
    return error == std::errc() && stop == end;
}

}  // namespace

template <class Integer>
bool parseInteger(std::string_view text, Integer& out, String::Radix radix) noexcept {
    const IntegerText parts = splitInteger(text, radix);
    unsigned long magnitude = 0;
    if (!readMagnitude(parts, magnitude)) return false;
    const auto largest = static_cast<unsigned long>(std::numeric_limits<Integer>::max());
    if (!parts.negative) {
        if (magnitude > largest) return false;
        out = static_cast<Integer>(magnitude);
        return true;
    }
    if (std::is_unsigned_v<Integer> || magnitude > largest + 1) return false;
    out = static_cast<Integer>(0UL - magnitude);
    return true;
}

template bool parseInteger(std::string_view, signed char&, String::Radix) noexcept;
template bool parseInteger(std::string_view, unsigned char&, String::Radix) noexcept;
template bool parseInteger(std::string_view, short&, String::Radix) noexcept;
template bool parseInteger(std::string_view, unsigned short&, String::Radix) noexcept;
template bool parseInteger(std::string_view, int&, String::Radix) noexcept;
template bool parseInteger(std::string_view, unsigned int&, String::Radix) noexcept;
template bool parseInteger(std::string_view, long&, String::Radix) noexcept;
template bool parseInteger(std::string_view, unsigned long&, String::Radix) noexcept;

// --- Reals --------------------------------------------------------------------------------------

namespace {

__extension__ using Wide = unsigned __int128;

// mantissa * 10^exponent. The mantissa holds the first 19 digits that count.
struct Decimal {
    std::uint64_t mantissa = 0;
    long exponent = 0;
    bool isWhole = true;  // false when digits are missing
};

// Takes the digits at `at`, with the point behind or before them; returns how many.
unsigned long takeDigits(const char*& at, const char* end, bool behindPoint, Decimal& decimal) {
    constexpr std::uint64_t full = 1'000'000'000'000'000'000;
    const char* const begin = at;
    for (; at != end && String::isDigit(*at); ++at) {
        const auto digit = static_cast<std::uint64_t>(*at - '0');
        if (decimal.mantissa < full) {
            decimal.mantissa = decimal.mantissa * 10 + digit;
            if (behindPoint) --decimal.exponent;
        } else {
            if (digit != 0) decimal.isWhole = false;
            if (!behindPoint) ++decimal.exponent;
        }
    }
    return static_cast<unsigned long>(at - begin);
}

// exponent = "e" [ "+" | "-" ] digits
bool takeExponent(const char*& at, const char* end, Decimal& decimal) {
    constexpr long beyondAll = 1'000'000'000'000;  // no text has digits enough to bring it back
    if (ascii::lower(*at++) != 'e') return false;
    const bool negative = at != end && *at == '-';
    if (at != end && (*at == '-' || *at == '+')) ++at;
    const char* const begin = at;
    long exponent = 0;
    for (; at != end && String::isDigit(*at); ++at)
        exponent = std::min(exponent * 10 + (*at - '0'), beyondAll);
    decimal.exponent += negative ? -exponent : exponent;
    return at != begin;
}

// decimal = digits [ "." [ digits ] ] | "." digits, then [ exponent ]
// True when `text` is just that.
bool splitDecimal(std::string_view text, Decimal& decimal) {
    const char* at = text.data();
    const char* const end = at + text.size();
    unsigned long digits = takeDigits(at, end, false, decimal);
    if (at != end && *at == '.') digits += takeDigits(++at, end, true, decimal);
    if (digits == 0) return false;
    return at == end || (takeExponent(at, end, decimal) && at == end);
}

int bitLength(std::uint64_t number) { return number == 0 ? 0 : 64 - __builtin_clzl(number); }

// number / 10^power, rounded once. 5^power fits 63 bits.
template <class Real>
Real quotient(std::uint64_t number, int power) {
    std::uint64_t divisor = 1;
    for (int i = 0; i < power; ++i)
        divisor *= 5;
    // Shifted so that the result has at least 63 bits, more than any Real keeps.
    const int shift = 63 + bitLength(divisor) - bitLength(number);
    const Wide dividend = Wide(number) << shift;
    const auto bits = static_cast<std::uint64_t>(dividend / divisor);
    const bool isExact = dividend % divisor == 0;
    const int dropped = bitLength(bits) - std::numeric_limits<Real>::digits;
    const std::uint64_t half = std::uint64_t(1) << (dropped - 1);
    const std::uint64_t rest = bits & (2 * half - 1);
    std::uint64_t kept = bits >> dropped;
    if (rest > half || (rest == half && (!isExact || kept % 2 != 0))) ++kept;
    return std::ldexp(static_cast<Real>(kept), dropped - shift - power);
}

// A double that lies just between two floats may stand for a number beside it.
bool isBetweenFloats(double number) {
    constexpr std::uint64_t lostBits = 0x1FFFFFFF;
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return (bits & lostBits) == (lostBits + 1) / 2;
}

// The value where plain arithmetic rounds it once; false elsewhere.
template <class Real>
bool convertExactly(const Decimal& decimal, Real& magnitude) {
    constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                 1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    constexpr long largestPower = 22;
    constexpr long largestDivisor = 27;
    constexpr std::uint64_t exactLimit = std::uint64_t(1) << 53;
    if (!decimal.isWhole) return false;
    const long exponent = decimal.exponent;
    if (decimal.mantissa <= exactLimit && std::abs(exponent) <= largestPower) {
        const auto mantissa = static_cast<double>(decimal.mantissa);
        const double value =
            exponent < 0 ? mantissa / powers[-exponent] : mantissa * powers[exponent];
        magnitude = static_cast<Real>(value);
        if (std::is_same_v<Real, double> || !isBetweenFloats(value)) return true;
    }
    if (exponent > 0 || exponent < -largestDivisor) return false;
    magnitude = quotient<Real>(decimal.mantissa, static_cast<int>(-exponent));
    return true;
}

template <class Real>
bool readDecimal(std::string_view text, Real& magnitude) noexcept {
    Decimal decimal;
    if (!splitDecimal(text, decimal)) return false;
    if (decimal.mantissa == 0) return true;
    if (convertExactly(decimal, magnitude)) return true;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (result.ec == std::errc()) return std::isfinite(magnitude);
    // No value can hold it: it is far above 1, and refused, or far below, and zero.
    constexpr long digitsOfMantissa = 19;
    magnitude = 0;
    return decimal.exponent <= -digitsOfMantissa;
}

template <class Real>
bool readWord(std::string_view text, Real& magnitude) noexcept {
    if (ascii::equalNoCase(text, "inf") || ascii::equalNoCase(text, "infinity")) {
        magnitude = std::numeric_limits<Real>::infinity();
        return true;
    }
    magnitude = std::numeric_limits<Real>::quiet_NaN();
    return ascii::equalNoCase(text, "nan");
}

// real = [ "+" | "-" ] ( decimal [ "f" ] | "inf" | "infinity" | "nan" )
template <class Real>
bool readReal(std::string_view text, Real& out) noexcept {
    text = ascii::trimmed(text);
    const bool negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
    Real magnitude = 0;
    const bool isNumber = !text.empty() && (String::isDigit(text.front()) || text.front() == '.');
    if (isNumber || !readWord(text, magnitude)) {
        magnitude = 0;
        if (!text.empty() && ascii::lower(text.back()) == 'f') text.remove_suffix(1);
        if (!readDecimal(text, magnitude)) return false;
    }
    out = std::copysign(magnitude, negative ? Real(-1) : Real(1));
    return true;
}

}  // namespace

bool parseNumber(std::string_view text, float& out) noexcept { return readReal(text, out); }
bool parseNumber(std::string_view text, double& out) noexcept { return readReal(text, out); }

// --- One text -----------------------------------------------------------------------------------

bool String::parse(const String& text, bool& out) noexcept {
    const std::string_view word = ascii::trimmed(text.view());
    const bool isTrue = ascii::equalNoCase(word, "true") || word == "1";
    if (!isTrue && !ascii::equalNoCase(word, "false") && word != "0") return false;
    out = isTrue;
    return true;
}

bool String::parse(const String& text, float& out) noexcept { return readReal(text.view(), out); }
bool String::parse(const String& text, double& out) noexcept { return readReal(text.view(), out); }

bool String::parse(const String& text, signed char& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}
bool String::parse(const String& text, unsigned char& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}
bool String::parse(const String& text, short& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}
bool String::parse(const String& text, unsigned short& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}
bool String::parse(const String& text, int& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}
bool String::parse(const String& text, unsigned int& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}
bool String::parse(const String& text, long& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}
bool String::parse(const String& text, unsigned long& out, Radix radix) noexcept {
    return parseInteger(text.view(), out, radix);
}

}  // namespace ko
