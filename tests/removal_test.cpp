// The ends of things: removed nodes, purging, counted references that outlive their node.

#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bytes.h"
#include "reading.h"

namespace {

using ko::DataType;
using ko::RefersTo;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using ko::mirel_sdk::interfaces::IInput;
using kvt::test::readText;

// The characters, NULs included, as assertions compare and print them.
std::string str(const String& text) { return std::string(text.view()); }

using Names = std::vector<std::string>;

Names namesOf(const Scene& scene) {
    Names names;
    for (const Node* node : scene.nodes())
        names.push_back(str(node->name()));
    return names;
}

// Two nodes that stay and one that goes.
class RemovalTest : public testing::Test {
  protected:
    Input& input(Node& node, const char* name, AttrType type = AttrType::Real) {
        return *node.createInput(name, type);
    }
    void remove() { scene_.removeNode("gone"); }

    Scene scene_;
    Node& stays_ = *scene_.createNode("t", "stays", "");
    Node& gone_ = *scene_.createNode("t", "gone", "");
    Node& other_ = *scene_.createNode("t", "other", "");
};

// --- the scene's lists

TEST_F(RemovalTest, TakesTheNodeOutOfIndexAndList) {
    remove();
    EXPECT_EQ(scene_.findNode("gone"), nullptr);
    EXPECT_EQ(namesOf(scene_), (Names{"stays", "other"}));
    EXPECT_EQ(scene_.nodeCount(), 2U);
    EXPECT_EQ(stays_.next(), &other_);
}

TEST_F(RemovalTest, KeepsTheOrderOfTheOthers) {
    const struct {
        Names removed;
        Names left;
    } rows[] = {
        {{"a"}, {"b", "c", "d"}},        {{"b"}, {"a", "c", "d"}}, {{"d"}, {"a", "b", "c"}},
        {{"b", "c"}, {"a", "d"}},        {{"d", "a"}, {"b", "c"}}, {{"c", "b", "d"}, {"a"}},
        {{"a", "b", "c", "d"}, Names{}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.removed));
        Scene scene;
        for (const char* const name : {"a", "b", "c", "d"})
            scene.createNode("t", name, "");
        for (const std::string& name : row.removed)
            scene.removeNode(String(name));
        EXPECT_EQ(namesOf(scene), row.left);
        scene.createNode("t", "new", "");
        Names grown = row.left;
        grown.push_back("new");
        EXPECT_EQ(namesOf(scene), grown);
    }
}

TEST_F(RemovalTest, IgnoresUnknownNames) {
    scene_.removeNode("nobody");
    scene_.removeNode("");
    remove();
    remove();
    EXPECT_EQ(namesOf(scene_), (Names{"stays", "other"}));
}

TEST_F(RemovalTest, TakesTheNodesOwnNameAsItsArgument) {
    scene_.removeNode(gone_.name());
    EXPECT_TRUE(gone_.isRemoved());
    EXPECT_EQ(scene_.findNode("gone"), nullptr);
}

TEST_F(RemovalTest, FreesTheNameForANewNode) {
    remove();
    const Node* const successor = scene_.createNode("t", "gone", "");
    ASSERT_NE(successor, nullptr);
    EXPECT_NE(successor, &gone_);
    EXPECT_EQ(scene_.findNode("gone"), successor);
    EXPECT_FALSE(successor->isRemoved());
    EXPECT_EQ(namesOf(scene_), (Names{"stays", "other", "gone"}));
}

TEST_F(RemovalTest, TakesDefinitionsToo) {
    const Node* const definition = scene_.defineNode("lamp");
    scene_.removeNode("lamp");
    EXPECT_EQ(scene_.findNode("lamp"), nullptr);
    EXPECT_TRUE(definition->isRemoved());
    EXPECT_NE(scene_.defineNode("lamp"), nullptr);
}

TEST_F(RemovalTest, OfManyNodesLeavesTheRest) {
    constexpr unsigned long count = 20'000;
    Scene scene;
    for (unsigned long i = 0; i < count; ++i)
        scene.createNode("t", String(i), "");
    for (unsigned long i = 0; i < count; i += 2)
        scene.removeNode(String(i));
    EXPECT_EQ(scene.nodeCount(), count / 2);
    unsigned long expected = 1;
    for (const Node* node : scene.nodes()) {
        ASSERT_EQ(str(node->name()), str(String(expected)));
        expected += 2;
    }
    scene.purgeRemoved();
    EXPECT_EQ(scene.nodeCount(), count / 2);
}

