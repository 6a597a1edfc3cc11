// Counted text: construction, comparison, search, transformation, character classes, sharing.

#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ko::RefersTo;
using ko::String;
using ko::StringVector;
using std::string_view_literals::operator""sv;

// The characters, NULs included, as assertions compare and print them.
std::string str(const String& text) { return std::string(text.view()); }

std::vector<std::string> strs(const StringVector& pieces) {
    std::vector<std::string> all;
    for (unsigned long i = 0; i < pieces.size(); ++i)
        all.push_back(str(pieces[i]));
    return all;
}

// --- counted references

// Counts its references instead of freeing itself.
struct Counted {
    int references = 0;
    int value = 7;
    void retain() { ++references; }
    void release() { --references; }
};

TEST(RefersToTest, HoldsOneReferenceWhileItLives) {
    Counted object;
    {
        const RefersTo<Counted> holder(&object);
        EXPECT_EQ(object.references, 1);
        EXPECT_EQ(holder.get(), &object);
    }
    EXPECT_EQ(object.references, 0);
}

TEST(RefersToTest, CopyAddsAReference) {
    Counted object;
    const RefersTo<Counted> holder(&object);
    {
        const RefersTo<Counted> copy(holder);
        EXPECT_EQ(object.references, 2);
        EXPECT_EQ(copy.get(), &object);
    }
    EXPECT_EQ(object.references, 1);
}

TEST(RefersToTest, MoveHandsTheReferenceOver) {
    Counted object;
    RefersTo<Counted> holder(&object);
    const RefersTo<Counted> taker(std::move(holder));
    EXPECT_EQ(object.references, 1);
    EXPECT_EQ(taker.get(), &object);
}

TEST(RefersToTest, AssignmentReleasesTheFormerObject) {
    Counted former;
    Counted next;
    RefersTo<Counted> holder(&former);
    holder = RefersTo<Counted>(&next);
    EXPECT_EQ(former.references, 0);
    EXPECT_EQ(next.references, 1);
}

TEST(RefersToTest, SelfAssignmentKeepsTheReference) {
    Counted object;
    RefersTo<Counted> holder(&object);
    const RefersTo<Counted>& same = holder;
    holder = same;
    EXPECT_EQ(object.references, 1);
    EXPECT_EQ(holder.get(), &object);
}

TEST(RefersToTest, MayHoldNothing) {
    const RefersTo<Counted> none;
    const RefersTo<Counted> null(nullptr);
    EXPECT_FALSE(none);
    EXPECT_FALSE(null);
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_EQ(RefersTo<Counted>(none).get(), nullptr);
}

TEST(RefersToTest, GivesAccessToTheObject) {
    Counted object;
    const RefersTo<Counted> holder(&object);
    ASSERT_TRUE(holder);
    EXPECT_EQ(holder->value, 7);
    EXPECT_EQ(&*holder, &object);
}

// --- construction and access

TEST(StringTest, DefaultIsEmpty) {
    const String text;
    EXPECT_EQ(text.len(), 0U);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_STREQ(text.buf(), "");
    EXPECT_EQ(text.view(), ""sv);
}

TEST(StringTest, CountOfZeroReadsToTheTerminatingNul) {
    EXPECT_EQ(str(String("hello", 0)), "hello");
    EXPECT_EQ(str(String("hello")), "hello");
    EXPECT_EQ(str(String("he\0llo", 0)), "he");
    EXPECT_TRUE(String("", 0).isEmpty());
}

TEST(StringTest, CountTakesExactlyThatManyCharacters) {
    EXPECT_EQ(str(String("hello", 3)), "hel");
    EXPECT_EQ(String("a\0b\0", 4).view(), "a\0b\0"sv);
    EXPECT_EQ(String("\0", 1).view(), "\0"sv);
}

TEST(StringTest, CountNeedsNoTerminatorBehindTheText) {
    const std::vector<char> open = {'a', 'b', 'c'};
    EXPECT_EQ(str(String(open.data(), open.size())), "abc");
}

// Texts of every length around the one that still stands in the String itself.
std::vector<std::string> textsOfAnyLength() {
    std::vector<std::string> texts;
    for (unsigned long length = 0; length < 40; ++length)
        texts.push_back(std::string("0123456789abcdefghijklmnopqrstuvwxyz+-*/").substr(0, length));
    return texts;
}

TEST(StringTest, BecomesATextInPlaceOfAnyOther) {
    for (const std::string& former : textsOfAnyLength()) {
        for (const std::string& text : textsOfAnyLength()) {
            String changed{std::string_view(former)};
            const String copy = changed;
            changed.assign(std::string_view(text));
            EXPECT_EQ(str(changed), text);
            EXPECT_EQ(changed.buf()[text.size()], '\0');
            EXPECT_EQ(changed.hash(), String(std::string_view(text)).hash());
            EXPECT_TRUE(changed == String(std::string_view(text)));
            EXPECT_EQ(str(copy), former);
        }
    }
}

TEST(StringTest, BecomesACharacterInPlaceOfAnyText) {
    for (const std::string& former : textsOfAnyLength()) {
        for (const char c : {'x', '\0', '\xFF'}) {
            String changed{std::string_view(former)};
            changed.assign(c);
            EXPECT_TRUE(changed == String(c)) << former;
            EXPECT_EQ(changed.len(), 1U);
        }
    }
}

