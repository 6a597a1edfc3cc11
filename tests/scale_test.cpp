// Large documents and deep ones: nothing here may take a time or a stack that grows faster than the
// document, so each has to end before the test's own time is up.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>
#include <ko/types.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

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

// --- Comments

// Whatever stands after them.
TEST(ManyComments, AreReadOnce) {
    const std::string comments = repeated("#\n", 20 * many);
    for (const char* const behind :
         {"remove n;", "# version: 1\nt n;", "define d;", "[", "t n;", ""}) {
        Scene scene;
        readText(&scene, "t n;\n" + comments + behind + std::string(200, ' '));
        EXPECT_LE(static_cast<unsigned long>(20 * many), scene.comments().size()) << behind;
    }
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
            dumped += kvt::test::textOf(scene, reading.ok).size();
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

// A full name as messages show it.
std::string shown(const std::string& name) {
    return name.substr(0, 300) + "..." + name.substr(name.size() - 197);
}

TEST(SmallStack, HoldsMessagesAboutDeepInputs) {
    const std::string path = "n" + repeated(".a", many);
    const std::string document = "t n; " + path + " = 1; " + path + " = 2.5;";
    expectReading(document, "warning: TYPE WARNING (1," + std::to_string(document.size() - 1) +
                                "): narrowing Real to Int @ " + shown(path) + ".\nok\n");
}

TEST(SmallStack, HoldsAPathThatLeadsNowhere) {
    const std::string path = "n.q[0]" + repeated(".a", many);
    const std::string document = "t n: .q = null; " + path + " = 1;";
    expectReading(document, "error: PARSE ERROR (1," + std::to_string(document.size() - 1) +
                                "): input '" + path + "' not found..\nfailed\n");
}

TEST(SmallStack, HoldsNamesOfMegabytes) {
    const std::string tail(4'000'000, 'x');
    const std::string node = "n" + tail;
    const std::string input = node + ".i" + tail;
    const std::string document = "t" + tail + " " + node + "; " + input + " = 1; " + input +
                                 " = 2.5; " + node + ".c |= " + node + ".o" + tail + "; " + input +
                                 " |= gone" + tail + ".o;";
    const unsigned long column = document.find("= 2.5;") + 5;
    expectReading(document, "warning: TYPE WARNING (1," + std::to_string(column) +
                                "): narrowing Real to Int @ " + shown(input) +
                                ".\nwarning: Cannot connect nonexistent node gone" + tail + " to " +
                                shown(input) + ".\nok\n");
}

TEST(SmallStack, HoldsManyNestedGroups) {
    const std::string open = repeated("(", many);
    const std::string close = repeated(")", many);
    expectReading("t n: .x = vec2(" + open + "1 2" + close + ");", "ok\n");
}

// --- Groups of nothing

struct GroupCase {
    const char* what;
    std::string document;
    const char* log;
};

std::vector<GroupCase> groupCases() {
    const std::string blanks = repeated(" \n\t", many);
    const std::string separators = repeated("[],", many);
    const std::string brackets(many, '[');
    const std::string parens = std::string(many, '(') + std::string(many, ')');
    return {
        {"blanks between", "t n: .x = vec2(1" + blanks + "2); .y = float[2] {1" + blanks + "2};",
         "ok\n"},
        {"separators between",
         "t n: .x = vec2(1" + separators + "2); .y = float[2] {1" + separators + "2};", "ok\n"},
        {"blanks around an index", "t n: .x[" + blanks + "1" + blanks + "] = 2;", "ok\n"},
        {"blanks around a count", "t n: .x = float[" + blanks + "1" + blanks + "] {1};", "ok\n"},
        {"brackets before an index", "t n: .x" + brackets + "1] = 2;", "ok\n"},
        {"blanks in an object", "t n: .x = {" + blanks + "};",
         "error: TYPE ERROR (100001,2): expected Object @ n.x but found {}.\nok\n"},
        {"brackets in an array", "t n: .x = " + brackets + "];",
         "error: TYPE ERROR (1,100011): expected Array @ n.x but found [[[[[[[[[[[[[[[[[[[[....\n"
         "ok\n"},
        {"no component", "t n: .x = vec2" + parens + ";",
         "error: BAD TOKEN (1,200014): expected '(scalar|buffer|reference)', found ';'.\nfailed\n"},
        {"no number", "t n: .x = float[1] {" + separators + "};",
         "warning: Too few elements (0) for float[1] buffer, remainder set to zero.\nok\n"},
        {"no end", "t n: .x = float[1] {" + blanks + std::string(many, '{'),
         "error: BAD TOKEN (1,18): expected ';', found '[1]'.\nfailed\n"},
        {"no bracket at the end", "t n: .x" + brackets,
         "error: PARSE ERROR (1,7): unrecognized token 'UNEXPECTED EOF while parsing BRACKETS'..\n"
         "failed\n"},
    };
}

TEST(SmallStack, HoldsGroupsOfNothing) {
    for (const GroupCase& each : groupCases()) {
        SCOPED_TRACE(each.what);
        expectReading(each.document, each.log);
    }
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

// Each is connected to the next one and refers to the first.
TEST(ManyNodes, AreRemovedInReverse) {
    std::string document;
    for (int i = 0; i < many; ++i)
        document += "t n" + std::to_string(i) + ": .c |= n" + std::to_string((i + 1) % many) +
                    ".out; .r = n0;\n";
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    std::string removals;
    for (int i = many; i-- > 1;)
        removals += "remove n" + std::to_string(i) + ";\n";
    EXPECT_EQ("ok\n", readText(&scene, removals).log);
    EXPECT_EQ(1U, scene.nodeCount());
    EXPECT_EQ(nullptr, scene.findNode("n0")->input("c")->connection());
    EXPECT_EQ(scene.findNode("n0"), scene.findNode("n0")->input("r")->nodeReference());
    scene.purgeRemoved();
    EXPECT_EQ("ok\n", readText(&scene, "t n1; n0.c |= n1.out;").log);
}

TEST(ManyNodes, AreRemovedUnderOneName) {
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, repeated("t n: .x = 1; remove n;\n", many)).log);
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

TEST(ManyConnections, AreReplacedByAnotherDocument) {
    std::string first = "t source; t n:\n";
    std::string second;
    for (int i = 0; i < many; ++i) {
        const std::string name = "x" + std::to_string(i);
        first += "." + name + " |= source.old;\n";
        second += "n." + name + " |= source.new;\n";
    }
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, first).log);
    EXPECT_EQ("ok\n", readText(&scene, second).log);
    Node* const source = scene.findNode("source");
    EXPECT_TRUE(source->output("old")->connected().isEmpty());
    const auto connected = source->output("new")->connected();
    EXPECT_EQ(many, std::distance(connected.begin(), connected.end()));
}

