# The API reference, generated with Doxygen from the public headers and the
# platform binding headers, with the integration guide as its main page.
#
#   cmake --build BUILD --target api-reference   # writes BUILD/docs/api/html
#
# The test ApiReferenceBuildsWithoutWarnings (label docs) generates it too;
# the configuration treats every Doxygen warning, an undocumented public
# declaration among them, as an error.

find_program(ZYN_TS_DOXYGEN doxygen DOC "Doxygen, for the API reference")

set(ZYN_TS_API_REFERENCE_DIR ${PROJECT_BINARY_DIR}/docs/api)
set(ZYN_TS_DOXYFILE ${PROJECT_BINARY_DIR}/docs/Doxyfile)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${ZYN_TS_DOXYFILE} @ONLY)

if(ZYN_TS_DOXYGEN)
    add_custom_target(api-reference
        COMMAND ${ZYN_TS_DOXYGEN} ${ZYN_TS_DOXYFILE}
        WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/docs
        COMMENT "Generating the API reference in ${ZYN_TS_API_REFERENCE_DIR}/html"
        VERBATIM)
endif()
