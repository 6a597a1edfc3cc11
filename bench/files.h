// Files with documents, and the programs that are run to read them.
#pragma once

#include <string>
#include <utility>

#include <ko/foundation.h>

namespace bench {

// A directory for documents that goes when the run ends.
class TemporaryDirectory {
  public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// Throws std::runtime_error when that fails.
void writeFile(const std::string& path, const ko::String& text);

// Keeps a file in the system's cache, as far as a process may: some systems drop from it what they
// will read again a second later.
class CachedFile {
  public:
    explicit CachedFile(const std::string& path);
    CachedFile(const CachedFile&) = delete;
    CachedFile& operator=(const CachedFile&) = delete;
    ~CachedFile();

  private:
    unsigned long size_;
    void* bytes_;
};

// The path of a program that was built beside this one, or of this one.
std::string programBeside(const std::string& name);
std::string thisProgram();

// The two numbers that a program prints when it is run with `options` to read the file at `path`.
// Throws std::runtime_error when it prints something else, and has told why then.
std::pair<double, double> runProgram(const std::string& program, const std::string& options,
                                     const std::string& path);

}  // namespace bench
