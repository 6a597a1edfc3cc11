#include <atomic>
#include <mutex>
#include <shared_mutex>

#include <ko/scene.h>

#include "scene/renames.h"

namespace ko::mirel_sdk::impl {

std::atomic<bool> renames::anyEntered{false};

namespace {

struct StringHash {
    std::size_t operator()(const String& text) const noexcept { return text.hash(); }
};

template <class V>
using StringMap = std::unordered_map<String, V, StringHash>;

// Old name to current name, by node type.
class RenameTable {
  public:
    void add(const String& nodeType, const String& old, const String& current) {
        const std::unique_lock lock(mutex_);
        renames_[nodeType][old] = current;
    }

    void clear() {
        const std::unique_lock lock(mutex_);
        renames_.clear();
    }

    String current(const String& nodeType, const String& name) const {
        const std::shared_lock lock(mutex_);
        const auto ofType = renames_.find(nodeType);
        if (ofType == renames_.end()) return name;
        const auto rename = ofType->second.find(name);
        return rename == ofType->second.end() ? name : rename->second;
    }

  private:
    mutable std::shared_mutex mutex_;
    StringMap<StringMap<String>> renames_;
};

RenameTable& inputRenames() {
    static RenameTable table;
    return table;
}

RenameTable& outputRenames() {
    static RenameTable table;
    return table;
}

}  // namespace

String updateInputName(const String& nodeType, const String& name) {
    return renames::any() ? inputRenames().current(nodeType, name) : name;
}

String updateOutputName(const String& nodeType, const String& name) {
    return renames::any() ? outputRenames().current(nodeType, name) : name;
}

namespace {

// Who changes the tables says whether they hold any.
std::mutex& changes() {
    static std::mutex mutex;
    return mutex;
}

void enter(RenameTable& table, const String& nodeType, const String& old, const String& current) {
    const std::lock_guard lock(changes());
    table.add(nodeType, old, current);
    renames::anyEntered.store(true, std::memory_order_release);
}

}  // namespace

void registerInputRename(const String& nodeType, const String& old, const String& current) {
    enter(inputRenames(), nodeType, old, current);
}

void registerOutputRename(const String& nodeType, const String& old, const String& current) {
    enter(outputRenames(), nodeType, old, current);
}

void clearRenames() {
    const std::lock_guard lock(changes());
    inputRenames().clear();
    outputRenames().clear();
    renames::anyEntered.store(false, std::memory_order_release);
}

}  // namespace ko::mirel_sdk::impl
