// Documents are put together piece by piece; whatever stands in both forms is written once and
// copied. Random numbers come from a fixed seed and are mapped here, since the distributions of the
// standard library differ between its makers.
#include "content.h"

#include <lz4.h>

#include <array>
#include <charconv>
#include <cmath>
#include <random>
#include <stdexcept>
#include <string_view>

namespace bench {

namespace {

class Random {
  public:
    unsigned long below(unsigned long limit) { return engine_() % limit; }
    double between(double low, double high) {
        constexpr double unit = 1.0 / 9007199254740992.0;  // 2^-53
        return low + (high - low) * static_cast<double>(engine_() >> 11U) * unit;
    }

  private:
    std::mt19937_64 engine_{20240517};  // NOLINT: the same documents in every run
};

template <class Integer>
void append(std::string& text, Integer number) {
    std::array<char, 24> chars{};
    const auto end = std::to_chars(chars.data(), chars.data() + chars.size(), number);
    text.append(chars.data(), end.ptr);
}

void appendReal(std::string& text, double number, std::chars_format format, int precision) {
    std::array<char, 64> chars{};
    const auto end =
        std::to_chars(chars.data(), chars.data() + chars.size(), number, format, precision);
    text.append(chars.data(), end.ptr);
}

// A document in both forms.
class Writer {
  public:
    Writer() : json_(R"({"nodes": [)") {}

    void beginNode(std::string_view type, unsigned long number) {
        kvt_.append(type).append(" n");
        append(kvt_, number);
        kvt_ += ":\n";
        json_ += number ? ",\n{" : "\n{";
        json_.append(R"("type": ")").append(type).append(R"(", "name": "n)");
        append(json_, number);
        json_ += '"';
        ++content_.nodes;
    }
    void endNode() { json_ += '}'; }

    // `kvt` and `json` are the spellings of one value.
    void input(std::string_view name, std::string_view kvt, std::string_view json) {
        kvt_.append("    .").append(name).append(" = ").append(kvt).append(";\n");
        key(name).append(json);
    }
    void input(std::string_view name, std::string_view value) { input(name, value, value); }
    void connect(std::string_view name, std::string_view output) {
        kvt_.append("    .").append(name).append(" |= ").append(output).append(";\n");
        key(name).append(R"({"output": ")").append(output).append(R"("})");
    }

    // A statement outside of the node's block. Not for JSON.
    void assign(std::string_view path, std::string_view value) {
        kvt_.append(path).append(" = ").append(value).append(";\n");
    }

    // `count` numbers for elements of `size` numbers, three on a line.
    template <class AppendNumber>
    void buffer(std::string_view name, std::string_view element, unsigned long size,
                unsigned long count, Scalar type, AppendNumber appendNumber) {
        kvt_.append("    .").append(name).append(" = ").append(element).append("[");
        append(kvt_, count / size);
        kvt_ += "] {";
        const unsigned long begin = kvt_.size();
        for (unsigned long i = 0; i < count; ++i) {
            if (i) kvt_ += i % 3 ? ", " : ",\n";
            appendNumber(kvt_, i);
        }
        content_.numbers.push_back({begin, kvt_.size() - begin, count, type});
        content_.items += count;
        key(name).append("[").append(kvt_, begin).append("]");
        kvt_ += "};\n";
    }

    // Not for JSON.
    void compactBytes(std::string_view element, unsigned long count, std::string_view text) {
        kvt_.append("    .texels = ").append(element).append("[");
        append(kvt_, count);
        kvt_.append("] {").append(text).append("};\n");
    }

    Content finish(unsigned long items = 0) {
        if (items) content_.items = items;
        json_ += "\n]}\n";
        json_.reserve(json_.size() + jsonPadding);
        content_.kvt = ko::String(std::string_view(kvt_));
        content_.json = std::move(json_);
        return std::move(content_);
    }

  private:
    std::string& key(std::string_view name) {
        return json_.append(", \"").append(name).append("\": ");
    }

