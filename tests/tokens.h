// Comparing and printing tokens in tests.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

#include <ko/kvtparser.h>

namespace ko::mirel_sdk::impl {

inline std::ostream& operator<<(std::ostream& out, const Token& token) {
    return out << "type " << token.type << " (" << token.line << ',' << token.column << ") '"
               << token.text.view() << "'";
}

inline bool operator==(const Token& a, const Token& b) {
    return a.type == b.type && a.text == b.text && a.line == b.line && a.column == b.column;
}

}  // namespace ko::mirel_sdk::impl

namespace kvt::test {

inline ko::mirel_sdk::impl::Token token(ko::mirel_sdk::impl::Token::Type type,
                                        std::string_view text, std::int32_t line,
                                        std::int32_t column) {
    return {type, ko::String(text), line, column};
}

}  // namespace kvt::test
