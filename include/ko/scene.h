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
class Enumeration;
class Input;
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

// Finds things by their `name()`, in open addressing. Does not own them; equal names stand in it
// once. A mark for each slot, a byte of the hash, says most of what there is to know: of a million
// things the marks stay in the processor's caches, and a new name seldom waits for more.
template <class T>
class NameIndex {
  public:
    NameIndex() = default;
    T* find(const String& name) const;
    // Has memory fetch what `find` looks at first, the place of the name and those behind it; then
    // the item that stands there.
    void expect(const String& name) const;
    void expectItem(const String& name) const;
    void insert(T* item);  // throws std::bad_alloc and is then unchanged
    // In two steps: where an item of a new name goes, none when the name is taken; then puts it
    // there, before anything else changes. The first throws std::bad_alloc and leaves the items.
    struct Place {
        unsigned long at;
        unsigned long hash;
    };
    std::optional<Place> freePlace(const String& name);
    void insertAt(Place place, T* item) noexcept;
    void erase(const String& name) noexcept;
    unsigned long size() const { return size_; }

  private:
    // Of a hash its highest bits, since the lowest choose the slot; 0 where nothing stands.
    struct Mark : ds::InBlock {
        unsigned char bits = 0;
    };
    // Not initialised where there is no mark, nor where the newest item goes.
    struct Slot : ds::InBlock {
        T* item;
        unsigned long hash;
    };

    explicit NameIndex(unsigned long slots);

    static unsigned char markOf(unsigned long hash) {
        return static_cast<unsigned char>(0x80U | hash >> 57U);
    }
    bool isTaken(unsigned long at) const { return marks_[at].bits != 0; }
    unsigned long home(unsigned long hash) const { return hash & (marks_.size() - 1); }
    unsigned long next(unsigned long at) const { return home(at + 1); }
    // Where the item of that hash and name stands, or would stand.
    unsigned long place(unsigned long hash, const String& name) const;
    void put(unsigned long at, const Slot& slot);
    bool isNewest(unsigned long at) const { return at == newestAt_; }
    const Slot& slotAt(unsigned long at) const { return isNewest(at) ? newest_ : slots_[at]; }
    void settle() noexcept;
    void grow();

    static constexpr unsigned long nowhere = ~0UL;

    ds::Vector<Mark> marks_;  // none, or a power of two of them
    std::unique_ptr<Slot[]> slots_;
    unsigned long size_ = 0;
    // What was inserted last gets into its slot when the next item comes: the slot is far away as a
    // rule, and a processor that waits to write there soon has no room for other writes.
    Slot newest_{};
    unsigned long newestAt_ = nowhere;
};

// Things with unique names in the order in which they were added; does not own them. A few stand in
// the list itself, each with a byte that its name yields, so that few names are compared; many are
// found through an index.
template <class T, unsigned long longestScan = 8>
class NamedList {
  public:
    T* find(const String& name) const;
    inline void add(T* item);  // throws std::bad_alloc and is then unchanged
    unsigned long size() const { return size_; }
    T* operator[](unsigned long i) const { return many_ ? many_->items[i] : few_[i]; }
    // Has memory fetch the first item.
    void expectFirst() const {
        if (size_ > 0) __builtin_prefetch(few_[0]);
    }
    // Takes the last item out of the list; null when it is empty. From then on the list can only be
    // taken apart.
    T* takeLast() noexcept;

  private:
    struct Many {
        std::vector<T*> items;
        NameIndex<T> index;

        void add(T* item);
    };

    static_assert(longestScan <= sizeof(std::uint64_t));

    void addToMany(T* item);

