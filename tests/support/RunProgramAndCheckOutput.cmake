# Runs a program and passes only when it exits with status 0 AND its standard
# output matches a regular expression. Matching the output alone would let a
# crash, a leak report or a sanitizer report after the last expected line
# pass; the exit status catches those.
#
#   cmake -DPROGRAM=path [-DARGS=a|b] [-DEMULATOR=qemu|-L|...] -DEXPECT=regex
#         -P RunProgramAndCheckOutput.cmake
#
# Lists travel with "|" between their elements; "\n" in EXPECT stands for a
# line break.

cmake_minimum_required(VERSION 3.21)

if(NOT PROGRAM OR NOT DEFINED EXPECT)
    message(FATAL_ERROR "usage: cmake -DPROGRAM=... -DEXPECT=... [-DARGS=...] [-DEMULATOR=...] -P ${CMAKE_CURRENT_LIST_FILE}")
endif()
string(REPLACE "|" ";" arguments "${ARGS}")
string(REPLACE "|" ";" emulator "${EMULATOR}")
string(REPLACE "\\n" "\n" expected "${EXPECT}")

execute_process(COMMAND ${emulator} ${PROGRAM} ${arguments}
    RESULT_VARIABLE status
    OUTPUT_VARIABLE output
    ERROR_VARIABLE errors)
# Shown in the test log either way, so a failure can be read there.
message("---- standard output of ${PROGRAM}\n${output}---- standard error\n${errors}----")

if(NOT status STREQUAL "0")
    message(FATAL_ERROR "${PROGRAM} ended with status '${status}', not 0")
endif()
if(NOT output MATCHES "${expected}")
    message(FATAL_ERROR "the standard output of ${PROGRAM} does not match:\n${expected}")
endif()
