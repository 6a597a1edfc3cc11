// Runs a target on files and on all files in folders, in place of the fuzzer. What is wrong with an
// input ends the process; the line before names it.
// Usage: fuzz-replay-TARGET FILE_OR_FOLDER...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "target.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesAt(const fs::path& path) {
    if (!fs::is_directory(path)) return {path};
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(path))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<char> contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) throw std::runtime_error(file.string() + ": cannot be opened");
    return {std::istreambuf_iterator<char>(stream), {}};
}

void replay(const fs::path& file) {
    const std::vector<char> bytes = contents(file);
    // Seen only when the process ends here: a terminal shows the last one.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::printf("%s\n", file.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    try {
        unsigned long count = 0;
        for (int i = 1; i < argc; ++i) {
            for (const fs::path& file : filesAt(argv[i])) {
                replay(file);
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
