# Every public header compiles when it is all that a source includes.
file(GLOB headers RELATIVE ${PROJECT_SOURCE_DIR}/include CONFIGURE_DEPENDS
     ${PROJECT_SOURCE_DIR}/include/ko/*.h)
set(headerSources "")
foreach(header IN LISTS headers)
    set(headerSource ${CMAKE_CURRENT_BINARY_DIR}/headers/${header}.cpp)
    configure_file(header.cpp.in ${headerSource} @ONLY)
    list(APPEND headerSources ${headerSource})
endforeach()
add_library(kvt-headers OBJECT ${headerSources})
target_link_libraries(kvt-headers PRIVATE kvt::kvt)
kvt_warnings(kvt-headers)
