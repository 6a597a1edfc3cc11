// One line for each input: its name, type and value in columns that are as wide as the inputs
// beside it ask for, then where it takes its value from. A run of array elements that nothing has
// touched takes one line. Indentation and columns are limited, so no line costs more than what it
// shows.
#include "dump_text.h"

#include <algorithm>
#include <string_view>
#include <vector>

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

constexpr unsigned long indentationStep = 4;
constexpr unsigned long deepestIndentation = 24;
constexpr unsigned long columnGap = 2;
constexpr unsigned long widestName = 32;
constexpr unsigned long longestText = 72;
constexpr unsigned long longestComment = 240;
// Numbers of a buffer that are shown, whole elements and at least one.
constexpr unsigned long shownNumbers = 9;

unsigned long digits(unsigned long number) {
    unsigned long count = 1;
    for (; number >= 10; number /= 10)
        ++count;
    return count;
}

// An element's place in its array, "[3]", or that of a run of elements, "[3..9]".
void writePlace(OutputStream& out, const InputView& element) {
    out.write('[');
    out.number(element.position());
    if (element.count() > 1) {
        out.write("..");
        out.number(element.position() + element.count() - 1);
    }
    out.write(']');
}

unsigned long placeWidth(const InputView& element) {
    const unsigned long first = digits(element.position());
    if (element.count() == 1) return first + 2;
    return first + digits(element.position() + element.count() - 1) + 4;
}

// The columns of a name; one that is too wide for the column counts as wide as that.
unsigned long nameWidth(const InputView& input) {
    if (input.isElement()) return placeWidth(input);
    return visibleWidth(input.name(), widestName);
}

unsigned long typeWidth(const InputView& input) {
    return std::string_view(attrTypeName(input.type())).size();
}

// The widths of the columns that inputs side by side share.
struct Columns {
    unsigned long name = 0;
    unsigned long type = 0;
};

Columns measure(Siblings siblings) {
    Columns columns;
    while (const auto input = siblings.next()) {
        columns.name = std::max(columns.name, nameWidth(*input));
        columns.type = std::max(columns.type, typeWidth(*input));
    }
    return columns;
}

// "(0 0 1)"; the numbers of a matrix row by row.
void writeComponents(OutputStream& out, const AttrData& value) {
    const unsigned long count = ko::mirel_sdk::componentCount(value.type);
    const unsigned long rowLength = ko::mirel_sdk::rowLength(value.type);
    for (unsigned long i = 0; i < count; ++i) {
        if (i > 0) out.write(i % rowLength == 0 ? ") " : " ");
        if (i % rowLength == 0) out.write('(');
        writeReal(out, value.component(static_cast<int>(i)), {});
    }
    out.write(')');
}

void writeElement(OutputStream& out, const BufferView& buffer, unsigned long element) {
    const unsigned long size = ko::componentCount(buffer.type);
    if (size > 1) out.write('(');
    for (unsigned long i = 0; i < size; ++i) {
        if (i > 0) out.write(' ');
        writeComponent(out, buffer, element * size + i, {});
    }
    if (size > 1) out.write(')');
}

// "Vec3f[1024] (0 0 0) (0 0 1) (0 1 0) (0 1 1) ..."
void writeBuffer(OutputStream& out, const BufferView& buffer) {
    out.write(ko::dataTypeName(buffer.type));
    out.write('[');
    out.number(buffer.count);
    out.write(']');
    const unsigned long elementSize = std::max(1UL, ko::componentCount(buffer.type));
    const unsigned long shown = std::min(buffer.count, std::max(1UL, shownNumbers / elementSize));
    for (unsigned long i = 0; i < shown; ++i) {
        out.write(' ');
        writeElement(out, buffer, i);
    }
    if (shown < buffer.count) out.write(" ...");
}

// Writes the inputs of one node.
class InputWriter final : public InputVisitor {
  public:
    InputWriter(OutputStream& out, const Palette& palette, const Node& node)
        : out_(out), palette_(palette), columns_{measure(Siblings(node))} {}

    void enter(const InputView& input, unsigned long depth) override;
    void leave(const InputView& input) override {
        if (input.childCount() > 0) columns_.pop_back();
    }

  private:
    void writeName(const InputView& input);
    void writeType(const InputView& input);
    void writeValue(const InputView& input);
    void writeLinks(const InputView& input);
    // Moves on to the next column or, after the last, to the next word.
    void advance(unsigned long columnWidth, unsigned long width);
    void startWord();

    OutputStream& out_;
    const Palette& palette_;
    // Of the inputs that the walk is among, outermost first.
    std::vector<Columns> columns_;
    // Blanks before what follows on the line, if anything does.
    unsigned long gap_ = 0;
};

