// Memory that cannot be had while a document is read: each allocation of each golden document fails
// once, alone and with all that follow. A buffer that cannot be had is an invalid count; for
// anything else `std::bad_alloc` leaves the entry point. Whatever failed, the scene keeps what it
// had, can be used as before, and gives all of its memory back.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <stdio.h>  // fileno

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "failingmemory.h"
#include "reading.h"

namespace {

namespace fs = std::filesystem;
using ko::File;
using ko::LogCapture;
using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::KvtParser;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::parseKvt;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::impl::StringLexer;
using kvt::test::Allocation;
using kvt::test::Failing;
using kvt::test::FailingMemory;
using kvt::test::failuresOf;

// --- Readings that run out of memory

enum class Ending { Read, Refused, InvalidToken, BadAlloc };

std::ostream& operator<<(std::ostream& out, Ending ending) {
    constexpr const char* names[] = {"read", "refused", "invalid token", "bad_alloc"};
    return out << names[static_cast<int>(ending)];
}

struct Attempt {
    Ending ending = Ending::Read;
    bool countRefused = false;
};

bool refusesCount(const LogRecord& record) {
    return record.text.contains("invalid buffer element count", false);
}

Attempt attempt(const std::function<bool()>& entryPoint, unsigned long left, Failing failing) {
    Attempt made;
    const LogCapture capture(
        [&made](const LogRecord& record) { made.countRefused |= refusesCount(record); });
    const FailingMemory memory(left, failing);
    try {
        made.ending = entryPoint() ? Ending::Read : Ending::Refused;
    } catch (const std::bad_alloc&) {
        made.ending = Ending::BadAlloc;
    } catch (const std::runtime_error&) {
        made.ending = Ending::InvalidToken;
    }
    return made;
}

// The numbers of a buffer are what calloc is asked for while a document is read. When all memory
// fails there is none for the message either.
void expectEnding(const Attempt& made, Failing failing) {
    const bool noBuffer = kvt::test::firstFailed() == Allocation::Calloc;
    if (noBuffer && failing == Failing::Once) {
        EXPECT_EQ(Ending::Refused, made.ending);
        EXPECT_TRUE(made.countRefused);
    } else {
        EXPECT_EQ(Ending::BadAlloc, made.ending);
    }
}

// --- What a scene had before, and what it reads later

constexpr const char* earlier = R"(
t kept__:
.number = 7; .text = "a text that is too long to stand in the string itself";
.list[2] = 4; .nested[1][0].x = vec3(1 2 3);
.buffer = float[6] {1 2 3 4 5 6}; .link |= other_kept__.a_long_name_for_an_output;
.node = other_kept__;
t other_kept__: .x = mat3(1 2 3 4 5 6 7 8 9);
)";

constexpr const char* later = R"(
t new__:
.a[3].s = "another text that is too long to stand in the string itself"; .c |= new__.out;
.n = new__; .b = int32[3] {1 2 3};
)";

void expectRead(Scene& scene, const char* document) {
    EXPECT_EQ("ok\n", kvt::test::readText(&scene, document).log);
}

// The node as a dump of the scene shows it.
std::string nodeOf(const Scene& scene, const std::string& name) {
    const std::string json = kvt::test::jsonOf(scene, true);
    const auto start = json.find("\n  {\"name\": \"" + name + '"');
    if (start == std::string::npos) return "no node " + name;
    std::string node = json.substr(start, json.find("\n  {", start + 1) - start);
    node.erase(node.find_last_not_of(",]}\n") + 1);
    return node;
}

// What the scene had is as it was.
void expectKept(const Scene& scene) {
    static const Scene& expected = *[] {
        static Scene untouched;
        expectRead(untouched, earlier);
        return &untouched;
    }();
    for (const char* name : {"kept__", "other_kept__"})
        EXPECT_EQ(nodeOf(expected, name), nodeOf(scene, name));
}

// A document after the failure yields what it yields in a scene that saw none.
void expectUsable(Scene& scene) {
    static const std::string expected = [] {
        Scene untouched;
        expectRead(untouched, later);
        return nodeOf(untouched, "new__");
    }();
    expectRead(scene, later);
    EXPECT_EQ(expected, nodeOf(scene, "new__"));
}

