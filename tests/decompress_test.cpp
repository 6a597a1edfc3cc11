// Compact bytes: hexadecimal digits, plain or as one LZ4 block. Blocks are made here by hand and by
// an encoder of the tests' own.

#include <ko/foundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using ko::ByteArray;
using ko::String;
using std::string_view_literals::operator""sv;

// --- calling the decoder

struct Decoded {
    std::string bytes;
    std::string error;
    bool hasBytes = false;
};

Decoded decode(std::string_view text, unsigned long expected) {
    // A copy of exactly the text's size, so that reading past it is noticed.
    const std::vector<unsigned char> source(text.begin(), text.end());
    String error;
    const ByteArray array = ko::decompress(source.data(), source.size(), error, expected);
    const std::unique_ptr<unsigned char[]> owner(array.data);
    Decoded decoded;
    if (array.data) decoded.bytes.assign(array.data, array.data + array.size);
    decoded.error = error.view();
    decoded.hasBytes = array.data != nullptr;
    EXPECT_EQ(decoded.hasBytes, array.size > 0);
    return decoded;
}

void expectBytes(std::string_view text, std::string_view bytes, unsigned long expected) {
    const Decoded decoded = decode(text, expected);
    EXPECT_EQ(decoded.bytes, bytes) << text.substr(0, 200) << ": " << decoded.error;
}

// Decodes to `bytes`, expected to be just that many.
void expectBytes(std::string_view text, std::string_view bytes) {
    expectBytes(text, bytes, bytes.size());
}

// Refused with a message that has a number for the place.
void expectRefused(std::string_view text, unsigned long expected) {
    const Decoded decoded = decode(text, expected);
    EXPECT_FALSE(decoded.hasBytes) << text.substr(0, 200);
    const bool namesAPlace =
        std::any_of(decoded.error.begin(), decoded.error.end(), &String::isDigit);
    EXPECT_TRUE(namesAPlace) << text.substr(0, 200) << ": " << decoded.error;
}

// The last number of a message, which is its place.
unsigned long placeIn(const std::string& message) {
    const std::size_t last = message.find_last_of("0123456789");
    if (last == std::string::npos) return 0;
    const std::size_t before = message.find_last_not_of("0123456789", last);
    return std::stoul(message.substr(before + 1));
}

std::string hex(std::string_view bytes) {
    std::string digits;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        digits += "0123456789abcdef"[byte / 16];
        digits += "0123456789abcdef"[byte % 16];
    }
    return digits;
}

// --- plain digits

TEST(CompactBytesTest, DigitPairsAreTheBytes) {
    expectBytes(".41", "A");
    expectBytes(".00", "\0"sv);
    expectBytes(".ff", "\xFF");
    expectBytes(".000102fdfeff", "\x00\x01\x02\xFD\xFE\xFF"sv);
}

TEST(CompactBytesTest, EveryByteIsReadInBothLetterCases) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    std::string digits = "." + hex(bytes);
    expectBytes(digits, bytes);
    for (char& c : digits)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    expectBytes(digits, bytes);
    expectBytes(".aBAbFf", "\xAB\xAB\xFF");
}

TEST(CompactBytesTest, BlanksAnywhereAreIgnored) {
    expectBytes(". 41 42", "AB");
    expectBytes(".4 1 4 2", "AB");
    expectBytes(".41 ", "A");
    expectBytes(". \t\n\v\f\r4 \t\n\v\f\r1 \t\n\v\f\r", "A");
}

TEST(CompactBytesTest, FewerBytesThanExpectedAreAccepted) {
    expectBytes(".41", "A", 2);
    expectBytes(".41", "A", 1000);
}

TEST(CompactBytesTest, ExpectedSizeIsNotAllocated) {
    for (const unsigned long expected : {1UL << 40U, ~0UL / 2, ~0UL - 1, ~0UL})
        expectBytes(".4142", "AB", expected);
}

TEST(CompactBytesTest, ExpectedSizeMayBeAnyNumber) {
    for (unsigned bit = 1; bit < 64; ++bit) {
        SCOPED_TRACE(bit);
        expectBytes(".4142", "AB", 1UL << bit);
        expectBytes(".4142", "AB", (1UL << bit) + 1);
    }
}

