#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include <ko/scene.h>

#include "foundation/messages.h"
#include "foundation/typetable.h"

namespace ko::mirel_sdk::impl {

namespace {

// Memory for a payload; the scene frees it.
void* allocate(void* memory) {
    if (!memory) throw std::bad_alloc();
    return memory;
}

std::uint64_t bitsOf(double number) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

}  // namespace

AttrData AttrData::ofBool(bool value) {
    AttrData data;
    data.setBool(value);
    return data;
}

void AttrData::setBool(bool is) {
    type = AttrType::Bool;
    value[0] = 0;
    std::memcpy(value, &is, sizeof is);
}

AttrData AttrData::ofInt(long value) {
    AttrData data;
    data.type = AttrType::Int;
    data.value[0] = static_cast<std::uint64_t>(value);
    return data;
}

AttrData AttrData::ofUInt(unsigned long value) {
    AttrData data;
    data.type = AttrType::UInt;
    data.value[0] = value;
    return data;
}

AttrData AttrData::ofReal(double value) {
    AttrData data;
    data.type = AttrType::Real;
    data.setReal(value);
    return data;
}

AttrData AttrData::ofText(std::string_view text) {
    AttrData data;
    data.setText(text);
    return data;
}

void AttrData::setText(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    auto* const chars = static_cast<char*>(allocate(std::malloc(text.size() + 1)));
    if (!text.empty()) std::memcpy(chars, text.data(), text.size());
    chars[text.size()] = '\0';
    type = AttrType::String;
    setPayload(chars);
}

AttrData AttrData::ofComponents(AttrType type, const double* components) {
    AttrData data;
    data.type = type;
    std::transform(components, components + componentCount(type), data.value, bitsOf);
    return data;
}

AttrData AttrData::ofBuffer(DataType elementType, unsigned long count) {
    AttrData data = declareBuffer(elementType);
    const unsigned long size = elementSize(elementType);
    if (count == 0 || size == 0) return data;
    data.setPayload(allocate(std::calloc(count, size)));
    data.value[1] = count;
    data.value[2] = count * size;
    return data;
}

AttrData AttrData::declareArray(AttrType elementType) {
    AttrData data;
    data.type = AttrType::Array;
    data.setElementType(elementType);
    return data;
}

AttrData AttrData::declareBuffer(DataType elementType) {
    AttrData data;
    data.type = AttrType::Buffer;
    data.setElementType(elementType);
    return data;
}

const double* AttrData::defaultComponents(AttrType type) { return about(type).defaults; }

AttrData AttrData::defaultOf(AttrType type) { return ofComponents(type, defaultComponents(type)); }

const char* AttrData::text() const { return payload() ? static_cast<const char*>(payload()) : ""; }

bool BufferView::isConsistent() const {
    const unsigned long size = elementSize(type);
    return size != 0 && bytes / size == count && bytes % size == 0;
}

BufferView AttrData::buffer() const { return {payload(), value[1], value[2], bufferType()}; }

AttrData AttrData::clone() const {
    if (!hasPayload() || !payload()) return *this;
    if (type == AttrType::String) return ofText(text());
    if (!buffer().isConsistent())
        throw std::invalid_argument(rowOf(Message::InconsistentBuffer).format);
    AttrData copy = ofBuffer(bufferType(), value[1]);
    if (copy.payload()) std::memcpy(copy.payload(), payload(), copy.value[2]);
    return copy;
}

void freePayload(const AttrData& data) noexcept {
    if (data.hasPayload()) std::free(data.payload());
}

}  // namespace ko::mirel_sdk::impl
