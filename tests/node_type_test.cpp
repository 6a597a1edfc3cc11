// Node types: what they declare, what nodes get from them, and the names that older documents use.

#include <ko/scene.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ko::DataType;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::clearRenames;
using ko::mirel_sdk::impl::Enumeration;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::InputDeclaration;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::registerInputRename;
using ko::mirel_sdk::impl::registerOutputRename;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::updateInputName;
using ko::mirel_sdk::impl::updateOutputName;
using std::string_view_literals::operator""sv;

// The characters, NULs included, as assertions compare and print them.
std::string str(const String& text) { return std::string(text.view()); }

using Names = std::vector<std::string>;

Names strs(const std::vector<String>& texts) {
    Names all;
    for (const String& text : texts)
        all.push_back(str(text));
    return all;
}

Names inputNames(const Node& node) {
    Names names;
    for (unsigned long i = 0; i < node.inputCount(); ++i)
        names.push_back(str(node.inputAt(i)->name()));
    return names;
}

Names outputNames(const Node& node) {
    Names names;
    for (unsigned long i = 0; i < node.outputCount(); ++i)
        names.push_back(str(node.outputAt(i)->name()));
    return names;
}

bool isActive(const Enumeration* enumeration) { return enumeration && enumeration->isActive(); }

// --- enumerations

TEST(EnumerationTest, IsActiveWhenItHasAValue) {
    EXPECT_FALSE(Enumeration().isActive());
    EXPECT_FALSE(Enumeration(std::vector<String>{}).isActive());
    EXPECT_TRUE(Enumeration(std::vector<String>{"one"}).isActive());
    EXPECT_TRUE(Enumeration(std::vector<String>{""}).isActive());
}

TEST(EnumerationTest, FindsThePlaceOfEachValue) {
    const Enumeration enumeration({"draft", "final", ""});
    EXPECT_EQ(enumeration.find("draft"), 0U);
    EXPECT_EQ(enumeration.find("final"), 1U);
    EXPECT_EQ(enumeration.find(""), 2U);
}

TEST(EnumerationTest, FindsNothingElse) {
    const Enumeration enumeration({"draft", "final"});
    for (const std::string_view text : {""sv, "Draft"sv, "draft "sv, "dra"sv, "draft\0"sv}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(enumeration.find(String(text)).has_value());
    }
    EXPECT_FALSE(Enumeration().find("draft").has_value());
}

TEST(EnumerationTest, KeepsItsValuesInOrder) {
    const Enumeration enumeration({"z", "a", "m"});
    EXPECT_EQ(strs(enumeration.values()), (Names{"z", "a", "m"}));
}

TEST(EnumerationTest, FindsTheFirstPlaceOfAValueThatStandsTwice) {
    EXPECT_EQ(Enumeration({"a", "b", "a"}).find("a"), 0U);
}

TEST(EnumerationTest, CopiesOutliveTheirOriginal) {
    Enumeration copy;
    {
        const Enumeration original({"draft", "final"});
        copy = original;
    }
    EXPECT_EQ(copy.find("final"), 1U);
    const Enumeration moved(std::move(copy));
    EXPECT_EQ(moved.find("draft"), 0U);
}

// --- declarations

TEST(NodeTypeTest, StartsWithItsNameAndNothingElse) {
    const NodeType type("sphere");
    EXPECT_EQ(str(type.name()), "sphere");
    EXPECT_EQ(type.inputCount(), 0U);
    EXPECT_TRUE(type.outputs().empty());
    EXPECT_EQ(type.findInput("radius"), nullptr);
}

TEST(NodeTypeTest, KeepsDeclarationsInTheirOrder) {
    NodeType type("t");
    type.input("z", AttrType::Int).output("out2").array("a", AttrType::Real).output("out1");
    ASSERT_EQ(type.inputCount(), 2U);
    EXPECT_EQ(str(type.inputAt(0).name), "z");
    EXPECT_EQ(str(type.inputAt(1).name), "a");
    EXPECT_EQ(strs(type.outputs()), (Names{"out2", "out1"}));
}

TEST(NodeTypeTest, FindsDeclarationsByName) {
    NodeType type("t");
    type.input("a", AttrType::Int).input("b", AttrType::Real);
    EXPECT_EQ(type.findInput("b"), &type.inputAt(1));
    EXPECT_EQ(type.findInput("B"), nullptr);
    EXPECT_EQ(type.findInput(""), nullptr);
}

