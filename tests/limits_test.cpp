// The limits of numbers in documents, each at the limit and one past it. What takes gigabytes to
// reach is tried by the tests under large/.

#include <ko/scene.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "reading.h"

namespace {

using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::Scene;
using kvt::test::readBytes;
using kvt::test::readText;

// --- Powers of two

// 2^exponent and one either side, as documents write them.
struct PowerOfTwo {
    std::string text;
    bool fits = false;        // into 64 bits
    unsigned long value = 0;  // where it fits
};

PowerOfTwo powerOfTwo(int exponent, int offset) {
    if (exponent < 64) {
        const unsigned long value = (1UL << exponent) + static_cast<unsigned long>(offset);
        return {std::to_string(value), true, value};
    }
    if (offset < 0) return {"18446744073709551615", true, ~0UL};
    return {offset == 0 ? "18446744073709551616" : "18446744073709551617"};
}

template <class Visit>
void forEachPowerOfTwo(Visit visit) {
    for (int exponent = 0; exponent <= 64; ++exponent)
        for (int offset = -1; offset <= 1; ++offset)
            visit(powerOfTwo(exponent, offset));
}

constexpr unsigned long limit = 1000;

// The log of a document whose first line fails at `column`.
std::string failure(unsigned long column, const std::string& detail) {
    return "error: PARSE ERROR (1," + std::to_string(column) + "): " + detail + ".\nfailed\n";
}

TEST(Index, IsReadAtEveryPowerOfTwo) {
    forEachPowerOfTwo([](const PowerOfTwo& index) {
        SCOPED_TRACE(index.text);
        Scene scene;
        scene.setElementLimit(limit);
        const std::string statement = "t n: .a[" + index.text + "] = 7;";
        const bool isHeld = index.fits && index.value < limit;
        std::string log = "ok\n";
        if (!isHeld) log = "error: array too large: n.a\nfailed\n";
        if (!index.fits)
            log = failure(statement.size() - 1, "invalid input array index: [" + index.text + "]");
        EXPECT_EQ(log, readText(&scene, statement).log);
        EXPECT_EQ(isHeld ? index.value + 1 : 0, scene.findNode("n")->input("a")->inputCount());
    });
}

TEST(Count, IsReadAtEveryPowerOfTwo) {
    forEachPowerOfTwo([](const PowerOfTwo& count) {
        SCOPED_TRACE(count.text);
        Scene scene;
        scene.setBufferLimit(limit);
        const std::string head = "t n: .x = byte[" + count.text + "] {7}";
        const bool isHeld = count.fits && count.value <= limit;
        std::string log = "ok\n";
        if (isHeld && count.value > 1)
            log = "warning: Too few elements (1) for byte[" + count.text +
                  "] buffer, remainder set to zero.\nok\n";
        if (!isHeld)
            log = failure(head.size(), "invalid buffer element count: [" + count.text + "]");
        EXPECT_EQ(log, readText(&scene, head + ";").log);
        const auto* const input = scene.findNode("n")->input("x");
        EXPECT_EQ(isHeld ? count.value : 0, input ? input->asBuffer().count : 0);
    });
}

// --- Numbers

struct NumberLimit {
    const char* type;  // of a buffer's elements
    const char* least;
    const char* below;
    const char* greatest;
    const char* above;
};

constexpr NumberLimit numberLimits[] = {
    {"char", "-128", "-129", "127", "128"},
    {"byte", "0", "-1", "255", "256"},
    {"int16", "-32768", "-32769", "32767", "32768"},
    {"uint16", "0", "-1", "65535", "65536"},
    {"int32", "-2147483648", "-2147483649", "2147483647", "2147483648"},
    {"uint32", "0", "-1", "4294967295", "4294967296"},
    {"int64", "-9223372036854775808", "-9223372036854775809", "9223372036854775807",
     "9223372036854775808"},
    {"uint64", "0", "-1", "18446744073709551615", "18446744073709551616"},
    // Half a unit beyond the largest value rounds past it.
    {"float", "-3.40282356e38", "-3.4028236e38", "3.40282356e38", "3.4028236e38"},
    {"double", "-1.797693134862315807e308", "-1.797693134862315808e308", "1.797693134862315807e308",
     "1.797693134862315808e308"},
};

TEST(NumbersOfBuffers, AreReadUpToTheirLimits) {
    for (const NumberLimit& row : numberLimits) {
        SCOPED_TRACE(row.type);
        const std::string head = std::string("t n: .x = ") + row.type + "[1] {";
        const auto logOf = [&head](const char* number) {
            Scene scene;
            return readText(&scene, head + number + "};").log;
        };
        const auto refusal = [&](const char* number) {
            const unsigned long column = (head + number + "}").size();
            return failure(column, std::string("Failed to read '") + row.type + "' buffer.");
        };
        EXPECT_EQ("ok\n", logOf(row.least));
        EXPECT_EQ("ok\n", logOf(row.greatest));
        EXPECT_EQ(refusal(row.below), logOf(row.below));
        EXPECT_EQ(refusal(row.above), logOf(row.above));
    }
}

TEST(NumbersOfInputs, AreReadUpToTheirLimits) {
    const struct {
        const char* last;
        const char* past;
    } rows[] = {
        {"9223372036854775807", "9223372036854775808"},
        {"-9223372036854775808", "-9223372036854775809"},
        {"9223372036854775807u", "9223372036854775808u"},
        {"1.797693134862315807e308", "1.797693134862315808e308"},
        {"-1.797693134862315807e308", "-1.797693134862315808e308"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.last);
        Scene scene;
        EXPECT_EQ("ok\n", readText(&scene, std::string("t n: .x = ") + row.last + ";").log);
        const std::string head = std::string("t m: .x = ") + row.past;
        EXPECT_EQ("error: BAD TOKEN (1," + std::to_string(head.size()) +
                      "): expected '(scalar|buffer|reference)', found ';'.\nfailed\n",
                  readText(&scene, head + ";").log);
        EXPECT_EQ(nullptr, scene.findNode("m")->input("x"));
    }
}

// Half of the smallest value rounds to zero, anything beyond it to that value.
TEST(SmallReals, AreReadDownToTheSmallest) {
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene,
                               "t n: .x = double[3] {2.4703282292062327e-324 "
                               "2.4703282292062328e-324 -1e-999999999999999999999};")
                          .log);
    const auto* const reals = scene.findNode("n")->input("x")->asBufferOf<double>();
    EXPECT_EQ(0, reals[0]);
    EXPECT_EQ(4.9406564584124654e-324, reals[1]);
    EXPECT_EQ(0, reals[2]);
}

