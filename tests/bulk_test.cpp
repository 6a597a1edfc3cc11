// Work on long runs of characters: copying and converting numbers, on each path of this machine,
// and texts that grow.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>
#include <ko/types.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "bulk/bulk.h"
#include "bulkpaths.h"
#include "bytes.h"
#include "foundation/textbuilder.h"
#include "reading.h"

namespace {

using ko::DataType;
using ko::String;
using ko::TextBuilder;
using ko::bulk::Group;
using ko::bulk::Path;
using ko::mirel_sdk::impl::Scene;
using kvt::test::allPaths;
using kvt::test::Block;
using kvt::test::contents;
using kvt::test::documents;
using kvt::test::nameOf;
using kvt::test::operationsOf;
using kvt::test::PathGuard;
using kvt::test::Random;
using kvt::test::Reading;
using kvt::test::shown;
using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

namespace fs = std::filesystem;

// --- What the tests share

std::string digits(Random& random, unsigned long count) {
    std::string text;
    while (text.size() < count)
        text += static_cast<char>('0' + random.below(10));
    return text;
}

// Texts at either end of memory that nothing around may be read of.
class Enclosed {
  public:
    Enclosed()
        : pages_(static_cast<char*>(
              mmap(nullptr, 3 * size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        EXPECT_EQ(0, mprotect(pages_ + size, size, PROT_READ | PROT_WRITE));
    }
    Enclosed(const Enclosed&) = delete;
    Enclosed& operator=(const Enclosed&) = delete;
    ~Enclosed() { munmap(pages_, 3 * size); }

    std::string_view atBegin(std::string_view text) const { return put(text, pages_ + size); }
    std::string_view atEnd(std::string_view text) const {
        return put(text, pages_ + 2 * size - text.size());
    }

    static constexpr unsigned long size = 65536;

  private:
    static std::string_view put(std::string_view text, char* to) {
        std::copy(text.begin(), text.end(), to);
        return {to, text.size()};
    }

    char* pages_;
};

// Tests that run once on each path that this machine can take.
class BulkPaths : public testing::TestWithParam<Path> {
  protected:
    void SetUp() override {
        if (!ko::bulk::hasPath(GetParam())) GTEST_SKIP() << "not on this machine";
    }
    static const ko::bulk::Operations& operations() { return operationsOf(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(, BulkPaths, testing::ValuesIn(allPaths), nameOf);

TEST(PlainPath, IsOnEveryMachine) { EXPECT_TRUE(ko::bulk::hasPath(Path::Plain)); }

TEST_P(BulkPaths, AreTakenWhenAskedFor) {
    const ko::bulk::Operations& former = ko::bulk::operations();
    {
        const PathGuard guard(GetParam());
        EXPECT_EQ(&operations(), &ko::bulk::operations());
    }
    EXPECT_EQ(&former, &ko::bulk::operations());
}

// --- Copying

constexpr std::string_view numberCharacters = "0123456789abcdefABCDEF+-.IiNnUu";
constexpr Group bothGroups[] = {Group::Parens, Group::Braces};

bool isBlank(char c) { return static_cast<unsigned char>(c) <= ' ' || c == '\x7F'; }

std::string_view separatorsOf(Group group) { return group == Group::Parens ? ",[]{}" : ",()[]"; }

enum class Kind : unsigned char { Other, Number, Gap };

using Kinds = std::array<Kind, 256>;

Kinds makeKinds(Group group) {
    Kinds kinds{};
    for (int code = -128; code < 128; ++code) {
        const char c = static_cast<char>(code);
        Kind& kind = kinds[static_cast<unsigned char>(c)];
        if (numberCharacters.find(c) != std::string_view::npos) kind = Kind::Number;
        if (isBlank(c) || separatorsOf(group).find(c) != std::string_view::npos) kind = Kind::Gap;
    }
    return kinds;
}

Kind kindOf(char c, Group group) {
    static const Kinds inParens = makeKinds(Group::Parens);
    static const Kinds inBraces = makeKinds(Group::Braces);
    return (group == Group::Parens ? inParens : inBraces)[static_cast<unsigned char>(c)];
}

std::string gapsOf(Group group) {
    std::string gaps;
    for (int code = -128; code < 128; ++code)
        if (kindOf(static_cast<char>(code), group) == Kind::Gap) gaps += static_cast<char>(code);
    return gaps;
}

struct Copy {
    unsigned long read = 0;
    std::string written;
};

Copy copyByRule(std::string_view text, Group group) {
    Copy copy;
    bool inGap = false;
    for (unsigned long i = 0; i < text.size(); ++i) {
        const Kind kind = kindOf(text[i], group);
        if (kind == Kind::Other) break;
        if (kind == Kind::Number) {
            if (inGap) copy.written += ' ';
            copy.written += text[i];
            copy.read = i + 1;
        }
        inGap = kind == Kind::Gap;
    }
    return copy;
}

class Copying : public BulkPaths {
  protected:
    static void expectCopy(std::string_view text, Group group) {
        constexpr char untouched = '\xA5';
        constexpr unsigned long guard = 256;
        const Copy expected = copyByRule(text, group);
        const Block block(text);
        const std::string_view from = block.view();
        const unsigned long room = text.size();
        std::string to(room + guard, untouched);
        const ko::bulk::Copied copied =
            operations().copyNumbers(from.data(), from.data() + from.size(), to.data(), group);
        ASSERT_EQ(expected.read, static_cast<unsigned long>(copied.read - from.data()))
            << shown(text);
        ASSERT_EQ(expected.written.size(), static_cast<unsigned long>(copied.written - to.data()))
            << shown(text);
        ASSERT_EQ(0, to.compare(0, expected.written.size(), expected.written))
            << shown(text) << "\nbecame " << shown(to);
        ASSERT_EQ(std::string::npos, to.find_first_not_of(untouched, room)) << shown(text);
    }

    static void expectCopies(std::string_view text) {
        for (const Group group : bothGroups)
            ASSERT_NO_FATAL_FAILURE(expectCopy(text, group));
    }
};

INSTANTIATE_TEST_SUITE_P(, Copying, testing::ValuesIn(allPaths), nameOf);

TEST_P(Copying, KnowsEveryByteWhereverItStands) {
    constexpr unsigned long places[] = {1,  2,  15,  16,  17,  31,  32,  33,  47,  48, 49,
                                        61, 62, 63,  64,  65,  66,  78,  79,  80,  81, 95,
                                        96, 97, 126, 127, 128, 129, 143, 144, 145, 160};
    for (int code = -128; code < 128; ++code) {
        for (const unsigned long place : places) {
            for (const char around : {'7', ' '}) {
                std::string text(place + 1, around);
                text[0] = '1';
                text[place] = static_cast<char>(code);
                ASSERT_NO_FATAL_FAILURE(expectCopies(text));
                text += std::string(80, around) + "9";
                ASSERT_NO_FATAL_FAILURE(expectCopies(text));
            }
        }
    }
}

TEST_P(Copying, TakesTextsOfEveryLength) {
    for (unsigned long length = 1; length <= 300; ++length) {
        for (const std::string_view pattern :
             {"1", "1 ", "12 ", "1, ", "-1.5 ", "1   ", "1234567 "}) {
            std::string text;
            while (text.size() < length)
                text += pattern;
            text.resize(length);
            ASSERT_NO_FATAL_FAILURE(expectCopies(text));
        }
    }
}

TEST_P(Copying, TakesRunsOfEveryLengthFromEveryPlace) {
    for (unsigned long length = 1; length <= 200; ++length) {
        for (unsigned long before = 0; before <= 66; ++before) {
            const Group group = bothGroups[(length + before) % 2];
            std::string text = "1" + std::string(before, ' ');
            text.append(length, 'e').append(" 2");
            ASSERT_NO_FATAL_FAILURE(expectCopy(text, group));
            if (before % 8 != 0) continue;
            text.append(80, ' ').append("3");
            ASSERT_NO_FATAL_FAILURE(expectCopy(text, group));
        }
    }
}

TEST_P(Copying, MakesEveryGapOneSpace) {
    Random random(1);
    for (const Group group : bothGroups) {
        const std::string gaps = gapsOf(group);
        for (unsigned long length = 1; length <= 200; ++length) {
            for (const char kind : gaps) {
                if (length > 4 && !random.oneIn(8)) continue;
                const std::string gap(length, kind);
                ASSERT_NO_FATAL_FAILURE(expectCopy("1" + gap + "2", group));
                ASSERT_NO_FATAL_FAILURE(expectCopy("1" + gap, group));
                ASSERT_NO_FATAL_FAILURE(
                    expectCopy("12" + gap + "345" + gap + std::string(81, '6'), group));
            }
            std::string mixed = "1";
            for (unsigned long i = 0; i < length; ++i)
                mixed += random.oneOf(gaps);
            ASSERT_NO_FATAL_FAILURE(expectCopy(mixed, group));
            ASSERT_NO_FATAL_FAILURE(expectCopy(mixed + mixed + mixed, group));
        }
    }
}

TEST_P(Copying, StopsBeforeWhateverIsNeitherNumberNorGap) {
    for (const char special : "(){}[]!;xX\xFF\x80\0"sv) {
        for (unsigned long place = 1; place <= 270; ++place) {
            for (const std::string_view pattern : {"123456", "12 ", "1    ,    "}) {
                std::string text;
                while (text.size() < place + 130)
                    text += pattern;
                text[place] = special;
                ASSERT_NO_FATAL_FAILURE(expectCopies(text));
            }
            // The gap before it is not taken, however long.
            std::string gap(place + 1, ' ');
            gap[0] = '1';
            ASSERT_NO_FATAL_FAILURE(expectCopies(gap + special + std::string(100, '2')));
        }
    }
}

TEST_P(Copying, TakesAnyMixture) {
    Random random(2);
    const std::string others = "(){}!;xyz\xFF\x80\xC3";
    for (int round = 0; round < 8000; ++round) {
        const Group group = bothGroups[round % 2];
        const std::string gaps = gapsOf(group);
        const unsigned long longestNumber = 1 + random.below(40);
        const unsigned long longestGap = 1 + random.below(random.oneIn(4) ? 90 : 4);
        const unsigned long othersAre = random.oneIn(3) ? 40 : 100000;
        const unsigned long size = 1 + random.below(400);
        std::string text(1, random.oneOf(numberCharacters));
        while (text.size() < size) {
            for (unsigned long left = random.below(longestNumber + 1); left > 0; --left)
                text += random.oneOf(numberCharacters);
            for (unsigned long left = random.below(longestGap + 1); left > 0; --left)
                text += random.oneIn(2) ? ' ' : random.oneOf(gaps);
            if (random.oneIn(othersAre)) text += random.oneOf(others);
        }
        ASSERT_NO_FATAL_FAILURE(expectCopy(text, group));
    }
}

TEST_P(Copying, TakesAnyBytes) {
    Random random(3);
    for (int round = 0; round < 4000; ++round) {
        std::string text = "1";
        for (unsigned long left = random.below(200); left > 0; --left)
            text += static_cast<char>(random.next());
        ASSERT_NO_FATAL_FAILURE(expectCopies(text));
    }
}

TEST_P(Copying, TakesALongGroup) {
    Random random(4);
    std::string text = "0";
    while (text.size() < 500'000) {
        text += random.oneIn(3) ? ", " : random.oneIn(50) ? ",\n    " : " ";
        if (random.oneIn(2)) text += '-';
        text += digits(random, 1 + random.below(2)) + '.' + digits(random, random.below(8));
    }
    expectCopies(text);
}

// --- Converting

constexpr DataType scalarTypes[] = {
    DataType::Char,   DataType::Byte,  DataType::Int16,  DataType::UInt16, DataType::Int32,
    DataType::UInt32, DataType::Int64, DataType::UInt64, DataType::Float,  DataType::Double};

// The numbers that a text of pieces with spaces between them makes.
struct Numbers {
    std::vector<unsigned char> bytes;  // what is not written keeps `untouched`
    unsigned long count = 0;
    bool allConverted = true;
    std::string_view excess;
};

constexpr unsigned char untouched = 0xA5;
constexpr unsigned long behindNumbers = 64;

std::vector<std::string_view> piecesOf(std::string_view text) {
    std::vector<std::string_view> pieces;
    while (!text.empty()) {
        const unsigned long end = std::min(text.find(' '), text.size());
        if (end > 0) pieces.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return pieces;
}

Numbers convertPiecewise(std::string_view text, DataType type, unsigned long room,
                         unsigned long offset) {
    const unsigned long size = ko::componentSize(type);
    const std::vector<std::string_view> pieces = piecesOf(text);
    Numbers numbers;
    numbers.count = std::min<unsigned long>(pieces.size(), room);
    if (pieces.size() > room) numbers.excess = pieces[room];
    numbers.bytes.assign(offset + numbers.count * size + behindNumbers, untouched);
    unsigned char* dest = numbers.bytes.data() + offset;
    for (unsigned long i = 0; i < numbers.count; ++i, dest += size)
        if (!ko::bulk::convertNumber(pieces[i], type, dest)) numbers.allConverted = false;
    return numbers;
}

// Tells where two results differ.
std::string difference(std::string_view text, DataType type, unsigned long offset,
                       const std::vector<unsigned char>& expected,
                       const std::vector<unsigned char>& found) {
    const auto at = std::mismatch(expected.begin(), expected.end(), found.begin()).first;
    const long byte = at - expected.begin() - static_cast<long>(offset);
    const auto i = static_cast<unsigned long>(byte) / ko::componentSize(type);
    const std::vector<std::string_view> pieces = piecesOf(text);
    std::string what =
        byte < 0 || i >= pieces.size() ? "beside the numbers"s : "piece '" + shown(pieces[i]) + "'";
    return what + ", number " + std::to_string(i) + " as type " +
           std::to_string(static_cast<int>(type));
}

class Converting : public BulkPaths {
  protected:
    static void expectNumbers(std::string_view source, DataType type, unsigned long room) {
        const Block block(source);
        const std::string_view text = block.view();
        const unsigned long offset = text.size() % 8;
        const Numbers expected = convertPiecewise(text, type, room, offset);
        std::vector<unsigned char> bytes(expected.bytes.size(), untouched);
        const ko::bulk::Conversion found =
            operations().convertNumbers(text, type, bytes.data() + offset, room);
        ASSERT_EQ(expected.count, found.count) << text;
        ASSERT_EQ(expected.allConverted, found.allConverted) << text;
        ASSERT_EQ(expected.excess, found.excess) << text;
        if (!expected.excess.empty()) {
            ASSERT_EQ(expected.excess.data(), found.excess.data()) << text;
        }
        ASSERT_TRUE(expected.bytes == bytes)
            << difference(text, type, offset, expected.bytes, bytes);
    }

    // As every type, with room for just the pieces there are.
    static void expectNumbers(std::string_view text) {
        const unsigned long count = piecesOf(text).size();
        for (const DataType type : scalarTypes)
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text, type, count));
    }

    // Each piece in each lane of those that are converted side by side, and in any company.
    static void expectPieces(std::vector<std::string> pieces) {
        for (const std::string_view before : {"", "1 ", "1 2 ", "1 2 3 "}) {
            std::string text(before);
            for (const std::string& piece : pieces)
                text += piece + ' ';
            text.pop_back();
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text));
        }
        Random random(pieces.size());
        for (int round = 0; round < 2; ++round) {
            for (unsigned long i = pieces.size(); i > 1; --i)
                std::swap(pieces[i - 1], pieces[random.below(i)]);
            std::string text = "12345678901234567";
            for (const std::string& piece : pieces)
                text += (random.oneIn(2) ? " 1 " : " ") + piece;
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text));
        }
    }
};

INSTANTIATE_TEST_SUITE_P(, Converting, testing::ValuesIn(allPaths), nameOf);

// Digits with signs, and with a point in every place.
std::vector<std::string> decimals() {
    Random random(5);
    std::vector<std::string> all;
    for (unsigned long length = 1; length <= 40; ++length) {
        for (const std::string& text :
             {digits(random, length), std::string(length, '9'), std::string(length, '0'),
              "1" + std::string(length - 1, '0'), std::string(length - 1, '0') + "1"}) {
            for (const char* sign : {"", "-", "+"}) {
                all.push_back(sign + text);
                for (unsigned long point = 0; point <= length; ++point) {
                    if (length > 20 && !random.oneIn(4)) continue;
                    all.push_back(sign + text.substr(0, point) + '.' + text.substr(point));
                }
            }
        }
    }
    return all;
}

std::vector<std::string> copiesOf(const std::vector<std::string_view>& texts) {
    return {texts.begin(), texts.end()};
}

// What number characters can make besides, and other characters with them.
std::vector<std::string> oddities() {
    return copiesOf(
        piecesOf(". .. - -- + +- -+ -. +. -.. u f uf fu e E5 1.2.3 1..2 ..1 1.. .1. --1 -1- 1- 1-2 "
                 "-1-2 1.-2 -1.2.3 .-5 -.5 +.5 5-. 1+ 1+2 +-1 -+1 1e 1e+ 1e- e5 .e5 -e5 1e5 1E5 "
                 "1E+5 1e-5 -1e5 +1e5 1.e5 .5e5 1.5e3 1e5f 1e5u 1e5.0 1e+-5 1ee5 1e5e5 1e400 "
                 "-1e400 1e-400 -1e-400 1e99999999999999999999 -1e-99999999999999999999 "
                 "0e99999999999999999999 1e38 3.4028235e38 3.4028236e38 1e39 1e-45 7e-46 1e308 "
                 "1.8e308 5e-324 2e-324 1u 1U 0u -1u +1u 1uu 1f 1F 1ff 1.5f 1.f .5f .f -f -u 1.5u "
                 "1uf 1fu 0x1F 0X1f -0x10 +0x7F 0x -0x 0xg 0x1.8p3 0xfu 0xu x1 1x 00x1 0x80 0xFF "
                 "0x100 0x7FFFFFFF 0x80000000 -0x80000000 0xFFFFFFFFFFFFFFFF 0x10000000000000000 "
                 "1F ff FF dead b inf -inf +inf INF Inf infinity -Infinity INFINITY infinit nan "
                 "NaN NAN -nan +nan inff nanf nanu infu in na i n nan1 1nan 1inf nan(1) --inf i5 "
                 "-0 +0 -0.0 -.0 -0. -0u -0f -0e0 00 -00 0.0 1_0 1,2 a abcdef true / : 1/2 1:2 12; "
                 "' 1\t \t1 \v-1.5\f \n12\r 1\t2 \t \n\n 1\x80 \xFF 1\xFF \xB0 \xB1\xB2 "
                 "\x90- 1\0 \0 \0.1"sv));
}

std::string plus(std::string text, int change) {
    // Of a positive number without leading zeros; it keeps its sign.
    for (auto place = text.size(); change != 0 && place-- > 0 && text[place] != '-';) {
        const int digit = text[place] - '0' + change;
        text[place] = static_cast<char>('0' + (digit + 10) % 10);
        change = digit > 9 ? 1 : digit < 0 ? -1 : 0;
    }
    return change > 0 ? "1" + text : text;
}

// The limits of all integer types and their neighbours, in several dresses.
std::vector<std::string> integerLimits() {
    std::vector<std::string> all;
    for (const char* limit : {"127",
                              "128",
                              "255",
                              "256",
                              "32767",
                              "32768",
                              "65535",
                              "65536",
                              "2147483647",
                              "2147483648",
                              "4294967295",
                              "4294967296",
                              "9223372036854775807",
                              "9223372036854775808",
                              "18446744073709551615",
                              "18446744073709551616",
                              "9999999999999999",
                              "10000000000000000",
                              "999999999999999",
                              "99999999",
                              "100000000"}) {
        for (int change = -2; change <= 2; ++change) {
            const std::string number = plus(limit, change);
            for (const char* sign : {"", "-", "+"}) {
                for (unsigned long width : {0UL, 15UL, 16UL, 17UL, 20UL, 24UL}) {
                    const unsigned long zeros = std::max(width, number.size()) - number.size();
                    all.push_back(sign + std::string(zeros, '0') + number);
                }
                all.push_back(sign + number + "u");
                all.push_back(sign + number + ".");
                all.push_back(sign + number + ".0");
            }
        }
    }
    return all;
}

// Around 2^52 and 2^53, a point in every place.
std::vector<std::string> wideMantissas() {
    std::vector<std::string> all;
    for (const char* center : {"4503599627370496", "9007199254740992"}) {
        for (int change = -3; change <= 3; ++change) {
            const std::string number = plus(center, change);
            for (const char* sign : {"", "-"}) {
                all.push_back(sign + number);
                for (unsigned long point = 0; point <= number.size(); ++point)
                    all.push_back(sign + number.substr(0, point) + '.' + number.substr(point));
            }
        }
    }
    // The same with a digit less: 16 characters with the point.
    for (const char* number : {"450359962737049", "450359962737050", "900719925474099"}) {
        const std::string text = number;
        for (unsigned long point = 0; point <= text.size(); ++point)
            all.push_back(text.substr(0, point) + '.' + text.substr(point));
    }
    return all;
}

// Values halfway between two floats: exactly, one digit beside, and as near as a few digits come,
// which a double may round to the middle itself.
std::vector<std::string> halfwayFloats() {
    Random random(6);
    std::vector<std::string> all;
    for (int round = 0; round < 1200; ++round) {
        const auto wide = static_cast<double>((1UL << 24) + 2 * random.below(1UL << 23) + 1);
        const double middle = std::ldexp(wide, static_cast<int>(random.below(50)) - 27);
        char text[100];
        std::snprintf(text, sizeof text, "%.50f", middle);
        std::string exact = text;
        exact.erase(exact.find_last_not_of('0') + 1);
        if (exact.back() == '.') exact.pop_back();
        all.push_back(exact);
        all.push_back("-" + exact);
        const bool hasPoint = exact.find('.') != std::string::npos;
        all.push_back(exact + (hasPoint ? "1" : ".1"));
        const char last = exact.back();
        exact.back() = static_cast<char>(last == '9' ? '8' : last + 1);
        all.push_back(exact);
        exact.back() = static_cast<char>(last == '0' ? '1' : last - 1);
        all.push_back(exact + (hasPoint ? "9" : ".9"));
        const int whole = static_cast<int>(std::max(0.0, std::ceil(std::log10(middle))));
        for (const int significant : {13, 14, 15, 16, 17}) {
            std::snprintf(text, sizeof text, "%.*f", std::max(0, significant - whole), middle);
            all.emplace_back(text);
        }
    }
    return all;
}

// Values halfway between two doubles in up to 19 digits, one digit beside them, and one more.
std::vector<std::string> halfwayDoubles() {
    Random random(17);
    std::vector<std::string> all;
    for (int round = 0; round < 600; ++round) {
        const unsigned long odd = (1UL << 53) + 2 * random.below(1UL << 52) + 1;
        const std::string thousandths = std::to_string(odd * 1000 >> random.below(4));
        for (int change = -1; change <= 1; ++change) {
            const std::string number = plus(thousandths, change);
            const unsigned long point = number.size() - 3;
            all.push_back(number + "e-3");
            all.push_back("-" + number + "e-3");
            all.push_back(number.substr(0, point) + '.' + number.substr(point));
            all.push_back(number.substr(0, point) + '.' + number.substr(point) + "000001");
        }
        const std::string shifted = std::to_string(odd << random.below(10));
        for (int change = -1; change <= 1; ++change) {
            const std::string number = plus(shifted, change);
            all.push_back(number);
            all.push_back(number + ".0");
            all.push_back(number + "00e-2");
        }
    }
    return all;
}

// Mantissas of every length with exponents around those that powers of ten are exact for.
std::vector<std::string> scaledDecimals() {
    Random random(18);
    std::vector<std::string> all;
    for (unsigned long length = 1; length <= 22; ++length) {
        for (int exponent = -50; exponent <= 42; ++exponent) {
            const std::string number = digits(random, length);
            all.push_back(number + "e" + std::to_string(exponent));
            all.push_back(number.substr(0, length / 2) + "." + number.substr(length / 2) + "E" +
                          std::to_string(exponent));
            if (exponent < 0)
                all.push_back("0." + std::string(static_cast<unsigned long>(-exponent), '0') +
                              number);
            if (exponent > 0)
                all.push_back(number + std::string(static_cast<unsigned long>(exponent), '0'));
        }
    }
    return all;
}

TEST_P(Converting, ReadsDecimalsOfEveryLength) { expectPieces(decimals()); }
TEST_P(Converting, ReadsOddities) { expectPieces(oddities()); }
TEST_P(Converting, KeepsWithinTheLimitsOfIntegers) { expectPieces(integerLimits()); }
TEST_P(Converting, RoundsWideMantissas) { expectPieces(wideMantissas()); }
TEST_P(Converting, RoundsHalfwayFloats) { expectPieces(halfwayFloats()); }
TEST_P(Converting, RoundsHalfwayDoubles) { expectPieces(halfwayDoubles()); }
TEST_P(Converting, ScalesDecimals) { expectPieces(scaledDecimals()); }

TEST_P(Converting, ReadsAPieceAlone) {
    for (const auto& pieces : {oddities(), integerLimits(), wideMantissas()})
        for (const std::string& piece : pieces)
            ASSERT_NO_FATAL_FAILURE(expectNumbers(piece));
}

TEST_P(Converting, ReadsOddPiecesAtTheEndsOfAText) {
    for (const std::string& piece : oddities()) {
        for (const char* others : {"1", "1 2", "1 2 3", "1 2 3 4 5 6 7 8 9", "-123456.789e5 1"}) {
            ASSERT_NO_FATAL_FAILURE(expectNumbers(piece + ' ' + others));
            ASSERT_NO_FATAL_FAILURE(expectNumbers(others + (' ' + piece)));
        }
    }
}

TEST_P(Converting, ReadsNothingFromBlanks) {
    for (unsigned long length = 0; length <= 200; ++length)
        ASSERT_NO_FATAL_FAILURE(expectNumbers(std::string(length, ' ')));
}

TEST_P(Converting, PassesOverEmptyPieces) {
    std::string text;
    while (text.size() < 4300)
        text += "7 -1.5 12345 ";
    text.pop_back();
    for (unsigned long place = 0; place <= text.size(); ++place) {
        const bool isNearEdge = place < 140 || place % 2048 < 70 || place % 2048 > 1980;
        if (!isNearEdge || (place > 140 && place % 3 != 0)) continue;
        const std::string spaced = text.substr(0, place) + "  " + text.substr(place);
        const DataType type = scalarTypes[place % std::size(scalarTypes)];
        ASSERT_NO_FATAL_FAILURE(expectNumbers(spaced, type, 10000));
    }
    for (unsigned long length = 1; length <= 200; ++length) {
        const std::string few = text.substr(0, length);
        for (const char* blanks : {" ", "  ", "                "}) {
            ASSERT_NO_FATAL_FAILURE(expectNumbers(blanks + few, DataType::Float, 1000));
            ASSERT_NO_FATAL_FAILURE(expectNumbers(few + blanks, DataType::Int32, 1000));
        }
    }
}

TEST_P(Converting, ReadsTextsOfEveryLength) {
    std::string text;
    for (int i = 0; i < 60; ++i)
        text += i % 3 == 0 ? "-1.5 " : i % 3 == 1 ? "12 " : "7 ";
    for (unsigned long length = 0; length <= text.size(); ++length)
        ASSERT_NO_FATAL_FAILURE(expectNumbers(text.substr(0, length)));
    for (unsigned long length = 1980; length <= 2120; ++length) {
        std::string singles;
        while (singles.size() < length)
            singles += "1 ";
        singles.resize(length);
        ASSERT_NO_FATAL_FAILURE(expectNumbers(singles, DataType::Byte, 5000));
    }
}

TEST_P(Converting, StopsWhereThereIsNoRoom) {
    std::string text;
    for (unsigned long count = 0; count <= 40; ++count) {
        for (unsigned long room = 0; room <= count + 3; ++room) {
            for (const DataType type : scalarTypes)
                ASSERT_NO_FATAL_FAILURE(expectNumbers(text, type, room));
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text + ' ', DataType::Float, room));
        }
        text += (text.empty() ? "" : " ") + std::to_string(count * 3);
        if (count % 11 == 5) text += "x";
    }
    while (text.size() < 10000)
        text += " 1.25";
    const unsigned long count = piecesOf(text).size();
    for (unsigned long room = 0; room <= count; room += 1 + room / 7)
        ASSERT_NO_FATAL_FAILURE(expectNumbers(text, DataType::Double, room));
}

