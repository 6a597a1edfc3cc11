// Values and the inputs that hold them: AttrData, defaults, children, elements, storing, reading.

#include <ko/math.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using ko::DataType;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::attrTypeCount;
using ko::mirel_sdk::attrTypeName;
using ko::mirel_sdk::isVectorType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::BufferView;
using ko::mirel_sdk::impl::defaultElementLimit;
using ko::mirel_sdk::impl::freePayload;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::interfaces::IInput;
using ko::mirel_sdk::interfaces::IInputContainer;
using std::string_view_literals::operator""sv;

constexpr long lowestInt = std::numeric_limits<long>::min();
constexpr unsigned long highestUInt = std::numeric_limits<unsigned long>::max();

// The characters, NULs included, as assertions compare and print them.
std::string str(const String& text) { return std::string(text.view()); }

std::vector<AttrType> allTypes() {
    std::vector<AttrType> types;
    for (std::uint32_t code = 0; code < attrTypeCount; ++code)
        types.push_back(AttrType(code));
    return types;
}

bool isAnyOf(AttrType type, std::initializer_list<AttrType> types) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

bool isMatrix(AttrType type) { return isAnyOf(type, {AttrType::Mat3, AttrType::Mat4}); }

bool hasComponents(AttrType type) { return isVectorType(type) || isMatrix(type); }

using Words = std::vector<std::uint64_t>;

// All sixteen words of a value, as assertions compare and print them.
Words wordsOf(const AttrData& data) { return {std::begin(data.value), std::end(data.value)}; }

// The same words for numbers that stand from the first word on.
Words wordsOf(const std::vector<double>& numbers) {
    Words words(16);
    std::memcpy(words.data(), numbers.data(), numbers.size() * sizeof(double));
    return words;
}

std::vector<double> componentsOf(const AttrData& data) {
    std::vector<double> components;
    for (unsigned long i = 0; i < componentCount(data.type); ++i)
        components.push_back(data.component(static_cast<int>(i)));
    return components;
}

std::vector<double> counting(unsigned long count) {
    std::vector<double> numbers;
    for (unsigned long i = 1; i <= count; ++i)
        numbers.push_back(static_cast<double>(i));
    return numbers;
}

// A value of `type` that is not its default, where there is another; owns its payload.
AttrData sampleOf(AttrType type) {
    switch (type) {
        case AttrType::Bool: return AttrData::ofBool(true);
        case AttrType::Int: return AttrData::ofInt(-7);
        case AttrType::UInt: return AttrData::ofUInt(7);
        case AttrType::Real: return AttrData::ofReal(2.5);
        case AttrType::String: return AttrData::ofText("text");
        case AttrType::Buffer: return AttrData::ofBuffer(DataType::Float, 2);
        default: return AttrData::ofComponents(type, counting(componentCount(type)).data());
    }
}

AttrData bufferOf(std::initializer_list<float> numbers) {
    const AttrData data = AttrData::ofBuffer(DataType::Float, numbers.size());
    std::copy(numbers.begin(), numbers.end(), static_cast<float*>(data.payload()));
    return data;
}

// What `work` says when it throws an Error; empty when it throws nothing.
template <class Error>
std::string messageOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const Error& error) {
        return error.what();
    }
    return {};
}

// --- values made in code

TEST(AttrDataTest, IsATypeAndSixteenWords) {
    EXPECT_EQ(sizeof(AttrType), 4U);
    EXPECT_EQ(sizeof(AttrData::value), 128U);
    EXPECT_EQ(offsetof(AttrData, type), 0U);
    EXPECT_EQ(offsetof(AttrData, value), 8U);
}

TEST(AttrDataTest, StartsAsNothing) {
    const AttrData data;
    EXPECT_EQ(data.type, AttrType::Null);
    for (const std::uint64_t word : data.value)
        EXPECT_EQ(word, 0U);
}

TEST(AttrDataTest, HoldsABoolInItsFirstByte) {
    EXPECT_EQ(AttrData::ofBool(true).type, AttrType::Bool);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(AttrData::ofBool(true).value)[0], 1U);
    EXPECT_TRUE(AttrData::ofBool(true).boolean());
    EXPECT_FALSE(AttrData::ofBool(false).boolean());
}

TEST(AttrDataTest, HoldsEveryInt) {
    for (const long number : {0L, -1L, 1L, lowestInt, std::numeric_limits<long>::max()}) {
        SCOPED_TRACE(number);
        EXPECT_EQ(AttrData::ofInt(number).type, AttrType::Int);
        EXPECT_EQ(AttrData::ofInt(number).integer(), number);
        EXPECT_EQ(AttrData::ofInt(number).value[0], static_cast<std::uint64_t>(number));
    }
}

TEST(AttrDataTest, HoldsEveryUInt) {
    for (const unsigned long number : {0UL, 1UL, 1UL << 63, highestUInt}) {
        SCOPED_TRACE(number);
        EXPECT_EQ(AttrData::ofUInt(number).type, AttrType::UInt);
        EXPECT_EQ(AttrData::ofUInt(number).uinteger(), number);
    }
}

TEST(AttrDataTest, HoldsEveryReal) {
    for (const double number : {0.0, -2.5, 1e308, 5e-324, HUGE_VAL}) {
        SCOPED_TRACE(number);
        EXPECT_EQ(AttrData::ofReal(number).type, AttrType::Real);
        EXPECT_EQ(AttrData::ofReal(number).real(), number);
    }
    EXPECT_TRUE(std::signbit(AttrData::ofReal(-0.0).real()));
    EXPECT_TRUE(std::isnan(AttrData::ofReal(std::nan("")).real()));
}

TEST(AttrDataTest, HoldsComponentsFromTheFirstWordOn) {
    for (const AttrType type : allTypes()) {
        if (!hasComponents(type)) continue;
        SCOPED_TRACE(attrTypeName(type));
        const std::vector<double> numbers = counting(componentCount(type));
        const AttrData data = AttrData::ofComponents(type, numbers.data());
        EXPECT_EQ(data.type, type);
        EXPECT_EQ(componentsOf(data), numbers);
        EXPECT_EQ(wordsOf(data), wordsOf(numbers));
    }
}

TEST(AttrDataTest, ComponentsAreSetOneByOne) {
    AttrData data = AttrData::defaultOf(AttrType::Vec3);
    data.setComponent(2, -4);
    data.setReal(0.5);
    EXPECT_EQ(componentsOf(data), (std::vector<double>{0.5, 0, -4}));
}

TEST(AttrDataTest, HoldsTextUpToANul) {
    const struct {
        std::string_view text;
        const char* held;
    } rows[] = {
        {""sv, ""}, {"text"sv, "text"}, {"a\0b"sv, "a"}, {"\0"sv, ""}, {"\xC3\xA4"sv, "\xC3\xA4"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.held);
        const AttrData data = AttrData::ofText(row.text);
        EXPECT_EQ(data.type, AttrType::String);
        EXPECT_NE(data.payload(), nullptr);
        EXPECT_STREQ(data.text(), row.held);
        EXPECT_EQ(data.value[0], reinterpret_cast<std::uint64_t>(data.text()));
        freePayload(data);
    }
}

TEST(AttrDataTest, BecomesTextInPlace) {
    AttrData data = AttrData::ofInt(7);
    data.setText("a\0b"sv);
    EXPECT_EQ(data.type, AttrType::String);
    EXPECT_STREQ(data.text(), "a");
    freePayload(data);
}

