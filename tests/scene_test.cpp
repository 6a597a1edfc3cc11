// The scene: header, nodes, what stands on a node, links between nodes, walks, depth, threads, and
// what a document leaves behind in it.

#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "scene/namedlist.h"
#include "scene/names.h"
#include "scene/pool.h"

namespace {

using ko::DataType;
using ko::LogCapture;
using ko::RefersTo;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Chain;
using ko::mirel_sdk::impl::FoundInput;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::KVX_FILE_VERSION_1;
using ko::mirel_sdk::impl::NamedList;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Pool;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::Symbol;
using ko::mirel_sdk::interfaces::IScene;
using NameTable = ko::mirel_sdk::impl::Names;
using std::string_view_literals::operator""sv;

// The characters, NULs included, as assertions compare and print them.
std::string str(const String& text) { return std::string(text.view()); }

String numbered(const char* prefix, unsigned long number) {
    return String(prefix) + String(number);
}

std::vector<std::string> namesOf(const Scene& scene) {
    std::vector<std::string> names;
    for (const Node* node : scene.nodes())
        names.push_back(str(node->name()));
    return names;
}

// The paths of the inputs of a chain.
template <class Inputs>
std::vector<std::string> pathsOf(const Inputs& inputs) {
    std::vector<std::string> paths;
    for (const Input* input : inputs)
        paths.push_back(str(input->fullName()));
    return paths;
}

using Names = std::vector<std::string>;

// --- the header

TEST(SceneHeaderTest, NewSceneHasVersionOneAnEmptyTimeAndNoComments) {
    const Scene scene;
    EXPECT_EQ(KVX_FILE_VERSION_1, 1U);
    EXPECT_EQ(scene.fileVersion(), 1U);
    EXPECT_TRUE(scene.fileTime().isEmpty());
    EXPECT_TRUE(scene.comments().empty());
}

TEST(SceneHeaderTest, KeepsVersionAndTimeAsTheyAreSet) {
    Scene scene;
    scene.setFileVersion(~0UL);
    scene.setFileTime("2024-02-29 12:00");
    EXPECT_EQ(scene.fileVersion(), ~0UL);
    EXPECT_EQ(str(scene.fileTime()), "2024-02-29 12:00");
}

TEST(SceneHeaderTest, KeepsCommentsInTheirOrder) {
    Scene scene;
    scene.pushFileComment("# first");
    scene.pushFileComment("");
    scene.pushFileComment("# first");
    ASSERT_EQ(scene.comments().size(), 3U);
    EXPECT_EQ(str(scene.comments()[0]), "# first");
    EXPECT_EQ(str(scene.comments()[1]), "");
    EXPECT_EQ(str(scene.comments()[2]), "# first");
}

TEST(SceneHeaderTest, KeepsANulInCommentsAndTimes) {
    Scene scene;
    scene.setFileTime(String("1\0002"sv));
    scene.pushFileComment(String("# a\0b"sv));
    EXPECT_EQ(scene.fileTime().view(), "1\0002"sv);
    EXPECT_EQ(scene.comments()[0].view(), "# a\0b"sv);
}

TEST(SceneHeaderTest, ClearCommentsForgetsCommentsOnly) {
    Scene scene;
    scene.setFileVersion(7);
    scene.setFileTime("noon");
    scene.pushFileComment("# gone");
    scene.clearComments();
    EXPECT_TRUE(scene.comments().empty());
    EXPECT_EQ(scene.fileVersion(), 7U);
    EXPECT_EQ(str(scene.fileTime()), "noon");
}

TEST(SceneHeaderTest, IsReachedThroughTheInterface) {
    Scene scene;
    IScene& interface = scene;
    interface.setFileVersion(3);
    interface.setFileTime("now");
    interface.pushFileComment("# kept");
    EXPECT_EQ(scene.fileVersion(), 3U);
    EXPECT_EQ(str(scene.fileTime()), "now");
    EXPECT_EQ(scene.comments().size(), 1U);
    interface.clearComments();
    EXPECT_TRUE(scene.comments().empty());
}

// --- nodes

TEST(SceneNodeTest, NewSceneHasNoNodes) {
    const Scene scene;
    EXPECT_EQ(scene.nodeCount(), 0U);
    EXPECT_TRUE(scene.nodes().isEmpty());
    EXPECT_EQ(scene.findNode("a"), nullptr);
    EXPECT_EQ(scene.findNode(""), nullptr);
}

TEST(SceneNodeTest, CreatedNodeHasTypeNameAndLabel) {
    Scene scene;
    const Node* const node = scene.createNode("sphere", "ball", "The ball");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(str(node->type()), "sphere");
    EXPECT_EQ(str(node->name()), "ball");
    EXPECT_EQ(str(node->label()), "The ball");
    EXPECT_EQ(&node->scene(), &scene);
}

TEST(SceneNodeTest, CreatedNodeStartsEmptyAndUnregistered) {
    Scene scene;
    const Node& node = *scene.createNode("sphere", "ball", "");
    EXPECT_EQ(node.inputCount(), 0U);
    EXPECT_EQ(node.outputCount(), 0U);
    EXPECT_FALSE(node.isDefinition());
    EXPECT_FALSE(node.isRemoved());
    EXPECT_EQ(node.nodeType(), nullptr);
    EXPECT_EQ(node.next(), nullptr);
    EXPECT_TRUE(node.referring().isEmpty());
}

TEST(SceneNodeTest, CreationRefusesEmptyTypesEmptyNamesAndTakenNames) {
    const struct {
        const char* what;
        const char* type;
        const char* name;
    } rows[] = {
        {"empty type", "", "new"},
        {"empty name", "sphere", ""},
        {"both empty", "", ""},
        {"taken name", "sphere", "taken"},
        {"taken name, other type", "cube", "taken"},
        {"name of a definition", "sphere", "defined"},
    };
    Scene scene;
    const Node* const taken = scene.createNode("sphere", "taken", "label");
    const Node* const defined = scene.defineNode("defined");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(scene.createNode(row.type, row.name, ""), nullptr);
    }
    EXPECT_EQ(namesOf(scene), (Names{"taken", "defined"}));
    EXPECT_EQ(scene.findNode("taken"), taken);
    EXPECT_EQ(scene.findNode("defined"), defined);
    EXPECT_EQ(str(taken->type()), "sphere");
    EXPECT_EQ(str(taken->label()), "label");
}

TEST(SceneNodeTest, AnyTextIsATypeOrAName) {
    Scene scene;
    for (const std::string_view text : {"with blank"sv, "[1]"sv, "a.b"sv, "\xC3\xA4"sv, "null"sv}) {
        SCOPED_TRACE(text);
        const Node* const node = scene.createNode(String(text), String(text), "");
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->type().view(), text);
        EXPECT_EQ(scene.findNode(String(text)), node);
    }
}

TEST(SceneNodeTest, TypeAndNameMayBeTheSame) {
    Scene scene;
    const Node* const node = scene.createNode("camera", "camera", "");
    ASSERT_NE(node, nullptr);
    EXPECT_FALSE(node->isDefinition());
}

TEST(SceneNodeTest, NodesAreListedInTheOrderOfTheirCreation) {
    Scene scene;
    scene.createNode("t", "z", "");
    scene.defineNode("m");
    scene.createNode("t", "a", "");
    scene.createNode("t", "k", "");
    EXPECT_EQ(namesOf(scene), (Names{"z", "m", "a", "k"}));
    EXPECT_EQ(scene.nodeCount(), 4U);
    EXPECT_EQ(scene.findNode("z")->next(), scene.findNode("m"));
    EXPECT_EQ(scene.findNode("k")->next(), nullptr);
}