TEST_P(Converting, RefusesTypesThatAreNoScalars) {
    for (const DataType type : {DataType::Null, DataType::Bool, DataType::Vec3f}) {
        const std::string text = "1 2 3 4 5 6 7 8 9 10 11 12";
        ASSERT_NO_FATAL_FAILURE(expectNumbers(text, type, 12));
        unsigned char byte = untouched;
        EXPECT_FALSE(ko::bulk::convertNumber("1", type, &byte));
        EXPECT_EQ(untouched, byte);
    }
}

// Numbers as exporters print them, and as they do not.
std::string randomNumber(Random& random) {
    std::string text = random.oneIn(2) ? "-" : "";
    const unsigned long kind = random.below(16);
    if (kind < 8) {
        text += digits(random, 1 + random.below(3)) + '.' + digits(random, 4 + random.below(4));
    } else if (kind < 11) {
        text += digits(random, 1 + random.below(10));
    } else if (kind < 13) {
        const unsigned long length = 15 + random.below(4);
        text += digits(random, length);
        text.insert(random.below(text.size()), 1, '.');
    } else if (kind == 13) {
        text += digits(random, 1) + '.' + digits(random, 6) + "e-" + digits(random, 2);
    } else if (kind == 14) {
        text += digits(random, 1 + random.below(22));
    } else {
        for (unsigned long left = random.below(18); left > 0; --left)
            text += random.oneOf("0123456789.-+eEfuUxinaN");
        text += '0';
    }
    return text;
}