TEST(AttrDataTest, BecomesNothingWhateverItWas) {
    for (int code = 0; code <= static_cast<int>(AttrType::Object); ++code) {
        AttrData data;
        data.type = static_cast<AttrType>(code);
        const bool isMatrix = data.type == AttrType::Mat3 || data.type == AttrType::Mat4;
        const unsigned long used = isMatrix ? std::size(data.value) : 5;
        std::fill_n(data.value, used, ~0UL);
        data.clear();
        EXPECT_EQ(data.type, AttrType::Null);
        for (const std::uint64_t word : data.value)
            EXPECT_EQ(word, 0U) << code;
    }
}

TEST(AttrDataTest, TextOfNoPayloadIsEmpty) {
    EXPECT_STREQ(AttrData::defaultOf(AttrType::String).text(), "");
}

TEST(AttrDataTest, HoldsAZeroedBufferAsPointerCountBytesAndType) {
    const AttrData data = AttrData::ofBuffer(DataType::Vec3f, 5);
    EXPECT_EQ(data.type, AttrType::Buffer);
    EXPECT_EQ(data.value[0], reinterpret_cast<std::uint64_t>(data.payload()));
    EXPECT_EQ(data.value[1], 5U);
    EXPECT_EQ(data.value[2], 60U);
    EXPECT_EQ(data.value[3], static_cast<std::uint64_t>(DataType::Vec3f));
    EXPECT_EQ(data.value[4], 0U);
    const auto* const numbers = static_cast<const float*>(data.payload());
    EXPECT_TRUE(std::all_of(numbers, numbers + 15, [](float number) { return number == 0; }));
    freePayload(data);
}

TEST(AttrDataTest, BufferOfNoElementsHasAnElementTypeAndNoPayload) {
    const AttrData data = AttrData::ofBuffer(DataType::Mat4d, 0);
    EXPECT_EQ(data.payload(), nullptr);
    EXPECT_EQ(data.bufferType(), DataType::Mat4d);
    EXPECT_EQ(data.buffer().count, 0U);
    EXPECT_EQ(data.buffer().bytes, 0U);
}

TEST(AttrDataTest, DeclarationsCarryAnElementTypeInTheFourthWord) {
    const AttrData array = AttrData::declareArray(AttrType::Object);
    EXPECT_EQ(array.type, AttrType::Array);
    EXPECT_EQ(array.arrayType(), AttrType::Object);
    EXPECT_EQ(array.value[3], static_cast<std::uint64_t>(AttrType::Object));
    const AttrData buffer = AttrData::declareBuffer(DataType::ColorRef);
    EXPECT_EQ(buffer.type, AttrType::Buffer);
    EXPECT_EQ(buffer.bufferType(), DataType::ColorRef);
    EXPECT_EQ(buffer.value[3], static_cast<std::uint64_t>(DataType::ColorRef));
    for (const int word : {0, 1, 2, 4, 15}) {
        EXPECT_EQ(array.value[word], 0U);
        EXPECT_EQ(buffer.value[word], 0U);
    }
}

TEST(AttrDataTest, ElementTypeIsInTheLowHalfOfTheFourthWord) {
    AttrData data = AttrData::declareBuffer(DataType::Float);
    data.value[3] |= std::uint64_t(0xABCD) << 32;
    EXPECT_EQ(data.bufferType(), DataType::Float);
    data.setElementType(AttrType::Mat3);
    EXPECT_EQ(data.arrayType(), AttrType::Mat3);
    data.setElementType(DataType::Byte);
    EXPECT_EQ(data.bufferType(), DataType::Byte);
}

TEST(AttrDataTest, OnlyTextsAndBuffersCarryAPayload) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        EXPECT_EQ(AttrData::defaultOf(type).hasPayload(),
                  isAnyOf(type, {AttrType::String, AttrType::Buffer}));
    }
}

TEST(AttrDataTest, FreeingAValueWithoutPayloadDoesNothing) {
    for (const AttrType type : allTypes())
        freePayload(AttrData::defaultOf(type));
    freePayload(AttrData::ofInt(-1));
    freePayload(AttrData::ofUInt(highestUInt));
}

TEST(AttrDataTest, DiscardingAValueFreesIt) {
    Scene scene;
    scene.discard(AttrData::ofText("text"));
    scene.discard(AttrData::ofBuffer(DataType::Float, 3));
    scene.discard(AttrData::ofInt(12));
}

TEST(AttrDataTest, CloneOfAPlainValueIsEqual) {
    for (const AttrType type : allTypes()) {
        if (AttrData::defaultOf(type).hasPayload()) continue;
        SCOPED_TRACE(attrTypeName(type));
        const AttrData data = sampleOf(type);
        const AttrData copy = data.clone();
        EXPECT_EQ(copy.type, data.type);
        EXPECT_EQ(wordsOf(copy), wordsOf(data));
    }
}

TEST(AttrDataTest, CloneOfATextHasATextOfItsOwn) {
    const AttrData data = AttrData::ofText("text");
    const AttrData copy = data.clone();
    EXPECT_NE(copy.payload(), data.payload());
    freePayload(data);
    EXPECT_STREQ(copy.text(), "text");
    freePayload(copy);
}

TEST(AttrDataTest, CloneOfABufferHasNumbersOfItsOwn) {
    const AttrData data = bufferOf({1, 2, 3});
    const AttrData copy = data.clone();
    EXPECT_NE(copy.payload(), data.payload());
    freePayload(data);
    const BufferView view = copy.buffer();
    EXPECT_EQ(view.type, DataType::Float);
    EXPECT_EQ(view.count, 3U);
    EXPECT_EQ(view.bytes, 12U);
    EXPECT_EQ(view.as<float>()[2], 3);
    freePayload(copy);
}

TEST(AttrDataTest, CloneRefusesABufferWhoseSizesContradictEachOther) {
    for (const unsigned long word : {1UL, 2UL}) {
        SCOPED_TRACE(word);
        const AttrData data = bufferOf({1, 2, 3});
        AttrData wrong = data;
        wrong.value[word] = 100'000;
        EXPECT_THROW(wrong.clone(), std::invalid_argument);
        freePayload(data);
    }
}

TEST(AttrDataTest, CloneOfAValueWithoutPayloadHasNone) {
    EXPECT_EQ(AttrData::defaultOf(AttrType::String).clone().payload(), nullptr);
    const AttrData empty = AttrData::declareBuffer(DataType::Vec2f).clone();
    EXPECT_EQ(empty.payload(), nullptr);
    EXPECT_EQ(empty.bufferType(), DataType::Vec2f);
}

// --- views of buffers

TEST(BufferViewTest, StartsEmpty) {
    const BufferView view;
    EXPECT_EQ(view.data, nullptr);
    EXPECT_EQ(view.count, 0U);
    EXPECT_EQ(view.bytes, 0U);
    EXPECT_EQ(view.type, DataType::Null);
    EXPECT_EQ(view.components(), 0U);
}

TEST(BufferViewTest, CountsComponents) {
    const double number = 0;
    EXPECT_EQ((BufferView{&number, 7, 84, DataType::Vec3f}.components()), 21U);
    EXPECT_EQ((BufferView{&number, 7, 56, DataType::Double}.components()), 7U);
}

// Which number type reads each component type; any other reads none.
TEST(BufferViewTest, IsReadAsTheTypeOfItsComponentsOnly) {
    const double numbers[19] = {};
    for (std::uint32_t code = 0; code < ko::dataTypeCount; ++code) {
        const auto type = DataType(code);
        SCOPED_TRACE(dataTypeName(type));
        const BufferView view{numbers, 1, elementSize(type), type};
        const DataType component = componentType(type);
        const auto check = [&](DataType wanted, const void* read) {
            EXPECT_EQ(read, component == wanted ? numbers : nullptr) << dataTypeName(wanted);
        };
        check(DataType::Bool, view.as<bool>());
        check(DataType::Char, view.as<signed char>());
        check(DataType::Byte, view.as<unsigned char>());
        check(DataType::Int16, view.as<std::int16_t>());
        check(DataType::UInt16, view.as<std::uint16_t>());
        check(DataType::Int32, view.as<std::int32_t>());
        check(DataType::UInt32, view.as<std::uint32_t>());
        check(DataType::Int64, view.as<std::int64_t>());
        check(DataType::UInt64, view.as<std::uint64_t>());
        check(DataType::Float, view.as<float>());
        check(DataType::Double, view.as<double>());
    }
}

