// The numbers of a scene as text.
#pragma once

#include <string_view>

#include <ko/scene.h>

#include "output.h"

namespace kvt {

// The shortest text that reads back as `value`. Not-a-number and infinities are words, and stand
// between `quote`s.
void writeReal(OutputStream& out, double value, std::string_view quote);
void writeReal(OutputStream& out, float value, std::string_view quote);

void writeBool(OutputStream& out, bool value);

// The component at `i` of a buffer, by its type.
void writeComponent(OutputStream& out, const ko::mirel_sdk::impl::BufferView& buffer,
                    unsigned long i, std::string_view quote);

}  // namespace kvt
