// Which values fit inputs of another type is `canConvert`; what they become there is here.
#pragma once

#include <ko/scene.h>

namespace ko::mirel_sdk::impl {

// The value as one of another type; false where there is no such conversion: a Bool fits no Real.
// Answers for every pair of types, also for those that `canConvert` refuses.
bool convert(const AttrData& from, AttrType type, AttrData& to);

}  // namespace ko::mirel_sdk::impl
