// The services that the reader stands on: counted text, files, number parsing, the log, and the
// decoder of compact bytes.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#pragma GCC visibility push(default)

namespace ko {

static_assert(sizeof(long) == 8, "the reader counts and parses in longs of 64 bits");

namespace math {
template <int N, class T>
struct VecT;
template <int N, class T>
struct PosT;
template <class T>
struct QuatT;
template <class T>
struct RgbaT;
template <int N, class T>
struct MatT;
}  // namespace math

// Holds one counted reference to an object that offers `retain()` and `release()`; the object frees
// itself with its last reference.
template <class T>
class RefersTo {
  public:
    RefersTo() noexcept = default;
    // Adds a reference to `object`, which may be null.
    explicit RefersTo(T* object) noexcept : object_(object) {
        if (object_) object_->retain();
    }
    RefersTo(const RefersTo& other) noexcept : RefersTo(other.object_) {}
    RefersTo(RefersTo&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    RefersTo& operator=(RefersTo other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~RefersTo() {
        if (object_) object_->release();
    }

    // The object, or null; still owned by its references.
    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    T* object_ = nullptr;
};

// The characters of a long String: this header, then the text and a terminating NUL. They do not
// change once a String shares them.
class TextBuffer {
  public:
    // A buffer for `length` characters, without references; throws std::bad_alloc.
    static TextBuffer* create(unsigned long length);
    // The same buffer, moved if it must be, for `length` characters; throws std::bad_alloc and is
    // then as it was. Only while nothing refers to it.
    static TextBuffer* resize(TextBuffer* buffer, unsigned long length);
    // The same buffer for fewer characters, in the memory that it has.
    static TextBuffer* cut(TextBuffer* buffer, unsigned long length) noexcept;
    // Frees a buffer that nothing refers to.
    static void destroy(TextBuffer* buffer) noexcept;

    void retain() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept;

    unsigned long length() const noexcept { return length_; }
    char* chars() noexcept { return reinterpret_cast<char*>(this + 1); }
    // The hash of the characters, computed once.
    unsigned long hash() noexcept;

  private:
    explicit TextBuffer(unsigned long length) noexcept : length_(length) {}

    std::atomic<unsigned long> references_{0};
    std::atomic<unsigned long> hash_{0};  // 0 until it is asked for
    unsigned long length_;
};

class StringVector;

// Immutable 8-bit text of any length: a short one stands in the String itself, a longer one is
// shared by reference, so that copies never cost the text. References are counted atomically: one
// text may be handed to several threads. NUL is a character like any other; `len()` is
// authoritative. Letter case means ASCII letters only.
class String {
  public:
    // What `find` gives when nothing was found; as a count, "to the end".
    static constexpr unsigned long npos = ~0UL;

    enum Radix : int { Auto = 0, Binary = 2, Octal = 8, Decimal = 10, Hexadecimal = 16 };

    String() noexcept = default;
    // The first `count` characters at `text`; with a count of 0, up to its terminating NUL.
    String(const char* text, unsigned long count = 0);  // NOLINT: literals convert by themselves
    explicit String(std::string_view text) {
        if (fitsShort(text.size())) {
            copyShort(text);
        } else {
            share(text);
        }
    }
    explicit String(char c) noexcept {
        bytes_[0] = c;
        bytes_[tag] = 1;
    }
    // The decimal text of `number`.
    explicit String(unsigned long number);
    String(const String& other) noexcept {
        std::memcpy(bytes_, other.bytes_, sizeof bytes_);
        if (!isShort()) buffer()->retain();
    }
    String(String&& other) noexcept {
        std::memcpy(bytes_, other.bytes_, sizeof bytes_);
        other.forget();
    }
    String& operator=(const String& other) noexcept {
        if (isShort() && other.isShort()) {
            std::memcpy(bytes_, other.bytes_, sizeof bytes_);
        } else {
            String copy(other);
            swap(copy);
        }
        return *this;
    }
    String& operator=(String&& other) noexcept {
        if (isShort() && other.isShort()) {
            std::memcpy(bytes_, other.bytes_, sizeof bytes_);
        } else {
            swap(other);
        }
        return *this;
    }
    ~String() {
        if (!isShort()) buffer()->release();
    }
    // Whether a text of that length stands in the String itself.
    static constexpr bool fitsShort(unsigned long length) { return length <= longestShort; }
    // Becomes `text`, which is none of its own characters. Where a text is made in its place,
    // nobody waits to read it as a whole before its parts are written.
    void assign(std::string_view text) {
        if (isShort() && fitsShort(text.size())) {
            std::memset(bytes_, 0, sizeof bytes_);
            copyShort(text);
        } else {
            *this = String(text);
        }
    }
    void assign(char c) noexcept {
        if (isShort()) {
            std::memset(bytes_, 0, sizeof bytes_);
            bytes_[0] = c;
            bytes_[tag] = 1;
        } else {
            *this = String(c);
        }
    }
    // The same for the first characters at `text`, as many as fit short, of at least sixteen.
    void assignShort(const char* text, unsigned long length) noexcept {
        if (!isShort()) *this = String();
        std::uint64_t words[2];
        std::uint64_t kept[2];
        std::memcpy(words, text, sizeof words);
        std::memcpy(kept, keptBytes + longestShort + 2 - length, sizeof kept);
        words[0] &= kept[0];
        words[1] &= kept[1];
        std::memcpy(bytes_, words, sizeof words);
        bytes_[tag] = static_cast<char>(length);
    }

    // The characters and a terminating NUL; valid as long as this String keeps its text.
    const char* buf() const noexcept { return isShort() ? bytes_ : buffer()->chars(); }
    unsigned long len() const noexcept {
        return isShort() ? static_cast<unsigned long>(bytes_[tag]) : buffer()->length();
    }
    bool isEmpty() const noexcept { return len() == 0; }
    // The character at `i`; '\0' at `len()` and beyond.
    char operator[](unsigned long i) const noexcept { return i < len() ? buf()[i] : '\0'; }
    // The characters as a view; valid as long as this String keeps its text.
    std::string_view view() const noexcept { return {buf(), len()}; }
    // A 64-bit hash of the characters, keyed anew in each process so that no document can be made
    // to collide; equal texts have equal hashes within a process.
    unsigned long hash() const noexcept;

    // printf-style formatting that does not depend on the locale. `%s` ends at a NUL and takes text
    // of any length.
    [[gnu::format(printf, 1, 2)]] static String format(const char* fmt, ...);
    [[gnu::format(printf, 1, 0)]] static String formatv(const char* fmt, va_list args);

    // Below, at or above 0 as this text sorts before, equals or sorts after `other`, letter case
    // ignored.
    int compareNoCase(const String& other) const noexcept;
    bool operator==(const char* other) const noexcept { return view() == other; }
    bool operator==(const String& other) const noexcept {
        // Equal bytes: the same short text or the same shared one.
        if (std::memcmp(bytes_, other.bytes_, sizeof bytes_) == 0) return true;
        return !isShort() && !other.isShort() && view() == other.view();
    }
    bool operator!=(const char* other) const noexcept { return view() != other; }
    bool operator!=(const String& other) const noexcept { return !(*this == other); }
    bool startsWith(const String& prefix, bool ignoreCase) const noexcept;
    bool endsWith(const String& suffix, bool ignoreCase) const noexcept;
    bool contains(const String& part, bool ignoreCase) const;
    // The position of the first `c` at or after `start`, or `npos`.
    unsigned long find(char c, bool ignoreCase, unsigned long start) const noexcept;

    // The characters [start, start + count), clipped to the end.
    String substring(unsigned long start, unsigned long count) const;
    // Without the blanks at the ends that are asked for.
    String trim(bool left, bool right) const;
    // Without leading characters of the set `left` and trailing ones of the set `right`; an empty
    // `right` stands for the set `left`.
    String trimChars(const String& left, const String& right) const;
    // With A-Z as a-z. Letters beyond ASCII stay as they are, whatever `asciiOnly` says.
    String toLower(bool asciiOnly) const;
    // With \n \t \r \a \b \f \v \0 \\ \" \' and \xHH (one or two digits) resolved; any other
    // backslash stays as written.
    String unescape() const;
    // What follows the first `c`, or begins with it if `includeSeparator`; empty without a `c`.
    String fromFirst(char c, bool includeSeparator) const;
    String operator+(const char* other) const;
    String operator+(const String& other) const;
    // The pieces between separators, blanks around them removed if `trimPieces`.
    StringVector split(char separator, bool skipEmpty, bool trimPieces) const;

    // Character classes. Bytes above 127 are letters and printable.
    static constexpr bool isSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static constexpr bool isPrintable(char c) noexcept {
        return (c >= 32 && c != 127) || isBeyondAscii(c);
    }
    static constexpr bool isLetter(char c) noexcept {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isBeyondAscii(c);
    }
    static constexpr bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
    static constexpr bool isHexDigit(char c) noexcept {
        return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    }

    // Number parsing: true and the value in `out`, or false and `out` as it was. Blanks around the
    // number are ignored; nothing else may stand beside it.
    //
    // `true`, `false`, `1` or `0`, letter case ignored.
    static bool parse(const String& text, bool& out) noexcept;
    // Decimal reals with sign, fraction, exponent and a trailing `f`; `inf`, `infinity` and `nan`.
    // Correctly rounded; what is too small becomes a subnormal or zero, what is too large is
    // refused.
    static bool parse(const String& text, float& out) noexcept;
    static bool parse(const String& text, double& out) noexcept;
    // Integers with sign (signed targets: `-` too) and a trailing `u`; out of range is refused.
    // `Auto` reads decimal, or hexadecimal after `0x`; the other radices take bare digits.
    static bool parse(const String& text, signed char& out, Radix radix) noexcept;
    static bool parse(const String& text, unsigned char& out, Radix radix) noexcept;
    static bool parse(const String& text, short& out, Radix radix) noexcept;
    static bool parse(const String& text, unsigned short& out, Radix radix) noexcept;
    static bool parse(const String& text, int& out, Radix radix) noexcept;
    static bool parse(const String& text, unsigned int& out, Radix radix) noexcept;
    static bool parse(const String& text, long& out, Radix radix) noexcept;
    static bool parse(const String& text, unsigned long& out, Radix radix) noexcept;
    // Math values, their components separated by blanks; <ko/math.h> defines them.
    template <int N, class T>
    static bool parse(const String& text, math::VecT<N, T>& out);
    template <int N, class T>
    static bool parse(const String& text, math::PosT<N, T>& out);
    template <class T>
    static bool parse(const String& text, math::QuatT<T>& out);
    template <int N, class T>
    static bool parse(const String& text, math::MatT<N, T>& out);
    template <class T>
    static bool parse(const String& text, math::RgbaT<T>& out);

  private:
    friend class TextBuilder;

    static constexpr unsigned long longestShort = 14;
    static constexpr signed char sharedMark = -1;
    // Sixteen bytes from the place that lies so many before the middle keep so many.
    static constexpr unsigned char keptBytes[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                  0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                                  0,    0,    0,    0,    0,    0,    0,    0,
                                                  0,    0,    0,    0,    0,    0,    0,    0};
    static constexpr int tag = 15;

    // Shares `buffer`.
    explicit String(TextBuffer* buffer) noexcept {
        const auto address = reinterpret_cast<std::uintptr_t>(buffer);
        std::memcpy(bytes_, &address, sizeof address);
        bytes_[tag] = static_cast<char>(sharedMark);
        buffer->retain();
    }
    bool isShort() const noexcept { return static_cast<signed char>(bytes_[tag]) >= 0; }
    // Over zeros. A short text takes a few moves: its first and last characters, which overlap.
    void copyShort(std::string_view text) noexcept {
        const unsigned long length = text.size();
        const char* const from = text.data();
        const auto copyEnds = [&](auto wide) {
            std::memcpy(bytes_, from, sizeof wide);
            std::memcpy(bytes_ + length - sizeof wide, from + length - sizeof wide, sizeof wide);
        };
        if (length >= sizeof(std::uint64_t)) {
            copyEnds(std::uint64_t());
        } else if (length >= sizeof(std::uint32_t)) {
            copyEnds(std::uint32_t());
        } else if (length >= sizeof(std::uint16_t)) {
            copyEnds(std::uint16_t());
        } else if (length == 1) {
            bytes_[0] = *from;
        }
        bytes_[tag] = static_cast<char>(length);
    }
    // Takes a long text into a buffer of its own.
    void share(std::string_view text);
    TextBuffer* buffer() const noexcept {
        std::uintptr_t address = 0;
        std::memcpy(&address, bytes_, sizeof address);
        return reinterpret_cast<TextBuffer*>(address);
    }
    void forget() noexcept { std::memset(bytes_, 0, sizeof bytes_); }
    void swap(String& other) noexcept {
        char bytes[sizeof bytes_];
        std::memcpy(bytes, bytes_, sizeof bytes_);
        std::memcpy(bytes_, other.bytes_, sizeof bytes_);
        std::memcpy(other.bytes_, bytes, sizeof bytes_);
    }
    static constexpr bool isBeyondAscii(char c) noexcept {
        return static_cast<unsigned char>(c) > 127;
    }
    // A text of `length` characters that `fill(char*)` writes.
    template <class Fill>
    static String build(unsigned long length, Fill fill);

    // A short text, zeros after it; or the address of a buffer. The last byte tells which: the
    // length of a short text, or `sharedMark`.
    alignas(TextBuffer*) char bytes_[16] = {};
};

// The hash behind `String::hash`, for text that is no String.
unsigned long hashText(std::string_view text) noexcept;

// Number parsing without a String around the text: `String::parse` and the reader of buffers share
// it. Same rules, same results.
bool parseNumber(std::string_view text, float& out) noexcept;
bool parseNumber(std::string_view text, double& out) noexcept;
template <class Integer>
bool parseInteger(std::string_view text, Integer& out, String::Radix radix) noexcept;

// A list of texts, indexed from 0.
class StringVector {
  public:
    unsigned long size() const noexcept { return items_.size(); }
    const String& operator[](unsigned long i) const noexcept { return items_[i]; }
    void push_back(String item) { items_.push_back(std::move(item)); }

  private:
    std::vector<String> items_;
};

class FileSource;

// A counted reference to an open source of bytes: a file, standard input or a block of memory.
// Copies share it and its reading position. A UTF-8 byte order mark at its start is passed over.
// One thread reads at a time; any thread may ask `position()` and `size()`.
class File : private RefersTo<FileSource> {
  public:
    // What stands between the caller and the bytes; the end of the file is `None`.
    enum Error : int { None = 0, CannotOpen, IsDirectory, CannotRead };

    // Without a source: nothing to read, error `CannotOpen`.
    File() noexcept;
    File(const File&) noexcept;
    File(File&&) noexcept;
    File& operator=(const File&) noexcept;
    File& operator=(File&&) noexcept;
    ~File();

    // Opens the file at `path`, which is not null. Never throws for a bad path: `error()` tells.
    static File open(const char* path);
    // Standard input, read ahead in blocks: ask once and hand out copies.
    static File standardInput();
    // Reads `size` bytes at `bytes`, which the caller keeps alive and unchanged.
    static File memory(const void* bytes, unsigned long size);

    // The next byte in `c`; false at the end of the file and on an error.
    bool read(signed char& c);
    // Lends the bytes that are at hand, read from the source when there are none; empty at the end
    // of the file and on an error. Before anyone reads on, and for `takeBack`, the file calls
    // `giveBack`, which tells how many of them, at their end, are to be read again; from then on
    // the borrower looks at none.
    std::string_view lendBlock(std::function<unsigned long()> giveBack);
    // Ends the loan, if there is one. Who borrowed asks for it before going away.
    void takeBack();
    Error error() const noexcept;
    // One line that says what `error()` is, with the system's reason; empty without an error.
    String errorText() const;
    // Bytes of the whole source; 0 where that cannot be known, as for a pipe.
    unsigned long size() const noexcept;
    // Bytes read so far, a byte order mark included; those of a block that is lent count when it is
    // given back.
    unsigned long position() const noexcept;

  private:
    explicit File(FileSource* source) noexcept;
};

enum class Severity { Warning, Error };

// One message as a sink receives it.
struct LogRecord {
    // Takes the position from the frame of `text`, "KIND (line,column): ...", where it has one.
    LogRecord(Severity severity, String text);

    Severity severity;
    bool hasPosition = false;
    int line = 0;
    int column = 0;
    String text;
};

using LogSink = std::function<void(const LogRecord&)>;

// Reports one finished message to the innermost LogCapture of this thread, else to the process-wide
// sink. printf-style, as `String::format`.
[[gnu::format(printf, 1, 2)]] void logWarning(const char* fmt, ...);
[[gnu::format(printf, 1, 2)]] void logError(const char* fmt, ...);

// Sets the process-wide sink and returns the one before. An empty sink stands for the default,
// which writes "warning: MESSAGE" or "error: MESSAGE" to standard error. Threads call the sink side
// by side. What it logs itself goes to standard error. What a sink throws reaches whoever logged.
LogSink setLogSink(LogSink sink);

// Collects the messages of the thread that made it until it goes out of scope; captures nest, and
// each is destroyed by its own thread.
class LogCapture {
  public:
    LogCapture();
    // Hands the messages to `sink` instead of keeping them. What the sink logs or reports goes to
    // the capture around this one, or to the process-wide sink.
    explicit LogCapture(LogSink sink);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogRecord>& records() const noexcept { return records_; }

  private:
    friend void report(const LogRecord& record);

    LogSink sink_;
    std::vector<LogRecord> records_;
    LogCapture* outer_;
};

// Reports a record that is already made.
void report(const LogRecord& record);

// Bytes owned by whoever holds them; released with `delete[]`.
struct ByteArray {
    unsigned char* data = nullptr;
    unsigned long size = 0;
};

// Decodes compact bytes, the `size` characters at `data`: "." and hexadecimal digit pairs are the
// bytes themselves, ".+" and digit pairs one LZ4 block. At most `expected` bytes result; they
// belong to the caller. Without bytes, `error` says what is wrong and at which character or block
// byte.
ByteArray decompress(const unsigned char* data, unsigned long size, String& error,
                     unsigned long expected);

}  // namespace ko

#pragma GCC visibility pop
