// All that the library says of documents and scenes, each message once: a code that never changes,
// its severity, where it stands, and its text. `say` fills the text in; what it is filled with must
// match the text, or it does not compile.
#pragma once

#include <cstdint>
#include <iterator>
#include <string_view>
#include <type_traits>

#include <ko/foundation.h>

namespace ko {

enum class Message : std::uint8_t {
    // Characters and tokens.
    InvalidToken,
    InvalidListToken,
    UnexpectedEnd,
    BadToken,
    UnrecognizedToken,
    NoScene,
    // The target of an assignment.
    NoWithNode,
    UnknownNode,
    UnknownInput,
    BadIndex,
    ArrayTooLarge,
    CannotAssign,
    // Values.
    WrongType,
    NarrowedValue,
    UnknownEnumValue,
    BadCount,
    ExcessNumber,
    TooFewElements,
    BadNumber,
    // Compact bytes.
    NotCompact,
    CompactDigit,
    CompactExcess,
    CompactEmpty,
    CompactOdd,
    BlockExcess,
    BlockEmpty,
    BlockWithoutEnd,
    BlockLength,
    BlockLiterals,
    BlockOffsetCut,
    BlockOffsetZero,
    BlockOffset,
    // The header and the end of a document.
    BadVersion,
    InvalidOutput,
    UnknownNodeToConnect,
    UnknownOutput,
    UnknownNodeToAssign,
    // What a program asks of a scene.
    WrongAccess,
    InconsistentBuffer,
};

inline constexpr std::uint32_t messageCount = 1 + std::uint32_t(Message::InconsistentBuffer);

struct MessageRow {
    Message message;
    const char* code;
    Severity severity;
    // "PARSE ERROR" for a text that is shown as "PARSE ERROR (line,column): TEXT."; null for one
    // that is shown as it is.
    const char* frame;
    const char* format;
};

namespace messages {

inline constexpr const char* parse = "PARSE ERROR";
inline constexpr const char* type = "TYPE ERROR";

inline constexpr MessageRow rows[] = {
    {Message::InvalidToken, "invalid-token", Severity::Error, nullptr,
     "INVALID TOKEN (%d,%d): '%c'"},
    {Message::InvalidListToken, "invalid-list-token", Severity::Error, nullptr,
     "INVALID %s LIST TOKEN (%d,%d): '%c'"},
    {Message::UnexpectedEnd, "unexpected-end", Severity::Error, nullptr,
     "UNEXPECTED EOF while parsing %s"},
    {Message::BadToken, "bad-token", Severity::Error, nullptr,
     "BAD TOKEN (%d,%d): expected '%s', found '%s'."},
    {Message::UnrecognizedToken, "unrecognized-token", Severity::Error, parse,
     "unrecognized token '%s'."},
    {Message::NoScene, "no-scene", Severity::Error, parse, "no scene to read into"},

    {Message::NoWithNode, "no-with-node", Severity::Error, parse,
     "'with' node not set (input: %s)"},
    {Message::UnknownNode, "unknown-node", Severity::Error, parse, "node '%s' not found "},
    {Message::UnknownInput, "unknown-input", Severity::Error, parse, "input '%s' not found."},
    {Message::BadIndex, "bad-index", Severity::Error, parse, "invalid input array index: %s"},
    {Message::ArrayTooLarge, "array-too-large", Severity::Error, nullptr, "array too large: %s"},
    {Message::CannotAssign, "cannot-assign", Severity::Error, type,
     "cannot assign %s%s to %s @ %s"},

    {Message::WrongType, "wrong-type", Severity::Error, type, "expected %s @ %s but found %s"},
    {Message::NarrowedValue, "narrowed-value", Severity::Warning, "TYPE WARNING",
     "narrowing %s to %s @ %s"},
    {Message::UnknownEnumValue, "unknown-enum-value", Severity::Warning, "ENUM WARNING",
     "setting non-existent enum value '%s' @ %s"},
    {Message::BadCount, "bad-count", Severity::Error, parse, "invalid buffer element count: %s"},
    {Message::ExcessNumber, "excess-number", Severity::Error, "BUFFER ERROR",
     "Cannot add %s @ index %lu of %s[%lu]."},
    {Message::TooFewElements, "too-few-elements", Severity::Warning, nullptr,
     "Too few elements (%lu) for %s[%lu] buffer, remainder set to zero."},
    {Message::BadNumber, "bad-number", Severity::Error, parse, "Failed to read '%s' buffer."},

    {Message::NotCompact, "not-compact", Severity::Error, parse,
     "compact bytes: no '.' at character 0"},
    {Message::CompactDigit, "compact-digit", Severity::Error, parse,
     "compact bytes: '%c' at character %lu is no hexadecimal digit"},
    {Message::CompactExcess, "compact-excess", Severity::Error, parse,
     "compact bytes: more than the expected %lu bytes at character %lu"},
    {Message::CompactEmpty, "compact-empty", Severity::Error, parse,
     "compact bytes: no digits after character %lu"},
    {Message::CompactOdd, "compact-odd", Severity::Error, parse,
     "compact bytes: an odd number of digits (%lu) after character %lu"},
    {Message::BlockExcess, "block-excess", Severity::Error, parse,
     "compact block: more than the expected %lu bytes at byte %lu"},
    {Message::BlockEmpty, "block-empty", Severity::Error, parse,
     "compact block: holds nothing at byte %lu"},
    {Message::BlockWithoutEnd, "block-without-end", Severity::Error, parse,
     "compact block: ends without a last run of literals at byte %lu"},
    {Message::BlockLength, "block-length", Severity::Error, parse,
     "compact block: length cut off at byte %lu"},
    {Message::BlockLiterals, "block-literals", Severity::Error, parse,
     "compact block: literals run past the end at byte %lu"},
    {Message::BlockOffsetCut, "block-offset-cut", Severity::Error, parse,
     "compact block: match offset cut off at byte %lu"},
    {Message::BlockOffsetZero, "block-offset-zero", Severity::Error, parse,
     "compact block: match offset 0 at byte %lu"},
    {Message::BlockOffset, "block-offset", Severity::Error, parse,
     "compact block: match offset before the start at byte %lu"},

    {Message::BadVersion, "bad-version", Severity::Warning, nullptr,
     "Failed to parse KVT version comment: %s"},
    {Message::InvalidOutput, "invalid-output", Severity::Warning, nullptr, "Invalid output: %s."},
    {Message::UnknownNodeToConnect, "unknown-node-to-connect", Severity::Warning, nullptr,
     "Cannot connect nonexistent node %s to %s."},
    {Message::UnknownOutput, "unknown-output", Severity::Warning, nullptr,
     "Cannot connect nonexistent output %s to %s."},
    {Message::UnknownNodeToAssign, "unknown-node-to-assign", Severity::Warning, nullptr,
     "Cannot assign nonexistent node %s to %s."},

    {Message::WrongAccess, "wrong-access", Severity::Error, nullptr,
     "expected %s @ %s but found %s"},
    {Message::InconsistentBuffer, "inconsistent-buffer", Severity::Error, nullptr,
     "inconsistent buffer"},
};

constexpr bool areInOrder() {
    for (std::uint32_t i = 0; i < std::size(rows); ++i)
        if (rows[i].message != Message(i)) return false;
    return true;
}
static_assert(std::size(rows) == messageCount, "each message has a row");
static_assert(areInOrder(), "a message is its place in the table");

// --- What a text is filled with -----------------------------------------------------------------

// The conversion that shows an argument: a text, a character, a position, a count.
template <class Argument>
constexpr std::string_view conversionOf() {
    if constexpr (std::is_same_v<Argument, const char*>) return "%s";
    if constexpr (std::is_same_v<Argument, char> || std::is_same_v<Argument, signed char>)
        return "%c";
    if constexpr (std::is_same_v<Argument, std::int32_t>) return "%d";
    if constexpr (std::is_same_v<Argument, unsigned long>) return "%lu";
    return {};
}

// Moves to what follows the format's next conversion; false when that is another one.
constexpr bool takeConversion(std::string_view& format, std::string_view wanted) {
    const auto at = format.find('%');
    if (wanted.empty() || at == std::string_view::npos) return false;
    if (format.substr(at, wanted.size()) != wanted) return false;
    format.remove_prefix(at + wanted.size());
    return true;
}

template <class... Arguments>
constexpr bool fits(std::string_view format) {
    const bool allFit = (takeConversion(format, conversionOf<Arguments>()) && ...);
    return allFit && format.find('%') == std::string_view::npos;
}

}  // namespace messages

constexpr const MessageRow& rowOf(Message message) {
    return messages::rows[static_cast<std::uint32_t>(message)];
}

// A message with its text filled in, without its frame.
struct Said {
    Message message;
    String text;
};

template <Message message, class... Arguments>
Said say(Arguments... arguments) {
    constexpr const char* format = rowOf(message).format;
    static_assert(messages::fits<Arguments...>(format));
    if constexpr (sizeof...(Arguments) == 0) {
        return {message, format};
    } else {
        return {message, String::format(format, arguments...)};
    }
}

}  // namespace ko
