// Numbers from text. The grammar is checked here, digit by digit, and the value is left to the
// standard library, which rounds correctly and knows no locale.
#include <algorithm>
#include <charconv>
#include <cmath>
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

unsigned long digitsAt(std::string_view text, unsigned long start) noexcept {
    unsigned long end = start;
    while (end < text.size() && String::isDigit(text[end]))
        ++end;
    return end - start;
}

// decimal = digits [ "." [ digits ] ] | "." digits, then [ "e" [ "+" | "-" ] digits ]
// True when `text` is just that.
bool isDecimal(std::string_view text) noexcept {
    const unsigned long whole = digitsAt(text, 0);
    unsigned long at = whole;
    unsigned long fraction = 0;
    if (at < text.size() && text[at] == '.') {
        fraction = digitsAt(text, at + 1);
        at += 1 + fraction;
    }
    if (whole + fraction == 0) return false;
    if (at == text.size()) return true;
    if (ascii::lower(text[at]) != 'e') return false;
    ++at;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
    const unsigned long exponent = digitsAt(text, at);
    return exponent > 0 && at + exponent == text.size();
}

// Whether a decimal that no finite value can hold lies beyond the largest, and not below the
// smallest: its first digit that counts stands left of the point, the exponent applied.
bool isHuge(std::string_view text) noexcept {
    const unsigned long e = std::min(text.find_first_of("eE"), text.size());
    const std::string_view mantissa = text.substr(0, e);
    const unsigned long first = mantissa.find_first_of("123456789");
    const unsigned long point = std::min(mantissa.find('.'), mantissa.size());
    if (e == text.size()) return first < point;
    std::string_view digits = text.substr(e + 1);
    const bool negative = digits.front() == '-';
    if (negative || digits.front() == '+') digits.remove_prefix(1);
    const auto saturated = std::numeric_limits<long>::max() / 4;
    long exponent = 0;
    for (const char c : digits)
        if (exponent < saturated / 10) exponent = exponent * 10 + (c - '0');
    const long place = static_cast<long>(point) - static_cast<long>(first);
    return place + (negative ? -exponent : exponent) > 0;
}

template <class Real>
bool readDecimal(std::string_view text, Real& magnitude) noexcept {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (result.ec == std::errc()) return std::isfinite(magnitude);
    magnitude = 0;
    return !isHuge(text);
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
    if (!readWord(text, magnitude)) {
        if (!text.empty() && ascii::lower(text.back()) == 'f') text.remove_suffix(1);
        if (!isDecimal(text) || !readDecimal(text, magnitude)) return false;
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
