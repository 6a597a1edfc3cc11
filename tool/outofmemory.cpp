#include "outofmemory.h"

#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>

#include "commands.h"

namespace kvt {

namespace {

constexpr std::string_view line = "kvt: error: out of memory\n";

// More than an exception takes.
constexpr unsigned long sizeOfAnException = 512;

bool canThrow() noexcept {
    void* volatile const memory = std::malloc(sizeOfAnException);  // or it may be optimised away
    std::free(memory);
    return memory != nullptr;
}

bool isThrownForMemory() noexcept {
    if (!std::current_exception()) return false;
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return true;
    } catch (...) {
        return false;
    }
}

// An exception that cannot be made ends here, and one that leaves what may not throw. Anything else
// is a defect, which a dump of the process tells best.
[[noreturn]] void terminate() noexcept {
    if (!canThrow() || isThrownForMemory()) endOutOfMemory();
    std::abort();
}

}  // namespace

void endOutOfMemory() noexcept {
    // The exit status tells also when the line cannot be written.
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
    ::_exit(CannotRun);
}

void endWhenOutOfMemory() noexcept {
    std::set_new_handler(endOutOfMemory);
    std::set_terminate(terminate);
}

}  // namespace kvt
