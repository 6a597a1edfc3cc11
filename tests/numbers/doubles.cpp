#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string>

#include "block.h"
#include "parts.h"
#include "reference.h"

namespace kvt::test {

namespace {

constexpr unsigned long blockSize = 1024;

// With just enough digits or with 17, which are always enough.
std::string printed(double value, bool isShortest) {
    char text[64];
    char* const end = text + sizeof text;
    char* const stop = isShortest
                           ? std::to_chars(text, end, value).ptr
                           : std::to_chars(text, end, value, std::chars_format::scientific, 16).ptr;
    return std::string(text, stop);
}

Block<double> patterns(Random& random, unsigned long count, Sweep& sweep) {
    Block<double> block;
    for (unsigned long i = 0; i < count; ++i) {
        const unsigned long bits = random.next();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        for (const bool isShortest : {true, false}) {
            const std::string text = printed(value, isShortest);
            if (!isSame(value, reference<double>(text))) sweep.complain("printed wrongly: " + text);
            block.add(text, value);
        }
    }
    return block;
}

std::string digits(Random& random, unsigned long count) {
    std::string text;
    while (text.size() < count)
        text += static_cast<char>('0' + random.below(10));
    return text;
}

// Of one to three digits, most of them of two, as programs print them.
std::string exponent(Random& random) {
    constexpr unsigned long ranges[] = {10, 40, 40, 100, 400};
    std::string text = random.oneIn(2) ? "e" : "E";
    const unsigned long size = random.below(ranges[random.below(std::size(ranges))]);
    text += random.oneIn(2) ? "-" : random.oneIn(2) ? "+" : "";
    if (size < 10 && !random.oneIn(4)) text += '0';
    return text + std::to_string(size);
}

// As people and programs write decimals, now and then with more digits than there is room for.
std::string decimal(Random& random) {
    constexpr unsigned long lengths[] = {4, 8, 10, 18, 40};
    std::string text = random.oneIn(3) ? "-" : random.oneIn(12) ? "+" : "";
    const unsigned long longest = lengths[random.below(std::size(lengths))];
    const unsigned long whole = random.below(longest + 1);
    const unsigned long fraction = random.below(longest) + (whole ? 0 : 1);
    text += digits(random, whole);
    if (fraction || random.oneIn(2)) text += '.' + digits(random, fraction);
    if (random.oneIn(2)) text += exponent(random);
    if (random.oneIn(16)) text += random.oneIn(2) ? 'f' : 'F';
    return text;
}

void checkDecimals(Random& random, unsigned long count, Sweep& sweep) {
    Block<double> doubles;
    Block<float> floats;
    for (unsigned long i = 0; i < count; ++i) {
        const std::string text = decimal(random);
        addLikeReference(doubles, text);
        addLikeReference(floats, text);
    }
    doubles.check(sweep);
    floats.check(sweep);
}

}  // namespace

void sweepDoubles(Sweep& sweep, unsigned long count) {
    const unsigned long blocks = (count + blockSize - 1) / blockSize;
    sweep.run("doubles", blocks, [&](unsigned long i) {
        Random random(i);
        patterns(random, std::min(blockSize, count - i * blockSize), sweep).check(sweep);
    });
    sweep.run("decimals", blocks, [&](unsigned long i) {
        Random random(blocks + i);
        checkDecimals(random, std::min(blockSize, count - i * blockSize), sweep);
    });
}

}  // namespace kvt::test