// --- Failing everywhere

struct Way {
    const char* name;
    Failing failing;
    bool isFile;
    bool hasEarlier;  // into a scene that has something already
};

std::ostream& operator<<(std::ostream& out, const Way& way) { return out << way.name; }

constexpr Way ways[] = {
    {"OnceInAText", Failing::Once, false, true},
    {"OnceInAFile", Failing::Once, true, true},
    {"OnceInAnEmptyScene", Failing::Once, false, false},
    {"ForGoodInAText", Failing::FromThenOn, false, true},
    {"ForGoodInAFile", Failing::FromThenOn, true, true},
};

class Memory : public testing::TestWithParam<Way> {
  protected:
    // Fails the first allocation, then the second, and so on until the document needs no more.
    static void expectEndings(const fs::path& file) {
        // After the text as much as reading its last statement whole needs; the file has none of
        // it.
        const std::string padded = kvt::test::contents(file) + std::string(200, ' ');
        const String text{std::string_view(padded)};
        failsBehind(~0UL, file, text);  // what is made once for all is there now
        bool hasFailed = true;
        for (unsigned long left = 0; hasFailed && !HasFailure(); ++left) {
            SCOPED_TRACE(std::to_string(left) + " allocations succeed");
            const unsigned long live = kvt::test::liveBlocks();
            hasFailed = failsBehind(left, file, text);
            EXPECT_EQ(live, kvt::test::liveBlocks());
        }
    }

  private:
    // False when the document needed no more allocations than it could have.
    static bool failsBehind(unsigned long left, const fs::path& file, const String& text) {
        Scene scene;
        kvt::test::registerNodeTypes(scene);
        if (GetParam().hasEarlier) expectRead(scene, earlier);
        const auto read = [&] {
            return GetParam().isFile ? parseKvt(&scene, File::open(file.c_str()), false)
                                     : parseString(&scene, text);
        };
        const Attempt made = attempt(read, left, GetParam().failing);
        const bool hasFailed = kvt::test::hasFailed();
        if (hasFailed) expectEnding(made, GetParam().failing);
        if (GetParam().hasEarlier) expectKept(scene);
        expectUsable(scene);
        return hasFailed;
    }
};

INSTANTIATE_TEST_SUITE_P(, Memory, testing::ValuesIn(ways),
                         [](const auto& way) { return way.param.name; });

TEST_P(Memory, ThatCannotBeHadLeavesTheSceneAsItWasAndUsable) {
    for (const char* folder : {KVT_TEST_DOCUMENTS, KVT_EXAMPLES}) {
        for (const fs::path& document : kvt::test::documents(folder)) {
            SCOPED_TRACE(document);
            expectEndings(document);
            if (HasFailure()) return;
        }
    }
}

// --- Single operations

// Whichever allocation fails, an input is there with its text or not at all, and the lexer goes on
// after what the scene was given.
TEST(SingleOperations, LeaveNoInputWithoutItsText) {
    const std::string text = "t n: .s = \"abc\"; .i = 7; .j = 8;" + std::string(200, ' ');
    bool hasFailed = true;
    for (unsigned long allocation = 0; hasFailed; ++allocation) {
        Scene scene;
        StringLexer lexer{String(std::string_view(text))};
        KvtParser parser;
        {
            const FailingMemory memory(allocation, Failing::Once);
            try {
                hasFailed = !parser.parse(&scene, &lexer);
            } catch (const std::bad_alloc&) {
                hasFailed = true;
            }
        }
        const auto* const node = scene.findNode("n");
        const auto* const given = node ? node->input("s") : nullptr;
        EXPECT_TRUE(!given || given->asText() == "abc");
        EXPECT_TRUE(hasFailed || (given && node->inputCount() == 3));
        const auto behind = static_cast<std::int32_t>(text.find('8') + 1);
        EXPECT_TRUE(!node || !node->input("j") || lexer.pos > behind);
    }
}

