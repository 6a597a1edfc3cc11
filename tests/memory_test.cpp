// Memory that cannot be had while a document is read: each allocation of each golden document fails
// once. `std::bad_alloc` leaves the entry point, nothing leaks (the sanitizers see to that), and
// the scene can be used as before.

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "reading.h"

namespace {

// Allocations of this thread that still succeed; negative for as many as there are.
thread_local long allocationsLeft = -1;

void* allocate(std::size_t size) {
    const bool fails = allocationsLeft == 0;
    if (allocationsLeft >= 0) --allocationsLeft;
    void* const memory = fails ? nullptr : std::malloc(size > 0 ? size : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

namespace fs = std::filesystem;
using ko::LogCapture;
using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::impl::parseString;
using ko::mirel_sdk::impl::Scene;

enum class Ending { Normal, BadAlloc };

// Reads the text while only so many allocations succeed.
Ending readWith(long allocations, Scene& scene, const String& text) {
    const LogCapture capture([](const LogRecord&) {});
    Ending ending = Ending::Normal;
    allocationsLeft = allocations;
    try {
        parseString(&scene, text);
    } catch (const std::bad_alloc&) {
        ending = Ending::BadAlloc;
    } catch (const std::runtime_error&) {
        ending = Ending::Normal;  // an invalid token at the start
    }
    return ending;
}

void expectUsable(Scene& scene) {
    const std::string document = "t new__: .a[1].s = \"text\"; .c |= new__.out; .n = new__;";
    EXPECT_EQ("ok\n", kvt::test::readText(&scene, document).log);
    scene.removeNode("new__");
}

// Fails the first allocation, then the second, and so on until the document needs no more.
void expectEndings(const String& text) {
    for (long allocations = 0;; ++allocations) {
        Scene scene;
        kvt::test::registerNodeTypes(scene);
        const Ending ending = readWith(allocations, scene, text);
        const bool hasFailed = allocationsLeft < 0;
        allocationsLeft = -1;
        ASSERT_EQ(hasFailed ? Ending::BadAlloc : Ending::Normal, ending) << allocations;
        expectUsable(scene);
        if (!hasFailed) return;
    }
}

TEST(Memory, ThatCannotBeHadLeavesTheSceneUsable) {
    for (const fs::directory_entry& entry : fs::directory_iterator(KVT_TEST_DOCUMENTS)) {
        if (entry.path().extension() != ".kvt") continue;
        SCOPED_TRACE(entry.path());
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(stream), {}};
        expectEndings(String(std::string_view(text)));
    }
}

}  // namespace
