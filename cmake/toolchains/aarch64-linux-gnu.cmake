# 64-bit ARM (arm64): Debian's g++-aarch64-linux-gnu, test binaries run under
# qemu-aarch64.
#
#   cmake -S . -B build/aarch64 -G Ninja \
#         -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake

set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ZYN_TS_CROSS_TRIPLET aarch64-linux-gnu)
set(ZYN_TS_CROSS_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
