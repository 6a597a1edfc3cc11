// What a program has to do that keeps its scenes in JSON: makes a scene of the nodes, values and
// connections that it reads, by the scene's public operations and without a tree in between.
#pragma once

#include <memory>

#include <ko/kvtparser.h>

#include "content.h"

namespace bench {

// The scene of statements. Both throw when the JSON is not of that kind: std::runtime_error, or
// what the library that reads it throws.
//
// With the events of RapidJSON's reader.
std::shared_ptr<ko::mirel_sdk::impl::Scene> sceneByRapidJson(const Content& content);
// On demand, as simdjson calls it.
std::shared_ptr<ko::mirel_sdk::impl::Scene> sceneBySimdJson(const Content& content);

// Throws std::runtime_error when two scenes differ in nodes, inputs, types, values or connections,
// and says where.
void requireSame(const ko::mirel_sdk::impl::Scene& scene,
                 const ko::mirel_sdk::impl::Scene& expected);

}  // namespace bench