    Content content_;
    std::string kvt_;
    std::string json_;
};

// --- Buffers ------------------------------------------------------------------------------------

void writeMesh(Writer& writer, Random& random, unsigned long number, unsigned long vertices) {
    // What ten exporters give: most print 6 digits, those that want their floats back 9.
    constexpr std::array<int, 10> precisions = {6, 6, 7, 6, 9, 6, 8, 6, 6, 7};
    const int digits = precisions[number % precisions.size()];
    const auto general = std::chars_format::general;
    writer.beginNode("mesh", number);
    writer.buffer("positions", "pos3f", 3, 3 * vertices, Scalar::Float,
                  [&](std::string& text, unsigned long) {
                      appendReal(text, random.between(-120, 120), general, digits);
                  });
    writer.buffer("normals", "vec3f", 3, 3 * vertices, Scalar::Float,
                  [&](std::string& text, unsigned long) {
                      appendReal(text, random.between(-1, 1), general, digits);
                  });
    writer.buffer("indices", "uint32", 1, 4 * vertices, Scalar::UInt32,
                  [&](std::string& text, unsigned long) { append(text, random.below(vertices)); });
    writer.endNode();
}

void appendShuffled(std::string& text, Random& random) {
    const double number = random.between(-1000, 1000);
    const int digits = static_cast<int>(random.below(7)) + 2;
    switch (random.below(5)) {
        case 0: append(text, std::lround(number)); break;
        case 1: appendReal(text, number, std::chars_format::fixed, digits); break;
        case 2: appendReal(text, number, std::chars_format::general, digits); break;
        case 3:
            appendReal(text, std::ldexp(number, static_cast<int>(random.below(80)) - 40),
                       std::chars_format::scientific, digits);
            break;
        default: appendReal(text, number / 1000, std::chars_format::general, 17); break;
    }
}

// --- Statements ---------------------------------------------------------------------------------

std::string reals(Random& random, int count, const char* separator) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        if (i) text += separator;
        appendReal(text, random.between(0, 4), std::chars_format::fixed, 3);
    }
    return text;
}

std::string mathValue(const std::string& keyword, const std::string& numbers) {
    return keyword + "(" + numbers + ")";
}

// The same numbers as a KVT value with that keyword and as a JSON array under it: without the
// keyword nobody could make the scene.
void mathInput(Writer& writer, Random& random, const char* name, const char* keyword, int count) {
    const std::string numbers = reals(random, count, ", ");
    writer.input(name, mathValue(keyword, numbers),
                 std::string(R"({")") + keyword + R"(": [)" + numbers + "]}");
}

std::string flag(Random& random) { return random.below(2) ? "true" : "false"; }

std::string label(Random& random) { return "\"steel " + std::to_string(random.below(1000)) + "\""; }

std::string nodeName(unsigned long number) { return "n" + std::to_string(number); }

void writeMaterial(Writer& writer, Random& random, unsigned long number) {
    writer.beginNode("material", number);
    writer.input("roughness", reals(random, 1, ""));
    writer.input("samples", std::to_string(random.below(5000)));
    writer.input("visible", flag(random));
    writer.input("label", label(random));
    mathInput(writer, random, "center", "pos3", 3);
    mathInput(writer, random, "color", "rgba", 4);
    writer.connect("bump", nodeName(random.below(number + 1)) + ".out");
    writer.endNode();
}

void writeMembers(Writer& writer, Random& random, unsigned long number) {
    writer.beginNode("mesh", number);
    mathInput(writer, random, "transform.center", "pos3", 3);
    mathInput(writer, random, "transform.scale", "vec3", 3);
    writer.input("transform.locked", flag(random));
    writer.input("shading.roughness", reals(random, 1, ""));
    writer.input("shading.samples", std::to_string(random.below(5000)));
    writer.input("shading.label", label(random));
    writer.endNode();
}

void writePaths(Writer& writer, Random& random, unsigned long number) {
    const std::string node = nodeName(number);
    writer.assign(node + ".roughness", reals(random, 1, ""));
    writer.assign(node + ".samples", std::to_string(random.below(5000)));
    writer.assign(node + ".visible", flag(random));
    writer.assign(node + ".label", label(random));
    writer.assign(node + ".center", mathValue("pos3", reals(random, 3, ", ")));
}

// A node further down than `number`; the last one names the first.
std::string laterNode(Random& random, unsigned long number, unsigned long nodes) {
    const unsigned long later = nodes - number - 1;
    return nodeName(later ? number + 1 + random.below(later) : 0);
}

// --- Bytes --------------------------------------------------------------------------------------

// Smooth colours, a little noise, half of the rows like the one before: packs as images do.
std::string makePixels(unsigned long pixels) {
    constexpr unsigned long rowBytes = 4UL * 4096;
    Random random;
    std::string bytes;
    bytes.reserve(4 * pixels);
    for (unsigned long i = 0; i < 4 * pixels; ++i) {
        const bool repeats = i >= rowBytes && i / rowBytes % 2 == 1;
        const unsigned long fresh = i % 4 == 3 ? 255 : i / 64 % 200 + random.below(8);
        bytes += repeats ? bytes[i - rowBytes] : static_cast<char>(fresh);
    }
    return bytes;
}

std::string hexOf(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes) {
        text += digits[static_cast<unsigned char>(c) / 16U];
        text += digits[static_cast<unsigned char>(c) % 16U];
    }
    return text;
}

std::string compress(const std::string& bytes) {
    const int size = static_cast<int>(bytes.size());
    std::string block(static_cast<unsigned long>(LZ4_compressBound(size)), '\0');
    const int written =
        LZ4_compress_default(bytes.data(), block.data(), size, static_cast<int>(block.size()));
    if (written <= 0) throw std::runtime_error("cannot compress the image");
    block.resize(static_cast<unsigned long>(written));
    return block;
}