// --- what a new input is

class InputTest : public testing::Test {
  protected:
    // Inputs called "x", each on a node of its own; the first of these is called "n0".
    Input& make(AttrType type) { return *nextNode().createInput("x", type); }
    Input& makeArray(AttrType elementType) { return *nextNode().createArray("x", elementType); }
    Input& makeBuffer(DataType elementType) {
        Input& input = make(AttrType::Buffer);
        input.set(AttrData::declareBuffer(elementType));
        return input;
    }
    Input& makeFilled(AttrType type) {
        Input& input = make(type);
        EXPECT_TRUE(input.assign(sampleOf(type)));
        return input;
    }
    Node& nextNode() {
        return *scene_.createNode("t", String("n") + String(scene_.nodeCount()), "");
    }

    Scene scene_;
};

using NewInputTest = InputTest;

TEST_F(NewInputTest, HasItsTypeAndTheNameOfItsType) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        const Input& input = make(type);
        EXPECT_EQ(input.type(), type);
        EXPECT_EQ(str(input.typeName()), attrTypeName(type));
        EXPECT_EQ(input.value().type, type);
    }
}

TEST_F(NewInputTest, KnowsWhetherItIsABufferAnArrayOrAnObject) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        const Input& input = make(type);
        for (const bool reserved : {false, true}) {
            EXPECT_EQ(input.isBuffer(reserved), type == AttrType::Buffer);
            EXPECT_EQ(input.isArray(reserved), type == AttrType::Array);
            EXPECT_EQ(input.isObject(reserved), type == AttrType::Object);
        }
    }
}

TEST_F(NewInputTest, HasNoElementTypeNoChildrenAndNoLinks) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        Input& input = make(type);
        EXPECT_EQ(input.arrayType(), AttrType::Null);
        EXPECT_EQ(input.bufferType(), DataType::Null);
        EXPECT_EQ(input.inputCount(), 0U);
        EXPECT_EQ(input.inputAt(0), nullptr);
        EXPECT_EQ(input.connection(), nullptr);
        EXPECT_EQ(input.nodeReference(), nullptr);
        EXPECT_EQ(input.enumeration(), nullptr);
    }
}

// Words are compared, so that a real of zero is a zero without a sign.
TEST_F(NewInputTest, StartsWithTheDefaultOfItsType) {
    const std::vector<double> identity3 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const std::vector<double> identity4 = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        std::vector<double> expected(16, 0.0);
        if (isAnyOf(type, {AttrType::Quat, AttrType::Rgba})) expected[3] = 1;
        if (type == AttrType::Mat3) std::copy(identity3.begin(), identity3.end(), expected.begin());
        if (type == AttrType::Mat4) expected = identity4;
        EXPECT_EQ(wordsOf(make(type).value()), wordsOf(expected));
        EXPECT_EQ(wordsOf(AttrData::defaultOf(type)), wordsOf(expected));
    }
}

// A code beyond all types holds nothing, whatever type its lowest bits would be.
TEST_F(NewInputTest, HoldsNothingWhenItsTypeIsNone) {
    Node& node = nextNode();
    for (std::uint32_t code = 0; code < 32; ++code) {
        Input& input = *node.createInput(String(static_cast<unsigned long>(code)),
                                         static_cast<AttrType>(256 + code));
        Input& next = *node.createInput(String("next ") + String(static_cast<unsigned long>(code)),
                                        AttrType::Real);
        EXPECT_EQ(str(input.typeName()), "<unknown>");
        EXPECT_FALSE(input.assign(AttrData::ofText("a text")));
        EXPECT_FALSE(input.assign(AttrData::ofBuffer(DataType::Float, 3)));
        EXPECT_EQ(next.asReal(), 0);
    }
}

TEST_F(NewInputTest, ReadsAsItsDefault) {
    EXPECT_FALSE(make(AttrType::Bool).asBool());
    EXPECT_EQ(make(AttrType::Int).asInt(), 0);
    EXPECT_EQ(make(AttrType::UInt).asUInt(), 0U);
    EXPECT_EQ(make(AttrType::Real).asReal(), 0);
    EXPECT_EQ(make(AttrType::String).asText(), "");
    EXPECT_EQ(make(AttrType::Buffer).asBuffer().data, nullptr);
    EXPECT_EQ(make(AttrType::Buffer).asBuffer().count, 0U);
    EXPECT_EQ(make(AttrType::Buffer).asBuffer().type, DataType::Null);
}

// --- children of an object

using ObjectTest = InputTest;

TEST_F(ObjectTest, ChildrenStandInTheOrderOfTheirCreation) {
    Input& object = make(AttrType::Object);
    const Input* const z = object.createInput("z", AttrType::Int);
    const Input* const list = object.createArray("list", AttrType::Real);
    const Input* const a = object.createInput("a", AttrType::Object);
    ASSERT_EQ(object.inputCount(), 3U);
    EXPECT_EQ(object.inputAt(0), z);
    EXPECT_EQ(object.inputAt(1), list);
    EXPECT_EQ(object.inputAt(2), a);
    EXPECT_EQ(object.inputAt(3), nullptr);
    EXPECT_EQ(a->position(), 2U);
}

TEST_F(ObjectTest, ChildKnowsItsPlace) {
    Input& object = make(AttrType::Object);
    const Input& child = *object.createInput("child", AttrType::Int);
    EXPECT_EQ(child.parent(), &object);
    EXPECT_EQ(child.owner(), object.owner());
    EXPECT_EQ(str(child.name()), "child");
    EXPECT_EQ(str(child.fullName()), "n0.x.child");
}

TEST_F(ObjectTest, ChildrenAreFoundByName) {
    Input& object = make(AttrType::Object);
    const Input& same = object;
    const Input* const child = object.createInput("child", AttrType::Int);
    EXPECT_EQ(object.input("child"), child);
    EXPECT_EQ(same.input("child"), child);
    EXPECT_EQ(same.touchedAt(0), child);
    EXPECT_EQ(same.touchedAt(1), nullptr);
    EXPECT_EQ(object.input("Child"), nullptr);
    EXPECT_EQ(object.input(""), nullptr);
}

TEST_F(ObjectTest, HasInputAsksForTheTypeToo) {
    Input& object = make(AttrType::Object);
    object.createInput("child", AttrType::Int);
    EXPECT_TRUE(object.hasInput("child", AttrType::Int));
    EXPECT_TRUE(object.hasInput("child", AttrType::Null));
    EXPECT_FALSE(object.hasInput("child", AttrType::Real));
    EXPECT_FALSE(object.hasInput("other", AttrType::Null));
}

TEST_F(ObjectTest, RefusesNamesThatAreEmptyTakenOrBeginWithABracket) {
    Input& object = make(AttrType::Object);
    object.createInput("taken", AttrType::Int);
    for (const char* const name : {"", "taken", "[", "[0]", "[*]"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(object.createInput(name, AttrType::Real), nullptr);
        EXPECT_EQ(object.createArray(name, AttrType::Real), nullptr);
    }
    EXPECT_EQ(object.inputCount(), 1U);
    EXPECT_EQ(object.input("taken")->type(), AttrType::Int);
}

TEST_F(ObjectTest, CreatedArraysHaveTheirElementType) {
    const Input* const list = make(AttrType::Object).createArray("list", AttrType::Vec3);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->type(), AttrType::Array);
    EXPECT_EQ(list->arrayType(), AttrType::Vec3);
}

