# What the guides show is tested as it stands there. A fenced block whose first line names a file,
# as "// first.cpp" and "# ball.kvt" do, is that file; the text block after it is the output that
# the guide promises.

set(guideDir ${CMAKE_CURRENT_BINARY_DIR}/guides)

# Writes `text` to `file`, whose time changes only when its text does.
function(kvt_update_file file text)
    file(WRITE ${file}.new "${text}")
    configure_file(${file}.new ${file} COPYONLY)
endfunction()

# Writes the block of `guide` that begins with the line `mark name` to a file `name`, and the text
# block after it to `name`.expected.
function(kvt_extract guide mark name)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${guide})
    file(READ ${PROJECT_SOURCE_DIR}/${guide} text)
    string(FIND "${text}" "${mark} ${name}\n" start)
    if(start EQUAL -1)
        message(FATAL_ERROR "kvt: ${guide} has no block that begins \"${mark} ${name}\"")
    endif()
    string(SUBSTRING "${text}" ${start} -1 text)
    string(FIND "${text}" "```" end)
    string(SUBSTRING "${text}" 0 ${end} block)
    kvt_update_file(${guideDir}/${name} "${block}")
    string(SUBSTRING "${text}" ${end} -1 text)
    if(text MATCHES "\n```text\n([^`]*)```")
        kvt_update_file(${guideDir}/${name}.expected "${CMAKE_MATCH_1}")
    endif()
endfunction()

# Adds a test that `command` prints what was promised for the file `name`, and ends with `status`.
function(kvt_promise test name status)
    add_test(NAME ${test}
             COMMAND ${CMAKE_COMMAND} -D "COMMAND=${ARGN}" -D EXPECTED=${guideDir}/${name}.expected
                     -D STATUS=${status} -P ${CMAKE_CURRENT_SOURCE_DIR}/expect_output.cmake
             WORKING_DIRECTORY ${guideDir})
endfunction()

# Builds `program`.cpp of `guide` and tests that, given the arguments that follow, it prints what
# the guide promises.
function(kvt_guide_program guide program)
    kvt_extract(${guide} "//" ${program}.cpp)
    add_executable(guide-${program} ${guideDir}/${program}.cpp)
    target_link_libraries(guide-${program} PRIVATE kvt::kvt)
    kvt_warnings(guide-${program})
    kvt_promise(guide.${program} ${program}.cpp 0 $<TARGET_FILE:guide-${program}> ${ARGN})
endfunction()

kvt_extract(README.md "#" ball.kvt)
kvt_guide_program(README.md first)
kvt_extract(README.md "#" mistakes.kvt)
kvt_promise(guide.mistakes mistakes.kvt 1 $<TARGET_FILE:kvt-tool> check mistakes.kvt)

kvt_extract(docs/embedding.md "#" pyramid.kvt)
kvt_guide_program(docs/embedding.md embedding pyramid.kvt)
kvt_guide_program(docs/embedding.md building)
