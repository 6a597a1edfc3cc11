// Colour, where a person looks on.
#pragma once

#include <cstdio>
#include <string_view>

namespace kvt {

// What to write before a stretch of text to set it off, and after it to return to plain text. All
// empty without colour.
struct Palette {
    std::string_view strong;
    std::string_view faint;
    std::string_view error;
    std::string_view warning;
    std::string_view type;
    std::string_view link;
    std::string_view plain;
};

extern const Palette noColours;
extern const Palette terminalColours;

// Colours only for a terminal, and only where the environment does not refuse them (NO_COLOR,
// TERM=dumb).
const Palette& paletteFor(std::FILE* stream);

}  // namespace kvt
