// Readings of a document, in processes of their own.
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
    double log = 0;          // bytes of all messages, each a line
};

// The least of both in everything: what else the machine does only adds.
Reading least(const Reading& a, const Reading& b);

// One in fresh memory, as a program has it that reads one document. This and the next throw
// std::runtime_error when the document is not read as it should be.
Reading readOnce(const Document& document, Source source);

// The least of two in memory that the process has from reading the document before, where the time
// is the reader's own and not that of a system that hands out memory. Its memory tells nothing.
Reading readInKeptMemory(const Document& document, Source source);

// Bytes of memory that the system has to give.
double availableMemory();

}  // namespace growth
