// A whole document from a string, dumped afterwards.
#include <cstdint>

#include "reading.h"
#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvt::fuzz::readAndDump(kvt::fuzz::textOf(data, size));
    return 0;
}
