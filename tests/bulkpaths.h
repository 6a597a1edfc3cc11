// The paths that work on long runs of characters can take.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "bulk/bulk.h"

namespace kvt::test {

inline constexpr ko::bulk::Path allPaths[] = {ko::bulk::Path::Plain, ko::bulk::Path::Avx2,
                                              ko::bulk::Path::Avx512};

inline const ko::bulk::Operations& operationsOf(ko::bulk::Path path) {
    switch (path) {
        case ko::bulk::Path::Avx512: return ko::bulk::avx512Operations;
        case ko::bulk::Path::Avx2: return ko::bulk::avx2Operations;
        default: return ko::bulk::plainOperations;
    }
}

// For tests that run once on each.
inline std::string nameOf(const testing::TestParamInfo<ko::bulk::Path>& path) {
    switch (path.param) {
        case ko::bulk::Path::Avx512: return "Avx512";
        case ko::bulk::Path::Avx2: return "Avx2";
        default: return "Plain";
    }
}

// Takes a path until it goes out of scope.
class PathGuard {
  public:
    explicit PathGuard(ko::bulk::Path path) { ko::bulk::usePath(path); }
    PathGuard(const PathGuard&) = delete;
    PathGuard& operator=(const PathGuard&) = delete;
    ~PathGuard() { ko::bulk::usePath(former_); }

  private:
    static ko::bulk::Path current() {
        return *std::find_if(std::begin(allPaths), std::end(allPaths), [](ko::bulk::Path path) {
            return &operationsOf(path) == &ko::bulk::operations();
        });
    }

    ko::bulk::Path former_ = current();
};

}  // namespace kvt::test