TEST(SceneNodeTest, NodesAreFoundThroughTheInterface) {
    Scene scene;
    IScene& interface = scene;
    Node* const node = interface.createNode("t", "a", "");
    EXPECT_EQ(interface.findNode("a"), node);
    Node* const definition = interface.defineNode("d");
    EXPECT_EQ(interface.findNode("d"), definition);
    interface.removeNode("a");
    EXPECT_EQ(interface.findNode("a"), nullptr);
}

TEST(SceneNodeTest, NamesAreTheSameOnlyWhenEveryCharacterIs) {
    const std::string_view names[] = {
        "a"sv,        "A"sv,         "a "sv,       " a"sv,        "aa"sv,
        "a\0"sv,      "a\0\0"sv,     "\0a"sv,      "a\0b"sv,      "a\0c"sv,
        "abcdefg"sv,  "abcdefg\0"sv, "abcdefgh"sv, "abcdefgH"sv,  "abcdefghabcdefgh"sv,
        "abcdefgi"sv, "\xC3\xA4"sv,  "\xC3\xB6"sv, "abcdefghi"sv, "abcdefg\0h"sv,
    };
    Scene scene;
    std::vector<const Node*> nodes;
    for (const std::string_view name : names)
        nodes.push_back(scene.createNode("t", String(name), ""));
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_NE(nodes[i], nullptr);
        EXPECT_EQ(scene.findNode(String(names[i])), nodes[i]);
    }
}

TEST(SceneNodeTest, EachOfManyNodesIsFoundAsItself) {
    constexpr unsigned long count = 100'000;
    Scene scene;
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_NE(scene.createNode("t", numbered("node", i), ""), nullptr);
    EXPECT_EQ(scene.nodeCount(), count);
    unsigned long i = 0;
    for (const Node* node : scene.nodes())
        ASSERT_EQ(scene.findNode(numbered("node", i++)), node);
    EXPECT_EQ(i, count);
    EXPECT_EQ(scene.findNode(numbered("node", count)), nullptr);
}

TEST(SceneNodeTest, NodesAreAForwardRange) {
    Scene scene;
    scene.createNode("t", "a", "");
    scene.createNode("t", "b", "");
    const auto nodes = scene.nodes();
    EXPECT_EQ(std::distance(nodes.begin(), nodes.end()), 2);
    auto at = nodes.begin();
    EXPECT_EQ(*at++, scene.findNode("a"));
    EXPECT_EQ(*at, scene.findNode("b"));
    EXPECT_TRUE(++at == nodes.end());
    EXPECT_TRUE(nodes.begin() != nodes.end());
}

// --- definitions

TEST(SceneNodeTest, InputIsFoundOrCreated) {
    Scene scene;
    Node& node = *scene.createNode("sphere", "ball", "");
    const FoundInput made = node.findOrCreate("list", AttrType::Array, AttrType::Int);
    ASSERT_NE(made.input, nullptr);
    EXPECT_TRUE(made.isNew);
    EXPECT_EQ(made.input->arrayType(), AttrType::Int);
    const FoundInput found = node.findOrCreate("list", AttrType::Real, AttrType::Null);
    EXPECT_EQ(found.input, made.input);
    EXPECT_FALSE(found.isNew);
    EXPECT_EQ(node.findOrCreate("[0]", AttrType::Real, AttrType::Null).input, nullptr);
}

TEST(SceneDefinitionTest, HasItsTypeAsItsName) {
    Scene scene;
    const Node* const node = scene.defineNode("lamp");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(str(node->type()), "lamp");
    EXPECT_EQ(str(node->name()), "lamp");
    EXPECT_TRUE(node->label().isEmpty());
    EXPECT_TRUE(node->isDefinition());
}

TEST(SceneDefinitionTest, IsFoundAndListedLikeAnyNode) {
    Scene scene;
    const Node* const node = scene.defineNode("lamp");
    EXPECT_EQ(scene.findNode("lamp"), node);
    EXPECT_EQ(namesOf(scene), Names{"lamp"});
}

TEST(SceneDefinitionTest, IsRefusedForAnEmptyOrTakenName) {
    Scene scene;
    scene.createNode("t", "node", "");
    scene.defineNode("definition");
    EXPECT_EQ(scene.defineNode(""), nullptr);
    EXPECT_EQ(scene.defineNode("node"), nullptr);
    EXPECT_EQ(scene.defineNode("definition"), nullptr);
    EXPECT_FALSE(scene.findNode("node")->isDefinition());
    EXPECT_EQ(scene.nodeCount(), 2U);
}

TEST(SceneDefinitionTest, NodesOfADefinedTypeAreNoDefinitions) {
    Scene scene;
    scene.defineNode("lamp");
    const Node* const node = scene.createNode("lamp", "desk", "");
    ASSERT_NE(node, nullptr);
    EXPECT_FALSE(node->isDefinition());
}

// --- inputs of a node

TEST(NodeInputTest, InputsStandInTheOrderOfTheirCreation) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    const Input* const z = node.createInput("z", AttrType::Int);
    const Input* const list = node.createArray("list", AttrType::Real);
    const Input* const a = node.createInput("a", AttrType::Null);
    ASSERT_EQ(node.inputCount(), 3U);
    EXPECT_EQ(node.inputAt(0), z);
    EXPECT_EQ(node.inputAt(1), list);
    EXPECT_EQ(node.inputAt(2), a);
    EXPECT_EQ(node.inputAt(3), nullptr);
    EXPECT_EQ(node.inputAt(~0UL), nullptr);
    EXPECT_EQ(a->position(), 2U);
}

TEST(NodeInputTest, KnowsItsNodeAndItsName) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    const Input& input = *node.createInput("size", AttrType::Real);
    EXPECT_EQ(str(input.name()), "size");
    EXPECT_EQ(input.owner(), &node);
    EXPECT_EQ(input.parent(), nullptr);
    EXPECT_EQ(str(input.fullName()), "n.size");
}

TEST(NodeInputTest, IsFoundByNameInConstNodesToo) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    const Node& same = node;
    const Input* const input = node.createInput("a", AttrType::Int);
    EXPECT_EQ(node.input("a"), input);
    EXPECT_EQ(same.input("a"), input);
    EXPECT_EQ(same.inputAt(0), input);
    EXPECT_EQ(same.input("A"), nullptr);
    EXPECT_EQ(same.input(""), nullptr);
}

// A few names are told apart by the lowest bytes of their numbers first.
TEST(NodeInputTest, NamesOfEqualMarksAreToldApart) {
    constexpr unsigned long apart = 256;
    constexpr unsigned long most = 9;
    Scene scene;
    Node& all = *scene.createNode("type", "all", "");
    std::vector<String> names;
    for (unsigned long number = 0; number < most * apart; ++number) {
        all.createInput(numbered("n", number), AttrType::Int);
        if (number % apart == 0) names.push_back(numbered("n", number));
    }
    Node& node = *scene.createNode("type", "node", "");
    for (const String& name : names) {
        EXPECT_EQ(node.input(name), nullptr);
        Input* const created = node.createInput(name, AttrType::Int);
        ASSERT_NE(created, nullptr);
        EXPECT_EQ(node.input(name), created);
        EXPECT_EQ(node.input(names[0]), node.inputAt(0));
    }
}

