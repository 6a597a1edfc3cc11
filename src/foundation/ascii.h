// Letters, digits and blanks of plain text, the same in every locale.
#pragma once

#include <string_view>

#include <ko/foundation.h>

namespace ko::ascii {

constexpr char lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The value of a hexadecimal digit.
constexpr int hexValue(char c) noexcept { return c <= '9' ? c - '0' : lower(c) - 'a' + 10; }

inline bool equalNoCase(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (unsigned long i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i])) return false;
    return true;
}

inline std::string_view trimmed(std::string_view text, bool left = true,
                                bool right = true) noexcept {
    while (left && !text.empty() && String::isSpace(text.front()))
        text.remove_prefix(1);
    while (right && !text.empty() && String::isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

}  // namespace ko::ascii
