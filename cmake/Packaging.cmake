# Debian packages of the install components, built with CPack:
#
#   cmake --build BUILD && (cd BUILD && cpack -G DEB)
#   apt-get install ./BUILD/libzyntickscheduler1_1.0.0-1_amd64.deb ...
#
# One package per install component (see Install.cmake). The runtime
# package is named after the SONAME (libzyntickscheduler<abi>), so that
# libraries of two ABI versions can be installed side by side, and it carries
# a shlibs file so that packages built against it depend on it correctly.

set(ZYN_TS_PACKAGE_CONTACT "libZynTickScheduler maintainers <zyn-tick-scheduler@localhost>"
    CACHE STRING "Maintainer field of the Debian packages")
set(ZYN_TS_PACKAGE_RELEASE 1 CACHE STRING "Debian revision of the packages")

set(CPACK_PACKAGE_NAME zyntickscheduler)
set(CPACK_PACKAGE_VENDOR "libZynTickScheduler")
set(CPACK_PACKAGE_CONTACT "${ZYN_TS_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
# `cpack --config CPackSourceConfig.cmake`: the sources without build trees.
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME zyntickscheduler-${PROJECT_VERSION})
set(CPACK_SOURCE_IGNORE_FILES "/\\.git/" "/build[^/]*/" "/out/" "\\.swp$")

# Only the project's own components become packages.
set(CPACK_COMPONENTS_ALL runtime development tools host)
if(TARGET ZynTickSchedulerTracepoints)
    list(APPEND CPACK_COMPONENTS_ALL tracepoints)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ZYN_TS_PACKAGE_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SOURCE zyntickscheduler)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzyntickscheduler${ZYN_TS_ABI_VERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzyntickscheduler-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zyntickscheduler-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_HOST_PACKAGE_NAME zynplatformhost)
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TRACEPOINTS_PACKAGE_NAME libzyntickscheduler-tracepoints${ZYN_TS_ABI_VERSION})
set(CPACK_DEBIAN_TRACEPOINTS_PACKAGE_SECTION libs)

# Dependencies on system libraries come from dpkg-shlibdeps; those between the
# project's own packages from the component dependencies below. A cross build
# cannot run dpkg-shlibdeps on the target's binaries: it names the target's
# architecture and depends on the C and C++ runtimes without versions.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
    set(ZYN_TS_DEB_ARCHITECTURES "aarch64=arm64;arm=armhf;x86_64=amd64;i686=i386")
    foreach(pair IN LISTS ZYN_TS_DEB_ARCHITECTURES)
        string(REPLACE "=" ";" pair "${pair}")
        list(GET pair 0 processor)
        list(GET pair 1 debArch)
        if(CMAKE_SYSTEM_PROCESSOR STREQUAL processor)
            set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${debArch})
        endif()
    endforeach()
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    # The tools link the libraries of this build; dpkg-shlibdeps finds them
    # in the build tree.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS)
    foreach(library ZynTickScheduler ZynPlatformHost ZynTickSchedulerTracepoints)
        if(TARGET ${library})
            get_target_property(libraryDir ${library} LIBRARY_OUTPUT_DIRECTORY)
            if(NOT libraryDir)
                get_target_property(libraryDir ${library} BINARY_DIR)
            endif()
            list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${libraryDir})
        endif()
    endforeach()
endif()

include(CPack)

# Debian descriptions: the summary line is the project's description, the
# text below it says what the package holds.
cpack_add_component(runtime
    DISPLAY_NAME "Runtime library"
    DESCRIPTION "The shared library libZynTickScheduler.so.${ZYN_TS_ABI_VERSION}. It gives the modules of a radio
platform a common periodic time base: a 6 ms interval and priority scheduler
(CTickScheduler) and a 1 ms scheduler (CTickSchedulerFast), reached through
the platform's interface broker.")
cpack_add_component(development
    DISPLAY_NAME "Development files"
    DEPENDS runtime
    DESCRIPTION "Development files: public headers, platform binding headers, the static
archive, the CMake package (find_package(ZynTickScheduler)), the pkg-config
file zyntickscheduler.pc, the integration guide and two example client
modules.")
cpack_add_component(host
    DISPLAY_NAME "Reference host platform"
    DEPENDS development
    DESCRIPTION "The reference platform for Linux hosts: module manager, interface broker,
trace, list and thread utilities for running libZynTickScheduler and its
client modules on a Linux host, with the control API that runs the start-up
and shut-down phases. Provides the CMake target
ZynTickScheduler::ZynPlatformHost and zynplatformhost.pc.")
# The monitor runs the scheduler on the reference platform.
cpack_add_component(tools
    DISPLAY_NAME "Tools"
    DEPENDS runtime host
    DESCRIPTION "Tools: the tick monitor zyn-tickmon, which runs the scheduler on the
reference platform and reports how regularly the ticks arrive.")
cpack_add_component(tracepoints
    DISPLAY_NAME "LTTng tracepoint provider"
    DEPENDS runtime
    DESCRIPTION "The zyn_tick LTTng-UST tracepoint provider. With it installed, the library
connects its tracepoints (ticks, passes, handler calls, overruns, the tick
lock, handler changes and module phases) to LTTng sessions; without it they
stay dormant. Record with: lttng enable-event --userspace 'zyn_tick:*'.")
