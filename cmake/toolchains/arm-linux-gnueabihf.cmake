# 32-bit ARM, hard-float EABI (armhf): Debian's g++-arm-linux-gnueabihf, test
# binaries run under qemu-arm.
#
#   cmake -S . -B build/armhf -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake

set(CMAKE_SYSTEM_PROCESSOR arm)
set(ZYN_TS_CROSS_TRIPLET arm-linux-gnueabihf)
set(ZYN_TS_CROSS_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
