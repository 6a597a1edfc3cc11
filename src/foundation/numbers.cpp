// Numbers from text. Signs, suffixes and words are read here, digits by the standard library, which
// knows no locale and rounds correctly.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <type_traits>

#include <ko/foundation.h>

#include "foundation/ascii.h"

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

// Takes digits, and returns what they are worth, at most `beyondAll`.
constexpr long beyondAll = 1'000'000'000'000;  // no text has digits enough to bring it back

long takeNumber(std::string_view& text) {
    long number = 0;
    for (; !text.empty() && String::isDigit(text.front()); text.remove_prefix(1))
        number = std::min(number * 10 + (text.front() - '0'), beyondAll);
    return number;
}

// Whether the power of ten of its first digit that is not zero is negative, in a decimal that no
// value can hold. Such a number is far above 1 or far below.
bool isBelowOne(std::string_view text) {
    const unsigned long letter = std::min(text.find_first_of("eE"), text.size());
    std::string_view exponentText = text.substr(std::min(letter + 1, text.size()));
    const bool isNegative = !exponentText.empty() && exponentText.front() == '-';
    if (!exponentText.empty() && !String::isDigit(exponentText.front()))
        exponentText.remove_prefix(1);
    const long exponent = takeNumber(exponentText);
    const std::string_view digits = text.substr(0, letter);
    const auto point = static_cast<long>(std::min(digits.find('.'), digits.size()));
    const auto first = static_cast<long>(digits.find_first_not_of("0."));
    return (isNegative ? -exponent : exponent) < first - point;
}

// A plain decimal of so few digits that a Real holds them as an integer, and the power of ten too:
// one division rounds as it should. False for anything else.
template <class Real>
bool readFewDigits(std::string_view text, Real& out) noexcept {
    static constexpr double powers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    constexpr long most = std::numeric_limits<Real>::digits10;
    const char* at = text.data();
    const char* const end = at + text.size();
    const bool isNegative = at != end && *at == '-';
    if (isNegative) ++at;
    if (end - at > most + 1) return false;
    const char* behindPoint = nullptr;
    long digits = end - at;
    std::int64_t mantissa = 0;
    for (; at != end; ++at) {
        const auto digit = static_cast<unsigned char>(*at - '0');
        if (digit <= 9) {
            mantissa = mantissa * 10 + digit;
        } else if (*at == '.' && !behindPoint) {
            behindPoint = at + 1;
            --digits;
        } else {
            return false;
        }
    }
    if (digits == 0 || digits > most) return false;
    const Real magnitude = static_cast<Real>(mantissa) /
                           static_cast<Real>(powers[behindPoint ? end - behindPoint : 0]);
    out = isNegative ? -magnitude : magnitude;
    return true;
}

// decimal = digits [ "." [ digits ] ] | "." digits, then [ exponent ]
// exponent = "e" [ "+" | "-" ] digits
//
// That is what the standard library reads too, besides signs and words.
template <class Real>
bool readDecimal(std::string_view text, Real& magnitude) noexcept {
    if (text.empty() || !(String::isDigit(text.front()) || text.front() == '.')) return false;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, magnitude);
    if (stop != end) return false;
    if (error == std::errc()) return std::isfinite(magnitude);
    // No value can hold it: it is refused when it is too large, and zero when it is too small.
    magnitude = 0;
    return error == std::errc::result_out_of_range && isBelowOne(text);
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
    if (readFewDigits(text, out)) return true;
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
