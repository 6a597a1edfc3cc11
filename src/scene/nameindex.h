// Finding nodes and node types by name.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <ko/ds.h>
#include <ko/foundation.h>

#include "foundation/memory.h"

namespace ko::mirel_sdk::impl {

// Finds things by their `name()`, in open addressing. Does not own them; equal names stand in it
// once. A mark for each slot, a byte of the hash, says most of what there is to know: of a million
// things the marks stay in the processor's caches, and a new name seldom waits for more.
template <class T>
class NameIndex {
  public:
    NameIndex() = default;
    T* find(const String& name) const { return find(name, name.hash()); }
    // This and the next three are told the hash of the name.
    T* find(const String& name, unsigned long hash) const;
    // Has memory fetch what `find` looks at first, the place of the name and those after it; then
    // the item that most probably stands there.
    void expect(unsigned long hash) const;
    T* likely(unsigned long hash) const;
    void insert(T* item);  // throws std::bad_alloc and is then unchanged
    // In two steps: where an item of a new name goes, none when the name is taken; then puts it
    // there, before anything else changes. The first throws std::bad_alloc and leaves the items.
    struct Place {
        unsigned long at;
        unsigned long hash;
    };
    std::optional<Place> freePlace(const String& name, unsigned long hash);
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

template <class T>
NameIndex<T>::NameIndex(unsigned long slots)
    : marks_(ds::Vector<Mark>::ofSize(slots)), slots_(new Slot[slots]) {
    memory::adviseLarge(slots_.get(), slots * sizeof(Slot));
}

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
T* NameIndex<T>::find(const String& name, unsigned long hash) const {
    if (size_ == 0) return nullptr;
    const unsigned long at = place(hash, name);
    return isTaken(at) ? slotAt(at).item : nullptr;
}

template <class T>
void NameIndex<T>::expect(unsigned long hash) const {
    if (size_ == 0) return;
    const unsigned long at = home(hash);
    __builtin_prefetch(&marks_[at]);
    // Some items had to step aside, few of them further than that.
    constexpr unsigned long farthest = 3;
    __builtin_prefetch(&slots_[at], 1);
    __builtin_prefetch(&slots_[(at + farthest) & (marks_.size() - 1)], 1);
}

// By its mark alone: whoever looked at the slot too would wait for it.
template <class T>
T* NameIndex<T>::likely(unsigned long hash) const {
    if (size_ == 0) return nullptr;
    unsigned long at = home(hash);
    while (isTaken(at) && marks_[at].bits != markOf(hash))
        at = next(at);
    if (!isTaken(at)) return nullptr;
    T* const item = slotAt(at).item;
    __builtin_prefetch(item);
    return item;
}

template <class T>
void NameIndex<T>::insert(T* item) {
    const unsigned long hash = item->name().hash();
    if (const std::optional<Place> free = freePlace(item->name(), hash)) {
        insertAt(*free, item);
    }
}

template <class T>
std::optional<typename NameIndex<T>::Place> NameIndex<T>::freePlace(const String& name,
                                                                    unsigned long hash) {
    if (marks_.isEmpty()) grow();
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

}  // namespace ko::mirel_sdk::impl
