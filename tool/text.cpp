#include "text.h"

#include <algorithm>
#include <iterator>

namespace kvt {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

unsigned byteAt(std::string_view text, unsigned long i) {
    return static_cast<unsigned char>(text[i]);
}

bool isControl(unsigned byte) { return byte < 32 || byte == 127; }
bool isQuoting(unsigned byte) { return byte == '"' || byte == '\\'; }
bool isPlain(unsigned byte) { return byte < 128 && !isControl(byte) && !isQuoting(byte); }

unsigned long plainLength(std::string_view text) {
    unsigned long length = 0;
    while (length < text.size() && isPlain(byteAt(text, length)))
        ++length;
    return length;
}

// The code points that valid UTF-8 writes with one kind of first byte.
struct Utf8Form {
    unsigned mask;  // of the first byte: the bits that tell the form
    unsigned mark;  // what they are
    unsigned length;
    unsigned first;  // the least code point; a smaller one is an overlong spelling
};

constexpr Utf8Form utf8Forms[] = {
    {0xe0, 0xc0, 2, 0x80},
    {0xf0, 0xe0, 3, 0x800},
    {0xf8, 0xf0, 4, 0x10000},
};

constexpr unsigned lastCodePoint = 0x10ffff;
bool isSurrogate(unsigned codePoint) { return codePoint >= 0xd800 && codePoint <= 0xdfff; }
bool isContinuation(unsigned byte) { return (byte & 0xc0U) == 0x80; }

// The form that a first byte announces, or null.
const Utf8Form* findForm(unsigned firstByte) {
    for (const Utf8Form& form : utf8Forms)
        if ((firstByte & form.mask) == form.mark) return &form;
    return nullptr;
}

// The code point of a first byte of `form` and the continuation bytes after it.
unsigned decode(const Utf8Form& form, std::string_view bytes) {
    unsigned codePoint = byteAt(bytes, 0) & ~form.mask & 0xffU;
    for (unsigned long i = 1; i < form.length; ++i)
        codePoint = codePoint << 6U | (byteAt(bytes, i) & 0x3fU);
    return codePoint;
}

unsigned decode(std::string_view multibyte) {
    return decode(*findForm(byteAt(multibyte, 0)), multibyte);
}

struct CodePoints {
    unsigned first;
    unsigned last;
};

// What steers a terminal or a line: controls beyond ASCII, line and paragraph separators, what
// changes the direction of writing, and the byte order mark, which nobody sees.
constexpr CodePoints steering[] = {
    {0x80, 0x9f},     {0x61c, 0x61c},   {0x200e, 0x200f}, {0x2028, 0x2029},
    {0x202a, 0x202e}, {0x2066, 0x2069}, {0xfeff, 0xfeff},
};

bool isSteering(unsigned codePoint) {
    return std::any_of(std::begin(steering), std::end(steering), [codePoint](const auto& range) {
        return codePoint >= range.first && codePoint <= range.last;
    });
}

// The letter that stands for a control character after a backslash, or 0.
char escapeLetter(char control) {
    switch (control) {
        case '\n': return 'n';
        case '\r': return 'r';
        case '\t': return 't';
        default: return '\0';
    }
}

void writeHexByte(OutputStream& out, char byte) {
    const unsigned code = static_cast<unsigned char>(byte);
    out.write("\\x");
    out.write(hexDigits[code >> 4U]);
    out.write(hexDigits[code & 15U]);
}

void writeControl(OutputStream& out, char control) {
    if (const char letter = escapeLetter(control)) {
        out.write('\\');
        out.write(letter);
    } else {
        writeHexByte(out, control);
    }
}

void writeVisiblePiece(OutputStream& out, const Piece& piece) {
    switch (piece.kind) {
        case Piece::Plain:
        case Piece::Quoting: out.write(piece.bytes); break;
        case Piece::Control: writeControl(out, piece.bytes[0]); break;
        case Piece::Multibyte:
            if (!isSteering(decode(piece.bytes))) {
                out.write(piece.bytes);
                break;
            }
            [[fallthrough]];
        case Piece::Invalid:
            for (const char byte : piece.bytes)
                writeHexByte(out, byte);
            break;
    }
}

unsigned long visiblePieceWidth(const Piece& piece) {
    constexpr unsigned long hexByteWidth = 4;
    switch (piece.kind) {
        case Piece::Control: return escapeLetter(piece.bytes[0]) ? 2 : hexByteWidth;
        case Piece::Multibyte:
            return isSteering(decode(piece.bytes)) ? piece.bytes.size() * hexByteWidth : 1;
        case Piece::Invalid: return hexByteWidth;
        default: return piece.bytes.size();
    }
}

enum class Quotes { AsTheyAre, Escaped };

// Writes the first `limit` characters and returns how many bytes of `text` they are.
unsigned long writeStart(OutputStream& out, std::string_view text, unsigned long limit,
                         Quotes quotes) {
    // The longest code points take four bytes: the first `limit` characters are among these.
    PieceReader pieces(text.substr(0, 4 * limit));
    unsigned long characters = 0;
    unsigned long bytes = 0;
    for (Piece piece; characters < limit && pieces.next(piece);) {
        if (piece.kind == Piece::Plain) piece.bytes = piece.bytes.substr(0, limit - characters);
        if (piece.kind == Piece::Quoting && quotes == Quotes::Escaped) out.write('\\');
        writeVisiblePiece(out, piece);
        characters += piece.kind == Piece::Plain ? piece.bytes.size() : 1;
        bytes += piece.bytes.size();
    }
    return bytes;
}

// Tells that only the first `shown` bytes of `text` were written.
void writeOmission(OutputStream& out, std::string_view text, unsigned long shown) {
    if (shown == text.size()) return;
    out.write("... (");
    out.number(text.size());
    out.write(" bytes)");
}

void writeJsonEscape(OutputStream& out, unsigned codeUnit) {
    out.write("\\u");
    for (unsigned shift = 16; shift > 0; shift -= 4)
        out.write(hexDigits[codeUnit >> (shift - 4) & 15U]);
}

void writeJsonControl(OutputStream& out, char control) {
    if (escapeLetter(control)) {
        writeControl(out, control);
    } else {
        writeJsonEscape(out, static_cast<unsigned char>(control));
    }
}

void writeJsonMultibyte(OutputStream& out, std::string_view bytes) {
    const unsigned codePoint = decode(bytes);
    if (isSteering(codePoint)) {
        writeJsonEscape(out, codePoint);
    } else {
        out.write(bytes);
    }
}

void writeJsonPiece(OutputStream& out, const Piece& piece) {
    constexpr std::string_view replacement = "\xef\xbf\xbd";  // U+FFFD
    switch (piece.kind) {
        case Piece::Plain: return out.write(piece.bytes);
        case Piece::Quoting: out.write('\\'); return out.write(piece.bytes);
        case Piece::Control: return writeJsonControl(out, piece.bytes[0]);
        case Piece::Multibyte: return writeJsonMultibyte(out, piece.bytes);
        case Piece::Invalid: return out.write(replacement);
    }
}

}  // namespace