void InputWriter::enter(const InputView& input, unsigned long depth) {
    out_.spaces(std::min(depth + 1, deepestIndentation) * indentationStep);
    writeName(input);
    writeType(input);
    writeValue(input);
    writeLinks(input);
    out_.write('\n');
    if (input.childCount() > 0) columns_.push_back(measure(Siblings(*input.input())));
}

void InputWriter::writeName(const InputView& input) {
    if (input.isElement()) {
        writePlace(out_, input);
    } else {
        writeVisible(out_, input.name());
    }
    advance(columns_.back().name, nameWidth(input));
}

void InputWriter::writeType(const InputView& input) {
    startWord();
    out_.write(palette_.type);
    out_.write(attrTypeName(input.type()));
    out_.write(palette_.plain);
    advance(columns_.back().type, typeWidth(input));
}

void InputWriter::writeValue(const InputView& input) {
    const Storage storage = ko::mirel_sdk::storageOf(input.type());
    if (storage == Storage::None || storage == Storage::Inputs) return;
    startWord();
    switch (storage) {
        case Storage::Bool: return writeBool(out_, input.value().boolean());
        case Storage::Int: return out_.number(input.value().integer());
        case Storage::UInt: return out_.number(input.value().uinteger());
        case Storage::Real: return writeReal(out_, input.value().real(), {});
        case Storage::Components: return writeComponents(out_, input.value());
        case Storage::Text: return writeQuoted(out_, input.text(), longestText);
        case Storage::Buffer: return writeBuffer(out_, input.buffer());
        case Storage::Elements:
            out_.write(attrTypeName(input.arrayType()));
            out_.write('[');
            out_.number(input.childCount());
            return out_.write(']');
        case Storage::None:
        case Storage::Inputs: return;
    }
}

void InputWriter::writeLinks(const InputView& input) {
    const Output* const output = input.connection();
    const Node* const node = input.nodeReference();
    if (!output && !node) return;
    startWord();
    out_.write(palette_.link);
    if (node) {
        out_.write("-> ");
        writeVisible(out_, node->name().view());
    }
    if (output) {
        out_.write(node ? " <- " : "<- ");
        writeVisible(out_, output->node()->name().view());
        out_.write('.');
        writeVisible(out_, output->name().view());
    }
    out_.write(palette_.plain);
}

void InputWriter::advance(unsigned long columnWidth, unsigned long width) {
    gap_ = columnWidth - width + columnGap;
}

void InputWriter::startWord() {
    out_.spaces(gap_);
    gap_ = 1;
}

// "name      ", as wide as the longest of the header.
void writeHeaderName(OutputStream& out, const Palette& palette, std::string_view name) {
    constexpr unsigned long column = 10;
    out.write(palette.faint);
    out.write(name);
    out.write(palette.plain);
    out.spaces(column - name.size());
}

void writeComments(OutputStream& out, const Palette& palette, const Scene& scene) {
    std::string_view name = "comments";
    for (const ko::String& comment : scene.comments()) {
        writeHeaderName(out, palette, name);
        writeShortened(out, comment.view(), longestComment);
        out.write('\n');
        name = {};
    }
}

void writeHeader(OutputStream& out, const Palette& palette, const Scene& scene, bool ok) {
    writeHeaderName(out, palette, "version");
    out.number(scene.fileVersion());
    out.write('\n');
    if (!scene.fileTime().isEmpty()) {
        writeHeaderName(out, palette, "time");
        writeShortened(out, scene.fileTime().view(), longestText);
        out.write('\n');
    }
    writeHeaderName(out, palette, "nodes");
    out.number(scene.nodeCount());
    out.write(ok ? "\n" : ", and then reading stopped\n");
    writeComments(out, palette, scene);
}

// "sphere ball"
void writeNode(OutputStream& out, const Palette& palette, const Node& node) {
    out.write('\n');
    out.write(palette.type);
    writeVisible(out, node.type().view());
    out.write(palette.plain);
    out.write(' ');
    out.write(palette.strong);
    writeVisible(out, node.name().view());
    out.write(palette.plain);
    out.write(node.isDefinition() ? " (definition)\n" : "\n");
    InputWriter inputs(out, palette, node);
    walkInputs(node, inputs);
}

}  // namespace

void dumpText(OutputStream& out, const Scene& scene, bool ok, const Palette& palette) {
    writeHeader(out, palette, scene, ok);
    for (const Node* const node : scene.nodes())
        writeNode(out, palette, *node);
}

}  // namespace kvt