TEST_F(ObjectTest, EachOfManyChildrenIsFoundAsItself) {
    constexpr unsigned long count = 20'000;
    Input& object = make(AttrType::Object);
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_NE(object.createInput(String(i), AttrType::Int), nullptr);
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_EQ(object.input(String(i)), object.inputAt(i));
    EXPECT_EQ(object.input(String(count)), nullptr);
}

TEST_F(ObjectTest, HasNoElements) {
    Input& object = make(AttrType::Object);
    object.appendElement();
    object.appendElements(5);
    EXPECT_EQ(object.inputCount(), 0U);
    EXPECT_EQ(object.type(), AttrType::Object);
    EXPECT_EQ(scene_.elementCount(), 0U);
}

// --- which inputs hold others

using ContainerTest = InputTest;

TEST_F(ContainerTest, ObjectsArraysAndUndeclaredInputsAreContainers) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        IInput& input = make(type);
        const bool expected = isAnyOf(type, {AttrType::Object, AttrType::Array, AttrType::Null});
        EXPECT_EQ(input.container() != nullptr, expected);
    }
}

TEST_F(ContainerTest, OnlyObjectsAndUndeclaredInputsGetNamedChildren) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        const bool expected = isAnyOf(type, {AttrType::Object, AttrType::Null});
        Input& input = make(type);
        EXPECT_EQ(input.createInput("child", AttrType::Int) != nullptr, expected);
        EXPECT_EQ(input.createArray("list", AttrType::Int) != nullptr, expected);
        EXPECT_EQ(input.inputCount(), expected ? 2U : 0U);
        EXPECT_EQ(input.type(), expected ? AttrType::Object : type);
    }
}

TEST_F(ContainerTest, UndeclaredInputStaysSoWhenItsChildIsRefused) {
    Input& input = make(AttrType::Null);
    EXPECT_EQ(input.createInput("[0]", AttrType::Int), nullptr);
    EXPECT_EQ(input.createInput("", AttrType::Int), nullptr);
    EXPECT_EQ(input.type(), AttrType::Null);
    EXPECT_EQ(input.inputCount(), 0U);
}

TEST_F(ContainerTest, UndeclaredInputKeepsItsConnectionWhenItBecomesAnObject) {
    Input& input = make(AttrType::Null);
    input.connect(nextNode().output("out"));
    EXPECT_EQ(input.type(), AttrType::Null);
    input.createInput("child", AttrType::Int);
    EXPECT_EQ(input.type(), AttrType::Object);
    EXPECT_NE(input.connection(), nullptr);
}

TEST_F(ContainerTest, IsUsedThroughItsInterface) {
    IInputContainer& container = *make(AttrType::Object).container();
    Input* const child = container.createInput("child", AttrType::Int);
    Input* const list = container.createArray("list", AttrType::Real);
    EXPECT_TRUE(container.hasInput("child", AttrType::Int));
    EXPECT_EQ(container.inputCount(), 2U);
    EXPECT_EQ(container.inputAt(1), list);
    EXPECT_EQ(container.input("child"), child);
}

TEST_F(ContainerTest, NameLookUpsOnAnArrayFindNothing) {
    Input& list = makeArray(AttrType::Int);
    list.appendElements(2);
    list.inputAt(0);
    for (const char* const name : {"", "0", "[0]", "x"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(list.input(name), nullptr);
        EXPECT_FALSE(list.hasInput(name, AttrType::Null));
    }
}

// --- elements of an array

using ArrayTest = InputTest;

TEST_F(ArrayTest, AppendedElementHasTheElementTypeAndItsDefault) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        Input& list = makeArray(type);
        EXPECT_EQ(list.type(), AttrType::Array);
        EXPECT_EQ(str(list.typeName()), "Array");
        EXPECT_EQ(list.arrayType(), type);
        list.appendElement();
        ASSERT_EQ(list.inputCount(), 1U);
        const AttrData value = list.inputAt(0)->value();
        EXPECT_EQ(value.type, type);
        EXPECT_EQ(wordsOf(value), wordsOf(AttrData::defaultOf(type)));
    }
}

TEST_F(ArrayTest, ElementKnowsItsPlaceAndHasNoName) {
    Input& list = makeArray(AttrType::Int);
    list.appendElements(4);
    const Input& element = *list.inputAt(3);
    EXPECT_TRUE(element.name().isEmpty());
    EXPECT_EQ(element.position(), 3U);
    EXPECT_EQ(element.parent(), &list);
    EXPECT_EQ(element.owner(), list.owner());
    EXPECT_EQ(str(element.fullName()), "n0.x[3]");
}

TEST_F(ArrayTest, ElementsStandInTheirOrderWhicheverIsTouchedFirst) {
    Input& list = makeArray(AttrType::Int);
    list.appendElements(3);
    for (const unsigned long i : {2UL, 0UL, 1UL})
        list.inputAt(i)->assign(AttrData::ofInt(static_cast<long>(i)));
    for (unsigned long i = 0; i < 3; ++i)
        EXPECT_EQ(list.inputAt(i)->asInt(), static_cast<long>(i));
    EXPECT_EQ(list.inputAt(3), nullptr);
    EXPECT_EQ(list.inputAt(~0UL), nullptr);
}

TEST_F(ArrayTest, AnElementIsTheSameInputEachTime) {
    Input& list = makeArray(AttrType::Int);
    list.appendElement();
    Input* const element = list.inputAt(0);
    list.appendElements(1000);
    EXPECT_EQ(list.inputAt(0), element);
    EXPECT_EQ(list.touchedAt(0), element);
}

TEST_F(ArrayTest, ElementIsUntouchedUntilItIsAskedFor) {
    Input& list = makeArray(AttrType::Vec2);
    list.appendElements(2);
    EXPECT_EQ(list.touchedAt(0), nullptr);
    EXPECT_EQ(list.untouchedType(0), AttrType::Vec2);
    const Input* const element = list.inputAt(0);
    EXPECT_EQ(list.touchedAt(0), element);
    EXPECT_EQ(list.untouchedType(0), AttrType::Null);
    EXPECT_EQ(list.touchedAt(1), nullptr);
}

TEST_F(ArrayTest, UntouchedTypesPastTheEndAndElsewhereAreNull) {
    Input& list = makeArray(AttrType::Buffer);
    list.appendElement();
    EXPECT_EQ(list.untouchedType(1), AttrType::Null);
    EXPECT_EQ(list.untouchedBufferType(1), DataType::Null);
    EXPECT_EQ(list.untouchedArrayType(0), AttrType::Null);
    EXPECT_EQ(list.touchedAt(1), nullptr);
    const Input& object = make(AttrType::Object);
    EXPECT_EQ(object.untouchedType(0), AttrType::Null);
    EXPECT_EQ(object.touchedAt(0), nullptr);
}

TEST_F(ArrayTest, GivesValuesOfElementsTouchedOrNot) {
    for (const AttrType type : allTypes()) {
        SCOPED_TRACE(attrTypeName(type));
        Input& list = makeArray(type);
        list.appendElements(2);
        EXPECT_EQ(list.valueAt(0).type, type);
        EXPECT_EQ(wordsOf(list.valueAt(0)), wordsOf(AttrData::defaultOf(type)));
        EXPECT_EQ(list.touchedAt(0), nullptr);
        EXPECT_EQ(wordsOf(list.valueAt(1)), wordsOf(list.inputAt(1)->value()));
        EXPECT_EQ(list.valueAt(2).type, AttrType::Null);
    }
    Input& numbers = makeArray(AttrType::Real);
    numbers.appendElement();
    numbers.inputAt(0)->assign(AttrData::ofReal(2.5));
    EXPECT_EQ(numbers.valueAt(0).real(), 2.5);
}

