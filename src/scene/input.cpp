#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include <ko/scene.h>

#include "pool.h"
#include "shownname.h"

namespace ko::mirel_sdk::impl {

// --- Storage ------------------------------------------------------------------------------------

namespace {

constexpr std::uint32_t codeOf(AttrType type) { return static_cast<std::uint32_t>(type); }

// As an input keeps them: a code that is none stays one that is none.
constexpr AttrType keptType(AttrType type) {
    return codeOf(type) < attrTypeCount ? type : static_cast<AttrType>(0xFF);
}
constexpr std::uint16_t keptElementType(std::uint32_t code) {
    constexpr std::uint32_t most = std::numeric_limits<std::uint16_t>::max();
    return static_cast<std::uint16_t>(std::min(code, most));
}

bool isMatrix(AttrType type) { return type == AttrType::Mat3 || type == AttrType::Mat4; }

// Of vectors, whatever the type uses of them.
constexpr unsigned long vectorSize = 4 * sizeof(double);

// What stands behind an input is a vector as a rule: of that size a copy is a few moves and no
// call.
void copyBehind(void* to, const void* from, unsigned long bytes) {
    if (bytes == vectorSize) {
        std::memcpy(to, from, vectorSize);
    } else if (bytes > 0) {
        std::memcpy(to, from, bytes);
    }
}

// Places that can be told apart.
constexpr unsigned long mostInputs = std::numeric_limits<std::uint32_t>::max();

// One element of an array in one word: the input, once something has touched it; before that what
// the input would be, its type and the element type it was declared with.
class ElementSlot {
  public:
    ElementSlot(AttrType type, std::uint32_t elementType)
        : bits_(untouchedMark | codeOf(type) << typeShift |
                std::uint64_t(elementType) << elementTypeShift) {}

    void touch(Input* input) { bits_ = reinterpret_cast<std::uintptr_t>(input); }
    // Null for an untouched element.
    Input* input() const {
        return (bits_ & untouchedMark) ? nullptr : reinterpret_cast<Input*>(bits_);
    }
    AttrType type() const { return static_cast<AttrType>((bits_ >> typeShift) & 0xFF); }
    std::uint32_t elementType() const {
        return static_cast<std::uint32_t>(bits_ >> elementTypeShift);
    }

  private:
    static constexpr std::uint64_t untouchedMark = 1;  // no address of an input is odd
    static constexpr int typeShift = 8;
    static constexpr int elementTypeShift = 32;

    std::uint64_t bits_;
};

}  // namespace

struct Input::Elements {
    std::vector<ElementSlot> slots;
    // Elements before this one have been declared as far as they can be.
    unsigned long declared = 0;
};

// The place of an input in the chain of those that share its target.
template <class Target>
struct Input::Link {
    Target* target = nullptr;
    Input** place = nullptr;  // the pointer of the chain that leads here
    Input* next = nullptr;
};

// Kept apart, since most inputs have none.
struct Input::Links {
    Link<Output> connection;
    Link<Node> reference;
    std::uint32_t poolOffset_ = 0;
};

unsigned long Input::sizeBehind(AttrType type) {
    switch (type) {
        case AttrType::Vec2:
        case AttrType::Vec3:
        case AttrType::Vec4:
        case AttrType::Pos2:
        case AttrType::Pos3:
        case AttrType::Quat:
        case AttrType::Rgba: return vectorSize;
        case AttrType::Mat3: return 9 * sizeof(double);
        case AttrType::Mat4: return 16 * sizeof(double);
        case AttrType::String: return sizeof(TextSize);
        case AttrType::Buffer: return sizeof(BufferSize);
        default: return 0;
    }
}

inline Input::Input(Node* node, Input* parent, unsigned long position, const String& name,
                    AttrType type, std::uint32_t elementType)
    : position_(static_cast<std::uint32_t>(position)),
      type_(keptType(type)),
      elementType_(keptElementType(elementType)),
      name_(name),
      node_(node),
      parent_(parent),
      value_{} {
    copyBehind(behind<char>(), AttrData::defaultComponents(type), sizeBehind(type));
}

inline Input* Input::make(Node* node, Input* parent, unsigned long position, const String& name,
                          AttrType type, std::uint32_t elementType) {
    Pool& pool = *node->scene().pool_;
    return pool.makeLonger<Input>(sizeBehind(type), node, parent, position, name, type,
                                  elementType);
}

inline Input* Input::addTo(NamedList<Input>& list, Node* node, Input* parent, const String& name,
                           AttrType type, std::uint32_t elementType) {
    if (list.size() == mostInputs) throw std::bad_alloc();
    Input* const input = make(node, parent, list.size(), name, type, elementType);
    try {
        list.add(input);
    } catch (...) {
        input->release();
        throw;
    }
    return input;
}

Input::~Input() {
    cut();
    freeValue();
}

void Input::freeValue() noexcept {
    if (type_ == AttrType::String) std::free(value_.text);
    if (type_ == AttrType::Buffer) std::free(value_.buffer);
}

void Input::retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }

