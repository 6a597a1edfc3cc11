// The scene model: nodes with typed inputs and outputs, values, connections, node types, renames.
//
// A scene belongs to one thread at a time. It owns its nodes; nodes own their inputs and outputs.
// Pointers to nodes, inputs and outputs stay valid until the scene is destroyed, those of a removed
// node until `Scene::purgeRemoved()`.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <ko/ds.h>
#include <ko/foundation.h>
#include <ko/types.h>

#pragma GCC visibility push(default)

namespace ko::mirel_sdk {

namespace impl {
class Ahead;
class Enumeration;
class Input;
class [[gnu::visibility("hidden")]] Names;
class Node;
class NodeType;
class Output;
class Pool;
class Scene;

// The version of the format that a new scene and a freshly read file start with.
inline constexpr unsigned long KVX_FILE_VERSION_1 = 1;
// What `Scene::bufferLimit` and `Scene::bufferTotalLimit` are when there is none.
inline constexpr unsigned long noBufferLimit = ~0UL;
// Array elements that one scene holds at most, unless `Scene::setElementLimit` says otherwise.
inline constexpr unsigned long defaultElementLimit = 4'194'304;

// Numbers of a buffer, lent by the value or input that owns them.
struct BufferView {
    const void* data = nullptr;  // null when empty
    unsigned long count = 0;     // elements
    unsigned long bytes = 0;     // count * elementSize(type)
    DataType type = DataType::Null;

    // Whether the bytes are those of the count.
    bool isConsistent() const;
    // Numbers in the buffer: elements times the components of each.
    unsigned long components() const { return count * componentCount(type); }
    // The components as an array of T, where T is their type (float for Vec3f); null where it is
    // not.
    template <class T>
    const T* as() const;
};

// One value and its type. A String or Buffer value carries a payload from malloc or calloc, which
// plain copies share: `Input::assign` and `Scene::discard` take it over, a value that was read back
// only lends it.
struct AttrData {
    AttrType type = AttrType::Null;
    // By type: Bool in the first byte; Int, UInt and Real in the first word; vectors and matrices
    // as doubles from the first word on; a String as a pointer to its NUL-terminated text. A Buffer
    // as data pointer, count, byte size, element type and 0. An Array's element type is in the
    // fourth word's low 32 bits, as is a Buffer's.
    std::uint64_t value[16] = {};

    // Values made in code. `ofText` (up to a NUL) and `ofBuffer` (zero-filled) own their payload
    // until it is handed over; they throw std::bad_alloc.
    static AttrData ofBool(bool value);
    static AttrData ofInt(long value);
    static AttrData ofUInt(unsigned long value);
    static AttrData ofReal(double value);
    static AttrData ofText(std::string_view text);
    // A vector, point, quaternion, colour or matrix from componentCount(type) doubles.
    static AttrData ofComponents(AttrType type, const double* components);
    static AttrData ofBuffer(DataType elementType, unsigned long count);
    // A type without a value, for `Input::set`.
    static AttrData declareArray(AttrType elementType);
    static AttrData declareBuffer(DataType elementType);
    // What a new input of `type` holds; never a payload.
    static AttrData defaultOf(AttrType type);

    // The parts, read without a look at `type`.
    bool boolean() const { return *reinterpret_cast<const unsigned char*>(value) != 0; }
    long integer() const { return static_cast<long>(value[0]); }
    unsigned long uinteger() const { return value[0]; }
    double real() const { return component(0); }
    double component(int i) const {
        double number = 0;
        std::memcpy(&number, &value[i], sizeof number);
        return number;
    }
    const char* text() const;  // "" for none
    // The text or the buffer's numbers.
    void* payload() const { return reinterpret_cast<void*>(value[0]); }
    void setPayload(void* payload) { value[0] = reinterpret_cast<std::uint64_t>(payload); }
    void setReal(double number) { setComponent(0, number); }
    // Becomes a Bool, as `ofBool`.
    void setBool(bool is);
    // Becomes a String with a copy of `text` (up to a NUL), as `ofText`.
    void setText(std::string_view text);
    // Becomes Null and all zeros; a payload is the caller's. Only matrices use more words than a
    // few.
    void clear() {
        constexpr unsigned long few = 5;
        const bool isMatrix = type == AttrType::Mat3 || type == AttrType::Mat4;
        std::fill_n(value, few, 0);
        if (isMatrix) std::fill_n(value, std::size(value), 0);
        type = AttrType::Null;
    }
    void setComponent(int i, double number) { std::memcpy(&value[i], &number, sizeof number); }
    BufferView buffer() const;
    AttrType arrayType() const { return static_cast<AttrType>(elementCode()); }
    DataType bufferType() const { return static_cast<DataType>(elementCode()); }
    void setElementType(AttrType elements) { value[3] = static_cast<std::uint32_t>(elements); }
    void setElementType(DataType elements) { value[3] = static_cast<std::uint32_t>(elements); }

