# Installs the build BUILD_DIR into the empty prefix PREFIX, one install
# component at a time, and checks the result: the files a client needs are
# there, nothing private is, and the package version file accepts exactly
# the compatible versions.
#
#   cmake -DSOURCE_DIR=... -DBUILD_DIR=... -DPREFIX=... -DPROJECT_VERSION=1.0.0 -DABI_VERSION=1
#         -DLIBDIR=lib -DINCLUDEDIR=include -DBINDIR=bin -DWITH_TOOLS=1
#         [-DEMULATOR=a|b|c] -P InstallIntoPrefix.cmake

cmake_minimum_required(VERSION 3.21)

foreach(required SOURCE_DIR BUILD_DIR PREFIX PROJECT_VERSION ABI_VERSION LIBDIR INCLUDEDIR BINDIR)
    if(NOT DEFINED ${required} OR "${${required}}" STREQUAL "")
        message(FATAL_ERROR "${required} is not set")
    endif()
endforeach()

file(REMOVE_RECURSE ${PREFIX})

set(components runtime development host)
if(WITH_TOOLS)
    list(APPEND components tools)
endif()
foreach(component IN LISTS components)
    execute_process(
        COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX} --component ${component}
        RESULT_VARIABLE result
        OUTPUT_VARIABLE output
        ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "installing component ${component} failed (${result}):\n${output}")
    endif()
endforeach()

set(failures "")
# expect(<what> <condition>...): records <what> when the condition is false.
macro(expect what)
    if(NOT (${ARGN}))
        string(APPEND failures "  ${what}\n")
    endif()
endmacro()

set(include ${PREFIX}/${INCLUDEDIR}/ZynTickScheduler)
set(lib ${PREFIX}/${LIBDIR})
set(cmakeDir ${lib}/cmake/ZynTickScheduler)

foreach(header TickScheduler.h CTickScheduler.h CTickSchedulerFast.h ITickScheduler.h ITickSchedulerFast.h
        TickResultCodes.h STickHandler.h)
    expect("public header ${header}" EXISTS ${include}/${header})
endforeach()
foreach(header CModuleManager.h InterfaceBroker.h KivTrace.h CList.h ThreadUtilities.h)
    expect("binding header PlatformBindings/${header}" EXISTS ${include}/PlatformBindings/${header})
