// What waits for the end of a document.
#pragma once

#include <utility>

#include <ko/ds.h>
#include <ko/kvtparser.h>

namespace ko::mirel_sdk::impl {

// Inputs and what they refer to, in the order in which they were first assigned. The last
// assignment to an input wins.
template <class Name>
class KvtParser::WaitingList {
  public:
    using Entry = Waiting<Name>;

    // Only an input that was there before may wait already; which of them do is settled at the end.
    // The name is made in its place.
    template <class... Names>
    void add(interfaces::IInput* input, bool isNew, const Names&... names) {
        Entry& entry = entries_.emplace(input, names...);
        if (!isNew) again_.push_back(&entry);
    }

    // Leaves each input its first place and its last name.
    void settle() {
        if (again_.isEmpty()) return;
        ds::HashMap<interfaces::IInput*, Entry*> first;
        for (const Entry* const entry : again_)
            if (!first.findNode(entry->input)) first.insert(entry->input, nullptr);
        entries_.forEach([&first](Entry& entry) {
            auto* const known = first.findNode(entry.input);
            if (!known) return;
            if (!known->value) {
                known->value = &entry;
            } else {
                known->value->refersTo = std::move(entry.refersTo);
                entry.input = nullptr;
            }
        });
        again_ = {};
    }

    // Calls `visit(entry)` for each input, in their order.
    template <class Visit>
    void forEach(Visit visit) const {
        entries_.forEach([&visit](const Entry& entry) {
            if (entry.input) visit(entry);
        });
    }

  private:
    ds::BlockList<Entry> entries_;
    ds::Vector<Entry*> again_;  // those whose inputs were there before
};

}  // namespace ko::mirel_sdk::impl
