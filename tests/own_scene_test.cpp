// Scenes of a program's own: the reader reaches them through their interface, and what they are
// asked is what they do. And removed nodes, which nobody purges while a document is read.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reading.h"

namespace {

using ko::RefersTo;
using ko::String;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::freePayload;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::interfaces::IInput;
using ko::mirel_sdk::interfaces::IScene;
using kvt::test::readText;

// Passes everything on to a scene, and keeps a line for each call that changes it.
class Forwarding : public IScene {
  public:
    explicit Forwarding(Scene& scene) : scene_(scene) {}

    void clearComments() override { scene_.clearComments(); }
    void setFileVersion(unsigned long version) override {
        calls.push_back("version " + std::to_string(version));
        scene_.setFileVersion(version);
    }
    void setFileTime(String time) override {
        calls.push_back("time " + std::string(time.view()));
        scene_.setFileTime(time);
    }
    void pushFileComment(String comment) override {
        calls.push_back("comment " + std::string(comment.view()));
        scene_.pushFileComment(comment);
    }
    Node* findNode(const String& name) const override { return scene_.findNode(name); }
    Node* createNode(String type, String name, String label) override {
        calls.push_back("create " + std::string((type + " " + name).view()));
        return scene_.createNode(type, name, label);
    }
    Node* defineNode(String name) override {
        calls.push_back("define " + std::string(name.view()));
        return scene_.defineNode(name);
    }
    void removeNode(const String& name) override {
        calls.push_back("remove " + std::string(name.view()));
        scene_.removeNode(name);
    }

    std::vector<std::string> calls;

  protected:
    Scene& scene_;
};

TEST(OwnScene, ThatForwardsYieldsWhatTheSceneYields) {
    for (const auto& document : kvt::test::documents()) {
        const std::string text = kvt::test::contents(document) + std::string(200, ' ');
        Scene expected;
        Scene found;
        kvt::test::registerNodeTypes(expected);
        kvt::test::registerNodeTypes(found);
        Forwarding own(found);
        const kvt::test::Reading byScene = readText(&expected, text);
        const kvt::test::Reading byOwn = readText(&own, text);
        EXPECT_EQ(byScene.ok, byOwn.ok) << document;
        EXPECT_EQ(byScene.log.size(), byOwn.log.size()) << document;
        EXPECT_EQ(kvt::test::jsonOf(expected, byScene.ok), kvt::test::jsonOf(found, byOwn.ok))
            << document;
    }
}

TEST(OwnScene, IsAskedForEachStatementInItsOrder) {
    Scene scene;
    Forwarding own(scene);
    const auto reading = readText(&own,
                                  "# version: 2\n# time: noon\nt n:\n.a = 1;\nt m;\nt n;\n"
                                  "define d;\nremove m;\n");
    EXPECT_EQ("ok\n", reading.log);
    const std::vector<std::string> expected = {
        "version 2",  "comment # version: 2", "time noon", "comment # time: noon",
        "create t n", "create t m",           "define d",  "remove m"};
    EXPECT_EQ(expected, own.calls);
}

// Takes no node of one type: those go to a scene beside it.
class Filtering final : public Forwarding {
  public:
    explicit Filtering(Scene& scene) : Forwarding(scene) {}

    Node* findNode(const String& name) const override {
        Node* const node = scene_.findNode(name);
        return node ? node : rest.findNode(name);
    }
    Node* createNode(String type, String name, String label) override {
        return (type == "light" ? rest : scene_).createNode(type, name, label);
    }

