// Large documents and deep ones: nothing here may take a time or a stack that grows faster than the
// document, so each has to end before the test's own time is up.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>
#include <ko/types.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <functional>
#include <string>

#include "reading.h"

namespace {

using ko::DataType;
using ko::LogCapture;
using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Scene;
using kvt::test::readBytes;
using kvt::test::readText;

constexpr int many = 100'000;

std::string repeated(const std::string& text, int times) {
    std::string result;
    result.reserve(text.size() * static_cast<unsigned long>(times));
    for (int i = 0; i < times; ++i)
        result += text;
    return result;
}

// --- Depth

// Runs `action` on a thread with a stack of 256 KiB.
void runOnSmallStack(std::function<void()> action) {
    pthread_attr_t attributes;
    ASSERT_EQ(0, pthread_attr_init(&attributes));
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 256UL * 1024));
    pthread_t thread = {};
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, &attributes, run, &action));
    EXPECT_EQ(0, pthread_join(thread, nullptr));
    pthread_attr_destroy(&attributes);
}

// Reads, dumps and destroys the scene of a document, on a small stack and through both entry
// points.
void expectReading(const std::string& document, const std::string& log) {
    for (const bool asFile : {false, true}) {
        std::string found;
        unsigned long dumped = 0;
        runOnSmallStack([&] {
            Scene scene;
            kvt::test::registerNodeTypes(scene);
            const auto reading = asFile ? readBytes(&scene, document) : readText(&scene, document);
            found = reading.log;
            dumped = kvt::test::jsonOf(scene, reading.ok).size();
            scene.removeNode("n");
            scene.purgeRemoved();
        });
        EXPECT_TRUE(log == found) << found.substr(0, 200);
        EXPECT_LT(0U, dumped);
    }
}

TEST(SmallStack, HoldsAnyStatement) {
    expectReading(R"(# version: 1
t n: .b = true; .i = -5; .s = "text"; .m = mat4(1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1);
.buffer = vec3f[2] {0 0 0 1 1 1}; .bytes = byte[4] {.01020304}; .o.a[2].x = 1.5;
.c |= n.out; .r = n; define d; remove d; choice c: .mode = "fast";
)",
                  "ok\n");
}

TEST(SmallStack, HoldsAPathOfManySteps) {
    expectReading("t n: n" + repeated(".a", many) + " = 1;", "ok\n");
}

TEST(SmallStack, HoldsAPathOfManyIndices) {
    expectReading("t n: n.a" + repeated("[1]", many) + " = \"text\";", "ok\n");
}

TEST(SmallStack, HoldsMessagesAboutDeepInputs) {
    const std::string path = "n" + repeated(".a", many);
    const std::string document = "t n; " + path + " = 1; " + path + " = 2.5;";
    expectReading(document, "warning: TYPE WARNING (1," + std::to_string(document.size() - 1) +
                                "): narrowing Real to Int @ " + path + ".\nok\n");
}

TEST(SmallStack, HoldsAPathThatLeadsNowhere) {
    const std::string path = "n.q[0]" + repeated(".a", many);
    const std::string document = "t n: .q = null; " + path + " = 1;";
    expectReading(document, "error: PARSE ERROR (1," + std::to_string(document.size() - 1) +
                                "): input '" + path + "' not found..\nfailed\n");
}

TEST(SmallStack, HoldsManyNestedGroups) {
    const std::string open = repeated("(", many);
    const std::string close = repeated(")", many);
    expectReading("t n: .x = vec2(" + open + "1 2" + close + ");", "ok\n");
}

// --- Breadth

TEST(ManyNodes, AreRead) {
    std::string document;
    for (int i = 0; i < many; ++i) {
        const std::string name = "n" + std::to_string(i);
        document += "t " + name + ": .x = " + std::to_string(i) + ";\n";
    }
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ(static_cast<unsigned long>(many), scene.nodeCount());
    EXPECT_EQ(99'999, scene.findNode("n99999")->input("x")->asInt());
}

TEST(ManyNodes, AreRemoved) {
    std::string document;
    for (int i = 0; i < many; ++i)
        document += "t n" + std::to_string(i) + ";\n";
    for (int i = 0; i < many; ++i)
        document += "remove n" + std::to_string(i) + ";\n";
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ(0U, scene.nodeCount());
}

TEST(ManyNodes, AreDefinedAndSelected) {
    std::string document = "t n;\n";
    for (int i = 0; i < many; ++i)
        document += "define n; with n: .x = 1;\n";
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
}

TEST(ManyInputs, AreCreatedAndFound) {
    std::string document = "t n:\n";
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < many; ++i)
            document += ".x" + std::to_string(i) + " = 1; .o.x" + std::to_string(i) + " = 2;\n";
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ(static_cast<unsigned long>(many) + 1, scene.findNode("n")->inputCount());
}

