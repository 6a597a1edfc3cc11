// Loaded into the tool before the C library. The environment tells what to do. KVT_FAIL_FROM=N:
// once `main` has begun, all allocations of the process fail but the first N; with KVT_FAIL_ONCE
// only the next one does. KVT_NO_RESERVE: before `main`, what is as large as the memory fails that
// the C++ runtime sets aside for exceptions. KVT_MAIN_BEGINS=NUMBER: a byte goes to this descriptor
// when `main` begins.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name):
// these are the names of the C library, whose parameters have reserved ones
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

using Main = int(int, char**, char**);
using Start = int(Main*, int, char**, void (*)(), void (*)(), void (*)(), void*);

Main* mainOfProgram = nullptr;
bool hasBegun = false;
bool isCounting = false;
bool failsOnce = false;
unsigned long allocationsLeft = 0;

constexpr std::size_t leastReserve = 60'000;

bool failsBeforeMain(std::size_t size) {
    return !hasBegun && size >= leastReserve && std::getenv("KVT_NO_RESERVE");
}

bool fails(std::size_t size) {
    if (failsBeforeMain(size)) return true;
    if (!isCounting) return false;
    if (allocationsLeft == 0) {
        errno = ENOMEM;
        isCounting = !failsOnce;
        return true;
    }
    --allocationsLeft;
    return false;
}

void tellThatMainBegins() {
    const char* const descriptor = std::getenv("KVT_MAIN_BEGINS");
    if (!descriptor) return;
    const int number = std::atoi(descriptor);
    if (write(number, "!", 1) == 1) close(number);
}

int countedMain(int argc, char** argv, char** environment) {
    hasBegun = true;
    tellThatMainBegins();
    if (const char* const from = std::getenv("KVT_FAIL_FROM")) {
        allocationsLeft = std::strtoul(from, nullptr, 10);
        isCounting = true;
        failsOnce = std::getenv("KVT_FAIL_ONCE") != nullptr;
    }
    const int status = mainOfProgram(argc, argv, environment);
    isCounting = false;
    return status;
}

}  // namespace

extern "C" {

int __libc_start_main(Main* program, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*loaderFini)(), void* stackEnd) {
    mainOfProgram = program;
    auto* const start = reinterpret_cast<Start*>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return start(countedMain, argc, argv, init, fini, loaderFini, stackEnd);
}

void* malloc(std::size_t size) noexcept { return fails(size) ? nullptr : __libc_malloc(size); }

void* calloc(std::size_t count, std::size_t size) noexcept {
    return fails(count * size) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept {
    return fails(size) ? nullptr : __libc_realloc(memory, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return fails(size) ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
    if (fails(size)) return ENOMEM;
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