    // Whether values of this type carry a payload.
    bool hasPayload() const { return type == AttrType::String || type == AttrType::Buffer; }
    // A copy with a payload of its own. Throws std::bad_alloc, and std::invalid_argument for a
    // buffer whose bytes are not those of its count.
    AttrData clone() const;

  private:
    friend class Input;
    // The components of a new vector or matrix; zeros for other types, at least four.
    static const double* defaultComponents(AttrType type);
    std::uint32_t elementCode() const { return static_cast<std::uint32_t>(value[3]); }
};

// Frees the payload of a value that nothing has taken over.
void freePayload(const AttrData& data) noexcept;

// Objects in a chain, to be walked while any of them may leave it: the walk goes on with the next
// one that is left. `Links` says which is the first, which comes after one in the chain, and where
// to go on from one whose next one was `next`, when either may have left.
template <class T, class Links>
class Chain {
  public:
    class Iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = T* const*;
        using reference = T*;

        Iterator() = default;
        Iterator(Links links, T* at) : links_(links) { moveTo(at); }
        T* operator*() const { return at_; }
        Iterator& operator++() {
            moveTo(next_ ? links_.goOn(at_, next_) : nullptr);
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator& other) const { return at_ == other.at_; }
        bool operator!=(const Iterator& other) const { return at_ != other.at_; }

      private:
        void moveTo(T* at) {
            at_ = at;
            next_ = at ? links_.after(at) : nullptr;
        }

        Links links_;
        T* at_ = nullptr;
        T* next_ = nullptr;
    };

    explicit Chain(Links links) : links_(links) {}
    Iterator begin() const { return Iterator(links_, links_.first()); }
    Iterator end() const { return Iterator(); }
    bool isEmpty() const { return !links_.first(); }

  private:
    Links links_;
};

struct NameHash {
    std::size_t operator()(std::string_view name) const noexcept { return hashText(name); }
    std::size_t operator()(const String& name) const noexcept { return name.hash(); }
};

// A name of the inputs and outputs of a scene, as a number: equal names have equal ones. 0 is the
// empty name.
using Symbol = std::uint32_t;

// Inputs or outputs of different names in the order in which they were added; does not own them. A
// few are told apart by a byte of each symbol, many are found through an index.
template <class T>
class NamedList {
  public:
    NamedList() = default;
    NamedList(const NamedList&) = delete;
    NamedList& operator=(const NamedList&) = delete;
    ~NamedList();
    T* find(Symbol name) const;
    // Throws std::bad_alloc and is then unchanged. The first one makes room for `expected`.
    void add(Pool& pool, T* item, unsigned long expected);
    unsigned long size() const { return size_; }
    T* operator[](unsigned long i) const { return items_[i]; }
    // Takes the last item out of the list; null when it is empty. From then on the list can only be
    // taken apart.
    T* takeLast() noexcept;

  private:
    class Index;
    static constexpr unsigned long longestScan = sizeof(std::uint64_t);

    bool isIndexed() const { return capacity_ > longestScan; }
    void grow(Pool& pool, unsigned long capacity);
    static T** room(Pool& pool, unsigned long capacity);
    static void free(T** items, unsigned long capacity) noexcept;

    T** items_ = nullptr;
    std::uint32_t size_ = 0;
    std::uint32_t capacity_ = 0;
    union {
        std::uint64_t marks_ = 0;  // of a few, the first lowest
        Index* index_;             // of what has room for more
    };
};

// The values that a String input may take.
class Enumeration {
  public:
    explicit Enumeration(std::vector<String> values = {});
    // True when it has at least one value.
    bool isActive() const { return !values_.empty(); }
    // The place of the value spelled `text`, or none.
    std::optional<unsigned long> find(const String& text) const;
    const std::vector<String>& values() const { return values_; }

  private:
    std::vector<String> values_;
    std::unordered_map<String, unsigned long, NameHash> places_;
};

}  // namespace impl

