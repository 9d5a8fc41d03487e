# Shared part of the cross toolchain files for Debian's multiarch cross
# compilers. The including file sets CMAKE_SYSTEM_PROCESSOR,
# ZYN_TS_CROSS_TRIPLET (for example arm-linux-gnueabihf) and
# ZYN_TS_CROSS_QEMU (the qemu-user program that runs the target's binaries).
#
# Debian installs the target's C library and libstdc++ under /usr/<triplet>;
# the cross compiler finds them there by itself, so no sysroot is set. The
# find-root settings keep CMake from ever picking up a host library, header
# or CMake package: those are searched for under /usr/<triplet> only, while
# programs (code generators, the emulator) come from the host.

set(CMAKE_SYSTEM_NAME Linux)

set(CMAKE_C_COMPILER ${ZYN_TS_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ZYN_TS_CROSS_TRIPLET}-g++)

set(ZYN_TS_CROSS_PREFIX /usr/${ZYN_TS_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH ${ZYN_TS_CROSS_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Header-only packages (the tools' CLI11 and nlohmann-json) are the same for
# every architecture: Debian installs them once, their CMake configuration
# under /usr/share/cmake and their headers under /usr/include, which the cross
# compiler searches last on its own. The find-root settings above hide that
# configuration from the target build, so each such package is pointed at by
# name; no other host package becomes visible.
foreach(zyn_ts_header_only_package CLI11 nlohmann_json)
    if(EXISTS /usr/share/cmake/${zyn_ts_header_only_package})
        set(${zyn_ts_header_only_package}_DIR /usr/share/cmake/${zyn_ts_header_only_package}
            CACHE PATH "Architecture-independent header-only package")
    endif()
endforeach()

# Target binaries (the tests, and gtest_discover_tests listing them at build
# time) run on the host under qemu-user. -L points the emulator at the
# target's dynamic loader and libraries; QEMU_LD_PREFIX does the same for a
# target program that a test starts under ZYN_TS_CROSS_QEMU_PROGRAM itself
# (the host kernel cannot start a target binary directly). ZYN_TS_EMULATED
# tells the tests that real-clock timing bounds cannot hold, so timing tests
# skip with that reason whoever runs ctest in this build directory.
find_program(ZYN_TS_CROSS_QEMU_PROGRAM ${ZYN_TS_CROSS_QEMU} NO_CMAKE_FIND_ROOT_PATH)
if(NOT ZYN_TS_CROSS_QEMU_PROGRAM)
    # Building still works; running the tests needs Debian's qemu-user.
    set(ZYN_TS_CROSS_QEMU_PROGRAM ${ZYN_TS_CROSS_QEMU})
endif()
find_program(ZYN_TS_ENV_PROGRAM env NO_CMAKE_FIND_ROOT_PATH)
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${ZYN_TS_ENV_PROGRAM} ZYN_TS_EMULATED=${ZYN_TS_CROSS_QEMU} QEMU_LD_PREFIX=${ZYN_TS_CROSS_PREFIX}
    ${ZYN_TS_CROSS_QEMU_PROGRAM} -L ${ZYN_TS_CROSS_PREFIX})
