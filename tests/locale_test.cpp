// Reading and dumping where the process writes numbers with decimal commas.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include <ko/scene.h>

#include "bulk/bulk.h"
#include "bulkpaths.h"
#include "commalocale.h"
#include "dump_text.h"
#include "output.h"
#include "reading.h"

namespace {

using ko::bulk::Path;
using ko::mirel_sdk::impl::Scene;
using kvt::test::CommaLocale;
using kvt::test::Reading;

// All that comes of a document, in one text.
std::string outcomeOf(const std::string& text) {
    Scene scene;
    const Reading reading = kvt::test::readText(&scene, text);
    char* chars = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&chars, &size);
    {
        kvt::OutputStream out(stream);
        kvt::dumpText(out, scene, reading.ok, {});
    }
    std::fclose(stream);
    const std::string dump(chars, size);
    std::free(chars);
    return reading.log + kvt::test::jsonOf(scene, reading.ok) + dump;
}

// Values of every kind, and reals in buffers that each path takes by another way.
std::string document() {
    std::ifstream stream(KVT_EXAMPLES "/everything.kvt", std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(stream), {});
    std::ostringstream reals;
    reals.imbue(std::locale::classic());
    for (int i = 0; i < 300; ++i)
        reals << ' ' << i << ".5 -" << i << "e-3 1." << i << "234567890123456e+07 ." << i << 'f';
    for (const char* type : {"float", "double"})
        text += std::string("t ") + type + ": .b = " + type + "[1200] {" + reals.str() + "};\n";
    return text;
}

TEST(CommaLocale, ReachesTheLibraries) {
    const CommaLocale comma;
    std::ostringstream text;
    text << 1234.5;
    EXPECT_EQ("1.234,5", text.str());
    if (!comma.isInC()) GTEST_SKIP() << "the C library has no such locale here";
    EXPECT_EQ(1.5, std::strtod("1,5", nullptr));
}

TEST(CommaLocale, EndsWithItsScope) {
    { const CommaLocale comma; }
    std::ostringstream text;
    text << 1234.5;
    EXPECT_EQ("1234.5", text.str());
    EXPECT_EQ(1.0, std::strtod("1,5", nullptr));
}

void expectTheSame(const std::string& text) {
    const std::string expected = outcomeOf(text);
    for (const Path path : kvt::test::allPaths) {
        if (!ko::bulk::hasPath(path)) continue;
        const kvt::test::PathGuard guard(path);
        const CommaLocale comma;
        EXPECT_EQ(expected, outcomeOf(text));
    }
}

TEST(Reading, DoesNotDependOnTheLocale) {
    expectTheSame(document());
    for (const char* value : {"1,5", "1.234.567", "float[2] {1,5 1.234,5}", "vec2(1,5 2)",
                              "pos2(1.5,2.25)", "double[1.000] {1}", "int16[1] {1.000}"})
        expectTheSame(std::string("t n: .x = ") + value + ";");
}

}  // namespace