namespace interfaces {

// The children of an object by name, or the elements of an array by position.
class IInputContainer {
  public:
    // A new child; null when the name is empty, taken or begins with "[", or when children of this
    // input have no names.
    virtual impl::Input* createInput(const String& name, AttrType type) = 0;
    // A new array whose elements have type `elementType`; null as above.
    virtual impl::Input* createArray(const String& name, AttrType elementType) = 0;
    // Whether there is a child `name` of type `type`; Null stands for any type.
    virtual bool hasInput(const String& name, AttrType type) const = 0;
    virtual unsigned long inputCount() const = 0;
    // The child or element at position `i`, or null past the end.
    virtual impl::Input* inputAt(unsigned long i) = 0;
    // The child `name`, or null.
    virtual impl::Input* input(const String& name) = 0;

  protected:
    ~IInputContainer() = default;
};

// An input as the reader sees it. Owned by its node; counted references keep it alive beyond that.
class IInput {
  public:
    virtual AttrType type() const = 0;
    // The name of `type()`, for arrays and buffers too.
    virtual String typeName() const = 0;
    // The path from the node on: "m.list[3].x". Of more than 500 bytes the first 300, "..." and the
    // last 197.
    virtual String fullName() const = 0;
    // The flag of this and the other questions is reserved; it has no effect.
    virtual bool isBuffer(bool reserved = false) const = 0;
    // What a registered node type says of the values here, or null; inactive when it lists none.
    virtual const impl::Enumeration* enumeration() const = 0;
    // An array's element type; Null while undeclared and for what is no array.
    virtual AttrType arrayType() const = 0;
    // A buffer's element type; Null while undeclared and for what is no buffer.
    virtual DataType bufferType() const = 0;
    // Adds a default element at the end of an array; nothing elsewhere. Throws std::runtime_error,
    // "array too large: %s", at the scene's element limit.
    virtual void appendElement() = 0;
    virtual bool isArray(bool reserved = false) const = 0;
    virtual bool isObject(bool reserved = false) const = 0;
    // The container side of an Object, an Array, or a Null input (which becomes an Object when a
    // child is created in it); null for any other type.
    virtual IInputContainer* container() = 0;
    // Takes the input's value from `output`, which replaces an earlier connection.
    virtual void connect(impl::Output* output) = 0;
    virtual void disconnect() = 0;
    // Refers to `node`, or to none; a Null input that is given a node becomes a Node input.
    virtual void setNode(impl::Node* node) = 0;
    virtual void retain() noexcept = 0;
    virtual void release() noexcept = 0;

  protected:
    ~IInput() = default;
};

// What a reader asks of a scene: impl::Scene, or one of the program's own, which hands out nodes of
// some impl::Scene.
class IScene {
  public:
    virtual ~IScene() = default;
    virtual void clearComments() = 0;
    virtual void setFileVersion(unsigned long version) = 0;
    virtual void setFileTime(String time) = 0;
    virtual void pushFileComment(String comment) = 0;
    // The node `name`, or null.
    virtual impl::Node* findNode(const String& name) const = 0;
    // A new node; null when type or name is empty or the name is taken.
    virtual impl::Node* createNode(String type, String name, String label) = 0;
    // A new node of type and name `name`, marked as a definition; null as above.
    virtual impl::Node* defineNode(String name) = 0;
    // Cuts every connection and reference from and to the node and takes it out of the scene. The
    // object lives on until `Scene::purgeRemoved()`. An unknown name is ignored.
    virtual void removeNode(const String& name) = 0;

    // Bytes that one buffer of a document, and that all of them, may ask for.
    virtual unsigned long bufferLimit() const { return impl::noBufferLimit; }
    virtual unsigned long bufferTotalLimit() const { return impl::noBufferLimit; }
    // Frees the payload of a value that no input takes.
    virtual void discard(const impl::AttrData& data) noexcept { impl::freePayload(data); }
};

}  // namespace interfaces

namespace impl {

struct FoundInput {
    Input* input = nullptr;
    bool isNew = false;
};

// An input that is looked for, or made.
struct NewInput {
    Symbol name;
    AttrType type;
    std::uint32_t elementType = 0;  // of an array or buffer
    unsigned long textRoom = 0;     // bytes for a text in place, its NUL included
    // The words of the value of a new input that carries no payload; null for its type's default.
    const std::uint64_t* value = nullptr;
};

// A typed place on a node, in an object or in an array: holds a value, a node reference and a
// connection side by side.
class Input final : public interfaces::IInput {
  public:
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    // Empty for the elements of an array.
    const String& name() const;
    // The place among the inputs of the node, object or array that holds this one.
    unsigned long position() const { return position_; }
    // The node that owns this input; null once that node was destroyed. Asks one input above after
    // the other.
    Node* owner() const;
    // The object or array that holds this input; null at node level.
    Input* parent() const { return owner_.input(); }

