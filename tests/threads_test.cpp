// Eight threads at once, each with scenes of its own: they read the same texts, register types with
// renames and capture their messages.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "reading.h"

namespace {

using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Scene;
using kvt::test::collect;
using kvt::test::Reading;

constexpr int threadCount = 8;

// Does the work on all threads, which begin together; gives what each of them came to.
std::vector<std::string> onThreads(const std::function<std::string(int)>& work) {
    std::vector<std::string> results(threadCount);
    std::vector<std::thread> threads;
    std::atomic<int> missing{threadCount};
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&work, &missing, &result = results[static_cast<unsigned>(i)], i] {
            for (--missing; missing > 0;)
                std::this_thread::yield();
            result = work(i);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    return results;
}

std::string numbered(const std::string& name, int i) { return name + std::to_string(i); }

// Shares the text with everyone who reads it.
Reading readShared(Scene& scene, const String& text) {
    return collect([&scene, &text] { return parseString(&scene, text); });
}

std::vector<String> sharedTexts() {
    std::vector<String> texts;
    for (const char* folder : {KVT_TEST_DOCUMENTS, KVT_EXAMPLES})
        for (const std::filesystem::path& document : kvt::test::documents(folder))
            texts.emplace_back(std::string_view(kvt::test::contents(document)));
    return texts;
}

// The end of a document reports what it waited for in no fixed order.
std::string inOrder(const std::string& log) {
    std::istringstream stream(log);
    std::multiset<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.insert(line + '\n');
    return std::accumulate(lines.begin(), lines.end(), std::string());
}

// What comes of the texts, each in a scene of its own: all messages and dumps.
std::string outcomeOf(const std::vector<String>& texts) {
    std::string outcome;
    for (const String& text : texts) {
        Scene scene;
        kvt::test::addNodeTypes(scene);
        const Reading reading = readShared(scene, text);
        outcome += inOrder(reading.log) + kvt::test::jsonOf(scene, reading.ok);
    }
    return outcome;
}

TEST(Threads, ReadTheSameTextsIntoScenesOfTheirOwn) {
    const std::vector<String> texts = sharedTexts();
    ko::mirel_sdk::impl::clearRenames();
    const std::vector<std::string> outcomes =
        onThreads([&texts](int /*thread*/) { return outcomeOf(texts); });
    // Last, so that what is made once for all was made while the threads read.
    const std::string alone = outcomeOf(texts);
    for (const std::string& outcome : outcomes)
        EXPECT_TRUE(alone == outcome);
}

// Names what is wrong with the scene of a thread, which reads the inputs of all types by their old
// names but knows one type only; the renames of the others may be there or not.
std::string wrongIn(const Scene& scene, int thread) {
    std::string wrong;
    for (int i = 0; i < threadCount; ++i) {
        const Node& node = *scene.findNode(String(std::string_view(numbered("n", i))));
        const Input* const renamed = node.input("current");
        const Input* const input = renamed || i == thread ? renamed : node.input("old");
        if (!input || input->asReal() != i) wrong += numbered(" n", i);
        const bool isKnown = node.nodeType() != nullptr;
        if (isKnown != (i == thread)) wrong += numbered(" type of n", i);
    }
    return wrong;
}

TEST(Threads, RegisterTypesWhileTheyRead) {
    ko::mirel_sdk::impl::clearRenames();
    std::string document;
    for (int i = 0; i < threadCount; ++i)
        document +=
            numbered("t", i) + numbered(" n", i) + ":\n.old = " + std::to_string(i) + ".0;\n";
    const String text{std::string_view(document)};
    const std::vector<std::string> results = onThreads([&text](int thread) {
        std::string wrong;
        for (int round = 0; round < 100; ++round) {
            Scene scene;
            NodeType type{String(std::string_view(numbered("t", thread)))};
            type.input("current", AttrType::Real).renameInput("old", "current");
            type.output("out").renameOutput("former", "out");
            scene.registerType(std::move(type));
            wrong += readShared(scene, text).ok ? "" : " reading";
            wrong += wrongIn(scene, thread);
        }
        return wrong;
    });
    for (const std::string& wrong : results)
        EXPECT_EQ("", wrong);
}

// Everyone gets the messages about its own document, among those of the text that all share.
TEST(Threads, CaptureTheirOwnMessages) {
    std::atomic<int> strayed{0};
    const auto former = ko::setLogSink([&strayed](const LogRecord&) { ++strayed; });
    const String shared = "t n:\n.x = 1;\n.x = \"a\";\n.y |= missing.out;\n";
    const std::string sharedLog =
        "error: TYPE ERROR (3,8): expected Int @ n.x but found String.\n"
        "warning: Cannot connect nonexistent node missing to n.y.\nok\n";
    const std::vector<std::string> results = onThreads([&](int thread) {
        std::string wrong;
        const std::string own = numbered("own", thread);
        const std::string ownLog =
            "warning: Cannot connect nonexistent node lost to " + own + ".z.\nok\n";
        for (int round = 0; round < 200; ++round) {
            Scene scene;
            const Reading first = readShared(scene, shared);
            const Reading second = kvt::test::readText(&scene, "t " + own + ":\n.z |= lost.out;\n");
            if (first.log != sharedLog || second.log != ownLog) wrong += first.log + second.log;
        }
        return wrong;
    });
    ko::setLogSink(former);
    for (const std::string& wrong : results)
        EXPECT_EQ("", wrong);
    EXPECT_EQ(0, strayed);
}

TEST(Threads, ShareTheNamesOfTheirNodes) {
    const String type = "a type whose name is too long to stand in the string itself";
    const String name = "a node whose name is too long to stand in the string itself";
    const std::vector<std::string> results = onThreads([&](int /*thread*/) {
        unsigned long hashes = 0;
        for (int round = 0; round < 500; ++round) {
            Scene scene;
            const Node* const node = scene.createNode(type, name, name);
            if (scene.findNode(name) == node && node->type() == type) hashes ^= node->name().hash();
        }
        return std::to_string(hashes);
    });
    for (const std::string& result : results)
        EXPECT_EQ("0", result);
}

}  // namespace
