// The containers of the reader: a growable array and a map of 256 buckets.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <type_traits>
#include <utility>

namespace ko::ds {

// A growable array. An empty one grows to 2, 4, 8, ... and never shrinks; a copy takes what it
// needs. Elements are default-constructed ahead of their use and live until the array goes.
template <class T>
class Vector {
  public:
    Vector() noexcept = default;
    Vector(const Vector& other) : Vector(other, other.size_) {}
    Vector(Vector&& other) noexcept
        : data_(std::move(other.data_)),
          size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    Vector& operator=(Vector other) noexcept {
        data_ = std::move(other.data_);
        size_ = other.size_;
        capacity_ = other.capacity_;
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
    Vector(const Vector& other, unsigned long size)
        : data_(size ? new T[size] : nullptr), size_(size), capacity_(size) {
        for (unsigned long i = 0; i < size; ++i)
            data_[i] = other.data_[i];
    }

    template <class U>
    void emplace(U&& value) {
        if (size_ < capacity_) {
            data_[size_] = std::forward<U>(value);
            ++size_;
            return;
        }
        const unsigned long capacity = capacity_ ? 2 * size_ : 2;
        std::unique_ptr<T[]> grown(new T[capacity]);
        grown[size_] = std::forward<U>(value);  // first: `value` may be one of our own elements
        for (unsigned long i = 0; i < size_; ++i)
            grown[i] = std::move(data_[i]);
        data_ = std::move(grown);
        capacity_ = capacity;
        ++size_;
    }

    std::unique_ptr<T[]> data_;
    unsigned long size_ = 0;
    unsigned long capacity_ = 0;
};

// Positions by hash, in open addressing; of equal hashes the first stays.
class PositionIndex {
  public:
    // The position for `hash`, or null.
    const unsigned long* find(unsigned long hash) const noexcept {
        if (slots_.isEmpty()) return nullptr;
        const Slot& slot = slots_[place(hash)];
        return slot.isTaken ? &slot.position : nullptr;
    }

    void insert(unsigned long hash, unsigned long position) {
        if (2 * (taken_ + 1) > slots_.size()) grow();
        Slot& slot = slots_[place(hash)];
        if (slot.isTaken) return;
        slot = {hash, position, true};
        ++taken_;
    }

  private:
    struct Slot {
        unsigned long hash = 0;
        unsigned long position = 0;
        bool isTaken = false;
    };

    // Where `hash` stands or would stand. Addresses differ in the middle bits, so those are spread.
    unsigned long place(unsigned long hash) const noexcept {
        const unsigned long mask = slots_.size() - 1;
        unsigned long at = (hash * 0x9E3779B97F4A7C15UL >> 20) & mask;
        while (slots_[at].isTaken && slots_[at].hash != hash)
            at = (at + 1) & mask;
        return at;
    }

    void grow() {
        constexpr unsigned long smallest = 64;
        PositionIndex grown;
        grown.slots_ = Vector<Slot>::ofSize(slots_.isEmpty() ? smallest : 2 * slots_.size());
        for (const Slot& slot : slots_)
            if (slot.isTaken) grown.slots_[grown.place(slot.hash)] = slot;
        slots_ = std::move(grown.slots_);
    }

    Vector<Slot> slots_;  // a power of two of them
    unsigned long taken_ = 0;
};

// A map of 256 inline buckets, chosen by the lowest byte of a key's hash: `key.hash()`, or the
// address for pointers. Keys match by hash alone. Nothing is ever removed.
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
    };

    HashMap() = default;
    // Inserts the pairs in list order.
    HashMap(std::initializer_list<std::pair<K, V>> pairs) {
        for (const auto& [key, value] : pairs)
            insert(key, value);
    }

    // Appends a node; of two nodes with one hash the earlier is found.
    Node& insert(const K& key, V value) { return append({hashOf(key), key, std::move(value)}); }

    // The node for `key`, or null; valid until the next insertion.
    Node* findNode(const K& key) { return find(hashOf(key)); }
    const Node* findNode(const K& key) const { return const_cast<HashMap*>(this)->findNode(key); }

    // The value for `key`. When there is none: with pointer keys a default one is inserted first,
    // with other keys it is `missing()`. Valid until the next insertion.
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

    unsigned long size() const noexcept { return size_; }
    // The keys, bucket by bucket, in the order of their insertion within each.
    Vector<K> keys() const {
        Vector<K> all;
        for (const Vector<Node>& bucket : buckets_)
            for (const Node& node : bucket)
                all.push_back(node.key);
        return all;
    }
    // Calls `visit(node)` for every node, bucket by bucket, in the order of insertion within each.
    template <class Visit>
    void forEach(Visit visit) {
        for (Vector<Node>& bucket : buckets_)
            for (Node& node : bucket)
                visit(node);
    }

  private:
    static constexpr unsigned long longestScan = 16;

    static unsigned long hashOf(const K& key) {
        if constexpr (std::is_pointer_v<K>) {
            return reinterpret_cast<std::uintptr_t>(key);
        } else {
            return key.hash();
        }
    }

    Node* find(unsigned long hash) {
        Vector<Node>& bucket = buckets_[hash % bucketCount];
        if (bucket.size() > longestScan) {
            const unsigned long* const position = positions_.find(hash);
            return position ? &bucket[*position] : nullptr;
        }
        for (Node& node : bucket)
            if (node.hash == hash) return &node;
        return nullptr;
    }

    Node& append(Node node) {
        Vector<Node>& bucket = buckets_[node.hash % bucketCount];
        bucket.push_back(std::move(node));
        try {
            indexLongBucket(bucket);
        } catch (...) {
            bucket.pop_back();
            throw;
        }
        ++size_;
        return bucket[bucket.size() - 1];
    }

    // Enters the last node, and all before it when the bucket has just become too long to scan.
    void indexLongBucket(const Vector<Node>& bucket) {
        const unsigned long size = bucket.size();
        if (size <= longestScan) return;
        const unsigned long first = size == longestScan + 1 ? 0 : size - 1;
        for (unsigned long i = first; i < size; ++i)
            positions_.insert(bucket[i].hash, i);
    }

    Vector<Node> buckets_[bucketCount];
    PositionIndex positions_;  // of the nodes in their buckets
    unsigned long size_ = 0;
};

}  // namespace ko::ds
