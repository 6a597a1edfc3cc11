// A source of single characters, and where a lexer stands.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

#include <ko/kvtparser.h>

namespace kvt::test {

// Brings a text one character at a time.
class Single final : public ko::mirel_sdk::impl::Lexer {
  public:
    explicit Single(std::string_view text) : text_(text) { bring(); }
    signed char consume() override {
        advance();
        if (la != -1) bring();
        return c;
    }

  private:
    void bring() {
        la = next_ < text_.size() ? static_cast<signed char>(text_[next_])
                                  : static_cast<signed char>(-1);
        ++next_;
    }

    std::string_view text_;
    unsigned long next_ = 0;
};

struct State {
    int c, la;
    std::int32_t pos, line, column;
};

inline State stateOf(const ko::mirel_sdk::impl::Lexer& lexer) {
    return {lexer.c, lexer.la, lexer.pos, lexer.line, lexer.column};
}

inline bool operator==(const State& a, const State& b) {
    return a.c == b.c && a.la == b.la && a.pos == b.pos && a.line == b.line && a.column == b.column;
}

inline std::ostream& operator<<(std::ostream& out, const State& state) {
    return out << "c " << state.c << " la " << state.la << " pos " << state.pos << " line "
               << state.line << " column " << state.column;
}

}  // namespace kvt::test
