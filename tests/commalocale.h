// A locale that writes 1.5 as 1,5 and 1000 as 1.000, for tests that nothing here minds.
#pragma once

#include <locale>
#include <string>

namespace kvt::test {

// Makes the process write numbers that way until it goes out of scope: always in the library of
// C++, and in that of C where its program to make locales is at hand.
class CommaLocale {
  public:
    CommaLocale();
    ~CommaLocale();
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

    bool isInC() const { return isInC_; }

  private:
    std::string formerC_;
    std::locale former_;
    bool isInC_;
};

}  // namespace kvt::test
