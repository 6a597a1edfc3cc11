#include "output.h"

#include <cerrno>
#include <utility>

namespace kvt {

OutputStream::OutputStream(std::FILE* file) : file_(file), buffer_(new char[capacity]) {}

OutputStream::~OutputStream() {
    try {
        flush();
    } catch (const WriteFailure&) {
        return;
    }
}

void OutputStream::write(std::string_view text) {
    if (text.size() > room()) empty();
    if (text.size() > capacity) {
        send(text.data(), text.size());
        return;
    }
    used_ += text.copy(buffer_.get() + used_, text.size());
}

void OutputStream::write(char c) {
    if (room() == 0) empty();
    buffer_[used_++] = c;
}

void OutputStream::spaces(unsigned long count) {
    constexpr std::string_view blanks = "                                ";
    for (; count > blanks.size(); count -= blanks.size())
        write(blanks);
    write(blanks.substr(0, count));
}

void OutputStream::flush() {
    empty();
    errno = 0;
    if (std::fflush(file_) != 0) fail();
}

void OutputStream::empty() { send(buffer_.get(), std::exchange(used_, 0)); }

void OutputStream::send(const char* bytes, unsigned long count) {
    if (error_ != 0) throw WriteFailure{error_};
    errno = 0;
    if (std::fwrite(bytes, 1, count, file_) != count) fail();
}

void OutputStream::fail() {
    error_ = errno != 0 ? errno : EIO;
    throw WriteFailure{error_};
}

}  // namespace kvt