bool failsToParse(KvtParser& parser, Scene& scene, StringLexer& lexer, unsigned long allocation) {
    const FailingMemory memory(allocation, Failing::Once);
    try {
        parser.parse(&scene, &lexer);
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

// Whichever allocation fails, nothing is carried out twice, and no comment read as a statement, by
// whoever goes on with the lexer or the parser.
TEST(SingleOperations, GoOnBehindWhatWasCarriedOut) {
    const std::pair<std::string, unsigned long> documents[] = {
        {"t n: .a = \"x\";\n# first said here, long\n# t EVIL; t n: .bbbbbbbb = 7; # and so on\n"
         " .b = \"long string value of it\"; .c = 1; .d = 2;\n",
         2},
        {"# t EVIL;t n;# 12345678901\nt n: .a = 1; .b = \"x\";\n", 1},
        {"# first\nt n: .a = 1; .b = \"x\"; .c = 3;\n", 1},
    };
    const LogCapture quiet;
    for (const auto& [document, comments] : documents) {
        const std::string text = document + std::string(120, ' ');
        bool hasFailed = true;
        for (unsigned long allocation = 0; hasFailed; ++allocation) {
            for (const bool isSameParser : {false, true}) {
                Scene scene;
                StringLexer lexer{String(std::string_view(text))};
                KvtParser parser;
                hasFailed = failsToParse(parser, scene, lexer, allocation);
                KvtParser another;
                if (!isSameParser) another.parse(&scene, &lexer);
                while (isSameParser && (parser.parseComment() || parser.parseDeclare())) {
                }
                EXPECT_FALSE(scene.findNode("EVIL")) << document << allocation;
                EXPECT_GE(comments, scene.comments().size()) << document << allocation;
            }
        }
    }
}

// Whichever allocation fails, what is in the map keeps its input beyond the node.
TEST(SingleOperations, HoldTheInputsOfWhatIsPending) {
    const std::string text = "t n: .a |= x.y; .b = 1;" + std::string(200, ' ');
    bool hasFailed = true;
    for (unsigned long allocation = 0; hasFailed; ++allocation) {
        Scene scene;
        StringLexer lexer{String(std::string_view(text))};
        KvtParser parser;
        parser.prime(&scene, &lexer);
        ASSERT_TRUE(parser.parseDeclare());
        hasFailed = false;
        try {
            const FailingMemory memory(allocation, Failing::Once);
            parser.parseAssign();
        } catch (const std::bad_alloc&) {
            hasFailed = true;
        }
        scene.removeNode("n");
        scene.purgeRemoved();
        for (ko::mirel_sdk::interfaces::IInput* const input : parser.pendingConnections.keys())
            EXPECT_EQ(".a", input->fullName().view()) << allocation;
    }
}

// Does something with each of its allocations failing in turn; what it throws must be
// std::bad_alloc, and no block may be left.
void failEverywhere(const std::function<void()>& operation) {
    bool hasFailed = true;
    for (unsigned long allocation = 0; hasFailed; ++allocation) {
        SCOPED_TRACE(allocation);
        const unsigned long live = kvt::test::liveBlocks();
        try {
            operation();
            hasFailed = kvt::test::hasFailed();
        } catch (const std::bad_alloc&) {
            ADD_FAILURE() << "an exception left the operation";
        }
        EXPECT_EQ(live, kvt::test::liveBlocks());
        if (testing::Test::HasFailure()) return;
    }
}

// A call that fails adds nothing to the node type, and takes its default over all the same.
TEST(SingleOperations, OfANodeTypeTakeADefaultOverOrFreeIt) {
    const std::string longName(100, 'x');
    const String names[] = {"a", String(std::string_view(longName)), "b", "c", "d", "e"};
    unsigned long allocation = 0;
    failEverywhere([&] {
        const AttrData text = AttrData::ofText("a default");
        NodeType type("t");
        unsigned long declared = 0;
        const FailingMemory memory(allocation++, Failing::Once);
        for (const String& name : names) {
            const AttrData value = declared == 0 ? text : AttrData::ofReal(1);
            try {
                type.input(name, value);
                ++declared;
            } catch (const std::bad_alloc&) {
                if (declared == 0) return;  // the text has been freed
            }
        }
        EXPECT_EQ(declared, type.inputCount());
        for (unsigned long i = 0; i < type.inputCount(); ++i)
            EXPECT_EQ(&type.inputAt(i), type.findInput(type.inputAt(i).name));
    });
}

// What is registered under the name stays so, whatever fails.
TEST(SingleOperations, OfRegisteringATypeLeaveTheOneBeforeOrReplaceIt) {
    for (const unsigned long others : {0UL, 11UL, 12UL, 13UL}) {
        unsigned long allocation = 0;
        failEverywhere([&] {
            Scene scene;
            for (unsigned long i = 0; i < others; ++i)
                scene.registerType(NodeType(String(i)));
            const NodeType* expected = others > 0 ? scene.nodeType("0") : nullptr;
            NodeType type("0");
            type.input("x", AttrData::ofText("a default"));
            try {
                const FailingMemory memory(allocation++, Failing::Once);
                expected = scene.registerType(std::move(type));
            } catch (const std::bad_alloc&) {
            }
            EXPECT_EQ(expected, scene.nodeType("0"));
        });
    }
}

// A text that the scene keeps takes the memory that it needs, though it grew block by block while
// it was read.
TEST(LongTexts, AreKeptInNoMoreThanTheyNeed) {
    for (const unsigned long size : {70'000UL, 1'100'000UL, 2'500'000UL, 17'000'000UL}) {
        SCOPED_TRACE(size);
        const std::string text(size, 'x');
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
        std::fprintf(file.get(), "#%s\nt%s n%s: .i%s = \"%s\";", text.c_str(), text.c_str(),
                     text.c_str(), text.c_str(), text.c_str());
        std::fflush(file.get());
        const std::string path = "/proc/self/fd/" + std::to_string(fileno(file.get()));
        Scene scene;
        const unsigned long before = kvt::test::liveBytes();
        ASSERT_TRUE(parseKvt(&scene, File::open(path.c_str()), false));
        EXPECT_LT(kvt::test::liveBytes() - before, 5 * size + 200'000);
    }
}

TEST(SingleOperations, NeedNoMemoryToRefuseATakenName) {
    Scene scene;
    scene.createNode("t", "n", "");
    const FailingMemory memory(0, Failing::FromThenOn);
    EXPECT_EQ(nullptr, scene.createNode("t", "n", ""));
}

// All memory of the program and the library goes through the functions that fail.
TEST(FailingMemory, ReachesEveryKindOfAllocation) {
    const std::string document = "t n: .x = \"" + std::string(500, 't') +
                                 "\"; .b = float[2] {1 2};\n# a comment " + std::string(500, '.');
    const String text{std::string_view(document)};
    Scene first;
    parseString(&first, text);  // what is made once for all is there now
    for (unsigned long left = 0; left == 0 || kvt::test::hasFailed(); ++left) {
        Scene scene;
        attempt([&] { return parseString(&scene, text); }, left, Failing::Once);
    }
    for (const Allocation allocation :
         {Allocation::New, Allocation::Malloc, Allocation::Calloc, Allocation::Realloc})
        EXPECT_LT(0U, failuresOf(allocation)) << static_cast<int>(allocation);
}

// Of these the library need not make use.
TEST(FailingMemory, ReachesEveryFormOfNew) {
    constexpr std::align_val_t alignment{64};
    const std::function<void*()> forms[] = {
        [] { return operator new(1); },
        [] { return operator new[](1); },
        [] { return operator new(1, alignment); },
        [] { return operator new[](1, alignment); },
    };
    for (const auto& form : forms) {
        const FailingMemory memory(0, Failing::Once);
        EXPECT_THROW(form(), std::bad_alloc);
    }
    const FailingMemory memory(0, Failing::FromThenOn);
    EXPECT_EQ(nullptr, operator new(1, std::nothrow));
    EXPECT_EQ(nullptr, operator new[](1, std::nothrow));
    EXPECT_EQ(nullptr, operator new(1, alignment, std::nothrow));
    EXPECT_EQ(nullptr, operator new[](1, alignment, std::nothrow));
}

}  // namespace
