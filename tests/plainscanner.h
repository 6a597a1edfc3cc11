// A scanner that follows the rules of the format one character at a time and does nothing to be
// fast: what the lexer has to agree with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <ko/kvtparser.h>

namespace kvt::test {

class PlainScanner {
  public:
    using Token = ko::mirel_sdk::impl::Token;

    // Keeps a view of `text` only.
    explicit PlainScanner(std::string_view text);

    Token next();
    // Passes over one character, as one that no token begins with.
    void skip();

  private:
    struct GroupRules;

    bool isAtEnd() const { return ahead_ == endOfText; }
    bool isBlankAhead() const;
    int characterAt(unsigned long place) const;
    char take();
    Token make(Token::Type type, std::string_view text) const;
    Token invalid(const std::string& what) const;
    Token unexpectedEnd(const std::string& what) const;

    Token punctuation(Token::Type type);
    Token comment();
    Token string();
    Token brackets();
    Token group(const GroupRules& rules);
    void takeInGroup(const GroupRules& rules, std::string& text, int& depth);
    void takeGap(const GroupRules& rules, std::string& text);
    Token word();
    Token number();

    // Characters are signed, and this one stands for the end wherever it comes from.
    static constexpr int endOfText = -1;

    std::string_view text_;
    unsigned long place_ = 0;
    int current_ = 0;
    int ahead_;
    std::int32_t line_ = 1;
    std::int32_t column_ = 0;
};

}  // namespace kvt::test
