#include "bulk.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "charclass.h"
#include "words.h"

namespace ko::bulk {

namespace {

// --- One number ---------------------------------------------------------------------------------

template <class Integer>
bool convertInteger(std::string_view text, unsigned char* dest) noexcept {
    Integer value = 0;
    if (!parseInteger(text, value, String::Auto)) return false;
    std::memcpy(dest, &value, sizeof value);
    return true;
}

template <class Real>
bool convertReal(std::string_view text, unsigned char* dest) noexcept {
    Real value = 0;
    if (!parseNumber(text, value)) return false;
    std::memcpy(dest, &value, sizeof value);
    return true;
}

// --- The plain path -----------------------------------------------------------------------------

Copied copyNumbers(const char* from, const char* end, char* to, Group group) {
    const chars::Class gap = group == Group::Parens ? chars::ParensGap : chars::BracesGap;
    for (;;) {
        const char* const stop = chars::skip(from, end, chars::NumberPart);
        std::memcpy(to, from, static_cast<unsigned long>(stop - from));
        to += stop - from;
        from = chars::skip(stop, end, gap);
        if (from == end || !chars::is(*from, chars::NumberPart)) return {stop, to};
        *to++ = ' ';
    }
}

Conversion convertNumbers(std::string_view text, DataType type, unsigned char* dest,
                          unsigned long room) {
    Conversion result;
    const unsigned long size = componentSize(type);
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(piece.size() + 1, text.size()));
        if (piece.empty()) continue;
        if (result.count == room) {
            result.excess = piece;
            break;
        }
        if (!convertNumber(piece, type, dest + result.count * size)) result.allConverted = false;
        ++result.count;
    }
    return result;
}

unsigned long countBreaks(std::string_view text) {
    constexpr unsigned long mostWords = 255;  // that a byte can count
    unsigned long count = 0;
    while (text.size() >= words::size) {
        const unsigned long some = std::min(text.size() / words::size, mostWords);
        words::Word counts = 0;
        for (unsigned long i = 0; i < some; ++i)
            counts += words::equal(words::load(text.data() + i * words::size), '\n') >> 7U;
        for (; counts; counts >>= 8U)
            count += counts & 0xFFU;
        text.remove_prefix(some * words::size);
    }
    return count + static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

bool convertNumber(std::string_view text, DataType type, unsigned char* dest) noexcept {
    switch (type) {
        case DataType::Char: return convertInteger<signed char>(text, dest);
        case DataType::Byte: return convertInteger<unsigned char>(text, dest);
        case DataType::Int16: return convertInteger<short>(text, dest);
        case DataType::Int32: return convertInteger<int>(text, dest);
        case DataType::Int64: return convertInteger<long>(text, dest);
        case DataType::UInt16: return convertInteger<unsigned short>(text, dest);
        case DataType::UInt32: return convertInteger<unsigned int>(text, dest);
        case DataType::UInt64: return convertInteger<unsigned long>(text, dest);
        case DataType::Float: return convertReal<float>(text, dest);
        case DataType::Double: return convertReal<double>(text, dest);
        default: return false;
    }
}

const Operations plainOperations = {copyNumbers, convertNumbers, countBreaks};

// --- The choice ---------------------------------------------------------------------------------

namespace {

std::atomic<const Operations*> chosen{nullptr};

}  // namespace

const Operations& operations() noexcept {
    const Operations* now = chosen.load(std::memory_order_relaxed);
    if (!now) {
        now = hasPath(Path::Avx2) ? &avx2Operations : &plainOperations;
        chosen.store(now, std::memory_order_relaxed);
    }
    return *now;
}

void usePath(Path path) noexcept {
    chosen.store(path == Path::Avx2 ? &avx2Operations : &plainOperations,
                 std::memory_order_relaxed);
}

}  // namespace ko::bulk
