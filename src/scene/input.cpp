#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include <ko/scene.h>

#include "foundation/messages.h"
#include "scene/making.h"
#include "scene/namedlist.h"
#include "scene/shownname.h"
#include "scene/store.h"

namespace ko::mirel_sdk::impl {

// --- Storage ------------------------------------------------------------------------------------

namespace {

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

// The container side of what holds inputs. From the pool as a rule; of place 0 where the input has
// outlived its node, and maybe the pool.
class Input::Container : public interfaces::IInputContainer {
  public:
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

    Input* createInput(const String& name, AttrType type) override {
        return input_.createInput(name, type);
    }
    Input* createArray(const String& name, AttrType elementType) override {
        return input_.createArray(name, elementType);
    }
    bool hasInput(const String& name, AttrType type) const override {
        return input_.hasInput(name, type);
    }
    unsigned long inputCount() const override { return input_.inputCount(); }
    Input* inputAt(unsigned long i) override { return input_.inputAt(i); }
    Input* input(const String& name) override { return input_.input(name); }

    bool isInPool() const { return place_ != 0; }

  protected:
    Container(std::uint32_t place, Input& input) noexcept : input_(input), place_(place) {}
    ~Container() = default;

  private:
    friend class Pool;

    Input& input_;
    const std::uint32_t place_;
};

class Input::Children final : public Container {
  public:
    Children(std::uint32_t place, Input& input) noexcept : Container(place, input) {}

    NamedList<Input> list;
};

class Input::Elements final : public Container {
  public:
    Elements(std::uint32_t place, Input& input) noexcept : Container(place, input) {}

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

// Kept apart, since most inputs have none. Most others have one, and no value.
template <class Target>
struct Input::OneLink {
    explicit OneLink(std::uint32_t place) noexcept : place_(place) {}

    Link<Target> link;
    std::uint32_t place_;
};

struct Input::BothLinks {
    BothLinks(std::uint32_t place, Value itsValue) noexcept : value(itsValue), place_(place) {}

