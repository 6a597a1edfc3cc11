// Up to four documents into one scene, with removals between them. Bytes 0xFF, which end a document
// anyway, separate them; the byte behind one says what happens before the next document.
#include <ko/scene.h>

#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "reading.h"
#include "target.h"

namespace {

using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Output;
using ko::mirel_sdk::impl::Scene;
using kvt::fuzz::require;

constexpr char separator = '\xFF';
// More add time, but nothing new.
constexpr int mostDocuments = 4;

// What the bits of the byte behind a separator ask for.
enum Before : unsigned {
    RemoveFirst = 1,
    RemoveSome = 2,
    Purge = 4,
    FromFile = 8,
    KeepHeader = 16
};

void removeFirst(Scene& scene) {
    if (!scene.nodes().isEmpty()) scene.removeNode((*scene.nodes().begin())->name());
}

void removeEveryOther(Scene& scene) {
    bool remove = false;
    for (const Node* const node : scene.nodes()) {
        if (remove) scene.removeNode(node->name());
        remove = !remove;
    }
}

struct Links {
    long connections = 0;
    long references = 0;
};

// Links as the inputs of the scene have them.
Links forwardLinks(Scene& scene) {
    Links links;
    for (Node* const node : scene.nodes()) {
        for (const Input* input = node->inputAt(0); input; input = input->nextInNode()) {
            const Output* const output = input->connection();
            require(!output || !output->node()->isRemoved(), "a connection from a removed node");
            if (output) ++links.connections;
            if (!input->nodeReference()) continue;
            require(!input->nodeReference()->isRemoved(), "a reference to a removed node");
            ++links.references;
        }
    }
    return links;
}

// Links as the outputs and nodes of the scene have them.
Links backwardLinks(Scene& scene) {
    Links links;
    for (const Node* const node : scene.nodes()) {
        for (unsigned long i = 0; i < node->outputCount(); ++i) {
            const auto connected = node->outputAt(i)->connected();
            links.connections += std::distance(connected.begin(), connected.end());
        }
        const auto referring = node->referring();
        links.references += std::distance(referring.begin(), referring.end());
    }
    return links;
}

void purge(Scene& scene) {
    scene.purgeRemoved();
    const Links forward = forwardLinks(scene);
    const Links backward = backwardLinks(scene);
    require(forward.connections == backward.connections, "connections that one side ignores");
    require(forward.references == backward.references, "references that one side ignores");
}

std::string_view takeDocument(std::string_view& rest) {
    const std::string_view document = rest.substr(0, rest.find(separator));
    rest.remove_prefix(document.size());
    return document;
}

unsigned takeByte(std::string_view& rest) {
    if (rest.empty()) return 0;
    const auto byte = static_cast<unsigned char>(rest.front());
    rest.remove_prefix(1);
    return byte;
}

void change(Scene& scene, unsigned before) {
    if (before & RemoveFirst) removeFirst(scene);
    if (before & RemoveSome) removeEveryOther(scene);
    if (before & Purge) purge(scene);
}

bool readDocument(Scene& scene, std::string_view document, unsigned before) {
    if (before & FromFile)
        return kvt::fuzz::readBytes(scene, document, (before & KeepHeader) != 0).ok;
    return kvt::fuzz::readText(scene, document).ok;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest = kvt::fuzz::textOf(data, size);
    Scene scene;
    kvt::fuzz::prepare(scene, rest);
    bool ok = readDocument(scene, takeDocument(rest), 0);
    for (int documents = 1; documents < mostDocuments && !rest.empty(); ++documents) {
        rest.remove_prefix(1);
        const unsigned before = takeByte(rest);
        change(scene, before);
        ok = readDocument(scene, takeDocument(rest), before);
    }
    kvt::fuzz::dumpedText(scene, ok);
    purge(scene);
    kvt::fuzz::dumpedJson(scene, ok);
    return 0;
}
