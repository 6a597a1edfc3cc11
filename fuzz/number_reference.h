// Numbers as the format defines them, read with 128-bit integers and the C library: plain, and
// independent of the library's own reading.
#pragma once

#include <optional>
#include <string_view>

namespace kvt::fuzz {

// Without the blanks around it.
std::string_view trimmed(std::string_view text);

std::optional<bool> referenceBool(std::string_view text);
std::optional<float> referenceFloat(std::string_view text);
std::optional<double> referenceDouble(std::string_view text);

// The value in [least, largest], which fit a long or an unsigned long; base 0 is decimal, or
// hexadecimal after "0x".
__extension__ using Wide = __int128;
std::optional<Wide> referenceInteger(std::string_view text, int base, Wide least, Wide largest);

}  // namespace kvt::fuzz