TEST_P(Converting, ReadsMillionsOfNumbers) {
    Random random(7);
    for (int round = 0; round < 32; ++round) {
        std::string text;
        for (int i = 0; i < 8000; ++i) {
            if (!text.empty()) text += ' ';
            text += randomNumber(random);
        }
        ASSERT_NO_FATAL_FAILURE(expectNumbers(text));
    }
}

// An exponent of a sign and two digits, or a mantissa of many digits, or both.
std::string wideNumber(Random& random) {
    std::string text = random.oneIn(2) ? "-" : "";
    text += digits(random, 1 + random.below(random.oneIn(3) ? 36 : 20));
    if (!random.oneIn(4)) text.insert(random.below(text.size() + 1), 1, '.');
    if (random.oneIn(3)) return text;
    text += random.oneOf("eE");
    text += random.oneOf("+-");
    text += random.oneIn(2) ? digits(random, 2) : '0' + digits(random, 1);
    return text;
}

TEST_P(Converting, ReadsWideNumbersInAnyCompany) {
    Random random(22);
    for (const unsigned long plainAre : {1000000UL, 4UL, 2UL}) {
        for (int round = 0; round < 8; ++round) {
            std::string text;
            for (int i = 0; i < 4000; ++i) {
                if (!text.empty()) text += ' ';
                text += random.oneIn(plainAre) ? digits(random, 1 + random.below(9))
                                               : wideNumber(random);
            }
            const unsigned long room = piecesOf(text).size();
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text, DataType::Float, room));
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text, DataType::Double, room));
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text, DataType::Int64, room));
        }
    }
}