    Link<Output> connection;
    Link<Node> reference;
    Value value;  // of the input
    std::uint32_t place_;
};

// --- Made and destroyed -------------------------------------------------------------------------

unsigned long Input::sizeBehind() const {
    static_assert(sizeof(TextSize) == sizeof(std::uint64_t));
    static_assert(sizeof(BufferSize) == 2 * sizeof(unsigned long));
    const unsigned long size = sizesBehind.of[type_];
    return type() == AttrType::String ? size + behind<TextSize>()->room : size;
}

Input::~Input() {
    cut();
    freeValue();
}

void Input::freeValue() noexcept {
    const auto end = [](auto* container) {
        if (!container) return;
        if (container->isInPool()) {
            Pool::destroy(container);
        } else {
            delete container;
        }
    };
    switch (about(type()).storage) {
        case Storage::Text: freeText(); break;
        case Storage::Buffer: std::free(word().buffer); break;
        case Storage::Elements: end(elements()); break;
        // What may become an object may have been asked for its container side.
        case Storage::None:
        case Storage::Inputs: end(children()); break;
        case Storage::Bool:
        case Storage::Int:
        case Storage::UInt:
        case Storage::Real:
        case Storage::Components: break;
    }
}

void Input::retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }

void Input::release() noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    Pool::destroy(this, sizeBehind());
}

// --- What it is ---------------------------------------------------------------------------------

const String& Input::name() const { return Pool::namesOf(*this)[name_]; }

Node* Input::owner() const {
    const Input* highest = this;
    while (const Input* const above = highest->parent())
        highest = above;
    return highest->owner_.node();
}

String Input::typeName() const { return {attrTypeName(type())}; }

String Input::fullName() const {
    std::vector<const Input*> steps;
    for (const Input* at = this; at; at = at->parent())
        steps.push_back(at);
    ShownName path;
    if (const Node* const node = steps.back()->owner_.node()) path.append(node->name().view());
    std::for_each(steps.rbegin(), steps.rend(), [&path](const Input* step) {
        if (step->parent() && step->parent()->isArray()) {
            path.append('[' + std::to_string(step->position_) + ']');
        } else {
            path.append(".");
            path.append(step->name().view());
        }
    });
    return path.text();
}

const Enumeration* Input::enumeration() const {
    const Node* const node = owner_.node();
    if (!node || !node->nodeType()) return nullptr;
    const InputDeclaration* const declaration = node->nodeType()->findInput(name());
    return declaration ? &declaration->enumeration : nullptr;
}

// --- The value's word ---------------------------------------------------------------------------

// Null where there is but a link.
const Input::Value* Input::kept() const {
    if (links_ == NoLinks) return &word_;
    return links_ == TwoLinks ? &word_.both->value : nullptr;
}

Input::Value& Input::word() { return *const_cast<Value*>(kept()); }
const Input::Value& Input::word() const { return *kept(); }

// What may become an object may have been asked for its container side.
Input::Children* Input::children() const {
    const bool mayHave = isObject() || type() == AttrType::Null || type() == AttrType::Node;
    return mayHave && kept() ? word().children : nullptr;
}

Input::Elements* Input::elements() const { return isArray() ? word().elements : nullptr; }

Input::Children& Input::needChildren() {
    if (!kept()) haveBothLinks(Pool::of(*this));
    return need(word().children);
}

template <class Kept>
Kept& Input::need(Kept*& container) {
    if (!container) {
        container = owner_.isNone() ? new Kept(0, *this) : Pool::of(*this).make<Kept>(*this);
    }
    return *container;
}

// --- Children and elements ----------------------------------------------------------------------

namespace {

std::uint32_t elementTypeOf(AttrType type, AttrType elementType) {
    return type == AttrType::Array ? codeOf(elementType) : 0;
}

bool isInputName(const String& name) { return !name.isEmpty() && name[0] != '['; }

}  // namespace

interfaces::IInputContainer* Input::container() {
    if (isArray()) return &need(word().elements);
    const bool canHold = isObject() || type() == AttrType::Null;
    return canHold ? &needChildren() : nullptr;
}

Input* Input::createInput(const String& name, AttrType type) {
    return input(name) ? nullptr : addChild(name, type, 0);
}

Input* Input::createArray(const String& name, AttrType elementType) {
    return input(name) ? nullptr : addChild(name, AttrType::Array, codeOf(elementType));
}

FoundInput Node::findOrCreate(const String& name, AttrType type, AttrType elementType) {
    if (!isInputName(name)) return {nullptr, true};
    return findOrCreate({names().intern(name), type, elementTypeOf(type, elementType)});
}

Input* Node::createInput(const String& name, AttrType type) {
    return input(name) ? nullptr : add(name, type, 0);
}

Input* Node::createArray(const String& name, AttrType elementType) {
    return input(name) ? nullptr : add(name, AttrType::Array, codeOf(elementType));
}

Input* Node::add(const String& name, AttrType type, std::uint32_t elementType) {
    return isInputName(name) ? add({names().intern(name), type, elementType}) : nullptr;
}

FoundInput Input::findOrCreate(const NewInput& wanted) {
    const Children* const kept = isObject() ? children() : nullptr;
    Input* const found = kept ? kept->list.find(wanted.name) : nullptr;
    if (found) return {found, false};
    return {addChild(wanted), true};
}

FoundInput Input::findOrCreate(const String& name, AttrType type, AttrType elementType) {
    if (Input* const found = input(name)) return {found, false};
    return {addChild(name, type, elementTypeOf(type, elementType)), true};
}

Input* Input::addChild(const String& name, AttrType type, std::uint32_t elementType) {
    if (!canHoldChildren() || !isInputName(name)) return nullptr;
    return addChild({Pool::of(*this).names().intern(name), type, elementType});
}

Input* Input::addChild(const NewInput& wanted) {
    if (!canHoldChildren()) return nullptr;
    constexpr unsigned long fewChildren = 4;
    const Made made = {Owner(this),        wanted.name,     wanted.type,
                       wanted.elementType, wanted.textRoom, wanted.value};
    Input* const child = addTo(needChildren().list, Pool::of(*this), made, fewChildren);
    type_ = codeOf(AttrType::Object);
    return child;
}

bool Input::canHoldChildren() const {
    return !owner_.isNone() && (isObject() || type() == AttrType::Null);
}

bool Input::hasInput(const String& name, AttrType type) const {
    const Input* const child = input(name);
    return child && (type == AttrType::Null || child->type() == type);
}

unsigned long Input::inputCount() const {
    if (const Elements* const kept = elements()) return kept->slots.size();
    const Children* const kept = children();
    return kept ? kept->list.size() : 0;
}

Input* Input::inputAt(unsigned long i) {
    if (i >= inputCount()) return nullptr;
    return isArray() ? touch(i) : childAt(i);
}

Input* Input::input(const String& name) {
    const Children* const kept = owner_.isNone() ? nullptr : children();
    const Symbol symbol = kept ? Pool::namesOf(*this).find(name) : 0;
    return symbol ? kept->list.find(symbol) : nullptr;
}

const Input* Input::input(const String& name) const {
    return const_cast<Input*>(this)->input(name);
}

const Input* Input::touchedAt(unsigned long i) const {
    return i < inputCount() ? childAt(i) : nullptr;
}

// The child or element at `i`, null for an untouched element.
Input* Input::childAt(unsigned long i) const {
    return isArray() ? elements()->slots[i].input() : children()->list[i];
}

AttrType Input::untouchedType(unsigned long i) const {
    const bool isUntouched = isArray() && i < inputCount() && !childAt(i);
    return isUntouched ? elements()->slots[i].type() : AttrType::Null;
}

DataType Input::untouchedBufferType(unsigned long i) const {
    if (untouchedType(i) != AttrType::Buffer) return DataType::Null;
    return static_cast<DataType>(elements()->slots[i].elementType());
}

AttrType Input::untouchedArrayType(unsigned long i) const {
    if (untouchedType(i) != AttrType::Array) return AttrType::Null;
    return static_cast<AttrType>(elements()->slots[i].elementType());
}

Input* Input::touch(unsigned long i) {
    ElementSlot& slot = elements()->slots[i];
    if (!slot.input()) {
        slot.touch(make(Pool::of(*this),
                        {Owner(this), 0, slot.type(), slot.elementType(), 0, nullptr, i}));
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
    if (!isArray() || owner_.isNone()) return;
    Scene& scene = *Pool::of(*this).scene();
    const unsigned long held = scene.elementCount_;
    if (held >= scene.elementLimit_ || more >= scene.elementLimit_ - held) {
        throw std::runtime_error(say<Message::ArrayTooLarge>(fullName().buf()).text.buf());
    }
    std::vector<ElementSlot>& slots = need(word().elements).slots;
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
    if (const Input* const above = parent()) return above->firstTouched(position_ + 1);
    Node* const node = owner_.node();
    return node ? node->inputAt(position_ + 1) : nullptr;
}

Input* Input::nextInNode() const {
    if (Input* const child = firstTouched(0)) return child;
    for (const Input* at = this; at; at = at->parent())
        if (Input* const sibling = at->nextSibling()) return sibling;
    return nullptr;
}

// --- Declared element types ---------------------------------------------------------------------

void Input::set(const AttrData& declaration) {
    const bool canDeclare = (isArray() || isBuffer()) && declaration.type == type();
    if (canDeclare && elementType_ == 0)
        elementType_ = keptElementType(codeOf(declaration.arrayType())) & noElementType;
}

void Input::declareElements(const AttrData& declaration) {
    const std::uint32_t elementType = codeOf(declaration.arrayType());
    if (arrayType() != declaration.type || !elements() || elementType == 0) return;
    std::vector<ElementSlot>& slots = elements()->slots;
    // An element never loses its declaration, so each is looked at once however often this is
    // asked.
    for (unsigned long& i = elements()->declared; i < slots.size(); ++i) {
        if (Input* const element = slots[i].input()) {
            element->set(declaration);
        } else if (slots[i].type() == declaration.type && slots[i].elementType() == 0) {
            slots[i] = ElementSlot(declaration.type, elementType);
        }
    }
}

// --- The value ----------------------------------------------------------------------------------

bool Input::assign(const AttrData& data) noexcept {
    if (data.type != type()) {
        freePayload(data);
        return false;
    }
    switch (about(type()).storage) {
        case Storage::Text: assignText(data); return true;
        case Storage::Buffer: return assignBuffer(data);
        case Storage::Bool:
        case Storage::Int:
        case Storage::UInt: word().word = data.value[0]; return true;
        case Storage::Real: word().real = data.real(); return true;
        case Storage::Components: copyBehind(behind<char>(), data.value, sizeBehind()); return true;
        case Storage::None:
        case Storage::Elements:
        case Storage::Inputs: break;  // their values carry nothing
    }
    return true;
}

void Input::assignText(const AttrData& data) noexcept {
    auto* const chars = static_cast<char*>(data.payload());
    if (chars != word().text) freeText();
    word().text = chars;
    behind<TextSize>()->length = chars ? std::strlen(chars) & longestText : 0;
}

void Input::assignText(std::string_view text) {
    TextSize& size = *behind<TextSize>();
    if (text.size() >= size.room) {
        const AttrData data = AttrData::ofText(text);
        return assignText(data);
    }
    freeText();
    char* const chars = textBehind();
    std::memcpy(chars, text.data(), text.size());
    chars[text.size()] = '\0';
    word().text = chars;
    size.length = text.size() & longestText;
}

void Input::freeText() noexcept {
    char*& text = word().text;
    const bool isInPlace = behind<TextSize>()->room > 0 && text == textBehind();
    if (!isInPlace) std::free(text);
    text = nullptr;
}

bool Input::assignBuffer(const AttrData& data) noexcept {
    const BufferView buffer = data.buffer();
    const bool isDeclaredType = elementType_ == 0 || data.bufferType() == bufferType();
    const bool hasNumbers = buffer.data && buffer.type != DataType::Null;
    const bool isWhole = buffer.isConsistent() && (buffer.count == 0 || hasNumbers);
    const bool isOwn = data.payload() == word().buffer;
    if (!isDeclaredType || !isWhole) {
        if (!isOwn) freePayload(data);
        return false;
    }
    if (!isOwn) std::free(word().buffer);
    word().buffer = data.payload();
    *behind<BufferSize>() = {buffer.count, buffer.bytes};
    elementType_ = keptElementType(codeOf(data.arrayType())) & noElementType;
    return true;
}

AttrData Input::value() const {
    AttrData data;
    data.type = type();
    switch (about(type()).storage) {
        case Storage::Text: data.setPayload(word().text); break;
        case Storage::Buffer:
            data.setPayload(word().buffer);
            data.value[1] = behind<BufferSize>()->count;
            data.value[2] = behind<BufferSize>()->bytes;
            data.setElementType(bufferType());
            break;
        case Storage::Elements: data.setElementType(arrayType()); break;
        case Storage::Bool:
        case Storage::Int:
        case Storage::UInt: data.value[0] = word().word; break;
        case Storage::Real: data.setReal(word().real); break;
        case Storage::Components: std::memcpy(data.value, behind<double>(), sizeBehind()); break;
        case Storage::None:
        case Storage::Inputs: break;
    }
    return data;
}

void Input::throwMismatch(const char* expected) const {
    const String found = isBuffer() ? String(dataTypeName(bufferType())) + "[]" : typeName();
    throw std::invalid_argument(
        say<Message::WrongAccess>(expected, fullName().buf(), found.buf()).text.buf());
}

void Input::expect(AttrType wanted) const {
    if (type() != wanted) throwMismatch(attrTypeName(wanted));
}

bool Input::asBool() const {
    expect(AttrType::Bool);
    return value().boolean();
}

long Input::asInt() const {
    expect(AttrType::Int);
    return static_cast<long>(word().word);
}

unsigned long Input::asUInt() const {
    expect(AttrType::UInt);
    return word().word;
}

double Input::asReal() const {
    expect(AttrType::Real);
    return word().real;
}

std::string_view Input::asText() const {
    expect(AttrType::String);
    return {word().text ? word().text : "", behind<TextSize>()->length};
}

const double* Input::asComponents() const {
    if (about(type()).storage != Storage::Components) throwMismatch("a vector or matrix");
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
    return {word().buffer, size->count, size->bytes, bufferType()};
}

double Input::asNumber() const {
    switch (about(type()).storage) {
        case Storage::Bool: return asBool() ? 1 : 0;
        case Storage::Int: return static_cast<double>(asInt());
        case Storage::UInt: return static_cast<double>(asUInt());
        case Storage::Real: return asReal();
        case Storage::None:
        case Storage::Components:
        case Storage::Text:
        case Storage::Buffer:
        case Storage::Elements:
        case Storage::Inputs: break;
    }
    throwMismatch("a number");
}

// --- Connections and node references ------------------------------------------------------------

// The link to an output or to a node; null where there was never one.
template <>
Input::Link<Output>* Input::link() const {
    if (links_ == TwoLinks) return &word_.both->connection;
    return links_ == OneConnection ? &word_.connection->link : nullptr;
}

template <>
Input::Link<Node>* Input::link() const {
    if (links_ == TwoLinks) return &word_.both->reference;
    return links_ == OneReference ? &word_.reference->link : nullptr;
}

// With what it leads to where the input has outlived its own node.
template <class Target>
void Input::makeLink(const Node& target) {
    if (link<Target>()) return;
    const bool hasOwner = !owner_.isNone();
    Pool& pool = hasOwner ? Pool::of(*this) : target.pool();
    const bool mayBeAlone = hasOwner && links_ == NoLinks && word_.word == 0 &&
                            (type() == AttrType::Null || type() == AttrType::Node);
    return mayBeAlone ? startWith(pool.make<OneLink<Target>>()) : haveBothLinks(pool);
}

void Input::startWith(OneLink<Output>* link) {
    word_.connection = link;
    links_ = OneConnection;
}

void Input::startWith(OneLink<Node>* link) {
    word_.reference = link;
    links_ = OneReference;
}

void Input::haveBothLinks(Pool& pool) {
    auto* const both = pool.make<BothLinks>(kept() ? *kept() : Value{});
    if (links_ == OneConnection) moveLink(word_.connection, both->connection);
    if (links_ == OneReference) moveLink(word_.reference, both->reference);
    word_.both = both;
    links_ = TwoLinks;
}

// What comes after a link in its chain is to lead back to `place`.
template <class Target>
void Input::leadBack(const Link<Target>& own, Input** place) noexcept {
    Input* const next = own.next;
    (next ? next->link<Target>()->place : own.target->attached_.end) = place;
}

template <class Target>
void Input::moveLink(OneLink<Target>* from, Link<Target>& to) noexcept {
    to = from->link;
    if (to.target) leadBack(to, &to.next);
    Pool::destroy(from);
}

template <class Target>
void Input::attach(Target& target) {
    InputChain& chain = target.attached_;
    Link<Target>& own = *link<Target>();
    own = {&target, chain.end, nullptr};
    *chain.end = this;
    chain.end = &own.next;
}

template <class Target>
void Input::detach() noexcept {
    Link<Target>* const own = link<Target>();
    if (!own || !own->target) return;
    *own->place = own->next;
    leadBack(*own, own->place);
    *own = {};
}

void Input::connect(Output* output) {
    if (!output) return disconnect();
    makeLink<Output>(*output->node());  // first, so that a failure leaves the earlier connection
    detach<Output>();
    attach(*output);
}

void Input::disconnect() { detach<Output>(); }

Output* Input::connection() const {
    const Link<Output>* const own = link<Output>();
    return own ? own->target : nullptr;
}

void Input::setNode(Node* node) {
    if (node) makeLink<Node>(*node);
    detach<Node>();
    if (!node) return;
    attach(*node);
    if (type() == AttrType::Null) type_ = codeOf(AttrType::Node);
}

Node* Input::nodeReference() const {
    const Link<Node>* const own = link<Node>();
    return own ? own->target : nullptr;
}

Input* Input::nextConnected() const {
    const Link<Output>* const own = link<Output>();
    return own ? own->next : nullptr;
}

Input* Input::nextReferring() const {
    const Link<Node>* const own = link<Node>();
    return own ? own->next : nullptr;
}

void Input::cut() noexcept {
    if (links_ == NoLinks) return;
    detach<Output>();
    detach<Node>();
    const Value value = kept() ? *kept() : Value{};
    switch (links_) {
        case OneConnection: Pool::destroy(word_.connection); break;
        case OneReference: Pool::destroy(word_.reference); break;
        case TwoLinks: Pool::destroy(word_.both); break;
        case NoLinks: break;
    }
    word_ = value;
    links_ = NoLinks;
}

// --- The end ------------------------------------------------------------------------------------

void Input::leaveNode() noexcept {
    cut();
    owner_ = Owner();
    release();
}

Input* Input::takeLastChild() noexcept {
    if (Children* const kept = children()) return kept->list.takeLast();
    Elements* const kept = elements();
    while (kept && !kept->slots.empty()) {
        Input* const element = kept->slots.back().input();
        kept->slots.pop_back();
        --Pool::of(*this).scene()->elementCount_;
        if (element) return element;
    }
    return nullptr;
}

void Input::dropChildren() noexcept {
    for (Input* at = this;;) {
        if (Input* const child = at->takeLastChild()) {
            at = child;
        } else if (at == this) {
            return;
        } else {
            Input* const parent = at->parent();
            at->leaveNode();
            at = parent;
        }
    }
}

}  // namespace ko::mirel_sdk::impl
