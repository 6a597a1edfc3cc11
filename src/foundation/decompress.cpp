// Compact bytes: hexadecimal text, plain or as one LZ4 block. A block is walked twice by the same
// code: once to check it and to learn its size, so that nothing is allocated for what a broken
// block claims, and once to write.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>

#include <ko/foundation.h>

#include "foundation/ascii.h"
#include "foundation/memory.h"
#include "foundation/messages.h"
#include "foundation/words.h"

namespace ko {

namespace {

// Filled from the front.
struct Bytes {
    std::unique_ptr<unsigned char[]> data;
    unsigned long size = 0;

    explicit Bytes(unsigned long room) : data(new unsigned char[room]) {
        memory::adviseLarge(data.get(), room);
    }
    unsigned char* end() const { return data.get() + size; }
};

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

// The high bit of each byte that is no hexadecimal digit.
words::Word noDigits(words::Word text) {
    const words::Word low = words::lowered(text) & ~words::highBits;
    const auto isAtLeast = [low](char c) {
        return low + words::all(0x80U - static_cast<unsigned char>(c));
    };
    const words::Word isDecimal = isAtLeast('0') & ~isAtLeast('9' + 1);
    const words::Word isLetter = isAtLeast('a') & ~isAtLeast('f' + 1);
    return (~(isDecimal | isLetter) | text) & words::highBits;
}

// The bytes of four pairs of digits, in the lower half of a word; what is in the upper is of no
// use.
words::Word bytesOfPairs(words::Word digits) {
    const words::Word isLetter = digits >> 6U & words::all(1);
    const words::Word values = (digits & words::all(0x0F)) + isLetter * 9;
    const words::Word inPairs = (values << 4U | values >> 8U) & 0x00FF00FF00FF00FF;
    const words::Word inFours = (inPairs | inPairs >> 8U) & 0x0000FFFF0000FFFF;
    return inFours | inFours >> 16U;
}

// Appends the bytes of the pairs that stand side by side at the start of `text`, up to `limit`;
// returns how many.
unsigned long takePairs(std::string_view text, unsigned long limit, Bytes& bytes) {
    const unsigned long most = std::min(text.size() / 2, limit - bytes.size);
    unsigned long taken = 0;
    for (; most - taken >= words::size / 2; taken += words::size / 2) {
        const words::Word digits = words::load(text.data() + 2 * taken);
        if (noDigits(digits)) break;
        words::storeHalf(bytes.end() + taken, bytesOfPairs(digits));
    }
    for (; taken < most; ++taken) {
        const unsigned high = digitValue(text[2 * taken]);
        const unsigned low = digitValue(text[2 * taken + 1]);
        if (high == noDigit || low == noDigit) break;
        bytes.end()[taken] = static_cast<unsigned char>(high * 16 + low);
    }
    bytes.size += taken;
    return taken;
}

// Reads the digit pairs of `text` from `start` on, at most `limit` of them; positions in messages
// count from the leading ".".
bool readHex(std::string_view text, unsigned long start, unsigned long limit, Bytes& bytes,
             String& error) {
    unsigned long digits = 0;
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
            error = say<Message::CompactDigit>(c, i).text;
            return false;
        }
        if (digits % 2 == 0 && bytes.size == limit) {
            error = say<Message::CompactExcess>(limit, i).text;
            return false;
        }
        if (digits++ % 2 == 0) {
            *bytes.end() = static_cast<unsigned char>(value * 16);
        } else {
            *bytes.end() = static_cast<unsigned char>(*bytes.end() + value);
            ++bytes.size;
        }
    }
    if (digits == 0) {
        error = say<Message::CompactEmpty>(start - 1).text;
    } else if (digits % 2 != 0) {
        error = say<Message::CompactOdd>(digits, start - 1).text;
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
            const unsigned char token = block_.data[at_++];
            if (!literals(token >> 4U)) return false;
            if (at_ == block_.size) return written_ > 0 || fail<Message::BlockEmpty>();
            if (!match(token & 15U)) return false;
            if (at_ == block_.size) return fail<Message::BlockWithoutEnd>();
        }
    }

    unsigned long written() const { return written_; }
    const String& error() const { return error_; }

  private:
    template <Message message>
    bool fail() {
        error_ = say<message>(at_).text;
        return false;
    }

    bool makeRoom(unsigned long count) {
        if (count <= limit_ - written_) return true;
        error_ = say<Message::BlockExcess>(limit_, at_).text;
        return false;
    }

    bool continueLength(unsigned long& length) {
        if (length != continuedLength) return true;
        unsigned char more = 0;
        do {
            if (at_ == block_.size) return fail<Message::BlockLength>();
            more = block_.data[at_++];
            length += more;
        } while (more == 255);
        return true;
    }

    bool literals(unsigned long length) {
        if (!continueLength(length)) return false;
        if (length > block_.size - at_) return fail<Message::BlockLiterals>();
        if (!makeRoom(length)) return false;
        if (out_ && length) std::memcpy(out_ + written_, block_.data.get() + at_, length);
        at_ += length;
        written_ += length;
        return true;
    }

    bool match(unsigned long length) {
        if (block_.size - at_ < 2) return fail<Message::BlockOffsetCut>();
        const unsigned long offset = block_.data[at_] + 256UL * block_.data[at_ + 1];
        if (offset == 0) return fail<Message::BlockOffsetZero>();
        if (offset > written_) return fail<Message::BlockOffset>();
        at_ += 2;
        if (!continueLength(length)) return false;
        length += shortestMatch;
        if (!makeRoom(length)) return false;
        if (out_) repeat(offset, length);
        written_ += length;
        return true;
    }

    // A match may overlap what it writes: as much is copied as is there, which grows with each
    // copy.
    void repeat(unsigned long offset, unsigned long length) {
        const unsigned char* const from = out_ + written_ - offset;
        for (unsigned long done = 0; done < length;) {
            const unsigned long some = std::min(offset + done, length - done);
            std::memcpy(out_ + written_ + done, from, some);
            done += some;
        }
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

}  // namespace

ByteArray decompress(const unsigned char* data, unsigned long size, String& error,
                     unsigned long expected) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    error = {};
    if (text.empty() || text.front() != '.') {
        error = say<Message::NotCompact>().text;
        return {};
    }
    const bool isBlock = text.size() > 1 && text[1] == '+';
    const unsigned long limit = isBlock ? String::npos : expected;
    Bytes bytes(std::min(text.size() / 2, limit) + 1);
    if (!readHex(text, isBlock ? 2 : 1, limit, bytes, error)) return {};
    if (isBlock) return expandBlock(bytes, expected, error);
    return {bytes.data.release(), bytes.size};
}

}  // namespace ko