// Around the middle of two floats, the largest and the smallest ones included, as near as the
// digits that are taken at once can come.
TEST_P(Converting, RoundsFloatsWithExponents) {
    Random random(23);
    std::string text;
    for (int round = 0; round < 6000; ++round) {
        const auto wide = static_cast<double>((1UL << 24) + 2 * random.below(1UL << 23) + 1);
        const double middle = std::ldexp(wide, static_cast<int>(random.below(280)) - 176);
        const double near = random.oneIn(2) ? middle : std::nextafter(middle, random.oneIn(2));
        char number[64];
        std::snprintf(number, sizeof number, "%.*e", static_cast<int>(random.below(28)), near);
        if (!text.empty()) text += ' ';
        text += number;
    }
    expectNumbers(text, DataType::Float, 6000);
    expectNumbers(text, DataType::Double, 6000);
}

TEST_P(Converting, ReadsPartsOfNumbersInOddPlaces) {
    Random random(24);
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        for (unsigned long left = 1 + random.below(40); left > 0; --left) {
            if (!text.empty()) text += ' ';
            if (random.oneIn(4)) text += digits(random, random.below(50));
            for (unsigned long parts = 1 + random.below(6); parts > 0; --parts) {
                const char* const kinds[] = {"1", "23", ".", "-", "e", "e+05", "E-12", "e7"};
                text += kinds[random.below(std::size(kinds))];
            }
        }
        const unsigned long room = piecesOf(text).size();
        ASSERT_NO_FATAL_FAILURE(expectNumbers(text, DataType::Float, room)) << text;
        ASSERT_NO_FATAL_FAILURE(expectNumbers(text, DataType::Int16, room)) << text;
    }
}

