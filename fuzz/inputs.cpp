#include "inputs.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "../tests/reading.h"

namespace kvt::fuzz {

namespace {

namespace fs = std::filesystem;

bool isOfMany(const fs::path& file) { return file.extension() == ".inputs"; }

void addFile(const fs::path& file, std::vector<Input>& inputs) {
    std::string bytes = test::contents(file);
    if (!isOfMany(file)) {
        inputs.push_back({file.string(), std::move(bytes)});
        return;
    }
    unsigned long number = 0;
    for (std::string& input : unpack(bytes))
        inputs.push_back({file.string() + '#' + std::to_string(number++), std::move(input)});
}

// Takes "LENGTH\n" and returns the length.
unsigned long takeLength(std::string_view& packed) {
    unsigned long length = 0;
    const char* const end = packed.data() + packed.size();
    const auto [stop, error] = std::from_chars(packed.data(), end, length);
    if (error != std::errc() || stop == end || *stop != '\n')
        throw std::runtime_error("no length of an input");
    packed.remove_prefix(static_cast<unsigned long>(stop + 1 - packed.data()));
    return length;
}

}  // namespace

std::vector<Input> inputsAt(const fs::path& path) {
    std::vector<fs::path> files;
    if (fs::is_directory(path)) {
        for (const fs::directory_entry& entry : fs::directory_iterator(path))
            if (entry.is_regular_file()) files.push_back(entry.path());
    } else {
        files.push_back(path);
    }
    std::sort(files.begin(), files.end());
    std::vector<Input> inputs;
    for (const fs::path& file : files)
        addFile(file, inputs);
    return inputs;
}

Input inputNamed(const std::string& name) {
    const std::string file = fs::exists(name) ? name : name.substr(0, name.rfind('#'));
    for (Input& input : inputsAt(file))
        if (input.name == name) return std::move(input);
    throw std::runtime_error("no input " + name);
}

std::string pack(std::vector<std::string> inputs) {
    std::sort(inputs.begin(), inputs.end(), [](const std::string& a, const std::string& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    inputs.erase(std::unique(inputs.begin(), inputs.end()), inputs.end());
    std::string packed;
    for (const std::string& input : inputs)
        packed += std::to_string(input.size()) + '\n' + input + '\n';
    return packed;
}

std::vector<std::string> unpack(std::string_view packed) {
    std::vector<std::string> inputs;
    while (!packed.empty()) {
        const unsigned long length = takeLength(packed);
        if (length >= packed.size() || packed[length] != '\n')
            throw std::runtime_error("an input is not as long as it says");
        inputs.emplace_back(packed.substr(0, length));
        packed.remove_prefix(length + 1);
    }
    return inputs;
}

}  // namespace kvt::fuzz