TEST(NodeInputTest, CreationRefusesNamesThatAreEmptyTakenOrBeginWithABracket) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    const Input* const taken = node.createInput("taken", AttrType::Int);
    for (const char* const name : {"", "taken", "[", "[0]", "[*]", "[a"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(node.createInput(name, AttrType::Real), nullptr);
        EXPECT_EQ(node.createArray(name, AttrType::Real), nullptr);
    }
    EXPECT_EQ(node.inputCount(), 1U);
    EXPECT_EQ(node.input("taken"), taken);
    EXPECT_EQ(taken->type(), AttrType::Int);
}

TEST(NodeInputTest, NamesMayHoldABracketBehindTheirFirstCharacter) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    EXPECT_NE(node.createInput("a[0]", AttrType::Int), nullptr);
    EXPECT_NE(node.createInput("]", AttrType::Int), nullptr);
}

TEST(NodeInputTest, HasInputAsksForTheTypeToo) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    node.createInput("a", AttrType::Int);
    node.createInput("undeclared", AttrType::Null);
    EXPECT_TRUE(node.hasInput("a", AttrType::Int));
    EXPECT_TRUE(node.hasInput("a", AttrType::Null));
    EXPECT_FALSE(node.hasInput("a", AttrType::UInt));
    EXPECT_FALSE(node.hasInput("b", AttrType::Null));
    EXPECT_FALSE(node.hasInput("", AttrType::Null));
    EXPECT_TRUE(node.hasInput("undeclared", AttrType::Null));
    EXPECT_FALSE(node.hasInput("undeclared", AttrType::Int));
}

TEST(NodeInputTest, TwoNodesMayHaveInputsOfOneName) {
    Scene scene;
    Node& first = *scene.createNode("t", "first", "");
    Node& second = *scene.createNode("t", "second", "");
    const Input* const a = first.createInput("x", AttrType::Int);
    const Input* const b = second.createInput("x", AttrType::Real);
    EXPECT_EQ(first.input("x"), a);
    EXPECT_EQ(second.input("x"), b);
}

TEST(NodeInputTest, EachOfManyInputsIsFoundAsItself) {
    constexpr unsigned long count = 20'000;
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_NE(node.createInput(numbered("in", i), AttrType::Int), nullptr);
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_EQ(node.input(numbered("in", i)), node.inputAt(i));
    EXPECT_EQ(node.input(numbered("in", count)), nullptr);
    EXPECT_EQ(node.createInput(numbered("in", count / 2), AttrType::Int), nullptr);
}

// --- outputs of a node without a registered type

TEST(NodeOutputTest, ComesIntoBeingWhenItIsFirstAskedFor) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    EXPECT_EQ(node.outputCount(), 0U);
    const Output* const output = node.output("color");
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(node.outputCount(), 1U);
    EXPECT_EQ(node.output("color"), output);
    EXPECT_EQ(node.outputCount(), 1U);
}

TEST(NodeOutputTest, KnowsItsNodeAndItsName) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    const Output& output = *node.output("color");
    EXPECT_EQ(str(output.name()), "color");
    EXPECT_EQ(output.node(), &node);
    EXPECT_EQ(str(output.fullName()), "n.color");
    EXPECT_TRUE(output.connected().isEmpty());
}

TEST(NodeOutputTest, HasNoEmptyName) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    EXPECT_EQ(node.output(""), nullptr);
    EXPECT_EQ(node.outputCount(), 0U);
}

TEST(NodeOutputTest, FindOutputCreatesNone) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    EXPECT_EQ(node.findOutput("a"), nullptr);
    EXPECT_EQ(node.outputCount(), 0U);
    const Output* const output = node.output("a");
    EXPECT_EQ(node.findOutput("a"), output);
    EXPECT_EQ(node.findOutput("A"), nullptr);
}

TEST(NodeOutputTest, OutputsStandInTheOrderInWhichTheyWereAskedFor) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    const Output* const z = node.output("z");
    const Output* const a = node.output("a");
    node.output("z");
    ASSERT_EQ(node.outputCount(), 2U);
    EXPECT_EQ(node.outputAt(0), z);
    EXPECT_EQ(node.outputAt(1), a);
    EXPECT_EQ(node.outputAt(2), nullptr);
}

TEST(NodeOutputTest, EachOfManyOutputsIsFoundAsItself) {
    constexpr unsigned long count = 5'000;
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_NE(node.output(numbered("out", i)), nullptr);
    EXPECT_EQ(node.outputCount(), count);
    for (unsigned long i = 0; i < count; ++i)
        ASSERT_EQ(node.findOutput(numbered("out", i)), node.outputAt(i));
}

TEST(NodeOutputTest, MayBeCalledLikeAnInput) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    node.createInput("x", AttrType::Int);
    ASSERT_NE(node.output("x"), nullptr);
    EXPECT_EQ(str(node.output("x")->fullName()), "n.x");
}

// The first one, a few and many are found by different means.
TEST(NodeOutputTest, AreFoundByNameHoweverManyThereAre) {
    constexpr unsigned long most = 150;
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    for (unsigned long count = 0; count < most; ++count) {
        EXPECT_EQ(node.findOutput(numbered("out", count)), nullptr);
        const Output* const made = node.output(numbered("out", count));
        EXPECT_EQ(node.outputCount(), count + 1);
        EXPECT_EQ(node.outputAt(count), made);
        for (unsigned long i = 0; i <= count; ++i)
            ASSERT_EQ(node.findOutput(numbered("out", i)), node.outputAt(i));
    }
}

TEST(NodeOutputTest, DefinitionsHaveThemToo) {
    Scene scene;
    EXPECT_NE(scene.defineNode("lamp")->output("light"), nullptr);
}

// --- lists of named things

struct Item {
    Symbol name_;
};

// Of names whose lowest bytes come again.
std::vector<Item> makeItems(unsigned long count) {
    constexpr Symbol alike = 128;
    std::vector<Item> items;
    for (unsigned long i = 0; i < count; ++i)
        items.push_back({alike * static_cast<Symbol>(i + 1)});
    return items;
}

constexpr unsigned long expectedItems = 4;

// Short lists are scanned and long ones are not; the results are the same.
TEST(NamedListTest, FindsEveryItemWhateverTheLength) {
    constexpr unsigned long longest = 200;
    const RefersTo<NameTable> names(new NameTable);
    Pool pool(nullptr, *names);
    std::vector<Item> items = makeItems(longest);
    NamedList<Item> list;
    for (unsigned long size = 0; size < longest; ++size) {
        SCOPED_TRACE(size);
        EXPECT_EQ(list.size(), size);
        for (unsigned long i = 0; i < longest; ++i)
            EXPECT_EQ(list.find(items[i].name_), i < size ? &items[i] : nullptr);
        list.add(pool, &items[size], expectedItems);
    }
}

TEST(NamedListTest, HasRoomForAsManyAsAreExpected) {
    for (const unsigned long expected : {0UL, 1UL, 7UL, 8UL, 9UL, 64UL, 65UL}) {
        SCOPED_TRACE(expected);
        const RefersTo<NameTable> names(new NameTable);
        Pool pool(nullptr, *names);
        std::vector<Item> items = makeItems(70);
        NamedList<Item> list;
        for (Item& item : items)
            list.add(pool, &item, expected);
        for (Item& item : items)
            EXPECT_EQ(list.find(item.name_), &item);
    }
}

