#include "choices.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace kvt::fuzz {

using ko::DataType;
using ko::String;
using ko::mirel_sdk::AttrType;
using ko::mirel_sdk::impl::AttrData;
using ko::mirel_sdk::impl::Input;
using ko::mirel_sdk::impl::Node;
using ko::mirel_sdk::impl::NodeType;
using ko::mirel_sdk::impl::Scene;

// --- Choices

unsigned Choices::byte() {
    const std::string_view one = text(1);
    return one.empty() ? 0 : static_cast<unsigned char>(one.front());
}

std::string_view Choices::text(unsigned long length) {
    const std::string_view taken = rest_.substr(0, length);
    rest_.remove_prefix(taken.size());
    return taken;
}

std::string_view Choices::until(char end) {
    const std::string_view taken = text(std::min(rest_.find(end), rest_.size()));
    text(1);
    return taken;
}

// --- Names

namespace {

struct Names {
    const std::string_view* names;
    unsigned count;

    String at(unsigned i) const { return String(names[i % count]); }
};

template <std::size_t count>
constexpr Names namesOf(const std::string_view (&names)[count]) {
    return {names, count};
}

constexpr std::string_view types[] = {"t", "u", "filter", "choice"};
constexpr std::string_view nodes[] = {"n", "m", "p", "q"};
constexpr std::string_view inputs[] = {"x", "y", "s", "list", "object", "mode", "buffer", "node"};
constexpr std::string_view outputs[] = {"out", "color", "x"};
constexpr std::string_view oddNames[] = {
    "",    "[0]",  "[7]",  "[*]",
    "a.b", "null", "with", "a_name_that_does_not_stand_in_the_string_itself"};

Names usualNames(Named what) {
    switch (what) {
        case Named::Type: return namesOf(types);
        case Named::Node: return namesOf(nodes);
        case Named::Input: return namesOf(inputs);
        case Named::Output: return namesOf(outputs);
    }
    return {};
}

}  // namespace

String chosenName(Choices& choices, Named what) {
    constexpr unsigned firstOdd = 0xC0;
    constexpr unsigned firstOwn = 0xE0;
    const unsigned byte = choices.byte();
    if (byte >= firstOwn) return String(choices.text(byte - firstOwn));
    return byte >= firstOdd ? namesOf(oddNames).at(byte) : usualNames(what).at(byte);
}

// --- Types and values

AttrType chosenAttrType(Choices& choices) {
    return static_cast<AttrType>(choices.below(ko::mirel_sdk::attrTypeCount + 2));
}

DataType chosenDataType(Choices& choices) {
    return static_cast<DataType>(choices.below(ko::dataTypeCount + 2));
}

namespace {

double chosenReal(Choices& choices) {
    constexpr double telling[] = {0.0, -0.0, 0.5, 1, -1.5, 2.5, 9.3e18, -9.3e18, 1e300, 5e-324};
    const unsigned byte = choices.byte();
    return byte < std::size(telling) ? telling[byte] : byte / 4.0 - 32;
}

std::uint64_t chosenWord(Choices& choices) {
    constexpr unsigned small = 0xC0;
    const unsigned byte = choices.byte();
    return byte < small ? byte : ~std::uint64_t(0) << (byte & 0x3FU);
}

AttrData chosenComponents(Choices& choices, AttrType type) {
    double components[16];
    for (unsigned long i = 0; i < componentCount(type); ++i)
        components[i] = chosenReal(choices);
    return AttrData::ofComponents(type, components);
}

AttrData chosenBuffer(Choices& choices) {
    constexpr unsigned mostElements = 20;
    const DataType elements = chosenDataType(choices);
    return AttrData::ofBuffer(elements, choices.below(mostElements));
}

AttrData withoutValue(AttrType type) {
    AttrData data;
    data.type = type;
    return data;
}

}  // namespace

AttrData chosenValue(Choices& choices, AttrType type) {
    switch (type) {
        case AttrType::Bool: return AttrData::ofBool(choices.flag());
        case AttrType::Int: return AttrData::ofInt(static_cast<long>(chosenWord(choices)));
        case AttrType::UInt: return AttrData::ofUInt(chosenWord(choices));
        case AttrType::Real: return AttrData::ofReal(chosenReal(choices));
        case AttrType::String: return AttrData::ofText(chosenName(choices, Named::Input).view());
        case AttrType::Buffer: return chosenBuffer(choices);
        case AttrType::Array: return AttrData::declareArray(chosenAttrType(choices));
        default:
            return componentCount(type) > 0 ? chosenComponents(choices, type) : withoutValue(type);
    }
}

// --- Node types

Declaration::Declaration(Choices& choices) : kind_(static_cast<Kind>(choices.below(Kinds))) {
    const bool isOutput = kind_ == Output || kind_ == OldOutput;
    const Named what = isOutput ? Named::Output : Named::Input;
    name_ = chosenName(choices, what);
    if (kind_ == Plain || kind_ == Array || kind_ == Default) type_ = chosenAttrType(choices);
    if (kind_ == Default) value_ = chosenValue(choices, type_);
    if (kind_ == Buffer) elements_ = chosenDataType(choices);
    if (kind_ == OldInput || kind_ == OldOutput) other_ = chosenName(choices, what);
    if (kind_ == Initial) other_ = chosenName(choices, Named::Node);
    if (kind_ != Values && kind_ != Initial) return;
    for (unsigned left = choices.below(4); left > 0; --left)
        values_.push_back(chosenName(choices, Named::Node));
}

void Declaration::addTo(NodeType& type) {
    switch (kind_) {
        case Plain: type.input(std::move(name_), type_); return;
        case Default: type.input(std::move(name_), value_); return;
        case Array: type.array(std::move(name_), type_); return;
        case Buffer: type.buffer(std::move(name_), elements_); return;
        case Values: type.enumeration(std::move(name_), std::move(values_)); return;
        case Initial: type.enumeration(std::move(name_), std::move(values_), other_); return;
        case Output: type.output(std::move(name_)); return;
        case OldInput: type.renameInput(std::move(name_), std::move(other_)); return;
        case OldOutput: type.renameOutput(std::move(name_), std::move(other_)); return;
        case Kinds: return;
    }
}

// --- Places

Node* chosenNode(Choices& choices, const Scene& scene) {
    const unsigned byte = choices.byte();
    if (scene.nodeCount() == 0) return nullptr;
    return *std::next(scene.nodes().begin(), static_cast<long>(byte % scene.nodeCount()));
}

Input* chosenInput(Choices& choices, Node& node) {
    constexpr unsigned mostSteps = 32;
    Input* chosen = node.inputAt(0);
    for (unsigned steps = choices.below(mostSteps); chosen && steps > 0; --steps) {
        Input* const next = chosen->nextInNode();
        chosen = next ? next : node.inputAt(0);
    }
    return chosen;
}

}  // namespace kvt::fuzz
