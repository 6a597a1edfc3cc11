// Documents of the shapes that a reader could choke on, each of any size.
#pragma once

#include <string>
#include <vector>

namespace growth {

struct Document {
    std::string setup;  // read before, and not measured; may be empty
    std::string text;
    bool isRead = true;  // to its end; otherwise it ends in an error
};

struct Shape {
    const char* name;
    // A document of about `bytes` characters.
    Document (*make)(unsigned long bytes);
    // The size to stop at, in MB: what grows further takes what the document asks for.
    unsigned long largest = 64;
};

const std::vector<Shape>& shapes();

}  // namespace growth
