// Up to four documents into one scene, with removals between them. Bytes 0xFF, which end a document
// anyway, separate them; the byte after one says what happens before the next document.
#include <ko/scene.h>

#include <cstdint>
#include <string_view>

#include "choices.h"
#include "consistency.h"
#include "reading.h"
#include "target.h"

namespace {

using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::Scene;

constexpr char separator = '\xFF';
// More add time, but nothing new.
constexpr int mostDocuments = 4;

// What the bits of the byte after a separator ask for.
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

void change(Scene& scene, unsigned before) {
    if (before & RemoveFirst) removeFirst(scene);
    if (before & RemoveSome) removeEveryOther(scene);
    if (before & Purge) kvt::fuzz::purge(scene);
}

bool readDocument(Scene& scene, std::string_view document, unsigned before) {
    if (before & FromFile)
        return kvt::fuzz::readBytes(scene, document, (before & KeepHeader) != 0).ok;
    return kvt::fuzz::readText(scene, document).ok;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = kvt::fuzz::textOf(data, size);
    kvt::fuzz::Choices choices(input);
    Scene scene;
    kvt::fuzz::prepare(scene, input);
    bool ok = readDocument(scene, choices.until(separator), 0);
    for (int documents = 1; documents < mostDocuments && choices.areLeft(); ++documents) {
        const unsigned before = choices.byte();
        change(scene, before);
        ok = readDocument(scene, choices.until(separator), before);
    }
    kvt::fuzz::dumpedText(scene, ok);
    kvt::fuzz::purge(scene);
    kvt::fuzz::dumpedJson(scene, ok);
    return 0;
}
