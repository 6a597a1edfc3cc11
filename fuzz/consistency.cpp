#include "consistency.h"

#include "reading.h"

namespace kvt::fuzz {

using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::InputDeclaration;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::Scene;

namespace {

bool isLive(const Node* node) { return node && !node->isRemoved(); }

// --- Links: those between nodes of the scene, counted from either end

struct Links {
    unsigned long connections = 0;
    unsigned long references = 0;

    void add(Links more) {
        connections += more.connections;
        references += more.references;
    }
    bool operator==(Links other) const {
        return connections == other.connections && references == other.references;
    }
};

// As the inputs have them.
Links forwardLinks(const Input& input) {
    const Output* const output = input.connection();
    return {output && isLive(output->node()) ? 1UL : 0UL,
            isLive(input.nodeReference()) ? 1UL : 0UL};
}

// As outputs and nodes have them.
unsigned long connectionsTo(const Output& output) {
    unsigned long count = 0;
    for (const Input* const input : output.connected()) {
        require(input->connection() == &output, "an input that is connected elsewhere");
        if (isLive(input->owner())) ++count;
    }
    return count;
}

Links backwardLinks(const Node& node) {
    Links links;
    for (unsigned long i = 0; i < node.outputCount(); ++i)
        links.connections += connectionsTo(*node.outputAt(i));
    for (const Input* const input : node.referring()) {
        require(input->nodeReference() == &node, "an input that refers to another node");
        if (isLive(input->owner())) ++links.references;
    }
    return links;
}

// --- Inputs

void requireInPlace(const Input& input, const Node& node) {
    const Input* const parent = input.parent();
    require(input.owner() == &node, "an input of another node");
    const Input* const there =
        parent ? parent->touchedAt(input.position()) : node.inputAt(input.position());
    require(there == &input, "an input in the place of another");
    if (parent && parent->isArray()) return;
    const Input* const found = parent ? parent->input(input.name()) : node.input(input.name());
    require(found == &input, "an input that is not found by its name");
}

// The links of a node's inputs, each of which is where it says.
Links requireInputs(const Node& node) {
    Links links;
    const Input* input = node.inputAt(0);
    for (; input; input = input->nextInNode()) {
        requireInPlace(*input, node);
        links.add(forwardLinks(*input));
    }
    return links;
}

// --- Node types

void requireDeclared(const Node& node, const NodeType& type) {
    for (unsigned long i = 0; i < type.inputCount(); ++i) {
        const InputDeclaration& declared = type.inputAt(i);
        const Input* const input = node.inputAt(i);
        require(type.findInput(declared.name) == &declared, "a declaration that is not found");
        require(input && input->name() == declared.name, "a declared input that is not there");
        const bool isAnyType = declared.type == AttrType::Null ||
                               static_cast<unsigned>(declared.type) >= ko::mirel_sdk::attrTypeCount;
        require(isAnyType || input->type() == declared.type, "a declared input of another type");
    }
    require(node.outputCount() == type.outputs().size(), "outputs that are not declared");
    for (unsigned long i = 0; i < node.outputCount(); ++i)
        require(node.outputAt(i)->name() == type.outputs()[i], "another output than declared");
}

}  // namespace

void requireConsistent(const Scene& scene) {
    Links forward;
    Links backward;
    unsigned long count = 0;
    for (const Node* const node : scene.nodes()) {
        require(++count <= scene.nodeCount(), "more nodes than the scene counts");
        require(!node->isRemoved(), "a removed node in the list");
        require(scene.findNode(node->name()) == node, "a node that is not found by its name");
        forward.add(requireInputs(*node));
        backward.add(backwardLinks(*node));
        if (node->nodeType()) requireDeclared(*node, *node->nodeType());
    }
    require(count == scene.nodeCount(), "fewer nodes than the scene counts");
    require(forward == backward, "links that one side ignores");
}

void requireCut(const Node& node) {
    const Input* input = node.inputAt(0);
    for (; input; input = input->nextInNode())
        require(!input->connection() && !input->nodeReference(), "a link that is not cut");
    require(node.referring().isEmpty(), "a reference that is not cut");
    for (unsigned long i = 0; i < node.outputCount(); ++i)
        require(node.outputAt(i)->connected().isEmpty(), "a connection that is not cut");
}

unsigned long elementsOf(const Node& node) {
    unsigned long count = 0;
    const Input* input = node.inputAt(0);
    for (; input; input = input->nextInNode())
        if (input->isArray()) count += input->inputCount();
    return count;
}

unsigned long elementsOf(const Scene& scene) {
    unsigned long count = 0;
    for (const Node* const node : scene.nodes())
        count += elementsOf(*node);
    return count;
}

void purge(Scene& scene) {
    scene.purgeRemoved();
    requireConsistent(scene);
    require(scene.elementCount() == elementsOf(scene), "elements of no node");
}

}  // namespace kvt::fuzz