TEST_F(ArrayTest, GivesTheDeclarationsOfUntouchedElements) {
    Input& buffers = makeArray(AttrType::Buffer);
    buffers.appendElement();
    buffers.declareElements(AttrData::ofBuffer(DataType::Int16, 0));
    EXPECT_EQ(buffers.valueAt(0).bufferType(), DataType::Int16);
    EXPECT_EQ(buffers.touchedAt(0), nullptr);
    Input& arrays = makeArray(AttrType::Array);
    arrays.appendElement();
    arrays.declareElements(AttrData::declareArray(AttrType::Int));
    EXPECT_EQ(arrays.valueAt(0).arrayType(), AttrType::Int);
    EXPECT_EQ(arrays.touchedAt(0), nullptr);
}

TEST_F(ArrayTest, ElementsOfAnUndeclaredArrayAreUndeclared) {
    Input& list = make(AttrType::Array);
    list.appendElement();
    EXPECT_EQ(list.arrayType(), AttrType::Null);
    EXPECT_EQ(list.untouchedType(0), AttrType::Null);
    EXPECT_EQ(list.inputAt(0)->type(), AttrType::Null);
}

TEST_F(ArrayTest, DeclaringLaterLeavesTheElementsThatAreThere) {
    Input& list = make(AttrType::Array);
    list.appendElements(2);
    list.inputAt(0);
    list.set(AttrData::declareArray(AttrType::Real));
    EXPECT_EQ(list.arrayType(), AttrType::Real);
    list.appendElement();
    EXPECT_EQ(list.inputAt(0)->type(), AttrType::Null);
    EXPECT_EQ(list.untouchedType(1), AttrType::Null);
    EXPECT_EQ(list.inputAt(1)->type(), AttrType::Null);
    EXPECT_EQ(list.untouchedType(2), AttrType::Real);
    EXPECT_EQ(list.inputAt(2)->type(), AttrType::Real);
}

TEST_F(ArrayTest, ArraysInArraysStartUndeclared) {
    Input& list = makeArray(AttrType::Array);
    list.appendElement();
    EXPECT_EQ(list.untouchedArrayType(0), AttrType::Null);
    Input& inner = *list.inputAt(0);
    EXPECT_EQ(inner.arrayType(), AttrType::Null);
    inner.set(AttrData::declareArray(AttrType::Int));
    inner.appendElements(2);
    EXPECT_EQ(str(inner.inputAt(1)->fullName()), "n0.x[0][1]");
    EXPECT_EQ(inner.inputAt(1)->type(), AttrType::Int);
}

TEST_F(ArrayTest, PathsLeadThroughObjectsAndElements) {
    Input& list = makeArray(AttrType::Object);
    list.appendElements(4);
    const Input& leaf = *list.inputAt(3)->createInput("x", AttrType::Real);
    EXPECT_EQ(str(leaf.fullName()), "n0.x[3].x");
}

TEST_F(ArrayTest, WhatIsNoArrayGetsNoElements) {
    for (const AttrType type : allTypes()) {
        if (type == AttrType::Array) continue;
        SCOPED_TRACE(attrTypeName(type));
        Input& input = make(type);
        input.appendElement();
        EXPECT_EQ(input.inputCount(), 0U);
        EXPECT_EQ(input.type(), type);
    }
    EXPECT_EQ(scene_.elementCount(), 0U);
}

TEST_F(ArrayTest, AppendingNoElementsChangesNothing) {
    Input& list = makeArray(AttrType::Int);
    list.appendElements(0);
    EXPECT_EQ(list.inputCount(), 0U);
    scene_.setElementLimit(0);
    list.appendElements(0);
    EXPECT_EQ(list.inputCount(), 0U);
}

// --- the limit of elements in a scene

using ElementLimitTest = InputTest;

TEST_F(ElementLimitTest, IsFourMillionsUnlessSet) {
    EXPECT_EQ(defaultElementLimit, 4'194'304U);
    EXPECT_EQ(scene_.elementLimit(), 4'194'304U);
}

TEST_F(ElementLimitTest, UnlessSetAllowsThatManyAndNoMore) {
    Input& list = makeArray(AttrType::Int);
    list.appendElements(defaultElementLimit);
    EXPECT_EQ(list.inputCount(), defaultElementLimit);
    EXPECT_THROW(list.appendElement(), std::runtime_error);
    EXPECT_EQ(list.inputCount(), defaultElementLimit);
    EXPECT_EQ(scene_.elementCount(), defaultElementLimit);
}

TEST_F(ElementLimitTest, CountsTheElementsOfAllArrays) {
    scene_.setElementLimit(5);
    Input& first = makeArray(AttrType::Array);
    Input& second = makeArray(AttrType::Int);
    first.appendElements(2);
    first.inputAt(0)->appendElement();
    second.appendElements(2);
    EXPECT_EQ(scene_.elementCount(), 5U);
    EXPECT_THROW(first.appendElement(), std::runtime_error);
    EXPECT_THROW(first.inputAt(1)->appendElement(), std::runtime_error);
    EXPECT_THROW(second.appendElement(), std::runtime_error);
}

TEST_F(ElementLimitTest, MessageNamesTheArray) {
    scene_.setElementLimit(1);
    Input& list = makeArray(AttrType::Object);
    list.appendElement();
    Input& inner = *list.inputAt(0)->createArray("inner", AttrType::Int);
    const auto append = [&inner] { inner.appendElement(); };
    EXPECT_EQ(messageOf<std::runtime_error>(append), "array too large: n0.x[0].inner");
}

TEST_F(ElementLimitTest, SeveralElementsAreAppendedAllOrNone) {
    const struct {
        unsigned long held;
        unsigned long added;
        bool fits;
    } rows[] = {
        {0, 10, true},           {0, 11, false},          {9, 1, true},
        {9, 2, false},           {10, 1, false},          {7, 3, true},
        {7, highestUInt, false}, {0, highestUInt, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.held) + " and " + std::to_string(row.added));
        Scene scene;
        scene.setElementLimit(10);
        Input& list = *scene.createNode("t", "n", "")->createArray("list", AttrType::Int);
        list.appendElements(row.held);
        const auto append = [&] { list.appendElements(row.added); };
        EXPECT_EQ(messageOf<std::runtime_error>(append), row.fits ? "" : "array too large: n.list");
        EXPECT_EQ(list.inputCount(), row.held + (row.fits ? row.added : 0));
        EXPECT_EQ(scene.elementCount(), list.inputCount());
    }
}

TEST_F(ElementLimitTest, MayBeSetBelowWhatIsThere) {
    Input& list = makeArray(AttrType::Int);
    list.appendElements(10);
    scene_.setElementLimit(3);
    EXPECT_THROW(list.appendElement(), std::runtime_error);
    EXPECT_EQ(list.inputCount(), 10U);
    scene_.setElementLimit(11);
    list.appendElement();
    EXPECT_EQ(list.inputCount(), 11U);
}