TEST(CompactBytesTest, MoreBytesThanExpectedAreRefused) {
    expectRefused(".4142", 1);
    expectRefused(".41 42 43 44", 3);
    expectRefused(".41", 0);
}

TEST(CompactBytesTest, MillionsOfBytesAreRead) {
    std::mt19937_64 random(1);
    std::string bytes;
    for (int i = 0; i < 1'000'000; ++i)
        bytes += static_cast<char>(random());
    expectBytes("." + hex(bytes), bytes);
}

TEST(CompactBytesTest, NoDigitsAreRefused) {
    for (const char* text : {".", ". ", ". \t\n", ".+", ".+ ", ".+\n\n"})
        expectRefused(text, 100);
}

TEST(CompactBytesTest, OddNumberOfDigitsIsRefused) {
    for (const char* text : {".4", ".414", ".4 1 4", ".+1", ".+1041f", ".41 4 "})
        expectRefused(text, 100);
}

TEST(CompactBytesTest, OtherCharactersAreRefused) {
    for (int code = -128; code <= 127; ++code) {
        const char c = static_cast<char>(code);
        if (String::isHexDigit(c) || String::isSpace(c)) continue;
        SCOPED_TRACE(code);
        expectRefused(std::string(".41") + c, 100);
        expectRefused(std::string(".4") + c + "1", 100);
        expectRefused(std::string(".+1041") + c, 100);
        expectRefused(std::string(".+") + c + "1041", 100);
        if (c != '+') expectRefused(std::string(".") + c + "41", 100);
    }
}

// Digits are read many at a time where they stand side by side.
TEST(CompactBytesTest, AnyCharacterIsSeenWhereverItStandsAmongDigits) {
    const std::string digits = "0123456789abcdefABCDEF9876543210";
    const std::string bytes = "\x01\x23\x45\x67\x89\xAB\xCD\xEF\xAB\xCD\xEF\x98\x76\x54\x32\x10";
    for (int code = -128; code <= 127; ++code) {
        const char c = static_cast<char>(code);
        if (String::isHexDigit(c)) continue;
        for (unsigned long place = 1; place < digits.size(); ++place) {
            SCOPED_TRACE("code " + std::to_string(code) + " at " + std::to_string(place));
            const std::string text = "." + digits.substr(0, place) + c + digits.substr(place);
            if (String::isSpace(c)) {
                expectBytes(text, bytes);
            } else {
                EXPECT_EQ(place + 1, placeIn(decode(text, 100).error));
            }
        }
    }
}

TEST(CompactBytesTest, AnyNumberOfBytesMayBeExpected) {
    const std::string bytes = "ABCDEFGHIJKLMNOP";
    for (unsigned long count = 1; count <= bytes.size(); ++count) {
        SCOPED_TRACE(count);
        const std::string text = "." + hex(bytes.substr(0, count));
        expectBytes(text, bytes.substr(0, count), count);
        expectRefused(text, count - 1);
    }
}

TEST(CompactBytesTest, TextWithoutItsPointIsRefused) {
    for (const char* text : {"", "00", "+00", " .00"}) {
        const Decoded decoded = decode(text, 1);
        EXPECT_FALSE(decoded.hasBytes) << text;
        EXPECT_EQ("compact bytes: no '.' at character 0", decoded.error);
    }
}

TEST(CompactBytesTest, PrefixesAreRefused) {
    for (const char* text : {".0x41", ".#41", "..41", ".-41", ".++41", ".+.41", ".41h", ".4g"})
        expectRefused(text, 100);
}

TEST(CompactBytesTest, BlankBetweenPointAndPlusIsRefused) {
    expectBytes(".+1041", "A");
    expectRefused(". +1041", 100);
    expectRefused(".\n+1041", 100);
}

