// Lexers over a text that bring its characters in other ways than the library's own.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include <ko/kvtparser.h>

namespace kvt::fuzz {

// Brings one character at a time.
class Characters final : public ko::mirel_sdk::impl::Lexer {
  public:
    // A text that `ko::String` holds: an empty one begins with its terminator.
    static Characters ofString(std::string_view text);
    explicit Characters(std::string_view text) : text_(text) { bring(); }
    signed char consume() override;

  private:
    void bring();

    std::string_view text_;
    unsigned long next_ = 0;
};

// Brings blocks of differing length. Each is memory of its own, gone when the next is asked for.
class Blocks final : public ko::mirel_sdk::impl::Lexer {
  public:
    // `seed` settles the lengths.
    Blocks(std::string_view text, std::uint64_t seed);
    signed char consume() override { return step(); }

  private:
    std::string_view nextRun() override { return takeBlock(); }
    std::string_view takeBlock();

    std::string_view text_;
    std::uint64_t random_;
    unsigned long longest_;
    std::unique_ptr<char[]> block_;
};

}  // namespace kvt::fuzz
