// The scene: nodes, inputs, outputs and the links between them, for programs and readers to fill.
// It uses nothing of the reader.
#include <ko/scene.h>

#include <memory>
#include <utility>

#include "scene/store.h"

namespace ko::mirel_sdk::impl {

Scene::Scene() : store_(std::make_unique<Store>(this)) {}

Scene::~Scene() {
    while (Node* const node = firstNode_) {
        firstNode_ = node->next_;
        destroy(node, *node->kind_);
    }
    purgeRemoved();
}

// --- What nodes have in common

// Of nodes without a label.
Node::Kind& Scene::kindOf(const String& type) {
    Node::Kind*& last = store_->lastKind;
    if (last && last->type == type) return *last;
    const auto known = store_->kinds.find(type);
    if (known != store_->kinds.end()) return *(last = known->second);
    std::unique_ptr<Node::Kind> made = newKind(type, String());
    store_->kinds.emplace(type, made.get());
    return *(last = made.release());
}

std::unique_ptr<Node::Kind> Scene::newKind(const String& type, String label) {
    auto kind = std::make_unique<Node::Kind>();
    kind->type = type;
    kind->label = std::move(label);
    kind->scene = this;
    kind->pool = &store_->pool;
    kind->registered = nodeType(type);
    return kind;
}

// Nobody finds it from now on; it goes with its last node.
void Scene::forgetKind(Node::Kind& kind) noexcept {
    const auto known = store_->kinds.find(kind.type);
    if (known == store_->kinds.end() || known->second != &kind) return;
    store_->kinds.erase(known);
    store_->lastKind = nullptr;
}

// A node that was never in the scene, or is no longer.
void Scene::destroy(Node* node, Node::Kind& kind) noexcept {
    if (node) Pool::destroy(node);
    if (kind.newest == node) kind.newest = nullptr;
    if (--kind.users > 0) return;
    forgetKind(kind);
    delete &kind;
}

// --- Nodes

Node* Scene::findNode(const String& name) const { return store_->nodes.find(name); }

Node* Scene::createNode(String type, String name, String label) {
    if (type.isEmpty() || name.isEmpty()) return nullptr;
    const auto place = store_->nodes.freePlace(name, name.hash());
    if (!place) return nullptr;
    Node::Kind& kind = label.isEmpty() ? kindOf(type) : *newKind(type, std::move(label)).release();
    Node* const node = makeNode(kind, name);
    store_->nodes.insertAt(*place, node);
    enlist(*node);
    return node;
}

Node* Scene::findOrCreateNode(const String& type, const String& name, unsigned long hash) {
    const auto place = store_->nodes.freePlace(name, hash);
    if (!place) return store_->nodes.find(name, hash);
    Node* const node = makeNode(kindOf(type), name);
    store_->nodes.insertAt(*place, node);
    enlist(*node);
    return node;
}

// The last one in order of creation.
void Scene::enlist(Node& node) noexcept {
    ++nodeCount_;
    node.previous_ = lastNode_;
    (lastNode_ ? lastNode_->next_ : firstNode_) = &node;
    lastNode_ = &node;
}

Node* Scene::makeNode(Node::Kind& kind, const String& name) {
    kind.learn();
    ++kind.users;
    Node* node = nullptr;
    try {
        node = store_->nodePool.make<Node>(kind, name);
        if (kind.registered) node->addDeclared(*kind.registered);
    } catch (...) {
        destroy(node, kind);
        throw;
    }
    return kind.newest = node;
}

Node* Scene::defineNode(String name) {
    Node* const node = createNode(name, name, String());
    if (node) node->isDefinition_ = true;
    return node;
}

void Scene::removeNode(const String& name) {
    Node* const node = findNode(name);
    if (!node) return;
    node->cut();
    store_->nodes.erase(name);
    --nodeCount_;
    unlink(*node);
    node->isRemoved_ = true;
    node->next_ = firstRemoved_;
    firstRemoved_ = node;
}

void Scene::unlink(Node& node) noexcept {
    (node.previous_ ? node.previous_->next_ : firstNode_) = node.next_;
    (node.next_ ? node.next_->previous_ : lastNode_) = node.previous_;
}

// All nodes between a removed one and the one that this finds before it have been removed as well.
Node* Scene::firstRemainingFrom(Node* node) const {
    if (!node->isRemoved()) return node;
    const Node* before = node->previous_;
    while (before && before->isRemoved())
        before = before->previous_;
    return before ? before->next() : firstNode_;
}

void Scene::endReading() noexcept {
    --readings_;
    if (isPurgeDue_) purgeRemoved();
}

void Scene::purgeRemoved() noexcept {
    isPurgeDue_ = readings_ > 0;
    if (isPurgeDue_) return;
    while (Node* const node = firstRemoved_) {
        firstRemoved_ = node->next_;
        destroy(node, *node->kind_);
    }
}

const NodeType* Scene::registerType(NodeType type) {
    auto owner = std::make_unique<const NodeType>(std::move(type));
    const NodeType* const registered = owner.get();
    for (const auto& [old, current] : registered->inputRenames_)
        registerInputRename(registered->name(), old, current);
    for (const auto& [old, current] : registered->outputRenames_)
        registerOutputRename(registered->name(), old, current);
    store_->allTypes.push_back(std::move(owner));
    enter(registered);
    return registered;
}

// In place of an earlier type of that name, which leaves room, so that only a new name needs any.
void Scene::enter(const NodeType* registered) {
    store_->types.erase(registered->name());
    try {
        store_->types.insert(registered);
    } catch (...) {
        store_->allTypes.pop_back();
        throw;
    }
    const auto before = store_->kinds.find(registered->name());
    if (before != store_->kinds.end()) forgetKind(*before->second);
}

const NodeType* Scene::nodeType(const String& name) const { return store_->types.find(name); }

}  // namespace ko::mirel_sdk::impl