    AttrType type() const override { return static_cast<AttrType>(type_); }
    String typeName() const override;
    String fullName() const override;
    bool isBuffer(bool /*reserved*/ = false) const override { return type() == AttrType::Buffer; }
    const Enumeration* enumeration() const override;
    AttrType arrayType() const override {
        return isArray() ? static_cast<AttrType>(elementType_) : AttrType::Null;
    }
    DataType bufferType() const override {
        return isBuffer() ? static_cast<DataType>(elementType_) : DataType::Null;
    }
    void appendElement() override { appendElements(1); }
    bool isArray(bool /*reserved*/ = false) const override { return type() == AttrType::Array; }
    bool isObject(bool /*reserved*/ = false) const override { return type() == AttrType::Object; }
    // Throws std::bad_alloc. Lives as long as the input.
    interfaces::IInputContainer* container() override;

    // As the operations of interfaces::IInputContainer.
    Input* createInput(const String& name, AttrType type);
    Input* createArray(const String& name, AttrType elementType);
    bool hasInput(const String& name, AttrType type) const;
    unsigned long inputCount() const;
    Input* inputAt(unsigned long i);
    Input* input(const String& name);
    const Input* input(const String& name) const;
    FoundInput findOrCreate(const String& name, AttrType type, AttrType elementType);
    // The child or element at `i`; null past the end, and for an element that nothing has touched:
    // it has `untouchedType(i)` and that type's default.
    const Input* touchedAt(unsigned long i) const;
    AttrType untouchedType(unsigned long i) const;
    // The value of the child or element at `i`, lent, whether something has touched it or not; of
    // type Null past the end.
    AttrData valueAt(unsigned long i) const;
    // The element type that an untouched element of type Buffer was declared with, else Null.
    DataType untouchedBufferType(unsigned long i) const;
    // Likewise for an untouched element of type Array.
    AttrType untouchedArrayType(unsigned long i) const;

    // Adds `count` default elements; as `appendElement`, and all or none.
    void appendElements(unsigned long count);
    // Adds as many as it takes for an element at `i`, likewise.
    void growTo(unsigned long i);
    // Declares the element type of an undeclared array or buffer from a value that carries just
    // that; anything else changes nothing.
    void set(const AttrData& declaration);
    // Does `set` for every undeclared element of an array, those of type `declaration.type`.
    void declareElements(const AttrData& declaration);
    // Stores `data`, which has this input's type, and takes its payload over. A buffer declares its
    // element type. False, and the payload is freed, for a value that does not fit.
    // A value read back from another input is that input's: assign its `clone()`.
    bool assign(const AttrData& data) noexcept;
    // The value, its payload lent until the next assignment.
    AttrData value() const;

    // The value as what it is; std::invalid_argument when it is something else.
    bool asBool() const;
    long asInt() const;
    unsigned long asUInt() const;
    double asReal() const;
    std::string_view asText() const;
    // componentCount(type()) doubles of a vector, point, quaternion, colour or matrix.
    const double* asComponents() const;
    // The same where the type must be `wanted`.
    const double* asComponents(AttrType wanted) const;
    BufferView asBuffer() const;
    // The elements of a buffer whose components are T: `asBuffer().as<float>()` and the check.
    template <class T>
    const T* asBufferOf() const;
    // A Bool, Int, UInt or Real as a double, since documents write 2 where 2.0 is meant.
    double asNumber() const;

    void connect(Output* output) override;
    void disconnect() override;
    // The output that this input takes its value from, or null.
    Output* connection() const;
    void setNode(Node* node) override;
    // The node that this input refers to, or null.
    Node* nodeReference() const;

    // The next input connected to the same output; the next one that refers to the same node.
    Input* nextConnected() const;
    Input* nextReferring() const;
    // The next input of the node in depth-first order, elements that nothing has touched left out.
    Input* nextInNode() const;

    void retain() noexcept override;
    void release() noexcept override;

  private:
    friend class KvtParser;
    friend class NamedList<Input>;
    friend class Node;
    friend class Pool;
    class Container;
    class Children;
    class Elements;
    template <class Target>
    struct Link;
    template <class Target>
    struct OneLink;
    struct BothLinks;
    enum LinksKept : std::uint32_t { NoLinks, OneConnection, OneReference, TwoLinks };

    // What holds an input: a node, or the object or array above, whose address is then an odd
    // number.
    class Owner {
      public:
        Owner() = default;
        explicit Owner(Node* node) : bits_(reinterpret_cast<std::uintptr_t>(node)) {}
        explicit Owner(Input* input) : bits_(reinterpret_cast<std::uintptr_t>(input) | 1U) {}
        bool isNone() const { return bits_ == 0; }
        Node* node() const { return bits_ & 1U ? nullptr : reinterpret_cast<Node*>(bits_); }
        Input* input() const { return bits_ & 1U ? reinterpret_cast<Input*>(bits_ - 1) : nullptr; }

