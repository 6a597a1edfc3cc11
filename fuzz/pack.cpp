// Puts the inputs of a folder into one file, or the inputs of a file into a folder, a file for
// each. Usage: kvt-fuzz-inputs pack FOLDER FILE | unpack FILE FOLDER
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "inputs.h"

namespace {

namespace fs = std::filesystem;

void write(const fs::path& file, std::string_view bytes) {
    std::ofstream stream(file, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) throw std::runtime_error("cannot write " + file.string());
}

void packFolder(const fs::path& folder, const fs::path& file) {
    std::vector<std::string> inputs;
    for (kvt::fuzz::Input& input : kvt::fuzz::inputsAt(folder))
        inputs.push_back(std::move(input.bytes));
    if (inputs.empty()) throw std::runtime_error("no inputs in " + folder.string());
    write(file, kvt::fuzz::pack(std::move(inputs)));
}

void unpackFile(const fs::path& file, const fs::path& folder) {
    fs::create_directories(folder);
    unsigned long number = 0;
    for (const kvt::fuzz::Input& input : kvt::fuzz::inputsAt(file))
        write(folder / std::to_string(number++), input.bytes);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view what = argc == 4 ? argv[1] : "";
    if (what != "pack" && what != "unpack") {
        std::fputs("usage: kvt-fuzz-inputs pack FOLDER FILE | unpack FILE FOLDER\n", stderr);
        return 2;
    }
    try {
        what == "pack" ? packFolder(argv[2], argv[3]) : unpackFile(argv[2], argv[3]);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kvt-fuzz-inputs: %s\n", e.what());
        return 1;
    }
}
