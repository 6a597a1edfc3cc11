// The parts of what is swept.
#pragma once

#include "sweep.h"

namespace kvt::test {

// Bit patterns of floats, all 2^32 of them or every so many.
void sweepFloats(Sweep& sweep, unsigned long stride);
// Random bit patterns of doubles, and random spellings of decimals, each that many.
void sweepDoubles(Sweep& sweep, unsigned long count);
// What lies halfway between two neighbouring reals of any exponent, and just beside it, `density`
// times for each.
void sweepHalfway(Sweep& sweep, unsigned long density);
// Integers at the bounds of every type, and that many random ones of each.
void sweepIntegers(Sweep& sweep, unsigned long count);

}  // namespace kvt::test
