#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <ko/scene.h>

#include "pool.h"
#include "shownname.h"

namespace ko::mirel_sdk::impl {

Node::Node(Scene& scene, String type, String name, String label)
    : name_(std::move(name)), scene_(scene), type_(std::move(type)), label_(std::move(label)) {}

Node::~Node() {
    cut();
    while (Input* const input = inputs_.takeLast()) {
        input->dropChildren();
        input->leaveNode();
    }
    while (Output* const output = outputs_.takeLast())
        Pool::destroy(output);
}

bool Node::hasInput(const String& name, AttrType type) const {
    const Input* const found = input(name);
    return found && (type == AttrType::Null || found->type() == type);
}

Input* Node::createInput(const String& name, AttrType type) {
    return input(name) ? nullptr : add(name, type, 0);
}

Input* Node::createArray(const String& name, AttrType elementType) {
    const auto code = static_cast<std::uint32_t>(elementType);
    return input(name) ? nullptr : add(name, AttrType::Array, code);
}

Output* Node::output(const String& name) {
    if (Output* const known = outputs_.find(name)) return known;
    return nodeType_ || name.isEmpty() ? nullptr : addOutput(name);
}

Output* Node::addOutput(const String& name) {
    auto* const output = scene_.pool_->make<Output>(this, name);
    try {
        outputs_.add(output);
    } catch (...) {
        Pool::destroy(output);
        throw;
    }
    return output;
}

void Node::addDeclared(const NodeType& type) {
    for (unsigned long i = 0; i < type.inputCount(); ++i) {
        const InputDeclaration& declared = type.inputAt(i);
        const bool isArray = declared.type == AttrType::Array;
        const auto elementType = isArray ? static_cast<std::uint32_t>(declared.arrayType)
                                         : static_cast<std::uint32_t>(declared.bufferType);
        Input* const created = add(declared.name, declared.type, elementType);
        if (created && declared.defaultValue.type != AttrType::Null) {
            created->assign(declared.defaultValue.clone());
        }
    }
    for (const String& name : type.outputs())
        addOutput(name);
    nodeType_ = &type;
}

void Node::cut() noexcept {
    for (Input* at = inputAt(0); at; at = at->nextInNode())
        at->cut();
    for (unsigned long i = 0; i < outputs_.size(); ++i)
        while (Input* const connected = outputs_[i]->attached_.first)
            connected->disconnect();
    while (Input* const referring = attached_.first)
        referring->setNode(nullptr);
}

String Output::fullName() const {
    ShownName name;
    for (const std::string_view part : {node_->name().view(), std::string_view("."), name_.view()})
        name.append(part);
    return name.text();
}

// --- Node types ---------------------------------------------------------------------------------

Enumeration::Enumeration(std::vector<String> values) : values_(std::move(values)) {
    for (unsigned long i = 0; i < values_.size(); ++i)
        places_.emplace(values_[i], i);
}

std::optional<unsigned long> Enumeration::find(const String& text) const {
    const auto found = places_.find(text);
    if (found == places_.end()) return std::nullopt;
    return found->second;
}

InputDeclaration::~InputDeclaration() { freePayload(defaultValue); }

NodeType::NodeType(String name) : name_(std::move(name)) {}

NodeType& NodeType::add(std::unique_ptr<InputDeclaration> declaration) {
    const String& name = declaration->name;
    if (name.isEmpty() || name[0] == '[' || findInput(name)) return *this;
    const auto place = inputIndex_.emplace(name.view(), declaration.get()).first;
    try {
        inputs_.push_back(std::move(declaration));
    } catch (...) {
        inputIndex_.erase(place);
        throw;
    }
    return *this;
}

NodeType& NodeType::input(String name, AttrType type) {
    auto declaration = std::make_unique<InputDeclaration>();
    declaration->name = std::move(name);
    declaration->type = type;
    return add(std::move(declaration));
}

namespace {

// A declaration with a default, which it owns from the start: also when it cannot be made.
std::unique_ptr<InputDeclaration> declarationOf(const AttrData& defaultValue) {
    std::unique_ptr<InputDeclaration> declaration;
    try {
        declaration = std::make_unique<InputDeclaration>();
    } catch (...) {
        freePayload(defaultValue);
        throw;
    }
    declaration->type = defaultValue.type;
    declaration->defaultValue = defaultValue;
    const bool isBuffer = defaultValue.type == AttrType::Buffer && defaultValue.payload();
    if (isBuffer && !defaultValue.buffer().isConsistent()) {
        throw std::invalid_argument("inconsistent buffer");
    }
    return declaration;
}

}  // namespace

NodeType& NodeType::input(String name, const AttrData& defaultValue) {
    std::unique_ptr<InputDeclaration> declaration = declarationOf(defaultValue);
    declaration->name = std::move(name);
    if (defaultValue.type == AttrType::Array) declaration->arrayType = defaultValue.arrayType();
    if (defaultValue.type == AttrType::Buffer) declaration->bufferType = defaultValue.bufferType();
    return add(std::move(declaration));
}

NodeType& NodeType::array(String name, AttrType elementType) {
    return input(std::move(name), AttrData::declareArray(elementType));
}

NodeType& NodeType::buffer(String name, DataType elementType) {
    return input(std::move(name), AttrData::declareBuffer(elementType));
}

NodeType& NodeType::enumeration(String name, std::vector<String> values) {
    String initial = values.empty() ? String() : values.front();
    return enumeration(std::move(name), std::move(values), initial);
}

NodeType& NodeType::enumeration(String name, std::vector<String> values, const String& initial) {
    auto declaration = std::make_unique<InputDeclaration>();
    declaration->name = std::move(name);
    declaration->type = AttrType::String;
    if (!initial.isEmpty()) declaration->defaultValue = AttrData::ofText(initial.view());
    declaration->enumeration = Enumeration(std::move(values));
    return add(std::move(declaration));
}

NodeType& NodeType::output(String name) {
    const bool isNew = std::find(outputs_.begin(), outputs_.end(), name) == outputs_.end();
    if (isNew && !name.isEmpty()) outputs_.push_back(std::move(name));
    return *this;
}

NodeType& NodeType::renameInput(String old, String current) {
    inputRenames_.emplace_back(std::move(old), std::move(current));
    return *this;
}

NodeType& NodeType::renameOutput(String old, String current) {
    outputRenames_.emplace_back(std::move(old), std::move(current));
    return *this;
}

const InputDeclaration* NodeType::findInput(const String& name) const {
    const auto found = inputIndex_.find(name.view());
    return found == inputIndex_.end() ? nullptr : found->second;
}

}  // namespace ko::mirel_sdk::impl
