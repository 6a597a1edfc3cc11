// The containers of the reader: a growable array, a list of blocks and a map of 256 buckets.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#pragma GCC visibility push(default)

namespace ko::ds {

// A growable array. An empty one grows to 2, 4, 8, ... and never shrinks; a copy takes what it
// needs. Elements are default-constructed ahead of their use and live until the array goes.
template <class T>
class Vector {
  public:
    Vector() noexcept = default;
    Vector(const Vector& other)
        : data_(other.size_ ? arrayOf(other.size_) : nullptr),
          size_(other.size_),
          capacity_(other.size_) {
        std::copy_n(other.data(), size_, data());
    }
    Vector(Vector&& other) noexcept
        : data_(std::move(other.data_)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    // Into the array that is there, if it is large enough and no element can refuse; what lives in
    // it beyond the new ones stays. Not one for copies and moves, which would promise for both that
    // they do not throw.
    Vector& operator=(const Vector& other) {
        const bool fits = std::is_nothrow_copy_assignable_v<T> && other.size_ <= capacity_;
        if (!fits) return *this = Vector(other);
        if (this != &other) std::copy_n(other.data(), other.size_, data());
        size_ = other.size_;
        return *this;
    }
    Vector& operator=(Vector&& other) noexcept {
        data_ = std::move(other.data_);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
        return *this;
    }
    ~Vector() = default;

    // A vector of `size` default elements.
    static Vector ofSize(unsigned long size) {
        Vector vector;
        vector.data_.reset(new T[size]());
        vector.size_ = vector.capacity_ = size;
        return vector;
    }

    void push_back(const T& value) { emplace(value); }
    void push_back(T&& value) { emplace(std::move(value)); }
    void pop_back() { data_[--size_] = T(); }
    // Forgets the elements; they live on until others take their places.
    void clear() noexcept { size_ = 0; }
    // So many elements; what is added is what lives there.
    void setSize(unsigned long size) {
        if (size > capacity_) moveTo(arrayOf(size), size);
        size_ = size;
    }

    unsigned long size() const noexcept { return size_; }
    unsigned long capacity() const noexcept { return capacity_; }
    bool isEmpty() const noexcept { return size_ == 0; }
    // The elements; null when nothing was ever allocated.
    T* data() noexcept { return data_.get(); }
    const T* data() const noexcept { return data_.get(); }
    T& operator[](unsigned long i) noexcept { return data_[i]; }
    const T& operator[](unsigned long i) const noexcept { return data_[i]; }
    T* begin() noexcept { return data(); }
    T* end() noexcept { return data() + size_; }
    const T* begin() const noexcept { return data(); }
    const T* end() const noexcept { return data() + size_; }

  private:
    template <class U>
    void emplace(U&& value) {
        if (size_ == capacity_) return emplaceInLarger(std::forward<U>(value));
        data_[size_] = std::forward<U>(value);
        ++size_;
    }

    template <class U>
    void emplaceInLarger(U&& value) {
        const unsigned long capacity = capacity_ ? 2 * size_ : 2;
        std::unique_ptr<T[]> grown = arrayOf(capacity);
        grown[size_] = std::forward<U>(value);  // first: `value` may be one of our own elements
        moveTo(std::move(grown), capacity);
        ++size_;
    }

    static std::unique_ptr<T[]> arrayOf(unsigned long capacity) {
        return std::unique_ptr<T[]>(new T[capacity]);
    }

    void moveTo(std::unique_ptr<T[]> larger, unsigned long capacity) {
        for (unsigned long i = 0; i < size_; ++i)
            larger[i] = std::move(data_[i]);
        data_ = std::move(larger);
        capacity_ = capacity;
    }

    std::unique_ptr<T[]> data_;
    unsigned long size_ = 0;
    unsigned long capacity_ = 0;
};

// Memory for many objects, to be written from front to back; throws std::bad_alloc. A large block
// begins where the system's large pages do, and comes in them: touching it for the first time costs
// a fraction.
void* allocateBlock(std::size_t bytes);
void freeBlock(void* block) noexcept;

// What stands in such a block when many of it make an array.
struct InBlock {
    static void* operator new[](std::size_t bytes) { return allocateBlock(bytes); }
    static void operator delete[](void* array) noexcept { freeBlock(array); }
};

// Spreads what tells hashes apart over the word: maps take their place from its lowest or highest
// bits, and hashes in a row should not get places in a row. One to one.
constexpr unsigned long spreadBits(unsigned long hash) noexcept {
    hash ^= hash >> 32U;
    hash *= 0x9E3779B97F4A7C15UL;
    return hash ^ (hash >> 29U);
}

// An odd number that is drawn once a process.
unsigned long oddRandom() noexcept;

// A list whose elements never move, made in their places: room for as many again as there are is
// taken at a time.
template <class T>
class BlockList {
  public:
    BlockList() = default;
    BlockList(BlockList&& other) noexcept { swap(other); }
    BlockList& operator=(BlockList&& other) noexcept {
        BlockList taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~BlockList() = default;
    void swap(BlockList& other) noexcept {
        std::swap(blocks_, other.blocks_);
        std::swap(size_, other.size_);
    }

    template <class... Args>
    T& emplace(Args&&... args) {
        constexpr unsigned long smallest = 2;
        if (blocks_.isEmpty() || blocks_[blocks_.size() - 1].isFull()) {
            blocks_.push_back(Block(std::max(size_, smallest)));
        }
        T& made = blocks_[blocks_.size() - 1].add(std::forward<Args>(args)...);
        ++size_;
        return made;
    }

    unsigned long size() const noexcept { return size_; }
    // Calls `visit(element)` for every element, in their order.
    template <class Visit>
    void forEach(Visit visit) {
        for (Block& block : blocks_)
            for (T& element : block)
                visit(element);
    }
    template <class Visit>
    void forEach(Visit visit) const {
        for (const Block& block : blocks_)
            for (const T& element : block)
                visit(element);
    }

  private:
    class Block {
      public:
        Block() = default;
        explicit Block(unsigned long capacity)
            : elements_(static_cast<T*>(allocateBlock(capacity * sizeof(T)))),
              capacity_(capacity) {}
        Block(Block&& other) noexcept
            : elements_(std::exchange(other.elements_, nullptr)),
              size_(std::exchange(other.size_, 0)),
              capacity_(std::exchange(other.capacity_, 0)) {}
        Block& operator=(Block other) noexcept {
            std::swap(elements_, other.elements_);
            std::swap(size_, other.size_);
            std::swap(capacity_, other.capacity_);
            return *this;
        }
        ~Block() {
            std::destroy_n(elements_, size_);
            freeBlock(elements_);
        }

        bool isFull() const { return size_ == capacity_; }
        template <class... Args>
        T& add(Args&&... args) {
            T* const made = new (elements_ + size_) T(std::forward<Args>(args)...);
            ++size_;
            return *made;
        }
        T* begin() const { return elements_; }
        T* end() const { return elements_ + size_; }

      private:
        T* elements_ = nullptr;
        unsigned long size_ = 0;
        unsigned long capacity_ = 0;
    };

    Vector<Block> blocks_;
    unsigned long size_ = 0;
};

// A map of 256 inline buckets, chosen by the lowest byte of a key's hash: `key.hash()`, or the
// address for pointers. Keys match by hash alone. Nothing is ever removed, and nodes never move.
//
// Pointers are aligned and crowd into few buckets, so a bucket that grows past a short scan is
// looked up through an index; order and results are those of the plain scan.
template <class K, class V>
class HashMap {
  public:
    static constexpr unsigned long bucketCount = 256;