endforeach()
expect("host control header PlatformHost/ModuleManagerHost.h" EXISTS ${include}/PlatformHost/ModuleManagerHost.h)
# The library's private headers stay in the source tree.
file(GLOB_RECURSE privateHeaderPaths ${SOURCE_DIR}/PlatformServices/TickScheduler/private/*.h)
file(GLOB_RECURSE installedHeaders ${PREFIX}/*.h)
set(privateHeaders "")
foreach(path IN LISTS privateHeaderPaths)
    get_filename_component(name ${path} NAME)
    foreach(installed IN LISTS installedHeaders)
        get_filename_component(installedName ${installed} NAME)
        if(installedName STREQUAL name)
            list(APPEND privateHeaders ${installed})
        endif()
    endforeach()
endforeach()
list(LENGTH privateHeaders privateHeaderCount)
expect("no private header installed (found: ${privateHeaders})" privateHeaderCount EQUAL 0)

# The SONAME carries the ABI version, the file name the full version.
expect("libZynTickScheduler.so.${PROJECT_VERSION}" EXISTS ${lib}/libZynTickScheduler.so.${PROJECT_VERSION})
expect("libZynTickScheduler.so.${ABI_VERSION} -> the library" IS_SYMLINK ${lib}/libZynTickScheduler.so.${ABI_VERSION})
expect("linker name libZynTickScheduler.so" IS_SYMLINK ${lib}/libZynTickScheduler.so)
expect("static archive" EXISTS ${lib}/libZynTickScheduler_static.a)
expect("CMake package" EXISTS ${cmakeDir}/ZynTickSchedulerConfig.cmake)
expect("CMake targets of the host platform" EXISTS ${cmakeDir}/ZynTickSchedulerHostTargets.cmake)
# Every installed target asks its users for C++17, and none points into the
# library's private sources.
foreach(targets ZynTickSchedulerTargets ZynTickSchedulerHostTargets)
    set(targetsFile ${cmakeDir}/${targets}.cmake)
    if(EXISTS ${targetsFile})
        file(STRINGS ${targetsFile} declaredTargets REGEX "^add_library\\(")
        file(STRINGS ${targetsFile} cxx17Targets REGEX "INTERFACE_COMPILE_FEATURES \"cxx_std_17\"")
        list(LENGTH declaredTargets declaredCount)
        list(LENGTH cxx17Targets cxx17Count)
        expect("cxx_std_17 on each of the ${declaredCount} targets of ${targets}.cmake (${cxx17Count} have it)"
            cxx17Count EQUAL declaredCount)
        file(STRINGS ${targetsFile} privatePaths REGEX "TickScheduler/private")
        list(LENGTH privatePaths privatePathCount)
        expect("no private directory in ${targets}.cmake (${privatePaths})" privatePathCount EQUAL 0)
    endif()
endforeach()
expect("zyntickscheduler.pc" EXISTS ${lib}/pkgconfig/zyntickscheduler.pc)
expect("zynplatformhost.pc" EXISTS ${lib}/pkgconfig/zynplatformhost.pc)
if(WITH_TOOLS)
    expect("the monitor zyn-tickmon" EXISTS ${PREFIX}/${BINDIR}/zyn-tickmon)
    # It finds the installed libraries by itself, relative to its own place.
    string(REPLACE "|" ";" emulator "${EMULATOR}")
    execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH
            ${emulator} ${PREFIX}/${BINDIR}/zyn-tickmon --help
        RESULT_VARIABLE result
        OUTPUT_VARIABLE output
        ERROR_VARIABLE output)
    expect("an installed zyn-tickmon that runs (${result}: ${output})" result EQUAL 0)
endif()

# find_package(ZynTickScheduler <version>) accepts 1.x from 1.0 up, refuses
# other major versions and newer minor versions.
macro(expect_version requested compatible)
    set(PACKAGE_FIND_VERSION ${requested})
    string(REPLACE "." ";" parts "${requested}")
    list(LENGTH parts count)
    list(GET parts 0 PACKAGE_FIND_VERSION_MAJOR)
    set(PACKAGE_FIND_VERSION_MINOR 0)
    if(count GREATER 1)
        list(GET parts 1 PACKAGE_FIND_VERSION_MINOR)
    endif()
    set(PACKAGE_FIND_VERSION_PATCH 0)
    set(PACKAGE_FIND_VERSION_COUNT ${count})
    unset(PACKAGE_VERSION_COMPATIBLE)
    include(${cmakeDir}/ZynTickSchedulerConfigVersion.cmake)
    if(${compatible})
        expect("version ${requested} accepted" PACKAGE_VERSION_COMPATIBLE)
    else()
        expect("version ${requested} refused" NOT PACKAGE_VERSION_COMPATIBLE)
    endif()
endmacro()
if(EXISTS ${cmakeDir}/ZynTickSchedulerConfigVersion.cmake)
    string(REGEX MATCH "^[0-9]+" major "${PROJECT_VERSION}")
    math(EXPR nextMajor "${major} + 1")
    expect_version(${major} TRUE)
    expect_version(${PROJECT_VERSION} TRUE)
    expect_version(${nextMajor} FALSE)
    expect_version(${major}.999 FALSE)
    if(major GREATER 0)
        math(EXPR previousMajor "${major} - 1")
        expect_version(${previousMajor}.0 FALSE)
    endif()
else()
    expect("ZynTickSchedulerConfigVersion.cmake" FALSE)
endif()

if(failures)
    message(FATAL_ERROR "the install into ${PREFIX} lacks:\n${failures}")
endif()
message(STATUS "installed components ${components} into ${PREFIX}")
