// One reading of a document, in a process of its own.
#pragma once

#include "shapes.h"

namespace growth {

struct Source {
    bool isFile = false;  // else a text in memory
};

struct Reading {
    double seconds = 0;      // CPU time of reading
    double freeSeconds = 0;  // CPU time of freeing the scene
    double scene = 0;        // bytes that the allocator handed out meanwhile
    double peak = 0;         // resident bytes at the peak over what was resident before
};

// Throws std::runtime_error when the document is not read as it should be.
Reading readOnce(const Document& document, Source source);

// Bytes of memory that the system has to give.
double availableMemory();

}  // namespace growth