TEST_P(Converting, ReadsPiecesOfAnyLength) {
    Random random(25);
    for (unsigned long length = 1; length < 9000; length += 1 + length / 5) {
        std::string text = "1 -2.5 ";
        text += digits(random, length) + " 3 " + digits(random, length) + ".5 4e+01";
        for (const DataType type : scalarTypes)
            ASSERT_NO_FATAL_FAILURE(expectNumbers(text, type, 6));
    }
}

TEST_P(BulkPaths, ReadNothingAroundTheirTexts) {
    Random random(26);
    const Enclosed enclosed;
    std::vector<char> to(Enclosed::size);
    std::vector<double> numbers(Enclosed::size);
    auto* const dest = reinterpret_cast<unsigned char*>(numbers.data());
    for (unsigned long length = 1; length < 3000; length += 1 + length / 100) {
        std::string text = digits(random, 1);
        while (text.size() < length)
            text += random.oneIn(6) ? ' ' + wideNumber(random) : digits(random, 1);
        text.resize(length);
        for (const std::string_view placed : {enclosed.atBegin(text), enclosed.atEnd(text)}) {
            operations().copyNumbers(placed.data(), placed.data() + length, to.data(),
                                     Group::Parens);
            operations().countBreaks(placed);
            for (const DataType type : scalarTypes)
                operations().convertNumbers(placed, type, dest, Enclosed::size);
        }
    }
}

TEST_P(Converting, ReadsRandomTextsOfFewCharacters) {
    Random random(8);
    for (int round = 0; round < 30000; ++round) {
        std::string text;
        const std::string_view set = random.oneIn(2) ? "0123456789 " : "0123456789  .-e+";
        for (unsigned long left = random.below(100); left > 0; --left)
            text += random.oneIn(100) ? static_cast<char>(random.next()) : random.oneOf(set);
        const DataType type = scalarTypes[random.below(std::size(scalarTypes))];
        ASSERT_NO_FATAL_FAILURE(expectNumbers(text, type, random.oneIn(4) ? random.below(30) : 99));
    }
}