TEST(ManyConnections, LeadToOneOutput) {
    std::string document = "t n:\n";
    for (int i = 0; i < many; ++i)
        document +=
            ".x" + std::to_string(i) + " |= source.out; .y" + std::to_string(i) + " = source;\n";
    document += "t source;\n";
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    Node* const source = scene.findNode("source");
    unsigned long connected = 0;
    for (const Input* const input : source->output("out")->connected())
        connected += input->connection() == source->output("out") ? 1 : 0;
    EXPECT_EQ(static_cast<unsigned long>(many), connected);
    scene.removeNode("source");
    EXPECT_EQ(nullptr, scene.findNode("n")->input("x5")->connection());
}

TEST(ManyConnections, LeadToManyOutputs) {
    std::string document;
    for (int i = 0; i < many; ++i) {
        const std::string number = std::to_string(i);
        const std::string next = std::to_string((i + 1) % many);
        document += "t n" + number + ": .x |= n" + next + ".out; .y |= n0.o" + number + "; .z = n" +
                    next + ";\n";
    }
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ("n0.out", scene.findNode("n99999")->input("x")->connection()->fullName().view());
    EXPECT_EQ("n0.o7", scene.findNode("n7")->input("y")->connection()->fullName().view());
    EXPECT_EQ(scene.findNode("n8"), scene.findNode("n7")->input("z")->nodeReference());
}

TEST(ManyConnections, OfOneInputLeaveTheLast) {
    std::string document = "t n:\n";
    for (int i = 0; i < many; ++i)
        document += ".x |= n.o" + std::to_string(i) + "; .x = n;\n";
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ("n.o99999", scene.findNode("n")->input("x")->connection()->fullName().view());
}

TEST(ManyElements, AreAppendedToAnArrayOfBuffers) {
    Scene scene;
    const std::string document = "t n:\n" + repeated(".b[*] = float[1] {1};\n", 2 * many);
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    Input* const array = scene.findNode("n")->input("b");
    ASSERT_EQ(2UL * many, array->inputCount());
    EXPECT_EQ(1, array->inputAt(2UL * many - 1)->asBufferOf<float>()[0]);
}

TEST(ManyElements, AreDeclaredByTheFirstBuffer) {
    Scene scene;
    const std::string document =
        "t n: .b[199999] = float[1] {1};\n" + repeated(".b[7] = float[1] {2};\n", many);
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ(DataType::Float, scene.findNode("n")->input("b")->inputAt(100)->bufferType());
}

TEST(ManyElements, AreAppendedToArraysInArrays) {
    Scene scene;
    const std::string document = "t n:\n" + repeated(".a[*][*] = 1; .o[*].x = 1;\n", many);
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ(static_cast<unsigned long>(many), scene.findNode("n")->input("a")->inputCount());
}

// --- Size

TEST(LongTexts, AreRead) {
    constexpr unsigned long size = 100'000'000;
    std::string document = "t n; n.x = \"";
    document.append(size, 'x');
    document += "\";";
    Scene scene;
    {
        const String text{std::string_view(document)};
        std::string().swap(document);
        EXPECT_TRUE(parseString(&scene, text));
    }
    const std::string_view found = scene.findNode("n")->input("x")->asText();
    EXPECT_EQ(size, found.size());
    EXPECT_EQ(std::string_view::npos, found.find_first_not_of('x'));
}

TEST(LongTexts, AreRefusedWithAShortMessage) {
    Scene scene;
    const std::string text(1'000'000, 'x');
    EXPECT_EQ(
        "error: TYPE ERROR (1,1000028): expected Object @ n.o but found \"xxxxxxxxxxxxxxxxxxx"
        "....\nok\n",
        readText(&scene, "t n: n.o.x = 1; n.o = \"" + text + "    \";").log);
}

TEST(LongBuffers, AreRead) {
    constexpr int numbers = 3'000'000;
    Scene scene;
    EXPECT_EQ(
        "ok\n",
        readText(&scene, "t n; n.x = vec3f[1000000] {" + repeated("0.5 ", numbers) + "};").log);
    EXPECT_EQ(0.5F, scene.findNode("n")->input("x")->asBufferOf<float>()[numbers - 1]);
}

// --- Messages

unsigned long messagesOf(const std::string& document) {
    unsigned long count = 0;
    const LogCapture capture([&count](const LogRecord&) { ++count; });
    Scene scene;
    EXPECT_TRUE(parseString(&scene, String(std::string_view(document))));
    return count;
}

TEST(ManyMessages, AreLogged) {
    EXPECT_EQ(static_cast<unsigned long>(many),
              messagesOf("t n: .x = 1;\n" + repeated(".x = 2.5;\n", many)));
    EXPECT_EQ(static_cast<unsigned long>(many),
              messagesOf("t n: .x = 1;\n" + repeated(".x = \"a\";\n", many)));
    EXPECT_EQ(static_cast<unsigned long>(many), messagesOf(repeated("# version: x\n", many)));
}

TEST(ManyMessages, AreLoggedAtTheEnd) {
    std::string document = "t n:\n";
    for (int i = 0; i < many; ++i)
        document += ".x" + std::to_string(i) + " |= gone.out; .y" + std::to_string(i) +
                    " = gone; .z" + std::to_string(i) + " |= .q;\n";
    EXPECT_EQ(3UL * many, messagesOf(document));
}

}  // namespace
