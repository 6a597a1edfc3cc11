#include "shapes.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include <ko/foundation.h>
#include <ko/kvtparser.h>
#include <ko/scene.h>

namespace growth {

namespace {

// --- Putting documents together -----------------------------------------------------------------

std::string repeated(std::string_view text, unsigned long times) {
    std::string result;
    result.reserve(text.size() * times);
    for (unsigned long i = 0; i < times; ++i)
        result += text;
    return result;
}

// As often as it fits.
std::string filled(std::string_view text, unsigned long bytes) {
    return repeated(text, bytes / text.size());
}

// `pattern` once for each number from 0 on; `$` stands for the number.
std::string numbered(std::string_view pattern, unsigned long count) {
    std::string result;
    for (unsigned long i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        for (const char c : pattern) {
            if (c == '$') {
                result += number;
            } else {
                result += c;
            }
        }
    }
    return result;
}

// How often the pattern fits, its numbers at most seven digits long.
unsigned long timesIn(std::string_view pattern, unsigned long bytes) {
    const auto numbers =
        static_cast<unsigned long>(std::count(pattern.begin(), pattern.end(), '$'));
    return bytes / (pattern.size() + 6 * numbers);
}

std::string numberedIn(std::string_view pattern, unsigned long bytes) {
    return numbered(pattern, timesIn(pattern, bytes));
}

Document plain(std::string text) { return {"", std::move(text)}; }
Document broken(std::string text) { return {"", std::move(text), false}; }

// --- Depth --------------------------------------------------------------------------------------

Document pathOfNames(unsigned long bytes) {
    return plain("t n: n" + filled(".a", bytes) + " = 1;");
}

Document pathOfIndices(unsigned long bytes) {
    return plain("t n: n.a" + filled("[0]", bytes) + " = 1;");
}

Document pathTwice(unsigned long bytes) {
    const std::string path = "n" + filled(".a", bytes / 2);
    return plain("t n; " + path + " = 1; " + path + " = 2.5;");
}

Document deepArrays(unsigned long bytes) {
    return plain("t n:\n" + filled(".a[0][*][*] = 1;\n", bytes));
}

// --- Long tokens --------------------------------------------------------------------------------

Document longNames(unsigned long bytes) {
    const std::string name(bytes / 8, 'x');
    return plain("t" + name + " n" + name + ": .a" + name + " = 1; .a" + name + " = 2.5; .a" +
                 name + " |= n" + name + ".o" + name + ";");
}

Document megabyteNames(unsigned long bytes) {
    const std::string name(1UL << 20, 'x');
    std::string text = "t n:\n";
    for (unsigned long i = 0; i < bytes >> 20; ++i)
        text += "." + name + std::to_string(i) + " = 1;\n";
    return plain(text);
}

Document longString(unsigned long bytes) {
    return plain("t n: .x = \"" + filled("text ", bytes) + "\";");
}

Document longEscapes(unsigned long bytes) {
    return plain("t n: .x = \"" + filled("\\\\\\x41", bytes) + "\";");
}

Document longComment(unsigned long bytes) { return plain("t n; #" + filled("text:", bytes)); }

Document longInteger(unsigned long bytes) {
    return plain("t n: .x = int32[1] {" + std::string(bytes, '0') + "7};");
}

Document longReal(unsigned long bytes) {
    return plain("t n: .x = 0." + std::string(bytes, '7') + ";");
}

Document longExponent(unsigned long bytes) {
    return plain("t n: .x = double[1] {1." + std::string(bytes / 2, '7') + "e-" +
                 std::string(bytes / 2, '0') + "1};");
}

// --- Groups -------------------------------------------------------------------------------------

Document blanksInParens(unsigned long bytes) {
    return plain("t n: .x = vec2(1" + filled(" \n", bytes) + "2);");
}

Document blanksInBraces(unsigned long bytes) {
    return plain("t n: .x = float[2] {1" + filled(" ,\n", bytes) + "2};");
}

Document blanksInBrackets(unsigned long bytes) {
    return plain("t n: .x[" + filled(" \n", bytes) + "1] = 2;");
}

Document parensOnly(unsigned long bytes) {
    return plain("t n: .x = vec2(" + std::string(bytes / 2, '(') + "1 2" +
                 std::string(bytes / 2, ')') + ");");
}

Document bracesByTurns(unsigned long bytes) {
    const unsigned long count = bytes / 4;
    return plain("t n: .x = byte[" + std::to_string(count) + "] {" + repeated("{1} ", count) +
                 "};");
}

Document numbersAndBraces(unsigned long bytes) {
    const unsigned long count = bytes / 4;
    return plain("t n: .x = byte[" + std::to_string(count) + "] {" + repeated("1 {", count) +
                 std::string(count, '}') + "};");
}

Document bracketsOnly(unsigned long bytes) {
    return plain("t n: .x" + std::string(bytes, '[') + "1] = 2;");
}

Document unclosedGroup(unsigned long bytes) {
    return broken("t n: .x = float[1] {" + filled("1 {", bytes));
}

Document unclosedString(unsigned long bytes) {
    return broken("t n: .x = \"" + filled("text\n", bytes));
}

// --- Many things --------------------------------------------------------------------------------

Document blanks(unsigned long bytes) { return plain(filled(" \t\n", bytes)); }

Document comments(unsigned long bytes) { return plain(filled("#\n", bytes)); }

Document nodes(unsigned long bytes) { return plain(numberedIn("t n$;", bytes)); }

Document definitions(unsigned long bytes) { return plain(numberedIn("define n$;", bytes)); }

Document oneDefinition(unsigned long bytes) { return plain(filled("define n; with n:", bytes)); }

Document nodeInputs(unsigned long bytes) { return plain("t n:" + numberedIn(".x$=1;", bytes)); }

Document objectInputs(unsigned long bytes) { return plain("t n:" + numberedIn(".o.x$=1;", bytes)); }

Document pendingOfManyInputs(unsigned long bytes) {
    return plain("t n:" + numberedIn(".x$|=n.o;", bytes));
}

Document pendingOfManyOutputs(unsigned long bytes) {
    return plain("t n:" + numberedIn(".x$|=n.o$;", bytes));
}

Document pendingOfOneInput(unsigned long bytes) {
    return plain("t n:" + numberedIn(".x|=n.o$;", bytes));
}

Document pendingNodes(unsigned long bytes) { return plain("t n:" + numberedIn(".x$=n;", bytes)); }

Document pendingTwice(unsigned long bytes) {
    const unsigned long count = timesIn(".x$|=n.o;", bytes / 2);
    return plain("t n:" + numbered(".x$|=n.o;", count) + numbered(".x$|=n.p;", count));
}

Document secondDocument(unsigned long bytes) {
    const unsigned long count = timesIn("n.x$|=s.p;", bytes);
    return {"t s;t n:" + numbered(".x$|=s.o;", count), numbered("n.x$|=s.p;", count)};
}

Document removalsInOrder(unsigned long bytes) {
    const unsigned long count = timesIn("remove n$;", bytes);
    return {numbered("t n$:.x|=n0.o;.y=n0;", count), numbered("remove n$;", count)};
}

Document removalsInReverse(unsigned long bytes) {
    const unsigned long count = timesIn("remove n$;", bytes);
    std::string text;
    for (unsigned long i = count; i-- > 0;)
        text += "remove n" + std::to_string(i) + ";";
    return {numbered("t n$:.x|=n0.o;.y=n0;", count), text};
}

Document oneNodeRemoved(unsigned long bytes) { return plain(filled("t n;remove n;", bytes)); }

Document warnings(unsigned long bytes) { return plain("t n:.x=1;" + filled(".x=2.5;", bytes)); }

Document errors(unsigned long bytes) { return plain("t n:.x=1;" + filled(".x=\"a\";", bytes)); }

Document warningsAtTheEnd(unsigned long bytes) {
    return plain("t n:" + numberedIn(".x$|=gone.o;.y$=gone;.z$|=.q;", bytes));
}

Document buffersInAnArray(unsigned long bytes) {
    return plain("t n:" + filled(".b[*]=float[1] {1};", bytes));
}

Document elements(unsigned long bytes) { return plain("t n:" + filled(".a[*]=1;", bytes)); }

// --- Messages -----------------------------------------------------------------------------------
//
// A message quotes what the statement that it is about has written, and more: the name of its node,
// which stands in the document once, and the name that an input has now.

// A node whose name takes a part of the document, its statements to follow.
std::string longNode(unsigned long bytes) { return "t " + std::string(bytes / 64, 'n') + ":"; }

Document longNodeErrors(unsigned long bytes) {
    return plain(longNode(bytes) + ".x=1;" + filled(".x=\"\";", bytes));
}

Document longNodeContainers(unsigned long bytes) {
    return plain(longNode(bytes) + ".x=[];.y={};" + filled(".x=1;.y=1;", bytes));
}

Document longNodeWarnings(unsigned long bytes) {
    return plain(longNode(bytes) + ".x=1;" + filled(".x=2.5;", bytes));
}

Document longNodeBuffers(unsigned long bytes) {
    return plain(longNode(bytes) + ".x=byte[1]{1};" + filled(".x=int32[0]{};", bytes));
}

Document longNodeElements(unsigned long bytes) {
    return plain(longNode(bytes) + ".a[*].x=1;" + filled(".a[0].x=\"\";", bytes));
}

Document longNodeConnections(unsigned long bytes) {
    return plain(longNode(bytes) + numberedIn(".x$|=gone.o;", bytes));
}

Document longNodeReferences(unsigned long bytes) {
    return plain(longNode(bytes) + numberedIn(".x$=gone;", bytes));
}

using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Scene;

// Nodes of type `t` have one output.
Document longNodeOutputs(unsigned long bytes) {
    const auto registerTypes = [](Scene& scene) {
        scene.registerType(std::move(NodeType("t").output("there")));
    };
    return {"t s;", longNode(bytes) + numberedIn(".x$|=s.o;", bytes), true, registerTypes};
}

void registerEnumeration(Scene& scene) {
    scene.registerType(std::move(NodeType("t").enumeration("e", {"draft", "final"})));
}

Document longNodeEnumeration(unsigned long bytes) {
    return {"", longNode(bytes) + filled(".e=\"\";", bytes), true, registerEnumeration};
}

Document enumerationValues(unsigned long bytes) {
    return {"", "t n:" + filled(".e=\"a text that is no value\";", bytes), true,
            registerEnumeration};
}

Document longEnumerationValues(unsigned long bytes) {
    const std::string value(bytes / 8, 'v');
    return {"", "t n:" + filled(".e=\"" + value + "\";", bytes), true, registerEnumeration};
}

// Documents say `a` for an input whose name takes as much as the longest node.
Document longRename(unsigned long bytes) {
    const auto registerTypes = [bytes](Scene& scene) {
        const ko::String current(std::string_view(std::string(bytes / 64, 'x')));
        NodeType type("t");
        type.input(current, AttrData::ofInt(1)).renameInput("a", current);
        scene.registerType(std::move(type));
    };
    return {"", "t n:" + filled(".a=\"\";", bytes), true, registerTypes};
}

Document longType(unsigned long bytes) {
    return plain(std::string(bytes / 64, 't') + " n:.x=1;" + filled(".x=\"\";.x=2.5;", bytes));
}

Document longInput(unsigned long bytes) {
    const std::string name = "." + std::string(bytes / 8, 'x');
    return plain("t n:" + name + "=1;" + filled(name + "=\"\";", bytes));
}

Document longPathErrors(unsigned long bytes) {
    const std::string path = repeated(".a", bytes / 16);
    return plain("t n:" + path + "=1;" + filled(path + "=\"\";", bytes));
}

// Indices are longer in messages than `[*]` is in the document.
Document longIndexErrors(unsigned long bytes) {
    const std::string path = ".a" + repeated("[*]", bytes / 24);
    return plain("t n:" + path + "=1;" + filled(path + "=\"\";", bytes));
}

Document longConnections(unsigned long bytes) {
    const std::string name(bytes / 16, 'm');
    return plain("t n:" + numberedIn(".x$|=" + name + ".o;.y$=" + name + ";", bytes));
}

Document longInvalidOutputs(unsigned long bytes) {
    return plain("t n:" + numberedIn(".x$|=m" + repeated(".o", bytes / 16) + ";", bytes));
}

Document shortBuffers(unsigned long bytes) {
    return plain("t n:" + filled(".x=byte[9]{};", bytes));
}

Document versions(unsigned long bytes) { return plain(filled("#version:\n", bytes)); }

Document longVersions(unsigned long bytes) {
    return plain(filled("#version:" + std::string(bytes / 8, 'v') + "\n", bytes));
}

Document longBadToken(unsigned long bytes) {
    return broken("t n: .x = 1 " + std::string(bytes, 'x') + ";");
}

Document longPathNowhere(unsigned long bytes) {
    return broken(longNode(bytes) + ".x|=s.o;.x[0]" + filled(".a", bytes) + "=1;");
}

Document longExcess(unsigned long bytes) {
    return broken("t n:.x=float[1]{1 " + std::string(bytes, '7') + "};");
}

// --- Names that collide in a weak hash ----------------------------------------------------------

// Alike in every hash that multiplies by a small number and adds: "Ez" and "FY" by 33, "Aa" and
// "BB" by 31.
std::string twins(std::string_view first, std::string_view second, unsigned long bits) {
    std::string name;
    for (int i = 0; i < 24; ++i)
        name += (bits >> i & 1) ? first : second;
    return name;
}

Document twinNames(std::string_view first, std::string_view second, unsigned long bytes) {
    std::string text = "t n:";
    for (unsigned long i = 0; text.size() < bytes; ++i)
        text.append(".").append(twins(first, second, i)).append("=1;");
    return plain(text);
}

Document twinsBy31(unsigned long bytes) { return twinNames("Aa", "BB", bytes); }
Document twinsBy33(unsigned long bytes) { return twinNames("Ez", "FY", bytes); }

// Alike in every hash that adds the characters up.
Document permutedNames(unsigned long bytes) {
    std::string text = "t n:";
    std::string name = "abcdefghijk";  // 40 million of them
    do {
        text += "." + name + "=1;";
    } while (text.size() < bytes && std::next_permutation(name.begin(), name.end()));
    return plain(text);
}

// Alike in every hash that looks at the ends, or at the beginning alone.
Document longPrefixes(unsigned long bytes) {
    const std::string same(120, 'x');
    return plain("t n:" + numberedIn("." + same + "$" + same + "=1;", bytes));
}

// Connects the inputs whose addresses are alike: as far apart as before in every process, since
// only where they begin differs. Multiplied by the golden ratio, their middle bits are one in
// sixteen of what they could be, whatever is added.
Document addressesAlike(unsigned long bytes) {
    using namespace ko::mirel_sdk::impl;
    const unsigned long count = timesIn(".x$=1;", bytes);
    std::string text = "t n:" + numbered(".x$=1;", count);
    Scene scene;
    parseString(&scene, ko::String(std::string_view(text)));
    Node& node = *scene.findNode("n");
    constexpr unsigned long share = 16;
    unsigned long places = 64;
    while (places < 2 * count / share)
        places *= 2;
    const auto address = [&node](unsigned long i) {
        return reinterpret_cast<std::uintptr_t>(node.inputAt(i));
    };
    for (unsigned long i = 0; i < count; ++i) {
        const unsigned long spread = (address(i) - address(0)) * 0x9E3779B97F4A7C15UL >> 20U;
        if (spread % places < places / share) text += ".x" + std::to_string(i) + "|=n.o;";
    }
    return plain(text);
}

// --- Values that claim more than they hold ------------------------------------------------------

Document claimsOfOneInput(unsigned long bytes) {
    return plain("t n:" + filled(".x=float[25000] {1};", bytes));
}

Document claimsOfManyElements(unsigned long bytes) {
    return plain("t n:" + filled(".b[*]=float[250] {1};", bytes));
}

Document compactClaims(unsigned long bytes) {
    return plain("t n:" + filled(".x=byte[100000] {.00};", bytes));
}

// One literal, then a match as long as its length bytes say: 255 bytes for each of them.
Document compactBlock(unsigned long bytes) {
    const unsigned long lengths = bytes / 2;
    return plain("t n: .x = byte[" + std::to_string(300 * lengths) + "] {.+1F000100" +
                 std::string(2 * lengths, 'F') + "0000};");
}

}  // namespace

const std::vector<Shape>& shapes() {
    static const std::vector<Shape> all = {
        {"path of names", pathOfNames},
        {"path of indices", pathOfIndices},
        {"path twice, with a warning", pathTwice},
        {"arrays in arrays", deepArrays},
        {"names of an eighth", longNames},
        {"names of a megabyte", megabyteNames},
        {"string", longString},
        {"string of escapes", longEscapes},
        {"comment", longComment},
        {"integer", longInteger},
        {"real", longReal},
        {"exponent", longExponent},
        {"blanks in parens", blanksInParens},
        {"blanks in braces", blanksInBraces},
        {"blanks in brackets", blanksInBrackets},
        {"parens in parens", parensOnly},
        {"braces by turns", bracesByTurns},
        {"numbers and braces", numbersAndBraces},
        {"brackets in brackets", bracketsOnly},
        {"unclosed group", unclosedGroup},
        {"unclosed string", unclosedString},
        {"blanks", blanks},
        {"comments", comments},
        {"nodes", nodes},
        {"definitions", definitions},
        {"one definition", oneDefinition},
        {"inputs of a node", nodeInputs},
        {"inputs of an object", objectInputs},
        {"pending, many inputs", pendingOfManyInputs},
        {"pending, many outputs", pendingOfManyOutputs},
        {"pending, one input", pendingOfOneInput},
        {"pending, nodes", pendingNodes},
        {"pending, each twice", pendingTwice},
        {"second document", secondDocument},
        {"removals in order", removalsInOrder},
        {"removals in reverse", removalsInReverse},
        {"one node removed", oneNodeRemoved},
        {"warnings", warnings},
        {"errors", errors},
        {"warnings at the end", warningsAtTheEnd},
        {"long node, errors", longNodeErrors, 8},
        {"long node, containers", longNodeContainers, 8},
        {"long node, warnings", longNodeWarnings, 8},
        {"long node, buffers", longNodeBuffers, 8},
        {"long node, elements", longNodeElements, 8},
        {"long node, connections", longNodeConnections, 8},
        {"long node, references", longNodeReferences, 8},
        {"long node, outputs", longNodeOutputs, 8},
        {"long node, enumeration", longNodeEnumeration, 8},
        {"enumeration values", enumerationValues},
        {"enumeration values, long", longEnumerationValues},
        {"long rename", longRename, 8},
        {"long type", longType},
        {"long input", longInput},
        {"long path, errors", longPathErrors},
        {"long indices, errors", longIndexErrors},
        {"long connections", longConnections},
        {"long invalid outputs", longInvalidOutputs},
        {"buffers of too little", shortBuffers},
        {"version comments", versions},
        {"version comments, long", longVersions},
        {"long bad token", longBadToken},
        {"long path to nowhere", longPathNowhere},
        {"long excess", longExcess},
        {"buffers in an array", buffersInAnArray},
        {"elements", elements},
        {"names alike by 31", twinsBy31},
        {"names alike by 33", twinsBy33},
        {"names permuted", permutedNames},
        {"names of long prefixes", longPrefixes},
        {"addresses alike", addressesAlike},
        {"claims of one input", claimsOfOneInput, 16},
        {"claims of elements", claimsOfManyElements, 16},
        {"compact claims", compactClaims, 16},
        {"compact block", compactBlock, 16},
    };
    return all;
}

}  // namespace growth
