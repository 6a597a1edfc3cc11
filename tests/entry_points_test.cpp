// The two entry points: the header of the scene, what leaves them, documents read one after the
// other into one scene, and the limits of a scene.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>
#include <ko/types.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "reading.h"

namespace {

using ko::DataType;
using ko::File;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::KVX_FILE_VERSION_1;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::parseKvt;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using kvt::test::collect;
using kvt::test::jsonOf;
using kvt::test::readBytes;
using kvt::test::Reading;
using kvt::test::readText;

// In no fixed order, as warnings about references come.
std::multiset<std::string> linesOf(const std::string& log) {
    std::multiset<std::string> lines;
    std::istringstream in(log);
    for (std::string line; std::getline(in, line);)
        lines.insert(line);
    return lines;
}

std::vector<std::string> inputsAt(const Node& node, const char* output) {
    std::vector<std::string> names;
    for (const Input* const input : node.findOutput(output)->connected())
        names.emplace_back(input->name().view());
    return names;
}

TEST(EntryPoints, ConnectInTheOrderOfTheDocument) {
    std::string document = "t n:";
    std::vector<std::string> plain;
    std::vector<std::string> indexed;
    for (int i = 0; i < 300; ++i) {
        plain.push_back("x" + std::to_string(i));
        indexed.push_back("y" + std::to_string(i));
        document += "." + plain.back() + (i % 3 == 0 ? "|= n.out;" : "|= .n.out;");
        document += "." + indexed.back() + "|= n.out[0];";
    }
    Scene scene;
    EXPECT_TRUE(readText(&scene, document).ok);
    EXPECT_EQ(plain, inputsAt(*scene.findNode("n"), "out"));
    EXPECT_EQ(indexed, inputsAt(*scene.findNode("n"), "out[0]"));
}

// The entry points keep only the names of what waits for the end of a document, and a parser of
// one's own whole records: nobody can tell from the scene and the messages.
TEST(EntryPoints, ReadAsAParserOfOnesOwnDoes) {
    for (const auto& document : kvt::test::documents()) {
        const std::string text = kvt::test::contents(document);
        Scene scene;
        kvt::test::registerNodeTypes(scene);
        const Reading reading = readText(&scene, text);
        Scene expectedScene;
        kvt::test::registerNodeTypes(expectedScene);
        const Reading expected = collect([&] {
            KvtParser parser;
            StringLexer lexer{String(std::string_view(text))};
            return parser.parse(&expectedScene, &lexer);
        });
        EXPECT_EQ(linesOf(expected.log), linesOf(reading.log)) << document;
        EXPECT_EQ(jsonOf(expectedScene, expected.ok), jsonOf(scene, reading.ok)) << document;
    }
}

// --- The header

// Notes what is done to its header.
class NotingScene final : public Scene {
  public:
    void clearComments() override {
        notes += "clear;";
        Scene::clearComments();
    }
    void setFileVersion(unsigned long version) override {
        notes += "version " + std::to_string(version) + ";";
        Scene::setFileVersion(version);
    }
    void setFileTime(String time) override {
        notes += "time " + std::string(time.view()) + ";";
        Scene::setFileTime(std::move(time));
    }
    void pushFileComment(String comment) override {
        notes += std::string(comment.view()) + ";";
        Scene::pushFileComment(std::move(comment));
    }

