// Numbers of a few characters: what is converted where it stands is what the parsers make of it.

#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "bulk/charruns.h"
#include "bulk/shortnumbers.h"
#include "bytes.h"

namespace {

using kvt::test::Random;

std::uint64_t bitsOf(double number) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

// It may refuse, but not what is short and plain; `text` is of digits, points and signs.
void expectSame(const std::string& text) {
    const std::string ahead = text + ";               ";
    const auto length = static_cast<unsigned>(text.size());
    const unsigned points = ko::chars::Sixteen(ahead.data()).points();
    double expected = 0;
    double found = 0;
    const bool isReal = ko::parseNumber(text, expected);
    const bool isTaken = ko::shortnumbers::toReal(ahead.data(), length, points, &found);
    ASSERT_EQ(isReal, isTaken) << text;
    ASSERT_EQ(bitsOf(expected), bitsOf(found)) << text;
    if (text.find('.') != std::string::npos) return;
    long whole = 0;
    long taken = 0;
    const bool isWhole = ko::parseInteger(std::string_view(text), whole, ko::String::Auto);
    ASSERT_EQ(isWhole, ko::shortnumbers::toInteger(ahead.data(), length, &taken)) << text;
    ASSERT_EQ(whole, taken) << text;
}

TEST(ShortNumbers, OfAnyFewCharactersAreWhatTheyAre) {
    constexpr std::string_view characters = "0159.-";
    for (unsigned length = 1; length <= 6; ++length) {
        unsigned long count = 1;
        for (unsigned i = 0; i < length; ++i)
            count *= characters.size();
        for (unsigned long which = 0; which < count; ++which) {
            std::string text;
            for (unsigned long rest = which; text.size() < length; rest /= characters.size())
                text += characters[rest % characters.size()];
            ASSERT_NO_FATAL_FAILURE(expectSame(text));
        }
    }
}

TEST(ShortNumbers, OfUpToFourteenCharactersAreWhatTheyAre) {
    Random random(7);
    for (int round = 0; round < 200000; ++round) {
        std::string text = random.oneIn(3) ? "-" : "";
        for (unsigned long digits = 1 + random.below(13); digits > 0; --digits)
            text += static_cast<char>('0' + random.below(10));
        if (text.size() < 14 && random.oneIn(2)) {
            text.insert(text.size() - random.below(text.size()), ".");
        }
        ASSERT_NO_FATAL_FAILURE(expectSame(text));
    }
}

}  // namespace