TEST(NamedListTest, KeepsTheOrderOfAddition) {
    constexpr unsigned long count = 20;
    const RefersTo<NameTable> names(new NameTable);
    Pool pool(nullptr, *names);
    std::vector<Item> items = makeItems(count);
    NamedList<Item> list;
    for (unsigned long i = count; i-- > 0;)
        list.add(pool, &items[i], expectedItems);
    for (unsigned long i = 0; i < count; ++i)
        EXPECT_EQ(list[i], &items[count - 1 - i]);
}

TEST(NamedListTest, TakesItemsFromTheEndUntilNoneIsLeft) {
    for (const unsigned long count : {0UL, 1UL, 8UL, 9UL, 20UL}) {
        SCOPED_TRACE(count);
        const RefersTo<NameTable> names(new NameTable);
        Pool pool(nullptr, *names);
        std::vector<Item> items = makeItems(count);
        NamedList<Item> list;
        for (Item& item : items)
            list.add(pool, &item, expectedItems);
        for (unsigned long i = count; i-- > 0;)
            EXPECT_EQ(list.takeLast(), &items[i]);
        EXPECT_EQ(list.takeLast(), nullptr);
        EXPECT_EQ(list.size(), 0U);
    }
}

// --- the names of a scene

TEST(NamesTest, EachNameHasOneNumberAndStaysWhereItIs) {
    constexpr unsigned long count = 1000;
    const RefersTo<NameTable> names(new NameTable);
    EXPECT_EQ(names->find("item0"), 0U);
    std::vector<const String*> places;
    for (unsigned long i = 0; i < count; ++i) {
        const Symbol symbol = names->intern(numbered("item", i));
        EXPECT_EQ(symbol, i + 1);
        places.push_back(&(*names)[symbol]);
    }
    for (unsigned long i = 0; i < count; ++i) {
        const String name = numbered("item", i);
        EXPECT_EQ(names->intern(name), i + 1);
        EXPECT_EQ(names->find(name), i + 1);
        EXPECT_EQ(str(*places[i]), str(name));
    }
    EXPECT_EQ(names->find("item1000"), 0U);
}

TEST(NamesTest, TheEmptyNameIsNumberNone) {
    const RefersTo<NameTable> names(new NameTable);
    EXPECT_EQ(names->intern(""), 0U);
    EXPECT_EQ(names->find(""), 0U);
    EXPECT_EQ(str((*names)[0]), "");
}

// --- what nodes of a type have in common

TEST(NodeKindTest, NodesOfATypeMayHaveLabelsOfTheirOwn) {
    Scene scene;
    const Node& plain = *scene.createNode("t", "a", "");
    const Node& first = *scene.createNode("t", "b", "one");
    const Node& second = *scene.createNode("t", "c", "two");
    const Node& other = *scene.createNode("t", "d", "");
    EXPECT_EQ(str(plain.label()) + '|' + str(first.label()) + '|' + str(second.label()) + '|' +
                  str(other.label()),
              "|one|two|");
    for (const Node* const node : scene.nodes())
        EXPECT_EQ(node->type(), "t");
}

TEST(NodeKindTest, IsThatOfTheTypeWhenTheNodeWasMade) {
    Scene scene;
    const Node& before = *scene.createNode("t", "a", "");
    NodeType type("t");
    type.input("x", AttrType::Int);
    const NodeType* const registered = scene.registerType(std::move(type));
    const Node& with = *scene.createNode("t", "b", "");
    const NodeType* const again = scene.registerType(NodeType("t"));
    const Node& after = *scene.createNode("t", "c", "");
    EXPECT_EQ(before.nodeType(), nullptr);
    EXPECT_EQ(with.nodeType(), registered);
    EXPECT_EQ(after.nodeType(), again);
    EXPECT_EQ(before.inputCount(), 0U);
    EXPECT_EQ(with.inputCount(), 1U);
    EXPECT_EQ(after.inputCount(), 0U);
    scene.removeNode("a");
    scene.removeNode("c");
    scene.purgeRemoved();
    EXPECT_EQ(scene.createNode("t", "a", "")->nodeType(), again);
    EXPECT_EQ(with.nodeType(), registered);
}

TEST(NodeKindTest, GoesWithItsLastNode) {
    Scene scene;
    for (int i = 0; i < 3; ++i) {
        for (const char* const label : {"", "label"}) {
            const Node& node = *scene.createNode("t", "n", label);
            EXPECT_EQ(node.type(), "t");
            EXPECT_EQ(str(node.label()), label);
            scene.removeNode("n");
            EXPECT_EQ(node.type(), "t");
            scene.purgeRemoved();
        }
    }
}

// --- links: connections of inputs to outputs, references of inputs to nodes

class LinkTest : public testing::Test {
  protected:
    Input& addInput(const char* name, AttrType type = AttrType::Real) {
        return *target_.createInput(name, type);
    }

    Scene scene_;
    Node& source_ = *scene_.createNode("t", "source", "");
    Node& target_ = *scene_.createNode("t", "target", "");
};

// A link of its own gives way to two: whoever comes after it in its chain must be told.
TEST_F(LinkTest, TheOtherKindLeavesAReferenceInItsPlace) {
    std::vector<Input*> inputs;
    for (const char* const name : {"a", "b", "c"}) {
        inputs.push_back(&addInput(name, AttrType::Null));
        inputs.back()->setNode(&source_);
    }
    Output& output = *source_.output("out");
    for (Input* const input : {inputs[1], inputs[2], inputs[0]})
        input->connect(&output);
    EXPECT_EQ(pathsOf(source_.referring()),
              (std::vector<std::string>{"target.a", "target.b", "target.c"}));
    EXPECT_EQ(pathsOf(output.connected()),
              (std::vector<std::string>{"target.b", "target.c", "target.a"}));
    inputs[1]->setNode(nullptr);
    inputs[2]->disconnect();
    EXPECT_EQ(pathsOf(source_.referring()), (std::vector<std::string>{"target.a", "target.c"}));
    EXPECT_EQ(pathsOf(output.connected()), (std::vector<std::string>{"target.b", "target.a"}));
}

TEST_F(LinkTest, TheOtherKindLeavesAConnectionInItsPlace) {
    std::vector<Input*> inputs;
    Output& output = *source_.output("out");
    for (const char* const name : {"a", "b", "c"}) {
        inputs.push_back(&addInput(name, AttrType::Null));
        inputs.back()->connect(&output);
    }
    inputs[1]->disconnect();
    for (Input* const input : {inputs[1], inputs[2], inputs[0]})
        input->setNode(&source_);
    EXPECT_EQ(pathsOf(output.connected()), (std::vector<std::string>{"target.a", "target.c"}));
    EXPECT_EQ(pathsOf(source_.referring()),
              (std::vector<std::string>{"target.b", "target.c", "target.a"}));
}

// A connected input of no type becomes an object, which has a value.
TEST_F(LinkTest, StayWhereAnInputBecomesAnObject) {
    Output& output = *source_.output("out");
    Input& first = addInput("a", AttrType::Null);
    Input& second = addInput("b", AttrType::Null);
    first.connect(&output);
    second.connect(&output);
    Input* const child = first.createInput("child", AttrType::Int);
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(first.input("child"), child);
    EXPECT_EQ(pathsOf(output.connected()), (std::vector<std::string>{"target.a", "target.b"}));
    first.disconnect();
    EXPECT_EQ(first.input("child"), child);
    EXPECT_EQ(pathsOf(output.connected()), (std::vector<std::string>{"target.b"}));
}