TEST(StringTest, BecomesTheFirstOfSixteenCharacters) {
    for (const std::string& former : textsOfAnyLength()) {
        for (unsigned long length = 0; String::fitsShort(length); ++length) {
            const std::string_view text = "fedcba9876543210";
            String changed{std::string_view(former)};
            changed.assignShort(text.data(), length);
            EXPECT_TRUE(changed == String(text.substr(0, length))) << former << ' ' << length;
            EXPECT_EQ(changed.buf()[length], '\0');
        }
    }
}

TEST(StringTest, LiteralsConvertByThemselves) {
    const String text = "literal";
    EXPECT_EQ(str(text), "literal");
}

TEST(StringTest, ViewGivesItsOwnLengthAlsoWhenThatIsZero) {
    EXPECT_EQ(String("abc"sv.substr(0, 2)).view(), "ab"sv);
    EXPECT_EQ(String("a\0b"sv).view(), "a\0b"sv);
    EXPECT_TRUE(String("abc"sv.substr(0, 0)).isEmpty());
    EXPECT_TRUE(String(std::string_view()).isEmpty());
}

TEST(StringTest, CharacterBecomesATextOfOne) {
    for (int code = -128; code <= 127; ++code) {
        const char c = static_cast<char>(code);
        const String text(c);
        EXPECT_EQ(text.len(), 1U) << code;
        EXPECT_EQ(text[0], c) << code;
    }
}

TEST(StringTest, NumberBecomesItsDecimalText) {
    EXPECT_EQ(str(String(0UL)), "0");
    EXPECT_EQ(str(String(7UL)), "7");
    EXPECT_EQ(str(String(1234567890UL)), "1234567890");
    EXPECT_EQ(str(String(18446744073709551615UL)), "18446744073709551615");
}

TEST(StringTest, BufferEndsWithANulBehindTheLength) {
    const String text("a\0b", 3);
    EXPECT_EQ(text.buf()[3], '\0');
    EXPECT_EQ(String("abc", 2).buf()[2], '\0');
    EXPECT_EQ(String('x').buf()[1], '\0');
}

TEST(StringTest, IndexAtTheLengthAndBeyondGivesNul) {
    const String text("ab");
    EXPECT_EQ(text[0], 'a');
    EXPECT_EQ(text[1], 'b');
    EXPECT_EQ(text[2], '\0');
    EXPECT_EQ(text[3], '\0');
    EXPECT_EQ(text[String::npos], '\0');
    EXPECT_EQ(String()[0], '\0');
}

TEST(StringTest, BytesAbove127AreNegativeCharacters) {
    const String text("\xC3\xA4\xFF");
    ASSERT_EQ(text.len(), 3U);
    EXPECT_EQ(static_cast<signed char>(text[0]), static_cast<signed char>(0xC3));
    EXPECT_EQ(static_cast<signed char>(text[2]), -1);
}

TEST(StringTest, KeepsItsOwnCopyOfTheCharacters) {
    std::string source = "before";
    const String text(source.c_str());
    source = "after!";
    EXPECT_EQ(str(text), "before");
}

TEST(StringTest, HoldsMillionsOfCharacters) {
    const std::string source(5'000'000, 'x');
    const String text(source.data(), source.size());
    EXPECT_EQ(text.len(), source.size());
    EXPECT_EQ(text.view(), source);
}

// --- sharing

TEST(StringTest, CopiesShareTheCharactersOfALongText) {
    const String text("shared by all its copies");
    const String copy(text);
    String assigned;
    assigned = text;
    EXPECT_EQ(copy.buf(), text.buf());
    EXPECT_EQ(assigned.buf(), text.buf());
}

TEST(StringTest, CopyOutlivesTheOriginal) {
    String copy;
    {
        const String text("outlived");
        copy = text;
    }
    EXPECT_EQ(str(copy), "outlived");
}

TEST(StringTest, MoveKeepsTheCharactersOfALongText) {
    String text("moved from here to there");
    const char* const before = text.buf();
    const String taker(std::move(text));
    EXPECT_EQ(taker.buf(), before);
    EXPECT_EQ(str(taker), "moved from here to there");
}

TEST(StringTest, TextsAroundTheLongestShortOneKeepTheirCharacters) {
    for (unsigned long length = 13; length <= 18; ++length) {
        SCOPED_TRACE(length);
        const std::string characters(length, 'x');
        String text{std::string_view(characters)};
        const String copy(text);
        String assigned("before");
        assigned = text;
        const String moved(std::move(text));
        for (const String& each : {copy, assigned, moved}) {
            EXPECT_EQ(str(each), characters);
            EXPECT_EQ(each.buf()[length], '\0');
        }
        EXPECT_EQ(moved, copy);
    }
}

TEST(StringTest, AssignmentToItselfKeepsTheText) {
    String text("same");
    const String& alias = text;
    text = alias;
    EXPECT_EQ(str(text), "same");
}

