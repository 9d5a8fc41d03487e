# zyn_ts_add_program_output_test(NAME test TARGET program EXPECT regex
#                                [ARGS arg...] [LABELS label...])
#
# A test that runs an executable target of the build and passes only when it
# exits with status 0 and its standard output matches EXPECT ("\n" stands for
# a line break). CTest's PASS_REGULAR_EXPRESSION would ignore the exit status.
# Under cross-compilation the program runs in the build's emulator.
set(ZYN_TS_RUN_AND_CHECK_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/RunProgramAndCheckOutput.cmake
    CACHE INTERNAL "The script behind zyn_ts_add_program_output_test")

function(zyn_ts_add_program_output_test)
    cmake_parse_arguments(PARSE_ARGV 0 test "" "NAME;TARGET;EXPECT" "ARGS;LABELS")
    string(REPLACE ";" "|" arguments "${test_ARGS}")
    string(REPLACE ";" "|" emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
    add_test(NAME ${test_NAME}
        COMMAND ${CMAKE_COMMAND}
            -DPROGRAM=$<TARGET_FILE:${test_TARGET}>
            -DARGS=${arguments}
            -DEMULATOR=${emulator}
            -DEXPECT=${test_EXPECT}
            -P ${ZYN_TS_RUN_AND_CHECK_SCRIPT})
    if(test_LABELS)
        set_tests_properties(${test_NAME} PROPERTIES LABELS "${test_LABELS}")
    endif()
endfunction()