TEST(ManyElements, AreAppendedUntilTheLimit) {
    Scene scene;
    scene.setElementLimit(many);
    EXPECT_EQ("error: array too large: n.a\nfailed\n",
              readText(&scene, "t n:\n" + repeated(".a[*] = 1;\n", many + 1)).log);
    EXPECT_EQ(static_cast<unsigned long>(many), scene.findNode("n")->input("a")->inputCount());
    EXPECT_EQ("ok\n", readText(&scene, "n.a[99999] = 2;").log);
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

// --- Names that collide in weak hashes

// One of two pairs of letters for each bit of `number`. Where the pairs are alike, so are the names
// in every hash that multiplies by the same number and adds.
std::string twin(const char* zero, const char* one, int number) {
    std::string name;
    for (int bit = 0; bit < 17; ++bit)
        name += number >> bit & 1 ? one : zero;
    return name;
}

std::vector<std::string> permutations(std::string letters, int count) {
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.push_back(letters);
        std::next_permutation(letters.begin(), letters.end());
    }
    return names;
}

template <class Make>
std::vector<std::string> namesFrom(Make make) {
    std::vector<std::string> names;
    for (int i = 0; i < many / 2; ++i)
        names.push_back(make(i));
    return names;
}

// Each names a node and an input of one node.
void expectNamesToldApart(const std::vector<std::string>& names) {
    std::string document = "t all__:\n";
    for (const std::string& name : names)
        document += "t " + name + "; ." + name + " |= all__." + name + ";\n";
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, document).log);
    EXPECT_EQ(names.size() + 1, scene.nodeCount());
    Node* const all = scene.findNode("all__");
    EXPECT_EQ(names.size(), all->inputCount());
    EXPECT_EQ(names.size(), all->outputCount());
    for (const std::string& name : names) {
        const String text(name);
        ASSERT_NE(nullptr, scene.findNode(text));
        ASSERT_EQ(all->findOutput(text), all->input(text)->connection());
    }
}

