// What a scene keeps.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include <ko/scene.h>

#include "scene/nameindex.h"
#include "scene/pool.h"

namespace ko::mirel_sdk::impl {

struct Scene::Store {
    explicit Store(Scene* scene) : names(new Names), nodePool(scene, *names), pool(scene, *names) {}

    const RefersTo<Names> names;
    // What looking for nodes touches has one line of the caches for each, of two that it stands in.
    Pool nodePool;
    Pool pool;  // of all else
    NameIndex<Node> nodes;
    // Of nodes without a label, by type.
    std::unordered_map<String, Node::Kind*, NameHash> kinds;
    Node::Kind* lastKind = nullptr;  // one of them, that of the node made last
    NameIndex<const NodeType> types;
    // Replaced ones too: nodes refer to them.
    std::vector<std::unique_ptr<const NodeType>> allTypes;
};

}  // namespace ko::mirel_sdk::impl