void Input::release() noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    Pool::destroy(this, sizeBehind(type_));
}

// --- What it is ---------------------------------------------------------------------------------

String Input::typeName() const { return {attrTypeName(type_)}; }

String Input::fullName() const {
    std::vector<const Input*> steps;
    for (const Input* at = this; at; at = at->parent_)
        steps.push_back(at);
    ShownName path;
    if (node_) path.append(node_->name().view());
    std::for_each(steps.rbegin(), steps.rend(), [&path](const Input* step) {
        if (step->parent_ && step->parent_->isArray()) {
            path.append('[' + std::to_string(step->position_) + ']');
        } else {
            path.append(".");
            path.append(step->name_.view());
        }
    });
    return path.text();
}

const Enumeration* Input::enumeration() const {
    if (parent_ || !node_ || !node_->nodeType()) return nullptr;
    const InputDeclaration* const declaration = node_->nodeType()->findInput(name_);
    return declaration ? &declaration->enumeration : nullptr;
}

// --- Children and elements ----------------------------------------------------------------------

interfaces::IInputContainer* Input::container() {
    const bool canHold = isObject() || isArray() || type_ == AttrType::Null;
    return canHold ? this : nullptr;
}

Input* Input::createInput(const String& name, AttrType type) {
    return input(name) ? nullptr : addChild(name, type, 0);
}

Input* Input::createArray(const String& name, AttrType elementType) {
    return input(name) ? nullptr : addChild(name, AttrType::Array, codeOf(elementType));
}

// In one piece with how an input is made, which is much of what small statements take.
FoundInput Node::findOrCreate(const String& name, AttrType type, AttrType elementType) {
    if (Input* const found = input(name)) return {found, false};
    return {add(name, type, type == AttrType::Array ? codeOf(elementType) : 0), true};
}

Input* Node::add(const String& name, AttrType type, std::uint32_t elementType) {
    if (name.isEmpty() || name[0] == '[') return nullptr;
    return Input::addTo(inputs_, this, nullptr, name, type, elementType);
}

FoundInput Input::findOrCreate(const String& name, AttrType type, AttrType elementType) {
    if (Input* const found = input(name)) return {found, false};
    return {addChild(name, type, type == AttrType::Array ? codeOf(elementType) : 0), true};
}

Input* Input::addChild(const String& name, AttrType type, std::uint32_t elementType) {
    const bool canHold = node_ && (isObject() || type_ == AttrType::Null);
    if (!canHold || name.isEmpty() || name[0] == '[') return nullptr;
    std::unique_ptr<NamedList<Input>> first;
    if (!isObject() || !value_.children) first = std::make_unique<NamedList<Input>>();
    NamedList<Input>& children = first ? *first : *value_.children;
    Input* const child = addTo(children, node_, this, name, type, elementType);
    type_ = AttrType::Object;
    if (first) value_.children = first.release();
    return child;
}

bool Input::hasInput(const String& name, AttrType type) const {
    const Input* const child = input(name);
    return child && (type == AttrType::Null || child->type_ == type);
}

