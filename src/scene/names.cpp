#include "scene/names.h"

#include <limits>
#include <new>

namespace ko::mirel_sdk::impl {

void Names::release() noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

unsigned long Names::place(const String& name, unsigned long hash) const {
    const unsigned long mask = slots_.size() - 1;
    const auto isOther = [&](const Slot& slot) {
        return slot.hash != checkOf(hash) || (*this)[slot.symbol] != name;
    };
    unsigned long at = hash & mask;
    while (slots_[at].symbol && isOther(slots_[at]))
        at = (at + 1) & mask;
    return at;
}

Symbol Names::find(const String& name) const {
    return slots_.isEmpty() ? 0 : slots_[place(name, name.hash())].symbol;
}

Symbol Names::intern(const String& name) {
    if (name.isEmpty()) return 0;
    if (slots_.isEmpty()) grow();
    const unsigned long hash = name.hash();
    const Symbol known = slots_[place(name, hash)].symbol;
    return known ? known : add(name, hash);
}

Symbol Names::add(const String& name, unsigned long hash) {
    if (last_ == std::numeric_limits<Symbol>::max()) throw std::bad_alloc();
    const Symbol symbol = last_ + 1;
    const Place own(symbol);
    if (!blocks_[own.block]) blocks_[own.block] = std::make_unique<String[]>(16UL << own.block);
    if (2 * std::uint64_t(symbol) > slots_.size()) grow();
    blocks_[own.block][own.at] = name;
    slots_[place(name, hash)] = {checkOf(hash), symbol};
    return last_ = symbol;
}

void Names::grow() {
    constexpr unsigned long smallest = 32;
    const unsigned long size = slots_.isEmpty() ? smallest : 2 * slots_.size();
    ds::Vector<Slot> grown = ds::Vector<Slot>::ofSize(size);
    for (Symbol before = 0; before < last_; ++before) {
        const Symbol symbol = before + 1;
        const unsigned long hash = (*this)[symbol].hash();
        unsigned long at = hash & (size - 1);
        while (grown[at].symbol)
            at = (at + 1) & (size - 1);
        grown[at] = {checkOf(hash), symbol};
    }
    slots_ = std::move(grown);
}

}  // namespace ko::mirel_sdk::impl
