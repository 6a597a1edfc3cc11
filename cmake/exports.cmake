# The names that programs can link with the shared library: those that the public headers declare,
# which say so themselves. What only the compiler brings along is taken out by the linker.
function(kvt_export_interface target)
    if(APPLE OR WIN32)
        return()
    endif()
    set(script ${PROJECT_SOURCE_DIR}/cmake/exports.map)
    target_link_options(${target} PRIVATE -Wl,--version-script=${script})
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${script})
endfunction()