TEST_F(ElementLimitTest, GivesAnArrayNoMoreElementsThanHavePositions) {
    scene_.setElementLimit(highestUInt);
    Input& list = makeArray(AttrType::Int);
    list.appendElements(2);
    EXPECT_THROW(list.appendElements(4'294'967'294), std::bad_alloc);
    EXPECT_THROW(list.appendElements(highestUInt - 2), std::bad_alloc);
    EXPECT_EQ(list.inputCount(), 2U);
    EXPECT_EQ(scene_.elementCount(), 2U);
}

TEST_F(ElementLimitTest, LeavesTheArrayUsableWhenItIsReached) {
    scene_.setElementLimit(2);
    Input& list = makeArray(AttrType::Int);
    list.appendElements(2);
    EXPECT_THROW(list.appendElement(), std::runtime_error);
    EXPECT_TRUE(list.inputAt(1)->assign(AttrData::ofInt(4)));
    EXPECT_EQ(list.inputAt(1)->asInt(), 4);
}

// --- declaring element types

using DeclarationTest = InputTest;

TEST_F(DeclarationTest, DeclaresAnUndeclaredArray) {
    Input& list = make(AttrType::Array);
    list.set(AttrData::declareArray(AttrType::Mat4));
    EXPECT_EQ(list.arrayType(), AttrType::Mat4);
    EXPECT_EQ(list.value().arrayType(), AttrType::Mat4);
}

TEST_F(DeclarationTest, DeclaresAnUndeclaredBuffer) {
    Input& buffer = make(AttrType::Buffer);
    buffer.set(AttrData::declareBuffer(DataType::Rgb8));
    EXPECT_EQ(buffer.bufferType(), DataType::Rgb8);
    EXPECT_EQ(buffer.asBuffer().type, DataType::Rgb8);
    EXPECT_EQ(buffer.asBuffer().count, 0U);
}

TEST_F(DeclarationTest, LeavesADeclaredTypeAsItIs) {
    Input& list = makeArray(AttrType::Int);
    list.set(AttrData::declareArray(AttrType::Real));
    EXPECT_EQ(list.arrayType(), AttrType::Int);
    Input& buffer = makeBuffer(DataType::Float);
    buffer.set(AttrData::declareBuffer(DataType::Double));
    EXPECT_EQ(buffer.bufferType(), DataType::Float);
}

TEST_F(DeclarationTest, OfNothingDeclaresNothing) {
    Input& list = make(AttrType::Array);
    list.set(AttrData::declareArray(AttrType::Null));
    list.set(AttrData::declareArray(AttrType::Int));
    EXPECT_EQ(list.arrayType(), AttrType::Int);
}

TEST_F(DeclarationTest, OfAnotherKindChangesNothing) {
    Input& list = make(AttrType::Array);
    list.set(AttrData::declareBuffer(DataType::Float));
    EXPECT_EQ(list.arrayType(), AttrType::Null);
    Input& buffer = make(AttrType::Buffer);
    buffer.set(AttrData::declareArray(AttrType::Real));
    EXPECT_EQ(buffer.bufferType(), DataType::Null);
}

TEST_F(DeclarationTest, ChangesNothingOnWhatIsNeitherArrayNorBuffer) {
    for (const AttrType type : allTypes()) {
        if (isAnyOf(type, {AttrType::Array, AttrType::Buffer})) continue;
        SCOPED_TRACE(attrTypeName(type));
        Input& input = makeFilled(type);
        const AttrData before = input.value();
        AttrData declaration = AttrData::declareArray(AttrType::Int);
        input.set(declaration);
        declaration.type = type;
        input.set(declaration);
        const AttrData after = input.value();
        EXPECT_EQ(after.type, type);
        EXPECT_EQ(wordsOf(after), wordsOf(before));
        EXPECT_EQ(input.arrayType(), AttrType::Null);
        EXPECT_EQ(input.bufferType(), DataType::Null);
    }
}

TEST_F(DeclarationTest, OfElementsReachesTouchedAndUntouchedOnes) {
    Input& list = makeArray(AttrType::Buffer);
    list.appendElements(3);
    list.inputAt(1);
    list.declareElements(AttrData::declareBuffer(DataType::Vec3f));
    EXPECT_EQ(list.untouchedBufferType(0), DataType::Vec3f);
    EXPECT_EQ(list.inputAt(0)->bufferType(), DataType::Vec3f);
    EXPECT_EQ(list.inputAt(1)->bufferType(), DataType::Vec3f);
    EXPECT_EQ(list.inputAt(2)->bufferType(), DataType::Vec3f);
}

TEST_F(DeclarationTest, OfElementsReachesArraysInArrays) {
    Input& list = makeArray(AttrType::Array);
    list.appendElements(2);
    list.inputAt(1);
    list.declareElements(AttrData::declareArray(AttrType::Real));
    EXPECT_EQ(list.untouchedArrayType(0), AttrType::Real);
    EXPECT_EQ(list.inputAt(0)->arrayType(), AttrType::Real);
    EXPECT_EQ(list.inputAt(1)->arrayType(), AttrType::Real);
}

TEST_F(DeclarationTest, OfElementsLeavesDeclaredOnesAsTheyAre) {
    Input& list = makeArray(AttrType::Buffer);
    list.appendElements(2);
    list.inputAt(0)->set(AttrData::declareBuffer(DataType::Byte));
    list.declareElements(AttrData::declareBuffer(DataType::Float));
    list.declareElements(AttrData::declareBuffer(DataType::Double));
    EXPECT_EQ(list.inputAt(0)->bufferType(), DataType::Byte);
    EXPECT_EQ(list.inputAt(1)->bufferType(), DataType::Float);
}

TEST_F(DeclarationTest, OfElementsReachesThoseAppendedSinceTheLast) {
    Input& list = makeArray(AttrType::Buffer);
    list.appendElement();
    list.declareElements(AttrData::declareBuffer(DataType::Float));
    list.appendElements(2);
    EXPECT_EQ(list.untouchedBufferType(1), DataType::Null);
    list.inputAt(2);
    list.declareElements(AttrData::declareBuffer(DataType::Double));
    EXPECT_EQ(list.inputAt(0)->bufferType(), DataType::Float);
    EXPECT_EQ(list.untouchedBufferType(1), DataType::Double);
    EXPECT_EQ(list.inputAt(2)->bufferType(), DataType::Double);
}

TEST_F(DeclarationTest, OfElementsWithNothingLeavesThemToTheNext) {
    Input& list = makeArray(AttrType::Buffer);
    list.appendElement();
    list.declareElements(AttrData::declareBuffer(DataType::Null));
    list.declareElements(AttrData::declareBuffer(DataType::Int32));
    EXPECT_EQ(list.inputAt(0)->bufferType(), DataType::Int32);
}

TEST_F(DeclarationTest, OfElementsOfAnotherTypeChangesNothing) {
    Input& buffers = makeArray(AttrType::Buffer);
    buffers.appendElement();
    buffers.declareElements(AttrData::declareArray(AttrType::Int));
    EXPECT_EQ(buffers.inputAt(0)->bufferType(), DataType::Null);
    Input& numbers = makeArray(AttrType::Real);
    numbers.appendElement();
    numbers.declareElements(AttrData::declareBuffer(DataType::Float));
    EXPECT_EQ(numbers.inputAt(0)->type(), AttrType::Real);
    Input& real = make(AttrType::Real);
    real.declareElements(AttrData::declareBuffer(DataType::Float));
    EXPECT_EQ(real.type(), AttrType::Real);
}

TEST_F(DeclarationTest, OfElementsLeavesOutThoseFromBeforeTheArrayWasDeclared) {
    Input& list = make(AttrType::Array);
    list.appendElements(2);
    list.inputAt(0);
    list.set(AttrData::declareArray(AttrType::Buffer));
    list.appendElement();
    list.declareElements(AttrData::declareBuffer(DataType::Float));
    EXPECT_EQ(list.inputAt(0)->type(), AttrType::Null);
    EXPECT_EQ(list.inputAt(1)->type(), AttrType::Null);
    EXPECT_EQ(list.inputAt(2)->bufferType(), DataType::Float);
}

// --- storing

using AssignTest = InputTest;

TEST_F(AssignTest, TakesValuesOfItsOwnTypeOnly) {
    for (const AttrType type : allTypes()) {
        for (const AttrType from : allTypes()) {
            SCOPED_TRACE(std::string(attrTypeName(from)) + " to " + attrTypeName(type));
            Input& input = make(type);
            EXPECT_EQ(input.assign(sampleOf(from)), from == type);
            EXPECT_EQ(input.type(), type);
        }
    }
}

TEST_F(AssignTest, GivesBackWhatItTook) {
    for (const AttrType type : allTypes()) {
        if (AttrData::defaultOf(type).hasPayload()) continue;
        SCOPED_TRACE(attrTypeName(type));
        const AttrData data = sampleOf(type);
        EXPECT_EQ(wordsOf(makeFilled(type).value()), wordsOf(data));
    }
}

TEST_F(AssignTest, KeepsTheOldValueWhenItRefusesANewOne) {
    for (const AttrType type : allTypes()) {
        if (AttrData::defaultOf(type).hasPayload()) continue;
        SCOPED_TRACE(attrTypeName(type));
        Input& input = makeFilled(type);
        const AttrData before = input.value();
        EXPECT_FALSE(input.assign(AttrData::ofText("refused")));
        EXPECT_FALSE(input.assign(AttrData::ofBuffer(DataType::Float, 4)));
        const AttrData after = input.value();
        EXPECT_EQ(wordsOf(after), wordsOf(before));
    }
}

TEST_F(AssignTest, RealInAllFourWordsOfAVectorIsKept) {
    AttrData data = AttrData::defaultOf(AttrType::Vec2);
    for (int i = 0; i < 4; ++i)
        data.setComponent(i, 2.5);
    Input& input = make(AttrType::Vec2);
    EXPECT_TRUE(input.assign(data));
    EXPECT_EQ(wordsOf(input.value()), wordsOf(data));
}

TEST_F(AssignTest, TakesOverATextWithoutACopy) {
    Input& input = make(AttrType::String);
    const AttrData data = AttrData::ofText("text");
    EXPECT_TRUE(input.assign(data));
    EXPECT_EQ(input.asText().data(), data.text());
    EXPECT_EQ(input.value().payload(), data.payload());
}

TEST_F(AssignTest, FreesTheFormerTextAndTheFormerBuffer) {
    Input& text = make(AttrType::String);
    Input& buffer = make(AttrType::Buffer);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(text.assign(AttrData::ofText("text")));
        EXPECT_TRUE(buffer.assign(AttrData::ofBuffer(DataType::Int16, 9)));
    }
    EXPECT_EQ(text.asText(), "text");
    EXPECT_EQ(buffer.asBuffer().count, 9U);
}

TEST_F(AssignTest, TextWithoutPayloadEmptiesTheInput) {
    Input& input = makeFilled(AttrType::String);
    EXPECT_TRUE(input.assign(AttrData::defaultOf(AttrType::String)));
    EXPECT_EQ(input.asText(), "");
}

TEST_F(AssignTest, OfItsOwnTextKeepsIt) {
    Input& input = makeFilled(AttrType::String);
    EXPECT_TRUE(input.assign(input.value()));
    EXPECT_EQ(input.asText(), "text");
}

TEST_F(AssignTest, OfItsOwnBufferKeepsIt) {
    Input& input = make(AttrType::Buffer);
    input.assign(bufferOf({1, 2, 3}));
    EXPECT_TRUE(input.assign(input.value()));
    EXPECT_EQ(input.asBufferOf<float>()[2], 3);
}

TEST_F(AssignTest, OfItsOwnValueKeepsEveryOtherType) {
    for (const AttrType type : allTypes()) {
        if (AttrData::defaultOf(type).hasPayload()) continue;
        SCOPED_TRACE(attrTypeName(type));
        Input& input = makeFilled(type);
        const AttrData before = input.value();
        EXPECT_TRUE(input.assign(input.value()));
        EXPECT_EQ(wordsOf(input.value()), wordsOf(before));
    }
}

TEST_F(AssignTest, OfACloneCopiesFromAnotherInput) {
    Input& from = makeFilled(AttrType::String);
    Input& to = make(AttrType::String);
    EXPECT_TRUE(to.assign(from.value().clone()));
    from.assign(AttrData::ofText("changed"));
    EXPECT_EQ(to.asText(), "text");
}

TEST_F(AssignTest, DeclaresTheElementTypeOfABuffer) {
    Input& input = make(AttrType::Buffer);
    EXPECT_TRUE(input.assign(AttrData::ofBuffer(DataType::Vec3f, 2)));
    EXPECT_EQ(input.bufferType(), DataType::Vec3f);
    EXPECT_FALSE(input.assign(AttrData::ofBuffer(DataType::Vec3d, 2)));
    EXPECT_EQ(input.bufferType(), DataType::Vec3f);
    EXPECT_EQ(input.asBuffer().count, 2U);
}

TEST_F(AssignTest, OfAnEmptyBufferDeclaresItsElementTypeToo) {
    Input& input = make(AttrType::Buffer);
    EXPECT_TRUE(input.assign(AttrData::ofBuffer(DataType::Byte, 0)));
    EXPECT_EQ(input.bufferType(), DataType::Byte);
    EXPECT_FALSE(input.assign(AttrData::ofBuffer(DataType::Char, 1)));
}

TEST_F(AssignTest, OfAnUndeclaredEmptyBufferDeclaresNothing) {
    Input& input = make(AttrType::Buffer);
    EXPECT_TRUE(input.assign(AttrData::defaultOf(AttrType::Buffer)));
    EXPECT_EQ(input.bufferType(), DataType::Null);
    EXPECT_TRUE(input.assign(AttrData::ofBuffer(DataType::Float, 1)));
}

TEST_F(AssignTest, EmptiesADeclaredBuffer) {
    Input& input = makeFilled(AttrType::Buffer);
    EXPECT_TRUE(input.assign(AttrData::ofBuffer(DataType::Float, 0)));
    EXPECT_EQ(input.asBuffer().count, 0U);
    EXPECT_EQ(input.asBuffer().data, nullptr);
    EXPECT_EQ(input.bufferType(), DataType::Float);
}

TEST_F(AssignTest, RefusesBuffersWhosePartsDoNotFitEachOther) {
    const struct {
        const char* what;
        unsigned long count;
        unsigned long bytes;
        DataType type;
        bool hasPayload;
    } rows[] = {
        {"too few bytes", 3, 8, DataType::Float, true},
        {"too many bytes", 3, 16, DataType::Float, true},
        {"a part of an element", 3, 13, DataType::Float, true},
        {"a byte size past 64 bits", (1UL << 62) + 1, 4, DataType::Float, true},
        {"no bytes", 3, 0, DataType::Float, true},
        {"no numbers", 3, 12, DataType::Float, false},
        {"no element type", 3, 24, DataType::Null, true},
        {"an unknown element type", 3, 12, DataType(99), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        AttrData data = AttrData::declareBuffer(row.type);
        if (row.hasPayload) data.setPayload(std::calloc(64, 1));
        data.value[1] = row.count;
        data.value[2] = row.bytes;
        Input& input = make(AttrType::Buffer);
        EXPECT_FALSE(input.assign(data));
        EXPECT_EQ(input.bufferType(), DataType::Null);
        EXPECT_EQ(input.asBuffer().count, 0U);
        EXPECT_EQ(input.asBuffer().data, nullptr);
    }
}

TEST_F(AssignTest, KeepsItsBufferWhenItRefusesItsOwnWithOtherParts) {
    Input& input = make(AttrType::Buffer);
    input.assign(bufferOf({1, 2, 3}));
    AttrData data = input.value();
    data.setElementType(DataType::Double);
    EXPECT_FALSE(input.assign(data));
    EXPECT_EQ(input.asBufferOf<float>()[2], 3);
}

TEST_F(AssignTest, DeclaresNoArray) {
    Input& list = make(AttrType::Array);
    list.appendElements(2);
    EXPECT_TRUE(list.assign(AttrData::declareArray(AttrType::Int)));
    EXPECT_EQ(list.arrayType(), AttrType::Null);
    EXPECT_EQ(list.inputCount(), 2U);
}

TEST_F(AssignTest, LeavesTheChildrenOfAnObject) {
    Input& object = make(AttrType::Object);
    object.createInput("child", AttrType::Int);
    EXPECT_TRUE(object.assign(AttrData::defaultOf(AttrType::Object)));
    EXPECT_EQ(object.inputCount(), 1U);
}

// --- reading

using TypedAccessTest = InputTest;

TEST_F(TypedAccessTest, GivesNumbersAndTexts) {
    EXPECT_TRUE(makeFilled(AttrType::Bool).asBool());
    EXPECT_EQ(makeFilled(AttrType::Int).asInt(), -7);
    EXPECT_EQ(makeFilled(AttrType::UInt).asUInt(), 7U);
    EXPECT_EQ(makeFilled(AttrType::Real).asReal(), 2.5);
    EXPECT_EQ(makeFilled(AttrType::String).asText(), "text");
}

TEST_F(TypedAccessTest, GivesTheWholeRangeOfIntegers) {
    Input& number = make(AttrType::Int);
    number.assign(AttrData::ofInt(lowestInt));
    EXPECT_EQ(number.asInt(), lowestInt);
    Input& count = make(AttrType::UInt);
    count.assign(AttrData::ofUInt(highestUInt));
    EXPECT_EQ(count.asUInt(), highestUInt);
}

TEST_F(TypedAccessTest, GivesTheComponentsOfVectorsAndMatrices) {
    for (const AttrType type : allTypes()) {
        if (!hasComponents(type)) continue;
        SCOPED_TRACE(attrTypeName(type));
        const double* const components = makeFilled(type).asComponents();
        const unsigned long count = componentCount(type);
        EXPECT_EQ(std::vector<double>(components, components + count), counting(count));
        EXPECT_EQ(makeFilled(type).asComponents(type)[count - 1], components[count - 1]);
    }
}

TEST_F(TypedAccessTest, GivesABufferAsPointerCountSizeAndElementType) {
    Input& input = make(AttrType::Buffer);
    const AttrData data = AttrData::ofBuffer(DataType::Vec3f, 2);
    input.assign(data);
    const BufferView view = input.asBuffer();
    EXPECT_EQ(view.data, data.payload());
    EXPECT_EQ(view.count, 2U);
    EXPECT_EQ(view.bytes, 24U);
    EXPECT_EQ(view.type, DataType::Vec3f);
    EXPECT_EQ(view.components(), 6U);
    EXPECT_EQ(input.asBufferOf<float>(), data.payload());
}

TEST_F(TypedAccessTest, GivesNumbersOfEveryKindAsADouble) {
    EXPECT_EQ(makeFilled(AttrType::Bool).asNumber(), 1);
    EXPECT_EQ(make(AttrType::Bool).asNumber(), 0);
    EXPECT_EQ(makeFilled(AttrType::Int).asNumber(), -7);
    EXPECT_EQ(makeFilled(AttrType::UInt).asNumber(), 7);
    EXPECT_EQ(makeFilled(AttrType::Real).asNumber(), 2.5);
    Input& count = make(AttrType::UInt);
    count.assign(AttrData::ofUInt(highestUInt));
    EXPECT_EQ(count.asNumber(), 18446744073709551616.0);
}

// One way of reading: what it accepts, and what it says it expected of anything else.
struct Reader {
    const char* expected;
    std::function<void(const Input&)> read;
    std::function<bool(AttrType)> accepts;
};

std::vector<Reader> readers() {
    const auto only = [](AttrType type) {
        return [type](AttrType other) { return other == type; };
    };
    const auto isNumber = [](AttrType type) {
        return isAnyOf(type, {AttrType::Bool, AttrType::Int, AttrType::UInt, AttrType::Real});
    };
    return {
        {"Bool", [](const Input& input) { input.asBool(); }, only(AttrType::Bool)},
        {"Int", [](const Input& input) { input.asInt(); }, only(AttrType::Int)},
        {"UInt", [](const Input& input) { input.asUInt(); }, only(AttrType::UInt)},
        {"Real", [](const Input& input) { input.asReal(); }, only(AttrType::Real)},
        {"String", [](const Input& input) { input.asText(); }, only(AttrType::String)},
        {"Buffer", [](const Input& input) { input.asBuffer(); }, only(AttrType::Buffer)},
        {"Buffer", [](const Input& input) { input.asBufferOf<float>(); }, only(AttrType::Buffer)},
        {"a vector or matrix", [](const Input& input) { input.asComponents(); }, hasComponents},
        {"Vec3", [](const Input& input) { input.asComponents(AttrType::Vec3); },
         only(AttrType::Vec3)},
        {"a number", [](const Input& input) { input.asNumber(); }, isNumber},
    };
}

TEST_F(TypedAccessTest, ThrowsForAnyOtherTypeAndSaysWhichAndWhere) {
    for (const Reader& reader : readers()) {
        for (const AttrType type : allTypes()) {
            SCOPED_TRACE(std::string(attrTypeName(type)) + " as " + reader.expected);
            const Input& input = makeFilled(type);
            const std::string found = type == AttrType::Buffer ? "Float[]" : attrTypeName(type);
            const std::string message = std::string("expected ") + reader.expected + " @ " +
                                        str(input.fullName()) + " but found " + found;
            EXPECT_EQ(messageOf<std::invalid_argument>([&] { reader.read(input); }),
                      reader.accepts(type) ? "" : message);
        }
    }
}

TEST_F(TypedAccessTest, ThrowsForABufferOfOtherComponents) {
    Input& input = make(AttrType::Buffer);
    input.assign(AttrData::ofBuffer(DataType::Vec3d, 1));
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { input.asBufferOf<float>(); }),
              "expected Float @ n0.x but found Vec3d[]");
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { input.asBufferOf<std::uint8_t>(); }),
              "expected Byte @ n0.x but found Vec3d[]");
    EXPECT_NE(input.asBufferOf<double>(), nullptr);
}

TEST_F(TypedAccessTest, AnEmptyBufferHasNoNumbersOfAnyType) {
    EXPECT_EQ(make(AttrType::Buffer).asBufferOf<float>(), nullptr);
    EXPECT_EQ(makeBuffer(DataType::Double).asBufferOf<float>(), nullptr);
    EXPECT_EQ(makeBuffer(DataType::Float).asBufferOf<float>(), nullptr);
}

TEST_F(TypedAccessTest, NamesAnUndeclaredBufferInMessages) {
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { make(AttrType::Buffer).asReal(); }),
              "expected Real @ n0.x but found Null[]");
}

TEST_F(TypedAccessTest, ShowsTheWholePathInMessages) {
    Input& list = makeArray(AttrType::Object);
    list.appendElements(4);
    Input& leaf = *list.inputAt(3)->createInput("size", AttrType::Int);
    EXPECT_EQ(messageOf<std::invalid_argument>([&] { leaf.asReal(); }),
              "expected Real @ n0.x[3].size but found Int");
}

}  // namespace
