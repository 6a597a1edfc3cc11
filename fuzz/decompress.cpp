// Compact bytes against a decoder that does one thing after the other. The first byte of the input
// tells the size that is expected: a power of 4 if it is below 16, else that size.
#include <ko/foundation.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "reading.h"
#include "target.h"

namespace {

using kvt::fuzz::require;
using Bytes = std::vector<unsigned char>;

int digitValue(char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const std::size_t place = digits.find(lower);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

std::optional<Bytes> bytesOf(std::string_view hex) {
    std::vector<int> digits;
    for (const char c : hex) {
        if (std::string_view(" \t\n\v\f\r").find(c) != std::string_view::npos) continue;
        digits.push_back(digitValue(c));
        if (digits.back() < 0) return std::nullopt;
    }
    if (digits.empty() || digits.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(digits[i] * 16 + digits[i + 1]));
    return bytes;
}

// The bytes of a block, each asked for by itself.
struct Block {
    Bytes bytes;
    std::size_t at = 0;
    bool isShort = false;

    bool isAtEnd() const { return at == bytes.size(); }
    unsigned long next() {
        if (isAtEnd()) {
            isShort = true;
            return 0;
        }
        return bytes[at++];
    }
    unsigned long length(unsigned long half) {
        unsigned long sum = half;
        for (unsigned long more = half == 15 ? 255 : 0; more == 255; sum += more)
            more = next();
        return sum;
    }
};

std::optional<Bytes> expand(Block block, unsigned long expected) {
    Bytes out;
    while (!block.isShort) {
        const unsigned long token = block.next();
        for (unsigned long left = block.length(token / 16); left > 0 && !block.isShort; --left)
            out.push_back(static_cast<unsigned char>(block.next()));
        if (block.isShort || out.size() > expected) return std::nullopt;
        if (block.isAtEnd()) break;
        const unsigned long low = block.next();
        const unsigned long offset = low + 256 * block.next();
        const unsigned long length = block.length(token % 16) + 4;
        if (block.isShort || offset == 0 || offset > out.size()) return std::nullopt;
        if (length > expected - out.size()) return std::nullopt;
        for (unsigned long i = 0; i < length; ++i)
            out.push_back(out[out.size() - offset]);
    }
    if (block.isShort || out.empty()) return std::nullopt;
    return out;
}

std::optional<Bytes> reference(std::string_view text, unsigned long expected) {
    if (text.empty() || text[0] != '.') return std::nullopt;
    const bool isBlock = text.substr(0, 2) == ".+";
    std::optional<Bytes> bytes = bytesOf(text.substr(isBlock ? 2 : 1));
    if (!bytes || isBlock) return bytes ? expand({*bytes}, expected) : std::nullopt;
    return bytes->size() <= expected ? bytes : std::nullopt;
}

unsigned long expectedSize(unsigned char byte) {
    constexpr unsigned powers = 16;
    return byte < powers ? 1UL << (2U * byte) : byte;
}

void requireSame(const std::optional<Bytes>& expected, const ko::ByteArray& found,
                 const ko::String& error) {
    require(expected.has_value() == (found.data != nullptr), "compact bytes that one side refuses");
    require(expected.has_value() == error.isEmpty(), "an error without reason, or none with one");
    if (!expected) return;
    require(expected->size() == found.size, "a different number of bytes");
    require(*expected == Bytes(found.data, found.data + found.size), "different bytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const unsigned long expected = expectedSize(data[0]);
    ko::String error("left over");
    const ko::ByteArray found = ko::decompress(data + 1, size - 1, error, expected);
    const std::unique_ptr<unsigned char[]> owner(found.data);
    requireSame(reference(kvt::fuzz::textOf(data + 1, size - 1), expected), found, error);
    return 0;
}
