#include "reading.h"

#include <ko/foundation.h>
#include <ko/kvtparser.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "dump_json.h"
#include "dump_text.h"
#include "output.h"
#include "terminal.h"

namespace kvt::test {

namespace fs = std::filesystem;
using ko::DataType;
using ko::File;
using ko::LogRecord;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Scene;
using ko::mirel_sdk::interfaces::IScene;

Reading collect(const std::function<bool()>& entryPoint) {
    Reading reading;
    const ko::LogCapture capture([&reading](const LogRecord& record) {
        reading.log += record.severity == ko::Severity::Error ? "error: " : "warning: ";
        reading.log += record.text.view();
        reading.log += '\n';
    });
    try {
        reading.ok = entryPoint();
        reading.log += reading.ok ? "ok\n" : "failed\n";
    } catch (const std::runtime_error& e) {
        reading.log += std::string("thrown: ") + e.what() + '\n';
    }
    return reading;
}

Reading readText(IScene* scene, const std::string& text) {
    return collect([scene, &text] {
        return ko::mirel_sdk::impl::parseString(scene, String(std::string_view(text)));
    });
}

Reading readBytes(IScene* scene, const std::string& text, bool keepHeader) {
    return collect([scene, &text, keepHeader] {
        const File file = File::memory(text.data(), text.size());
        return ko::mirel_sdk::impl::parseKvt(scene, file, keepHeader);
    });
}

namespace {

std::string written(const std::function<void(OutputStream&)>& write) {
    char* chars = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = open_memstream(&chars, &size);
    {
        OutputStream out(stream);
        write(out);
    }
    std::fclose(stream);
    std::string text(chars, size);
    std::free(chars);
    return text;
}

}  // namespace

std::string jsonOf(const Scene& scene, bool ok) {
    return written([&](OutputStream& out) { dumpJson(out, scene, ok); });
}

std::string textOf(const Scene& scene, bool ok) {
    return written([&](OutputStream& out) { dumpText(out, scene, ok, noColours); });
}

std::vector<fs::path> documents(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        if (entry.path().extension() == ".kvt") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error("cannot open " + file.string());
    return {std::istreambuf_iterator<char>(stream), {}};
}

namespace {

NodeType scalars() {
    NodeType type("scalars");
    type.input("bool", AttrType::Bool).input("int", AttrType::Int);
    type.input("uint", AttrType::UInt).input("real", AttrType::Real);
    return type;
}

NodeType vectors() {
    NodeType type("vectors");
    type.input("vec2", AttrType::Vec2).input("vec3", AttrType::Vec3).input("vec4", AttrType::Vec4);
    type.input("pos2", AttrType::Pos2).input("pos3", AttrType::Pos3);
    type.input("quat", AttrType::Quat).input("rgba", AttrType::Rgba);
    return type;
}

NodeType matrices() {
    NodeType type("matrices");
    type.input("mat3", AttrType::Mat3).input("mat4", AttrType::Mat4);
    return type;
}

NodeType others() {
    NodeType type("others");
    type.input("string", AttrType::String).input("node", AttrType::Node);
    type.buffer("buffer", DataType::Null).buffer("floats", DataType::Float);
    type.array("array", AttrType::Null).array("ints", AttrType::Int);
    type.input("object", AttrType::Object).input("untyped", AttrType::Null);
    type.output("out");
    return type;
}

NodeType choice() {
    NodeType type("choice");
    type.enumeration("mode", {"fast", "fine"}).enumeration("any", {});
    return type;
}

NodeType filter() {
    NodeType type("filter");
    type.input("gain", AttrData::ofReal(1)).output("color").output("alpha");
    type.renameInput("amount", "gain").renameOutput("out", "color");
    return type;
}

// Index steps go through the table of renames like any other.
NodeType renamed() {
    NodeType type("renamed");
    type.array("list", AttrType::Int).renameInput("[7]", "end").renameInput("[8]", "[0]");
    type.output("color").renameOutput("out", "colour");
    return type;
}

}  // namespace

void registerNodeTypes(Scene& scene) {
    ko::mirel_sdk::impl::clearRenames();
    addNodeTypes(scene);
}

void addNodeTypes(Scene& scene) {
    for (NodeType (*const make)() : {scalars, vectors, matrices, others, choice, filter, renamed}) {
        scene.registerType(make());
    }
}

}  // namespace kvt::test
