// Text of a document as the tool shows it: what is valid UTF-8, and the escapes of each output.
#pragma once

#include <string_view>

#include "output.h"

namespace kvt {

// A stretch of text that is treated as one.
struct Piece {
    enum Kind {
        Plain,      // a run of printable ASCII without quotes and backslashes
        Quoting,    // one quote or backslash
        Control,    // one byte 0 to 31 or 127
        Multibyte,  // one code point beyond ASCII
        Invalid,    // one byte that is not part of valid UTF-8
    };

    Kind kind = Plain;
    std::string_view bytes;
};

// Cuts a text into its pieces.
class PieceReader {
  public:
    explicit PieceReader(std::string_view text) : rest_(text) {}
    // The next piece; false at the end.
    bool next(Piece& piece) noexcept;

  private:
    std::string_view rest_;
};

// Bytes of the code point beyond ASCII that `text` begins with; 0 when it begins with none.
unsigned long multibyteLength(std::string_view text) noexcept;

// One line whatever `text` holds, and nothing that steers a terminal: control characters appear as
// \n, \r, \t or \xHH, bytes that are not UTF-8 as \xHH, and so does each byte of the code points
// that are controls, end a line or change the direction of writing. All that the tool prints of a
// document or of its arguments goes through here, or through the functions below.
void writeVisible(OutputStream& out, std::string_view text);
// The columns that `writeVisible` fills, counted up to `limit`. Each code point counts as one.
unsigned long visibleWidth(std::string_view text, unsigned long limit) noexcept;
// Likewise; of a text of more than `limit` characters the first ones and its size.
void writeShortened(OutputStream& out, std::string_view text, unsigned long limit);
// Likewise in quotes, with backslashes before quotes and backslashes.
void writeQuoted(OutputStream& out, std::string_view text, unsigned long limit);

// The inside of a JSON string, which reads back as `text`; what would steer a terminal is escaped.
// Bytes that are not UTF-8 become U+FFFD.
void writeJsonText(OutputStream& out, std::string_view text);
void writeJsonString(OutputStream& out, std::string_view text);

}  // namespace kvt
