#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "block.h"
#include "exactdecimal.h"
#include "parts.h"
#include "reference.h"

namespace kvt::test {

namespace {

// Exponents of the unit in the last place: of the smallest values and of the largest.
template <class Real>
constexpr int lowestUnit =
    std::numeric_limits<Real>::min_exponent - std::numeric_limits<Real>::digits;
template <class Real>
constexpr int highestUnit =
    std::numeric_limits<Real>::max_exponent - std::numeric_limits<Real>::digits;

// With a point after the first digit, and with one before or after all digits, where that takes
// no more zeros than a person would write.
std::string withPointInFront(const Scientific& number) {
    const auto moved = static_cast<int>(number.digits.size()) - 1;
    return number.digits.substr(0, 1) + "." + number.digits.substr(1) + "e" +
           std::to_string(number.exponent + moved);
}

std::string withoutExponent(const Scientific& number) {
    constexpr int mostZeros = 30;
    const auto length = static_cast<int>(number.digits.size());
    if (number.exponent > mostZeros || number.exponent + length < -mostZeros) return number.text();
    if (number.exponent >= 0)
        return number.digits + std::string(static_cast<unsigned>(number.exponent), '0') + ".0";
    if (number.exponent + length <= 0)
        return "." + std::string(static_cast<unsigned>(-number.exponent - length), '0') +
               number.digits;
    std::string text = number.digits;
    return text.insert(static_cast<unsigned>(number.exponent + length), ".");
}

// A number between two neighbours, in all its spellings.
template <class Real>
void add(Block<Real>& block, const Scientific& number, Real expected, Sweep& sweep) {
    for (const std::string& text :
         {number.text(), withPointInFront(number), withoutExponent(number)}) {
        if (!isSame(expected, reference<Real>(text)))
            sweep.complain("the C library does not take the nearest: " + text);
        if (std::isinf(expected)) {
            block.addRefused(text);
            block.addRefused("-" + text);
        } else {
            block.add(text, expected);
            block.add("-" + text, -expected);
        }
    }
}

Scientific withLastDigit(Scientific number, int change) {
    char& last = number.digits.back();
    if ((change < 0 && last > '0') || (change > 0 && last < '9'))
        last = static_cast<char>(last + change);
    return number;
}

// The first digits of what lies halfway.
Scientific shortened(const Scientific& number, unsigned long count) {
    const unsigned long lost = number.digits.size() - std::min(count, number.digits.size());
    return {number.digits.substr(0, count), number.exponent + static_cast<int>(lost)};
}

// Around the middle of mantissa * 2^unit and the next real, infinity among them.
template <class Real>
void addAround(Block<Real>& block, std::uint64_t mantissa, int unit, Sweep& sweep) {
    const Real lower = std::ldexp(static_cast<Real>(mantissa), unit);
    const Real upper = std::ldexp(static_cast<Real>(mantissa + 1), unit);
    const Scientific half = exactly(2 * mantissa + 1, unit - 1);
    add(block, half, mantissa % 2 == 0 ? lower : upper, sweep);
    add(block, half.justBelow(), lower, sweep);
    add(block, half.justAbove(), upper, sweep);
    add(block, {half.digits + "1", half.exponent - 1}, upper, sweep);
    for (unsigned long digits = 15; digits < 22; ++digits)
        for (const int change : {-1, 0, 1}) {
            const Scientific near = withLastDigit(shortened(half, digits), change);
            for (const std::string& text :
                 {near.text(), withPointInFront(near), withoutExponent(near)})
                addLikeReference(block, text);
        }
}

template <class Real>
void checkUnit(int unit, unsigned long density, Sweep& sweep) {
    constexpr std::uint64_t leading = std::uint64_t(1) << (std::numeric_limits<Real>::digits - 1);
    Random random(static_cast<unsigned long>(unit - lowestUnit<Real>));
    for (const std::uint64_t mantissa : {leading, leading + 1, 2 * leading - 2, 2 * leading - 1}) {
        Block<Real> block;
        addAround(block, mantissa, unit, sweep);
        block.check(sweep);
    }
    for (unsigned long i = 0; i < density; ++i) {
        Block<Real> block;
        addAround(block, leading + random.below(leading), unit, sweep);
        // Below the normal values there are smaller mantissas, zero among them.
        const std::uint64_t small = i < 2 ? i : random.below(leading) >> random.below(24);
        if (unit == lowestUnit<Real>) addAround(block, small, unit, sweep);
        block.check(sweep);
    }
}

template <class Real>
void sweepUnits(const char* name, unsigned long density, Sweep& sweep) {
    constexpr int units = highestUnit<Real> - lowestUnit<Real> + 1;
    sweep.run(name, units, [&](unsigned long i) {
        checkUnit<Real>(lowestUnit<Real> + static_cast<int>(i), density, sweep);
    });
}

std::string printed(double value, int digits) {
    char text[64];
    const int length = std::snprintf(text, sizeof text, "%.*e", digits - 1, value);
    return {text, static_cast<unsigned long>(length)};
}

// Doubles around the middle of two floats, where rounding to a double first goes wrong.
void checkFloatsNearMiddle(unsigned long seed, Sweep& sweep) {
    Random random(seed);
    Block<float> block;
    for (int i = 0; i < 200; ++i) {
        const auto mantissa = static_cast<double>((1UL << 24) + 2 * random.below(1UL << 23) + 1);
        const double middle = std::ldexp(mantissa, static_cast<int>(random.below(276)) - 149);
        const int steps = static_cast<int>(random.below(801)) - 400;
        const double near = middle + steps * (std::nextafter(middle, HUGE_VAL) - middle);
        for (int digits = 15; digits <= 20; ++digits)
            addLikeReference(block, printed(near, digits));
    }
    block.check(sweep);
}

}  // namespace

void sweepHalfway(Sweep& sweep, unsigned long density) {
    sweepUnits<float>("halfway between floats", 8 * density, sweep);
    sweepUnits<double>("halfway between doubles", density, sweep);
    sweep.run("doubles between floats", 100 * density,
              [&sweep](unsigned long i) { checkFloatsNearMiddle(i, sweep); });
}

}  // namespace kvt::test
