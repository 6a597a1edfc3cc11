#include "files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace bench {

namespace {

std::string quoted(const std::string& path) { return "'" + path + "'"; }

}  // namespace

TemporaryDirectory::TemporaryDirectory()
    : path_(std::filesystem::temp_directory_path() / ("kvt-bench-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::string& path, const ko::String& text) {
    std::ofstream file(path, std::ios::binary);
    file.write(text.buf(), static_cast<std::streamsize>(text.len()));
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

CachedFile::CachedFile(const std::string& path) : size_(std::filesystem::file_size(path)) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    bytes_ = mmap(nullptr, size_, PROT_READ, MAP_SHARED, file, 0);
    close(file);
    if (bytes_ != MAP_FAILED) mlock(bytes_, size_);
}

CachedFile::~CachedFile() {
    if (bytes_ != MAP_FAILED) munmap(bytes_, size_);
}

std::string programBeside(const std::string& name) {
    return std::filesystem::path(thisProgram()).replace_filename(name);
}

std::string thisProgram() { return std::filesystem::read_symlink("/proc/self/exe"); }

std::pair<double, double> runProgram(const std::string& program, const std::string& options,
                                     const std::string& path) {
    const std::string command = quoted(program) + " " + options + " " + quoted(path);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::pair<double, double> numbers;
    if (!pipe || std::fscanf(pipe.get(), "%lf %lf", &numbers.first, &numbers.second) != 2)
        throw std::runtime_error("this failed: " + command);
    return numbers;
}

}  // namespace bench
