// The middle of what was measured, and how far it is to be trusted.
#pragma once

#include <vector>

namespace bench {

struct Median {
    double value = 0;
    // The median of many more measurements lies between these, nineteen times out of twenty.
    double low = 0;
    double high = 0;

    // The distance between the two, as a share of the median.
    double spread() const { return (high - low) / value; }
};

// Of at least one value.
Median medianOf(std::vector<double> values);

}  // namespace bench
