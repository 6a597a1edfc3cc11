// The process-wide table of names that older documents say.
#pragma once

#include <atomic>

namespace ko::mirel_sdk::impl::renames {

// Set with the first one; most programs rename nothing.
[[gnu::visibility("hidden")]] extern std::atomic<bool> anyEntered;

// Whether the table holds any.
inline bool any() noexcept { return anyEntered.load(std::memory_order_acquire); }

}  // namespace ko::mirel_sdk::impl::renames