using ConnectionTest = LinkTest;

TEST_F(ConnectionTest, IsSeenFromBothSides) {
    Input& input = addInput("x");
    Output& output = *source_.output("out");
    EXPECT_EQ(input.connection(), nullptr);
    input.connect(&output);
    EXPECT_EQ(input.connection(), &output);
    EXPECT_EQ(pathsOf(output.connected()), Names{"target.x"});
}

TEST_F(ConnectionTest, OutputListsItsInputsInTheOrderOfConnecting) {
    Output& output = *source_.output("out");
    Input& a = addInput("a");
    Input& b = addInput("b");
    Input& c = addInput("c");
    c.connect(&output);
    a.connect(&output);
    b.connect(&output);
    EXPECT_EQ(pathsOf(output.connected()), (Names{"target.c", "target.a", "target.b"}));
    EXPECT_EQ(c.nextConnected(), &a);
    EXPECT_EQ(b.nextConnected(), nullptr);
}

TEST_F(ConnectionTest, ReplacesTheEarlierOne) {
    Input& input = addInput("x");
    Output& former = *source_.output("former");
    Output& next = *source_.output("next");
    input.connect(&former);
    input.connect(&next);
    EXPECT_EQ(input.connection(), &next);
    EXPECT_TRUE(former.connected().isEmpty());
    EXPECT_EQ(pathsOf(next.connected()), Names{"target.x"});
}

TEST_F(ConnectionTest, ToTheSameOutputAgainIsStillOne) {
    Input& input = addInput("x");
    Output& output = *source_.output("out");
    input.connect(&output);
    input.connect(&output);
    EXPECT_EQ(input.connection(), &output);
    EXPECT_EQ(pathsOf(output.connected()), Names{"target.x"});
}

TEST_F(ConnectionTest, EndsWithDisconnect) {
    Input& input = addInput("x");
    Output& output = *source_.output("out");
    input.connect(&output);
    input.disconnect();
    EXPECT_EQ(input.connection(), nullptr);
    EXPECT_TRUE(output.connected().isEmpty());
}

TEST_F(ConnectionTest, ConnectingToNothingDisconnects) {
    Input& input = addInput("x");
    Output& output = *source_.output("out");
    input.connect(&output);
    input.connect(nullptr);
    EXPECT_EQ(input.connection(), nullptr);
    EXPECT_TRUE(output.connected().isEmpty());
}

TEST_F(ConnectionTest, DisconnectingWithoutOneChangesNothing) {
    Input& input = addInput("x");
    input.disconnect();
    input.disconnect();
    EXPECT_EQ(input.connection(), nullptr);
    EXPECT_EQ(input.nextConnected(), nullptr);
}

TEST_F(ConnectionTest, LeavesTheOthersInOrderWhenOneIsCut) {
    const struct {
        const char* cut;
        Names left;
    } rows[] = {
        {"a", {"target.b", "target.c"}},
        {"b", {"target.a", "target.c"}},
        {"c", {"target.a", "target.b"}},
    };
    for (const char* const name : {"a", "b", "c"})
        addInput(name);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.cut);
        Output& output = *source_.output(row.cut);
        for (unsigned long i = 0; i < target_.inputCount(); ++i)
            target_.inputAt(i)->connect(&output);
        target_.input(row.cut)->disconnect();
        EXPECT_EQ(pathsOf(output.connected()), row.left);
    }
}

TEST_F(ConnectionTest, AnInputCutAndConnectedAgainStandsAtTheEnd) {
    Output& output = *source_.output("out");
    Input& a = addInput("a");
    Input& b = addInput("b");
    a.connect(&output);
    b.connect(&output);
    a.disconnect();
    a.connect(&output);
    EXPECT_EQ(pathsOf(output.connected()), (Names{"target.b", "target.a"}));
}

TEST_F(ConnectionTest, MayLeadToANodesOwnOutput) {
    Input& input = *source_.createInput("in", AttrType::Real);
    input.connect(source_.output("out"));
    EXPECT_EQ(input.connection()->node(), &source_);
    EXPECT_EQ(pathsOf(source_.findOutput("out")->connected()), Names{"source.in"});
}

TEST_F(ConnectionTest, MayStartInObjectsAndArrays) {
    Output& output = *source_.output("out");
    Input& object = addInput("object", AttrType::Object);
    Input& list = *target_.createArray("list", AttrType::Real);
    list.appendElements(2);
    object.createInput("child", AttrType::Int)->connect(&output);
    list.inputAt(1)->connect(&output);
    list.connect(&output);
    EXPECT_EQ(pathsOf(output.connected()),
              (Names{"target.object.child", "target.list[1]", "target.list"}));
}

TEST_F(ConnectionTest, LeavesTypeAndValueAsTheyAre) {
    Input& input = addInput("x", AttrType::Int);
    input.assign(AttrData::ofInt(5));
    input.connect(source_.output("out"));
    EXPECT_EQ(input.type(), AttrType::Int);
    EXPECT_EQ(input.asInt(), 5);
    input.assign(AttrData::ofInt(6));
    EXPECT_EQ(input.asInt(), 6);
    EXPECT_NE(input.connection(), nullptr);
}

TEST_F(ConnectionTest, LeavesEveryTypeAsItIs) {
    Output& output = *source_.output("out");
    for (std::uint32_t code = 0; code < ko::mirel_sdk::attrTypeCount; ++code) {
        const auto type = AttrType(code);
        SCOPED_TRACE(attrTypeName(type));
        Input& input = addInput(attrTypeName(type), type);
        input.connect(&output);
        EXPECT_EQ(input.type(), type);
        input.disconnect();
        EXPECT_EQ(input.type(), type);
    }
}

TEST_F(ConnectionTest, AMillionToOneOutputAreCutInAnyOrder) {
    constexpr unsigned long count = 1'000'000;
    Output& output = *source_.output("out");
    Input& list = *target_.createArray("list", AttrType::Real);
    list.appendElements(count);
    for (unsigned long i = 0; i < count; ++i)
        list.inputAt(i)->connect(&output);

    std::vector<unsigned long> order(count);
    for (unsigned long i = 0; i < count; ++i)
        order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    const auto half = order.begin() + count / 2;
    std::for_each(order.begin(), half, [&](unsigned long i) { list.inputAt(i)->disconnect(); });

    std::sort(half, order.end());
    auto expected = half;
    for (const Input* input : output.connected())
        ASSERT_EQ(input->position(), *expected++);
    EXPECT_TRUE(expected == order.end());

    std::for_each(half, order.end(), [&](unsigned long i) { list.inputAt(i)->disconnect(); });
    EXPECT_TRUE(output.connected().isEmpty());
}

using NodeReferenceTest = LinkTest;

TEST_F(NodeReferenceTest, IsSeenFromBothSides) {
    Input& input = addInput("x", AttrType::Node);
    EXPECT_EQ(input.nodeReference(), nullptr);
    input.setNode(&source_);
    EXPECT_EQ(input.nodeReference(), &source_);
    EXPECT_EQ(pathsOf(source_.referring()), Names{"target.x"});
}