unsigned long Input::inputCount() const {
    if (isArray()) return value_.elements ? value_.elements->slots.size() : 0;
    return isObject() && value_.children ? value_.children->size() : 0;
}

Input* Input::inputAt(unsigned long i) {
    if (i >= inputCount()) return nullptr;
    return isArray() ? touch(i) : childAt(i);
}

Input* Input::input(const String& name) {
    return isObject() && value_.children ? value_.children->find(name) : nullptr;
}

const Input* Input::input(const String& name) const {
    return const_cast<Input*>(this)->input(name);
}

const Input* Input::touchedAt(unsigned long i) const {
    return i < inputCount() ? childAt(i) : nullptr;
}

// The child or element at `i`, null for an untouched element.
Input* Input::childAt(unsigned long i) const {
    return isArray() ? value_.elements->slots[i].input() : (*value_.children)[i];
}

AttrType Input::untouchedType(unsigned long i) const {
    const bool isUntouched = isArray() && i < inputCount() && !childAt(i);
    return isUntouched ? value_.elements->slots[i].type() : AttrType::Null;
}

DataType Input::untouchedBufferType(unsigned long i) const {
    if (untouchedType(i) != AttrType::Buffer) return DataType::Null;
    return static_cast<DataType>(value_.elements->slots[i].elementType());
}

AttrType Input::untouchedArrayType(unsigned long i) const {
    if (untouchedType(i) != AttrType::Array) return AttrType::Null;
    return static_cast<AttrType>(value_.elements->slots[i].elementType());
}

Input* Input::touch(unsigned long i) {
    ElementSlot& slot = value_.elements->slots[i];
    if (!slot.input()) {
        slot.touch(make(node_, this, i, String(), slot.type(), slot.elementType()));
    }
    return slot.input();
}

void Input::appendElements(unsigned long count) {
    if (count > 0) growBy(count - 1);
}

void Input::growTo(unsigned long i) {
    if (i >= inputCount()) growBy(i - inputCount());
}

// Adds `more` elements and one, which may be more than a number can hold.
void Input::growBy(unsigned long more) {
    if (!isArray() || !node_) return;
    Scene& scene = node_->scene();
    const unsigned long held = scene.elementCount_;
    if (held >= scene.elementLimit_ || more >= scene.elementLimit_ - held) {
        throw std::runtime_error(String::format("array too large: %s", fullName().buf()).buf());
    }
    if (!value_.elements) value_.elements = new Elements;
    std::vector<ElementSlot>& slots = value_.elements->slots;
    if (more >= mostInputs - slots.size()) throw std::bad_alloc();
    slots.resize(slots.size() + more + 1, ElementSlot(arrayType(), 0));
    scene.elementCount_ += more + 1;
}

Input* Input::firstTouched(unsigned long from) const {
    const unsigned long count = inputCount();
    for (unsigned long i = from; i < count; ++i)
        if (Input* const child = childAt(i)) return child;
    return nullptr;
}

Input* Input::nextSibling() const {
    if (parent_) return parent_->firstTouched(position_ + 1);
    return node_ ? node_->inputAt(position_ + 1) : nullptr;
}

Input* Input::nextInNode() const {
    if (Input* const child = firstTouched(0)) return child;
    for (const Input* at = this; at; at = at->parent_)
        if (Input* const sibling = at->nextSibling()) return sibling;
    return nullptr;
}

// --- Declared element types ---------------------------------------------------------------------

void Input::set(const AttrData& declaration) {
    const bool canDeclare = (isArray() || isBuffer()) && declaration.type == type_;
    if (canDeclare && elementType_ == 0)
        elementType_ = keptElementType(codeOf(declaration.arrayType()));
}

void Input::declareElements(const AttrData& declaration) {
    const std::uint32_t elementType = codeOf(declaration.arrayType());
    if (arrayType() != declaration.type || !value_.elements || elementType == 0) return;
    std::vector<ElementSlot>& slots = value_.elements->slots;
    // An element never loses its declaration, so each is looked at once however often this is
    // asked.
    for (unsigned long& i = value_.elements->declared; i < slots.size(); ++i) {
        if (Input* const element = slots[i].input()) {
            element->set(declaration);
        } else if (slots[i].type() == declaration.type && slots[i].elementType() == 0) {
            slots[i] = ElementSlot(declaration.type, elementType);
        }
    }
}