      private:
        std::uintptr_t bits_ = 0;
    };
    // One word of the value; which member is alive follows from the type, unless there are links:
    // the value then stands with them.
    union Value {
        std::uint64_t word;  // Bool, Int, UInt
        double real;
        char* text;
        void* buffer;
        Children* children;  // of an object, or what may become one; null while nobody asked
        Elements* elements;  // of an array; null while it has none
        OneLink<Output>* connection;
        OneLink<Node>* reference;
        BothLinks* both;
    };
    // What the value of a longer type has besides stands right after the input: the components of
    // vectors and matrices, and these.
    struct TextSize {
        std::uint64_t length : 56;
        std::uint64_t room : 8;  // bytes after this, for a short text and its NUL
    };
    static constexpr std::uint64_t longestText = ~std::uint64_t(0) >> 8;
    struct BufferSize {
        unsigned long count;
        unsigned long bytes;
    };
    unsigned long sizeBehind() const;
    char* textBehind() { return behind<char>() + sizeof(TextSize); }
    template <class T>
    T* behind() {
        return reinterpret_cast<T*>(this + 1);
    }
    template <class T>
    const T* behind() const {
        return reinterpret_cast<const T*>(this + 1);
    }

    // An input as it is to be made.
    struct Made {
        Owner owner;
        Symbol name;
        AttrType type;
        std::uint32_t elementType;
        unsigned long textRoom = 0;
        const std::uint64_t* value = nullptr;
        unsigned long position = 0;
    };
    // A new input at the end of `list`, with one reference, its holder's. Throws std::bad_alloc.
    [[gnu::always_inline]] static inline Input* addTo(NamedList<Input>& list, Pool& pool, Made made,
                                                      unsigned long expected);
    [[gnu::always_inline]] static inline Input* make(Pool& pool, const Made& made);
    inline Input(std::uint32_t place, const Made& made) noexcept;
    ~Input();

    const Value* kept() const;
    Value& word();
    const Value& word() const;
    Children* children() const;
    Elements* elements() const;
    template <class Kept>
    Kept& need(Kept*& container);
    Children& needChildren();
    bool canHoldChildren() const;
    FoundInput findOrCreate(const NewInput& wanted);
    Input* addChild(const String& name, AttrType type, std::uint32_t elementType);
    Input* addChild(const NewInput& wanted);
    Input* childAt(unsigned long i) const;
    Input* touch(unsigned long i);
    void growBy(unsigned long more);
    Input* nextSibling() const;
    Input* firstTouched(unsigned long from) const;
    void assignText(const AttrData& data) noexcept;
    // A copy of the text, which has no NUL. Throws std::bad_alloc.
    void assignText(std::string_view text);
    void freeText() noexcept;
    bool assignBuffer(const AttrData& data) noexcept;
    void freeValue() noexcept;
    void expect(AttrType wanted) const;
    [[noreturn]] void throwMismatch(const char* expected) const;

    template <class Target>
    Link<Target>* link() const;
    template <class Target>
    void makeLink(const Node& target);
    void startWith(OneLink<Output>* link);
    void startWith(OneLink<Node>* link);
    void haveBothLinks(Pool& pool);
    template <class Target>
    static void leadBack(const Link<Target>& own, Input** place) noexcept;
    template <class Target>
    static void moveLink(OneLink<Target>* from, Link<Target>& to) noexcept;
    template <class Target>
    void attach(Target& target);
    template <class Target>
    void detach() noexcept;
    // Cuts the connection and the node reference.
    void cut() noexcept;

    // Takes the tree below this input apart without recursion.
    void dropChildren() noexcept;
    Input* takeLastChild() noexcept;
    // Ends the life of this input in its node; counted references may keep the object.
    void leaveNode() noexcept;

    std::atomic<std::uint32_t> references_{1};
    std::uint32_t place_ : 19;       // in the pool
    std::uint32_t type_ : 5;         // an AttrType
    std::uint32_t elementType_ : 6;  // an array's AttrType or a buffer's DataType
    std::uint32_t links_ : 2;        // LinksKept
    std::uint32_t position_;
    Symbol name_;
    Owner owner_;
    Value word_;
};

// The inputs that are attached to one output or node, in the order in which they were.
struct InputChain {
    InputChain() = default;
    InputChain(const InputChain&) = delete;
    InputChain& operator=(const InputChain&) = delete;