    unsigned long size_ = 0;
    std::uint64_t marks_ = 0;  // of the few, the first lowest
    T* few_[longestScan];
    std::unique_ptr<Many> many_;  // all of them, once there are too many to scan
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

// A typed place on a node, in an object or in an array: holds a value, a node reference and a
// connection side by side.
class Input final : public interfaces::IInput, public interfaces::IInputContainer {
  public:
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    // Empty for the elements of an array.
    const String& name() const { return name_; }
    // The place among the inputs of the node, object or array that holds this one.
    unsigned long position() const { return position_; }
    // The node that owns this input; null once that node was destroyed.
    Node* owner() const { return node_; }
    // The object or array that holds this input; null at node level.
    Input* parent() const { return parent_; }

    AttrType type() const override { return type_; }
    String typeName() const override;
    String fullName() const override;
    bool isBuffer(bool /*reserved*/ = false) const override { return type_ == AttrType::Buffer; }
    const Enumeration* enumeration() const override;
    AttrType arrayType() const override {
        return isArray() ? static_cast<AttrType>(elementType_) : AttrType::Null;
    }
    DataType bufferType() const override {
        return isBuffer() ? static_cast<DataType>(elementType_) : DataType::Null;
    }
    void appendElement() override { appendElements(1); }
    bool isArray(bool /*reserved*/ = false) const override { return type_ == AttrType::Array; }
    bool isObject(bool /*reserved*/ = false) const override { return type_ == AttrType::Object; }
    interfaces::IInputContainer* container() override;

    Input* createInput(const String& name, AttrType type) override;
    Input* createArray(const String& name, AttrType elementType) override;
    bool hasInput(const String& name, AttrType type) const override;
    unsigned long inputCount() const override;
    Input* inputAt(unsigned long i) override;
    Input* input(const String& name) override;
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
    friend class Node;
    friend class Pool;
    struct Elements;
    struct Links;
    template <class Target>
    struct Link;

    // One word of the value; which member is alive follows from the type.
    union Value {
        std::uint64_t word;  // Bool, Int, UInt
        double real;
        char* text;
        void* buffer;
        NamedList<Input>* children;  // of an object; null while it has none
        Elements* elements;          // of an array; null while it has none
    };
    // What the value of a longer type has besides stands right behind the input: the components of
    // vectors and matrices, and these.
    struct TextSize {
        unsigned long length;
    };
    struct BufferSize {
        unsigned long count;
        unsigned long bytes;
    };
    static unsigned long sizeBehind(AttrType type);
    template <class T>
    T* behind() {
        return reinterpret_cast<T*>(this + 1);
    }
    template <class T>
    const T* behind() const {
        return reinterpret_cast<const T*>(this + 1);
    }

    // A new input at the end of `list`, in the memory of the node's scene, with one reference, its
    // holder's. Throws std::bad_alloc.
    [[gnu::always_inline]] static inline Input* addTo(NamedList<Input>& list, Node* node,
                                                      Input* parent, const String& name,
                                                      AttrType type, std::uint32_t elementType);
    static inline Input* make(Node* node, Input* parent, unsigned long position, const String& name,
                              AttrType type, std::uint32_t elementType);
    inline Input(Node* node, Input* parent, unsigned long position, const String& name,
                 AttrType type, std::uint32_t elementType);
    ~Input();

    Input* addChild(const String& name, AttrType type, std::uint32_t elementType);
    Input* childAt(unsigned long i) const;
    Input* touch(unsigned long i);
    void growBy(unsigned long more);
    Input* nextSibling() const;
    Input* firstTouched(unsigned long from) const;
    void assignText(const AttrData& data) noexcept;
    bool assignBuffer(const AttrData& data) noexcept;
    void freeValue() noexcept;
    void expect(AttrType wanted) const;
    [[noreturn]] void throwMismatch(const char* expected) const;

    void makeLinks(const Node& target);
    template <class Target>
    void attach(Link<Target> Links::*link, Target& target);
    template <class Target>
    void detach(Link<Target> Links::*link) noexcept;
    // Cuts the connection and the node reference.
    void cut() noexcept;

    // Takes the tree below this input apart without recursion.
    void dropChildren() noexcept;
    Input* takeLastChild() noexcept;
    // Ends the life of this input in its node; counted references may keep the object.
    void leaveNode() noexcept;