// --- The value ----------------------------------------------------------------------------------

bool Input::assign(const AttrData& data) noexcept {
    if (data.type != type_) {
        freePayload(data);
        return false;
    }
    switch (type_) {
        case AttrType::String: assignText(data); return true;
        case AttrType::Buffer: return assignBuffer(data);
        case AttrType::Bool:
        case AttrType::Int:
        case AttrType::UInt: value_.word = data.value[0]; return true;
        case AttrType::Real: value_.real = data.real(); return true;
        case AttrType::Null:
        case AttrType::Node:
        case AttrType::Array:
        case AttrType::Object: return true;  // their values carry nothing
        default: copyBehind(behind<char>(), data.value, sizeBehind(type_)); return true;
    }
}

void Input::assignText(const AttrData& data) noexcept {
    auto* const chars = static_cast<char*>(data.payload());
    if (chars != value_.text) std::free(value_.text);
    value_.text = chars;
    behind<TextSize>()->length = chars ? std::strlen(chars) : 0;
}

bool Input::assignBuffer(const AttrData& data) noexcept {
    const BufferView buffer = data.buffer();
    const bool isDeclaredType = elementType_ == 0 || data.bufferType() == bufferType();
    const bool hasNumbers = buffer.data && buffer.type != DataType::Null;
    const bool isWhole = buffer.isConsistent() && (buffer.count == 0 || hasNumbers);
    const bool isOwn = data.payload() == value_.buffer;
    if (!isDeclaredType || !isWhole) {
        if (!isOwn) freePayload(data);
        return false;
    }
    if (!isOwn) std::free(value_.buffer);
    value_.buffer = data.payload();
    *behind<BufferSize>() = {buffer.count, buffer.bytes};
    elementType_ = keptElementType(codeOf(data.arrayType()));
    return true;
}

AttrData Input::value() const {
    AttrData data;
    data.type = type_;
    switch (type_) {
        case AttrType::String: data.setPayload(value_.text); break;
        case AttrType::Buffer:
            data.setPayload(value_.buffer);
            data.value[1] = behind<BufferSize>()->count;
            data.value[2] = behind<BufferSize>()->bytes;
            data.setElementType(bufferType());
            break;
        case AttrType::Array: data.setElementType(arrayType()); break;
        case AttrType::Bool:
        case AttrType::Int:
        case AttrType::UInt: data.value[0] = value_.word; break;
        case AttrType::Real: data.setReal(value_.real); break;
        case AttrType::Null:
        case AttrType::Node:
        case AttrType::Object: break;
        default: std::memcpy(data.value, behind<double>(), sizeBehind(type_));
    }
    return data;
}

void Input::throwMismatch(const char* expected) const {
    const String found = isBuffer() ? String(dataTypeName(bufferType())) + "[]" : typeName();
    throw std::invalid_argument(
        String::format("expected %s @ %s but found %s", expected, fullName().buf(), found.buf())
            .buf());
}

void Input::expect(AttrType wanted) const {
    if (type_ != wanted) throwMismatch(attrTypeName(wanted));
}

bool Input::asBool() const {
    expect(AttrType::Bool);
    return value().boolean();
}

long Input::asInt() const {
    expect(AttrType::Int);
    return static_cast<long>(value_.word);
}

unsigned long Input::asUInt() const {
    expect(AttrType::UInt);
    return value_.word;
}

double Input::asReal() const {
    expect(AttrType::Real);
    return value_.real;
}

std::string_view Input::asText() const {
    expect(AttrType::String);
    return {value_.text ? value_.text : "", behind<TextSize>()->length};
}

const double* Input::asComponents() const {
    if (!isMatrix(type_) && !isVectorType(type_)) throwMismatch("a vector or matrix");
    return behind<double>();
}

