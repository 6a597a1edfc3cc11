// Every kind of value assigned to every type of input: what is stored, down to the last word, and
// what is reported.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>
#include <ko/types.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "reading.h"

namespace {

using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::attrTypeName;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Scene;
using kvt::test::Reading;
using std::string_view_literals::operator""sv;

using Words = std::vector<std::uint64_t>;

std::uint64_t bits(double number) {
    std::uint64_t word = 0;
    std::memcpy(&word, &number, sizeof word);
    return word;
}

Words reals(const std::vector<double>& numbers) {
    Words words;
    for (const double number : numbers)
        words.push_back(bits(number));
    return words;
}

// --- Any value into any input

// A value as documents write it.
struct Value {
    AttrType type;
    const char* text;
    Words words;        // what is stored in an input of its own type
    const char* shown;  // by arrays and objects, which take none
};

std::ostream& operator<<(std::ostream& out, const Value& value) { return out << value.text; }

const Value values[] = {
    {AttrType::Bool, "true", {1}, "true"},
    {AttrType::Int, "-3", {~2UL}, "-3"},
    {AttrType::UInt, "5u", {5}, "5u"},
    {AttrType::Real, "2.5", {bits(2.5)}, "2.5"},
    {AttrType::Vec2, "vec2(1 2)", reals({1, 2}), "vec2"},
    {AttrType::Vec3, "vec3(1 2 3)", reals({1, 2, 3}), "vec3"},
    {AttrType::Vec4, "vec4(1 2 3 4)", reals({1, 2, 3, 4}), "vec4"},
    {AttrType::Pos2, "pos2(1 2)", reals({1, 2}), "pos2"},
    {AttrType::Pos3, "pos3(1 2 3)", reals({1, 2, 3}), "pos3"},
    {AttrType::Quat, "quat(1 2 3 4)", reals({1, 2, 3, 4}), "quat"},
    {AttrType::Rgba, "rgba(1 2 3 4)", reals({1, 2, 3, 4}), "rgba"},
    {AttrType::Mat3, "mat3(1 2 3 4 5 6 7 8 9)", reals({1, 2, 3, 4, 5, 6, 7, 8, 9}), "mat3"},
    {AttrType::Mat4, "mat4(1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16)",
     reals({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}), "mat4"},
    {AttrType::String, "\"abc\"", {}, "\"abc\""},
    {AttrType::Buffer, "float[2] {1 2}", {}, "float[]"},
    {AttrType::Array, "[ 1 ]", {}, "[ 1 ]"},
    {AttrType::Object, "{1 2}", {}, "{1 2}"},
};

// In the order of the types: 'y' is stored, 'n' narrowed and stored, '.' refused. Arrays and
// objects take nothing.
struct Row {
    AttrType type;
    std::string_view targets;
};

// clang-format off
constexpr Row rows[] = {
    {AttrType::Bool,   ".yyy..............."},
    {AttrType::Int,    ".nyyy.............."},
    {AttrType::UInt,   ".nyyy.............."},
    {AttrType::Real,   "..nnyyyyyyyy......."},
    {AttrType::Vec2,   ".....yyyyyyy......."},
    {AttrType::Vec3,   ".....nyynyyy......."},
    {AttrType::Vec4,   ".....nnynnyy......."},
    {AttrType::Pos2,   ".....yyyyyyy......."},
    {AttrType::Pos3,   ".....nyynyyy......."},
    {AttrType::Quat,   ".....nnynnyy......."},
    {AttrType::Rgba,   ".....nnynnyy......."},
    {AttrType::Mat3,   "............yy....."},
    {AttrType::Mat4,   "............ny....."},
    {AttrType::String, "..............y...."},
    {AttrType::Buffer, "................y.."},
    {AttrType::Array,  "..................."},
    {AttrType::Object, "..................."},
};
// clang-format on

char outcomeOf(AttrType from, AttrType to) {
    for (const Row& row : rows)
        if (row.type == from) return row.targets[static_cast<std::uint32_t>(to)];
    return '?';
}

bool isVector(AttrType type) { return type >= AttrType::Vec2 && type <= AttrType::Rgba; }

// The sixteen words of the value once an input of type `to` has stored it.
Words storedWords(const Value& from, AttrType to) {
    Words words = from.words;
    if (from.type == AttrType::Real && to == AttrType::Int) words = {3};
    if (from.type == AttrType::Real && to == AttrType::UInt) words = {3};
    if (from.type == AttrType::Real && isVector(to)) words = Words(4, bits(2.5));
    if (from.type == AttrType::Int && to == AttrType::Real) words = {bits(-3)};
    if (from.type == AttrType::UInt && to == AttrType::Real) words = {bits(5)};
    if (from.type != AttrType::Bool && to == AttrType::Bool) words = {1};
    const bool isVectorToVector = isVector(from.type) && isVector(to);
    if (isVectorToVector && words.size() > componentCount(to)) words.resize(componentCount(to));
    if (from.type == AttrType::Mat4 && to == AttrType::Mat3) {
        words = reals({1, 2, 3, 5, 6, 7, 9, 10, 11});
    }
    if (from.type == AttrType::Mat3 && to == AttrType::Mat4) {
        words = reals({1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 0, 0, 0, 1});
    }
    words.resize(16);
    return words;
}

class ValuesAndInputs : public testing::TestWithParam<std::tuple<Value, std::uint32_t>> {};

std::string messageFor(const Value& value, AttrType to) {
    const bool takesNothing = to == AttrType::Array || to == AttrType::Object;
    const std::string position = " (1," + std::to_string(6 + std::strlen(value.text)) + "): ";
    const std::string found = takesNothing ? value.shown : attrTypeName(value.type);
    switch (outcomeOf(value.type, to)) {
        case 'y': return "";
        case 'n':
            return "warning: TYPE WARNING" + position + "narrowing " + attrTypeName(value.type) +
                   " to " + attrTypeName(to) + " @ n.x.\n";
        default:
            return "error: TYPE ERROR" + position + "expected " + attrTypeName(to) +
                   " @ n.x but found " + found + ".\n";
    }
}

void expectDefault(const Input& input) {
    const AttrData found = input.value();
    const AttrData expected = AttrData::defaultOf(input.type());
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(expected.value[i], found.value[i]) << "word " << i;
}

void expectStored(const Input& input, const Value& value) {
    if (value.type == AttrType::String) {
        EXPECT_EQ("abc", input.asText());
    } else if (value.type == AttrType::Buffer) {
        ASSERT_EQ(2U, input.asBuffer().count);
        EXPECT_EQ(2, input.asBufferOf<float>()[1]);
    } else {
        const AttrData found = input.value();
        const Words expected = storedWords(value, input.type());
        for (unsigned long i = 0; i < 16; ++i)
            EXPECT_EQ(expected[i], found.value[i]) << "word " << i;
    }
}

TEST_P(ValuesAndInputs, StoreOrReport) {
    const auto& [value, code] = GetParam();
    const auto to = static_cast<AttrType>(code);
    Scene scene;
    Node* const node = scene.createNode("t", "n", "");
    Input* const input = node->createInput("x", to);
    const Reading reading = kvt::test::readText(&scene, std::string("n.x = ") + value.text + ";");
    EXPECT_EQ(messageFor(value, to) + "ok\n", reading.log);
    EXPECT_EQ(to, input->type());
    if (outcomeOf(value.type, to) == '.') {
        expectDefault(*input);
    } else {
        expectStored(*input, value);
    }
}

std::string nameOf(const testing::TestParamInfo<ValuesAndInputs::ParamType>& conversion) {
    const auto& [value, code] = conversion.param;
    return std::string(attrTypeName(value.type)) + "To" + attrTypeName(static_cast<AttrType>(code));
}

INSTANTIATE_TEST_SUITE_P(, ValuesAndInputs,
                         testing::Combine(testing::ValuesIn(values),
                                          testing::Range(0U, ko::mirel_sdk::attrTypeCount)),
                         nameOf);

// An input that the statement itself creates takes the value as it is.
TEST(Conversions, AreNotNeededForANewInput) {
    for (const Value& value : values) {
        SCOPED_TRACE(value.text);
        Scene scene;
        scene.createNode("t", "n", "");
        const Reading reading =
            kvt::test::readText(&scene, std::string("n.x = ") + value.text + ";");
        const Input* const input = scene.findNode("n")->input("x");
        ASSERT_NE(nullptr, input);
        EXPECT_EQ(value.type, input->type());
        if (input->isArray() || input->isObject()) {
            EXPECT_EQ(messageFor(value, value.type) + "ok\n", reading.log);
        } else {
            EXPECT_EQ("ok\n", reading.log);
            expectStored(*input, value);
        }
    }
}

// --- Numbers at their bounds

Input* readInto(Scene& scene, AttrType type, const std::string& value) {
    Input* const input = scene.createNode("t", "n", "")->createInput("x", type);
    kvt::test::readText(&scene, "n.x = " + value + ";");
    return input;
}

struct ToInt {
    const char* text;
    long value;
};

constexpr long greatest = std::numeric_limits<long>::max();
constexpr long least = std::numeric_limits<long>::min();

TEST(Rounding, GoesToTheNearestHalfAwayFromZero) {
    constexpr ToInt numbers[] = {
        {"0.", 0},
        {"-0.", 0},
        {"0.49999999999999994", 0},
        {"-0.49999999999999994", 0},
        {"0.5", 1},
        {"-0.5", -1},
        {"0.50000000000000011", 1},
        {"1.4999999999999998", 1},
        {"1.5", 2},
        {"2.5", 3},
        {"-2.5", -3},
        {"2.4999999999999996", 2},
        {"4503599627370495.5", 4503599627370496},
        {"4503599627370497.", 4503599627370497},
        {"-4503599627370497.", -4503599627370497},
        {"9007199254740991.", 9007199254740991},
        {"9223372036854774784.", 9223372036854774784},
        {"9223372036854775807.", greatest},  // read as 2^63
        {"9223372036854777856.", greatest},
        {"-9223372036854775808.", least},
        {"-9223372036854777856.", least},
        {"1.e308", greatest},
        {"-1.e308", least},
        {"-inf", least},
        {"-nan", 0},
    };
    for (const ToInt& number : numbers) {
        SCOPED_TRACE(number.text);
        Scene scene;
        EXPECT_EQ(number.value, readInto(scene, AttrType::Int, number.text)->asInt());
    }
}

struct ToUInt {
    const char* text;
    unsigned long value;
};

TEST(Rounding, StopsAtTheBoundsOfUnsignedIntegers) {
    constexpr ToUInt numbers[] = {
        {"0.49999999999999994", 0},
        {"0.5", 1},
        {"2.5", 3},
        {"-0.4", 0},
        {"-0.5", 0},
        {"-1.e30", 0},
        {"9223372036854774784.", 9223372036854774784UL},
        {"9223372036854775808.", 9223372036854775808UL},
        {"9223372036854777856.", 9223372036854777856UL},
        {"18446744073709549568.", 18446744073709549568UL},
        {"18446744073709551616.", ~0UL},
        {"1.e308", ~0UL},
        {"-inf", 0},
        {"-nan", 0},
    };
    for (const ToUInt& number : numbers) {
        SCOPED_TRACE(number.text);
        Scene scene;
        EXPECT_EQ(number.value, readInto(scene, AttrType::UInt, number.text)->asUInt());
    }
}

TEST(Conversions, BetweenIntegersKeepTheBits) {
    Scene scene;
    EXPECT_EQ(~0UL, readInto(scene, AttrType::UInt, "-1")->asUInt());
    Scene second;
    EXPECT_EQ(-5, readInto(second, AttrType::Int, "-5u")->asInt());
    Scene third;
    EXPECT_EQ(9223372036854775808UL,
              readInto(third, AttrType::UInt, "-9223372036854775808")->asUInt());
}

struct ToReal {
    const char* text;
    double value;
};

TEST(Conversions, OfIntegersToRealsRound) {
    constexpr ToReal numbers[] = {
        {"9007199254740993", 9007199254740992.0},
        {"-9223372036854775808", -9223372036854775808.0},
        {"9223372036854775807", 9223372036854775808.0},
        {"-1u", 18446744073709551616.0},
        {"-9223372036854775808u", 9223372036854775808.0},
        {"0", 0.0},
    };
    for (const ToReal& number : numbers) {
        SCOPED_TRACE(number.text);
        Scene scene;
        EXPECT_EQ(number.value, readInto(scene, AttrType::Real, number.text)->asReal());
    }
}

TEST(Conversions, ToBoolAskForZero) {
    constexpr ToInt numbers[] = {{"0", 0},  {"0u", 0},  {"1", 1},
                                 {"-1", 1}, {"256", 1}, {"-9223372036854775808", 1}};
    for (const ToInt& number : numbers) {
        SCOPED_TRACE(number.text);
        Scene scene;
        EXPECT_EQ(number.value != 0, readInto(scene, AttrType::Bool, number.text)->asBool());
    }
}

// Values that are refused leave what was there.
TEST(Conversions, ThatAreRefusedKeepTheOldValue) {
    Scene scene;
    const Reading reading =
        kvt::test::readText(&scene,
                            "t n: .s = \"old\"; .s = 1; .b = float[1] {7}; .b = 1; "
                            ".b = double[1] {1}; .i = 9; .i = \"x\"; .i = float[1] {1};");
    EXPECT_TRUE(reading.ok);
    const Node* const node = scene.findNode("n");
    EXPECT_EQ("old", node->input("s")->asText());
    EXPECT_EQ(7, node->input("b")->asBufferOf<float>()[0]);
    EXPECT_EQ(9, node->input("i")->asInt());
}

}  // namespace
