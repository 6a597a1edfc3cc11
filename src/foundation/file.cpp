#include <stdio.h>  // fileno
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include <ko/foundation.h>

namespace ko {

// What the copies of a File share: the stream, one block of it, and how far reading has come.
class FileSource {
  public:
    FileSource() noexcept : error_(File::CannotOpen) {}
    // A block of memory that the caller keeps.
    FileSource(const void* bytes, unsigned long size) noexcept
        : next_(static_cast<const char*>(bytes)), end_(next_ + size), size_(size) {
        skipByteOrderMark();
    }
    FileSource(std::FILE* stream, bool owned, unsigned long size)
        : stream_(stream), owned_(owned), block_(new char[blockSize]), size_(size) {}
    FileSource(File::Error error, int reason) noexcept : error_(error), reason_(reason) {}
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;
    ~FileSource() {
        if (owned_) std::fclose(stream_);
    }

    static FileSource* open(const char* path);

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

    bool read(signed char& c) {
        takeBack();
        if (next_ == end_ && !fill()) return false;
        c = static_cast<signed char>(*next_);
        pass(1);
        return true;
    }

    std::string_view lendBlock(std::function<unsigned long()> giveBack) {
        takeBack();
        if (next_ == end_ && !fill()) return {};
        giveBack_ = std::move(giveBack);
        return {next_, atHand()};
    }

    void takeBack() {
        if (!giveBack_) return;
        const auto giveBack = std::exchange(giveBack_, nullptr);
        pass(atHand() - giveBack());
    }

    File::Error error() const noexcept { return error_; }
    int reason() const noexcept { return reason_; }
    unsigned long size() const noexcept { return size_; }
    unsigned long position() const noexcept { return position_.load(std::memory_order_relaxed); }

  private:
    static constexpr unsigned long blockSize = 64UL * 1024;

    bool fill();
    unsigned long fillBlock();
    void skipByteOrderMark() noexcept;
    unsigned long atHand() const noexcept { return static_cast<unsigned long>(end_ - next_); }
    // Only the reading thread writes the position; others just look.
    void pass(unsigned long count) noexcept {
        next_ += count;
        position_.store(position() + count, std::memory_order_relaxed);
    }

    std::atomic<unsigned long> references_{0};
    std::FILE* stream_ = nullptr;
    bool owned_ = false;
    bool atStart_ = true;
    std::unique_ptr<char[]> block_;
    const char* next_ = nullptr;
    const char* end_ = nullptr;
    std::function<unsigned long()> giveBack_;  // empty unless the bytes at hand are lent
    unsigned long size_ = 0;
    std::atomic<unsigned long> position_{0};
    File::Error error_ = File::None;
    int reason_ = 0;  // errno of the error
};

namespace {

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// All zeros when the system does not tell.
struct stat statusOf(std::FILE* stream) noexcept {
    struct stat status = {};
    if (fstat(fileno(stream), &status) != 0) status = {};
    return status;
}

}  // namespace

// The status is that of what was opened: by now another file may stand at the path. Programs that
// this one starts do not inherit the descriptor.
FileSource* FileSource::open(const char* path) {
    Stream stream(std::fopen(path, "rbe"), std::fclose);
    const int reason = errno;
    if (!stream) return new FileSource(File::CannotOpen, reason);
    const struct stat status = statusOf(stream.get());
    if (S_ISDIR(status.st_mode)) return new FileSource(File::IsDirectory, EISDIR);
    const auto size = S_ISREG(status.st_mode) ? static_cast<unsigned long>(status.st_size) : 0;
    std::setvbuf(stream.get(), nullptr, _IONBF, 0);  // the block here is the only one
    auto* const source = new FileSource(stream.get(), true, size);
    static_cast<void>(stream.release());
    return source;
}

// Reads until the block is full, the file ends or an error stops it; signals only interrupt.
unsigned long FileSource::fillBlock() {
    unsigned long count = 0;
    while (count < blockSize) {
        errno = 0;
        count += std::fread(block_.get() + count, 1, blockSize - count, stream_);
        if (!std::ferror(stream_)) break;
        if (errno != EINTR) {
            error_ = File::CannotRead;
            reason_ = errno;
            break;
        }
        std::clearerr(stream_);
    }
    return count;
}

bool FileSource::fill() {
    if (!stream_ || error_ != File::None || std::feof(stream_)) return false;
    const unsigned long count = fillBlock();
    next_ = block_.get();
    end_ = next_ + count;
    skipByteOrderMark();
    return next_ != end_;
}

void FileSource::skipByteOrderMark() noexcept {
    constexpr unsigned long length = 3;
    const bool isMark =
        atStart_ && atHand() >= length && std::memcmp(next_, "\xEF\xBB\xBF", length) == 0;
    atStart_ = false;
    if (isMark) pass(length);
}

// --- Reasons ------------------------------------------------------------------------------------

namespace {

struct Reason {
    int code;
    const char* text;
};

// The system's own texts follow the locale.
constexpr Reason reasons[] = {
    {EACCES, "Permission denied"},
    {EBADF, "Bad file descriptor"},
    {ECONNRESET, "Connection reset by peer"},
    {EFBIG, "File too large"},
    {EINVAL, "Invalid argument"},
    {EIO, "Input/output error"},
    {EISDIR, "Is a directory"},
    {ELOOP, "Too many levels of symbolic links"},
    {EMFILE, "Too many open files"},
    {ENAMETOOLONG, "File name too long"},
    {ENFILE, "Too many open files in system"},
    {ENODEV, "No such device"},
    {ENOENT, "No such file or directory"},
    {ENOMEM, "Cannot allocate memory"},
    {ENOTDIR, "Not a directory"},
    {ENXIO, "No such device or address"},
    {EOVERFLOW, "Value too large for defined data type"},
    {EPERM, "Operation not permitted"},
    {ESTALE, "Stale file handle"},
    {ETIMEDOUT, "Connection timed out"},
};

String reasonText(int code) {
    for (const Reason& reason : reasons)
        if (reason.code == code) return {reason.text};
    return String::format("system error %d", code);
}

}  // namespace

// --- The handle ---------------------------------------------------------------------------------

File::File() noexcept = default;
File::File(const File&) noexcept = default;
File::File(File&&) noexcept = default;
File& File::operator=(const File&) noexcept = default;
File& File::operator=(File&&) noexcept = default;
File::~File() = default;
File::File(FileSource* source) noexcept : RefersTo(source) {}

File File::open(const char* path) { return File(FileSource::open(path)); }

File File::standardInput() { return File(new FileSource(stdin, false, 0)); }

File File::memory(const void* bytes, unsigned long size) {
    return File(new FileSource(bytes, size));
}

bool File::read(signed char& c) { return get() && get()->read(c); }

std::string_view File::lendBlock(std::function<unsigned long()> giveBack) {
    return get() ? get()->lendBlock(std::move(giveBack)) : std::string_view();
}

void File::takeBack() {
    if (get()) get()->takeBack();
}

File::Error File::error() const noexcept { return get() ? get()->error() : CannotOpen; }

String File::errorText() const {
    const int reason = get() ? get()->reason() : 0;
    switch (error()) {
        case None: return {};
        case IsDirectory: return {"is a directory"};
        case CannotOpen:
            return reason ? String("cannot open: ") + reasonText(reason)
                          : String("no file is open");
        case CannotRead: break;
    }
    return String("cannot read: ") + reasonText(reason);
}

unsigned long File::size() const noexcept { return get() ? get()->size() : 0; }
unsigned long File::position() const noexcept { return get() ? get()->position() : 0; }

}  // namespace ko