    std::atomic<std::uint32_t> references_{1};
    std::uint32_t poolOffset_ = 0;
    std::uint32_t position_;
    AttrType type_ : 8;
    std::uint16_t elementType_;  // an array's AttrType or a buffer's DataType
    String name_;
    Node* node_;
    Input* parent_;
    Value value_;
    Links* links_ = nullptr;  // from the first connection or reference on
};

// The inputs that are attached to one output or node, in the order in which they were.
struct InputChain {
    InputChain() = default;
    InputChain(const InputChain&) = delete;
    InputChain& operator=(const InputChain&) = delete;

    Input* first = nullptr;
    Input** end = &first;  // where the next one is written

    // Has memory fetch that place.
    void expectNext() const { __builtin_prefetch(end, 1); }
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

    const String& name() const { return name_; }
    Node* node() const { return node_; }
    // "node.output", cut like the full name of an input.
    String fullName() const;
    // Says that an input is about to be connected.
    void expectConnection() const { attached_.expectNext(); }
    // The inputs that take their value from here, in the order in which they were connected. They
    // may be disconnected while they are walked.
    using ConnectedInputs = AttachedInputs<Output, &Input::connection, &Input::nextConnected>;
    Chain<Input, ConnectedInputs> connected() const {
        return Chain<Input, ConnectedInputs>({this, &attached_});
    }

  private:
    friend class Input;
    friend class Node;
    friend class Pool;
    Output(Node* node, String name) : node_(node), name_(std::move(name)) {}
    ~Output() = default;

    Node* node_;
    String name_;
    InputChain attached_;
    std::uint32_t poolOffset_ = 0;
};

class Node {
  public:
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    const String& name() const { return name_; }
    const String& type() const { return type_; }
    const String& label() const { return label_; }
    bool isDefinition() const { return isDefinition_; }
    // True from `Scene::removeNode` on.
    bool isRemoved() const { return isRemoved_; }
    Scene& scene() const { return scene_; }
    // What was registered for this node's type when the node was made, or null.
    const NodeType* nodeType() const { return nodeType_; }
    // The next node in order of creation; null from `Scene::removeNode` on.
    Node* next() const { return isRemoved_ ? nullptr : next_; }

    // As the operations of interfaces::IInputContainer.
    bool hasInput(const String& name, AttrType type) const;
    Input* input(const String& name) { return inputs_.find(name); }
    const Input* input(const String& name) const { return inputs_.find(name); }
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
    // Says that an output is about to be looked up.
    void expectOutput() const { outputs_.expectFirst(); }
    // The output `name` if it is there already, or null.
    Output* findOutput(const String& name) { return outputs_.find(name); }
    const Output* findOutput(const String& name) const { return outputs_.find(name); }
    unsigned long outputCount() const { return outputs_.size(); }
    Output* outputAt(unsigned long i) { return i < outputCount() ? outputs_[i] : nullptr; }
    const Output* outputAt(unsigned long i) const {
        return i < outputCount() ? outputs_[i] : nullptr;
    }
    // Says that an input is about to refer to this node.
    void expectReference() const { attached_.expectNext(); }
    // The inputs that refer to this node, in the order in which they were given it. They may be
    // given another while they are walked.
    using ReferringInputs = AttachedInputs<Node, &Input::nodeReference, &Input::nextReferring>;
    Chain<Input, ReferringInputs> referring() const {
        return Chain<Input, ReferringInputs>({this, &attached_});
    }

  private:
    friend class Input;
    friend class Pool;
    friend class Scene;
    Node(Scene& scene, String type, String name, String label);
    ~Node();

    Input* add(const String& name, AttrType type, std::uint32_t elementType);
    Output* addOutput(const String& name);
    void addDeclared(const NodeType& type);
    // Cuts every connection and reference from and to this node.
    void cut() noexcept;

