// Giving up what an administrator may do.
#pragma once

#include <unistd.h>

#include <cstdlib>

namespace kvt::test {

// Gives up the rights of the administrator, who may read everything, while it lives.
class OrdinaryUser {
  public:
    OrdinaryUser() : former_(geteuid()) {
        if (former_ == 0) changed_ = seteuid(65534) == 0;
    }
    ~OrdinaryUser() {
        if (changed_ && seteuid(former_) != 0) std::abort();
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

  private:
    uid_t former_;
    bool changed_ = false;
};

}  // namespace kvt::test
