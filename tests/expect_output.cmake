# Runs COMMAND, a list, and fails unless it ends with STATUS and prints what the file EXPECTED
# holds, on either of its outputs.
execute_process(COMMAND ${COMMAND} OUTPUT_VARIABLE output ERROR_VARIABLE output
                RESULT_VARIABLE status)
file(READ ${EXPECTED} expected)
if(NOT status STREQUAL STATUS OR NOT output STREQUAL expected)
    message("expected, with status ${STATUS}:\n${expected}")
    message("printed, with status ${status}:\n${output}")
    message(FATAL_ERROR "not what was expected")
endif()
