#include "median.h"

#include <algorithm>
#include <cmath>

namespace bench {

// Each value lies below the true median as often as above it, whatever else is known of them: so
// many of n values do as heads come up in n tosses of a coin, which is n / 2 and seldom further
// from that than the square root of n.
Median medianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t last = values.size() - 1;
    const auto count = static_cast<double>(values.size());
    const auto left = static_cast<std::size_t>(std::max(0.0, count / 2 - std::sqrt(count)));
    return {(values[last / 2] + values[(last + 1) / 2]) / 2, values[left], values[last - left]};
}

}  // namespace bench