TEST_F(NodeReferenceTest, NodeListsItsInputsInTheOrderInWhichTheyWereGivenIt) {
    Input& a = addInput("a", AttrType::Node);
    Input& b = addInput("b", AttrType::Node);
    b.setNode(&source_);
    a.setNode(&source_);
    EXPECT_EQ(pathsOf(source_.referring()), (Names{"target.b", "target.a"}));
    EXPECT_EQ(b.nextReferring(), &a);
    EXPECT_EQ(a.nextReferring(), nullptr);
}

TEST_F(NodeReferenceTest, ReplacesTheEarlierOne) {
    Input& input = addInput("x", AttrType::Node);
    input.setNode(&source_);
    input.setNode(&target_);
    EXPECT_EQ(input.nodeReference(), &target_);
    EXPECT_TRUE(source_.referring().isEmpty());
    EXPECT_EQ(pathsOf(target_.referring()), Names{"target.x"});
}

TEST_F(NodeReferenceTest, EndsWithNoNode) {
    Input& input = addInput("x", AttrType::Node);
    input.setNode(&source_);
    input.setNode(nullptr);
    EXPECT_EQ(input.nodeReference(), nullptr);
    EXPECT_EQ(input.type(), AttrType::Node);
    EXPECT_TRUE(source_.referring().isEmpty());
}

TEST_F(NodeReferenceTest, MayLeadToTheInputsOwnNode) {
    Input& input = addInput("self", AttrType::Node);
    input.setNode(&target_);
    EXPECT_EQ(input.nodeReference(), &target_);
    EXPECT_EQ(pathsOf(target_.referring()), Names{"target.self"});
}

TEST_F(NodeReferenceTest, TurnsAnUndeclaredInputIntoANodeInput) {
    Input& input = addInput("x", AttrType::Null);
    input.setNode(&source_);
    EXPECT_EQ(input.type(), AttrType::Node);
    EXPECT_EQ(str(input.typeName()), "Node");
}

TEST_F(NodeReferenceTest, NoNodeLeavesAnUndeclaredInputUndeclared) {
    Input& input = addInput("x", AttrType::Null);
    input.setNode(nullptr);
    EXPECT_EQ(input.type(), AttrType::Null);
}

TEST_F(NodeReferenceTest, LeavesEveryOtherTypeAsItIs) {
    for (std::uint32_t code = 1; code < ko::mirel_sdk::attrTypeCount; ++code) {
        const auto type = AttrType(code);
        SCOPED_TRACE(attrTypeName(type));
        Input& input = addInput(attrTypeName(type), type);
        input.setNode(&source_);
        EXPECT_EQ(input.type(), type);
        EXPECT_EQ(input.nodeReference(), &source_);
    }
}

TEST_F(NodeReferenceTest, StandsBesideAValue) {
    Input& input = addInput("x", AttrType::String);
    input.assign(AttrData::ofText("text"));
    input.setNode(&source_);
    EXPECT_EQ(input.asText(), "text");
    input.assign(AttrData::ofText("other"));
    EXPECT_EQ(input.nodeReference(), &source_);
}

TEST_F(NodeReferenceTest, StandsBesideAConnection) {
    Input& input = addInput("x", AttrType::Node);
    Output& output = *source_.output("out");
    input.connect(&output);
    input.setNode(&source_);
    input.disconnect();
    EXPECT_EQ(input.nodeReference(), &source_);
    input.connect(&output);
    input.setNode(nullptr);
    EXPECT_EQ(input.connection(), &output);
    EXPECT_EQ(pathsOf(output.connected()), Names{"target.x"});
}

TEST_F(NodeReferenceTest, AMillionToOneNodeAreCutInAnyOrder) {
    constexpr unsigned long count = 1'000'000;
    Input& list = *target_.createArray("list", AttrType::Node);
    list.appendElements(count);
    std::vector<Input*> inputs;
    for (unsigned long i = 0; i < count; ++i) {
        inputs.push_back(list.inputAt(i));
        inputs.back()->setNode(&source_);
    }
    std::shuffle(inputs.begin(), inputs.end(), std::mt19937(2));
    for (Input* input : inputs)
        input->setNode(nullptr);
    EXPECT_TRUE(source_.referring().isEmpty());
}

// --- walking the inputs of a node

Names walk(const Node& node) {
    Names paths;
    for (const Input* at = node.inputAt(0); at; at = at->nextInNode())
        paths.push_back(str(at->fullName()));
    return paths;
}

TEST(InputWalkTest, VisitsWhatStandsInAnInputBeforeItsNeighbour) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    Input& outer = *node.createInput("outer", AttrType::Object);
    node.createInput("last", AttrType::Int);
    Input& inner = *outer.createInput("inner", AttrType::Object);
    outer.createInput("b", AttrType::Int);
    inner.createInput("a", AttrType::Int);
    Input& list = *outer.createArray("list", AttrType::Object);
    list.appendElements(2);
    list.inputAt(1)->createInput("x", AttrType::Int);
    list.inputAt(0)->createInput("y", AttrType::Int);
    EXPECT_EQ(walk(node), (Names{"n.outer", "n.outer.inner", "n.outer.inner.a", "n.outer.b",
                                 "n.outer.list", "n.outer.list[0]", "n.outer.list[0].y",
                                 "n.outer.list[1]", "n.outer.list[1].x", "n.last"}));
}

TEST(InputWalkTest, LeavesOutElementsThatNothingHasTouched) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    Input& list = *node.createArray("list", AttrType::Real);
    list.appendElements(10);
    list.inputAt(7);
    list.inputAt(2);
    EXPECT_EQ(walk(node), (Names{"n.list", "n.list[2]", "n.list[7]"}));
}

TEST(InputWalkTest, EndsWithTheNode) {
    Scene scene;
    Node& first = *scene.createNode("t", "first", "");
    first.createInput("x", AttrType::Int);
    scene.createNode("t", "second", "")->createInput("y", AttrType::Int);
    EXPECT_EQ(walk(first), Names{"first.x"});
}

TEST(InputWalkTest, OfANodeWithoutInputsVisitsNothing) {
    Scene scene;
    EXPECT_TRUE(walk(*scene.createNode("t", "n", "")).empty());
}

TEST(InputWalkTest, MayBeginInTheMiddle) {
    Scene scene;
    Node& node = *scene.createNode("t", "n", "");
    Input& object = *node.createInput("o", AttrType::Object);
    Input& leaf = *object.createInput("a", AttrType::Int);
    Input& last = *node.createInput("z", AttrType::Int);
    EXPECT_EQ(leaf.nextInNode(), &last);
    EXPECT_EQ(last.nextInNode(), nullptr);
}

// --- depth

// Runs `work` on a thread whose stack is as small as a host may make it.
void runOnSmallStack(const std::function<void()>& work) {
    constexpr std::size_t stackSize = std::size_t(256) * 1024;
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, stackSize), 0);
    const auto run = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_t thread{};
    void* const argument = const_cast<std::function<void()>*>(&work);
    ASSERT_EQ(pthread_create(&thread, &attributes, run, argument), 0);
    EXPECT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

constexpr unsigned long deepest = 1'000'000;

// Objects in objects; the innermost.
Input* nestObjects(Node& node) {
    Input* at = node.createInput("o", AttrType::Object);
    for (unsigned long depth = 1; depth < deepest; ++depth)
        at = at->createInput("o", AttrType::Object);
    return at;
}