    Scene rest;
};

TEST(OwnScene, MayHandOutNodesOfAnother) {
    Scene scene;
    Filtering own(scene);
    const auto reading =
        readText(&own, "light l: .power = 2; mesh m: .x = 1; .lit |= l.out; l.size = 3;");
    EXPECT_EQ("ok\n", reading.log);
    EXPECT_EQ(1U, scene.nodeCount());
    const Node* const light = own.rest.findNode("l");
    ASSERT_TRUE(light);
    EXPECT_EQ(3, light->input("size")->asInt());
    EXPECT_EQ(light->findOutput("out"), scene.findNode("m")->input("lit")->connection());
}

// Refuses to make any node.
class Refusing final : public Forwarding {
  public:
    explicit Refusing(Scene& scene) : Forwarding(scene) {}
    Node* createNode(String, String, String) override { return nullptr; }
};

TEST(OwnScene, MayRefuseNodes) {
    Scene scene;
    Refusing own(scene);
    EXPECT_EQ("ok\n", readText(&own, "t n; t m: define d;").log);
    EXPECT_EQ("error: PARSE ERROR (1,11): 'with' node not set (input: .a).\nfailed\n",
              readText(&own, "t n: .a = 1; .b = 2;").log);
    EXPECT_EQ(1U, scene.nodeCount());
}

TEST(OwnScene, HasNoLimitsUnlessItSaysSo) {
    class Limited final : public Forwarding {
      public:
        explicit Limited(Scene& scene) : Forwarding(scene) {}
        unsigned long bufferLimit() const override { return 8; }
        unsigned long bufferTotalLimit() const override { return 10; }
    };
    Scene scene;
    scene.setBufferLimit(1);
    Forwarding unlimited(scene);
    EXPECT_EQ("ok\n", readText(&unlimited, "t n: .a = byte[2]{1 2};").log);
    Limited own(scene);
    EXPECT_EQ("ok\n", readText(&own, "t m: .a = byte[8]{1 2 3 4 5 6 7 8};").log);
    EXPECT_FALSE(readText(&own, "t m: .a = byte[9]{1};").ok);
    EXPECT_FALSE(readText(&own, "t m: .b = byte[8]{1}; .b = byte[3]{1};").ok);
}

TEST(OwnScene, IsHandedTheValuesThatNoInputTakes) {
    class Collecting final : public Forwarding {
      public:
        explicit Collecting(Scene& scene) : Forwarding(scene) {}
        void discard(const AttrData& data) noexcept override {
            if (data.text()) text = data.text();
            freePayload(data);
        }
        std::string text;
    };
    Scene scene;
    Collecting own(scene);
    EXPECT_TRUE(readText(&own, "t n: .a = 1; .a = \"no number\";").ok);
    EXPECT_EQ("no number", own.text);
}

// --- Removed nodes ------------------------------------------------------------------------------

// Nodes that are removed while something of them waits, while they are assigned to, and while their
// types are known.
constexpr const char* removing =
    "t n: .a |= m.o; .b = m; .c = 1; remove n; .d = 2; .e |= m.o; t m: .f |= n.o; .g = n;\n"
    "define k; k l: remove k; with k: .h = 1; remove l; .i |= l.o; m.j = \"said\"; m.j = 1;\n";

class Purging final : public Scene {
  public:
    void removeNode(const String& name) override {
        Scene::removeNode(name);
        purgeRemoved();
    }
};

class PurgingElsewhere final : public Forwarding {
  public:
    explicit PurgingElsewhere(Scene& scene) : Forwarding(scene) {}
    void removeNode(const String& name) override {
        scene_.removeNode(name);
        scene_.purgeRemoved();
    }
};

std::string outcomeOf(const Scene& scene, const kvt::test::Reading& reading) {
    return reading.log + kvt::test::jsonOf(scene, reading.ok);
}

std::string expectedOfRemoving() {
    Scene scene;
    const auto reading = readText(&scene, removing);
    return outcomeOf(scene, reading);
}

TEST(RemovedNodes, ArePurgedWhenTheReadingEndsByASceneThatPurges) {
    Purging scene;
    const auto reading = readText(&scene, removing);
    EXPECT_EQ(expectedOfRemoving(), outcomeOf(scene, reading));
}

TEST(RemovedNodes, ArePurgedWhenTheReadingEndsByAnotherScene) {
    Scene scene;
    PurgingElsewhere own(scene);
    const auto reading = readText(&own, removing);
    EXPECT_EQ(expectedOfRemoving(), outcomeOf(scene, reading));
}

// Where messages come in the middle and at the end of the document.
TEST(RemovedNodes, ArePurgedWhenTheReadingEndsByALogSink) {
    Scene scene;
    bool isRead = false;
    {
        const ko::LogCapture capture([&scene](const ko::LogRecord&) { scene.purgeRemoved(); });
        isRead = ko::mirel_sdk::impl::parseString(&scene, removing);
    }
    EXPECT_TRUE(isRead);
    EXPECT_EQ(1, scene.findNode("m")->input("j")->type() == ko::mirel_sdk::AttrType::String);
}

TEST(RemovedNodes, GoWhenTheReadingEndsAndNotBefore) {
    Scene scene;
    ASSERT_TRUE(ko::mirel_sdk::impl::parseString(&scene, "t n: .a = 1;"));
    const RefersTo<IInput> held(scene.findNode("n")->input("a"));
    const auto* const input = static_cast<const Input*>(held.get());
    {
        const ko::LogCapture capture([&](const ko::LogRecord&) {
            scene.purgeRemoved();
            EXPECT_TRUE(input->owner());
        });
        EXPECT_TRUE(
            ko::mirel_sdk::impl::parseString(&scene, "remove n; t m: .b = 1.5; .b = vec2(1 2);"));
    }
    EXPECT_FALSE(input->owner());
    scene.purgeRemoved();
}

// Also where a document is read from within the reading of another.
TEST(RemovedNodes, WaitForTheOutermostReading) {
    Scene scene;
    ASSERT_TRUE(ko::mirel_sdk::impl::parseString(&scene, "t n: .a = 1;"));
    const RefersTo<IInput> held(scene.findNode("n")->input("a"));
    const auto* const input = static_cast<const Input*>(held.get());
    {
        const ko::LogCapture capture([&](const ko::LogRecord&) {
            EXPECT_TRUE(ko::mirel_sdk::impl::parseString(&scene, "t o: .c = 1;"));
            scene.purgeRemoved();
            EXPECT_TRUE(ko::mirel_sdk::impl::parseString(&scene, "o.c = 2;"));
            EXPECT_TRUE(input->owner());
        });
        EXPECT_TRUE(
            ko::mirel_sdk::impl::parseString(&scene, "remove n; t m: .b = 1.5; .b = vec2(1 2);"));
    }
    EXPECT_FALSE(input->owner());
}

}  // namespace