TEST(CompactBytesTest, NothingIsReadBeyondTheSize) {
    const unsigned char text[] = {'.', '4', '1', '4', '2'};
    String error;
    const ByteArray array = ko::decompress(text, 3, error, 100);
    const std::unique_ptr<unsigned char[]> owner(array.data);
    ASSERT_EQ(array.size, 1U);
    EXPECT_EQ(array.data[0], 'A');
}

TEST(CompactBytesTest, ErrorOfBytesThatAreReadSaysNothing) {
    String error = "of before";
    const unsigned char text[] = {'.', '4', '1'};
    const ByteArray array = ko::decompress(text, 3, error, 1);
    const std::unique_ptr<unsigned char[]> owner(array.data);
    EXPECT_TRUE(error.isEmpty());
}

TEST(CompactBytesTest, RefusedCharacterIsNamedWithItsPlace) {
    const unsigned long first = placeIn(decode(".41x", 100).error);
    EXPECT_EQ(placeIn(decode(".4142x", 100).error), first + 2);
    EXPECT_EQ(placeIn(decode(".41      x", 100).error), first + 6);
    EXPECT_EQ(placeIn(decode(".+41x", 100).error), first + 1);
    EXPECT_NE(decode(".41x", 100).error.find('x'), std::string::npos);
}

TEST(CompactBytesTest, PlaceOfTheFirstByteTooManyIsNamed) {
    const unsigned long first = placeIn(decode(".414243", 2).error);
    EXPECT_EQ(placeIn(decode(".   414243", 2).error), first + 3);
    EXPECT_EQ(placeIn(decode(".41424344", 2).error), first);
}

TEST(CompactBytesTest, KindsOfRefusalHaveMessagesOfTheirOwn) {
    const std::pair<const char*, unsigned long> refusals[] = {
        {".", 9},          {".4", 9},         {".4x", 9},    {".4142", 1},
        {".+10410000", 9}, {".+10410200", 9}, {".+2041", 9}, {".+1041010000", 1},
        {".+104101", 9},   {".+10410100", 9}, {".+00", 9},   {".+f0", 9},
    };
    std::set<std::string> messages;
    for (const auto& [text, expected] : refusals) {
        std::string message = decode(text, expected).error;
        const auto digits = std::remove_if(message.begin(), message.end(), &String::isDigit);
        message.erase(digits, message.end());
        EXPECT_TRUE(messages.insert(message).second) << text << ": " << message;
    }
}

// --- LZ4 blocks made by hand

// Collects the sequences of a block and the bytes that they mean.
class Block {
  public:
    Block& sequence(std::string_view literals, unsigned long offset, unsigned long matchLength) {
        token(literals, matchLength - 4);
        block_ += static_cast<char>(offset % 256);
        block_ += static_cast<char>(offset / 256);
        continueLength(matchLength - 4);
        for (unsigned long i = 0; i < matchLength; ++i)
            bytes_ += bytes_[bytes_.size() - offset];
        return *this;
    }
    // The run of literals that ends the block.
    Block& last(std::string_view literals) {
        token(literals, 0);
        return *this;
    }

    std::string text() const { return ".+" + hex(block_); }
    const std::string& block() const { return block_; }
    const std::string& bytes() const { return bytes_; }

  private:
    void token(std::string_view literals, unsigned long matchCode) {
        const unsigned long high = std::min(literals.size(), 15UL);
        block_ += static_cast<char>(high * 16 + std::min(matchCode, 15UL));
        continueLength(literals.size());
        block_ += literals;
        bytes_ += literals;
    }
    void continueLength(unsigned long length) {
        if (length < 15) return;
        for (length -= 15; length >= 255; length -= 255)
            block_ += '\xFF';
        block_ += static_cast<char>(length);
    }

    std::string block_;
    std::string bytes_;
};

void expectBlock(const Block& block) {
    expectBytes(block.text(), block.bytes());
    expectBytes(block.text(), block.bytes(), block.bytes().size() + 1);
}

TEST(CompactBlockTest, LiteralsAlone) {
    expectBytes(".+1041", "A");
    expectBytes(".+5048656c6c6f", "Hello");
    expectBytes(".+e0" + hex("fourteen bytes"), "fourteen bytes");
}