// A name is found from its node's creation to its removal, and no other is, while the index grows,
// closes gaps and takes names in again.
TEST_F(RemovalTest, AmongCreationsLeavesEveryNameFoundOrNot) {
    constexpr unsigned long names = 300;
    kvt::test::Random random(1);
    Scene scene;
    std::vector<Node*> expected(names, nullptr);
    for (int step = 0; step < 20'000; ++step) {
        const unsigned long i = random.below(step < 2'000 ? 40 : names);
        const String name(i);
        if (expected[i]) {
            scene.removeNode(name);
            expected[i] = nullptr;
        } else {
            expected[i] = scene.createNode("t", name, "");
            ASSERT_NE(nullptr, expected[i]);
        }
        ASSERT_EQ(expected[i], scene.findNode(name)) << step;
        const unsigned long other = random.below(names);
        ASSERT_EQ(expected[other], scene.findNode(String(other))) << step;
        ASSERT_EQ(nullptr, expected[other] ? scene.createNode("t", String(other), "") : nullptr);
    }
}

// --- what it cuts

TEST_F(RemovalTest, CutsConnectionsToTheNode) {
    Input& first = input(stays_, "a");
    Input& second = input(other_, "b");
    Output& output = *gone_.output("out");
    first.connect(&output);
    second.connect(&output);
    remove();
    EXPECT_EQ(first.connection(), nullptr);
    EXPECT_EQ(second.connection(), nullptr);
    EXPECT_TRUE(output.connected().isEmpty());
}

TEST_F(RemovalTest, CutsConnectionsFromTheNode) {
    Input& from = input(gone_, "in");
    Output& output = *stays_.output("out");
    from.connect(&output);
    remove();
    EXPECT_EQ(from.connection(), nullptr);
    EXPECT_TRUE(output.connected().isEmpty());
}

TEST_F(RemovalTest, CutsReferencesToTheNode) {
    Input& reference = input(stays_, "a", AttrType::Node);
    Input& value = input(other_, "b", AttrType::Int);
    reference.setNode(&gone_);
    value.setNode(&gone_);
    remove();
    EXPECT_EQ(reference.nodeReference(), nullptr);
    EXPECT_EQ(reference.type(), AttrType::Node);
    EXPECT_EQ(value.nodeReference(), nullptr);
    EXPECT_TRUE(gone_.referring().isEmpty());
}

TEST_F(RemovalTest, CutsReferencesFromTheNode) {
    Input& from = input(gone_, "in", AttrType::Node);
    from.setNode(&stays_);
    remove();
    EXPECT_EQ(from.nodeReference(), nullptr);
    EXPECT_TRUE(stays_.referring().isEmpty());
}

TEST_F(RemovalTest, CutsWhatStartsInObjectsAndArrays) {
    Input& object = input(gone_, "object", AttrType::Object);
    Input& child = *object.createInput("child", AttrType::Real);
    Input& list = *object.createArray("list", AttrType::Node);
    list.appendElements(3);
    child.connect(stays_.output("out"));
    list.inputAt(2)->setNode(&stays_);
    list.connect(other_.output("out"));
    remove();
    EXPECT_EQ(child.connection(), nullptr);
    EXPECT_TRUE(stays_.findOutput("out")->connected().isEmpty());
    EXPECT_TRUE(stays_.referring().isEmpty());
    EXPECT_TRUE(other_.findOutput("out")->connected().isEmpty());
}

TEST_F(RemovalTest, CutsTheLinksOfANodeToItself) {
    Input& loop = input(gone_, "loop", AttrType::Node);
    loop.connect(gone_.output("out"));
    loop.setNode(&gone_);
    remove();
    EXPECT_EQ(loop.connection(), nullptr);
    EXPECT_EQ(loop.nodeReference(), nullptr);
}

TEST_F(RemovalTest, LeavesTheLinksAmongTheOthers) {
    Input& kept = input(stays_, "kept", AttrType::Node);
    Output& output = *other_.output("out");
    kept.connect(&output);
    kept.setNode(&other_);
    input(gone_, "cut").connect(&output);
    remove();
    EXPECT_EQ(kept.connection(), &output);
    EXPECT_EQ(kept.nodeReference(), &other_);
    EXPECT_EQ(*output.connected().begin(), &kept);
    EXPECT_EQ(kept.nextConnected(), nullptr);
}

TEST_F(RemovalTest, LeavesTheValuesOfInputsThatItCuts) {
    Input& cut = input(stays_, "cut", AttrType::Int);
    cut.assign(AttrData::ofInt(5));
    cut.connect(gone_.output("out"));
    remove();
    EXPECT_EQ(cut.asInt(), 5);
}

// --- the removed node

TEST_F(RemovalTest, MarksTheNode) {
    EXPECT_FALSE(gone_.isRemoved());
    remove();
    EXPECT_TRUE(gone_.isRemoved());
    EXPECT_FALSE(stays_.isRemoved());
}

TEST_F(RemovalTest, LeavesTheNodeWithAllThatItHolds) {
    Input& text = input(gone_, "text", AttrType::String);
    text.assign(AttrData::ofText("kept"));
    gone_.output("out");
    remove();
    EXPECT_EQ(str(gone_.name()), "gone");
    EXPECT_EQ(str(gone_.type()), "t");
    EXPECT_EQ(gone_.input("text")->asText(), "kept");
    EXPECT_EQ(str(text.fullName()), "gone.text");
    EXPECT_EQ(text.owner(), &gone_);
    EXPECT_NE(gone_.findOutput("out"), nullptr);
}

TEST_F(RemovalTest, LeavesTheNodeUsable) {
    Input& before = input(gone_, "before", AttrType::Int);
    remove();
    EXPECT_TRUE(before.assign(AttrData::ofInt(3)));
    Input& after = input(gone_, "after", AttrType::Object);
    Input& list = *after.createArray("list", AttrType::String);
    list.appendElements(2);
    EXPECT_TRUE(list.inputAt(1)->assign(AttrData::ofText("text")));
    EXPECT_NE(gone_.output("new"), nullptr);
    EXPECT_EQ(str(list.inputAt(1)->fullName()), "gone.after.list[1]");
}

TEST_F(RemovalTest, LinksMadeSinceHoldUntilThePurge) {
    Input& to = input(stays_, "to", AttrType::Node);
    Input& from = input(gone_, "from", AttrType::Node);
    remove();
    to.connect(gone_.output("out"));
    to.setNode(&gone_);
    from.connect(stays_.output("out"));
    from.setNode(&stays_);
    EXPECT_EQ(to.connection()->node(), &gone_);
    EXPECT_EQ(to.nodeReference(), &gone_);
    EXPECT_EQ(from.connection()->node(), &stays_);
    EXPECT_EQ(from.nodeReference(), &stays_);
}

TEST_F(RemovalTest, IsUndoneNeitherByNamesakesNorByTheirRemoval) {
    remove();
    const Node* const successor = scene_.createNode("t", "gone", "");
    remove();
    EXPECT_TRUE(gone_.isRemoved());
    EXPECT_TRUE(successor->isRemoved());
    scene_.purgeRemoved();
    EXPECT_EQ(namesOf(scene_), (Names{"stays", "other"}));
}

// --- while nodes and inputs are walked

// The nodes that a walk visits while `change(node)` is done at each.
template <class Change>
Names visitedWhile(Scene& scene, Change change) {
    Names visited;
    for (const Node* const node : scene.nodes()) {
        visited.push_back(str(node->name()));
        change(visited.back());
    }
    return visited;
}

class NodeWalkTest : public testing::Test {
  protected:
    NodeWalkTest() {
        for (const char* const name : {"a", "b", "c", "d", "e"})
            scene_.createNode("t", name, "");
    }
    void removeAll(const Names& names) {
        for (const std::string& name : names)
            scene_.removeNode(name.c_str());
    }
    // What is visited when these nodes are removed at "b".
    Names visitedRemoving(const Names& names) {
        return visitedWhile(scene_, [&](const std::string& at) {
            if (at == "b") removeAll(names);
        });
    }

    Scene scene_;
};

TEST_F(NodeWalkTest, GoesOnWhenTheNodeAtHandIsRemoved) {
    EXPECT_EQ(visitedRemoving({"b"}), (Names{"a", "b", "c", "d", "e"}));
}

TEST_F(NodeWalkTest, GoesOnAfterTheNextNodeWhenThatIsRemoved) {
    EXPECT_EQ(visitedRemoving({"c"}), (Names{"a", "b", "d", "e"}));
}

TEST_F(NodeWalkTest, GoesOnAfterSeveralNodesRemovedInAnyOrder) {
    Names removed = {"a", "b", "c", "d"};
    do {
        Scene scene;
        for (const char* const name : {"a", "b", "c", "d", "e"})
            scene.createNode("t", name, "");
        const Names visited = visitedWhile(scene, [&](const std::string& at) {
            if (at != "b") return;
            for (const std::string& name : removed)
                scene.removeNode(name.c_str());
        });
        EXPECT_EQ(visited, (Names{"a", "b", "e"}));
        EXPECT_EQ(namesOf(scene), Names{"e"});
    } while (std::next_permutation(removed.begin(), removed.end()));
}

TEST_F(NodeWalkTest, EndsWhenAllFurtherNodesAreRemoved) {
    EXPECT_EQ(visitedRemoving({"e", "c", "d"}), (Names{"a", "b"}));
}

TEST_F(NodeWalkTest, VisitsNodesMadeAfterTheNextWasRemoved) {
    const Names visited = visitedWhile(scene_, [&](const std::string& at) {
        if (at != "d") return;
        scene_.removeNode("e");
        scene_.createNode("t", "new", "");
    });
    EXPECT_EQ(visited, (Names{"a", "b", "c", "d", "new"}));
}

TEST_F(NodeWalkTest, MayRemoveAndPurgeTheNodeAtHand) {
    const Names visited = visitedWhile(scene_, [&](const std::string& at) {
        scene_.removeNode(at.c_str());
        scene_.purgeRemoved();
    });
    EXPECT_EQ(visited, (Names{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(scene_.nodeCount(), 0U);
}

// Four inputs of one node that are connected to one output and refer to one node.
class LinkWalkTest : public RemovalTest {
  protected:
    LinkWalkTest() {
        for (const char* const name : {"a", "b", "c", "d"}) {
            Input& made = input(gone_, name, AttrType::Node);
            made.connect(output_);
            made.setNode(&other_);
        }
    }
    void disconnect(const Names& names) {
        for (const std::string& name : names)
            gone_.input(name.c_str())->disconnect();
    }
    // What is visited when these inputs are disconnected at "b".
    Names visitedDisconnecting(const Names& names) {
        Names visited;
        for (const Input* const at : output_->connected()) {
            visited.push_back(str(at->name()));
            if (visited.back() == "b") disconnect(names);
        }
        return visited;
    }

    Output* const output_ = stays_.output("out");
};

TEST_F(LinkWalkTest, GoesOnWhenTheInputAtHandIsDisconnected) {
    EXPECT_EQ(visitedDisconnecting({"b"}), (Names{"a", "b", "c", "d"}));
}

TEST_F(LinkWalkTest, GoesOnAfterTheNextInputWhenThatIsDisconnected) {
    EXPECT_EQ(visitedDisconnecting({"c"}), (Names{"a", "b", "d"}));
}

TEST_F(LinkWalkTest, DoesNotFollowTheNextInputToAnotherOutput) {
    Output* const elsewhere = stays_.output("elsewhere");
    Names visited;
    for (const Input* const at : output_->connected()) {
        visited.push_back(str(at->name()));
        if (visited.back() == "b") gone_.input("c")->connect(elsewhere);
    }
    EXPECT_EQ(visited, (Names{"a", "b", "d"}));
}

TEST_F(LinkWalkTest, MissesNoneWhenTheInputAtHandAndTheNextAreDisconnected) {
    EXPECT_EQ(visitedDisconnecting({"b", "c"}), (Names{"a", "b", "a", "d"}));
    EXPECT_EQ(visitedDisconnecting({"a"}), (Names{"a", "d"}));
}

TEST_F(LinkWalkTest, VisitsOtherNodesWhenTheNodeOfTheInputIsRemoved) {
    input(other_, "e").connect(output_);
    Names visited;
    for (const Input* const at : output_->connected()) {
        visited.push_back(str(at->fullName()));
        scene_.removeNode(at->owner()->name());
    }
    EXPECT_EQ(visited, (Names{"gone.a", "other.e"}));
}

TEST_F(LinkWalkTest, OfReferencesGoesOnAfterTheNextToo) {
    Names visited;
    for (const Input* const at : other_.referring()) {
        visited.push_back(str(at->name()));
        if (visited.back() == "a") gone_.input("b")->setNode(&stays_);
    }
    EXPECT_EQ(visited, (Names{"a", "c", "d"}));
}

// --- purging

using PurgeTest = RemovalTest;

TEST_F(PurgeTest, CutsLinksMadeSinceTheRemoval) {
    Input& to = input(stays_, "to", AttrType::Node);
    remove();
    to.connect(gone_.output("out"));
    to.setNode(&gone_);
    input(gone_, "from").connect(stays_.output("out"));
    input(gone_, "reference", AttrType::Node).setNode(&stays_);
    scene_.purgeRemoved();
    EXPECT_EQ(to.connection(), nullptr);
    EXPECT_EQ(to.nodeReference(), nullptr);
    EXPECT_TRUE(stays_.findOutput("out")->connected().isEmpty());
    EXPECT_TRUE(stays_.referring().isEmpty());
}

TEST_F(PurgeTest, CutsLinksAmongRemovedNodes) {
    remove();
    scene_.removeNode("other");
    input(gone_, "in").connect(other_.output("out"));
    input(other_, "in").connect(gone_.output("out"));
    input(gone_, "node", AttrType::Node).setNode(&other_);
    input(other_, "node", AttrType::Node).setNode(&gone_);
    scene_.purgeRemoved();
    EXPECT_EQ(namesOf(scene_), Names{"stays"});
}

TEST_F(PurgeTest, LeavesTheNodesOfTheScene) {
    Input& kept = input(stays_, "kept");
    kept.connect(other_.output("out"));
    scene_.purgeRemoved();
    EXPECT_EQ(namesOf(scene_), (Names{"stays", "gone", "other"}));
    EXPECT_EQ(kept.connection()->node(), &other_);
}

TEST_F(PurgeTest, MayBeAskedAgainAndAgain) {
    remove();
    scene_.purgeRemoved();
    scene_.purgeRemoved();
    scene_.removeNode("other");
    scene_.purgeRemoved();
    EXPECT_EQ(namesOf(scene_), Names{"stays"});
}

TEST_F(PurgeTest, HappensAtTheLatestWithTheScene) {
    remove();
    input(stays_, "to").connect(gone_.output("out"));
    input(gone_, "text", AttrType::String).assign(AttrData::ofText("freed with the scene"));
}

// --- elements of removed nodes

TEST_F(PurgeTest, GivesBackTheElementsThatRemovedNodesHeld) {
    Input& list = *gone_.createArray("list", AttrType::Array);
    list.appendElements(3);
    Input& inner = *list.inputAt(1);
    inner.set(AttrData::declareArray(AttrType::Int));
    inner.appendElements(4);
    stays_.createArray("list", AttrType::Int)->appendElements(2);
    EXPECT_EQ(scene_.elementCount(), 9U);
    remove();
    EXPECT_EQ(scene_.elementCount(), 9U);
    list.appendElement();
    EXPECT_EQ(scene_.elementCount(), 10U);
    scene_.purgeRemoved();
    EXPECT_EQ(scene_.elementCount(), 2U);
}

TEST_F(PurgeTest, MakesRoomUnderTheElementLimit) {
    scene_.setElementLimit(3);
    gone_.createArray("list", AttrType::Int)->appendElements(3);
    Input& list = *stays_.createArray("list", AttrType::Int);
    remove();
    EXPECT_THROW(list.appendElement(), std::runtime_error);
    scene_.purgeRemoved();
    list.appendElements(3);
    EXPECT_EQ(list.inputCount(), 3U);
}

TEST_F(PurgeTest, GivesBackTheElementsOfArraysThatAreStillReferredTo) {
    const RefersTo<Input> list(gone_.createArray("list", AttrType::Int));
    list->appendElements(5);
    list->inputAt(2);
    remove();
    scene_.purgeRemoved();
    EXPECT_EQ(scene_.elementCount(), 0U);
    EXPECT_EQ(list->inputCount(), 0U);
}

// --- counted references

using CountedInputTest = RemovalTest;

TEST_F(CountedInputTest, KeepsItsValueBeyondItsNode) {
    const RefersTo<Input> text(&input(gone_, "text", AttrType::String));
    const RefersTo<Input> data(&input(gone_, "data", AttrType::Buffer));
    const RefersTo<Input> matrix(&input(gone_, "matrix", AttrType::Mat4));
    text->assign(AttrData::ofText("kept"));
    data->assign(AttrData::ofBuffer(DataType::Float, 3));
    remove();
    scene_.purgeRemoved();
    EXPECT_EQ(str(text->name()), "text");
    EXPECT_EQ(text->asText(), "kept");
    EXPECT_EQ(data->asBuffer().count, 3U);
    EXPECT_EQ(matrix->asComponents()[15], 1);
}

TEST_F(CountedInputTest, KeepsItsValueBeyondItsScene) {
    auto scene = std::make_unique<Scene>();
    Node& node = *scene->createNode("t", "n", "");
    const RefersTo<Input> held(node.createInput("x", AttrType::String));
    held->assign(AttrData::ofText("kept"));
    scene.reset();
    EXPECT_EQ(held->asText(), "kept");
    EXPECT_TRUE(held->assign(AttrData::ofText("changed")));
    EXPECT_EQ(held->asText(), "changed");
}

TEST_F(CountedInputTest, KeepsItsNameBeyondItsScene) {
    auto scene = std::make_unique<Scene>();
    Node& node = *scene->createNode("t", "n", "");
    const RefersTo<Input> held(node.createInput("x", AttrType::Int));
    const RefersTo<Input> other(node.createInput("a_name_that_is_long_enough", AttrType::Int));
    scene.reset();
    EXPECT_EQ(held->name(), "x");
    EXPECT_EQ(other->name(), "a_name_that_is_long_enough");
    EXPECT_EQ(held->fullName(), ".x");
}

// Of a few children and of many, which are found by other means.
TEST_F(CountedInputTest, FindsNoChildBeyondItsNode) {
    for (const unsigned long count : {1UL, 8UL, 9UL, 100UL}) {
        SCOPED_TRACE(count);
        auto scene = std::make_unique<Scene>();
        Node& node = *scene->createNode("t", "n", "");
        const RefersTo<Input> held(node.createInput("x", AttrType::Object));
        for (unsigned long i = 0; i < count; ++i)
            held->createInput(String("c") + String(i), AttrType::Int);
        scene->removeNode("n");
        scene->purgeRemoved();
        EXPECT_EQ(held->inputCount(), 0U);
        for (unsigned long i = 0; i < count; ++i) {
            const String name = String("c") + String(i);
            EXPECT_EQ(held->input(name), nullptr);
            EXPECT_FALSE(held->container()->hasInput(name, AttrType::Null));
            EXPECT_EQ(held->createInput(name, AttrType::Int), nullptr);
        }
        scene.reset();
        EXPECT_EQ(held->input("c0"), nullptr);
    }
}

TEST_F(CountedInputTest, KeepsItsContainerSideBeyondItsNode) {
    auto scene = std::make_unique<Scene>();
    Node& node = *scene->createNode("t", "n", "");
    const RefersTo<Input> held(node.createInput("x", AttrType::Object));
    const RefersTo<Input> untouched(node.createInput("y", AttrType::Null));
    const RefersTo<Input> list(node.createArray("z", AttrType::Int));
    list->appendElement();
    auto* const before = held->container();
    before->createInput("c", AttrType::Int);
    scene.reset();
    for (auto* const container :
         {before, held->container(), untouched->container(), list->container()}) {
        EXPECT_EQ(container->inputCount(), 0U);
        EXPECT_EQ(container->inputAt(0), nullptr);
        EXPECT_EQ(container->createInput("c", AttrType::Int), nullptr);
    }
    EXPECT_EQ(before, held->container());
}

// One that has outlived its node may be connected to another scene, which ends too.
TEST_F(CountedInputTest, IsCutFromOtherScenesBeyondItsOwn) {
    auto own = std::make_unique<Scene>();
    const RefersTo<Input> held(own->createNode("t", "n", "")->createInput("x", AttrType::Null));
    own.reset();
    auto other = std::make_unique<Scene>();
    Node& target = *other->createNode("t", "m", "");
    held->connect(target.output("out"));
    held->setNode(&target);
    EXPECT_EQ(held->connection(), target.output("out"));
    EXPECT_EQ(held->nodeReference(), &target);
    other.reset();
    EXPECT_EQ(held->connection(), nullptr);
    EXPECT_EQ(held->nodeReference(), nullptr);
    EXPECT_NE(held->container() != nullptr, held->type() == AttrType::Node);
}

TEST_F(CountedInputTest, HasNeitherNodeNorLinksBeyondItsNode) {
    const RefersTo<Input> held(&input(gone_, "x", AttrType::Node));
    remove();
    held->connect(stays_.output("out"));
    held->setNode(&stays_);
    scene_.purgeRemoved();
    EXPECT_EQ(held->owner(), nullptr);
    EXPECT_EQ(held->connection(), nullptr);
    EXPECT_EQ(held->nodeReference(), nullptr);
    EXPECT_EQ(held->enumeration(), nullptr);
    EXPECT_EQ(held->nextInNode(), nullptr);
    EXPECT_TRUE(stays_.findOutput("out")->connected().isEmpty());
}

TEST_F(CountedInputTest, LosesItsChildrenWithItsNode) {
    const RefersTo<Input> object(&input(gone_, "object", AttrType::Object));
    object->createInput("child", AttrType::Int);
    remove();
    scene_.purgeRemoved();
    EXPECT_EQ(object->inputCount(), 0U);
    EXPECT_EQ(object->input("child"), nullptr);
}

TEST_F(CountedInputTest, GetsNeitherChildrenNorElementsBeyondItsNode) {
    const RefersTo<Input> object(&input(gone_, "object", AttrType::Object));
    const RefersTo<Input> undeclared(&input(gone_, "undeclared", AttrType::Null));
    const RefersTo<Input> list(gone_.createArray("list", AttrType::Int));
    remove();
    scene_.purgeRemoved();
    EXPECT_EQ(object->createInput("child", AttrType::Int), nullptr);
    EXPECT_EQ(undeclared->createArray("child", AttrType::Int), nullptr);
    EXPECT_EQ(undeclared->type(), AttrType::Null);
    list->appendElement();
    EXPECT_EQ(list->inputCount(), 0U);
}

TEST_F(CountedInputTest, MayBeAChildOrAnElement) {
    Input& object = input(gone_, "object", AttrType::Object);
    Input& list = *object.createArray("list", AttrType::Int);
    list.appendElements(3);
    const RefersTo<Input> child(&list);
    const RefersTo<Input> element(list.inputAt(1));
    element->assign(AttrData::ofInt(5));
    remove();
    scene_.purgeRemoved();
    EXPECT_EQ(child->parent(), nullptr);
    EXPECT_EQ(element->parent(), nullptr);
    EXPECT_EQ(element->asInt(), 5);
}

TEST_F(CountedInputTest, MayBeConnectedBeyondItsNode) {
    const RefersTo<Input> held(&input(gone_, "x", AttrType::Null));
    remove();
    scene_.purgeRemoved();
    held->connect(stays_.output("out"));
    held->setNode(&stays_);
    EXPECT_EQ(held->connection()->node(), &stays_);
    scene_.removeNode("stays");
    EXPECT_EQ(held->connection(), nullptr);
    EXPECT_EQ(held->nodeReference(), nullptr);
}

TEST_F(CountedInputTest, LeavesItsOutputWhenItsLastReferenceGoes) {
    Output& output = *stays_.output("out");
    {
        const RefersTo<Input> held(&input(gone_, "x"));
        remove();
        scene_.purgeRemoved();
        held->connect(&output);
        EXPECT_FALSE(output.connected().isEmpty());
    }
    EXPECT_TRUE(output.connected().isEmpty());
}

TEST_F(CountedInputTest, StaysInItsNodeWhenItsReferencesGo) {
    Input& counted = input(stays_, "x", AttrType::Int);
    {
        const RefersTo<Input> first(&counted);
        const RefersTo<Input> second(first);
    }
    EXPECT_EQ(stays_.input("x"), &counted);
    EXPECT_TRUE(counted.assign(AttrData::ofInt(1)));
}

TEST_F(CountedInputTest, MayBeHeldThroughTheInterface) {
    const RefersTo<IInput> held(&input(gone_, "x", AttrType::Int));
    remove();
    scene_.purgeRemoved();
    EXPECT_EQ(held->type(), AttrType::Int);
    EXPECT_EQ(str(held->typeName()), "Int");
    held->disconnect();
    held->setNode(nullptr);
}

TEST_F(CountedInputTest, OfARegisteredTypeForgetsItsEnumerationWithItsNode) {
    NodeType type("lamp");
    type.enumeration("quality", {"draft", "final"});
    scene_.registerType(std::move(type));
    const RefersTo<Input> held(scene_.createNode("lamp", "desk", "")->input("quality"));
    scene_.removeNode("desk");
    EXPECT_NE(held->enumeration(), nullptr);
    scene_.purgeRemoved();
    EXPECT_EQ(held->enumeration(), nullptr);
    EXPECT_EQ(held->asText(), "draft");
}

// --- removals by documents

// What a document still uses of a node that it, or another one, removes; the log that follows.
struct RemovalInDocuments {
    const char* what;
    std::vector<const char*> documents;
    const char* log;
};

const RemovalInDocuments removals[] = {
    {"the node of a block",
     {"t n: .x = 1; remove n; .x = 2.5; .a[3].y = \"text\"; .c |= n.out; .r = n;"},
     "warning: TYPE WARNING (1,31): narrowing Real to Int @ n.x.\n"
     "warning: Cannot connect nonexistent node n to n.c.\n"
     "warning: Cannot assign nonexistent node n to n.r.\nok\n"},
    {"the node of a block whose name is taken anew",
     {"t n: .x = 1; remove n; t n; .x = 2; n.x = 3.5; .c |= n.out; .r = n;"},
     "ok\n"},
    {"a definition", {"define d; remove d; with d: .x = 1; define d; remove d; remove d;"}, "ok\n"},
    {"the owner of pending inputs",
     {"t s; t n: .c |= s.out; .r = s; .a[1].c |= s.out; remove n;"},
     "ok\n"},
    {"what pending inputs refer to",
     {"t s; t n: .c |= s.out; .r = s; remove s;"},
     "warning: Cannot connect nonexistent node s to n.c.\n"
     "warning: Cannot assign nonexistent node s to n.r.\nok\n"},
    {"what pending inputs refer to, and made anew",
     {"t s; t n: .c |= s.out; .r = s; remove s; t s;"},
     "ok\n"},
    {"what an earlier document connected",
     {"t s; t n: .c |= s.out; .r = s; .a[1].c |= s.out;", "remove s; n.c |= null;"},
     "ok\nok\n"},
    {"what an earlier document connected from",
     {"t s; t n: .c |= s.out; .r = s; .a[1].c |= s.out;", "remove n; s.x |= s.out;"},
     "ok\nok\n"},
    {"itself, connected to itself", {"t n: .c |= n.out; .r = n;", "remove n;"}, "ok\nok\n"},
    {"a node within a failing document",
     {"t s; t n: .c |= s.out; remove s; .x = ;"},
     "error: BAD TOKEN (1,38): expected '(scalar|buffer|reference)', found ';'.\nfailed\n"},
};

TEST(RemovalInDocumentsTest, LeavesNothingThatReachesTheNode) {
    for (const RemovalInDocuments& row : removals) {
        SCOPED_TRACE(row.what);
        Scene scene;
        std::string log;
        for (const char* const document : row.documents)
            log += readText(&scene, document).log;
        EXPECT_EQ(row.log, log);
        scene.purgeRemoved();
        kvt::test::jsonOf(scene, true);
        EXPECT_EQ("ok\n", readText(&scene, "t n: .z |= n.z; t s: .z |= n.z;").log);
        EXPECT_EQ("ok\n", readText(&scene, "remove n; s.y |= s.z;").log);
        kvt::test::jsonOf(scene, true);
    }
}

// A statement that documents never reach on their own.
TEST(RemovalInDocumentsTest, OfADefinitionLeavesItForWith) {
    Scene scene;
    StringLexer lexer(String("define d; remove d; with d: .x = 1; "));
    KvtParser parser;
    parser.prime(&scene, &lexer);
    EXPECT_TRUE(parser.parseDefine());
    EXPECT_TRUE(parser.parseRemove());
    EXPECT_TRUE(parser.parseWith());
    EXPECT_TRUE(parser.parseAssign());
    ASSERT_NE(parser.withNode(), nullptr);
    EXPECT_TRUE(parser.withNode()->isRemoved());
    EXPECT_EQ(parser.withNode()->input("x")->asInt(), 1);
    EXPECT_EQ(scene.nodeCount(), 0U);
}

}  // namespace