TEST(CollidingNames, AreToldApart) {
    const std::string same(200, 'x');
    expectNamesToldApart(namesFrom([](int i) { return twin("Aa", "BB", i); }));
    expectNamesToldApart(namesFrom([](int i) { return twin("Ez", "FY", i); }));
    expectNamesToldApart(permutations("abcdefghij", many / 2));
    expectNamesToldApart(permutations("abcdefghijklmnopqrst", many / 2));
    expectNamesToldApart(namesFrom([&](int i) { return same + std::to_string(i); }));
    expectNamesToldApart(namesFrom([&](int i) { return "x" + std::to_string(i) + same; }));
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

TEST(LongTexts, AreComments) {
    const std::string comment = "#" + repeated("text: ", 11'000'000);
    Scene scene;
    EXPECT_EQ("ok\n", readText(&scene, comment + "\nt n;").log);
    ASSERT_EQ(1U, scene.comments().size());
    EXPECT_TRUE(scene.comments()[0].view() == comment);
    EXPECT_EQ(1U, scene.nodeCount());
}

TEST(LongTexts, AreResolved) {
    Scene scene;
    EXPECT_EQ("ok\n",
              readBytes(&scene, "t n: .x = \"" + repeated(R"(\\\x41)", 1'000'000) + "\";").log);
    EXPECT_TRUE(repeated("\\A", 1'000'000) == scene.findNode("n")->input("x")->asText());
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

TEST(LongBuffers, MayHoldLessThanTheyClaim) {
    constexpr unsigned long claimed = 1UL << 28;
    const std::string count = std::to_string(claimed);
    const std::string warning = "warning: Too few elements (1) for byte[" + count +
                                "] buffer, remainder set to zero.\nok\n";
    const struct {
        const char* data;
        std::string log;
    } rows[] = {{"{42}", warning}, {"{.2a}", "ok\n"}, {"{.+102a}", "ok\n"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.data);
        Scene scene;
        EXPECT_EQ(row.log, readText(&scene, "t n: .x = byte[" + count + "] " + row.data + ";").log);
        const ko::mirel_sdk::impl::BufferView buffer = scene.findNode("n")->input("x")->asBuffer();
        EXPECT_EQ(claimed, buffer.count);
        const auto* const bytes = static_cast<const unsigned char*>(buffer.data);
        EXPECT_EQ(42, bytes[0]);
        EXPECT_EQ(0, bytes[1]);
        EXPECT_EQ(0, bytes[claimed - 1]);
    }
}

TEST(LongNumbers, AreRead) {
    Scene scene;
    const std::string zeros(4'000'000, '0');
    const std::string sevens(4'000'000, '7');
    EXPECT_EQ("ok\n", readText(&scene, "t n: .i = " + zeros + "7; .r = 0." + sevens +
                                           "; .e = double[1] {1." + sevens + "e-" + zeros + "1};")
                          .log);
    const Node& node = *scene.findNode("n");
    EXPECT_EQ(7, node.input("i")->asInt());
    EXPECT_EQ(7.0 / 9, node.input("r")->asReal());
    EXPECT_EQ(0.17777777777777778, node.input("e")->asBufferOf<double>()[0]);
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