    Input* first = nullptr;
    Input** end = &first;  // where the next one is written
};

// How to walk the inputs that are attached to one output or node. Where the input at hand and the
// next one have both left, the walk begins anew with those that remain, and visits some twice.
template <class Target, Target* (Input::*TargetOf)() const, Input* (Input::*Next)() const>
struct AttachedInputs {
    const Target* target = nullptr;
    const InputChain* chain = nullptr;

    bool holds(const Input* input) const { return (input->*TargetOf)() == target; }
    Input* first() const { return chain->first; }
    Input* after(const Input* at) const { return (at->*Next)(); }
    Input* goOn(const Input* at, Input* next) const {
        if (holds(next)) return next;
        return holds(at) ? after(at) : first();
    }
};

// A value that a node computes, by name.
class Output {
  public:
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    const String& name() const;
    Node* node() const { return node_; }
    // "node.output", cut like the full name of an input.
    String fullName() const;
    // The inputs that take their value from here, in the order in which they were connected. They
    // may be disconnected while they are walked.
    using ConnectedInputs = AttachedInputs<Output, &Input::connection, &Input::nextConnected>;
    Chain<Input, ConnectedInputs> connected() const {
        return Chain<Input, ConnectedInputs>({this, &attached_});
    }

  private:
    friend class Ahead;
    friend class Input;
    friend class NamedList<Output>;
    friend class Node;
    friend class Pool;
    friend class Scene;
    Output(std::uint32_t place, Node* node, Symbol name) noexcept
        : node_(node), name_(name), place_(place) {}
    ~Output() = default;

    Node* node_;
    Symbol name_;
    std::uint32_t place_;  // in the pool
    InputChain attached_;
};

class Node {
  public:
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    const String& name() const { return name_; }
    const String& type() const { return kind_->type; }
    const String& label() const { return kind_->label; }
    bool isDefinition() const { return isDefinition_; }
    // True from `Scene::removeNode` on.
    bool isRemoved() const { return isRemoved_; }
    Scene& scene() const { return *kind_->scene; }
    // What was registered for this node's type when the node was made, or null.
    const NodeType* nodeType() const { return kind_->registered; }
    // The next node in order of creation; null from `Scene::removeNode` on.
    Node* next() const { return isRemoved_ ? nullptr : next_; }

    // As the operations of interfaces::IInputContainer.
    bool hasInput(const String& name, AttrType type) const;
    Input* input(const String& name);
    const Input* input(const String& name) const;
    Input* createInput(const String& name, AttrType type);
    Input* createArray(const String& name, AttrType elementType);
    // The input `name`, made with that type if it is not there: with an array's element type for an
    // Array. Null as for `createInput`.
    FoundInput findOrCreate(const String& name, AttrType type, AttrType elementType);
    unsigned long inputCount() const { return inputs_.size(); }
    Input* inputAt(unsigned long i) { return i < inputCount() ? inputs_[i] : nullptr; }
    const Input* inputAt(unsigned long i) const { return i < inputCount() ? inputs_[i] : nullptr; }

    // The output `name`. A node without a registered type gets one when it is asked for it; null
    // when the name is empty, or unknown to the registered type.
    Output* output(const String& name);
    // The output `name` if it is there already, or null.
    Output* findOutput(const String& name);
    const Output* findOutput(const String& name) const;
    unsigned long outputCount() const;
    Output* outputAt(unsigned long i);
    const Output* outputAt(unsigned long i) const;
    // The inputs that refer to this node, in the order in which they were given it. They may be
    // given another while they are walked.
    using ReferringInputs = AttachedInputs<Node, &Input::nodeReference, &Input::nextReferring>;
    Chain<Input, ReferringInputs> referring() const {
        return Chain<Input, ReferringInputs>({this, &attached_});
    }

  private:
    friend class Ahead;
    friend class Input;
    friend class KvtParser;
    friend class Output;
    friend class Pool;
    friend class Scene;

    // What nodes have in common; one for all of a type, and for each that has a label.
    struct Kind {
        const String& name() const { return type; }
        // The next node is likely to get as many inputs as the one before it.
        void learn() {
            constexpr unsigned long most = 8;
            const unsigned long before = newest ? newest->inputCount() : 0;
            if (before > 0) expectedInputs = std::min(before, most);
        }

        String type;
        String label;
        Scene* scene = nullptr;
        Pool* pool = nullptr;  // of the scene
        const NodeType* registered = nullptr;
        unsigned long users = 0;  // nodes
        Node* newest = nullptr;   // of them, if it is there
        unsigned long expectedInputs = 4;
    };

