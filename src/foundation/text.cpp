// The foundation: texts, files, the log, numbers, memory and the table of types. It uses nothing of
// scenes and documents. Here are the texts.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <random>
#include <string>

#include <ko/ds.h>
#include <ko/foundation.h>

#include "foundation/ascii.h"
#include "foundation/memory.h"
#include "foundation/words.h"

namespace ko {

// --- The shared characters ----------------------------------------------------------------------

TextBuffer* TextBuffer::create(unsigned long length) { return resize(nullptr, length); }

// Taken from malloc, so that a large text can grow in place.
TextBuffer* TextBuffer::resize(TextBuffer* buffer, unsigned long length) {
    constexpr unsigned long large = 1UL << 20;
    const bool isLarger = !buffer || length > buffer->length_;
    void* const memory = std::realloc(buffer, sizeof(TextBuffer) + length + 1);
    if (!memory) throw std::bad_alloc();
    if (isLarger && length >= large) memory::adviseLarge(memory, sizeof(TextBuffer) + length);
    return cut(new (memory) TextBuffer(length), length);
}

TextBuffer* TextBuffer::cut(TextBuffer* buffer, unsigned long length) noexcept {
    buffer->length_ = length;
    buffer->chars()[length] = '\0';
    return buffer;
}

void TextBuffer::destroy(TextBuffer* buffer) noexcept { std::free(buffer); }

// The last reference is nobody else's to take away, and counts down without a locked instruction.
void TextBuffer::release() noexcept {
    const bool isLast = references_.load(std::memory_order_acquire) == 1 ||
                        references_.fetch_sub(1, std::memory_order_acq_rel) == 1;
    if (isLast) destroy(this);
}

template <class Fill>
String String::build(unsigned long length, Fill fill) {
    String text;
    if (fitsShort(length)) {
        fill(text.bytes_);
        text.bytes_[tag] = static_cast<char>(length);
    } else {
        text = String(TextBuffer::create(length));
        fill(text.buffer()->chars());
    }
    return text;
}

String::String(const char* text, unsigned long count)
    : String(text ? std::string_view(text, count ? count : std::strlen(text))
                  : std::string_view()) {}

void String::share(std::string_view text) {
    *this = build(text.size(), [text](char* to) { std::memcpy(to, text.data(), text.size()); });
}

String::String(unsigned long number) : String(std::string_view(std::to_string(number))) {}

// --- Hash ---------------------------------------------------------------------------------------

namespace {

__extension__ using Wide = unsigned __int128;

constexpr unsigned long hashPrime = (1UL << 61) - 1;

unsigned long multiplyModPrime(unsigned long a, unsigned long b) noexcept {
    const Wide product = Wide(a) * b;
    const unsigned long sum = (static_cast<unsigned long>(product) & hashPrime) +
                              static_cast<unsigned long>(product >> 61);
    return sum >= hashPrime ? sum - hashPrime : sum;
}

#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION

// The same in every process: what a fuzzer keeps does next time what it did when it was found.
unsigned long randomBits() noexcept {
    static unsigned long s_draw = 0;
    s_draw = ds::spreadBits(s_draw + 1);
    return s_draw;
}

#else

// Never throws: a machine without a source of randomness still has a clock.
unsigned long randomBits() noexcept {
    try {
        std::random_device device;
        return (static_cast<unsigned long>(device()) << 32) ^ device();
    } catch (const std::exception&) {
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        return ds::spreadBits(static_cast<unsigned long>(now));
    }
}

#endif

bool equal(std::string_view a, std::string_view b, bool ignoreCase) noexcept {
    return ignoreCase ? ascii::equalNoCase(a, b) : a == b;
}

// Drawn once a process.
struct HashKeys {
    Wide words[2] = {randomWide(), randomWide()};
    unsigned long point = 1 + randomBits() % (hashPrime - 1);
    unsigned long odd = randomBits() | 1U;