Content makeCompactImage(unsigned long pixels, const std::string& text) {
    Writer writer;
    writer.beginNode("image", 0);
    writer.compactBytes("rgba8", pixels, text);
    writer.endNode();
    return writer.finish(4 * pixels);
}

// As many nodes of so many statements, each written by `write`.
Content makeNodes(unsigned long nodes, unsigned long statementsEach,
                  void (*write)(Writer&, Random&, unsigned long)) {
    Writer writer;
    Random random;
    for (unsigned long i = 0; i < nodes; ++i)
        write(writer, random, i);
    return writer.finish(statementsEach * nodes);
}

}  // namespace

Content makeMeshes(unsigned long meshes, unsigned long verticesEach) {
    Writer writer;
    Random random;
    for (unsigned long i = 0; i < meshes; ++i)
        writeMesh(writer, random, i, verticesEach);
    return writer.finish();
}

Content makeShuffled(unsigned long meshes, unsigned long verticesEach) {
    Writer writer;
    Random random;
    const auto shuffled = [&](std::string& text, unsigned long) { appendShuffled(text, random); };
    for (unsigned long i = 0; i < meshes; ++i) {
        writer.beginNode("mesh", i);
        writer.buffer("positions", "pos3f", 3, 3 * verticesEach, Scalar::Float, shuffled);
        writer.buffer("normals", "vec3f", 3, 3 * verticesEach, Scalar::Float, shuffled);
        writer.endNode();
    }
    return writer.finish();
}

Content makeIntegers(unsigned long nodes, unsigned long numbersEach) {
    Writer writer;
    Random random;
    for (unsigned long i = 0; i < nodes; ++i) {
        writer.beginNode("data", i);
        const auto index = [&](std::string& text, unsigned long) {
            append(text, random.below(2500000));
        };
        const auto offset = [&](std::string& text, unsigned long) {
            append(text, static_cast<long>(random.below(200000)) - 100000);
        };
        if (i % 2 == 0) {
            writer.buffer("values", "uint32", 1, numbersEach, Scalar::UInt32, index);
        } else {
            writer.buffer("values", "int32", 1, numbersEach, Scalar::Int32, offset);
        }
        writer.endNode();
    }
    return writer.finish();
}

Content makeOneGroup(unsigned long numbers) {
    Writer writer;
    Random random;
    writer.beginNode("data", 0);
    writer.buffer("values", "float", 1, numbers, Scalar::Float,
                  [&](std::string& text, unsigned long) {
                      appendReal(text, random.between(-120, 120), std::chars_format::general, 7);
                  });
    writer.endNode();
    return writer.finish();
}

Content makeStatements(unsigned long nodes) {
    constexpr unsigned long statementsEach = 8;
    return makeNodes(nodes, statementsEach, writeMaterial);
}

Content makeConnections(unsigned long nodes) {
    Writer writer;
    Random random;
    for (unsigned long i = 0; i < nodes; ++i) {
        writer.beginNode("mix", i);
        writer.connect("source", laterNode(random, i, nodes) + ".out");
        writer.endNode();
    }
    return writer.finish(nodes);
}

Content makeIdentifiers(unsigned long nodes) {
    Writer writer;
    Random random;
    for (unsigned long i = 0; i < nodes; ++i) {
        const std::string name = laterNode(random, i, nodes);
        writer.beginNode("mix", i);
        writer.input("target", name, R"({"node": ")" + name + R"("})");
        writer.endNode();
    }
    return writer.finish(nodes);
}

Content makeDeclarations(unsigned long nodes) {
    Writer writer;
    for (unsigned long i = 0; i < nodes; ++i) {
        writer.beginNode("mix", i);
        writer.endNode();
    }
    return writer.finish(nodes);
}

Content makePaths(unsigned long nodes) {
    constexpr unsigned long statementsEach = 6;
    Writer writer;
    Random random;
    for (unsigned long i = 0; i < nodes; ++i) {
        writer.beginNode("material", i);
        writer.endNode();
    }
    for (unsigned long i = 0; i < nodes; ++i)
        writePaths(writer, random, i);
    return writer.finish(statementsEach * nodes);
}

Content makeMembers(unsigned long nodes) {
    constexpr unsigned long statementsEach = 7;
    return makeNodes(nodes, statementsEach, writeMembers);
}

Content makeImageNumbers(unsigned long pixels) {
    const std::string bytes = makePixels(pixels);
    Writer writer;
    writer.beginNode("image", 0);
    writer.buffer("texels", "rgba8", 4, 4 * pixels, Scalar::Byte,
                  [&](std::string& text, unsigned long i) {
                      append(text, static_cast<unsigned>(static_cast<unsigned char>(bytes[i])));
                  });
    writer.endNode();
    return writer.finish();
}

Content makeImageBytes(unsigned long pixels) {
    return makeCompactImage(pixels, "." + hexOf(makePixels(pixels)));
}

Content makeImageBlock(unsigned long pixels) {
    return makeCompactImage(pixels, ".+" + hexOf(compress(makePixels(pixels))));
}

}  // namespace bench
