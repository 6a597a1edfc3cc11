// Asking memory ahead for what is looked up all over a large scene.
#pragma once

#include <ko/scene.h>

#include "scene/store.h"

namespace ko::mirel_sdk::impl {

// Each says what is about to be looked at, and looks only at what an earlier one has asked for.
class Ahead {
  public:
    // Where the name of a node stands or would stand, by its hash.
    static void place(const Scene& scene, unsigned long hash) { scene.store_->nodes.expect(hash); }
    // The node that stands there, with its first output; null for none. Its name is not compared.
    static Node* node(const Scene& scene, unsigned long hash) {
        return scene.store_->nodes.likely(hash);
    }
    // The place where the next input is written that takes its value from there, or refers to it.
    static void connection(const Output& output) { write(output.attached_.end); }
    static void reference(const Node& node) { write(node.attached_.end); }
    // An input that is about to be connected.
    template <class T>
    static void write(const T* place) {
        __builtin_prefetch(place, 1);
    }
};

}  // namespace ko::mirel_sdk::impl
