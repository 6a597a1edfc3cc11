// Buffered writing that depends on no locale and notices when it fails.
#pragma once

#include <charconv>
#include <cstdio>
#include <memory>
#include <string_view>

namespace kvt {

// A write that failed, by the system's number. It is no std::exception, so that nothing on the way
// takes it for an error of a document.
struct WriteFailure {
    int error;
};

// Gathers text for a stream. The first write that fails throws WriteFailure, and so does every
// later one, so that whoever writes stops there.
class OutputStream {
  public:
    // Writes to `file`, which stays the caller's.
    explicit OutputStream(std::FILE* file);
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;
    // Writes what is left as far as it can: whoever has to know calls `flush()` before.
    ~OutputStream();

    void write(std::string_view text);
    void write(char c);
    void spaces(unsigned long count);
    // The shortest text that reads back as `value`; exact for integers.
    template <class Number>
    void number(Number value);

    // Hands everything to the system.
    void flush();
    // The system's number for the first failure; 0 when there was none.
    int error() const noexcept { return error_; }

  private:
    static constexpr unsigned long capacity = 1UL << 16;
    // Longer than any number: a double takes at most 24 characters.
    static constexpr unsigned long longestNumber = 64;

    unsigned long room() const noexcept { return capacity - used_; }
    void send(const char* bytes, unsigned long count);
    void empty();
    [[noreturn]] void fail();

    std::FILE* file_;
    std::unique_ptr<char[]> buffer_;
    unsigned long used_ = 0;
    int error_ = 0;
};

template <class Number>
void OutputStream::number(Number value) {
    if (room() < longestNumber) empty();
    char* const start = buffer_.get() + used_;
    used_ +=
        static_cast<unsigned long>(std::to_chars(start, start + longestNumber, value).ptr - start);
}

}  // namespace kvt