    Node(std::uint32_t place, Kind& kind, const String& name) noexcept;
    ~Node();

    Pool& pool() const { return *kind_->pool; }
    Names& names() const;
    [[gnu::always_inline]] inline FoundInput findOrCreate(const NewInput& wanted);
    Input* add(const String& name, AttrType type, std::uint32_t elementType);
    [[gnu::always_inline]] inline Input* add(const NewInput& wanted);
    Output* findOutput(Symbol name);
    // As the public one.
    Output* output(Symbol name);
    Output* addOutput(Symbol name);
    void addDeclared(const NodeType& type);
    // Cuts every connection and reference from and to this node.
    void cut() noexcept;

    // What connecting looks at stands together.
    String name_;
    Output firstOutput_;  // without a name while there is none
    InputChain attached_;
    std::unique_ptr<NamedList<Output>> moreOutputs_;
    Kind* kind_;
    NamedList<Input> inputs_;
    // In order of creation. For a removed node: the one that stood before it, from where walks go
    // on, and the node that was removed before.
    Node* previous_ = nullptr;
    Node* next_ = nullptr;
    std::uint32_t place_ : 19;  // in the pool
    bool isDefinition_ : 1;
    bool isRemoved_ : 1;
};

// One input of a node type.
struct InputDeclaration {
    InputDeclaration() = default;
    InputDeclaration(const InputDeclaration&) = delete;
    InputDeclaration& operator=(const InputDeclaration&) = delete;
    ~InputDeclaration();

    String name;
    AttrType type = AttrType::Null;
    AttrType arrayType = AttrType::Null;   // of an Array
    DataType bufferType = DataType::Null;  // of a Buffer
    AttrData defaultValue;                 // owned; Null stands for the default of the type
    Enumeration enumeration = Enumeration();
};

// What nodes of one type are made of. Put together call by call, of which one that throws
// std::bad_alloc adds nothing, then handed to `Scene::registerType`:
//
//     NodeType type("sphere");
//     type.input("radius", AttrData::ofReal(1)).output("surface").renameInput("r", "radius");
//     scene.registerType(std::move(type));
//
// A second input or output of a name is ignored.
class NodeType {
  public:
    explicit NodeType(String name);
    NodeType& input(String name, AttrType type);
    // With a default, whose payload the node type takes over also when it throws. Throws
    // std::invalid_argument for a buffer whose bytes are not those of its count.
    NodeType& input(String name, const AttrData& defaultValue);
    NodeType& array(String name, AttrType elementType);
    NodeType& buffer(String name, DataType elementType);
    // A String input that should hold one of `values`; it starts with the first.
    NodeType& enumeration(String name, std::vector<String> values);
    // Likewise, but starts with `initial`.
    NodeType& enumeration(String name, std::vector<String> values, const String& initial);
    NodeType& output(String name);
    // Older documents say `old` for what is `current` now.
    NodeType& renameInput(String old, String current);
    NodeType& renameOutput(String old, String current);

    const String& name() const { return name_; }
    unsigned long inputCount() const { return inputs_.size(); }
    const InputDeclaration& inputAt(unsigned long i) const { return *inputs_[i]; }
    // The declaration of input `name`, or null.
    const InputDeclaration* findInput(const String& name) const;
    const std::vector<String>& outputs() const { return outputs_; }

  private:
    friend class Scene;
    using Rename = std::pair<String, String>;

    NodeType& add(std::unique_ptr<InputDeclaration> declaration);

    String name_;
    std::vector<std::unique_ptr<InputDeclaration>> inputs_;
    std::unordered_map<std::string_view, const InputDeclaration*, NameHash> inputIndex_;
    std::vector<String> outputs_;
    std::vector<Rename> inputRenames_;
    std::vector<Rename> outputRenames_;
};

// Names of inputs and outputs are kept as long as the scene, or an input of it that somebody holds.
class Scene : public interfaces::IScene {
  public:
    // An empty scene of version 1, without time, comments and limits on buffers.
    Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
    ~Scene() override;

    void clearComments() override { comments_.clear(); }
    void setFileVersion(unsigned long version) override { fileVersion_ = version; }
    void setFileTime(String time) override { fileTime_ = std::move(time); }
    void pushFileComment(String comment) override { comments_.push_back(std::move(comment)); }
    Node* findNode(const String& name) const override;
    Node* createNode(String type, String name, String label) override;
    Node* defineNode(String name) override;
    void removeNode(const String& name) override;

    unsigned long fileVersion() const { return fileVersion_; }
    const String& fileTime() const { return fileTime_; }
    const std::vector<String>& comments() const { return comments_; }