TEST(NodeTypeTest, DeclaresAnInputOfATypeWithoutADefaultOfItsOwn) {
    NodeType type("t");
    type.input("a", AttrType::Rgba);
    const InputDeclaration& declared = type.inputAt(0);
    EXPECT_EQ(declared.type, AttrType::Rgba);
    EXPECT_EQ(declared.defaultValue.type, AttrType::Null);
    EXPECT_FALSE(declared.enumeration.isActive());
}

TEST(NodeTypeTest, DeclaresAnInputByItsDefault) {
    NodeType type("t");
    type.input("text", AttrData::ofText("hello"))
        .input("data", AttrData::ofBuffer(DataType::Vec2f, 3))
        .input("list", AttrData::declareArray(AttrType::Vec3));
    EXPECT_EQ(type.findInput("text")->type, AttrType::String);
    EXPECT_STREQ(type.findInput("text")->defaultValue.text(), "hello");
    EXPECT_EQ(type.findInput("data")->type, AttrType::Buffer);
    EXPECT_EQ(type.findInput("data")->bufferType, DataType::Vec2f);
    EXPECT_EQ(type.findInput("list")->type, AttrType::Array);
    EXPECT_EQ(type.findInput("list")->arrayType, AttrType::Vec3);
}

TEST(NodeTypeTest, DeclaresArraysAndBuffersByTheirElementType) {
    NodeType type("t");
    type.array("list", AttrType::Object).buffer("data", DataType::Rgb8);
    EXPECT_EQ(type.findInput("list")->type, AttrType::Array);
    EXPECT_EQ(type.findInput("list")->arrayType, AttrType::Object);
    EXPECT_EQ(type.findInput("data")->type, AttrType::Buffer);
    EXPECT_EQ(type.findInput("data")->bufferType, DataType::Rgb8);
}

TEST(NodeTypeTest, DeclaresAnEnumerationAsATextThatStartsWithTheFirstValue) {
    NodeType type("t");
    type.enumeration("quality", {"draft", "final"});
    const InputDeclaration& declared = *type.findInput("quality");
    EXPECT_EQ(declared.type, AttrType::String);
    EXPECT_STREQ(declared.defaultValue.text(), "draft");
    EXPECT_EQ(strs(declared.enumeration.values()), (Names{"draft", "final"}));
}

TEST(NodeTypeTest, IgnoresASecondInputOfAName) {
    NodeType type("t");
    type.input("a", AttrData::ofText("first"))
        .input("a", AttrData::ofText("second"))
        .input("a", AttrType::Int)
        .array("a", AttrType::Int)
        .buffer("a", DataType::Float)
        .enumeration("a", {"x"});
    ASSERT_EQ(type.inputCount(), 1U);
    EXPECT_STREQ(type.findInput("a")->defaultValue.text(), "first");
}

TEST(NodeTypeTest, RefusesADefaultWhoseSizesContradictEachOther) {
    NodeType type("t");
    AttrData wrong = AttrData::ofBuffer(DataType::Float, 3);
    wrong.value[2] = 100'000;
    EXPECT_THROW(type.input("a", wrong), std::invalid_argument);
    EXPECT_EQ(type.inputCount(), 0U);
}

TEST(NodeTypeTest, LeavesAnInputUndeclaredWhoseDefaultHasNoElementType) {
    NodeType type("t");
    type.input("a", AttrData::ofBuffer(DataType::Null, 3));
    Scene scene;
    scene.registerType(std::move(type));
    const Input& input = *scene.createNode("t", "n", "")->input("a");
    EXPECT_EQ(input.bufferType(), DataType::Null);
    EXPECT_EQ(input.asBuffer().count, 0U);
}

TEST(NodeTypeTest, IgnoresASecondOutputOfAName) {
    NodeType type("t");
    type.output("a").output("b").output("a");
    EXPECT_EQ(strs(type.outputs()), (Names{"a", "b"}));
}

TEST(NodeTypeTest, IgnoresEmptyNames) {
    NodeType type("t");
    type.input("", AttrType::Int).input("", AttrData::ofText("freed")).output("");
    EXPECT_EQ(type.inputCount(), 0U);
    EXPECT_TRUE(type.outputs().empty());
}

TEST(NodeTypeTest, IsWholeAfterAMove) {
    NodeType type("t");
    for (unsigned long i = 0; i < 20; ++i)
        type.input(String(i), AttrType::Int);
    const NodeType moved(std::move(type));
    for (unsigned long i = 0; i < 20; ++i)
        EXPECT_EQ(moved.findInput(String(i)), &moved.inputAt(i));
}

// --- registration

