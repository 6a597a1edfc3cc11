#include "number_reference.h"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <string>

namespace kvt::fuzz {

namespace {

constexpr std::string_view blanks = " \t\n\v\f\r";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string lowered(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

// Takes the longest run of digits from the start; returns how many.
std::size_t takeDigits(std::string_view& text) {
    std::size_t count = 0;
    while (count < text.size() && isDigit(text[count]))
        ++count;
    text.remove_prefix(count);
    return count;
}

bool take(std::string_view& text, char c) {
    if (text.empty() || text.front() != c) return false;
    text.remove_prefix(1);
    return true;
}

bool takeSign(std::string_view& text) { return take(text, '+') || take(text, '-'); }

bool isWord(std::string_view text) {
    takeSign(text);
    return text == "inf" || text == "infinity" || text == "nan";
}

bool isDecimal(std::string_view text) {
    takeSign(text);
    std::size_t digits = takeDigits(text);
    if (take(text, '.')) digits += takeDigits(text);
    if (digits == 0) return false;
    if (take(text, 'e')) {
        takeSign(text);
        if (takeDigits(text) == 0) return false;
    }
    return text.empty();
}

float convert(const char* text, float /*type*/) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtof_l(text, nullptr, plain);
}

double convert(const char* text, double /*type*/) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, nullptr, plain);
}

template <class Real>
std::optional<Real> referenceReal(std::string_view written) {
    std::string text = lowered(trimmed(written));
    if (isWord(text)) return convert(text.c_str(), Real());
    if (!text.empty() && text.back() == 'f') text.pop_back();
    if (!isDecimal(text)) return std::nullopt;
    const Real value = convert(text.c_str(), Real());
    if (std::isinf(value)) return std::nullopt;
    return value;
}

int digitValue(char c) {
    if (isDigit(c)) return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : 99;
}

std::optional<Wide> magnitudeOf(std::string_view digits, int base) {
    constexpr Wide beyondAll = Wide(1) << 70;
    if (digits.empty()) return std::nullopt;
    Wide magnitude = 0;
    for (const char c : digits) {
        if (digitValue(c) >= base) return std::nullopt;
        magnitude = std::min(magnitude * base + digitValue(c), beyondAll);
    }
    return magnitude;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::optional<bool> referenceBool(std::string_view text) {
    const std::string word = lowered(trimmed(text));
    if (word == "true" || word == "1") return true;
    if (word == "false" || word == "0") return false;
    return std::nullopt;
}

std::optional<float> referenceFloat(std::string_view text) { return referenceReal<float>(text); }

std::optional<double> referenceDouble(std::string_view text) { return referenceReal<double>(text); }

std::optional<Wide> referenceInteger(std::string_view text, int base, Wide least, Wide largest) {
    const std::string lower = lowered(trimmed(text));
    std::string_view rest = lower;
    const bool isNegative = !rest.empty() && rest.front() == '-';
    if (isNegative && least == 0) return std::nullopt;
    takeSign(rest);
    if (!rest.empty() && rest.back() == 'u') rest.remove_suffix(1);
    if (base == 0) {
        const bool isHexadecimal = rest.substr(0, 2) == "0x";
        if (isHexadecimal) rest.remove_prefix(2);
        base = isHexadecimal ? 16 : 10;
    }
    const std::optional<Wide> magnitude = magnitudeOf(rest, base);
    if (!magnitude) return std::nullopt;
    const Wide value = isNegative ? -*magnitude : *magnitude;
    if (value < least || value > largest) return std::nullopt;
    return value;
}

}  // namespace kvt::fuzz
