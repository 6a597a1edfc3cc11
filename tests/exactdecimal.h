// Exact arithmetic on decimal digits: what a real is worth, written out in full.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace kvt::test {

// A non-negative whole number of any size, in decimal.
class Decimal {
  public:
    explicit Decimal(std::uint64_t value) {
        for (; value != 0; value /= base)
            parts_.push_back(static_cast<std::uint32_t>(value % base));
    }

    void multiply(std::uint32_t factor) {
        std::uint64_t carry = 0;
        for (std::uint32_t& part : parts_) {
            carry += std::uint64_t(part) * factor;
            part = static_cast<std::uint32_t>(carry % base);
            carry /= base;
        }
        if (carry != 0) parts_.push_back(static_cast<std::uint32_t>(carry));
    }

    std::string digits() const {
        if (parts_.empty()) return "0";
        std::string text = std::to_string(parts_.back());
        for (std::size_t i = parts_.size() - 1; i-- > 0;) {
            const std::string part = std::to_string(parts_[i]);
            text += std::string(9 - part.size(), '0') + part;
        }
        return text;
    }

  private:
    static constexpr std::uint32_t base = 1'000'000'000;
    std::vector<std::uint32_t> parts_;  // lowest first
};

// A decimal number: digits * 10^exponent.
struct Scientific {
    std::string digits;
    int exponent = 0;

    std::string text() const { return digits + "e" + std::to_string(exponent); }
    // Larger than this number by far less than any real could tell.
    Scientific justAbove() const { return {digits + "000000000001", exponent - 12}; }
    // Smaller likewise; of positive numbers only.
    Scientific justBelow() const {
        std::string less = digits;
        std::size_t last = less.size() - 1;
        while (less[last] == '0')
            less[last--] = '9';
        --less[last];
        return {less + "999999999999", exponent - 12};
    }
};

// mantissa * 2^exponent, exactly.
inline Scientific exactly(std::uint64_t mantissa, int exponent) {
    Decimal decimal(mantissa);
    for (int i = 0; i < std::abs(exponent); ++i)
        decimal.multiply(exponent < 0 ? 5 : 2);
    return {decimal.digits(), exponent < 0 ? exponent : 0};
}

}  // namespace kvt::test
