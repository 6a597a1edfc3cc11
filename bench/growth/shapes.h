// Documents of the shapes that a reader could choke on, each of any size.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <ko/scene.h>

namespace growth {

struct Document {
    std::string setup;  // read before, and not measured; may be empty
    std::string text;
    bool isRead = true;  // to its end; otherwise it ends in an error
    // What the host does before all of that; may be empty.
    std::function<void(ko::mirel_sdk::impl::Scene& scene)> registerTypes = nullptr;
};

struct Shape {
    const char* name;
    // A document of about `bytes` characters.
    Document (*make)(unsigned long bytes);
    // The size to stop at, in MB: what grows further takes what the document asks for, or minutes.
    unsigned long largest = 64;
};

const std::vector<Shape>& shapes();

}  // namespace growth