TEST(Version, IsReadUpToItsLimit) {
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, "# version: 18446744073709551615").log);
    EXPECT_EQ(~0UL, scene.fileVersion());
    EXPECT_EQ("warning: Failed to parse KVT version comment: # version: 18446744073709551616\nok\n",
              readText(&scene, "# version: 18446744073709551616").log);
    EXPECT_EQ(~0UL, scene.fileVersion());
}

// --- Characters

TEST(ByteFF, EndsADocument) {
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, "t n; t \xC3\xBE; \xFF t m; (").log);
    EXPECT_EQ("ok\n", readBytes(&scene, "t n: .x = 1;\xFF( )!").log);
    EXPECT_EQ(2U, scene.nodeCount());
    EXPECT_EQ(
        "error: BAD TOKEN (1,12): expected '(scalar|buffer|reference)', found 'UNEXPECTED EOF "
        "while parsing STRING'.\nfailed\n",
        readText(&scene, "t n: .y = \"\xFE\xFF\";").log);
}

TEST(Nul, EndsAStringAndNotADocument) {
    using namespace std::string_literals;
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, "t n: .x = \"a\0b\"; .y\0= \"a\\0b\";\0 .z = 1;"s).log);
    EXPECT_EQ("a", scene.findNode("n")->input("x")->asText());
    EXPECT_EQ("a", scene.findNode("n")->input("y")->asText());
    EXPECT_EQ(1, scene.findNode("n")->input("z")->asInt());
}

