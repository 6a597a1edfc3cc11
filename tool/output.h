// Buffered writing that depends on no locale and notices when it fails.
#pragma once

#include <charconv>
#include <cstdio>
#include <memory>
#include <string_view>

namespace kvt {

// Gathers text for a stream. After a failed write the rest is dropped, and `error()` tells why.
class OutputStream {
  public:
    // Writes to `file`, which stays the caller's.
    explicit OutputStream(std::FILE* file);
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;
    ~OutputStream() { flush(); }

    void write(std::string_view text) noexcept;
    void write(char c) noexcept;
    void spaces(unsigned long count) noexcept;
    // The shortest text that reads back as `value`; exact for integers.
    template <class Number>
    void number(Number value) noexcept;

    // Hands everything to the system. True when nothing was lost so far.
    bool flush() noexcept;
    // The system's number for the first failure; 0 when there was none.
    int error() const noexcept { return error_; }

  private:
    static constexpr unsigned long capacity = 1UL << 16;
    // Longer than any number: a double takes at most 24 characters.
    static constexpr unsigned long longestNumber = 64;

    unsigned long room() const noexcept { return capacity - used_; }
    void send(const char* bytes, unsigned long count) noexcept;
    void empty() noexcept;
    void noteFailure() noexcept;

    std::FILE* file_;
    std::unique_ptr<char[]> buffer_;
    unsigned long used_ = 0;
    int error_ = 0;
};

template <class Number>
void OutputStream::number(Number value) noexcept {
    if (room() < longestNumber) empty();
    char* const start = buffer_.get() + used_;
    used_ +=
        static_cast<unsigned long>(std::to_chars(start, start + longestNumber, value).ptr - start);
}

}  // namespace kvt
