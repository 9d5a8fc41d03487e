# Builds the example project against the package installed in PREFIX, the
# way a client project would, and runs one of its programs (EXAMPLE): the
# program must report that all its checks passed.
#
#   cmake -DEXAMPLE=tick_client -DEXAMPLE_SOURCE_DIR=... -DMETHOD=find_package
#         -DWORK_DIR=... -DPREFIX=... -DLIBDIR=lib -DCXX_COMPILER=c++ [-DGENERATOR=Ninja]
#         [-DMAKE_PROGRAM=...] [-DTOOLCHAIN_FILE=...] [-DCROSSCOMPILING=ON]
#         [-DEMULATOR=a|b|c] [-DSANITIZE=address,undefined]
#         -P BuildInstalledExample.cmake
#
# METHOD: find_package (the shared library), find_package_static (the static
# archive) or pkg-config (the examples' Makefile).

cmake_minimum_required(VERSION 3.21)

foreach(required EXAMPLE EXAMPLE_SOURCE_DIR METHOD WORK_DIR PREFIX LIBDIR CXX_COMPILER)
    if(NOT DEFINED ${required} OR "${${required}}" STREQUAL "")
        message(FATAL_ERROR "${required} is not set")
    endif()
endforeach()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
string(REPLACE "|" ";" emulator "${EMULATOR}")
# The package is the only place the client may find the library: no package
# installed on the machine, no registry, no pkg-config file elsewhere.
set(packageDir ${PREFIX}/${LIBDIR}/cmake/ZynTickScheduler)
set(pkgConfigDir ${PREFIX}/${LIBDIR}/pkgconfig)

# A library built with sanitizers needs their run-time in the program too.
set(sanitizerFlags "")
if(SANITIZE)
    set(sanitizerFlags "-fsanitize=${SANITIZE} -fno-omit-frame-pointer")
endif()

function(run_step what)
    execute_process(COMMAND ${ARGN}
        WORKING_DIRECTORY ${WORK_DIR}
        RESULT_VARIABLE result
        OUTPUT_VARIABLE output
        ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${ARGN}\n${output}")
    endif()
    set(stepOutput "${output}" PARENT_SCOPE)
endfunction()

if(METHOD MATCHES "^find_package")
    set(buildDir ${WORK_DIR}/build)
    set(configureArgs -S ${EXAMPLE_SOURCE_DIR} -B ${buildDir}
        -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
        -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=OFF
        "-DCMAKE_CXX_FLAGS=${sanitizerFlags}"
        "-DCMAKE_EXE_LINKER_FLAGS=${sanitizerFlags}")
    if(GENERATOR)
        list(APPEND configureArgs -G ${GENERATOR})
    endif()
    if(MAKE_PROGRAM)
        list(APPEND configureArgs -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
    endif()
    if(TOOLCHAIN_FILE)
        list(APPEND configureArgs -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN_FILE})
    else()
        list(APPEND configureArgs -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
    endif()
    if(CROSSCOMPILING)
        # A cross toolchain confines the package search to the target's root:
        # name the package's directory itself.
        list(APPEND configureArgs -DZynTickScheduler_DIR=${packageDir})
    else()
        list(APPEND configureArgs -DCMAKE_PREFIX_PATH=${PREFIX})
    endif()
    if(METHOD STREQUAL "find_package_static")
        list(APPEND configureArgs -DTICK_CLIENTS_STATIC=ON)
    endif()
    run_step("configuring ${EXAMPLE}" ${CMAKE_COMMAND} ${configureArgs})

    file(STRINGS ${buildDir}/CMakeCache.txt foundAt REGEX "^ZynTickScheduler_DIR:")
    string(REGEX REPLACE "^[^=]*=" "" foundAt "${foundAt}")
    get_filename_component(foundAt "${foundAt}" REALPATH)
    get_filename_component(expectedAt "${packageDir}" REALPATH)
    if(NOT foundAt STREQUAL expectedAt)
        message(FATAL_ERROR "find_package used ${foundAt}, not the installed package ${expectedAt}")
    endif()

    run_step("building ${EXAMPLE}" ${CMAKE_COMMAND} --build ${buildDir} --target ${EXAMPLE})
    set(program ${buildDir}/${EXAMPLE})
elseif(METHOD STREQUAL "pkg-config")
    find_program(pkgConfig NAMES pkg-config pkgconf)
    find_program(make NAMES make gmake)
    if(NOT pkgConfig OR NOT make)
        message(FATAL_ERROR "the pkg-config build needs pkg-config and make")
    endif()
    set(ENV{PKG_CONFIG_LIBDIR} ${pkgConfigDir})
    set(ENV{PKG_CONFIG_PATH} "")
    set(ENV{PKG_CONFIG} ${pkgConfig})
    set(ENV{CXX} ${CXX_COMPILER})
    set(ENV{CXXFLAGS} "-O2 -g ${sanitizerFlags}")
    set(ENV{LDFLAGS} "${sanitizerFlags}")
    run_step("building ${EXAMPLE} with make" ${make} -f ${EXAMPLE_SOURCE_DIR}/Makefile ${EXAMPLE})
    set(program ${WORK_DIR}/${EXAMPLE})
else()
    message(FATAL_ERROR "unknown METHOD ${METHOD}")
endif()

# The program must load the installed library, not one from the build tree.
if(NOT CROSSCOMPILING AND NOT METHOD STREQUAL "find_package_static")
    find_program(ldd ldd)
    if(ldd)
        run_step("listing the libraries of ${EXAMPLE}" ${ldd} ${program})
        string(REGEX MATCH "libZynTickScheduler\\.so[^\n]*" loaded "${stepOutput}")
        get_filename_component(realPrefix "${PREFIX}" REALPATH)
        if(NOT loaded MATCHES "=> (${PREFIX}|${realPrefix})/")
            message(FATAL_ERROR "${EXAMPLE} does not load the installed library: ${loaded}")
        endif()
    endif()
endif()

run_step("running ${EXAMPLE}" ${emulator} ${program})
message("${stepOutput}")
if(NOT stepOutput MATCHES "${EXAMPLE}: all checks passed")
    message(FATAL_ERROR "${EXAMPLE} did not report that all its checks passed")
endif()
