# Runs PROGRAM and compares what it prints with the file EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE result)
file(READ ${EXPECTED} expected)
if(NOT result EQUAL 0 OR NOT printed STREQUAL expected)
    message(FATAL_ERROR "result ${result}, expected\n${expected}\nprinted\n${printed}")
endif()