    struct Node {
        unsigned long hash = 0;
        K key{};
        V value{};
        Node* next = nullptr;  // of its bucket

        Node() = default;
        // Not an aggregate, which would be filled with zeros before its value is made in place.
        template <class... Args>
        Node(unsigned long hashOfKey, const K& itsKey, Args&&... args)
            : hash(hashOfKey), key(itsKey), value(std::forward<Args>(args)...) {}
    };

    HashMap() = default;
    // Inserts the pairs in list order.
    HashMap(std::initializer_list<std::pair<K, V>> pairs) {
        for (const auto& [key, value] : pairs)
            insert(key, value);
    }
    HashMap(const HashMap& other) {
        other.forEachInserted([this](const Node& node) { insert(node.key, node.value); });
    }
    HashMap(HashMap&& other) noexcept { swap(other); }
    HashMap& operator=(const HashMap& other) { return *this = HashMap(other); }
    HashMap& operator=(HashMap&& other) noexcept {
        swap(other);
        return *this;
    }
    ~HashMap() = default;
    void swap(HashMap& other) noexcept {
        std::swap(buckets_, other.buckets_);
        nodes_.swap(other.nodes_);
        std::swap(slots_, other.slots_);
        std::swap(factor_, other.factor_);
    }

    // Appends a node; of two nodes with one hash the earlier is found.
    Node& insert(const K& key, const V& value) { return emplace(key, value); }
    // The same with a value that is made in place.
    template <class... Args>
    Node& emplace(const K& key, Args&&... args) {
        if (isIndexed()) makeIndexFor(size() + 1);
        const unsigned long hash = hashOf(key);
        Node& node = nodes_.emplace(hash, key, std::forward<Args>(args)...);
        Bucket& bucket = buckets_[hash % bucketCount];
        (bucket.last ? bucket.last->next : bucket.first) = &node;
        bucket.last = &node;
        ++bucket.size;
        if (isIndexed()) index(node);
        return node;
    }

