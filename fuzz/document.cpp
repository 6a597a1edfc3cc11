// A whole document from a string, dumped afterwards.
#include <ko/scene.h>

#include <cstdint>
#include <string_view>

#include "reading.h"
#include "target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = kvt::fuzz::textOf(data, size);
    ko::mirel_sdk::impl::Scene scene;
    kvt::fuzz::prepare(scene, text);
    // Every other text may ask for buffers of any size. The text form shows just their beginning.
    const bool isLimited = size % 2 == 0;
    if (!isLimited) scene.setBufferLimit(~0UL);
    const bool ok = kvt::fuzz::readText(scene, text).ok;
    kvt::fuzz::dumpedText(scene, ok);
    if (isLimited) kvt::fuzz::dumpedJson(scene, ok);
    return 0;
}
