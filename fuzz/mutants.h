// Every document that differs from a given one by one small change of a kind.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kvt::fuzz {

enum class Change {
    Cut,     // the document ends here
    Byte,    // one byte is another one
    Insert,  // there is one byte more
    Delete,  // a token is missing
    Double,  // a token stands twice
    Swap,    // two neighbouring tokens have changed places
};

inline constexpr Change changes[] = {Change::Cut,    Change::Byte,   Change::Insert,
                                     Change::Delete, Change::Double, Change::Swap};

// "cut", "byte" and so on.
std::string_view nameOf(Change change);

class Mutants {
  public:
    explicit Mutants(std::string document);
    unsigned long count(Change change) const;
    // The `index`-th mutant of that kind; `index` is below the count.
    std::string make(Change change, unsigned long index) const;

  private:
    struct Token {
        unsigned long begin;
        unsigned long end;
    };

    std::string_view textOf(Token token) const;
    // The document with `middle` in place of [begin, end).
    std::string withMiddle(unsigned long begin, std::string_view middle, unsigned long end) const;

    std::string document_;
    std::vector<Token> tokens_;
};

}  // namespace kvt::fuzz
