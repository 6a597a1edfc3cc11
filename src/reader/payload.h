// Values on their way into a scene.
#pragma once

#include <ko/scene.h>

namespace ko::mirel_sdk::impl {

// Hands the payload of a statement's value to the scene to be freed, unless an input has taken it.
class PayloadGuard {
  public:
    PayloadGuard(interfaces::IScene& scene, const AttrData& data) : scene_(scene), data_(data) {}
    PayloadGuard(const PayloadGuard&) = delete;
    PayloadGuard& operator=(const PayloadGuard&) = delete;
    ~PayloadGuard() {
        if (data_.hasPayload()) scene_.discard(data_);
    }

  private:
    interfaces::IScene& scene_;
    const AttrData& data_;
};

}  // namespace ko::mirel_sdk::impl