TEST(CompactBlockTest, BlanksAndLetterCasesAreThoseOfPlainDigits) {
    expectBytes(".+ 5 0 48\t65\n6C 6c\r6F\v\f", "Hello");
}

TEST(CompactBlockTest, LongLiteralsContinueTheirLength) {
    expectBytes(".+f000" + hex("fifteen  bytes!"), "fifteen  bytes!");
    expectBytes(".+f001" + hex("sixteen of bytes"), "sixteen of bytes");
    for (const unsigned long length : {15UL, 269UL, 270UL, 271UL, 524UL, 525UL, 526UL, 70'000UL}) {
        SCOPED_TRACE(length);
        expectBlock(Block().last(std::string(length, 'x')));
    }
    expectBytes(".+f0ff00" + hex(std::string(270, 'x')), std::string(270, 'x'));
    expectBytes(".+f0ffff00" + hex(std::string(525, 'y')), std::string(525, 'y'));
}

TEST(CompactBlockTest, MatchRepeatsEarlierBytes) {
    // "abcd", a match of 4 bytes 4 back, "!"
    expectBytes(".+406162636404001021", "abcdabcd!");
    expectBlock(Block().sequence("abcdefgh", 8, 4).last("z"));
    expectBlock(Block().sequence("abcdefgh", 5, 5).last("z"));
}

TEST(CompactBlockTest, MatchMayOverlapWhatItWrites) {
    // "a", a match of 9 bytes 1 back, "b"
    expectBytes(".+156101001062", "aaaaaaaaaab");
    for (unsigned long offset = 1; offset <= 20; ++offset) {
        for (const unsigned long length : {4UL, 5UL, 17UL, 100UL}) {
            SCOPED_TRACE(offset);
            expectBlock(Block().sequence("abcdefghijklmnopqrst", offset, length).last("end"));
        }
    }
}

TEST(CompactBlockTest, LongMatchesContinueTheirLength) {
    for (const unsigned long length :
         {18UL, 19UL, 20UL, 273UL, 274UL, 275UL, 528UL, 529UL, 530UL, 100'000UL}) {
        SCOPED_TRACE(length);
        expectBlock(Block().sequence("ab", 2, length).last("c"));
    }
    expectBytes(".+1f610100ff001062", std::string(1 + 274, 'a') + "b");
}

TEST(CompactBlockTest, MatchMayFollowAMatchWithoutLiterals) {
    expectBlock(Block().sequence("abc", 3, 6).sequence("", 1, 4).sequence("", 9, 30).last("x"));
}

TEST(CompactBlockTest, OffsetIsTwoBytesWithTheLowerFirst) {
    std::string literals;
    for (int i = 0; i < 300; ++i)
        literals += static_cast<char>(i * 7);
    expectBlock(Block().sequence(literals, 0x0102, 10).last("x"));
    expectBlock(Block().sequence(literals, 0x0100, 10).last("x"));
    expectBlock(Block().sequence(literals, 0x00FF, 10).last("x"));
}

TEST(CompactBlockTest, OffsetReachesBackToTheStartAndUpTo65535) {
    std::mt19937_64 random(2);
    std::string literals;
    for (int i = 0; i < 70'000; ++i)
        literals += static_cast<char>(random());
    expectBlock(Block().sequence(literals, 65'535, 40).last("x"));
    expectBlock(Block().sequence("abcd", 4, 4).last("x"));
}

TEST(CompactBlockTest, MatchBitsOfTheLastTokenAreIgnored) {
    for (const char* token : {"10", "11", "17", "1e", "1f"})
        expectBytes(std::string(".+") + token + "41", "A");
    expectBytes(".+156101001f62", "aaaaaaaaaab");
}

TEST(CompactBlockTest, LastRunMayBeAsShortAsOneLiteral) {
    expectBlock(Block().sequence("a", 1, 4).last("b"));
}

TEST(CompactBlockTest, LastRunMayBeEmptyBehindAMatch) {
    expectBlock(Block().sequence("a", 1, 8).last(""));
}

TEST(CompactBlockTest, FewerBytesThanExpectedAreAccepted) {
    expectBytes(".+156101001062", "aaaaaaaaaab", 12);
    expectBytes(".+156101001062", "aaaaaaaaaab", 1'000'000);
}

TEST(CompactBlockTest, ExpectedSizeIsNotAllocated) {
    for (const unsigned long expected : {1UL << 40U, 1UL << 63U, ~0UL - 1, ~0UL})
        expectBytes(".+156101001062", "aaaaaaaaaab", expected);
}

TEST(CompactBlockTest, MoreBytesThanExpectedAreRefused) {
    for (unsigned long expected = 0; expected < 11; ++expected)
        expectRefused(".+156101001062", expected);
    expectRefused(".+5048656c6c6f", 4);
    expectRefused(".+1041", 0);
}

struct Malformed {
    const char* name;
    const char* text;
};

const Malformed malformed[] = {
    {"nothing in the block", ".+00"},
    {"nothing in the block, match bits set", ".+0f"},
    {"offset 0", ".+104100001042"},
    {"offset 0 at the end", ".+10410000"},
    {"offset before the start", ".+104102001042"},
    {"offset far before the start", ".+1041ffff1042"},
    {"match without anything before", ".+0001001042"},
    {"offset before the start behind a match", ".+104101000006001042"},
    {"all literals cut off", ".+10"},
    {"literals cut off", ".+504865"},
    {"last literal cut off", ".+5048656c6c"},
    {"long literals cut off", ".+f00041424344"},
    {"literal length cut off", ".+f0"},
    {"literal length cut off behind 255", ".+f0ff"},
    {"literal length cut off behind many 255", ".+f0ffffffffffffffffff"},
    {"offset cut off behind one byte", ".+104101"},
    {"offset cut off behind one byte of 0", ".+104100"},
    {"match length cut off", ".+1f410100"},
    {"match length cut off behind 255", ".+1f410100ffff"},
    {"end behind a match", ".+10410100"},
    {"end behind a long match", ".+1f41010000"},
    {"end behind a second match", ".+10410100000100"},
    {"last literals cut off behind a match", ".+104101002042"},
    {"literals of a length past the memory", ".+f0ffffffffffffffffffffffffff0041"},
};

TEST(CompactBlockTest, MalformedBlocksAreRefused) {
    for (const Malformed& row : malformed) {
        SCOPED_TRACE(row.name);
        expectRefused(row.text, 1'000);
        expectRefused(row.text, ~0UL);
    }
}

TEST(CompactBlockTest, EveryCutBlockIsRefusedOrShorter) {
    const Block whole = Block().sequence("abc", 3, 30).sequence("de", 5, 6).last("tail");
    for (unsigned long length = 0; length < whole.block().size(); ++length) {
        SCOPED_TRACE(length);
        const Decoded decoded =
            decode(".+" + hex(whole.block().substr(0, length)), whole.bytes().size());
        EXPECT_EQ(decoded.hasBytes, decoded.error.empty());
        EXPECT_EQ(decoded.bytes, whole.bytes().substr(0, decoded.bytes.size()));
        EXPECT_LT(decoded.bytes.size(), whole.bytes().size());
    }
}

TEST(CompactBlockTest, PlaceInTheBlockIsNamed) {
    // Sequences of 4 bytes each before the mistake move its place by 4.
    const char* const mistakes[] = {
        "10410000", "1041ffff", "5048",     "f0",         "f0ff",
        "104101",   "1f410100", "10410100", "1f41010000",
    };
    for (const char* mistake : mistakes) {
        SCOPED_TRACE(mistake);
        const std::string before = "11420100";
        const std::string twice = before + before;
        const unsigned long place = placeIn(decode(std::string(".+") + mistake, 999).error);
        EXPECT_EQ(placeIn(decode(".+" + before + mistake, 999).error), place + 4);
        EXPECT_EQ(placeIn(decode(".+" + twice + mistake, 999).error), place + 8);
        EXPECT_EQ(placeIn(decode(".+  " + before + " " + mistake, 999).error), place + 4);
    }
}

TEST(CompactBlockTest, PlaceOfTheFirstRunTooLongIsNamed) {
    const unsigned long place = placeIn(decode(".+3041424310", 2).error);
    EXPECT_EQ(placeIn(decode(".+114201003041424310", 8).error), place + 4);
}

// --- LZ4 blocks made by an encoder

// Encodes greedily: the latest earlier place of the next four bytes is the match.
Block encode(const std::string& bytes) {
    Block block;
    std::map<std::string, unsigned long> latest;
    unsigned long literals = 0;  // begin of those not written yet
    unsigned long at = 0;
    while (at + 4 <= bytes.size()) {
        const std::string next = bytes.substr(at, 4);
        const auto found = latest.find(next);
        const unsigned long match = found == latest.end() ? at : found->second;
        latest[next] = at;
        if (match == at || at - match > 65'535) {
            ++at;
            continue;
        }
        unsigned long length = 4;
        while (at + length < bytes.size() && bytes[match + length] == bytes[at + length])
            ++length;
        block.sequence(bytes.substr(literals, at - literals), at - match, length);
        at += length;
        literals = at;
    }
    return block.last(bytes.substr(literals));
}

// Bytes of a small alphabet with runs and repetitions, so that all kinds of matches occur.
std::string compressible(std::mt19937_64& random) {
    std::string bytes;
    const unsigned long size = 1 + random() % 3'000;
    const unsigned letters = 1 + static_cast<unsigned>(random() % 200);
    while (bytes.size() < size) {
        const unsigned long count = 1 + random() % 60;
        switch (random() % 3) {
            case 0: bytes += std::string(count * 10, static_cast<char>(random() % letters)); break;
            case 1:
                for (unsigned long i = 0; i < count; ++i)
                    bytes += static_cast<char>(random() % letters);
                break;
            default: bytes += bytes.substr(bytes.empty() ? 0 : random() % bytes.size(), count * 3);
        }
    }
    return bytes;
}

TEST(CompactBlockTest, EncodedBytesComeBack) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 400; ++i) {
        const std::string bytes = compressible(random);
        const Block block = encode(bytes);
        ASSERT_EQ(block.bytes(), bytes);
        expectBlock(block);
    }
}

TEST(CompactBlockTest, RandomSequencesMeanWhatTheySay) {
    std::mt19937_64 random(4);
    for (int i = 0; i < 400; ++i) {
        Block block;
        for (unsigned long k = 1 + random() % 20; k > 0; --k) {
            const std::string literals(1 + random() % 40, static_cast<char>(random()));
            const unsigned long reach = block.bytes().size() + literals.size();
            block.sequence(literals, 1 + random() % reach, 4 + random() % (1U << random() % 11));
        }
        expectBlock(block.last(std::string(random() % 30, 'l')));
    }
}

TEST(CompactBlockTest, MillionsOfBytesComeBack) {
    expectBlock(Block().sequence("kvt", 3, 3'000'000).last("end"));
}

TEST(CompactBlockTest, DamagedBlocksNeverGiveMoreThanExpected) {
    std::mt19937_64 random(5);
    for (int i = 0; i < 3'000; ++i) {
        const std::string bytes = compressible(random).substr(0, 100);
        std::string damaged = encode(bytes).block();
        for (unsigned long k = 1 + random() % 4; k > 0; --k)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        const Decoded decoded = decode(".+" + hex(damaged), bytes.size());
        EXPECT_LE(decoded.bytes.size(), bytes.size());
        EXPECT_EQ(decoded.hasBytes, decoded.error.empty());
    }
}

TEST(CompactBlockTest, RandomBlocksNeverGiveMoreThanExpected) {
    std::mt19937_64 random(6);
    for (int i = 0; i < 10'000; ++i) {
        std::string block;
        for (unsigned long k = 1 + random() % 40; k > 0; --k) {
            block += static_cast<char>(random() % (random() % 2 ? 256 : 20));
        }
        const Decoded decoded = decode(".+" + hex(block), 200);
        EXPECT_LE(decoded.bytes.size(), 200U);
        EXPECT_EQ(decoded.hasBytes, decoded.error.empty());
    }
}

}  // namespace