// --- Converting one number, by the rules

std::string_view withoutBlanks(std::string_view text) {
    const std::string_view blanks = " \t\n\v\f\r";
    const unsigned long begin = std::min(text.find_first_not_of(blanks), text.size());
    const unsigned long end = text.find_last_not_of(blanks) + 1;
    return text.substr(begin, std::max(begin, end) - begin);
}

char lower(char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); }

std::string lowered(std::string_view text) {
    std::string all;
    for (const char c : text)
        all += lower(c);
    return all;
}

// Takes the first character if it is of the set.
bool takeOneOf(std::string_view& text, std::string_view set) {
    if (text.empty() || set.find(text.front()) == std::string_view::npos) return false;
    text.remove_prefix(1);
    return true;
}

unsigned long takeDigits(std::string_view& text) {
    unsigned long count = 0;
    for (; takeOneOf(text, "0123456789"); ++count)
        ;
    return count;
}

bool isDecimal(std::string_view text) {
    unsigned long count = takeDigits(text);
    if (takeOneOf(text, ".")) count += takeDigits(text);
    if (count == 0) return false;
    if (takeOneOf(text, "eE")) {
        takeOneOf(text, "+-");
        if (takeDigits(text) == 0) return false;
    }
    return text.empty();
}

template <class Real>
bool realByRule(std::string_view text, Real& out) {
    std::string_view rest = withoutBlanks(text);
    const bool isNegative = takeOneOf(rest, "-");
    if (!isNegative) takeOneOf(rest, "+");
    Real value = 0;
    const std::string word = lowered(rest);
    if (word == "nan") {
        value = std::numeric_limits<Real>::quiet_NaN();
    } else if (word == "inf" || word == "infinity") {
        value = std::numeric_limits<Real>::infinity();
    } else {
        if (!rest.empty() && lower(rest.back()) == 'f') rest.remove_suffix(1);
        if (!isDecimal(rest)) return false;
        const std::string number(rest);
        if constexpr (sizeof(Real) == sizeof(float)) {
            value = std::strtof(number.c_str(), nullptr);
        } else {
            value = std::strtod(number.c_str(), nullptr);
        }
        if (std::isinf(value)) return false;
    }
    out = std::copysign(value, isNegative ? Real(-1) : Real(1));
    return true;
}

// The value of the digits; false when there are none, others among them, or too many.
bool magnitudeByRule(std::string_view text, unsigned long base, unsigned long& out) {
    const std::string_view known = "0123456789abcdef"sv.substr(0, base);
    constexpr unsigned long largest = std::numeric_limits<unsigned long>::max();
    unsigned long value = 0;
    for (const char c : text) {
        const unsigned long digit = known.find(lower(c));
        if (digit == std::string_view::npos || value > (largest - digit) / base) return false;
        value = value * base + digit;
    }
    out = value;
    return !text.empty();
}

template <class Integer>
bool integerByRule(std::string_view text, Integer& out) {
    std::string_view rest = withoutBlanks(text);
    const bool isNegative = takeOneOf(rest, "-");
    if (isNegative && std::is_unsigned_v<Integer>) return false;
    if (!isNegative) takeOneOf(rest, "+");
    if (!rest.empty() && lower(rest.back()) == 'u') rest.remove_suffix(1);
    const bool isHexadecimal = rest.size() > 1 && rest[0] == '0' && lower(rest[1]) == 'x';
    if (isHexadecimal) rest.remove_prefix(2);
    unsigned long magnitude = 0;
    if (!magnitudeByRule(rest, isHexadecimal ? 16 : 10, magnitude)) return false;
    const auto largest = static_cast<unsigned long>(std::numeric_limits<Integer>::max());
    if (magnitude > largest + (isNegative ? 1 : 0)) return false;
    out = static_cast<Integer>(isNegative ? 0 - magnitude : magnitude);
    return true;
}

// Compares the conversion to one type, which the rules make in `byRule`.
template <class Scalar>
void expectNumber(std::string_view text, bool (*byRule)(std::string_view, Scalar&)) {
    unsigned char expected[1 + sizeof(Scalar) + 1];
    std::memset(expected, untouched, sizeof expected);
    Scalar value = 0;
    const bool isNumber = byRule(text, value);
    if (isNumber) std::memcpy(expected + 1, &value, sizeof value);
    const Block block(text);
    unsigned char found[sizeof expected];
    std::memset(found, untouched, sizeof found);
    const DataType type = ko::dataTypeOf<Scalar>();
    ASSERT_EQ(isNumber, ko::bulk::convertNumber(block.view(), type, found + 1)) << shown(text);
    ASSERT_TRUE(std::equal(std::begin(expected), std::end(expected), found)) << shown(text);
}

