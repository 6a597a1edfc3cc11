// The inputs of the targets, as they are kept: many in one file, or a file for each.
//
// A file of many, NAME.inputs, has for each its length in bytes as a decimal number, a line break,
// the bytes as they are and another line break.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kvt::fuzz {

struct Input {
    std::string name;  // the path of its file, or of the file of many and "#3" for the fourth
    std::string bytes;
};

// The inputs in a file of many, in any other file, or in all files of a folder, in the order of
// their names. Throws std::runtime_error for a path that cannot be read.
std::vector<Input> inputsAt(const std::filesystem::path& path);
// The input of that name.
Input inputNamed(const std::string& name);

// What a file of many holds: the inputs once each, short ones first.
std::string pack(std::vector<std::string> inputs);
// The inputs in what `pack` made. Throws std::runtime_error for a text of another form.
std::vector<std::string> unpack(std::string_view packed);

}  // namespace kvt::fuzz
