// The paths that work on long runs of characters can take.
#pragma once

#include "bulk.h"

namespace kvt::test {

// Takes a path until it goes out of scope.
class PathGuard {
  public:
    explicit PathGuard(ko::bulk::Path path) { ko::bulk::usePath(path); }
    PathGuard(const PathGuard&) = delete;
    PathGuard& operator=(const PathGuard&) = delete;
    ~PathGuard() { ko::bulk::usePath(former_); }

  private:
    ko::bulk::Path former_ = &ko::bulk::operations() == &ko::bulk::plainOperations
                                 ? ko::bulk::Path::Plain
                                 : ko::bulk::Path::Avx2;
};

}  // namespace kvt::test
