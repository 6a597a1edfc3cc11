// Bytes for the tests: random ones, in blocks of just their size, and as a message shows them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace kvt::test {

// The same numbers on every run.
class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        state_ += 0x9E3779B97F4A7C15;
        std::uint64_t bits = state_;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
        return bits ^ (bits >> 31);
    }
    unsigned long below(unsigned long limit) { return next() % limit; }
    bool oneIn(unsigned long count) { return below(count) == 0; }
    char oneOf(std::string_view set) { return set[below(set.size())]; }

  private:
    std::uint64_t state_;
};

// The text in a block of just its size, beyond which nothing may be read.
class Block {
  public:
    explicit Block(std::string_view text) : chars_(new char[text.size()]), size_(text.size()) {
        std::copy(text.begin(), text.end(), chars_.get());
    }
    std::string_view view() const { return {chars_.get(), size_}; }

  private:
    std::unique_ptr<char[]> chars_;
    unsigned long size_;
};

// Characters as they can be told apart in a message.
inline std::string shown(std::string_view text) {
    std::string all;
    for (const char c : text) {
        char code[5];
        std::snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned>(c) & 0xFF);
        all += c > ' ' && c < '\x7F' ? std::string(1, c) : code;
    }
    return all;
}

}  // namespace kvt::test