    std::string notes;
};

constexpr const char* headerDocument = "# version: 7\n# time: now\n# end\n";
constexpr const char* headerNotes = "version 7;# version: 7;time now;# time: now;# end;";

TEST(Header, IsResetBeforeAFileIsRead) {
    NotingScene scene;
    EXPECT_EQ("ok\n", readBytes(&scene, "").log);
    EXPECT_EQ("clear;version 1;time ;", scene.notes);
    scene.notes.clear();
    EXPECT_EQ("ok\n", readBytes(&scene, headerDocument).log);
    EXPECT_EQ(std::string("clear;version 1;time ;") + headerNotes, scene.notes);
    EXPECT_EQ("ok\n", readBytes(&scene, "").log);
    EXPECT_EQ(KVX_FILE_VERSION_1, scene.fileVersion());
    EXPECT_EQ("", scene.fileTime().view());
    EXPECT_TRUE(scene.comments().empty());
}

TEST(Header, IsKeptWhenAsked) {
    NotingScene scene;
    EXPECT_EQ("ok\n", readBytes(&scene, headerDocument, true).log);
    EXPECT_EQ(headerNotes, scene.notes);
    EXPECT_EQ("ok\n", readBytes(&scene, "# more", true).log);
    EXPECT_EQ(7U, scene.fileVersion());
    EXPECT_EQ("now", scene.fileTime().view());
    EXPECT_EQ(4U, scene.comments().size());
}

TEST(Header, IsKeptByTexts) {
    NotingScene scene;
    EXPECT_EQ("ok\n", readText(&scene, headerDocument).log);
    EXPECT_EQ("ok\n", readText(&scene, "").log);
    EXPECT_EQ(headerNotes, scene.notes);
}

TEST(Header, IsResetBeforeAnExceptionLeaves) {
    NotingScene scene;
    readText(&scene, headerDocument);
    scene.notes.clear();
    EXPECT_EQ("thrown: INVALID TOKEN (1,0): '!'\n", readBytes(&scene, "!").log);
    EXPECT_EQ("clear;version 1;time ;", scene.notes);
    EXPECT_EQ("thrown: INVALID TOKEN (1,0): '!'\n", readBytes(&scene, "!", true).log);
    EXPECT_EQ("thrown: INVALID TOKEN (1,0): '!'\n", readText(&scene, "!").log);
    EXPECT_EQ("clear;version 1;time ;", scene.notes);
}

TEST(Header, OfNoSceneIsLeftAlone) {
    EXPECT_EQ("ok\n", readBytes(nullptr, "").log);
    EXPECT_EQ("ok\n", readText(nullptr, "").log);
    EXPECT_EQ("error: PARSE ERROR (0,0): no scene to read into.\nfailed\n",
              readBytes(nullptr, headerDocument).log);
}

// --- Sources

TEST(Files, AreReadFromBehindAByteOrderMark) {
    Scene scene;
    EXPECT_EQ("error: PARSE ERROR (1,10): node 'gone.x' not found .\nfailed\n",
              readBytes(&scene, "\xEF\xBB\xBFgone.x = 5;").log);
    Scene other;
    EXPECT_EQ("error: PARSE ERROR (1,13): node '\xEF\xBB\xBFgone.x' not found .\nfailed\n",
              readText(&other, "\xEF\xBB\xBFgone.x = 5;").log);
}

TEST(Files, AreReadWhereverTheirBlocksEnd) {
    std::string document = "t n:\n";
    for (int i = 0; document.size() < 300'000; ++i) {
        const std::string number = std::to_string(i);
        document += ".x" + number + " = \"text " + number + "\"; # comment\n";
    }
    const std::string path = testing::TempDir() + "kvt_blocks.kvt";
    std::ofstream(path, std::ios::binary) << document;
    Scene fromFile;
    const Reading reading =
        collect([&] { return parseKvt(&fromFile, File::open(path.c_str()), false); });
    std::remove(path.c_str());
    Scene fromText;
    EXPECT_EQ(readText(&fromText, document).log, reading.log);
    EXPECT_TRUE(jsonOf(fromText, true) == jsonOf(fromFile, reading.ok));
}

TEST(Files, ThatCannotBeReadAreEmpty) {
    Scene scene;
    EXPECT_EQ("ok\n", collect([&] { return parseKvt(&scene, File(), false); }).log);
    const File folder = File::open(KVT_TEST_DOCUMENTS);
    EXPECT_EQ("ok\n", collect([&] { return parseKvt(&scene, folder, false); }).log);
    EXPECT_EQ(File::IsDirectory, folder.error());
}

// --- One document after the other

// A scene and the log of what is read into it.
struct Reader {
    Reader() { kvt::test::registerNodeTypes(scene); }
    std::string read(const std::string& text) { return readText(&scene, text).log; }
    Input* input(const char* name) { return scene.findNode("n")->input(name); }

