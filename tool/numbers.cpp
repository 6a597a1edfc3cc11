#include "numbers.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace kvt {

using ko::NumberType;
using ko::mirel_sdk::impl::BufferView;

namespace {

template <class Real>
void writeAnyReal(OutputStream& out, Real value, std::string_view quote) {
    if (std::isfinite(value)) {
        out.number(value);
        return;
    }
    out.write(quote);
    out.write(std::isnan(value) ? "nan" : std::signbit(value) ? "-inf" : "inf");
    out.write(quote);
}

template <class T>
T componentAt(const BufferView& buffer, unsigned long i) noexcept {
    T value;
    std::memcpy(&value, static_cast<const char*>(buffer.data) + i * sizeof value, sizeof value);
    return value;
}

}  // namespace

void writeReal(OutputStream& out, double value, std::string_view quote) {
    writeAnyReal(out, value, quote);
}

void writeReal(OutputStream& out, float value, std::string_view quote) {
    writeAnyReal(out, value, quote);
}

void writeBool(OutputStream& out, bool value) { out.write(value ? "true" : "false"); }

void writeComponent(OutputStream& out, const BufferView& buffer, unsigned long i,
                    std::string_view quote) {
    switch (ko::numberType(buffer.type)) {
        // A byte: memory that code filled may hold more than the two truth values.
        case NumberType::Bool: return writeBool(out, componentAt<unsigned char>(buffer, i) != 0);
        case NumberType::Char: return out.number(componentAt<signed char>(buffer, i));
        case NumberType::Byte: return out.number(componentAt<unsigned char>(buffer, i));
        case NumberType::Int16: return out.number(componentAt<std::int16_t>(buffer, i));
        case NumberType::Int32: return out.number(componentAt<std::int32_t>(buffer, i));
        case NumberType::Int64: return out.number(componentAt<std::int64_t>(buffer, i));
        case NumberType::UInt16: return out.number(componentAt<std::uint16_t>(buffer, i));
        case NumberType::UInt32: return out.number(componentAt<std::uint32_t>(buffer, i));
        case NumberType::Float: return writeReal(out, componentAt<float>(buffer, i), quote);
        case NumberType::Double: return writeReal(out, componentAt<double>(buffer, i), quote);
        // Addresses and what has no type of its own take eight bytes like this one.
        case NumberType::None:
        case NumberType::Ptr:
        case NumberType::UInt64: return out.number(componentAt<std::uint64_t>(buffer, i));
    }
}

}  // namespace kvt
