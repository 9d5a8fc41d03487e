# Generates the API reference and checks it: Doxygen must succeed without any
# warning, and the reference must document the exported functions of both
# modules and the interface objects' slots.
#
#   cmake -DDOXYGEN=... -DDOXYFILE=... -DOUTPUT_DIR=... -P GenerateApiReference.cmake

cmake_minimum_required(VERSION 3.21)

if(NOT DOXYGEN OR NOT EXISTS "${DOXYGEN}")
    message(FATAL_ERROR "doxygen was not found when the build was configured: install it "
                        "(Debian package doxygen) and configure again")
endif()

file(REMOVE_RECURSE ${OUTPUT_DIR})
execute_process(COMMAND ${DOXYGEN} ${DOXYFILE}
    RESULT_VARIABLE result
    OUTPUT_VARIABLE output
    ERROR_VARIABLE errors)
if(NOT result EQUAL 0 OR NOT errors STREQUAL "")
    message(FATAL_ERROR "doxygen failed (${result}):\n${errors}${output}")
endif()

set(html ${OUTPUT_DIR}/html)
set(missing "")
# page, then the names it must document
set(expectations
    "CTickScheduler_8h.html|CTickScheduler_Initialize|CTickScheduler_RegisterTickHandler|CTickScheduler_WaitForTickAndLock|CTickScheduler_DisableTickGroup"
    "CTickSchedulerFast_8h.html|CTickSchedulerFast_Initialize|CTickSchedulerFast_Uninitialize"
    "classITickScheduler.html|RegisterTickHandler|DisableTickGroup"
    "classITickSchedulerFast.html|UnregisterTickHandlerFromOnTick|DisableTickGroup"
    "classTickOscillator.html|registerOnTick|tickCompensation6MS"
    "CModuleManager_8h.html|CModuleManager_RegisterCallback"
    "index.html|Picking the oscillator priority")
foreach(expectation IN LISTS expectations)
    string(REPLACE "|" ";" names "${expectation}")
    list(POP_FRONT names page)
    if(NOT EXISTS ${html}/${page})
        string(APPEND missing "  ${page}\n")
        continue()
    endif()
    file(READ ${html}/${page} content)
    foreach(name IN LISTS names)
        string(FIND "${content}" "${name}" at)
        if(at EQUAL -1)
            string(APPEND missing "  ${name} in ${page}\n")
        endif()
    endforeach()
endforeach()
if(missing)
    message(FATAL_ERROR "the API reference in ${html} lacks:\n${missing}")
endif()
message(STATUS "API reference written to ${html}")
