// Compact bytes: hexadecimal text, plain or as one LZ4 block. A block is walked twice by the same
// code: once to check it and to learn its size, so that nothing is allocated for what a broken
// block claims, and once to write.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include <ko/foundation.h>

#include "ascii.h"

namespace ko {

namespace {

using Bytes = std::vector<unsigned char>;

// --- Hexadecimal text ---------------------------------------------------------------------------

// The value of a hexadecimal digit, or `noDigit`.
constexpr unsigned char noDigit = 0xFF;

constexpr std::array<unsigned char, 256> makeDigitValues() {
    std::array<unsigned char, 256> values{};
    for (unsigned i = 0; i < values.size(); ++i) {
        const char c = static_cast<char>(i);
        values[i] =
            String::isHexDigit(c) ? static_cast<unsigned char>(ascii::hexValue(c)) : noDigit;
    }
    return values;
}

constexpr std::array<unsigned char, 256> digitValues = makeDigitValues();

unsigned char digitValue(char c) { return digitValues[static_cast<unsigned char>(c)]; }

// Appends the bytes of the pairs that stand side by side at the start of `text`, up to `limit`;
// returns how many.
unsigned long takePairs(std::string_view text, unsigned long limit, Bytes& bytes) {
    const unsigned long most = std::min(text.size() / 2, limit - bytes.size());
    for (unsigned long taken = 0; taken < most; ++taken) {
        const unsigned high = digitValue(text[2 * taken]);
        const unsigned low = digitValue(text[2 * taken + 1]);
        if (high == noDigit || low == noDigit) return taken;
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return most;
}

// Reads the digit pairs of `text` from `start` on, at most `limit` of them; positions in messages
// count from the leading ".".
bool readHex(std::string_view text, unsigned long start, unsigned long limit, Bytes& bytes,
             String& error) {
    unsigned long digits = 0;
    bytes.reserve(std::min(limit, (text.size() - start) / 2));
    for (unsigned long i = start; i < text.size(); ++i) {
        if (digits % 2 == 0) {
            const unsigned long pairs = takePairs(text.substr(i), limit, bytes);
            digits += 2 * pairs;
            i += 2 * pairs;
            if (i == text.size()) break;
        }
        const char c = text[i];
        if (String::isSpace(c)) continue;
        const unsigned char value = digitValue(c);
        if (value == noDigit) {
            error = String::format("compact bytes: '%c' at character %lu is no hexadecimal digit",
                                   c, i);
            return false;
        }
        if (digits % 2 == 0 && bytes.size() == limit) {
            error = String::format(
                "compact bytes: more than the expected %lu bytes at character %lu", limit, i);
            return false;
        }
        if (digits++ % 2 == 0) {
            bytes.push_back(static_cast<unsigned char>(value * 16));
        } else {
            bytes.back() = static_cast<unsigned char>(bytes.back() + value);
        }
    }
    if (digits == 0) {
        error = String::format("compact bytes: no digits after character %lu", start - 1);
    } else if (digits % 2 != 0) {
        error = String::format("compact bytes: an odd number of digits (%lu) after character %lu",
                               digits, start - 1);
    }
    return error.isEmpty();
}

// --- LZ4 blocks ---------------------------------------------------------------------------------
//
// block    = { sequence } last
// sequence = token, [ literal length ], literals, offset (2 bytes), [ match length ]
// last     = token, [ literal length ], literals
//
// The token's high half is the literal length, its low half the match length less 4; a half of 15
// is continued by bytes that are added up to the first below 255.

constexpr unsigned long continuedLength = 15;
constexpr unsigned long shortestMatch = 4;

class BlockReader {
  public:
    // Writes to `out`, or with none only counts; at most `limit` bytes.
    BlockReader(const Bytes& block, unsigned char* out, unsigned long limit)
        : block_(block), out_(out), limit_(limit) {}

    bool read() {
        for (;;) {
            const unsigned char token = block_[at_++];
            if (!literals(token >> 4U)) return false;
            if (at_ == block_.size()) return written_ > 0 || fail("holds nothing");
            if (!match(token & 15U)) return false;
            if (at_ == block_.size()) return fail("ends without a last run of literals");
        }
    }

    unsigned long written() const { return written_; }
    const String& error() const { return error_; }

  private:
    bool fail(const char* what) {
        error_ = String::format("compact block: %s at byte %lu", what, at_);
        return false;
    }

    bool makeRoom(unsigned long count) {
        if (count <= limit_ - written_) return true;
        error_ = String::format("compact block: more than the expected %lu bytes at byte %lu",
                                limit_, at_);
        return false;
    }

    bool continueLength(unsigned long& length) {
        if (length != continuedLength) return true;
        unsigned char more = 0;
        do {
            if (at_ == block_.size()) return fail("length cut off");
            more = block_[at_++];
            length += more;
        } while (more == 255);
        return true;
    }

    bool literals(unsigned long length) {
        if (!continueLength(length)) return false;
        if (length > block_.size() - at_) return fail("literals run past the end");
        if (!makeRoom(length)) return false;
        if (out_ && length) std::memcpy(out_ + written_, block_.data() + at_, length);
        at_ += length;
        written_ += length;
        return true;
    }

    bool match(unsigned long length) {
        if (block_.size() - at_ < 2) return fail("match offset cut off");
        const unsigned long offset = block_[at_] + 256UL * block_[at_ + 1];
        if (offset == 0) return fail("match offset 0");
        if (offset > written_) return fail("match offset before the start");
        at_ += 2;
        if (!continueLength(length)) return false;
        length += shortestMatch;
        if (!makeRoom(length)) return false;
        // Byte by byte: a match may overlap what it writes.
        for (unsigned long i = 0; out_ && i < length; ++i)
            out_[written_ + i] = out_[written_ + i - offset];
        written_ += length;
        return true;
    }

    const Bytes& block_;
    unsigned char* out_;
    unsigned long limit_;
    unsigned long at_ = 0;
    unsigned long written_ = 0;
    String error_;
};

ByteArray expandBlock(const Bytes& block, unsigned long expected, String& error) {
    BlockReader check(block, nullptr, expected);
    if (!check.read()) {
        error = check.error();
        return {};
    }
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[check.written()]);
    BlockReader(block, bytes.get(), check.written()).read();
    return {bytes.release(), check.written()};
}

ByteArray copyBytes(const Bytes& bytes) {
    auto* const copy = new unsigned char[bytes.size()];
    std::memcpy(copy, bytes.data(), bytes.size());
    return {copy, bytes.size()};
}

}  // namespace

ByteArray decompress(const unsigned char* data, unsigned long size, String& error,
                     unsigned long expected) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    error = {};
    if (text.empty() || text.front() != '.') {
        error = String("compact bytes: no '.' at character 0");
        return {};
    }
    const bool isBlock = text.size() > 1 && text[1] == '+';
    Bytes bytes;
    if (!isBlock) return readHex(text, 1, expected, bytes, error) ? copyBytes(bytes) : ByteArray();
    if (!readHex(text, 2, String::npos, bytes, error)) return {};
    return expandBlock(bytes, expected, error);
}

}  // namespace ko
