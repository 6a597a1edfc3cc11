#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "block.h"
#include "parts.h"

namespace kvt::test {

namespace {

constexpr unsigned long patterns = 1UL << 32;
constexpr unsigned long blockSize = 4096;

// The patterns before `end` that stand `stride` apart, printed as short as they read back.
Block<float> printed(unsigned long begin, unsigned long end, unsigned long stride) {
    Block<float> block;
    for (unsigned long pattern = begin; pattern < end; pattern += stride) {
        const auto bits = static_cast<std::uint32_t>(pattern);
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        char text[32];
        const char* const stop = std::to_chars(text, text + sizeof text, value).ptr;
        block.add({text, static_cast<unsigned long>(stop - text)}, value);
    }
    return block;
}

}  // namespace

void sweepFloats(Sweep& sweep, unsigned long stride) {
    const unsigned long span = blockSize * stride;
    sweep.run("floats", (patterns + span - 1) / span, [&sweep, stride, span](unsigned long i) {
        printed(i * span, std::min((i + 1) * span, patterns), stride).check(sweep);
    });
}

}  // namespace kvt::test
