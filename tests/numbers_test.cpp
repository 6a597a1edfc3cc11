// Numbers from text: integers at their bounds in every radix, reals rounded correctly, booleans.
// Expected reals come from exact arithmetic on decimal digits or from the C library, never from the
// code under test.

#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "commalocale.h"
#include "exactdecimal.h"

namespace {

using ko::String;
using kvt::test::CommaLocale;
using kvt::test::exactly;
using kvt::test::Scientific;
using std::string_view_literals::operator""sv;

// --- integers

// Holds every value that the tests write down, far beyond 64 bits on either side.
__extension__ using Wide = __int128;

constexpr String::Radix radices[] = {String::Auto, String::Binary, String::Octal, String::Decimal,
                                     String::Hexadecimal};

std::string toText(Wide value, int base) {
    const bool negative = value < 0;
    std::string digits;
    do {
        const int digit = static_cast<int>(value % base);
        digits.insert(digits.begin(), "0123456789abcdef"[digit < 0 ? -digit : digit]);
        value /= base;
    } while (value != 0);
    return negative ? "-" + digits : digits;
}

std::string toText(Wide value, String::Radix radix) {
    return toText(value, radix == String::Auto ? 10 : static_cast<int>(radix));
}

// -0x80 for -128.
std::string toPrefixedText(Wide value) {
    std::string text = toText(value, 16);
    return text.insert(text[0] == '-' ? 1 : 0, "0x");
}

struct IntegerTypeNames {
    template <class T>
    static std::string GetName(int /*index*/) {
        return (std::is_signed_v<T> ? "Int" : "UInt") + std::to_string(8 * sizeof(T));
    }
};

template <class T>
class IntegerTest : public testing::Test {
  protected:
    static constexpr T untouched = 42;
    static constexpr Wide smallest{std::numeric_limits<T>::min()};
    static constexpr Wide largest = std::numeric_limits<T>::max();

    static void expectRead(std::string_view text, String::Radix radix, T expected) {
        // Never the expected value, so that writing nothing is noticed.
        T value = static_cast<T>(expected == untouched ? untouched + 1 : untouched);
        EXPECT_TRUE(String::parse(String(text), value, radix)) << text << " radix " << radix;
        EXPECT_EQ(value, expected) << text << " radix " << radix;
    }

    static void expectRefused(std::string_view text, String::Radix radix) {
        T value = untouched;
        EXPECT_FALSE(String::parse(String(text), value, radix)) << text << " radix " << radix;
        EXPECT_EQ(value, untouched) << text << " radix " << radix;
    }

