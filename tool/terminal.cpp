#include "terminal.h"

#include <stdio.h>  // fileno
#include <unistd.h>

#include <cstdlib>

namespace kvt {

const Palette noColours{};

const Palette terminalColours{
    "\x1b[1m",     // strong
    "\x1b[2m",     // faint
    "\x1b[1;31m",  // error
    "\x1b[1;35m",  // warning
    "\x1b[36m",    // type
    "\x1b[33m",    // link
    "\x1b[0m",     // plain
};

namespace {

std::string_view environment(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : std::string_view();
}

bool refusesColour() { return !environment("NO_COLOR").empty() || environment("TERM") == "dumb"; }

}  // namespace

const Palette& paletteFor(std::FILE* stream) {
    return !refusesColour() && isatty(fileno(stream)) ? terminalColours : noColours;
}

}  // namespace kvt