TEST(StringTest, OneTextMayBeHandedToManyThreads) {
    const String shared("shared by many");
    std::atomic<unsigned> wrong{0};
    const auto work = [&shared, &wrong] {
        for (int i = 0; i < 20'000; ++i) {
            const String copy(shared);
            String other;
            other = copy;
            if (other.view() != "shared by many"sv) ++wrong;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back(work);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(str(shared), "shared by many");
}

TEST(StringTest, LastReferenceMayGoOnAnotherThread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 200; ++i) {
        String text("handed over");
        threads.emplace_back([mine = std::move(text)] { EXPECT_EQ(mine.len(), 11U); });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// --- hash

TEST(StringTest, EqualTextsHaveEqualHashes) {
    EXPECT_EQ(String("vec3f").hash(), (String("vec") + "3f").hash());
    EXPECT_EQ(String("a\0b", 3).hash(), String("a\0b"sv).hash());
    EXPECT_EQ(String().hash(), String("").hash());
    EXPECT_EQ(String().hash(), String("abc"sv.substr(0, 0)).hash());
}

// Looked for from the place that the lowest bits of the hash give, each takes the next free one.
TEST(StringTest, HashesOfNamesInARowDoNotCrowd) {
    constexpr unsigned long names = 10000;
    constexpr unsigned long places = 16384;
    for (const std::string prefix : {"n", "a name that is long_"}) {
        std::vector<bool> isTaken(places);
        unsigned long looks = 0;
        for (unsigned long i = 0; i < names; ++i) {
            unsigned long at = String(prefix + std::to_string(i)).hash() % places;
            for (++looks; isTaken[at]; ++looks)
                at = (at + 1) % places;
            isTaken[at] = true;
        }
        EXPECT_LT(looks, 3 * names) << prefix;  // random hashes need 1.8 of them each
    }
}

TEST(StringTest, HashStaysTheSameAndIsThatOfEveryCopy) {
    const String text("asked again and again");
    const unsigned long hash = text.hash();
    const String copy(text);
    EXPECT_EQ(text.hash(), hash);
    EXPECT_EQ(copy.hash(), hash);
    EXPECT_EQ(String("asked again and again").hash(), hash);
}

TEST(StringTest, HashMayBeAskedByManyThreads) {
    const unsigned long expected = String("shared by many").hash();
    const String shared("shared by many");
    std::atomic<unsigned> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { wrong += shared.hash() == expected ? 0 : 1; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0U);
}

TEST(StringTest, ThousandsOfTextsHaveHashesOfTheirOwn) {
    std::set<unsigned long> hashes;
    for (unsigned long i = 0; i < 50'000; ++i)
        hashes.insert(String(i).hash());
    EXPECT_EQ(hashes.size(), 50'000U);
}

TEST(StringTest, HashSeesCaseLengthAndNul) {
    EXPECT_NE(String("a").hash(), String("A").hash());
    EXPECT_NE(String("a").hash(), String("a\0", 2).hash());
    EXPECT_NE(String("\0", 1).hash(), String("\0\0", 2).hash());
    EXPECT_NE(String("").hash(), String("\0", 1).hash());
    EXPECT_NE(String("ab").hash(), String("ba").hash());
}

TEST(StringTest, HashesSpreadOverTheLowestByte) {
    std::set<unsigned long> buckets;
    for (unsigned long i = 0; i < 10'000; ++i)
        buckets.insert(String(i).hash() % 256);
    EXPECT_EQ(buckets.size(), 256U);
}

// --- comparison

TEST(StringTest, EqualityIsExact) {
    EXPECT_TRUE(String("abc") == "abc");
    EXPECT_TRUE(String("abc") == String("abc"));
    EXPECT_FALSE(String("abc") == "ABC");
    EXPECT_FALSE(String("abc") == String("abC"));
    EXPECT_FALSE(String("abc") == "ab");
    EXPECT_FALSE(String("ab") == "abc");
}

TEST(StringTest, InequalityIsTheOppositeOfEquality) {
    EXPECT_FALSE(String("abc") != "abc");
    EXPECT_FALSE(String("abc") != String("abc"));
    EXPECT_TRUE(String("abc") != "abd");
    EXPECT_TRUE(String("abc") != String("ab"));
}

TEST(StringTest, EmptyTextsAreEqualHoweverMade) {
    EXPECT_TRUE(String() == "");
    EXPECT_TRUE(String("") == String());
    EXPECT_FALSE(String() == "a");
    EXPECT_TRUE(String() != "a");
}

TEST(StringTest, NulIsComparedLikeAnyOtherCharacter) {
    EXPECT_FALSE(String("a\0b", 3) == "a");
    EXPECT_FALSE(String("a\0b", 3) == String("a\0c", 3));
    EXPECT_TRUE(String("a\0b", 3) == String("a\0b", 3));
    EXPECT_FALSE(String("\0", 1) == "");
}

TEST(StringTest, CompareNoCaseFindsEqualTextsOfAnyLetterCase) {
    const std::pair<const char*, const char*> equals[] = {
        {"", ""},           {"true", "TRUE"},         {"NuLl", "nUlL"}, {"abcxyz", "ABCXYZ"},
        {"a1_[]", "A1_[]"}, {"\xC3\xA4", "\xC3\xA4"},
    };
    for (const auto& [left, right] : equals) {
        EXPECT_EQ(String(left).compareNoCase(right), 0) << left << " " << right;
        EXPECT_EQ(String(right).compareNoCase(left), 0) << left << " " << right;
    }
}

TEST(StringTest, CompareNoCaseOrdersTexts) {
    const std::pair<const char*, const char*> ordered[] = {
        {"", "a"},     {"a", "B"},          {"A", "b"}, {"abc", "ABD"},
        {"ab", "ABC"}, {"TRUE", "trueish"}, {"1", "2"}, {"Z1", "z2"},
    };
    for (const auto& [lower, upper] : ordered) {
        EXPECT_LT(String(lower).compareNoCase(upper), 0) << lower << " " << upper;
        EXPECT_GT(String(upper).compareNoCase(lower), 0) << lower << " " << upper;
    }
}

TEST(StringTest, CompareNoCaseFoldsLettersOnly) {
    const std::pair<const char*, const char*> differing[] = {
        {"[", "{"}, {"@", "`"},       {"\\", "|"},   {"]", "}"},
        {"^", "~"}, {"\xC4", "\xE4"}, {"\x10", "0"},
    };
    for (const auto& [left, right] : differing)
        EXPECT_NE(String(left).compareNoCase(right), 0) << left << " " << right;
}

TEST(StringTest, CompareNoCaseSeesWhatFollowsANul) {
    EXPECT_EQ(String("a\0b", 3).compareNoCase(String("A\0B", 3)), 0);
    EXPECT_NE(String("a\0b", 3).compareNoCase(String("a\0c", 3)), 0);
    EXPECT_NE(String("a\0", 2).compareNoCase("a"), 0);
}

TEST(StringTest, CompareNoCaseIsAntisymmetricBeyondAscii) {
    const int sign = String("\x80").compareNoCase("a");
    EXPECT_NE(sign, 0);
    EXPECT_EQ(sign<0, String("a").compareNoCase("\x80")> 0);
}

// --- search

TEST(StringTest, StartsWithComparesExactlyUnlessToldToIgnoreCase) {
    const String text("Version: 3");
    EXPECT_TRUE(text.startsWith("Version", false));
    EXPECT_FALSE(text.startsWith("version", false));
    EXPECT_TRUE(text.startsWith("version", true));
    EXPECT_TRUE(text.startsWith("Version: 3", false));
    EXPECT_FALSE(text.startsWith("Version: 3 ", false));
    EXPECT_FALSE(text.startsWith("ersion", true));
}

TEST(StringTest, EndsWithComparesExactlyUnlessToldToIgnoreCase) {
    const String text("mesh.KVT");
    EXPECT_TRUE(text.endsWith(".KVT", false));
    EXPECT_FALSE(text.endsWith(".kvt", false));
    EXPECT_TRUE(text.endsWith(".kvt", true));
    EXPECT_TRUE(text.endsWith("mesh.KVT", false));
    EXPECT_FALSE(text.endsWith("a mesh.KVT", false));
    EXPECT_FALSE(text.endsWith(".KV", true));
}

TEST(StringTest, ContainsComparesExactlyUnlessToldToIgnoreCase) {
    const String text("# File Version: 3");
    EXPECT_TRUE(text.contains("Version:", false));
    EXPECT_FALSE(text.contains("version:", false));
    EXPECT_TRUE(text.contains("version:", true));
    EXPECT_TRUE(text.contains("VERSION:", true));
    EXPECT_FALSE(text.contains("version;", true));
}

TEST(StringTest, ContainsFindsAPartAnywhere) {
    const String text("abcdef");
    EXPECT_TRUE(text.contains("abc", false));
    EXPECT_TRUE(text.contains("cd", false));
    EXPECT_TRUE(text.contains("def", false));
    EXPECT_TRUE(text.contains("abcdef", false));
    EXPECT_FALSE(text.contains("abcdefg", false));
    EXPECT_FALSE(text.contains("ce", false));
    EXPECT_TRUE(String("aaaab").contains("aab", false));
    EXPECT_TRUE(String("AAAAB").contains("aab", true));
}

TEST(StringTest, EveryTextStartsEndsAndContainsTheEmptyText) {
    for (const bool ignoreCase : {false, true}) {
        for (const char* text : {"", "abc"}) {
            EXPECT_TRUE(String(text).startsWith("", ignoreCase)) << text;
            EXPECT_TRUE(String(text).endsWith("", ignoreCase)) << text;
            EXPECT_TRUE(String(text).contains("", ignoreCase)) << text;
        }
    }
}

TEST(StringTest, EmptyTextContainsNothingElse) {
    for (const bool ignoreCase : {false, true}) {
        EXPECT_FALSE(String().startsWith("a", ignoreCase));
        EXPECT_FALSE(String().endsWith("a", ignoreCase));
        EXPECT_FALSE(String().contains("a", ignoreCase));
    }
}

TEST(StringTest, SearchLooksBehindANul) {
    const String text("a\0bc", 4);
    EXPECT_TRUE(text.startsWith(String("a\0b", 3), false));
    EXPECT_FALSE(text.startsWith(String("a\0c", 3), false));
    EXPECT_TRUE(text.endsWith(String("\0bc", 3), true));
    EXPECT_TRUE(text.contains("bc", false));
    EXPECT_TRUE(text.contains("BC", true));
    EXPECT_TRUE(text.contains(String("\0b", 2), false));
    EXPECT_FALSE(String("abc").contains(String("\0", 1), false));
}

TEST(StringTest, IgnoringCaseFoldsLettersOnly) {
    EXPECT_FALSE(String("[x]").startsWith("{", true));
    EXPECT_FALSE(String("x]").endsWith("}", true));
    EXPECT_FALSE(String("a@b").contains("`", true));
    EXPECT_FALSE(String("\xC3\x84").contains("\xC3\xA4", true));
    EXPECT_FALSE(String("\xC4").startsWith("\xE4", true));
}

TEST(StringTest, FindGivesTheFirstPositionAtOrAfterTheStart) {
    const String text("a b a");
    EXPECT_EQ(text.find('a', false, 0), 0U);
    EXPECT_EQ(text.find('a', false, 1), 4U);
    EXPECT_EQ(text.find('a', false, 4), 4U);
    EXPECT_EQ(text.find(' ', false, 0), 1U);
    EXPECT_EQ(text.find(' ', false, 2), 3U);
}

TEST(StringTest, FindGivesNposWhenNothingMatches) {
    const String text("abc");
    EXPECT_EQ(text.find('x', false, 0), String::npos);
    EXPECT_EQ(text.find('a', false, 1), String::npos);
    EXPECT_EQ(String().find('a', false, 0), String::npos);
}

TEST(StringTest, NposHasAllBitsSet) { EXPECT_EQ(String::npos, 0xFFFFFFFFFFFFFFFFUL); }

TEST(StringTest, FindFromBeyondTheEndGivesNpos) {
    const String text("abc");
    EXPECT_EQ(text.find('c', false, 3), String::npos);
    EXPECT_EQ(text.find('c', false, 4), String::npos);
    EXPECT_EQ(text.find('c', true, 1'000'000), String::npos);
    EXPECT_EQ(text.find('c', false, String::npos), String::npos);
    EXPECT_EQ(text.find('c', true, String::npos), String::npos);
    EXPECT_EQ(String().find('c', false, 1), String::npos);
}

TEST(StringTest, FindIgnoresCaseOnlyWhenAsked) {
    const String text("xAbB");
    EXPECT_EQ(text.find('a', false, 0), String::npos);
    EXPECT_EQ(text.find('a', true, 0), 1U);
    EXPECT_EQ(text.find('B', true, 0), 2U);
    EXPECT_EQ(text.find('B', false, 0), 3U);
    EXPECT_EQ(String("{").find('[', true, 0), String::npos);
    EXPECT_EQ(String("\xE4").find('\xC4', true, 0), String::npos);
}

TEST(StringTest, FindTakesNulAsACharacterAndNotTheTerminator) {
    EXPECT_EQ(String("ab\0c", 4).find('\0', false, 0), 2U);
    EXPECT_EQ(String("ab\0c", 4).find('c', false, 0), 3U);
    EXPECT_EQ(String("abc").find('\0', false, 0), String::npos);
    EXPECT_EQ(String().find('\0', false, 0), String::npos);
}

TEST(StringTest, FindSeesBytesAbove127) {
    EXPECT_EQ(String("a\xFF\x80").find('\x80', false, 0), 2U);
    EXPECT_EQ(String("a\xFF\x80").find('\xFF', true, 0), 1U);
}

// --- transformation

TEST(StringTest, SubstringGivesTheCharactersOfTheRange) {
    const String text("abcdef");
    EXPECT_EQ(str(text.substring(0, 3)), "abc");
    EXPECT_EQ(str(text.substring(2, 2)), "cd");
    EXPECT_EQ(str(text.substring(0, 6)), "abcdef");
    EXPECT_EQ(str(text.substring(5, 1)), "f");
}

TEST(StringTest, SubstringIsClippedToTheEnd) {
    const String text("abcdef");
    EXPECT_EQ(str(text.substring(0, 20)), "abcdef");
    EXPECT_EQ(str(text.substring(4, 20)), "ef");
    EXPECT_EQ(str(text.substring(4, String::npos)), "ef");
    EXPECT_EQ(str(text.substring(1, String::npos - 1)), "bcdef");
    EXPECT_EQ(str(text.substring(0, String::npos)), "abcdef");
}

TEST(StringTest, SubstringFromTheEndOrBeyondIsEmpty) {
    const String text("abc");
    EXPECT_TRUE(text.substring(3, 1).isEmpty());
    EXPECT_TRUE(text.substring(4, 1).isEmpty());
    EXPECT_TRUE(text.substring(String::npos, 1).isEmpty());
    EXPECT_TRUE(text.substring(String::npos, String::npos).isEmpty());
    EXPECT_TRUE(String().substring(0, 5).isEmpty());
}

TEST(StringTest, SubstringOfNoCharactersIsEmpty) {
    EXPECT_TRUE(String("abc").substring(0, 0).isEmpty());
    EXPECT_TRUE(String("abc").substring(1, 0).isEmpty());
    EXPECT_TRUE(String("abc").substring(3, 0).isEmpty());
}

TEST(StringTest, SubstringKeepsNulsAndHighBytes) {
    EXPECT_EQ(String("a\0\xFF\0z", 5).substring(1, 3).view(), "\0\xFF\0"sv);
}

TEST(StringTest, SubstringEndsWithANulToo) {
    EXPECT_STREQ(String("abcdef").substring(1, 2).buf(), "bc");
}

TEST(StringTest, TrimRemovesBlanksAtTheEndsAskedFor) {
    const String text(" \t a b \n ");
    EXPECT_EQ(str(text.trim(true, true)), "a b");
    EXPECT_EQ(str(text.trim(true, false)), "a b \n ");
    EXPECT_EQ(str(text.trim(false, true)), " \t a b");
    EXPECT_EQ(str(text.trim(false, false)), " \t a b \n ");
}

TEST(StringTest, TrimKnowsEveryBlank) {
    EXPECT_EQ(str(String(" \t\n\v\f\rx\r\f\v\n\t ").trim(true, true)), "x");
}

TEST(StringTest, TrimLeavesWhatIsNoBlank) {
    EXPECT_EQ(String("\0x\0", 3).trim(true, true).view(), "\0x\0"sv);
    EXPECT_EQ(str(String("\xA0x\x85").trim(true, true)), "\xA0x\x85");
    EXPECT_EQ(str(String("x").trim(true, true)), "x");
}

TEST(StringTest, TrimOfBlanksAloneIsEmpty) {
    EXPECT_TRUE(String("   ").trim(true, true).isEmpty());
    EXPECT_TRUE(String("   ").trim(true, false).isEmpty());
    EXPECT_TRUE(String("   ").trim(false, true).isEmpty());
    EXPECT_TRUE(String().trim(true, true).isEmpty());
}

TEST(StringTest, TrimCharsTakesTheLeftSetForBothEndsWhenTheRightIsEmpty) {
    EXPECT_EQ(str(String("[3]").trimChars("[]", "")), "3");
    EXPECT_EQ(str(String("[[3]").trimChars("[]", "")), "3");
    EXPECT_EQ(str(String("]][3]x[").trimChars("[]", "")), "3]x");
    EXPECT_EQ(str(String("\"\"a\"b\"").trimChars("\"", "")), "a\"b");
}

TEST(StringTest, TrimCharsTakesASetForEachEnd) {
    EXPECT_EQ(str(String("((x))").trimChars("(", ")")), "x");
    EXPECT_EQ(str(String(")x(").trimChars("(", ")")), ")x(");
    EXPECT_EQ(str(String("aabxbba").trimChars("a", "ab")), "bx");
}

TEST(StringTest, TrimCharsWithAnEmptyLeftSetTrimsTheRightOnly) {
    EXPECT_EQ(str(String("xax").trimChars("", "x")), "xa");
    EXPECT_EQ(str(String("xax").trimChars("", "")), "xax");
}

TEST(StringTest, TrimCharsOfNothingButTheSetIsEmpty) {
    EXPECT_TRUE(String("[]").trimChars("[]", "").isEmpty());
    EXPECT_TRUE(String("[").trimChars("[]", "").isEmpty());
    EXPECT_TRUE(String("aabb").trimChars("a", "b").isEmpty());
    EXPECT_TRUE(String("aaa").trimChars("a", "a").isEmpty());
    EXPECT_TRUE(String().trimChars("[]", "").isEmpty());
}

TEST(StringTest, TrimCharsIsExactAboutLetterCase) {
    EXPECT_EQ(str(String("aAa").trimChars("a", "")), "A");
}

TEST(StringTest, TrimCharsTakesNulAndHighBytes) {
    EXPECT_EQ(String("\0\xFFx\0y\xFF\0"sv).trimChars(String("\0\xFF"sv), "").view(), "x\0y"sv);
    EXPECT_EQ(String("\0x"sv).trimChars("x", "").view(), "\0"sv);
}

TEST(StringTest, TrimCharsLeavesBlanksUnlessTold) {
    EXPECT_EQ(str(String("[ 2 ]").trimChars("[]", "")), " 2 ");
    EXPECT_EQ(str(String(" x ").trimChars("[]", "")), " x ");
}

TEST(StringTest, ToLowerFoldsAsciiLettersWhateverTheFlag) {
    for (const bool asciiOnly : {false, true}) {
        EXPECT_EQ(str(String("AbCxYZ019_[]@").toLower(asciiOnly)), "abcxyz019_[]@");
        EXPECT_EQ(str(String("\xC3\x84\xC4").toLower(asciiOnly)), "\xC3\x84\xC4");
        EXPECT_EQ(String("A\0B", 3).toLower(asciiOnly).view(), "a\0b"sv);
        EXPECT_TRUE(String().toLower(asciiOnly).isEmpty());
    }
}

TEST(StringTest, ToLowerChangesTheTwentySixCapitalsAndNothingElse) {
    for (int code = -128; code <= 127; ++code) {
        const char c = static_cast<char>(code);
        const char expected = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        for (const unsigned long length : {1UL, 14UL, 15UL}) {
            const String text(std::string(length, c));
            EXPECT_EQ(str(text.toLower(true)), std::string(length, expected)) << code;
            EXPECT_EQ(str(text.toLower(false)), std::string(length, expected)) << code;
        }
    }
}

struct Unescape {
    const char* name;
    std::string_view written;
    std::string_view meant;
};

const Unescape unescapes[] = {
    {"nothing", ""sv, ""sv},
    {"no backslash", "plain text"sv, "plain text"sv},
    {"line feed", R"(a\nb)"sv, "a\nb"sv},
    {"tab", R"(\t)"sv, "\t"sv},
    {"carriage return", R"(\r)"sv, "\r"sv},
    {"bell", R"(\a)"sv, "\a"sv},
    {"backspace", R"(\b)"sv, "\b"sv},
    {"form feed", R"(\f)"sv, "\f"sv},
    {"vertical tab", R"(\v)"sv, "\v"sv},
    {"NUL", R"(a\0b)"sv, "a\0b"sv},
    {"NUL before digits", R"(\012)"sv, "\00012"sv},
    {"backslash", R"(\\)"sv, R"(\)"sv},
    {"double quote", R"(\")"sv, R"(")"sv},
    {"single quote", R"(\')"sv, R"(')"sv},
    {"two hexadecimal digits", R"(\x41)"sv, "A"sv},
    {"hexadecimal letters of both cases", R"(\xfF\xaB)"sv, "\xFF\xAB"sv},
    {"hexadecimal NUL", R"(\x00)"sv, "\0"sv},
    {"a third digit is text", R"(\x414)"sv, "A4"sv},
    {"one hexadecimal digit before other text", R"(\x9g)"sv, "\x09g"sv},
    {"one hexadecimal digit at the end", R"(\x9)"sv, "\x09"sv},
    {"no hexadecimal digit", R"(\xg)"sv, R"(\xg)"sv},
    {"no hexadecimal digit at the end", R"(\x)"sv, R"(\x)"sv},
    {"unknown letter", R"(\q)"sv, R"(\q)"sv},
    {"capital letters", R"(\N\T\X41)"sv, R"(\N\T\X41)"sv},
    {"other digits", R"(\1\9)"sv, R"(\1\9)"sv},
    {"unicode escape", R"(\u0041)"sv, R"(\u0041)"sv},
    {"blank", R"(\ )"sv, R"(\ )"sv},
    {"lone backslash", R"(\)"sv, R"(\)"sv},
    {"backslash at the end", R"(abc\)"sv, R"(abc\)"sv},
    {"escaped backslash before a letter", R"(\\n)"sv, R"(\n)"sv},
    {"three backslashes before a letter", R"(\\\n)"sv, "\\\n"sv},
    {"escaped backslash before hexadecimal", R"(\\x41)"sv, R"(\x41)"sv},
    {"unknown escape before a known one", R"(\q\n)"sv, "\\q\n"sv},
    {"refused hexadecimal before a known one", R"(\x\n)"sv, "\\x\n"sv},
    {"NUL as written", "a\0\\n"sv, "a\0\n"sv},
    {"backslash before NUL", "\\\0x"sv, "\\\0x"sv},
    {"high bytes", "\xC3\xA4\\t\xFF"sv, "\xC3\xA4\t\xFF"sv},
    {"backslash before a high byte", "\\\xC3\xA4"sv, "\\\xC3\xA4"sv},
};

TEST(StringTest, UnescapeResolvesTheKnownEscapesAndKeepsTheRest) {
    for (const Unescape& row : unescapes) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(String(row.written).unescape().view(), row.meant);
    }
}

TEST(StringTest, UnescapeReadsHexadecimalNoFurtherThanTheText) {
    const String part = String(R"(\x41)").substring(0, 3);
    EXPECT_EQ(part.unescape().view(), "\x04"sv);
}

TEST(StringTest, FromFirstGivesWhatFollowsTheFirstSeparator) {
    EXPECT_EQ(str(String("# version: 3").fromFirst(':', false)), " 3");
    EXPECT_EQ(str(String("a:b:c").fromFirst(':', false)), "b:c");
    EXPECT_EQ(str(String(":a").fromFirst(':', false)), "a");
}

TEST(StringTest, FromFirstIncludesTheSeparatorWhenAsked) {
    EXPECT_EQ(str(String("a:b:c").fromFirst(':', true)), ":b:c");
    EXPECT_EQ(str(String("a:").fromFirst(':', true)), ":");
}

TEST(StringTest, FromFirstIsEmptyWithoutASeparatorOrBehindTheLastCharacter) {
    EXPECT_TRUE(String("abc").fromFirst(':', false).isEmpty());
    EXPECT_TRUE(String("abc").fromFirst(':', true).isEmpty());
    EXPECT_TRUE(String("abc:").fromFirst(':', false).isEmpty());
    EXPECT_TRUE(String().fromFirst(':', true).isEmpty());
    EXPECT_TRUE(String("abc").fromFirst('\0', true).isEmpty());
}

TEST(StringTest, FromFirstKeepsNuls) {
    EXPECT_EQ(String("a:\0b", 4).fromFirst(':', false).view(), "\0b"sv);
    EXPECT_EQ(String("a\0b", 3).fromFirst('\0', false).view(), "b"sv);
}

TEST(StringTest, PlusConcatenates) {
    EXPECT_EQ(str(String("ab") + "cd"), "abcd");
    EXPECT_EQ(str(String("ab") + String("cd")), "abcd");
    EXPECT_EQ(str(String("ab") + String("c") + "d"), "abcd");
}

TEST(StringTest, PlusTakesEmptyTextsOnEitherSide) {
    EXPECT_EQ(str(String() + "x"), "x");
    EXPECT_EQ(str(String("x") + ""), "x");
    EXPECT_EQ(str(String("x") + String()), "x");
    EXPECT_TRUE((String() + String()).isEmpty());
    EXPECT_TRUE((String() + "").isEmpty());
}

TEST(StringTest, PlusKeepsNuls) {
    EXPECT_EQ((String("a\0", 2) + String("\0b", 2)).view(), "a\0\0b"sv);
    EXPECT_EQ((String("a\0", 2) + "b\0c").view(), "a\0b"sv);
}

TEST(StringTest, TransformationsLeaveTheReceiverAsItWas) {
    const String text(" [A\\n:b] ");
    (void)text.substring(1, 2);
    (void)text.trim(true, true);
    (void)text.trimChars(" ", "");
    (void)text.toLower(true);
    (void)text.unescape();
    (void)text.fromFirst(':', true);
    (void)(text + "x");
    (void)text.split(':', true, true);
    EXPECT_EQ(str(text), " [A\\n:b] ");
}

// --- split

using Pieces = std::vector<std::string>;

TEST(StringTest, SplitGivesThePiecesBetweenSeparators) {
    EXPECT_EQ(strs(String("a b c").split(' ', false, false)), (Pieces{"a", "b", "c"}));
    EXPECT_EQ(strs(String("node.output").split('.', false, false)), (Pieces{"node", "output"}));
    EXPECT_EQ(strs(String("alone").split(' ', false, false)), (Pieces{"alone"}));
}

TEST(StringTest, SplitKeepsEmptyPiecesUnlessToldToSkipThem) {
    const String text(",a,,b,");
    EXPECT_EQ(strs(text.split(',', false, false)), (Pieces{"", "a", "", "b", ""}));
    EXPECT_EQ(strs(text.split(',', true, false)), (Pieces{"a", "b"}));
    EXPECT_EQ(strs(String(",").split(',', false, false)), (Pieces{"", ""}));
}

TEST(StringTest, SplitSkippingEmptyPiecesMayGiveNone) {
    EXPECT_EQ(String().split(' ', true, false).size(), 0U);
    EXPECT_EQ(String("   ").split(' ', true, false).size(), 0U);
}

TEST(StringTest, SplitTrimsPiecesOnlyWhenAsked) {
    const String text(" a ,\tb c\n,d");
    EXPECT_EQ(strs(text.split(',', false, true)), (Pieces{"a", "b c", "d"}));
    EXPECT_EQ(strs(text.split(',', false, false)), (Pieces{" a ", "\tb c\n", "d"}));
}

TEST(StringTest, SplitAtASpaceTakesOtherBlanksAsText) {
    EXPECT_EQ(strs(String("1\t2 3").split(' ', true, false)), (Pieces{"1\t2", "3"}));
}

TEST(StringTest, SplitKeepsNulsAndMaySplitAtThem) {
    const StringVector kept = String("a\0b,c", 5).split(',', false, false);
    ASSERT_EQ(kept.size(), 2U);
    EXPECT_EQ(kept[0].view(), "a\0b"sv);
    EXPECT_EQ(strs(String("a\0b", 3).split('\0', false, false)), (Pieces{"a", "b"}));
}

TEST(StringTest, SplitPiecesOutliveTheText) {
    StringVector pieces;
    {
        const String text("one two");
        pieces = text.split(' ', true, false);
    }
    EXPECT_EQ(strs(pieces), (Pieces{"one", "two"}));
}

TEST(StringTest, SplitGivesAHundredThousandPieces) {
    std::string source;
    for (int i = 0; i < 100'000; ++i)
        source += "x ";
    EXPECT_EQ(String(source).split(' ', true, false).size(), 100'000U);
    EXPECT_EQ(String(source).split(' ', false, false).size(), 100'001U);
}

TEST(StringVectorTest, KeepsWhatIsPushedInOrder) {
    StringVector list;
    EXPECT_EQ(list.size(), 0U);
    list.push_back("first");
    list.push_back(String());
    list.push_back("third");
    EXPECT_EQ(strs(list), (Pieces{"first", "", "third"}));
}

// --- character classes

// True for the members of `set` and, if `beyondAscii`, for every byte above 127.
bool isMember(std::string_view set, bool beyondAscii, int code) {
    if (code < 0) return beyondAscii;
    return set.find(static_cast<char>(code)) != std::string_view::npos;
}

void expectClass(bool (*isInClass)(char), std::string_view set, bool beyondAscii) {
    for (int code = -128; code <= 127; ++code) {
        EXPECT_EQ(isInClass(static_cast<char>(code)), isMember(set, beyondAscii, code)) << code;
    }
}

constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

TEST(CharacterClassTest, SpacesAreTheSixBlanksOfAscii) {
    expectClass([](char c) { return String::isSpace(c); }, " \t\n\v\f\r", false);
}

TEST(CharacterClassTest, PrintableAre32To126AndAllAbove127) {
    std::string printable;
    for (char c = 32; c < 127; ++c)
        printable += c;
    expectClass([](char c) { return String::isPrintable(c); }, printable, true);
}

TEST(CharacterClassTest, LettersAreThoseOfAsciiAndAllAbove127) {
    expectClass([](char c) { return String::isLetter(c); }, letters, true);
}

TEST(CharacterClassTest, DigitsAreThoseOfAscii) {
    expectClass([](char c) { return String::isDigit(c); }, "0123456789", false);
}

TEST(CharacterClassTest, HexadecimalDigitsAreThoseOfAscii) {
    expectClass([](char c) { return String::isHexDigit(c); }, "0123456789abcdefABCDEF", false);
}

}  // namespace