    static Wide randomWide() noexcept { return Wide(randomBits()) << 64 | randomBits(); }
};

const HashKeys& hashKeys() noexcept {
    static const HashKeys keys;
    return keys;
}

// A sum of the words of a short String, each times a random number: two texts have equal upper
// halves as rarely as two random numbers do. Such a sum leads from names in a row to places in a
// row, which crowd each other where tables look for the next free place; spread, they do not.
unsigned long hashShort(const char* bytes) noexcept {
    const HashKeys& keys = hashKeys();
    std::uint64_t words[2];
    std::memcpy(words, bytes, sizeof words);
    const Wide sum = keys.words[0] * words[0] + keys.words[1] * words[1];
    return ds::spreadBits(static_cast<unsigned long>(sum >> 64));
}

// The text as a polynomial at a random point, seven bytes a coefficient.
unsigned long hashLong(std::string_view text) noexcept {
    constexpr unsigned long step = 7;
    const unsigned long point = hashKeys().point;
    unsigned long hash = text.size() % hashPrime;
    while (!text.empty()) {
        const unsigned long taken = std::min(step, text.size());
        unsigned long chunk = 0;
        std::memcpy(&chunk, text.data(), taken);
        hash = (multiplyModPrime(hash, point) + chunk) % hashPrime;
        text.remove_prefix(taken);
    }
    return ds::spreadBits(multiplyModPrime(hash, point));
}

}  // namespace

unsigned long ds::oddRandom() noexcept { return hashKeys().odd; }

// Whoever does not know the keys cannot choose texts that collide.
unsigned long hashText(std::string_view text) noexcept {
    return String::fitsShort(text.size()) ? String(text).hash() : hashLong(text);
}

unsigned long TextBuffer::hash() noexcept {
    unsigned long hash = hash_.load(std::memory_order_relaxed);
    if (hash == 0) {
        hash = hashLong({chars(), length_});
        hash_.store(hash, std::memory_order_relaxed);
    }
    return hash;
}

unsigned long String::hash() const noexcept {
    return isShort() ? hashShort(bytes_) : buffer()->hash();
}

// --- Comparison and search ----------------------------------------------------------------------

int String::compareNoCase(const String& other) const noexcept {
    const std::string_view a = view();
    const std::string_view b = other.view();
    const unsigned long shared = std::min(a.size(), b.size());
    for (unsigned long i = 0; i < shared; ++i) {
        const int difference = static_cast<unsigned char>(ascii::lower(a[i])) -
                               static_cast<unsigned char>(ascii::lower(b[i]));
        if (difference != 0) return difference;
    }
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool String::startsWith(const String& prefix, bool ignoreCase) const noexcept {
    return equal(view().substr(0, prefix.len()), prefix.view(), ignoreCase);
}

bool String::endsWith(const String& suffix, bool ignoreCase) const noexcept {
    if (suffix.len() > len()) return false;
    return equal(view().substr(len() - suffix.len()), suffix.view(), ignoreCase);
}

bool String::contains(const String& part, bool ignoreCase) const {
    if (ignoreCase) return toLower(true).contains(part.toLower(true), false);
    return view().find(part.view()) != std::string_view::npos;
}

unsigned long String::find(char c, bool ignoreCase, unsigned long start) const noexcept {
    const std::string_view text = view();
    if (!ignoreCase) return text.find(c, start);
    const char wanted[] = {ascii::lower(c),
                           c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c};
    return text.find_first_of(std::string_view(wanted, 2), start);
}

// --- Transformation -----------------------------------------------------------------------------

namespace {

// Which characters a set holds, so that trimming costs the length of the text alone.
std::array<bool, 256> members(std::string_view set) noexcept {
    std::array<bool, 256> isMember{};
    for (const char c : set)
        isMember[static_cast<unsigned char>(c)] = true;
    return isMember;
}

// What a backslash and `c` stand for, or -1 when the pair is no simple escape.
int simpleEscape(char c) noexcept {
    switch (c) {
        case 'n': return '\n';
        case 't': return '\t';
        case 'r': return '\r';
        case 'a': return '\a';
        case 'b': return '\b';
        case 'f': return '\f';
        case 'v': return '\v';
        case '0': return '\0';
        case '\\':
        case '"':
        case '\'': return c;
        default: return -1;
    }
}

// Reads the escape at the start of `text`, which begins with a backslash, into `out` and returns
// its length; 0 when it is none.
unsigned long readEscape(std::string_view text, char& out) noexcept {
    if (text.size() < 2) return 0;
    const int simple = simpleEscape(text[1]);
    if (simple >= 0) {
        out = static_cast<char>(simple);
        return 2;
    }
    if (text[1] != 'x' || text.size() < 3 || !String::isHexDigit(text[2])) return 0;
    const bool twoDigits = text.size() > 3 && String::isHexDigit(text[3]);
    const int high = ascii::hexValue(text[2]);
    out = static_cast<char>(twoDigits ? high * 16 + ascii::hexValue(text[3]) : high);
    return twoDigits ? 4 : 3;
}

}  // namespace

String String::substring(unsigned long start, unsigned long count) const {
    if (start >= len()) return {};
    if (start == 0 && count >= len()) return *this;
    return String(view().substr(start, count));
}

String String::trim(bool left, bool right) const {
    const std::string_view text = ascii::trimmed(view(), left, right);
    return text.size() == len() ? *this : String(text);
}

String String::trimChars(const String& left, const String& right) const {
    const std::array<bool, 256> inLeft = members(left.view());
    const std::array<bool, 256> inRight = right.isEmpty() ? inLeft : members(right.view());
    std::string_view text = view();
    while (!text.empty() && inLeft[static_cast<unsigned char>(text.front())])
        text.remove_prefix(1);
    while (!text.empty() && inRight[static_cast<unsigned char>(text.back())])
        text.remove_suffix(1);
    return text.size() == len() ? *this : String(text);
}

String String::toLower(bool /*asciiOnly*/) const {
    if (isShort()) {
        words::Word words[2];
        std::memcpy(words, bytes_, sizeof words);
        words[0] = words::lowered(words[0]);
        words[1] = words::lowered(words[1]);  // the tag is no letter
        String text;
        std::memcpy(text.bytes_, words, sizeof words);
        return text;
    }
    const std::string_view text = view();
    const bool isLower =
        std::all_of(text.begin(), text.end(), [](char c) { return ascii::lower(c) == c; });
    if (isLower) return *this;
    return build(len(),
                 [text](char* to) { std::transform(text.begin(), text.end(), to, ascii::lower); });
}

String String::unescape() const {
    std::string_view rest = view();
    if (rest.find('\\') == std::string_view::npos) return *this;
    std::string text;
    text.reserve(rest.size());
    while (!rest.empty()) {
        char c = rest.front();
        const unsigned long escape = c == '\\' ? readEscape(rest, c) : 0;
        text.push_back(c);
        rest.remove_prefix(escape ? escape : 1);
    }
    return String(text);
}

String String::fromFirst(char c, bool includeSeparator) const {
    const unsigned long at = find(c, false, 0);
    if (at == npos) return {};
    return substring(includeSeparator ? at : at + 1, npos);
}

String String::operator+(const char* other) const { return *this + String(other); }

String String::operator+(const String& other) const {
    if (other.isEmpty()) return *this;
    if (isEmpty()) return other;
    return build(len() + other.len(), [this, &other](char* to) {
        std::memcpy(to, buf(), len());
        std::memcpy(to + len(), other.buf(), other.len());
    });
}

StringVector String::split(char separator, bool skipEmpty, bool trimPieces) const {
    StringVector pieces;
    const std::string_view text = view();
    for (unsigned long start = 0; start <= text.size();) {
        const unsigned long end = std::min(text.find(separator, start), text.size());
        std::string_view piece = text.substr(start, end - start);
        if (trimPieces) piece = ascii::trimmed(piece, true, true);
        if (!piece.empty() || !skipEmpty) pieces.push_back(String(piece));
        start = end + 1;
    }
    return pieces;
}

}  // namespace ko