TEST(TypeRegistrationTest, TypeIsFoundByItsName) {
    Scene scene;
    const NodeType* const registered = scene.registerType(NodeType("sphere"));
    EXPECT_EQ(scene.nodeType("sphere"), registered);
    EXPECT_EQ(str(registered->name()), "sphere");
    EXPECT_EQ(scene.nodeType("Sphere"), nullptr);
    EXPECT_EQ(scene.nodeType(""), nullptr);
}

TEST(TypeRegistrationTest, BelongsToOneScene) {
    Scene scene;
    NodeType type("sphere");
    type.input("radius", AttrType::Real);
    scene.registerType(std::move(type));
    Scene other;
    EXPECT_EQ(other.nodeType("sphere"), nullptr);
    EXPECT_EQ(other.createNode("sphere", "ball", "")->inputCount(), 0U);
}

TEST(TypeRegistrationTest, LeavesNodesThatAreThereAsTheyAre) {
    Scene scene;
    Node& early = *scene.createNode("sphere", "early", "");
    NodeType type("sphere");
    type.input("radius", AttrType::Real).output("surface");
    scene.registerType(std::move(type));
    EXPECT_EQ(early.nodeType(), nullptr);
    EXPECT_EQ(early.inputCount(), 0U);
    EXPECT_NE(early.output("anything"), nullptr);
}

TEST(TypeRegistrationTest, AgainReplacesTheTypeForNewNodesOnly) {
    Scene scene;
    NodeType first("t");
    first.enumeration("mode", {"old"}).output("out");
    const NodeType* const former = scene.registerType(std::move(first));
    Node& early = *scene.createNode("t", "early", "");
    NodeType second("t");
    second.input("size", AttrType::Int);
    const NodeType* const current = scene.registerType(std::move(second));
    const Node& late = *scene.createNode("t", "late", "");

    EXPECT_EQ(scene.nodeType("t"), current);
    EXPECT_EQ(late.nodeType(), current);
    EXPECT_EQ(inputNames(late), Names{"size"});
    EXPECT_TRUE(outputNames(late).empty());
    EXPECT_EQ(early.nodeType(), former);
    EXPECT_EQ(early.input("mode")->enumeration()->find("old"), 0U);
    EXPECT_NE(early.output("out"), nullptr);
    EXPECT_EQ(early.output("other"), nullptr);
}

TEST(TypeRegistrationTest, EachOfManyTypesIsFoundAsItself) {
    constexpr unsigned long count = 1'000;
    Scene scene;
    std::vector<const NodeType*> types;
    for (unsigned long i = 0; i < count; ++i)
        types.push_back(scene.registerType(NodeType(String("type") + String(i))));
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_EQ(scene.nodeType(String("type") + String(i)), types[i]);
}

// --- nodes of a registered type

class RegisteredNodeTest : public testing::Test {
  protected:
    RegisteredNodeTest() {
        NodeType type("lamp");
        type.input("power", AttrData::ofReal(2.5))
            .input("color", AttrType::Rgba)
            .input("file", AttrData::ofText("lamp.png"))
            .input("target", AttrType::Node)
            .input("anything", AttrType::Null)
            .input("options", AttrType::Object)
            .array("levels", AttrType::Vec2)
            .buffer("curve", DataType::Float)
            .input("table", AttrData::ofBuffer(DataType::Int32, 2))
            .enumeration("quality", {"draft", "final"})
            .output("light")
            .output("shape");
        lamp_ = scene_.registerType(std::move(type));
    }

    Scene scene_;
    const NodeType* lamp_ = nullptr;
};

TEST_F(RegisteredNodeTest, KnowsItsType) {
    EXPECT_EQ(scene_.createNode("lamp", "desk", "")->nodeType(), lamp_);
    EXPECT_EQ(scene_.createNode("other", "x", "")->nodeType(), nullptr);
}

TEST_F(RegisteredNodeTest, StartsWithItsDeclaredInputsInOrder) {
    const Node& node = *scene_.createNode("lamp", "desk", "");
    EXPECT_EQ(inputNames(node), (Names{"power", "color", "file", "target", "anything", "options",
                                       "levels", "curve", "table", "quality"}));
    for (unsigned long i = 0; i < lamp_->inputCount(); ++i)
        EXPECT_EQ(node.inputAt(i)->type(), lamp_->inputAt(i).type);
}

