// What holds of every scene between two operations, whatever was done to it.
#pragma once

#include <ko/scene.h>

namespace kvt::fuzz {

// Ends the process unless the lists, the index and the links of the scene say the same, and every
// node has what its type declares.
void requireConsistent(const ko::mirel_sdk::impl::Scene& scene);

// The same unless something leads from or to the node, or did a moment ago.
void requireCut(const ko::mirel_sdk::impl::Node& node);

// The elements in the arrays of the node, and of the nodes that `Scene::nodes` lists.
unsigned long elementsOf(const ko::mirel_sdk::impl::Node& node);
unsigned long elementsOf(const ko::mirel_sdk::impl::Scene& scene);

// Purges the scene of removed nodes: then its elements are those of the nodes that are left.
void purge(ko::mirel_sdk::impl::Scene& scene);

}  // namespace kvt::fuzz
