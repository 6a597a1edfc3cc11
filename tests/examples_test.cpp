// The documents in examples/: the good ones read without a word, the others with just the words
// that stand beside them.

#include <ko/kvtparser.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics.h"
#include "output.h"
#include "terminal.h"

namespace {

using ko::DataType;
using ko::File;
using ko::LogCapture;
using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::BufferView;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::parseKvt;
using ko::mirel_sdk::impl::Scene;
using Lines = std::vector<std::string>;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, CloseFile>;

std::string pathOf(const std::string& name) { return std::string(KVT_EXAMPLES "/") + name; }

Lines linesOf(std::FILE* file) {
    Lines lines(1);
    std::rewind(file);
    for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
        if (byte == '\n') {
            lines.emplace_back();
        } else {
            lines.back() += static_cast<char>(byte);
        }
    }
    EXPECT_EQ(lines.back(), "") << "the last line is not finished";
    lines.pop_back();
    return lines;
}

Lines linesOf(const std::string& name) {
    const OpenFile file(std::fopen(pathOf(name).c_str(), "rb"));
    return file ? linesOf(file.get()) : Lines{"cannot open " + name};
}

// What the tool reports about the example `name`, as seen from the project's root.
Lines reportOf(const std::string& name, Scene& scene, bool& finished) {
    const OpenFile lines(std::tmpfile());
    const std::string shownPath = "examples/" + name;
    {
        kvt::OutputStream out(lines.get());
        kvt::Diagnostics diagnostics(out, kvt::noColours, shownPath);
        const LogCapture log([&](const LogRecord& record) { diagnostics.report(record); });
        finished = parseKvt(&scene, File::open(pathOf(name).c_str()), false);
    }
    return linesOf(lines.get());
}

Lines reportOf(const std::string& name, bool& finished) {
    Scene scene;
    return reportOf(name, scene, finished);
}

// Warnings about references come last and in no fixed order; here they are sorted.
Lines sortedReferences(Lines lines) {
    const auto isOther = [](const std::string& line) {
        return line.find(": warning: Cannot ") == std::string::npos &&
               line.find(": warning: Invalid output: ") == std::string::npos;
    };
    std::sort(std::find_if_not(lines.begin(), lines.end(), isOther), lines.end());
    return lines;
}

class GoodExamplesTest : public testing::TestWithParam<const char*> {};

TEST_P(GoodExamplesTest, ReadsWithoutAMessage) {
    bool finished = false;
    EXPECT_EQ(reportOf(GetParam(), finished), Lines());
    EXPECT_TRUE(finished);
}

INSTANTIATE_TEST_SUITE_P(Documents, GoodExamplesTest,
                         testing::Values("first.kvt", "studio.kvt", "everything.kvt"));

TEST(ExamplesTest, MistakesAreReportedAndDoNotStopTheReading) {
    bool finished = false;
    const Lines report = reportOf("mistakes.kvt", finished);
    EXPECT_EQ(sortedReferences(report), sortedReferences(linesOf("mistakes.txt")));
    EXPECT_TRUE(finished);
}

TEST(ExamplesTest, StoppedIsReportedUpToItsStop) {
    bool finished = true;
    EXPECT_EQ(reportOf("stopped.kvt", finished), linesOf("stopped.txt"));
    EXPECT_FALSE(finished);
}

// --- what the documents hold

void collectTypes(const Node& node, std::set<AttrType>& types, std::set<DataType>& elements) {
    const Input* input = node.inputCount() ? node.inputAt(0) : nullptr;
    for (; input; input = input->nextInNode()) {
        types.insert(input->type());
        if (input->isBuffer()) elements.insert(input->bufferType());
    }
}

TEST(ExamplesTest, EverythingHoldsEveryKindOfValue) {
    Scene scene;
    bool finished = false;
    reportOf("everything.kvt", scene, finished);
    std::set<AttrType> types;
    std::set<DataType> elements;
    for (const Node* node : scene.nodes())
        collectTypes(*node, types, elements);
    EXPECT_EQ(types.size(), ko::mirel_sdk::attrTypeCount);
    EXPECT_EQ(elements.size(), ko::mirel_sdk::scalarBufferTypes().size() +
                                   ko::mirel_sdk::vectorBufferTypes().size());
}

TEST(ExamplesTest, EverythingDecodesItsCompactBytes) {
    Scene scene;
    bool finished = false;
    reportOf("everything.kvt", scene, finished);
    const BufferView orange = scene.findNode("compact")->input("orange")->asBuffer();
    const auto* const bytes = orange.as<unsigned char>();
    ASSERT_EQ(orange.bytes, 64U);
    const unsigned char texel[] = {0xff, 0x80, 0x00, 0xff};
    for (unsigned long i = 0; i < orange.bytes; ++i)
        EXPECT_EQ(bytes[i], texel[i % 4]) << i;
}

void expectUnitLength(const BufferView& normals) {
    for (unsigned long i = 0; i < normals.count; ++i) {
        const float* const normal = normals.as<float>() + 3 * i;
        EXPECT_NEAR(std::hypot(normal[0], normal[1], normal[2]), 1, 1e-5) << i;
    }
}

void expectBelow(const BufferView& indices, unsigned long limit) {
    for (unsigned long i = 0; i < indices.count; ++i) {
        EXPECT_LT(indices.as<std::uint32_t>()[i], limit) << i;
    }
}

TEST(ExamplesTest, StudioMeshesAreSound) {
    Scene scene;
    bool finished = false;
    reportOf("studio.kvt", scene, finished);
    for (const char* name : {"crate", "gem", "ground"}) {
        SCOPED_TRACE(name);
        Node* const mesh = scene.findNode(name);
        ASSERT_NE(mesh, nullptr);
        const unsigned long corners = mesh->input("positions")->asBuffer().count;
        const BufferView normals = mesh->input("normals")->asBuffer();
        EXPECT_EQ(normals.count, corners);
        expectUnitLength(normals);
        expectBelow(mesh->input("indices")->asBuffer(), corners);
    }
}

TEST(ExamplesTest, StudioConnectsItsMaterials) {
    Scene scene;
    bool finished = false;
    reportOf("studio.kvt", scene, finished);
    Node* const crate = scene.findNode("crate");
    ASSERT_NE(crate, nullptr);
    Node* const material = crate->input("material")->nodeReference();
    ASSERT_NE(material, nullptr);
    EXPECT_EQ(material->name(), "crateWood");
    ASSERT_NE(material->input("baseColor")->connection(), nullptr);
    EXPECT_EQ(material->input("baseColor")->connection()->fullName(), "wood.outColor");
}

}  // namespace
