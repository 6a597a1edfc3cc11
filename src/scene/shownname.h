// The names of inputs and outputs as messages show them.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include <ko/foundation.h>

namespace ko::mirel_sdk::impl {

// Puts a name together part by part. A long one is cut in its middle, however long its parts are:
// a statement of a few characters may concern an input whose node has a name of a megabyte, and
// the message about it should not be longer than a small multiple of the statement.
class ShownName {
  public:
    void append(std::string_view part) {
        length_ += part.size();
        start_ += part.substr(0, longest - start_.size());
        end_ += part.substr(part.size() - std::min(part.size(), endLength));
        if (end_.size() > endLength) end_.erase(0, end_.size() - endLength);
    }

    String text() const {
        if (length_ <= longest) return String(start_);
        return String(start_.substr(0, startLength) + "..." + end_);
    }

  private:
    static constexpr unsigned long longest = 500;
    static constexpr unsigned long startLength = 300;
    static constexpr unsigned long endLength = 197;

    std::string start_;  // as much as is shown of a name that is not cut
    std::string end_;    // as much as is shown of one that is
    unsigned long length_ = 0;
};

}  // namespace ko::mirel_sdk::impl
