#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <ko/scene.h>

#include "foundation/messages.h"
#include "scene/namedlist.h"
#include "scene/shownname.h"
#include "scene/store.h"

namespace ko::mirel_sdk::impl {

Node::Node(std::uint32_t place, Kind& kind, const String& name) noexcept
    : name_(name),
      firstOutput_(0, this, 0),
      kind_(&kind),
      place_(place & Pool::lastPlace),
      isDefinition_(false),
      isRemoved_(false) {}

Node::~Node() {
    cut();
    while (Input* const input = inputs_.takeLast()) {
        input->dropChildren();
        input->leaveNode();
    }
    while (Output* const output = moreOutputs_ ? moreOutputs_->takeLast() : nullptr)
        Pool::destroy(output);
}

Names& Node::names() const { return pool().names(); }

Input* Node::input(const String& name) {
    const Symbol symbol = names().find(name);
    return symbol ? inputs_.find(symbol) : nullptr;
}

const Input* Node::input(const String& name) const { return const_cast<Node*>(this)->input(name); }

bool Node::hasInput(const String& name, AttrType type) const {
    const Input* const found = input(name);
    return found && (type == AttrType::Null || found->type() == type);
}

// --- Outputs ------------------------------------------------------------------------------------

unsigned long Node::outputCount() const {
    if (firstOutput_.name_ == 0) return 0;
    return moreOutputs_ ? 1 + moreOutputs_->size() : 1;
}

Output* Node::outputAt(unsigned long i) {
    if (i >= outputCount()) return nullptr;
    return i == 0 ? &firstOutput_ : (*moreOutputs_)[i - 1];
}

const Output* Node::outputAt(unsigned long i) const { return const_cast<Node*>(this)->outputAt(i); }

Output* Node::findOutput(Symbol name) {
    if (name == 0) return nullptr;
    if (firstOutput_.name_ == name) return &firstOutput_;
    return moreOutputs_ ? moreOutputs_->find(name) : nullptr;
}

Output* Node::findOutput(const String& name) { return findOutput(names().find(name)); }

const Output* Node::findOutput(const String& name) const {
    return const_cast<Node*>(this)->findOutput(name);
}

Output* Node::output(const String& name) {
    if (Output* const known = findOutput(name)) return known;
    return nodeType() || name.isEmpty() ? nullptr : addOutput(names().intern(name));
}

Output* Node::output(Symbol name) {
    if (Output* const known = findOutput(name)) return known;
    return nodeType() ? nullptr : addOutput(name);
}

Output* Node::addOutput(Symbol name) {
    if (firstOutput_.name_ == 0) {
        firstOutput_.name_ = name;
        return &firstOutput_;
    }
    if (!moreOutputs_) moreOutputs_ = std::make_unique<NamedList<Output>>();
    auto* const output = pool().make<Output>(this, name);
    try {
        constexpr unsigned long few = 2;
        moreOutputs_->add(pool(), output, few);
    } catch (...) {
        Pool::destroy(output);
        throw;
    }
    return output;
}

const String& Output::name() const { return node_->names()[name_]; }

String Output::fullName() const {
    ShownName name;
    for (const std::string_view part :
         {node_->name().view(), std::string_view("."), this->name().view()})
        name.append(part);
    return name.text();
}

// --- Together -----------------------------------------------------------------------------------

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
        addOutput(names().intern(name));
}

void Node::cut() noexcept {
    for (Input* at = inputAt(0); at; at = at->nextInNode())
        at->cut();
    for (unsigned long i = 0; i < outputCount(); ++i)
        while (Input* const connected = outputAt(i)->attached_.first)
            connected->disconnect();
    while (Input* const referring = attached_.first)
        referring->setNode(nullptr);
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
        throw std::invalid_argument(rowOf(Message::InconsistentBuffer).format);
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
