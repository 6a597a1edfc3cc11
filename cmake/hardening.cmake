# What makes defects hard to exploit in a program or shared library that reads documents of
# strangers: the stack and calls into the libraries are checked, the code is loaded anywhere, and
# what the loader has set up stays as it is. Each flag is taken where the compiler knows it.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)

check_pie_supported(LANGUAGES CXX)

set(hardeningFlags "")
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "KVT_KNOWS${flag}" knowsFlag)
    check_cxx_compiler_flag(${flag} ${knowsFlag})
    if(${knowsFlag})
        list(APPEND hardeningFlags ${flag})
    endif()
endforeach()

# The level that compiler and C library have. It takes optimisation, which Debug and a build without
# a type do not have.
set(fortifyLevel 3)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
    set(fortifyLevel 2)
endif()

# Nothing with KVT_HARDEN off, and nothing beside sanitizers.
function(kvt_harden target)
    if(NOT KVT_HARDEN OR KVT_SANITIZE)
        return()
    endif()
    set(fortify -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${fortifyLevel})
    set(isOptimised $<NOT:$<OR:$<CONFIG:Debug>,$<STREQUAL:$<CONFIG>,>>>)
    target_compile_options(${target} PRIVATE ${hardeningFlags} "$<${isOptimised}:${fortify}>")
    target_compile_definitions(${target} PRIVATE _GLIBCXX_ASSERTIONS)
    target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()
