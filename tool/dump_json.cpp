// One line for each comment, node and input, indented by its depth up to a limit: the line of an
// input that lies deeper costs no more than that.
#include "dump_json.h"

#include <algorithm>
#include <string_view>

#include <ko/types.h>

#include "numbers.h"
#include "scene_walk.h"
#include "text.h"

namespace kvt {

using ko::mirel_sdk::attrTypeName;
using ko::mirel_sdk::Storage;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::BufferView;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::Scene;

namespace {

constexpr unsigned long nodeIndentation = 2;
constexpr unsigned long indentationStep = 2;
constexpr unsigned long deepestIndentation = 24;
constexpr std::string_view quote = "\"";

// Writes what stands before each item of a list.
void startItem(OutputStream& out, bool isFirst, unsigned long indentation) {
    if (!isFirst) out.write(',');
    out.write('\n');
    out.spaces(indentation);
}

void writeComponents(OutputStream& out, const AttrData& value) {
    const unsigned long count = ko::mirel_sdk::componentCount(value.type);
    out.write('[');
    for (unsigned long i = 0; i < count; ++i) {
        if (i > 0) out.write(", ");
        writeReal(out, value.component(static_cast<int>(i)), quote);
    }
    out.write(']');
}

void writeBuffer(OutputStream& out, const BufferView& buffer) {
    out.write(R"(, "elementType": ")");
    out.write(ko::dataTypeName(buffer.type));
    out.write(R"(", "count": )");
    out.number(buffer.count);
    out.write(R"(, "data": [)");
    const unsigned long components = buffer.components();
    for (unsigned long i = 0; i < components; ++i) {
        if (i > 0) out.write(", ");
        writeComponent(out, buffer, i, quote);
    }
    out.write(']');
}

void writeOutputName(OutputStream& out, const Output& output) {
    out.write('"');
    writeJsonText(out, output.node()->name().view());
    out.write('.');
    writeJsonText(out, output.name().view());
    out.write('"');
}

void writeLinks(OutputStream& out, const InputView& input) {
    if (const Output* const output = input.connection()) {
        out.write(R"(, "connection": )");
        writeOutputName(out, *output);
    }
    if (const Node* const node = input.nodeReference()) {
        out.write(R"(, "node": )");
        writeJsonString(out, node->name().view());
    }
}

// Writes the inputs of one node.
class InputWriter final : public InputVisitor {
  public:
    explicit InputWriter(OutputStream& out) : out_(out) {}

    void enter(const InputView& input, unsigned long depth) override {
        for (unsigned long others = input.count() - 1; others > 0; --others) {
            start(input, depth);
            leave(input);
        }
        start(input, depth);
    }

    void leave(const InputView& input) override {
        if (input.holdsInputs()) out_.write(']');
        writeLinks(out_, input);
        out_.write('}');
        isFirst_ = false;
    }

  private:
    void start(const InputView& input, unsigned long depth) {
        const unsigned long level = std::min(depth + 1, deepestIndentation);
        startItem(out_, isFirst_, nodeIndentation + level * indentationStep);
        out_.write('{');
        if (!input.isElement()) {
            out_.write(R"("name": )");
            writeJsonString(out_, input.name());
            out_.write(", ");
        }
        out_.write(R"("type": ")");
        out_.write(attrTypeName(input.type()));
        out_.write('"');
        writeValue(input);
        isFirst_ = true;
    }

    void writeValue(const InputView& input);
    void startValue() { out_.write(R"(, "value": )"); }

    OutputStream& out_;
    // Whether the next input is the first in its list.
    bool isFirst_ = true;
};

void InputWriter::writeValue(const InputView& input) {
    switch (ko::mirel_sdk::storageOf(input.type())) {
        case Storage::Bool: startValue(); return writeBool(out_, input.value().boolean());
        case Storage::Int: startValue(); return out_.number(input.value().integer());
        case Storage::UInt: startValue(); return out_.number(input.value().uinteger());
        case Storage::Real: startValue(); return writeReal(out_, input.value().real(), quote);
        case Storage::Components: startValue(); return writeComponents(out_, input.value());
        case Storage::Text: startValue(); return writeJsonString(out_, input.text());
        case Storage::Buffer: return writeBuffer(out_, input.buffer());
        case Storage::Elements:
            out_.write(R"(, "elementType": ")");
            out_.write(attrTypeName(input.arrayType()));
            return out_.write(R"(", "elements": [)");
        case Storage::Inputs: return out_.write(R"(, "inputs": [)");
        case Storage::None: return;
    }
}

void writeHeader(OutputStream& out, const Scene& scene, bool ok) {
    out.write(R"({"ok": )");
    writeBool(out, ok);
    out.write(R"(, "version": )");
    out.number(scene.fileVersion());
    out.write(R"(, "time": )");
    writeJsonString(out, scene.fileTime().view());
    out.write(",\n \"comments\": [");
    bool isFirst = true;
    for (const ko::String& comment : scene.comments()) {
        startItem(out, isFirst, nodeIndentation);
        writeJsonString(out, comment.view());
        isFirst = false;
    }
    out.write("],\n \"nodes\": [");
}

void writeNode(OutputStream& out, const Node& node) {
    out.write(R"({"name": )");
    writeJsonString(out, node.name().view());
    out.write(R"(, "type": )");
    writeJsonString(out, node.type().view());
    out.write(R"(, "definition": )");
    writeBool(out, node.isDefinition());
    out.write(R"(, "inputs": [)");
    InputWriter inputs(out);
    walkInputs(node, inputs);
    out.write("]}");
}

}  // namespace

void dumpJson(OutputStream& out, const Scene& scene, bool ok) {
    writeHeader(out, scene, ok);
    bool isFirst = true;
    for (const Node* const node : scene.nodes()) {
        startItem(out, isFirst, nodeIndentation);
        writeNode(out, *node);
        isFirst = false;
    }
    out.write("]}\n");
}

}  // namespace kvt