const double* Input::asComponents(AttrType wanted) const {
    expect(wanted);
    return asComponents();
}

AttrData Input::valueAt(unsigned long i) const {
    if (const Input* const child = touchedAt(i)) return child->value();
    AttrData data = AttrData::defaultOf(untouchedType(i));
    if (data.type == AttrType::Buffer) data.setElementType(untouchedBufferType(i));
    if (data.type == AttrType::Array) data.setElementType(untouchedArrayType(i));
    return data;
}

BufferView Input::asBuffer() const {
    expect(AttrType::Buffer);
    const auto* const size = behind<BufferSize>();
    return {value_.buffer, size->count, size->bytes, bufferType()};
}

double Input::asNumber() const {
    switch (type_) {
        case AttrType::Bool: return asBool() ? 1 : 0;
        case AttrType::Int: return static_cast<double>(asInt());
        case AttrType::UInt: return static_cast<double>(asUInt());
        case AttrType::Real: return asReal();
        default: throwMismatch("a number");
    }
}

// --- Connections and node references ------------------------------------------------------------

// Kept with what they lead to, since an input may outlive its own node.
void Input::makeLinks(const Node& target) {
    if (!links_) links_ = target.scene().pool_->make<Links>();
}

template <class Target>
void Input::attach(Link<Target> Links::*link, Target& target) {
    InputChain& chain = target.attached_;
    Link<Target>& own = (*links_).*link;
    own = {&target, chain.end, nullptr};
    *chain.end = this;
    chain.end = &own.next;
}

template <class Target>
void Input::detach(Link<Target> Links::*link) noexcept {
    if (!links_) return;
    Link<Target>& own = (*links_).*link;
    if (!own.target) return;
    *own.place = own.next;
    (own.next ? ((*own.next->links_).*link).place : own.target->attached_.end) = own.place;
    own = {};
}

void Input::connect(Output* output) {
    if (!output) return disconnect();
    makeLinks(*output->node());  // first, so that a failure leaves the earlier connection
    detach(&Links::connection);
    attach(&Links::connection, *output);
}

void Input::disconnect() { detach(&Links::connection); }

Output* Input::connection() const { return links_ ? links_->connection.target : nullptr; }

void Input::setNode(Node* node) {
    if (node) makeLinks(*node);
    detach(&Links::reference);
    if (!node) return;
    attach(&Links::reference, *node);
    if (type_ == AttrType::Null) type_ = AttrType::Node;
}

Node* Input::nodeReference() const { return links_ ? links_->reference.target : nullptr; }

Input* Input::nextConnected() const { return links_ ? links_->connection.next : nullptr; }
Input* Input::nextReferring() const { return links_ ? links_->reference.next : nullptr; }

void Input::cut() noexcept {
    if (!links_) return;
    detach(&Links::connection);
    detach(&Links::reference);
    Pool::destroy(std::exchange(links_, nullptr));
}

// --- The end ------------------------------------------------------------------------------------

void Input::leaveNode() noexcept {
    cut();
    node_ = nullptr;
    parent_ = nullptr;
    release();
}

Input* Input::takeLastChild() noexcept {
    if (isObject() && value_.children) {
        if (Input* const child = value_.children->takeLast()) return child;
        delete value_.children;
        value_.children = nullptr;
    }
    if (!isArray() || !value_.elements) return nullptr;
    std::vector<ElementSlot>& slots = value_.elements->slots;
    while (!slots.empty()) {
        Input* const element = slots.back().input();
        slots.pop_back();
        --node_->scene().elementCount_;
        if (element) return element;
    }
    delete value_.elements;
    value_.elements = nullptr;
    return nullptr;
}

void Input::dropChildren() noexcept {
    for (Input* at = this;;) {
        if (Input* const child = at->takeLastChild()) {
            at = child;
        } else if (at == this) {
            return;
        } else {
            Input* const parent = at->parent_;
            at->leaveNode();
            at = parent;
        }
    }
}

}  // namespace ko::mirel_sdk::impl
