// The documents that the benchmarks read, made from a seed: each as KVT and as JSON of the same
// content, number for number in the same spelling.
#pragma once

#include <string>
#include <vector>

#include <ko/foundation.h>

namespace bench {

enum class Scalar { Float, UInt32, Int32, Byte };

// The text of one buffer's numbers within a document.
struct Numbers {
    unsigned long begin = 0;
    unsigned long size = 0;
    unsigned long count = 0;
    Scalar type = Scalar::Float;
};

struct Content {
    ko::String kvt;
    std::string json;              // with room after it for readers that look ahead
    std::vector<Numbers> numbers;  // in `kvt`
    unsigned long items = 0;       // numbers or statements: what a figure is counted in
    unsigned long nodes = 0;
};

// Room that `Content::json` has after its end.
inline constexpr unsigned long jsonPadding = 256;

// Meshes with positions, normals and indices as exporters print them, 6 to 9 significant digits.
Content makeMeshes(unsigned long meshes, unsigned long verticesEach);
// Their positions and normals alone, each number spelled in another way: integers, decimals,
// exponents, 17 digits.
Content makeShuffled(unsigned long meshes, unsigned long verticesEach);
// Nodes with one buffer of integers each, half of them signed.
Content makeIntegers(unsigned long nodes, unsigned long numbersEach);
// One node with one buffer of reals.
Content makeOneGroup(unsigned long numbers);

// Nodes with six small inputs of mixed kinds and a connection.
Content makeStatements(unsigned long nodes);
// Nodes whose one input is connected to an output of a node further down, or names that node.
Content makeConnections(unsigned long nodes);
Content makeIdentifiers(unsigned long nodes);

// Nodes without inputs.
Content makeDeclarations(unsigned long nodes);
// Nodes, then five inputs of each under its full path; without JSON.
Content makePaths(unsigned long nodes);
// Nodes with two objects of three members; in JSON their paths are the names.
Content makeMembers(unsigned long nodes);

// An image of four bytes a pixel, as numbers, as compact bytes, as a compressed block; without
// JSON. Items are the bytes of the image.
Content makeImageNumbers(unsigned long pixels);
Content makeImageBytes(unsigned long pixels);
Content makeImageBlock(unsigned long pixels);

}  // namespace bench