TEST_F(RegisteredNodeTest, StartsWithItsDeclaredDefaults) {
    const Node& node = *scene_.createNode("lamp", "desk", "");
    EXPECT_EQ(node.input("power")->asReal(), 2.5);
    EXPECT_EQ(node.input("color")->asComponents()[3], 1);
    EXPECT_EQ(node.input("file")->asText(), "lamp.png");
    EXPECT_EQ(node.input("target")->nodeReference(), nullptr);
    EXPECT_EQ(node.input("options")->inputCount(), 0U);
    EXPECT_EQ(node.input("levels")->arrayType(), AttrType::Vec2);
    EXPECT_EQ(node.input("levels")->inputCount(), 0U);
    EXPECT_EQ(node.input("curve")->bufferType(), DataType::Float);
    EXPECT_EQ(node.input("curve")->asBuffer().count, 0U);
    EXPECT_EQ(node.input("table")->asBuffer().count, 2U);
    EXPECT_EQ(node.input("quality")->asText(), "draft");
}

TEST_F(RegisteredNodeTest, HasTextsAndBuffersOfItsOwn) {
    Node& first = *scene_.createNode("lamp", "first", "");
    Node& second = *scene_.createNode("lamp", "second", "");
    EXPECT_NE(first.input("file")->asText().data(), second.input("file")->asText().data());
    EXPECT_NE(first.input("table")->asBuffer().data, second.input("table")->asBuffer().data);
    first.input("file")->assign(AttrData::ofText("changed"));
    EXPECT_EQ(second.input("file")->asText(), "lamp.png");
}

TEST_F(RegisteredNodeTest, HasExactlyItsDeclaredOutputs) {
    Node& node = *scene_.createNode("lamp", "desk", "");
    EXPECT_EQ(outputNames(node), (Names{"light", "shape"}));
    EXPECT_EQ(node.output("light"), node.outputAt(0));
    EXPECT_EQ(node.output("other"), nullptr);
    EXPECT_EQ(node.output(""), nullptr);
    EXPECT_EQ(node.outputCount(), 2U);
}

TEST_F(RegisteredNodeTest, CanBeADefinition) {
    const Node& node = *scene_.defineNode("lamp");
    EXPECT_TRUE(node.isDefinition());
    EXPECT_EQ(node.nodeType(), lamp_);
    EXPECT_EQ(node.input("power")->asReal(), 2.5);
}

TEST_F(RegisteredNodeTest, GetsFurtherInputsBehindTheDeclaredOnes) {
    Node& node = *scene_.createNode("lamp", "desk", "");
    EXPECT_EQ(node.createInput("power", AttrType::Int), nullptr);
    const Input* const further = node.createInput("further", AttrType::Int);
    ASSERT_NE(further, nullptr);
    EXPECT_EQ(node.inputAt(node.inputCount() - 1), further);
    EXPECT_FALSE(isActive(further->enumeration()));
}

TEST_F(RegisteredNodeTest, KnowsTheValuesThatAnEnumerationAllows) {
    Node& node = *scene_.createNode("lamp", "desk", "");
    const Enumeration* const values = node.input("quality")->enumeration();
    ASSERT_TRUE(isActive(values));
    EXPECT_EQ(values->find("final"), 1U);
    EXPECT_FALSE(values->find("other").has_value());
}

TEST_F(RegisteredNodeTest, AllowsEveryTextInAnEnumeration) {
    Input& input = *scene_.createNode("lamp", "desk", "")->input("quality");
    EXPECT_TRUE(input.assign(AttrData::ofText("other")));
    EXPECT_EQ(input.asText(), "other");
}

TEST_F(RegisteredNodeTest, HasNoActiveEnumerationElsewhere) {
    Node& node = *scene_.createNode("lamp", "desk", "");
    EXPECT_FALSE(isActive(node.input("power")->enumeration()));
    EXPECT_FALSE(isActive(node.input("file")->enumeration()));
    Input& child = *node.input("options")->createInput("quality", AttrType::String);
    EXPECT_FALSE(isActive(child.enumeration()));
    Node& other = *scene_.createNode("other", "x", "");
    EXPECT_FALSE(isActive(other.createInput("quality", AttrType::String)->enumeration()));
}

TEST_F(RegisteredNodeTest, EnumerationWithoutValuesIsAnEmptyTextAndNotActive) {
    NodeType type("t");
    type.enumeration("mode", {});
    scene_.registerType(std::move(type));
    const Input& input = *scene_.createNode("t", "x", "")->input("mode");
    EXPECT_EQ(input.type(), AttrType::String);
    EXPECT_EQ(input.asText(), "");
    EXPECT_FALSE(isActive(input.enumeration()));
}

TEST_F(RegisteredNodeTest, IsRefusedWhereAnyNodeIs) {
    scene_.createNode("lamp", "desk", "");
    EXPECT_EQ(scene_.createNode("lamp", "desk", ""), nullptr);
    EXPECT_EQ(scene_.createNode("lamp", "", ""), nullptr);
    EXPECT_EQ(scene_.nodeCount(), 1U);
}