    // The node for `key`, or null.
    Node* findNode(const K& key) {
        const unsigned long hash = hashOf(key);
        const bool isLong = buckets_[hash % bucketCount].size > longestScan;
        if (isLong && !isIndexed()) makeIndexFor(size());
        return find(hash);
    }
    const Node* findNode(const K& key) const { return find(hashOf(key)); }

    // The value for `key`. When there is none: with pointer keys a default one is inserted first,
    // with other keys it is `missing()`.
    V& find(const K& key) {
        if (Node* node = findNode(key)) return node->value;
        if constexpr (std::is_pointer_v<K>) return insert(key, V()).value;
        return missing();
    }
    // The value for `key`, or `missing()`.
    const V& find(const K& key) const {
        const Node* node = findNode(key);
        return node ? node->value : missing();
    }

    // The one value that stands for every absent key.
    static V& missing() {
        static V s_v{};
        return s_v;
    }

    unsigned long size() const noexcept { return nodes_.size(); }
    // The keys, bucket by bucket, in the order of their insertion within each.
    Vector<K> keys() const {
        Vector<K> all;
        forEach([&all](const Node& node) { all.push_back(node.key); });
        return all;
    }
    // Calls `visit(node)` for every node, bucket by bucket, in the order of insertion within each.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const Bucket& bucket : buckets_)
            for (const Node* node = bucket.first; node; node = node->next)
                visit(*node);
    }
    // The same in the order of insertion, which is how they lie in memory.
    template <class Visit>
    void forEachInserted(Visit visit) const {
        nodes_.forEach(visit);
    }

  private:
    static constexpr unsigned long longestScan = 16;

    struct Bucket {
        Node* first = nullptr;
        Node* last = nullptr;
        unsigned long size = 0;
    };

    // A place of the index, in open addressing. The hash stands here too: to tell that a place is
    // another's takes no look at the node, which is far away.
    struct Slot : InBlock {
        Node* node = nullptr;
        unsigned long hash = 0;
    };

    static unsigned long hashOf(const K& key) {
        if constexpr (std::is_pointer_v<K>) {
            return reinterpret_cast<std::uintptr_t>(key);
        } else {
            return key.hash();
        }
    }

    Node* find(unsigned long hash) const {
        const Bucket& bucket = buckets_[hash % bucketCount];
        if (bucket.size > longestScan && isIndexed()) return slots_[place(hash)].node;
        for (Node* node = bucket.first; node; node = node->next)
            if (node->hash == hash) return node;
        return nullptr;
    }

    // A document can choose the addresses of its inputs among each other: a factor that it does not
    // know leads them apart.
    unsigned long home(unsigned long hash) const noexcept {
        return spreadBits(hash * factor_) >> __builtin_clzl(slots_.size() - 1);
    }

    // Where `hash` stands or would stand.
    unsigned long place(unsigned long hash) const noexcept {
        const unsigned long mask = slots_.size() - 1;
        unsigned long at = home(hash);
        while (slots_[at].node && slots_[at].hash != hash)
            at = (at + 1) & mask;
        return at;
    }

    // Long buckets are looked up sooner or later, or never: the first time makes the index.
    bool isIndexed() const noexcept { return !slots_.isEmpty(); }

    // At most half full.
    void makeIndexFor(unsigned long nodes) {
        constexpr unsigned long smallest = 64;
        if (2 * nodes <= slots_.size()) return;
        unsigned long size = std::max(2 * slots_.size(), smallest);
        while (size < 2 * nodes)
            size *= 2;
        slots_ = Vector<Slot>::ofSize(size);
        factor_ = oddRandom();
        nodes_.forEach([this](Node& node) { index(node); });
    }

    // Of equal hashes the first stays.
    void index(Node& node) noexcept {
        Slot& slot = slots_[place(node.hash)];
        if (slot.node) return;
        slot.node = &node;
        slot.hash = node.hash;
    }

    Bucket buckets_[bucketCount];
    BlockList<Node> nodes_;
    Vector<Slot> slots_;  // none, or a power of two of them
    unsigned long factor_ = 1;
};

}  // namespace ko::ds

#pragma GCC visibility pop
