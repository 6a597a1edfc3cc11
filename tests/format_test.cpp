// printf-style formatting into texts.

#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <string_view>

#include "commalocale.h"

namespace {

using ko::String;
using kvt::test::CommaLocale;
using std::string_view_literals::operator""sv;

std::string str(const String& text) { return std::string(text.view()); }

// Reaches `formatv` the way that a caller with a variable argument list does.
[[gnu::format(printf, 1, 2)]] String formatThroughList(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    String text = String::formatv(fmt, args);
    va_end(args);
    return text;
}

TEST(FormatTest, TextWithoutPlaceholdersStaysAsItIs) {
    EXPECT_EQ(str(String::format("plain text")), "plain text");
}

TEST(FormatTest, PercentSignIsWrittenTwice) { EXPECT_EQ(str(String::format("100%%")), "100%"); }

TEST(FormatTest, ResultMayBeEmpty) {
    EXPECT_TRUE(String::format("%s", "").isEmpty());
    EXPECT_TRUE(formatThroughList("%s%s", "", "").isEmpty());
}

TEST(FormatTest, MessagesOfTheReaderComeOutAsWritten) {
    EXPECT_EQ(str(String::format("BAD TOKEN (%d,%d): expected '%s', found '%s'.", 3, 14, ";", "x")),
              "BAD TOKEN (3,14): expected ';', found 'x'.");
    EXPECT_EQ(str(String::format("INVALID %s LIST TOKEN (%d,%d): '%c'", "PAREN", 1, 2, ';')),
              "INVALID PAREN LIST TOKEN (1,2): ';'");
}

TEST(FormatTest, TextPlaceholderTakesABuffer) {
    const String value("value");
    EXPECT_EQ(str(String::format("<%s>", value.buf())), "<value>");
    EXPECT_EQ(str(String::format("<%s>", String().buf())), "<>");
}

TEST(FormatTest, TextPlaceholderEndsAtANul) {
    const String text("ab\0cd", 5);
    EXPECT_EQ(str(String::format("<%s>", text.buf())), "<ab>");
}

TEST(FormatTest, TextPlaceholderKeepsBytesAbove127) {
    EXPECT_EQ(str(String::format("<%s>", "\xC3\xA4\xFF\x80")), "<\xC3\xA4\xFF\x80>");
}

TEST(FormatTest, TextPlaceholderTakesMillionsOfCharacters) {
    const std::string part(10'000'000, 'y');
    EXPECT_EQ(str(String::format("<%s|%d|%s>", part.c_str(), 5, part.c_str())),
              "<" + part + "|5|" + part + ">");
}

TEST(FormatTest, EveryLengthAroundUsualBufferSizesIsWhole) {
    for (unsigned long length = 0; length < 2100; ++length) {
        const std::string part(length, 'z');
        ASSERT_EQ(str(String::format("%s!", part.c_str())), part + "!") << length;
    }
}

TEST(FormatTest, ArgumentsAreNotTakenForFormats) {
    EXPECT_EQ(str(String::format("%s", "%d %s %n %%")), "%d %s %n %%");
}

TEST(FormatTest, CharacterPlaceholderTakesAnyCharacter) {
    for (int code = -128; code <= 127; ++code) {
        const char c = static_cast<char>(code);
        EXPECT_EQ(String::format("'%c'", c).view(), std::string({'\'', c, '\''})) << code;
    }
}

TEST(FormatTest, CharacterPlaceholderWritesANulIntoTheText) {
    EXPECT_EQ(String::format("a%cb", '\0').view(), "a\0b"sv);
}

TEST(FormatTest, IntegersComeOutInFull) {
    EXPECT_EQ(str(String::format("%d %d %d", 0, 2147483647, -2147483647 - 1)),
              "0 2147483647 -2147483648");
    EXPECT_EQ(str(String::format("%i %u", -5, 4294967295U)), "-5 4294967295");
}

TEST(FormatTest, IntegersOf64BitsComeOutInFull) {
    EXPECT_EQ(str(String::format("%lu %ld", 18446744073709551615UL, -9223372036854775807L - 1)),
              "18446744073709551615 -9223372036854775808");
    EXPECT_EQ(str(String::format("%zu %llu", sizeof(long), 18446744073709551615ULL)),
              "8 18446744073709551615");
    EXPECT_EQ(str(formatThroughList("[%lu] (%d) %ld", 18446744073709551615UL, -1, -1L)),
              "[18446744073709551615] (-1) -1");
}

TEST(FormatTest, IntegersInOtherRadices) {
    EXPECT_EQ(str(String::format("%x %X %o %#x", 255U, 255U, 8U, 16U)), "ff FF 10 0x10");
    EXPECT_EQ(str(String::format("%lx", 0xFEDCBA9876543210UL)), "fedcba9876543210");
    EXPECT_EQ(str(String::format("\\x%02x", 7U)), "\\x07");
}

TEST(FormatTest, WidthsPrecisionsAndFlags) {
    EXPECT_EQ(str(String::format("[%5d|%-5d|%05d|%+d]", 42, 42, 42, 42)),
              "[   42|42   |00042|+42]");
    EXPECT_EQ(str(String::format("[%5s|%-5s|%.2s]", "abc", "abc", "abc")), "[  abc|abc  |ab]");
    EXPECT_EQ(str(String::format("[%*d|%.*s]", 4, 7, 2, "xyz")), "[   7|xy]");
}

TEST(FormatTest, NegativeWidthArgumentsAlignLeft) {
    EXPECT_EQ(str(String::format("[%*d|%*s]", -4, 7, -3, "x")), "[7   |x  ]");
}

TEST(FormatTest, NegativePrecisionArgumentsCountAsNone) {
    EXPECT_EQ(str(String::format("[%.*s|%.*d|%.*f]", -1, "xyz", -1, 7, -1, 1.5)),
              "[xyz|7|1.500000]");
}

TEST(FormatTest, PrecisionBoundsIntegersAndReals) {
    EXPECT_EQ(str(String::format("[%.3d|%.0f|%8.3f]", 7, 2.0, 1.5)), "[007|2|   1.500]");
}

TEST(FormatTest, ShorterIntegersAreTaken) {
    const signed char tiny = -128;
    const unsigned char byte = 255;
    const short little = -32768;
    EXPECT_EQ(str(String::format("%hhd %hhu %hd", tiny, byte, little)), "-128 255 -32768");
}

TEST(FormatTest, PrecisionBoundsTextThatIsNotTerminated) {
    const char open[] = {'a', 'b', 'c'};
    EXPECT_EQ(str(String::format("%.*s", 3, open)), "abc");
}

TEST(FormatTest, RealsComeOutWithAPoint) {
    EXPECT_EQ(str(String::format("%.2f %g %e", 1.5, 0.25, 1.0)), "1.50 0.25 1.000000e+00");
    EXPECT_EQ(str(String::format("%.17g", 0.1)), "0.10000000000000001");
}

TEST(FormatTest, ListAndArgumentsGiveTheSame) {
    EXPECT_EQ(str(formatThroughList("%s (%d,%d): %s.", "PARSE ERROR", 1, 2, "detail")),
              str(String::format("%s (%d,%d): %s.", "PARSE ERROR", 1, 2, "detail")));
    const std::string part(5000, 'q');
    EXPECT_EQ(str(formatThroughList("%s%c", part.c_str(), '.')), part + ".");
}

TEST(FormatTest, LongRealsAndAddressesAreTaken) {
    EXPECT_EQ(str(String::format("%.2Lf %Lg", 1.25L, 0.5L)), "1.25 0.5");
    const int place = 0;
    char expected[32];
    std::snprintf(expected, sizeof expected, "%p", static_cast<const void*>(&place));
    EXPECT_EQ(str(String::format("%p", static_cast<const void*>(&place))), expected);
}

TEST(FormatTest, NoTextIsShownAsNull) {
    const std::string format = "%s";  // out of the compiler's sight, which would warn
    EXPECT_EQ(str(String::format(format.c_str(), static_cast<const char*>(nullptr))), "(null)");
}

TEST(FormatTest, UnknownConversionsAreRefused) {
    for (const std::string format : {"%y", "%", "%-", "%5", "%l", "%n"})
        EXPECT_THROW(String::format(format.c_str(), 0), std::invalid_argument) << format;
}

TEST(FormatTest, TextsThatTheCLibraryCannotWriteAreRefused) {
    EXPECT_THROW(String::format("%lc", static_cast<wint_t>(0xFFFF)), std::runtime_error);
}

// --- locale

TEST(FormatTest, DoesNotDependOnTheLocale) {
    const CommaLocale comma;
    EXPECT_EQ(str(String::format("%.2f %g %e", 1234.5, 0.25, 1.0)), "1234.50 0.25 1.000000e+00");
    EXPECT_EQ(str(String::format("%d %lu", 1234567, 1234567UL)), "1234567 1234567");
    EXPECT_EQ(str(String(1234567UL)), "1234567");
}

}  // namespace
