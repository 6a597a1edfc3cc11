// How the program ends when memory cannot be had.
#pragma once

namespace kvt {

// Says so in one line on standard error, from memory that is there from the start, and ends the
// program with `CannotRun`. What is gathered for other streams is not written any more.
[[noreturn]] void endOutOfMemory() noexcept;

// Ends the program like that, from here on, whenever `operator new` fails or memory for an
// exception cannot be had. Streams of the standard library would only note that something failed.
void endWhenOutOfMemory() noexcept;

}  // namespace kvt
