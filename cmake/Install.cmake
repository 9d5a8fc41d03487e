# Installation, the CMake package, the pkg-config files and the Debian
# packages.
#
# Included by the top-level CMakeLists.txt after every target is defined.
#
# Install components (each one Debian package):
#   runtime      libZynTickScheduler.so.<abi> and the versioned file it names
#   development  public and binding headers, the linker name, the static
#                archive, the CMake package, zyntickscheduler.pc, the
#                integration guide, the changelog and the example sources
#   tools        the tick monitor zyn-tickmon
#   host         the reference platform for Linux hosts (ZynPlatformHost, its
#                control headers, its CMake targets, zynplatformhost.pc)

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZYN_TS_PACKAGE_NAME ZynTickScheduler)
set(ZYN_TS_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/${ZYN_TS_PACKAGE_NAME})
set(ZYN_TS_INSTALL_BINDINGS_INCLUDEDIR ${ZYN_TS_INSTALL_INCLUDEDIR}/PlatformBindings)
set(ZYN_TS_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/${ZYN_TS_PACKAGE_NAME})
set(ZYN_TS_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# --- Library and headers ----------------------------------------------------

# Installed clients include "TickScheduler.h" and the binding headers by bare
# name, as the library's own sources do in the tree.
target_include_directories(ZynTickScheduler_headers INTERFACE $<INSTALL_INTERFACE:${ZYN_TS_INSTALL_INCLUDEDIR}>)
target_include_directories(ZynTickScheduler_bindings INTERFACE
    $<INSTALL_INTERFACE:${ZYN_TS_INSTALL_BINDINGS_INCLUDEDIR}>)

install(TARGETS ZynTickScheduler ZynTickScheduler_static ZynTickScheduler_headers ZynTickScheduler_bindings
    EXPORT ZynTickSchedulerTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT runtime
        NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        COMPONENT development)

file(GLOB ZYN_TS_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/PlatformServices/TickScheduler/*.h)
file(GLOB ZYN_TS_BINDING_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/PlatformServices/PlatformBindings/*.h)
install(FILES ${ZYN_TS_PUBLIC_HEADERS} DESTINATION ${ZYN_TS_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${ZYN_TS_BINDING_HEADERS} DESTINATION ${ZYN_TS_INSTALL_BINDINGS_INCLUDEDIR} COMPONENT development)

install(EXPORT ZynTickSchedulerTargets
    NAMESPACE ${ZYN_TS_PACKAGE_NAME}::
    DESTINATION ${ZYN_TS_INSTALL_CMAKEDIR}
    COMPONENT development)

# --- The tracepoint provider ---------------------------------------------------

# A component of its own: installed beside the library, which opens it when
# present; no client links it.
if(TARGET ZynTickSchedulerTracepoints)
    install(TARGETS ZynTickSchedulerTracepoints
        EXPORT ZynTickSchedulerTracepointsTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tracepoints NAMELINK_SKIP)
    install(EXPORT ZynTickSchedulerTracepointsTargets
        NAMESPACE ${ZYN_TS_PACKAGE_NAME}::
        DESTINATION ${ZYN_TS_INSTALL_CMAKEDIR}
        COMPONENT tracepoints)
endif()

# --- The reference platform ---------------------------------------------------

if(TARGET ZynPlatformHost)
    # Its control headers sit beside the library's, so that
    # #include "PlatformHost/ModuleManagerHost.h" works through the library's
    # include directory.
    target_include_directories(ZynPlatformHost INTERFACE $<INSTALL_INTERFACE:${ZYN_TS_INSTALL_INCLUDEDIR}>)
    install(TARGETS ZynPlatformHost
        EXPORT ZynTickSchedulerHostTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/PlatformHost/include/PlatformHost
        DESTINATION ${ZYN_TS_INSTALL_INCLUDEDIR}
        COMPONENT host
        FILES_MATCHING PATTERN "*.h")
    install(EXPORT ZynTickSchedulerHostTargets
        NAMESPACE ${ZYN_TS_PACKAGE_NAME}::
        DESTINATION ${ZYN_TS_INSTALL_CMAKEDIR}
        COMPONENT host)
endif()

# --- Tools ----------------------------------------------------------------------

# Installed programs find the library relative to themselves, so an install
# under any prefix runs without LD_LIBRARY_PATH.
file(RELATIVE_PATH ZYN_TS_BIN_TO_LIB
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
foreach(tool zyn-tickmon)
    if(TARGET ${tool})
        set_target_properties(${tool} PROPERTIES INSTALL_RPATH "$ORIGIN/${ZYN_TS_BIN_TO_LIB}")
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    endif()
endforeach()

# --- CMake package ----------------------------------------------------------------

configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/ZynTickSchedulerConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ZynTickSchedulerConfig.cmake
    INSTALL_DESTINATION ${ZYN_TS_INSTALL_CMAKEDIR})
# A client built against 1.x runs with every later 1.x: the major version
# changes together with the library's ABI version.
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/ZynTickSchedulerConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ZynTickSchedulerConfig.cmake
    ${PROJECT_BINARY_DIR}/ZynTickSchedulerConfigVersion.cmake
    DESTINATION ${ZYN_TS_INSTALL_CMAKEDIR}
    COMPONENT development)

# --- pkg-config ---------------------------------------------------------------------

# The .pc files locate the prefix from their own directory, so a tree
# installed with `cmake --install --prefix DIR` or moved elsewhere stays
# usable. An absolute libdir gets an absolute prefix.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(ZYN_TS_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH ZYN_TS_PC_TO_PREFIX
        /zyn-prefix/${ZYN_TS_INSTALL_PKGCONFIGDIR} /zyn-prefix)
    string(REGEX REPLACE "/$" "" ZYN_TS_PC_TO_PREFIX "${ZYN_TS_PC_TO_PREFIX}")
    set(ZYN_TS_PC_PREFIX "\${pcfiledir}/${ZYN_TS_PC_TO_PREFIX}")
endif()
foreach(pc zyntickscheduler zynplatformhost)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/zyntickscheduler.pc
    DESTINATION ${ZYN_TS_INSTALL_PKGCONFIGDIR}
    COMPONENT development)
if(TARGET ZynPlatformHost)
    install(FILES ${PROJECT_BINARY_DIR}/zynplatformhost.pc
        DESTINATION ${ZYN_TS_INSTALL_PKGCONFIGDIR}
        COMPONENT host)
endif()

# --- Documentation and examples -------------------------------------------------------

install(FILES ${PROJECT_SOURCE_DIR}/docs/integration.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT development)
# examples/ is one standalone project (both example client modules, their
# CMakeLists.txt and Makefile), installed as a whole for clients to copy.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    COMPONENT development)

include(${PROJECT_SOURCE_DIR}/cmake/Packaging.cmake)
