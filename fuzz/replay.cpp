// Runs a target on kept inputs, in place of the fuzzer. What is wrong with an input ends the
// process; the line before names it. Usage: fuzz-replay-TARGET FILE_OR_FOLDER_OR_INPUT...
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "inputs.h"
#include "target.h"

namespace {

// Of a path, or the one input that is named by it.
std::vector<kvt::fuzz::Input> inputsOf(const std::string& argument) {
    if (std::filesystem::exists(argument)) return kvt::fuzz::inputsAt(argument);
    return {kvt::fuzz::inputNamed(argument)};
}

void replay(const kvt::fuzz::Input& input) {
    // Seen only when the process ends here: a terminal shows the last one.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::printf("%s\n", input.name.c_str());
    // A block of its own, so that a sanitizer sees a look past its end.
    const std::vector<std::uint8_t> bytes(input.bytes.begin(), input.bytes.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    try {
        unsigned long count = 0;
        for (int i = 1; i < argc; ++i) {
            for (const kvt::fuzz::Input& input : inputsOf(argv[i])) {
                replay(input);
                ++count;
            }
        }
        std::printf("%lu inputs\n", count);
        return count > 0 ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "fuzz: %s\n", e.what());
        return 1;
    }
}
