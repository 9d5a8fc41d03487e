# Checks that CHANGELOG has a release heading for VERSION, in the form
# "## [1.2.3] - YYYY-MM-DD", and that no release heading names a later
# version than the one being built.
#
#   cmake -DCHANGELOG=CHANGELOG.md -DVERSION=1.0.0 -P CheckChangelog.cmake

cmake_minimum_required(VERSION 3.21)

file(STRINGS ${CHANGELOG} headings REGEX "^## \\[")
set(found FALSE)
foreach(heading IN LISTS headings)
    if(heading MATCHES "^## \\[Unreleased\\]$")
        continue()
    endif()
    if(NOT heading MATCHES "^## \\[([0-9]+\\.[0-9]+\\.[0-9]+)\\] - [0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]$")
        message(FATAL_ERROR "malformed release heading in ${CHANGELOG}: ${heading}")
    endif()
    set(released ${CMAKE_MATCH_1})
    if(released VERSION_EQUAL VERSION)
        set(found TRUE)
    elseif(released VERSION_GREATER VERSION)
        message(FATAL_ERROR "${CHANGELOG} describes ${released}, later than the project version ${VERSION}")
    endif()
endforeach()
if(NOT found)
    message(FATAL_ERROR "${CHANGELOG} has no release heading for the project version ${VERSION}")
endif()