// Short texts stand in the objects themselves.
TEST(Names, MayHaveAnyLength) {
    for (unsigned long length = 1; length <= 40; ++length) {
        SCOPED_TRACE(length);
        const std::string name(length, 'x');
        Scene scene;
        EXPECT_EQ("ok\n", readText(&scene, name + " " + name + ": ." + name + " |= " + name + "." +
                                               name + "; ." + name + "y = 1;")
                              .log);
        const auto& node = *scene.findNode(ko::String(name));
        EXPECT_EQ(name, node.type().view());
        const auto* const input = node.input(ko::String(name));
        ASSERT_NE(nullptr, input);
        EXPECT_EQ(name + "." + name, input->connection()->fullName().view());
        EXPECT_EQ(name + "." + name, input->fullName().view());
        EXPECT_EQ(1, node.input(ko::String(name + "y"))->asInt());
    }
}

// So many letters, the alphabet again and again.
std::string letters(unsigned long count, std::string_view alphabet) {
    std::string text;
    for (unsigned long i = 0; i < count; ++i)
        text += alphabet[i % alphabet.size()];
    return text;
}

constexpr std::string_view smallLetters = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view capitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

TEST(FullNames, AreShownWholeUpTo500Bytes) {
    Scene scene;
    auto* const node = scene.createNode("t", "n", "");
    const std::string name = letters(498, smallLetters);
    EXPECT_EQ("n." + name, node->createInput(ko::String(name), AttrType::Int)->fullName().view());
    EXPECT_EQ("n." + name, node->output(ko::String(name))->fullName().view());
}

// Wherever the parts of the name begin and end.
TEST(FullNames, OfMoreBytesAreCutInTheMiddle) {
    for (unsigned long ofNode = 1; ofNode <= 900; ofNode += 7) {
        for (const unsigned long ofInput : {1UL, 197UL, 499UL, 1000UL}) {
            const std::string nodeName = letters(ofNode, capitals);
            const std::string inputName = letters(ofInput, smallLetters);
            const std::string whole = nodeName + "." + inputName;
            if (whole.size() <= 500) continue;
            Scene scene;
            auto* const node = scene.createNode("t", ko::String(nodeName), "");
            auto* const input = node->createInput(ko::String(inputName), AttrType::Int);
            auto* const output = node->output(ko::String(inputName));
            const std::string shown =
                whole.substr(0, 300) + "..." + whole.substr(whole.size() - 197);
            EXPECT_EQ(shown, input->fullName().view());
            EXPECT_EQ(shown, output->fullName().view());
        }
    }
}

// The bytes of all messages about a document that names a node once, for many inputs of it.
unsigned long logOf(unsigned long size, const std::string& head, const std::string& statement) {
    std::string document = "t " + std::string(size, 'n') + ":" + head;
    for (unsigned long i = 0; i < size / statement.size(); ++i)
        document += statement;
    Scene scene;
    return readText(&scene, document).log.size();
}

TEST(Messages, GrowWithTheDocument) {
    const struct {
        const char* head;
        const char* statement;
    } rows[] = {
        {".x=1;", ".x=\"\";"}, {".x=1;", ".x=2.5;"}, {".x[0]=1;", ".x[0]=2.5;"},
        {"", ".x[*]|=a.b;"},   {"", ".x[*]|=a;"},    {"", ".x[*]=a;"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.statement);
        const unsigned long small = logOf(16 * 1024, row.head, row.statement);
        EXPECT_GT(2.3 * static_cast<double>(small),
                  static_cast<double>(logOf(32 * 1024, row.head, row.statement)));
    }
}

TEST(ValuesInMessages, AreShownUpToTwentyCharacters) {
    const struct {
        const char* value;
        const char* shown;
    } rows[] = {
        {"\"123456789012345678\"", "\"123456789012345678\""},
        {"\"1234567890123456789\"", "\"1234567890123456789..."},
    };
    for (const auto& row : rows) {
        Scene scene;
        const std::string document = std::string("t n: .o.x = 1; .o = ") + row.value + ";";
        EXPECT_EQ("error: TYPE ERROR (1," + std::to_string(document.size() - 1) +
                      "): expected Object @ n.o but found " + row.shown + ".\nok\n",
                  readText(&scene, document).log);
    }
}

}  // namespace
