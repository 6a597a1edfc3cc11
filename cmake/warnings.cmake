# Turns the warnings on for a target of our own.
function(kvt_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                                             $<$<BOOL:${KVT_WERROR}>:-Werror>)
endfunction()
