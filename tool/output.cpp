#include "output.h"

#include <cerrno>

namespace kvt {

OutputStream::OutputStream(std::FILE* file) : file_(file), buffer_(new char[capacity]) {}

void OutputStream::write(std::string_view text) noexcept {
    if (text.size() > room()) empty();
    if (text.size() > capacity) {
        send(text.data(), text.size());
        return;
    }
    used_ += text.copy(buffer_.get() + used_, text.size());
}

void OutputStream::write(char c) noexcept {
    if (room() == 0) empty();
    buffer_[used_++] = c;
}

void OutputStream::spaces(unsigned long count) noexcept {
    constexpr std::string_view blanks = "                                ";
    for (; count > blanks.size(); count -= blanks.size())
        write(blanks);
    write(blanks.substr(0, count));
}

bool OutputStream::flush() noexcept {
    empty();
    if (error_ == 0) {
        errno = 0;
        if (std::fflush(file_) != 0) noteFailure();
    }
    return error_ == 0;
}

void OutputStream::empty() noexcept {
    send(buffer_.get(), used_);
    used_ = 0;
}

void OutputStream::send(const char* bytes, unsigned long count) noexcept {
    if (error_ != 0) return;
    errno = 0;
    if (std::fwrite(bytes, 1, count, file_) != count) noteFailure();
}

void OutputStream::noteFailure() noexcept { error_ = errno != 0 ? errno : EIO; }

}  // namespace kvt