// --- names that older documents use

// The table belongs to the process, so each test starts and ends with an empty one.
class RenameTest : public testing::Test {
  protected:
    RenameTest() { clearRenames(); }
    ~RenameTest() override { clearRenames(); }
};

TEST_F(RenameTest, UnknownNamesStayAsTheyAre) {
    EXPECT_EQ(str(updateInputName("sphere", "radius")), "radius");
    EXPECT_EQ(str(updateOutputName("sphere", "surface")), "surface");
    EXPECT_EQ(str(updateInputName("", "")), "");
    registerInputRename("sphere", "r", "radius");
    EXPECT_EQ(str(updateInputName("sphere", "R")), "R");
    EXPECT_EQ(str(updateInputName("sphere", "radius")), "radius");
    EXPECT_EQ(str(updateInputName("cube", "r")), "r");
}

TEST_F(RenameTest, OldNamesOfATypeBecomeCurrentOnes) {
    registerInputRename("sphere", "r", "radius");
    registerInputRename("cube", "r", "rotation");
    EXPECT_EQ(str(updateInputName("sphere", "r")), "radius");
    EXPECT_EQ(str(updateInputName("cube", "r")), "rotation");
}

TEST_F(RenameTest, InputsAndOutputsAreNotMixedUp) {
    registerInputRename("sphere", "a", "input");
    registerOutputRename("sphere", "b", "output");
    EXPECT_EQ(str(updateInputName("sphere", "a")), "input");
    EXPECT_EQ(str(updateInputName("sphere", "b")), "b");
    EXPECT_EQ(str(updateOutputName("sphere", "b")), "output");
    EXPECT_EQ(str(updateOutputName("sphere", "a")), "a");
}

TEST_F(RenameTest, TheLaterOfTwoForOneNameHolds) {
    registerInputRename("sphere", "r", "first");
    registerInputRename("sphere", "r", "second");
    EXPECT_EQ(str(updateInputName("sphere", "r")), "second");
}

TEST_F(RenameTest, RegisteringATypeFillsTheTable) {
    NodeType type("sphere");
    type.renameInput("r", "radius").renameInput("c", "color").renameOutput("out", "surface");
    EXPECT_EQ(str(updateInputName("sphere", "r")), "r");
    Scene scene;
    scene.registerType(std::move(type));
    EXPECT_EQ(str(updateInputName("sphere", "r")), "radius");
    EXPECT_EQ(str(updateInputName("sphere", "c")), "color");
    EXPECT_EQ(str(updateOutputName("sphere", "out")), "surface");
}

TEST_F(RenameTest, OutliveTheSceneThatBroughtThem) {
    {
        Scene scene;
        NodeType type("sphere");
        type.renameInput("r", "radius");
        scene.registerType(std::move(type));
    }
    EXPECT_EQ(str(updateInputName("sphere", "r")), "radius");
}

TEST_F(RenameTest, AreForgottenTogether) {
    registerInputRename("sphere", "r", "radius");
    registerOutputRename("sphere", "o", "out");
    clearRenames();
    EXPECT_EQ(str(updateInputName("sphere", "r")), "r");
    EXPECT_EQ(str(updateOutputName("sphere", "o")), "o");
}

TEST_F(RenameTest, AreKnownOnEveryThread) {
    registerInputRename("sphere", "r", "radius");
    std::string name;
    std::thread([&name] { name = str(updateInputName("sphere", "r")); }).join();
    EXPECT_EQ(name, "radius");
}

// Whoever asks gets the old name or the current one, never anything else.
TEST_F(RenameTest, AreAskedWhileOthersRegister) {
    constexpr unsigned long count = 2'000;
    std::atomic<unsigned long> wrong{0};
    const auto ask = [&wrong] {
        for (unsigned long i = 0; i < count; ++i) {
            const String name = updateInputName("sphere", String("old") + String(i % 50));
            if (!name.startsWith("old", false) && name != "current") ++wrong;
        }
    };
    const auto enter = [] {
        for (unsigned long i = 0; i < count; ++i) {
            registerInputRename("sphere", String("old") + String(i % 50), "current");
            registerOutputRename("sphere", String("old") + String(i % 50), "current");
            if (i % 500 == 0) clearRenames();
        }
    };
    std::array<std::thread, 4> threads = {std::thread(ask), std::thread(enter), std::thread(ask),
                                          std::thread(enter)};
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0U);
}

}  // namespace