    // What connecting looks at stands together.
    String name_;
    InputChain attached_;
    NamedList<Output, 2> outputs_;
    const NodeType* nodeType_ = nullptr;
    Scene& scene_;
    bool isDefinition_ = false;
    bool isRemoved_ = false;
    std::uint32_t poolOffset_ = 0;
    String type_;
    String label_;
    NamedList<Input> inputs_;
    // In order of creation. For a removed node: the one that stood before it, from where walks go
    // on, and the node that was removed before.
    Node* previous_ = nullptr;
    Node* next_ = nullptr;
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
    // Says that `name` is about to be looked up, so that memory is on its way meanwhile: what leads
    // to the node; with a second call, some time later, the node.
    void expectNode(const String& name) const { index_.expect(name); }
    void expectFoundNode(const String& name) const { index_.expectItem(name); }

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
    unsigned long nodeCount() const { return index_.size(); }
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
    friend class Input;
    friend class KvtParser;
    friend class Node;

    // Between them a reader knows nodes of this scene.
    void beginReading() noexcept { ++readings_; }
    void endReading() noexcept;

    void enter(const NodeType* registered);
    void unlink(Node& node) noexcept;
    // The node, or if it was removed the one that came after it; null when there is none.
    Node* firstRemainingFrom(Node* node) const;

