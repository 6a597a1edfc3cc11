// A scene as one JSON object.
#pragma once

#include <ko/scene.h>

#include "output.h"

namespace kvt {

// Writes `scene` and a line break; `ok` tells whether its document was read to the end. Text and
// numbers go out as they come: nothing of the output is held in memory.
void dumpJson(OutputStream& out, const ko::mirel_sdk::impl::Scene& scene, bool ok);

}  // namespace kvt