// Arrays in arrays, each of one element; the innermost.
Input* nestArrays(Node& node) {
    Input* at = node.createArray("o", AttrType::Array);
    for (unsigned long depth = 1; depth < deepest; ++depth) {
        at->set(AttrData::declareArray(AttrType::Array));
        at->appendElement();
        at = at->inputAt(0);
    }
    return at;
}

TEST(DeepSceneTest, AMillionObjectsAreBuiltAndDestroyedOnASmallStack) {
    runOnSmallStack([] {
        Scene scene;
        ASSERT_NE(nestObjects(*scene.createNode("t", "n", "")), nullptr);
    });
}

TEST(DeepSceneTest, AMillionArraysAreBuiltAndDestroyedOnASmallStack) {
    runOnSmallStack([] {
        Scene scene;
        ASSERT_NE(nestArrays(*scene.createNode("t", "n", "")), nullptr);
        ASSERT_EQ(scene.elementCount(), deepest - 1);
    });
}

TEST(DeepSceneTest, AMillionLevelsAreRemovedAndPurgedOnASmallStack) {
    runOnSmallStack([] {
        Scene scene;
        nestObjects(*scene.createNode("t", "objects", ""));
        nestArrays(*scene.createNode("t", "arrays", ""));
        scene.removeNode("objects");
        scene.removeNode("arrays");
        scene.purgeRemoved();
        ASSERT_EQ(scene.elementCount(), 0U);
    });
}

TEST(DeepSceneTest, AMillionLevelsAreWalkedOnASmallStack) {
    runOnSmallStack([] {
        Scene scene;
        Node& node = *scene.createNode("t", "n", "");
        const Input* const innermost = nestObjects(node);
        const Input* const neighbour = node.createInput("neighbour", AttrType::Int);
        ASSERT_EQ(innermost->nextInNode(), neighbour);
        unsigned long count = 0;
        for (const Input* at = node.inputAt(0); at; at = at->nextInNode())
            ++count;
        ASSERT_EQ(count, deepest + 1);
    });
}

TEST(DeepSceneTest, AMillionLevelsAreNamedOnASmallStack) {
    runOnSmallStack([] {
        Scene scene;
        const String objects = nestObjects(*scene.createNode("t", "n", ""))->fullName();
        ASSERT_EQ(objects.len(), 500);
        ASSERT_EQ(objects.view().substr(0, 7), "n.o.o.o");
        const String arrays = nestArrays(*scene.createNode("t", "m", ""))->fullName();
        ASSERT_EQ(arrays.len(), 500);
        ASSERT_EQ(arrays.view().substr(0, 9), "m.o[0][0]");
    });
}

TEST(DeepSceneTest, AMillionLinkedNodesAreDestroyedOnASmallStack) {
    runOnSmallStack([] {
        Scene scene;
        Node* previous = scene.createNode("t", "first", "");
        for (unsigned long i = 0; i < deepest; ++i) {
            Node* const node = scene.createNode("t", String(i), "");
            node->createInput("in", AttrType::Real)->connect(previous->output("out"));
            previous = node;
        }
        ASSERT_EQ(scene.nodeCount(), deepest + 1);
    });
}

// --- threads

void onThreads(const std::function<void(unsigned)>& work) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

void fillScene(Scene& scene, const std::vector<String>& names) {
    NodeType type("thread_test_sphere");
    type.input("radius", AttrData::ofReal(1)).output("out").renameInput("r", "radius");
    scene.registerType(std::move(type));
    Node* previous = nullptr;
    for (const String& name : names) {
        Node& node = *scene.createNode("thread_test_sphere", name, name);
        Input& list = *node.createArray("list", AttrType::Buffer);
        list.appendElements(3);
        list.inputAt(1)->assign(AttrData::ofBuffer(DataType::Float, 8));
        if (previous) node.input("radius")->connect(previous->output("out"));
        previous = &node;
    }
    scene.removeNode(names.front());
}

// The scenes share texts, the rename table and nothing else.
TEST(SceneThreadTest, EachThreadMayHaveASceneOfItsOwn) {
    std::vector<String> names;
    for (unsigned long i = 0; i < 500; ++i)
        names.push_back(numbered("node", i));
    std::array<unsigned long, 4> counts{};
    onThreads([&](unsigned thread) {
        Scene scene;
        fillScene(scene, names);
        counts.at(thread) = scene.nodeCount();
    });
    EXPECT_EQ(counts, (std::array<unsigned long, 4>{499, 499, 499, 499}));
}

// Of some megabytes each; inputs that are held beyond their scenes go when others take their place.
TEST(SceneThreadTest, LargeScenesTakeThePlaceOfOthersInAnyThread) {
    constexpr unsigned long nodeCount = 20'000;
    std::string document;
    for (unsigned long i = 0; i < nodeCount; ++i)
        document += "t n" + std::to_string(i) + ": .a = 1; .b = \"text\"; .c |= n0.out;\n";
    const String text{std::string_view(document)};
    std::array<unsigned long, 4> sums{};
    onThreads([&](unsigned thread) {
        RefersTo<Input> held;
        for (int round = 0; round < 3; ++round) {
            Scene scene;
            parseString(&scene, text);
            for (Node* const node : scene.nodes()) {
                const bool isWhole = node->input("b")->asText() == "text" &&
                                     node->input("c")->connection()->name() == "out";
                sums.at(thread) +=
                    isWhole ? static_cast<unsigned long>(node->input("a")->asInt()) : 0;
            }
            held = RefersTo<Input>(scene.findNode("n7")->input("b"));
        }
        sums.at(thread) += held->asText() == "text" && held->name() == "b" ? 1 : 0;
    });
    constexpr unsigned long sum = 3 * nodeCount + 1;
    EXPECT_EQ(sums, (std::array<unsigned long, 4>{sum, sum, sum, sum}));
}

TEST(SceneThreadTest, ASceneMayBeHandedToAnotherThread) {
    Scene scene;
    std::thread([&] { scene.createNode("t", "made elsewhere", ""); }).join();
    EXPECT_NE(scene.findNode("made elsewhere"), nullptr);
}

TEST(SceneThreadTest, SeveralThreadsMayReadASceneThatNobodyChanges) {
    Scene scene;
    Input& list = *scene.createNode("t", "n", "")->createArray("list", AttrType::Int);
    list.appendElements(100);
    list.inputAt(50)->assign(AttrData::ofInt(5));
    std::array<long, 4> sums{};
    onThreads([&](unsigned thread) {
        const Scene& same = scene;
        const Input& read = *same.findNode("n")->input("list");
        for (unsigned long i = 0; i < read.inputCount(); ++i)
            if (const Input* const element = read.touchedAt(i)) sums.at(thread) += element->asInt();
    });
    EXPECT_EQ(sums, (std::array<long, 4>{5, 5, 5, 5}));
}