    static void expectByRange(std::string_view text, String::Radix radix, Wide meant) {
        if (smallest <= meant && meant <= largest) {
            expectRead(text, radix, static_cast<T>(meant));
        } else {
            expectRefused(text, radix);
        }
    }
};

using IntegerTypes = testing::Types<signed char, unsigned char, short, unsigned short, int,
                                    unsigned int, long, unsigned long>;
TYPED_TEST_SUITE(IntegerTest, IntegerTypes, IntegerTypeNames);

// Values around the bounds of a type, around zero, and far outside, among them those that wrap
// around to something that would fit.
std::vector<Wide> edgeValues(Wide smallest, Wide largest) {
    std::vector<Wide> values;
    const Wide word = Wide(1) << 64;
    for (Wide i = -3; i <= 3; ++i) {
        for (const Wide base : {Wide(0), smallest, largest, 2 * largest, 10 * largest, word / 2,
                                -word / 2, word, 16 * word, Wide(1) << 120}) {
            values.push_back(base + i);
            values.push_back(-(base + i));
        }
    }
    return values;
}

TYPED_TEST(IntegerTest, EveryRadixTakesExactlyTheRangeOfTheType) {
    for (const String::Radix radix : radices)
        for (const Wide value : edgeValues(this->smallest, this->largest))
            this->expectByRange(toText(value, radix), radix, value);
}

TYPED_TEST(IntegerTest, PrefixedTextTakesExactlyTheRangeOfTheType) {
    for (const Wide value : edgeValues(this->smallest, this->largest))
        this->expectByRange(toPrefixedText(value), String::Auto, value);
}

TYPED_TEST(IntegerTest, ValuesOfSeventeenBitsAreReadOrRefusedByRange) {
    for (const String::Radix radix : radices)
        for (Wide value = -66'000; value <= 66'000; value += radix == String::Auto ? 1 : 7)
            this->expectByRange(toText(value, radix), radix, value);
}

TYPED_TEST(IntegerTest, PlusSignIsAllowed) {
    this->expectRead("+7", String::Auto, 7);
    this->expectRead("+0", String::Auto, 0);
    this->expectRead("+0x1f", String::Auto, 31);
    this->expectRead("+101", String::Binary, 5);
    this->expectRead("+" + toText(this->largest, 10), String::Decimal,
                     static_cast<TypeParam>(this->largest));
    this->expectRefused("+" + toText(this->largest + 1, 10), String::Decimal);
}

TYPED_TEST(IntegerTest, MinusSignIsForSignedTypesAlone) {
    for (const char* text : {"-0", "-1", "-0x1", "-1u"}) {
        SCOPED_TRACE(text);
        TypeParam value = this->untouched;
        EXPECT_EQ(String::parse(text, value, String::Auto), std::is_signed_v<TypeParam>);
        const int meant = std::string_view(text) == "-0" ? 0 : -1;
        EXPECT_EQ(value, std::is_signed_v<TypeParam> ? static_cast<TypeParam>(meant)
                                                     : TypeParam(this->untouched));
    }
}

TYPED_TEST(IntegerTest, UnsignedMarkMayFollow) {
    for (const String::Radix radix : radices) {
        this->expectRead("1u", radix, 1);
        this->expectRead("1U", radix, 1);
        this->expectRead("+1u", radix, 1);
    }
    this->expectRead("0x1Fu", String::Auto, 31);
    this->expectRead("0x1fU", String::Auto, 31);
    this->expectRead(toText(this->largest, 10) + "u", String::Auto,
                     static_cast<TypeParam>(this->largest));
    this->expectRefused(toText(this->largest + 1, 10) + "u", String::Auto);
}

TYPED_TEST(IntegerTest, AutoReadsHexadecimalBehindAPrefix) {
    this->expectRead("0x1F", String::Auto, 31);
    this->expectRead("0X1f", String::Auto, 31);
    this->expectRead("0x0", String::Auto, 0);
    this->expectRead("0x00000000000000000000007f", String::Auto, 127);
}

TYPED_TEST(IntegerTest, LeadingZerosAreDecimal) {
    this->expectRead("010", String::Auto, 10);
    this->expectRead("000", String::Auto, 0);
    this->expectRead("089", String::Auto, 89);
    this->expectRead(std::string(100'000, '0') + "99", String::Auto, 99);
    this->expectRead(std::string(100'000, '0'), String::Hexadecimal, 0);
}

TYPED_TEST(IntegerTest, ExplicitRadicesTakeBareDigits) {
    this->expectRead("101", String::Binary, 5);
    this->expectRead("17", String::Octal, 15);
    this->expectRead("17", String::Decimal, 17);
    this->expectRead("1F", String::Hexadecimal, 31);
    this->expectRead("1f", String::Hexadecimal, 31);
    this->expectRefused("0x1f", String::Hexadecimal);
    this->expectRefused("0X1F", String::Hexadecimal);
    this->expectRefused("0x1", String::Decimal);
    this->expectRefused("0b1", String::Binary);
    this->expectRefused("0o7", String::Octal);
}

TYPED_TEST(IntegerTest, DigitsBeyondTheRadixAreRefused) {
    this->expectRefused("2", String::Binary);
    this->expectRefused("12", String::Binary);
    this->expectRefused("8", String::Octal);
    this->expectRefused("18", String::Octal);
    this->expectRefused("a", String::Decimal);
    this->expectRefused("1a", String::Decimal);
    this->expectRefused("g", String::Hexadecimal);
    this->expectRefused("1g", String::Hexadecimal);
    this->expectRefused("1f", String::Auto);
    this->expectRefused("0x1g", String::Auto);
}

TYPED_TEST(IntegerTest, BlanksAroundTheNumberAreIgnored) {
    for (const String::Radix radix : radices) {
        this->expectRead(" 1", radix, 1);
        this->expectRead("1 ", radix, 1);
        this->expectRead(" \t\n\v\f\r+1u\r\f\v\n\t ", radix, 1);
    }
    this->expectRead(" 0x1f ", String::Auto, 31);
}

TYPED_TEST(IntegerTest, BlanksInsideTheNumberAreRefused) {
    for (const char* text : {"1 2", "1\t2", "+ 1", "- 1", "1 u", "0 x1", "0x 1", "0x1 u", "1 2 3"})
        for (const String::Radix radix : radices)
            this->expectRefused(text, radix);
}

TYPED_TEST(IntegerTest, TextThatIsNoIntegerIsRefused) {
    const std::string_view refused[] = {
        ""sv,      " "sv,     "\n\t"sv,      "+"sv,        "-"sv,     "u"sv,     "U"sv,
        "+u"sv,    "-u"sv,    "++1"sv,       "--1"sv,      "+-1"sv,   "-+1"sv,   "1+"sv,
        "1-"sv,    "1-1"sv,   "1uu"sv,       "1uU"sv,      "u1"sv,    "1u1"sv,   "1l"sv,
        "1L"sv,    "1ul"sv,   "0x"sv,        "0X"sv,       "0xu"sv,   "+0x"sv,   "-0x"sv,
        "0x-1"sv,  "0x+1"sv,  "x1"sv,        "00x1"sv,     "0x0x1"sv, "1x0"sv,   "1.0"sv,
        "1."sv,    ".1"sv,    "1e1"sv,       "1e0"sv,      "1E1"sv,   "1'0"sv,   "1_0"sv,
        "1,0"sv,   "1.000"sv, "#1"sv,        "$1"sv,       "(1)"sv,   "[1]"sv,   "true"sv,
        "inf"sv,   "nan"sv,   "one"sv,       "\0"sv,       "1\0"sv,   "\0001"sv, "1\0001"sv,
        "\2401"sv, "1\xA0"sv, "\xC2\2401"sv, "\xD9\xA1"sv, "\xFF"sv,
    };
    for (const std::string_view text : refused) {
        this->expectRefused(text, String::Auto);
        this->expectRefused(text, String::Binary);
        this->expectRefused(text, String::Decimal);
    }
}

TYPED_TEST(IntegerTest, ExponentsAreRefusedOutsideHexadecimal) {
    for (const String::Radix radix : {String::Auto, String::Octal, String::Decimal}) {
        this->expectRefused("1e5", radix);
        this->expectRefused("1E0", radix);
    }
    this->expectRead("1e", String::Hexadecimal, 30);
}

TYPED_TEST(IntegerTest, HundredThousandDigitsAreOutOfRange) {
    for (const String::Radix radix : radices)
        this->expectRefused(std::string(100'000, '1'), radix);
}

TYPED_TEST(IntegerTest, ViewsAreReadLikeTexts) {
    const std::string_view whole = "x 12u7"sv;
    TypeParam value = 0;
    EXPECT_TRUE(ko::parseInteger(whole.substr(1, 4), value, String::Auto));
    EXPECT_EQ(value, 12);
    EXPECT_TRUE(ko::parseInteger(whole.substr(1, 2), value, String::Binary));
    EXPECT_EQ(value, 1);
    EXPECT_FALSE(ko::parseInteger(whole.substr(1, 5), value, String::Auto));
    EXPECT_FALSE(ko::parseInteger(whole.substr(0, 0), value, String::Auto));
    EXPECT_FALSE(ko::parseInteger(std::string_view(), value, String::Auto));
    EXPECT_EQ(value, 1);
}

TEST(RadixTest, CodesAreTheBases) {
    EXPECT_EQ(static_cast<int>(String::Auto), 0);
    EXPECT_EQ(static_cast<int>(String::Binary), 2);
    EXPECT_EQ(static_cast<int>(String::Octal), 8);
    EXPECT_EQ(static_cast<int>(String::Decimal), 10);
    EXPECT_EQ(static_cast<int>(String::Hexadecimal), 16);
}

// --- reals: comparison

std::uint64_t bitsOf(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

std::uint32_t bitsOf(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// What the C library makes of the text; its locale is "C" while the tests run.
double reference(const std::string& text, double /*type*/) {
    return std::strtod(text.c_str(), nullptr);
}
float reference(const std::string& text, float /*type*/) {
    return std::strtof(text.c_str(), nullptr);
}

struct RealTypeNames {
    template <class T>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<T, float> ? "Float" : "Double";
    }
};

template <class T>
class RealTest : public testing::Test {
  protected:
    using Limits = std::numeric_limits<T>;
    static constexpr T untouched = T(42.5);
    static constexpr int precision = Limits::digits;
    // Exponents of the unit in the last place: of the smallest values and of the largest.
    static constexpr int lowestUnit = Limits::min_exponent - precision;
    static constexpr int highestUnit = Limits::max_exponent - precision;

    static std::string shown(std::string_view text) {
        return std::string(text.substr(0, 100)) + (text.size() > 100 ? "..." : "");
    }

    // Equal to the last bit, the sign of zero included.
    static void expectRead(std::string_view text, T expected) {
        T value = untouched;
        EXPECT_TRUE(String::parse(String(text), value)) << shown(text);
        EXPECT_EQ(bitsOf(value), bitsOf(expected))
            << shown(text) << ": " << value << " instead of " << expected;
    }

    static void expectRefused(std::string_view text) {
        T value = untouched;
        EXPECT_FALSE(String::parse(String(text), value)) << shown(text);
        EXPECT_EQ(value, untouched) << shown(text);
    }

    static void expectNan(std::string_view text) {
        T value = untouched;
        EXPECT_TRUE(String::parse(String(text), value)) << shown(text);
        EXPECT_TRUE(std::isnan(value)) << shown(text);
    }

    // As the C library reads it; what overflows there is refused here.
    static void expectLikeReference(const std::string& text) {
        const T expected = reference(text, T());
        if (std::isinf(expected)) {
            expectRefused(text);
        } else {
            expectRead(text, expected);
        }
    }
};

using RealTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(RealTest, RealTypes, RealTypeNames);

// --- reals: what is accepted

TYPED_TEST(RealTest, PlainDecimalsAreRead) {
    this->expectRead("0", 0);
    this->expectRead("1", 1);
    this->expectRead("42", 42);
    this->expectRead("0.5", TypeParam(0.5));
    this->expectRead("1.25", TypeParam(1.25));
    this->expectRead("0010.50", TypeParam(10.5));
    this->expectRead("0.1", TypeParam(0.1L));
}

TYPED_TEST(RealTest, SignsAreRead) {
    this->expectRead("+1.5", TypeParam(1.5));
    this->expectRead("-1.5", TypeParam(-1.5));
    this->expectRead("+.5", TypeParam(0.5));
    this->expectRead("-.5", TypeParam(-0.5));
    this->expectRead("-5.", -5);
}

TYPED_TEST(RealTest, ZeroKeepsItsSign) {
    for (const char* text : {"0", "+0", "0.0", ".0", "0.", "0e5", "0e-5", "0f", "0e99999999999"})
        this->expectRead(text, TypeParam(0.0));
    for (const char* text : {"-0", "-0.0", "-.0", "-0.", "-0e5", "-0e-5", "-0f", "-0e99999999999"})
        this->expectRead(text, TypeParam(-0.0));
}

TYPED_TEST(RealTest, OneSideOfThePointMayBeEmpty) {
    this->expectRead("5.", 5);
    this->expectRead(".5", TypeParam(0.5));
    this->expectRead("5.e1", 50);
    this->expectRead(".5e1", 5);
    this->expectRead("5.f", 5);
    this->expectRead(".5f", TypeParam(0.5));
}

TYPED_TEST(RealTest, ExponentsAreRead) {
    this->expectRead("1e2", 100);
    this->expectRead("1E2", 100);
    this->expectRead("1e+2", 100);
    this->expectRead("25e-2", TypeParam(0.25));
    this->expectRead("2.5e+0", TypeParam(2.5));
    this->expectRead("-1.5e1", -15);
    this->expectRead("1e0002", 100);
    this->expectRead("1e-0", 1);
}

TYPED_TEST(RealTest, FloatMarkMayFollowADecimal) {
    this->expectRead("1f", 1);
    this->expectRead("1F", 1);
    this->expectRead("1.5f", TypeParam(1.5));
    this->expectRead("-1.5F", TypeParam(-1.5));
    this->expectRead("1e2f", 100);
    this->expectRead("1e-2F", TypeParam(0.01L));
}

TYPED_TEST(RealTest, FloatMarkDoesNotChangeThePrecision) {
    this->expectRead("0.1f", TypeParam(0.1L));
    this->expectRead("16777217f", TypeParam(16777217));
}

TYPED_TEST(RealTest, InfinityIsReadInAnyLetterCase) {
    const TypeParam infinity = std::numeric_limits<TypeParam>::infinity();
    for (const char* text : {"inf", "INF", "Inf", "iNf", "infinity", "INFINITY", "InFiNiTy"}) {
        this->expectRead(text, infinity);
        this->expectRead(std::string("+") + text, infinity);
        this->expectRead(std::string("-") + text, -infinity);
    }
}

TYPED_TEST(RealTest, NotANumberIsReadInAnyLetterCase) {
    for (const char* text : {"nan", "NAN", "NaN", "nAn", "+nan", "-nan", "-NaN"})
        this->expectNan(text);
}

TYPED_TEST(RealTest, BlanksAroundTheNumberAreIgnored) {
    this->expectRead(" 1.5", TypeParam(1.5));
    this->expectRead("1.5 ", TypeParam(1.5));
    this->expectRead(" \t\n\v\f\r-1.5e0f\r\f\v\n\t ", TypeParam(-1.5));
    this->expectRead(" inf ", std::numeric_limits<TypeParam>::infinity());
    this->expectNan("\tnan\n");
}

TYPED_TEST(RealTest, TextThatIsNoRealIsRefused) {
    const std::string_view refused[] = {
        ""sv,         " "sv,     "\t\n"sv, "."sv,     "+"sv,     "-"sv,       "+."sv,    "-."sv,
        "e"sv,        "e5"sv,    ".e5"sv,  "-e5"sv,   "1e"sv,    "1e+"sv,     "1e-"sv,   "1.e"sv,
        ".5e"sv,      "1e5.5"sv, "1e.5"sv, "1e5e5"sv, "1e+-5"sv, "1e++5"sv,   "1..2"sv,  "1.2.3"sv,
        "..5"sv,      "++1"sv,   "--1"sv,  "+-1"sv,   "-+1"sv,   "1-"sv,      "1+2"sv,   "1 2"sv,
        "- 1"sv,      "+ 1"sv,   "1 .5"sv, "1. 5"sv,  "1 e5"sv,  "1e 5"sv,    "1e5 f"sv, "1 f"sv,
        "f"sv,        "-f"sv,    ".f"sv,   "1ff"sv,   "1fF"sv,   "1ef"sv,     "1e+f"sv,  "f1"sv,
        "1f1"sv,      "1f.5"sv,  "1d"sv,   "1l"sv,    "1L"sv,    "1u"sv,      "1.5u"sv,  "1,5"sv,
        "1'000"sv,    "1_000"sv, "1;"sv,   "x"sv,     "one"sv,   "true"sv,    "(1)"sv,   "[1]"sv,
        "1%"sv,       "#1"sv,    "\0"sv,   "1\0"sv,   "1\0f"sv,  "1.\0005"sv, "\2401"sv, "1\xA0"sv,
        "\xD9\xA1"sv, "\x92"sv,
    };
    for (const std::string_view text : refused)
        this->expectRefused(text);
}

TYPED_TEST(RealTest, HexadecimalRealsAreRefused) {
    for (const char* text : {"0x1", "0x1p3", "0X1P3", "0x1.8p0", "0x.8", "0x", "0xf", "1p3",
                             "1.8p1", "ff", "0x10f", "-0x1p-3"})
        this->expectRefused(text);
}

TYPED_TEST(RealTest, OtherSpellingsOfSpecialValuesAreRefused) {
    for (const char* text :
         {"inff",    "INFF", "inf f",  "infinityf", "nanf",      "NaNF",      "in",        "na",
          "i",       "n",    "infi",   "infinit",   "infinitys", "infinity1", "inf1",      "1inf",
          "nan1",    "1nan", "nan(1)", "nan()",     "nan(ind)",  "-nan(ind)", "nan(snan)", "1.#INF",
          "1.#QNAN", "snan", "qnan",   "NaNs",      "nanq",      "--inf",     "+-inf",     "- inf",
          "i nf",    "inf.", ".inf",   "inf5",      "infe5",     "+",         "-"})
        this->expectRefused(text);
}

TYPED_TEST(RealTest, ViewsAreReadLikeTexts) {
    const std::string_view whole = "x 1.25e1f7"sv;
    TypeParam value = 0;
    EXPECT_TRUE(ko::parseNumber(whole.substr(1, 8), value));
    EXPECT_EQ(value, TypeParam(12.5));
    EXPECT_TRUE(ko::parseNumber(whole.substr(2, 1), value));
    EXPECT_EQ(value, TypeParam(1));
    EXPECT_FALSE(ko::parseNumber(whole.substr(2, 5), value));
    EXPECT_FALSE(ko::parseNumber(whole, value));
    EXPECT_FALSE(ko::parseNumber(std::string_view(), value));
    EXPECT_EQ(value, TypeParam(1));
}

// --- reals: the ends of the range

TYPED_TEST(RealTest, LargestValueIsRead) {
    const std::uint64_t mantissa = (std::uint64_t(1) << this->precision) - 1;
    const std::string text = exactly(mantissa, this->highestUnit).text();
    this->expectRead(text, std::numeric_limits<TypeParam>::max());
    this->expectRead("-" + text, -std::numeric_limits<TypeParam>::max());
}

TYPED_TEST(RealTest, WhatRoundsPastTheLargestValueIsRefused) {
    // Half a unit above the largest value: the tie goes to the even neighbour, which is too large.
    const std::uint64_t mantissa = (std::uint64_t(2) << this->precision) - 1;
    const Scientific border = exactly(mantissa, this->highestUnit - 1);
    this->expectRefused(border.text());
    this->expectRefused("-" + border.text());
    this->expectRefused(border.justAbove().text());
    this->expectRead(border.justBelow().text(), std::numeric_limits<TypeParam>::max());
    this->expectRead("-" + border.justBelow().text(), -std::numeric_limits<TypeParam>::max());
}

TYPED_TEST(RealTest, OverflowIsRefused) {
    for (const char* text :
         {"1e400", "-1e400", "1e400f", "123456789e400", "0.0000001e500", "1e99999", "-1e2147483648",
          "1e4294967296", "1e9223372036854775807", "1e18446744073709551616", "10.5e400",
          "1e99999999999999999999999999999999", "0.001e99999999999999999999999999999999"})
        this->expectRefused(text);
    this->expectRefused("1" + std::string(400, '0'));
    this->expectRefused("-1" + std::string(400, '0') + ".5");
}

TYPED_TEST(RealTest, SubnormalsAreRead) {
    const TypeParam smallest = std::numeric_limits<TypeParam>::denorm_min();
    const std::string text = exactly(1, this->lowestUnit).text();
    this->expectRead(text, smallest);
    this->expectRead("-" + text, -smallest);
    this->expectRead(exactly(3, this->lowestUnit).text(), 3 * smallest);
    const std::uint64_t largestSubnormal = (std::uint64_t(1) << (this->precision - 1)) - 1;
    this->expectRead(exactly(largestSubnormal, this->lowestUnit).text(),
                     std::numeric_limits<TypeParam>::min() - smallest);
}

TYPED_TEST(RealTest, HalfTheSmallestValueIsTheBorderToZero) {
    const TypeParam smallest = std::numeric_limits<TypeParam>::denorm_min();
    const Scientific half = exactly(1, this->lowestUnit - 1);
    this->expectRead(half.text(), TypeParam(0.0));
    this->expectRead("-" + half.text(), TypeParam(-0.0));
    this->expectRead(half.justBelow().text(), TypeParam(0.0));
    this->expectRead(half.justAbove().text(), smallest);
    this->expectRead("-" + half.justAbove().text(), -smallest);
}

TYPED_TEST(RealTest, UnderflowBecomesASignedZero) {
    for (const char* text :
         {"1e-400", "1e-400f", "123456789e-500", "0.1e-99999", "1e-2147483649", "1e-4294967296",
          "1e-9223372036854775808", "1e-18446744073709551616", "10000000.5e-500",
          "1e-99999999999999999999999999999999", "1000e-99999999999999999999999999999999"}) {
        this->expectRead(text, TypeParam(0.0));
        this->expectRead(std::string("-") + text, TypeParam(-0.0));
    }
    this->expectRead("0." + std::string(400, '0') + "1", TypeParam(0.0));
    this->expectRead("-." + std::string(400, '0') + "1", TypeParam(-0.0));
}

TYPED_TEST(RealTest, HugeExponentOfZeroIsZero) {
    for (const char* text : {"0e400", "0.000e99999999999999999999999", "0e-99999999999999999999999",
                             "00000.e2147483648"}) {
        this->expectRead(text, TypeParam(0.0));
        this->expectRead(std::string("-") + text, TypeParam(-0.0));
    }
}

TYPED_TEST(RealTest, ZerosBalanceTheExponent) {
    this->expectRead("1" + std::string(500, '0') + "e-500", 1);
    this->expectRead("0." + std::string(500, '0') + "1e501", 1);
    this->expectRead("." + std::string(500, '0') + "15e501", TypeParam(1.5));
    this->expectRead(std::string(1000, '0') + "1.5" + std::string(1000, '0'), TypeParam(1.5));
}

TYPED_TEST(RealTest, HundredThousandDigitsAreRead) {
    const std::string zeros(100'000, '0');
    this->expectRead("1" + zeros + "e-100000", 1);
    this->expectRead("-0." + zeros + "25e100001", TypeParam(-2.5));
    this->expectRead(zeros + "7", 7);
    this->expectRead("7." + zeros, 7);
    this->expectLikeReference("0." + std::string(100'000, '3'));
    this->expectLikeReference(std::string(100'000, '9') + "e-100000");
    this->expectRefused("1" + zeros);
    this->expectRead("." + zeros + "1", TypeParam(0.0));
}

TYPED_TEST(RealTest, OneOfHundredThousandDigitsDecidesATie) {
    const std::string zeros(100'000, '0');
    const TypeParam one = 1;
    const TypeParam next = one + std::numeric_limits<TypeParam>::epsilon();
    // 1 + half a unit, exactly, with its digits after the point.
    Scientific half = exactly((std::uint64_t(1) << this->precision) + 1, -this->precision);
    const std::string text = "1." + half.digits.substr(1);
    this->expectRead(text + zeros, one);
    this->expectRead(text + zeros + "1", next);
}

// --- reals: rounding

// Reads what lies halfway between two neighbouring values, and what lies just beside it.
template <class T, class Expect>
void expectNearestEven(std::uint64_t mantissa, int unit, Expect expectRead) {
    const T lower = std::ldexp(static_cast<T>(mantissa), unit);
    const T upper = std::ldexp(static_cast<T>(mantissa + 1), unit);
    const T even = mantissa % 2 == 0 ? lower : upper;
    const Scientific half = exactly(2 * mantissa + 1, unit - 1);
    expectRead(half.text(), even);
    expectRead("-" + half.text(), -even);
    expectRead(half.justBelow().text(), lower);
    expectRead(half.justAbove().text(), upper);
    expectRead("-" + half.justAbove().text(), -upper);
}

TYPED_TEST(RealTest, HalfwayCasesOfNormalValuesGoToTheEvenNeighbour) {
    std::mt19937_64 random(1);
    const std::uint64_t lead = std::uint64_t(1) << (this->precision - 1);
    for (int i = 0; i < 600; ++i) {
        const std::uint64_t mantissa = lead + random() % (lead - 1);
        const int units = this->highestUnit - this->lowestUnit + 1;
        const int unit = this->lowestUnit + static_cast<int>(random() % unsigned(units));
        expectNearestEven<TypeParam>(mantissa, unit, this->expectRead);
    }
}

TYPED_TEST(RealTest, HalfwayCasesOfSubnormalValuesGoToTheEvenNeighbour) {
    std::mt19937_64 random(2);
    const std::uint64_t lead = std::uint64_t(1) << (this->precision - 1);
    for (int i = 0; i < 200; ++i) {
        const std::uint64_t mantissa = 1 + random() % (lead >> (random() % 20));
        expectNearestEven<TypeParam>(mantissa, this->lowestUnit, this->expectRead);
    }
}

TYPED_TEST(RealTest, HalfwayCasesBetweenPowersOfTwoGoToTheEvenNeighbour) {
    const std::uint64_t largestMantissa = (std::uint64_t(1) << this->precision) - 1;
    for (int unit = this->lowestUnit; unit < this->highestUnit; unit += 5) {
        expectNearestEven<TypeParam>(largestMantissa, unit, this->expectRead);
        expectNearestEven<TypeParam>((largestMantissa + 1) / 2, unit, this->expectRead);
    }
}

TYPED_TEST(RealTest, ExactValuesAreReadExactly) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 500; ++i) {
        const std::uint64_t mantissa = random() >> (64 - this->precision);
        const int units = this->highestUnit - this->lowestUnit + 1;
        const int unit = this->lowestUnit + static_cast<int>(random() % unsigned(units));
        this->expectRead(exactly(mantissa, unit).text(),
                         std::ldexp(static_cast<TypeParam>(mantissa), unit));
    }
}

TEST(FloatRoundingTest, FloatIsRoundedDirectlyAndNotThroughDouble) {
    std::mt19937_64 random(4);
    for (int i = 0; i < 1000; ++i) {
        const std::uint64_t mantissa = (std::uint64_t(1) << 23) + random() % (1U << 23);
        const int unit = static_cast<int>(random() % 250) - 148;
        const float lower = std::ldexp(static_cast<float>(mantissa), unit);
        const float upper = std::ldexp(static_cast<float>(mantissa + 1), unit);
        const Scientific half = exactly(2 * mantissa + 1, unit - 1);
        float value = 0;
        ASSERT_TRUE(String::parse(String(half.justAbove().text()), value));
        EXPECT_EQ(value, upper);
        ASSERT_TRUE(String::parse(String(half.justBelow().text()), value));
        EXPECT_EQ(value, lower);
        // As a double both are the tie itself, which knows only one of the two neighbours.
        double above = 0;
        double below = 0;
        ASSERT_TRUE(String::parse(String(half.justAbove().text()), above));
        ASSERT_TRUE(String::parse(String(half.justBelow().text()), below));
        EXPECT_EQ(above, below);
    }
}

TYPED_TEST(RealTest, NotoriousTextsAreRoundedCorrectly) {
    for (const char* text : {
             "2.2250738585072011e-308",
             "2.2250738585072012e-308",
             "2.2250738585072014e-308",
             "2.4703282292062327e-324",
             "2.4703282292062328e-324",
             "4.9406564584124654e-324",
             "7.4109846876186981e-324",
             "1.7976931348623157e308",
             "1.7976931348623158e308",
             "1.7976931348623159e308",
             "1.00000000000000011102230246251565404236316680908203125",
             "1.00000000000000011102230246251565404236316680908203124",
             "1.00000000000000011102230246251565404236316680908203126",
             "9007199254740993",
             "9007199254740993.0000000000000000000000000000000001",
             "9007199254740991.4999999999999999999999999999999995",
             "6929495644600919.5",
             "3.7455744005952583e15",
             "8.10109172351e-10",
             "1.50000000000000011102230246251565",
             "0.500000000000000166533453693773481063544750213623046875",
             "123456789012345678901234567890",
             "1e22",
             "1e23",
             "8.5e22",
             "6.0221409e+23",
             "3.4028234664e38",
             "3.4028235677973366e38",
             "3.4028235677973367e38",
             "3.40282357e38",
             "1.1754943508e-38",
             "1.17549430e-38",
             "7.0064923216240853e-46",
             "7.0064923216240854e-46",
             "1.401298464324817e-45",
             "2.1019476964872256e-45",
             "16777217",
             "16777217.000000001",
             "16777219",
             "0.000000000000000000000000000000000000011754943508222875",
             "1.000000059604644775390625",
             "1.000000059604644775390626",
         }) {
        this->expectLikeReference(text);
        this->expectLikeReference(std::string("-") + text);
    }
}

// --- reals: random texts against the C library

std::string randomDigits(std::mt19937_64& random, std::size_t count) {
    std::string digits;
    while (digits.size() < count)
        digits += static_cast<char>('0' + random() % 10);
    return digits;
}

std::string randomExponent(std::mt19937_64& random, int range) {
    const int exponent = static_cast<int>(random() % unsigned(2 * range + 1)) - range;
    return (random() % 2 ? "e" : "E") + std::string(exponent >= 0 && random() % 2 ? "+" : "") +
           std::to_string(exponent);
}

std::string randomDecimal(std::mt19937_64& random, std::size_t longest, int exponentRange) {
    std::string text = random() % 3 == 0 ? "-" : "";
    const std::size_t whole = random() % (longest + 1);
    const std::size_t fraction = whole == 0 ? 1 + random() % longest : random() % longest;
    text += randomDigits(random, whole);
    if (fraction != 0 || random() % 2) text += "." + randomDigits(random, fraction);
    if (random() % 3) text += randomExponent(random, exponentRange);
    return text;
}

TYPED_TEST(RealTest, ShortRandomTextsAreReadLikeTheCLibrary) {
    std::mt19937_64 random(5);
    const int range = std::numeric_limits<TypeParam>::max_exponent10;
    for (int i = 0; i < 40'000; ++i)
        this->expectLikeReference(randomDecimal(random, 10, range + range / 4));
}

TYPED_TEST(RealTest, LongRandomTextsAreReadLikeTheCLibrary) {
    std::mt19937_64 random(6);
    const int range = std::numeric_limits<TypeParam>::max_exponent10;
    for (int i = 0; i < 5'000; ++i)
        this->expectLikeReference(randomDecimal(random, 40, range));
    for (int i = 0; i < 500; ++i)
        this->expectLikeReference(randomDecimal(random, 900, range));
}

TYPED_TEST(RealTest, RandomTextsOfSmallExponentsAreReadLikeTheCLibrary) {
    std::mt19937_64 random(7);
    for (int i = 0; i < 40'000; ++i)
        this->expectLikeReference(randomDecimal(random, 12, 25));
}

TYPED_TEST(RealTest, RandomTextsBetweenTheSmallestValuesAreReadLikeTheCLibrary) {
    std::mt19937_64 random(8);
    const int lowest = std::is_same_v<TypeParam, float> ? 45 : 324;
    for (int i = 0; i < 5'000; ++i) {
        const int exponent = -lowest + static_cast<int>(random() % 20) - 3;
        this->expectLikeReference(randomDigits(random, 1) + "." + randomDigits(random, 17) + "e" +
                                  std::to_string(exponent));
    }
}

std::string printed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*e", digits, value);
    return text;
}

TYPED_TEST(RealTest, EveryPrintedValueReadsBack) {
    std::mt19937_64 random(9);
    for (int i = 0; i < 40'000; ++i) {
        TypeParam value = 0;
        const std::uint64_t bits = random();
        std::memcpy(&value, &bits, sizeof value);
        if (!std::isfinite(value)) continue;
        const std::string text =
            printed(double(value), std::numeric_limits<TypeParam>::max_digits10 - 1);
        this->expectRead(text, value);
        this->expectRead(text + "f", value);
    }
}

TYPED_TEST(RealTest, RoundedPrintsOfRandomValuesAreReadLikeTheCLibrary) {
    std::mt19937_64 random(10);
    for (int i = 0; i < 20'000; ++i) {
        double value = 0;
        const std::uint64_t bits = random();
        std::memcpy(&value, &bits, sizeof value);
        if (!std::isfinite(value)) continue;
        this->expectLikeReference(printed(value, static_cast<int>(random() % 20)));
    }
}

// --- booleans

void expectBool(std::string_view text, bool expected) {
    bool value = !expected;
    EXPECT_TRUE(String::parse(String(text), value)) << text;
    EXPECT_EQ(value, expected) << text;
}

TEST(BooleanTest, WordsAreReadInAnyLetterCase) {
    for (const char* text : {"true", "TRUE", "True", "tRuE"})
        expectBool(text, true);
    for (const char* text : {"false", "FALSE", "False", "fAlSe"})
        expectBool(text, false);
}

TEST(BooleanTest, DigitsAreRead) {
    expectBool("1", true);
    expectBool("0", false);
}

TEST(BooleanTest, BlanksAroundAreIgnored) {
    expectBool(" true", true);
    expectBool(" \t\n\v\f\rfalse\r\f\v\n\t ", false);
    expectBool(" 1 ", true);
    expectBool("0\n", false);
}

TEST(BooleanTest, EverythingElseIsRefusedAndLeavesTheTarget) {
    for (const std::string_view text :
         {""sv,           " "sv,      "2"sv,  "-1"sv,  "+1"sv,   "01"sv,   "00"sv,    "10"sv,
          "1u"sv,         "1.0"sv,    "0f"sv, "t"sv,   "f"sv,    "tru"sv,  "truee"sv, "true1"sv,
          "falsey"sv,     "yes"sv,    "no"sv, "on"sv,  "off"sv,  "null"sv, "t rue"sv, "1 0"sv,
          "true false"sv, "true\0"sv, "\0"sv, "1\0"sv, "\2401"sv}) {
        for (const bool before : {false, true}) {
            bool value = before;
            EXPECT_FALSE(String::parse(String(text), value)) << text;
            EXPECT_EQ(value, before) << text;
        }
    }
}

// --- locale

TYPED_TEST(RealTest, ReadingDoesNotDependOnTheLocale) {
    const CommaLocale comma;
    this->expectRead("1.5", TypeParam(1.5));
    this->expectRead("1234.5e-1f", TypeParam(123.45L));
    this->expectRefused("1,5");
    this->expectRefused("1.234,5");
    this->expectRefused("1.234.567");
}

TYPED_TEST(IntegerTest, ReadingDoesNotDependOnTheLocale) {
    const CommaLocale comma;
    this->expectRead("100", String::Auto, 100);
    this->expectRefused("1.0", String::Auto);
    this->expectRefused("1,0", String::Decimal);
}

TEST(BooleanTest, ReadingDoesNotDependOnTheLocale) {
    const CommaLocale comma;
    expectBool("true", true);
    bool value = false;
    EXPECT_FALSE(String::parse("wahr", value));
}

}  // namespace