unsigned long multibyteLength(std::string_view text) noexcept {
    const Utf8Form* const form = text.empty() ? nullptr : findForm(byteAt(text, 0));
    if (!form || text.size() < form->length) return 0;
    for (unsigned long i = 1; i < form->length; ++i)
        if (!isContinuation(byteAt(text, i))) return 0;
    const unsigned codePoint = decode(*form, text);
    const bool isValid =
        codePoint >= form->first && codePoint <= lastCodePoint && !isSurrogate(codePoint);
    return isValid ? form->length : 0;
}

bool PieceReader::next(Piece& piece) noexcept {
    if (rest_.empty()) return false;
    unsigned long length = 1;
    const unsigned first = byteAt(rest_, 0);
    if (isQuoting(first)) {
        piece.kind = Piece::Quoting;
    } else if (isControl(first)) {
        piece.kind = Piece::Control;
    } else if (first < 128) {
        piece.kind = Piece::Plain;
        length = plainLength(rest_);
    } else if (const unsigned long multibyte = multibyteLength(rest_)) {
        piece.kind = Piece::Multibyte;
        length = multibyte;
    } else {
        piece.kind = Piece::Invalid;
    }
    piece.bytes = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return true;
}

void writeVisible(OutputStream& out, std::string_view text) {
    PieceReader pieces(text);
    for (Piece piece; pieces.next(piece);)
        writeVisiblePiece(out, piece);
}

unsigned long visibleWidth(std::string_view text, unsigned long limit) noexcept {
    // Every byte fills a quarter of a column or more, so what stands after it cannot matter.
    PieceReader pieces(text.substr(0, 4 * limit));
    unsigned long width = 0;
    for (Piece piece; width < limit && pieces.next(piece);)
        width += visiblePieceWidth(piece);
    return std::min(width, limit);
}

void writeShortened(OutputStream& out, std::string_view text, unsigned long limit) {
    const unsigned long shown = writeStart(out, text, limit, Quotes::AsTheyAre);
    writeOmission(out, text, shown);
}

void writeQuoted(OutputStream& out, std::string_view text, unsigned long limit) {
    out.write('"');
    const unsigned long shown = writeStart(out, text, limit, Quotes::Escaped);
    out.write('"');
    writeOmission(out, text, shown);
}

void writeJsonText(OutputStream& out, std::string_view text) {
    PieceReader pieces(text);
    for (Piece piece; pieces.next(piece);)
        writeJsonPiece(out, piece);
}

void writeJsonString(OutputStream& out, std::string_view text) {
    out.write('"');
    writeJsonText(out, text);
    out.write('"');
}

}  // namespace kvt