    Scene scene;
};

TEST(FurtherDocuments, AddToTheScene) {
    Reader r;
    EXPECT_EQ("ok\n", r.read("t n: .x = 1;"));
    EXPECT_EQ("ok\n", r.read("n.x = 2; u n: .y = 3;"));
    EXPECT_EQ(2, r.input("x")->asInt());
    EXPECT_EQ(3, r.input("y")->asInt());
    EXPECT_EQ("t", r.scene.findNode("n")->type().view());
}

TEST(FurtherDocuments, StartWithoutAWithNodeAndDefinitions) {
    Reader r;
    EXPECT_EQ("ok\n", r.read("t n: define n;"));
    EXPECT_EQ("error: PARSE ERROR (1,6): 'with' node not set (input: .x).\nfailed\n",
              r.read(".x = 1;"));
}

TEST(FurtherDocuments, FollowAnErrorOrAnException) {
    Reader r;
    r.read("t n: .x = 1; .y = 1e5; .z = 3;");
    EXPECT_EQ("thrown: INVALID TOKEN (1,0): '!'\n", r.read("!"));
    EXPECT_EQ("ok\n", r.read("n.y = 2;"));
    EXPECT_EQ(1, r.input("x")->asInt());
    EXPECT_EQ(2, r.input("y")->asInt());
    EXPECT_EQ(nullptr, r.input("z"));
}

TEST(FurtherDocuments, CutAndReplaceConnections) {
    Reader r;
    r.read("t n: .x |= n.a; .y |= n.a; .z |= n.a;");
    EXPECT_EQ("ok\n", r.read("n.x |= null; n.y |= n.b;"));
    EXPECT_EQ(nullptr, r.input("x")->connection());
    EXPECT_EQ("n.b", r.input("y")->connection()->fullName().view());
    EXPECT_EQ("n.a", r.input("z")->connection()->fullName().view());
}

TEST(FurtherDocuments, KeepWhatAnErrorDropsTheChangeOf) {
    Reader r;
    r.read("t n: .x |= n.a; .x = n;");
    EXPECT_EQ("error: PARSE ERROR (1,23): unrecognized token '5'..\nfailed\n",
              r.read("n.x |= null; n.x = null; 5"));
    EXPECT_EQ("n.a", r.input("x")->connection()->fullName().view());
    EXPECT_EQ(r.scene.findNode("n"), r.input("x")->nodeReference());
}

TEST(FurtherDocuments, KeepReferencesThatCannotBeReplaced) {
    Reader r;
    r.read("t n: .x |= n.a; .x = n;");
    EXPECT_EQ(
        "warning: Cannot connect nonexistent node gone to n.x.\n"
        "warning: Cannot assign nonexistent node gone to n.x.\nok\n",
        r.read("n.x |= gone.a; n.x = gone;"));
    EXPECT_EQ("n.a", r.input("x")->connection()->fullName().view());
    EXPECT_EQ(r.scene.findNode("n"), r.input("x")->nodeReference());
    EXPECT_EQ("warning: Invalid output: n.a.b.\nok\n", r.read("n.x |= n.a.b;"));
    EXPECT_EQ("n.a", r.input("x")->connection()->fullName().view());
}

TEST(FurtherDocuments, SetAReferenceToNone) {
    Reader r;
    r.read("t n: .x = n; .i = 5; .i = n;");
    EXPECT_EQ(AttrType::Node, r.input("x")->type());
    EXPECT_EQ("ok\n", r.read("n.x = null; n.i = NULL;"));
    EXPECT_EQ(nullptr, r.input("x")->nodeReference());
    EXPECT_EQ(AttrType::Node, r.input("x")->type());
    EXPECT_EQ(nullptr, r.input("i")->nodeReference());
    EXPECT_EQ(5, r.input("i")->asInt());
}

TEST(FurtherDocuments, MeetNodeInputs) {
    Reader r;
    r.read("t n: .x = n; .a[0][0] = n;");
    EXPECT_EQ("error: TYPE ERROR (1,7): expected Node @ n.x but found Int.\nok\n",
              r.read("n.x = 5;"));
    EXPECT_EQ("error: TYPE ERROR (1,9): cannot assign Object to Node @ n.x.\nfailed\n",
              r.read("n.x.y = 5;"));
    EXPECT_EQ("error: TYPE ERROR (1,10): cannot assign Array to Node @ n.x.\nfailed\n",
              r.read("n.x[0] = 5;"));
    // After an index there is no such check, and no input either.
    EXPECT_EQ("error: PARSE ERROR (1,15): input 'n.a[0][0].y' not found..\nfailed\n",
              r.read("n.a[0][0].y = 5;"));
}

// --- Elements of arrays

constexpr unsigned long limit = 10;

TEST(ElementLimit, HoldsForTheWholeScene) {
    Reader r;
    r.scene.setElementLimit(limit);
    EXPECT_EQ("ok\n", r.read("t n: .a[4] = 1; .b[*] = 2; .o[3].x = 3;"));
    EXPECT_EQ(limit, r.scene.elementCount());
    EXPECT_EQ("ok\n", r.read("n.a[4] = 5; n.b[0] = 6;"));
    EXPECT_EQ("error: array too large: n.a\nfailed\n", r.read("n.a[5] = 1;"));
    EXPECT_EQ("error: array too large: n.b\nfailed\n", r.read("n.b[*] = 1;"));
    EXPECT_EQ("error: array too large: n.o[3].y\nfailed\n", r.read("n.o[3].y[0] = 1;"));
    EXPECT_EQ(limit, r.scene.elementCount());
    EXPECT_EQ(5U, r.input("a")->inputCount());
    EXPECT_EQ(5, r.input("a")->inputAt(4)->asInt());
}

TEST(ElementLimit, IsExact) {
    for (const bool fits : {true, false}) {
        Reader r;
        r.scene.setElementLimit(limit);
        EXPECT_EQ(fits ? "ok\n" : "error: array too large: n.a\nfailed\n",
                  r.read(fits ? "t n: .a[9] = 1;" : "t n: .a[10] = 1;"));
        EXPECT_EQ(fits ? limit : 0, r.input("a")->inputCount());
    }
}

TEST(ElementLimit, IsPassedByTheLargestIndex) {
    Reader r;
    EXPECT_EQ("error: array too large: n.a\nfailed\n",
              r.read("t n: .a[2] = 1; .a[18446744073709551615] = 2;"));
    EXPECT_EQ(3U, r.input("a")->inputCount());
    r.scene.setElementLimit(~0UL);
    EXPECT_EQ("error: array too large: n.a\nfailed\n", r.read("n.a[18446744073709551615] = 2;"));
    EXPECT_THROW(r.read("n.a[18446744073709551610] = 2;"), std::bad_alloc) << "within the limit";
    EXPECT_EQ(3U, r.input("a")->inputCount());
}

TEST(ElementLimit, IsFourMillionUnlessSet) {
    Reader r;
    EXPECT_EQ("ok\n", r.read("t n: .a[4194303] = 7;"));
    EXPECT_EQ(4'194'304U, r.input("a")->inputCount());
    EXPECT_EQ(7, r.input("a")->inputAt(4'194'303)->asInt());
    EXPECT_EQ("error: array too large: n.a\nfailed\n", r.read("n.a[*] = 1;"));
}

TEST(ElementLimit, CountsWhatIsThereNow) {
    Reader r;
    r.scene.setElementLimit(limit);
    EXPECT_EQ("ok\n", r.read("t n: .a[9] = 1;"));
    r.scene.removeNode("n");
    r.scene.purgeRemoved();
    EXPECT_EQ(0U, r.scene.elementCount());
    EXPECT_EQ("ok\n", r.read("t n: .a[9] = 1;"));
}

// --- Bytes of buffers

TEST(BufferLimit, IsExact) {
    Reader r;
    r.scene.setBufferLimit(24);
    EXPECT_EQ("ok\n", r.read("t n: .a = vec3f[2] {1 2 3 4 5 6}; .b = byte[0] {};"));
    EXPECT_EQ("error: PARSE ERROR (1,18): invalid buffer element count: [3].\nfailed\n",
              r.read("n.a = vec3f[3] {1};"));
    EXPECT_EQ("error: PARSE ERROR (1,18): invalid buffer element count: [25].\nfailed\n",
              r.read("n.a = byte[25] {.};"));
    EXPECT_EQ(2U, r.input("a")->asBuffer().count);
    r.scene.setBufferLimit(0);
    EXPECT_EQ("ok\n", r.read("n.c = byte[0] {1};"));
    EXPECT_EQ("error: PARSE ERROR (1,17): invalid buffer element count: [1].\nfailed\n",
              r.read("n.c = byte[1] {1};"));
}

TEST(BufferTotalLimit, BoundsWhatADocumentAsksForInAll) {
    Reader r;
    r.scene.setBufferTotalLimit(24);
    EXPECT_EQ("ok\n", r.read("t n: .a = vec3f[1] {1 2 3}; .c = int32[3] {1 2 3};"));
    EXPECT_EQ("error: PARSE ERROR (1,63): invalid buffer element count: [1].\nfailed\n",
              r.read("n.a = vec3f[1] {4 5 6}; n.b = byte[12] {.00}; n.b = byte[1] {1};"));
    EXPECT_EQ(4, r.input("a")->asBufferOf<float>()[0]);
    EXPECT_EQ(12U, r.input("b")->asBuffer().count);
}

TEST(BufferTotalLimit, CountsWhatNoInputTakes) {
    Reader r;
    r.scene.setBufferTotalLimit(8);
    EXPECT_EQ(
        "error: TYPE ERROR (1,31): expected Int @ n.a but found Buffer.\n"
        "error: PARSE ERROR (1,49): invalid buffer element count: [5].\nfailed\n",
        r.read("t n: .a = 1; .a = byte[4] {.01}; .a = byte[5] {7};"));
}

TEST(BufferTotalLimit, BeginsAnewWithEachDocument) {
    Reader r;
    r.scene.setBufferTotalLimit(4);
    EXPECT_EQ("ok\n", r.read("t n: .a = float[1] {1};"));
    EXPECT_EQ("ok\n", r.read("n.a = float[1] {2};"));
}

TEST(BufferTotalLimit, HoldsBesideTheLimitOfOneBuffer) {
    Reader r;
    r.scene.setBufferLimit(4);
    r.scene.setBufferTotalLimit(100);
    EXPECT_EQ("error: PARSE ERROR (1,21): invalid buffer element count: [5].\nfailed\n",
              r.read("t n: .a = byte[5] {1};"));
    r.scene.setBufferTotalLimit(0);
    EXPECT_EQ("ok\n", r.read("t n: .a = byte[0] {1};"));
}

struct Count {
    const char* type;
    const char* count;
};

TEST(BufferLimit, HoldsForSizesPast64Bits) {
    const Count counts[] = {
        {"byte", "18446744073709551615"},   {"int16", "9223372036854775808"},
        {"int32", "4611686018427387904"},   {"double", "2305843009213693952"},
        {"double", "18446744073709551615"}, {"vec3f", "1537228672809129302"},
        {"mat4d", "144115188075855872"},    {"mat4d", "144115188075855873"},
    };
    for (const Count& each : counts) {
        Reader r;
        const std::string head = std::string("t n: .x = ") + each.type + "[" + each.count + "]";
        const std::string position = "(1," + std::to_string(head.size() + 4) + ")";
        EXPECT_EQ("error: PARSE ERROR " + position + ": invalid buffer element count: [" +
                      each.count + "].\nfailed\n",
                  r.read(head + " {1};"));
    }
}

// By the lowest byte of the addresses of the inputs, which do not depend on what else the heap has.
TEST(EntryPoints, TellInTheSameOrderWhatLeadsNowhere) {
    std::string text = "t n:\n";
    for (int i = 0; i < 100; ++i)
        text += ".i" + std::to_string(i) + (i % 2 ? " |= gone.out;\n" : " = gone;\n");
    const auto logOf = [&text] {
        Scene scene;
        return kvt::test::readText(&scene, text).log;
    };
    const std::string expected = logOf();
    std::vector<std::unique_ptr<char[]>> others;
    for (unsigned long size = 1; size < 6000; size += 111) {
        others.push_back(std::make_unique<char[]>(size));
        ASSERT_EQ(expected, logOf()) << size;
    }
}

}  // namespace