    // The nodes in order of creation; removed ones are not among them. Nodes may be removed while
    // they are walked.
    struct NodesInOrder {
        const Scene* scene = nullptr;

        Node* first() const { return scene->firstNode_; }
        Node* after(const Node* at) const { return at->next(); }
        Node* goOn(const Node* /*at*/, Node* next) const { return scene->firstRemainingFrom(next); }
    };
    Chain<Node, NodesInOrder> nodes() const { return Chain<Node, NodesInOrder>({this}); }
    unsigned long nodeCount() const { return nodeCount_; }
    // Destroys the removed nodes, after cutting what was connected to them since; while a document
    // is read into the scene, when that ends. Not in a walk whose next node or input would be among
    // them.
    void purgeRemoved() noexcept;

    // Nodes of this type made from now on start with what it declares. Its renames enter the
    // process-wide table. The result lives as long as the scene. Throws std::bad_alloc: the type is
    // not registered then, though some of its renames may be.
    const NodeType* registerType(NodeType type);
    // What is registered under `name`, or null.
    const NodeType* nodeType(const String& name) const;

    // Array elements in all; at the limit no element can be added.
    unsigned long elementCount() const { return elementCount_; }
    unsigned long elementLimit() const { return elementLimit_; }
    void setElementLimit(unsigned long elements) { elementLimit_ = elements; }
    // Bytes that one buffer of a document may ask for; `noBufferLimit` for no limit.
    unsigned long bufferLimit() const override { return bufferLimit_; }
    void setBufferLimit(unsigned long bytes) { bufferLimit_ = bytes; }
    // Bytes that all buffers of one document may ask for, those that were replaced again included;
    // `noBufferLimit` for no limit.
    unsigned long bufferTotalLimit() const override { return bufferTotalLimit_; }
    void setBufferTotalLimit(unsigned long bytes) { bufferTotalLimit_ = bytes; }

  private:
    friend class Ahead;
    friend class Input;
    friend class KvtParser;
    friend class Node;

    // Between them a reader knows nodes of this scene.
    void beginReading() noexcept { ++readings_; }
    void endReading() noexcept;

    struct Store;

    Node::Kind& kindOf(const String& type);
    std::unique_ptr<Node::Kind> newKind(const String& type, String label);
    void forgetKind(Node::Kind& kind) noexcept;
    Node* makeNode(Node::Kind& kind, const String& name);
    // The node `name`, whose hash is known; made with that type if it is not there. Neither name is
    // empty.
    Node* findOrCreateNode(const String& type, const String& name, unsigned long hash);
    void enlist(Node& node) noexcept;
    void destroy(Node* node, Node::Kind& kind) noexcept;
    void enter(const NodeType* registered);
    void unlink(Node& node) noexcept;
    // The node, or if it was removed the one that came after it; null when there is none.
    Node* firstRemainingFrom(Node* node) const;

    unsigned long fileVersion_ = KVX_FILE_VERSION_1;
    String fileTime_;
    std::vector<String> comments_;
    const std::unique_ptr<Store> store_;
    unsigned long nodeCount_ = 0;
    Node* firstNode_ = nullptr;
    Node* lastNode_ = nullptr;
    Node* firstRemoved_ = nullptr;
    unsigned long readings_ = 0;  // that go on
    bool isPurgeDue_ = false;     // when the last of them ends
    unsigned long elementCount_ = 0;
    unsigned long elementLimit_ = defaultElementLimit;
    unsigned long bufferLimit_ = noBufferLimit;
    unsigned long bufferTotalLimit_ = noBufferLimit;
};

// The current name of an input or output of a node type that older documents may spell differently;
// the name itself when nothing is known of it. Any thread may ask.
String updateInputName(const String& nodeType, const String& name);
String updateOutputName(const String& nodeType, const String& name);
// The process-wide table behind them.
void registerInputRename(const String& nodeType, const String& old, const String& current);
void registerOutputRename(const String& nodeType, const String& old, const String& current);
void clearRenames();

template <class T>
const T* BufferView::as() const {
    constexpr DataType wanted = dataTypeOf<T>();
    return componentType(type) == wanted ? static_cast<const T*>(data) : nullptr;
}

template <class T>
const T* Input::asBufferOf() const {
    const BufferView view = asBuffer();
    if (view.count && !view.as<T>()) throwMismatch(dataTypeName(dataTypeOf<T>()));
    return view.as<T>();
}

}  // namespace impl
}  // namespace ko::mirel_sdk

#pragma GCC visibility pop
