// A scene as text for a person to read.
#pragma once

#include <ko/scene.h>

#include "output.h"
#include "terminal.h"

namespace kvt {

// Writes what the header of the document said, then each node with its inputs. `ok` tells whether
// the document was read to its end. Long texts and buffers are shortened to their beginning.
void dumpText(OutputStream& out, const ko::mirel_sdk::impl::Scene& scene, bool ok,
              const Palette& palette);

}  // namespace kvt