void expectNumberByRule(std::string_view text) {
    ASSERT_NO_FATAL_FAILURE(expectNumber<signed char>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<unsigned char>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<short>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<unsigned short>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<int>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<unsigned int>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<long>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<unsigned long>(text, integerByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<float>(text, realByRule));
    ASSERT_NO_FATAL_FAILURE(expectNumber<double>(text, realByRule));
}

TEST(ConvertingOne, FollowsTheRules) {
    for (const auto& pieces : {decimals(), oddities(), integerLimits(), wideMantissas(),
                               halfwayFloats(), halfwayDoubles(), scaledDecimals()})
        for (const std::string& piece : pieces)
            ASSERT_NO_FATAL_FAILURE(expectNumberByRule(piece));
    expectNumberByRule("");
}

TEST(ConvertingOne, FollowsTheRulesForRandomNumbers) {
    Random random(9);
    for (int round = 0; round < 30000; ++round)
        ASSERT_NO_FATAL_FAILURE(expectNumberByRule(randomNumber(random)));
}

// --- Counting line breaks

TEST_P(BulkPaths, CountLineBreaks) {
    Random random(21);
    for (unsigned long length = 0; length <= 300; ++length) {
        for (const std::string_view set : {"\n"sv, "\n1"sv, "\n\r\x8A\x0B\x09 1234"sv, "1"sv}) {
            std::string text;
            while (text.size() < length)
                text += random.oneOf(set);
            const Block block(text);
            ASSERT_EQ(static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n')),
                      operations().countBreaks(block.view()))
                << shown(text);
        }
    }
    const std::string breaks(10000, '\n');
    EXPECT_EQ(breaks.size(), operations().countBreaks(breaks));
}

// --- Whole documents

fs::path besides(fs::path document, const char* extension) {
    return document.replace_extension(extension);
}

struct Outcome {
    std::string log;
    std::string json;
};

Outcome outcomeOf(const std::string& text, Path path, bool hasScene = true) {
    const PathGuard guard(path);
    Scene scene;
    kvt::test::registerNodeTypes(scene);
    const Reading reading = kvt::test::readText(hasScene ? &scene : nullptr, text);
    return {reading.log, kvt::test::jsonOf(scene, reading.ok)};
}

TEST_P(BulkPaths, ReadEveryDocument) {
    for (const fs::path& document : documents()) {
        SCOPED_TRACE(document.stem());
        const fs::path scene = besides(document, ".json");
        const Outcome found = outcomeOf(contents(document), GetParam(), fs::exists(scene));
        EXPECT_EQ(contents(besides(document, ".log")), found.log);
        if (!fs::exists(scene)) continue;
        EXPECT_EQ(nlohmann::json::parse(contents(scene)), nlohmann::json::parse(found.json));
    }
}

// Buffers of every scalar type, with too many, too few and bad numbers here and there.
std::string randomBuffers(Random& random) {
    constexpr const char* types[] = {"char",   "byte",  "int16",  "uint16", "int32",
                                     "uint32", "int64", "uint64", "float",  "double"};
    std::string text = "others n:\n";
    for (const char* type : types) {
        const unsigned long count = random.below(300);
        text += ".buffer = "s + type + '[' + std::to_string(count + random.below(3)) + "] {";
        for (unsigned long i = random.oneIn(9) ? 0 : 1; i <= count; ++i) {
            text += random.oneIn(8) ? ",\n  " : " ";
            text += random.oneIn(900) ? randomNumber(random) : digits(random, 1 + random.below(2));
        }
        text += "};\n.buffer = null;\n.";
        text += type + " = "s + type + "[3] {1 2 3};\n";
    }
    return text;
}

TEST_P(BulkPaths, ReadRandomBuffers) {
    Random random(10);
    for (int round = 0; round < 60; ++round) {
        const std::string text = randomBuffers(random);
        const Outcome expected = outcomeOf(text, Path::Plain);
        const Outcome found = outcomeOf(text, GetParam());
        ASSERT_EQ(expected.log, found.log) << text;
        ASSERT_EQ(expected.json, found.json) << text;
    }
}

// --- Texts that grow

// Of the given length, every character from its place.
std::string sample(unsigned long length) {
    std::string text;
    while (text.size() < length)
        text += static_cast<char>('!' + text.size() * 7 % 90);
    return text;
}

void expectText(std::string_view expected, const String& text) {
    ASSERT_EQ(expected.size(), text.len());
    ASSERT_EQ(expected, text.view());
    ASSERT_EQ('\0', text.buf()[text.len()]);
}

constexpr unsigned long telling[] = {0,   1,   2,   14,  15,  16,  17,  31,   255, 256,
                                     257, 258, 511, 512, 513, 514, 700, 1023, 5000};

TEST(TextBuilder, TakesCharactersOneByOne) {
    for (const unsigned long length : telling) {
        const std::string expected = sample(length);
        TextBuilder builder;
        EXPECT_TRUE(builder.isEmpty());
        for (const char c : expected) {
            builder.push(c);
            ASSERT_EQ(c, builder.last());
            ASSERT_FALSE(builder.isEmpty());
        }
        ASSERT_NO_FATAL_FAILURE(expectText(expected, builder.take()));
    }
}

TEST(TextBuilder, TakesTexts) {
    for (const unsigned long first : telling) {
        for (const unsigned long second : telling) {
            const std::string expected = sample(first + second + 1);
            const std::string_view text = expected;
            TextBuilder builder;
            builder.append(text.substr(0, first));
            builder.append(text.substr(first, second));
            ASSERT_EQ(first + second == 0, builder.isEmpty());
            builder.push(expected.back());
            ASSERT_EQ(expected.back(), builder.last());
            ASSERT_NO_FATAL_FAILURE(expectText(expected, builder.take()));
        }
    }
}

TEST(TextBuilder, TakesWhatIsWrittenIntoItsRoom) {
    for (const unsigned long first : telling) {
        for (const unsigned long room : telling) {
            for (const unsigned long used : {0UL, room / 2, room}) {
                const std::string expected = sample(first + used);
                TextBuilder builder;
                builder.append(std::string_view(expected).substr(0, first));
                char* const to = builder.reserve(room);
                std::fill(to, to + room, '~');
                builder.finishAt(
                    std::copy(expected.begin() + static_cast<long>(first), expected.end(), to));
                ASSERT_EQ(expected.empty(), builder.isEmpty());
                ASSERT_NO_FATAL_FAILURE(expectText(expected, builder.take()));
            }
        }
    }
}

TEST(TextBuilder, KeepsItsTextThroughAnyGrowth) {
    Random random(11);
    for (int round = 0; round < 300; ++round) {
        std::string expected;
        TextBuilder builder;
        for (unsigned long left = random.below(30); left > 0; --left) {
            const std::string piece = digits(random, random.below(random.oneIn(5) ? 900 : 40));
            if (random.oneIn(3)) {
                char* const to = builder.reserve(piece.size() + random.below(2000));
                builder.finishAt(std::copy(piece.begin(), piece.end(), to));
            } else if (random.oneIn(2)) {
                builder.append(piece);
            } else {
                for (const char c : piece)
                    builder.push(c);
            }
            expected += piece;
        }
        if (round % 4 == 0) continue;  // a text that nobody takes
        ASSERT_NO_FATAL_FAILURE(expectText(expected, builder.take()));
    }
}

TEST(TextBuilder, KeepsLargeTexts) {
    for (const unsigned long length : {60'000UL, 70'000UL, 1'050'000UL, 17'000'000UL}) {
        const std::string expected = sample(length);
        TextBuilder builder;
        for (unsigned long done = 0; done < length; done += 1000)
            builder.append(std::string_view(expected).substr(done, 1000));
        ASSERT_EQ(length, builder.size());
        ASSERT_NO_FATAL_FAILURE(expectText(expected, builder.take()));
    }
}

TEST(TextBuilder, KeepsNulsAndHighBytes) {
    const std::string expected = "\0\xFF\0"s + std::string(300, '\0') + '\x80';
    TextBuilder builder;
    builder.push('\0');
    builder.append(std::string_view(expected).substr(1));
    expectText(expected, builder.take());
}

TEST(TextBuilder, GivesATextThatItsCopiesShare) {
    String copy;
    {
        TextBuilder builder;
        builder.append(sample(1000));
        const String text = builder.take();
        copy = text;
        EXPECT_EQ(text.buf(), copy.buf());
    }
    expectText(sample(1000), copy);
}

// --- Texts around the longest that stands in its String

constexpr unsigned long longest = 40;

String stringOf(std::string_view text) { return String(text); }

// The same text, made by way of a buffer however short it is.
String builtOf(std::string_view text) {
    TextBuilder builder;
    char* const to = builder.reserve(2000);
    builder.finishAt(std::copy(text.begin(), text.end(), to));
    return builder.take();
}

class TextLengths : public testing::TestWithParam<String (*)(std::string_view)> {
  protected:
    static String make(std::string_view text) { return GetParam()(text); }
    // Calls back with a text of each length, and with the String of it.
    template <class Check>
    static void forEach(Check check) {
        for (unsigned long length = 0; length <= longest; ++length) {
            SCOPED_TRACE(length);
            const std::string text = sample(length);
            ASSERT_NO_FATAL_FAILURE(check(text, make(text)));
        }
    }
};

INSTANTIATE_TEST_SUITE_P(, TextLengths, testing::Values(stringOf, builtOf), [](const auto& made) {
    return made.param == stringOf ? "Plain" : "Built";
});

TEST_P(TextLengths, KeepTheirCharacters) {
    forEach([](const std::string& text, const String& made) {
        expectText(text, made);
        expectText(text, String(text.c_str()));
        if (!text.empty()) expectText(text, String((text + "beyond").c_str(), text.size()));
        EXPECT_EQ(text.empty(), made.isEmpty());
        for (unsigned long i = 0; i < text.size(); ++i)
            EXPECT_EQ(text[i], made[i]);
        for (const unsigned long beyond : {text.size(), text.size() + 1, 16UL, 1000UL, ~0UL})
            EXPECT_EQ('\0', beyond < text.size() ? '\0' : made[beyond]);
    });
}

TEST_P(TextLengths, KeepNulsAndHighBytes) {
    for (unsigned long length = 0; length <= longest; ++length) {
        for (const char c : {'\0', '\xFF', '\x0F'}) {
            const std::string text(length, c);
            const String made = make(text);
            expectText(text, made);
            EXPECT_EQ(String(text), made);
            EXPECT_EQ(length == 0, made == String());
        }
    }
}

TEST_P(TextLengths, AreCopiedMovedAndAssigned) {
    forEach([](const std::string& text, const String& made) {
        const String copy(made);  // NOLINT: the copy is what is tested
        expectText(text, copy);
        String source(made);
        const String moved(std::move(source));
        expectText(text, moved);
        for (unsigned long length = 0; length <= longest; ++length) {
            const std::string former = std::string(length, '#');
            String target = make(former);
            const String formerCopy = target;
            target = made;
            expectText(text, target);
            expectText(former, formerCopy);
            String other = make(former);
            other = std::move(target);
            expectText(text, other);
            const String& same = other;
            other = same;
            expectText(text, other);
            target = make(former);
            expectText(former, target);
        }
        expectText(text, made);
    });
}

TEST_P(TextLengths, AreCompared) {
    forEach([](const std::string& text, const String& made) {
        EXPECT_TRUE(made == String(text));
        EXPECT_TRUE(String(text) == made);
        EXPECT_FALSE(made != String(text));
        EXPECT_TRUE(made == text.c_str());
        EXPECT_FALSE(made != text.c_str());
        EXPECT_EQ(String(text).hash(), made.hash());
        EXPECT_EQ(ko::hashText(text), made.hash());
        for (unsigned long i = 0; i < text.size(); ++i) {
            std::string other = text;
            other[i] = '\x7F';
            EXPECT_TRUE(made != make(other));
            EXPECT_FALSE(made == make(other));
            EXPECT_LT(made.compareNoCase(make(other)), 0);
            EXPECT_GT(make(other).compareNoCase(made), 0);
        }
        EXPECT_TRUE(made != make(text + '\0'));
        EXPECT_LT(made.compareNoCase(make(text + '\0')), 0);
        EXPECT_EQ(0, made.compareNoCase(made.toLower(true)));
    });
}

TEST_P(TextLengths, AreSearched) {
    forEach([](const std::string& text, const String& made) {
        for (unsigned long length = 0; length <= text.size(); ++length) {
            const unsigned long rest = text.size() - length;
            EXPECT_TRUE(made.startsWith(make(text.substr(0, length)), false));
            EXPECT_TRUE(made.endsWith(make(text.substr(rest)), false));
            EXPECT_TRUE(made.contains(make(text.substr(rest / 2, length)), false));
            EXPECT_TRUE(made.contains(make(text.substr(rest / 2, length)).toLower(true), true));
        }
        EXPECT_FALSE(made.startsWith(make(text + "!"), false));
        EXPECT_FALSE(made.endsWith(make("!" + text), false));
        EXPECT_FALSE(made.contains(make(text + "!"), false));
        for (unsigned long start = 0; start <= text.size() + 1; ++start)
            for (const char c : {'!', '(', '/', '\0', '\x7F'})
                EXPECT_EQ(text.find(c, start), made.find(c, false, start));
    });
}

TEST_P(TextLengths, AreCut) {
    forEach([](const std::string& text, const String& made) {
        for (unsigned long start = 0; start <= text.size(); ++start)
            for (unsigned long count = 0; count <= text.size() - start + 1; ++count)
                ASSERT_NO_FATAL_FAILURE(
                    expectText(text.substr(start, count), made.substring(start, count)));
        for (unsigned long before = 0; before <= 20; ++before) {
            const std::string blanks(before, ' ');
            expectText(text, make(blanks + text + blanks).trim(true, true));
            const std::string ends = text.empty() ? "" : blanks;
            expectText(text + ends, make(blanks + text + blanks).trim(true, false));
            expectText(ends + text, make(blanks + text + blanks).trim(false, true));
            const std::string tildes(before, '\x7F');
            expectText(text, make(tildes + text + tildes).trimChars("\x7F", ""));
        }
        const unsigned long first = text.find('(');
        const bool isFound = first != std::string::npos;
        expectText(isFound ? text.substr(first) : "", made.fromFirst('(', true));
        expectText(isFound ? text.substr(first + 1) : "", made.fromFirst('(', false));
    });
}

TEST_P(TextLengths, AreTransformed) {
    forEach([](const std::string& text, const String& made) {
        expectText(lowered(text), made.toLower(true));
        std::string escaped;
        for (const char c : text)
            escaped += c == '\\' ? "\\\\" : c == '"' ? "\\\"" : std::string(1, c);
        expectText(text, make(escaped).unescape());
        expectText(text, String::format("%s", made.buf()));
        for (unsigned long length = 0; length <= longest; ++length) {
            const std::string other = sample(length);
            expectText(text + other, made + make(other));
            expectText(text + other, made + other.c_str());
        }
    });
}

TEST_P(TextLengths, AreSplit) {
    forEach([](const std::string& text, const String&) {
        for (unsigned long length = 0; length <= longest; ++length) {
            const std::string other = sample(length);
            const auto pieces = make(text + ' ' + other + "  ").split(' ', false, false);
            ASSERT_EQ(4U, pieces.size());
            expectText(text, pieces[0]);
            expectText(other, pieces[1]);
            expectText("", pieces[2]);
            const unsigned long count = (text.empty() ? 0 : 1) + (other.empty() ? 0 : 1);
            EXPECT_EQ(count, make(text + ' ' + other).split(' ', true, true).size());
        }
    });
}

TEST_P(TextLengths, AreRead) {
    for (unsigned long length = 1; length <= longest; ++length) {
        const std::string text = std::string(length - 1, '0') + '7';
        unsigned long number = 0;
        EXPECT_TRUE(String::parse(make(text), number, String::Auto));
        EXPECT_EQ(7U, number);
        double real = 0;
        EXPECT_TRUE(String::parse(make("." + text), real));
        EXPECT_EQ(std::strtod(("." + text).c_str(), nullptr), real);
        bool isTrue = false;
        EXPECT_TRUE(String::parse(make(std::string(length, ' ') + "TRUE"), isTrue));
        EXPECT_TRUE(isTrue);
    }
    unsigned long number = 1;
    for (int i = 0; i < 20; ++i, number = number * 10 + 1)
        expectText(std::to_string(number), String(number));
}

}  // namespace