TEST(SceneThreadTest, CountedReferencesMayBeTakenAndDroppedOnSeveralThreads) {
    RefersTo<Input> held;
    {
        Scene scene;
        held = RefersTo<Input>(scene.createNode("t", "n", "")->createInput("x", AttrType::String));
        held->assign(AttrData::ofText("text"));
    }
    onThreads([held](unsigned) {
        for (int i = 0; i < 10'000; ++i)
            const RefersTo<Input> copy(held);
    });
    EXPECT_EQ(held->asText(), "text");
}

// --- what a document leaves behind

class DocumentSceneTest : public testing::Test {
  protected:
    // Reads `text` into the scene and gives what was logged.
    Names read(const char* text) {
        const LogCapture log;
        parseString(&scene_, text);
        Names messages;
        for (const ko::LogRecord& record : log.records())
            messages.push_back(str(record.text));
        return messages;
    }

    Scene scene_;
};

TEST_F(DocumentSceneTest, NeedsNoRegisteredTypes) {
    EXPECT_EQ(read("mesh m:\n.color |= i.out;\n.list[2] = 3;\nimage i:\n"), Names{});
    const Node& mesh = *scene_.findNode("m");
    EXPECT_EQ(str(mesh.input("color")->connection()->fullName()), "i.out");
    EXPECT_EQ(mesh.input("list")->inputCount(), 3U);
}

TEST_F(DocumentSceneTest, UndeclaredInputsStaySoUntilTheyAreGivenANode) {
    EXPECT_EQ(read("t n:\n.a |= n.out;\n.b = null;\n.c = n;\n"), Names{});
    const Node& node = *scene_.findNode("n");
    EXPECT_EQ(node.input("a")->type(), AttrType::Null);
    EXPECT_NE(node.input("a")->connection(), nullptr);
    EXPECT_EQ(node.input("b")->type(), AttrType::Null);
    EXPECT_EQ(node.input("c")->type(), AttrType::Node);
    EXPECT_EQ(node.input("c")->nodeReference(), &node);
}

TEST_F(DocumentSceneTest, KeepsTypeAndValueOfAnInputThatIsConnected) {
    EXPECT_EQ(read("t n:\n.a = 5;\n.a |= n.out;\n"), Names{});
    const Input& input = *scene_.findNode("n")->input("a");
    EXPECT_EQ(input.asInt(), 5);
    EXPECT_NE(input.connection(), nullptr);
}

// The element stands for an object, the array for arrays: a check of what the index step reached
// would be a type error.
TEST_F(DocumentSceneTest, DoesNotCheckWhatAnIndexStepReaches) {
    Input& list = *scene_.createNode("t", "n", "")->createInput("list", AttrType::Array);
    list.appendElement();
    list.inputAt(0)->createInput("child", AttrType::Int);
    list.set(AttrData::declareArray(AttrType::Array));
    EXPECT_EQ(read("n.list[0][1] = 2;\n"),
              Names{"PARSE ERROR (1,16): input 'n.list[0][1]' not found.."});
    EXPECT_EQ(list.inputAt(0)->inputCount(), 1U);
}

TEST_F(DocumentSceneTest, StopsTheWalkWhereAStepYieldsNoInput) {
    Node& node = *scene_.createNode("t", "n", "");
    Input& list = *node.createInput("list", AttrType::Array);
    list.appendElement();
    list.inputAt(0)->setNode(&node);
    list.set(AttrData::declareArray(AttrType::Object));
    EXPECT_EQ(read("n.list[0].b.c = 2;\n"),
              Names{"PARSE ERROR (1,17): input 'n.list[0].b.c' not found.."});
    EXPECT_EQ(list.inputAt(0)->inputCount(), 0U);
}

TEST_F(DocumentSceneTest, AppendsNothingWhenAnIndexWouldPassTheElementLimit) {
    scene_.setElementLimit(3);
    EXPECT_EQ(read("t n:\n.list[1] = 1;\n.list[3] = 1;\n"), Names{"array too large: n.list"});
    EXPECT_EQ(scene_.findNode("n")->input("list")->inputCount(), 2U);
    EXPECT_EQ(read("n.list[2] = 1;\n"), Names{});
    EXPECT_EQ(read("n.list[*] = 1;\n"), Names{"array too large: n.list"});
    EXPECT_EQ(scene_.elementCount(), 3U);
}

// What waits for the end of a document holds the input, and lets go of it with the parser.
TEST_F(DocumentSceneTest, LeavesNoReferenceOnTheInputsThatItLinked) {
    EXPECT_EQ(read("t n:\n.a |= n.out;\n.b = n;\n"), Names{});
    scene_.removeNode("n");
    scene_.purgeRemoved();
    EXPECT_EQ(scene_.nodeCount(), 0U);
}

TEST_F(DocumentSceneTest, MayRemoveANodeThatAStatementWaitsFor) {
    EXPECT_EQ(read("t n:\n.a |= m.out;\n.b = m;\nt m:\n.c |= m.out;\nremove n;\n"), Names{});
    EXPECT_EQ(scene_.findNode("n"), nullptr);
    scene_.purgeRemoved();
    EXPECT_EQ(pathsOf(scene_.findNode("m")->findOutput("out")->connected()), Names{"m.c"});
    EXPECT_TRUE(scene_.findNode("m")->referring().isEmpty());
}

TEST_F(DocumentSceneTest, KeepsTheValueOfAnInputThatAnotherDoesNotFit) {
    EXPECT_EQ(read("t n:\n.a = 1;\n.a = \"text\";\n.a = float[1] {1};\n").size(), 2U);
    EXPECT_EQ(scene_.findNode("n")->input("a")->asInt(), 1);
}

TEST(NoSceneTest, OnlyAnEmptyDocumentIsReadIntoIt) {
    const LogCapture log;
    EXPECT_TRUE(parseString(nullptr, ""));
    EXPECT_TRUE(log.records().empty());
    EXPECT_FALSE(parseString(nullptr, "# comment\n"));
    EXPECT_FALSE(parseString(nullptr, "t n:\n"));
    ASSERT_EQ(log.records().size(), 2U);
    for (const ko::LogRecord& record : log.records())
        EXPECT_TRUE(record.text.endsWith("no scene to read into.", false)) << str(record.text);
}

// --- the limit of bytes in a buffer

TEST_F(DocumentSceneTest, BuffersAreNotLimitedUnlessALimitIsSet) {
    EXPECT_EQ(scene_.bufferLimit(), ~0UL);
    scene_.setBufferLimit(5);
    EXPECT_EQ(scene_.bufferLimit(), 5U);
}

TEST_F(DocumentSceneTest, BuffersMayBeAsLargeAsTheLimit) {
    scene_.setBufferLimit(12);
    EXPECT_EQ(read("t n:\n.b = float[3] {1 2 3};\n.e = float[0] {};\n"), Names{});
    EXPECT_EQ(scene_.findNode("n")->input("b")->asBuffer().bytes, 12U);
}

TEST_F(DocumentSceneTest, LargerBuffersAreRefusedWithTheirCountInFull) {
    const struct {
        const char* what;
        unsigned long limit;
        const char* count;
    } rows[] = {
        {"one past the limit", 11, "[3]"},
        {"no bytes allowed", 0, "[1]"},
        {"a byte size past 64 bits", ~0UL, "[4611686018427387904]"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Scene scene;
        scene.setBufferLimit(row.limit);
        const LogCapture log;
        const String text = String("t n:\n.b = float") + row.count + " {1};\n";
        EXPECT_FALSE(parseString(&scene, text));
        ASSERT_EQ(log.records().size(), 1U);
        const String message = String("invalid buffer element count: ") + row.count;
        EXPECT_TRUE(log.records()[0].text.contains(message, false)) << str(log.records()[0].text);
        EXPECT_EQ(scene.findNode("n")->inputCount(), 0U);
    }
}

}  // namespace