    std::unique_ptr<Pool> pool_;
    unsigned long fileVersion_ = KVX_FILE_VERSION_1;
    String fileTime_;
    std::vector<String> comments_;
    NameIndex<Node> index_;
    Node* firstNode_ = nullptr;
    Node* lastNode_ = nullptr;
    Node* firstRemoved_ = nullptr;
    unsigned long readings_ = 0;                          // that go on
    bool isPurgeDue_ = false;                             // when the last of them ends
    std::vector<std::unique_ptr<const NodeType>> types_;  // replaced ones too: nodes refer to them
    NameIndex<const NodeType> typeIndex_;
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
NameIndex<T>::NameIndex(unsigned long slots)
    : marks_(ds::Vector<Mark>::ofSize(slots)), slots_(new Slot[slots]) {}

template <class T>
unsigned long NameIndex<T>::place(unsigned long hash, const String& name) const {
    unsigned long at = home(hash);
    const auto isOther = [&] {
        if (marks_[at].bits != markOf(hash)) return true;
        const Slot& slot = slotAt(at);
        return slot.hash != hash || slot.item->name() != name;
    };
    while (isTaken(at) && isOther())
        at = next(at);
    return at;
}

template <class T>
T* NameIndex<T>::find(const String& name) const {
    if (size_ == 0) return nullptr;
    const unsigned long at = place(name.hash(), name);
    return isTaken(at) ? slotAt(at).item : nullptr;
}

template <class T>
void NameIndex<T>::expect(const String& name) const {
    if (size_ == 0) return;
    const unsigned long at = home(name.hash());
    __builtin_prefetch(&marks_[at]);
    // Some items had to step aside, few of them further than that.
    constexpr unsigned long farthest = 3;
    __builtin_prefetch(&slots_[at], 1);
    __builtin_prefetch(&slots_[(at + farthest) & (marks_.size() - 1)], 1);
}

template <class T>
void NameIndex<T>::expectItem(const String& name) const {
    if (size_ == 0) return;
    const unsigned long hash = name.hash();
    unsigned long at = home(hash);
    while (isTaken(at) && marks_[at].bits != markOf(hash))
        at = next(at);
    if (!isTaken(at)) return;
    const T* const item = slotAt(at).item;
    __builtin_prefetch(item);
    __builtin_prefetch(reinterpret_cast<const char*>(item) + 64);
}

template <class T>
void NameIndex<T>::insert(T* item) {
    if (const std::optional<Place> free = freePlace(item->name())) insertAt(*free, item);
}

template <class T>
std::optional<typename NameIndex<T>::Place> NameIndex<T>::freePlace(const String& name) {
    if (marks_.isEmpty()) grow();
    const unsigned long hash = name.hash();
    unsigned long at = place(hash, name);
    if (isTaken(at)) return std::nullopt;
    if (4 * (size_ + 1) > 3 * marks_.size()) {
        grow();
        at = place(hash, name);
    }
    return Place{at, hash};
}

template <class T>
void NameIndex<T>::insertAt(Place place, T* item) noexcept {
    settle();
    marks_[place.at].bits = markOf(place.hash);
    newest_.item = item;
    newest_.hash = place.hash;
    newestAt_ = place.at;
    __builtin_prefetch(&slots_[place.at], 1);
    ++size_;
}

template <class T>
void NameIndex<T>::put(unsigned long at, const Slot& slot) {
    marks_[at].bits = markOf(slot.hash);
    slots_[at] = slot;
}

template <class T>
void NameIndex<T>::settle() noexcept {
    if (newestAt_ == nowhere) return;
    slots_[newestAt_] = newest_;
    newestAt_ = nowhere;
}

template <class T>
void NameIndex<T>::grow() {
    constexpr unsigned long smallest = 16;
    settle();
    NameIndex grown(marks_.isEmpty() ? smallest : 2 * marks_.size());
    for (unsigned long i = 0; i < marks_.size(); ++i) {
        if (!isTaken(i)) continue;
        unsigned long at = grown.home(slots_[i].hash);
        while (grown.isTaken(at))
            at = grown.next(at);
        grown.put(at, slots_[i]);
    }
    marks_ = std::move(grown.marks_);
    slots_ = std::move(grown.slots_);
}

// Closes the gap by moving those back that had to step over it.
template <class T>
void NameIndex<T>::erase(const String& name) noexcept {
    if (size_ == 0) return;
    settle();
    unsigned long gap = place(name.hash(), name);
    if (!isTaken(gap)) return;
    --size_;
    for (unsigned long at = next(gap); isTaken(at); at = next(at)) {
        const unsigned long mask = marks_.size() - 1;
        const unsigned long stepsFromHome = (at - slots_[at].hash) & mask;
        if (stepsFromHome < ((at - gap) & mask)) continue;
        put(gap, slots_[at]);
        gap = at;
    }
    marks_[gap] = Mark();
}

template <class T, unsigned long longestScan>
T* NamedList<T, longestScan>::find(const String& name) const {
    if (many_) return many_->index.find(name);
    constexpr std::uint64_t everyByte = 0x0101010101010101;
    const std::uint64_t differences = marks_ ^ everyByte * name.mark();
    // The highest bit of each byte that is zero, and maybe of some above it.
    std::uint64_t same = (differences - everyByte) & ~differences & everyByte << 7U;
    for (; same != 0; same &= same - 1) {
        const auto i = static_cast<unsigned long>(__builtin_ctzll(same)) / 8;
        if (i >= size_) return nullptr;
        if (few_[i]->name() == name) return few_[i];
    }
    return nullptr;
}

template <class T, unsigned long longestScan>
void NamedList<T, longestScan>::add(T* item) {
    if (size_ >= longestScan) return addToMany(item);
    few_[size_] = item;
    marks_ |= std::uint64_t(item->name().mark()) << 8 * size_;
    ++size_;
}

template <class T, unsigned long longestScan>
void NamedList<T, longestScan>::addToMany(T* item) {
    if (!many_) {
        auto many = std::make_unique<Many>();
        for (T* const each : few_)
            many->add(each);
        many_ = std::move(many);
    }
    many_->add(item);
    ++size_;
}

template <class T, unsigned long longestScan>
void NamedList<T, longestScan>::Many::add(T* item) {
    const auto place = index.freePlace(item->name());
    items.push_back(item);
    if (place) index.insertAt(*place, item);
}

template <class T, unsigned long longestScan>
T* NamedList<T, longestScan>::takeLast() noexcept {
    return size_ == 0 ? nullptr : (*this)[--size_];
}

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
