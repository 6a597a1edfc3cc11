#include <ko/scene.h>

#include <memory>
#include <utility>

#include "pool.h"

namespace ko::mirel_sdk::impl {

Scene::Scene() : pool_(std::make_unique<Pool>()) {}

Scene::~Scene() {
    while (Node* const node = firstNode_) {
        firstNode_ = node->next_;
        Pool::destroy(node);
    }
    purgeRemoved();
}

Node* Scene::findNode(const String& name) const { return index_.find(name); }

Node* Scene::createNode(String type, String name, String label) {
    if (type.isEmpty() || name.isEmpty()) return nullptr;
    const auto place = index_.freePlace(name);
    if (!place) return nullptr;
    const NodeType* const declared = nodeType(type);
    Node* const node = pool_->make<Node>(*this, std::move(type), std::move(name), std::move(label));
    try {
        if (declared) node->addDeclared(*declared);
    } catch (...) {
        Pool::destroy(node);
        throw;
    }
    index_.insertAt(*place, node);
    node->previous_ = lastNode_;
    (lastNode_ ? lastNode_->next_ : firstNode_) = node;
    lastNode_ = node;
    return node;
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
    index_.erase(name);
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
        Pool::destroy(node);
    }
}

const NodeType* Scene::registerType(NodeType type) {
    auto owner = std::make_unique<const NodeType>(std::move(type));
    const NodeType* const registered = owner.get();
    for (const auto& [old, current] : registered->inputRenames_)
        registerInputRename(registered->name(), old, current);
    for (const auto& [old, current] : registered->outputRenames_)
        registerOutputRename(registered->name(), old, current);
    types_.push_back(std::move(owner));
    enter(registered);
    return registered;
}

// In place of an earlier type of that name, which leaves room, so that only a new name needs any.
void Scene::enter(const NodeType* registered) {
    typeIndex_.erase(registered->name());
    try {
        typeIndex_.insert(registered);
    } catch (...) {
        types_.pop_back();
        throw;
    }
}

const NodeType* Scene::nodeType(const String& name) const { return typeIndex_.find(name); }

}  // namespace ko::mirel_sdk::impl
