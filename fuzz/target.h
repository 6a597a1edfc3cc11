// A target: reads one input and ends the process when something about it is wrong. Each target is a
// source of its own, linked with the fuzzer's main function or with the one of the replay.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(  // NOLINT: the fuzzer looks for this name
    const std::uint8_t* data, std::size_t size);
