#!/usr/bin/env bash
# Cross-builds the library, the reference platform and the whole test suite
# for an ARM target with Debian's cross compiler, and runs the tests under
# Debian's qemu-user.
#
#   .ci/cross-build.sh armhf|aarch64 [extra ctest arguments...]
#
# Installs the cross compiler and qemu-user when they are missing. Builds in
# build/<arch>. Real-clock timing tests skip under the emulator, which cannot
# keep a millisecond grid; every logic test runs.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

arch="${1:-}"
[[ $# -gt 0 ]] && shift
case "$arch" in
    armhf)
        triplet=arm-linux-gnueabihf
        emulator=qemu-arm
        packages=(g++-arm-linux-gnueabihf libc6-dev-armhf-cross)
        ;;
    aarch64)
        triplet=aarch64-linux-gnu
        emulator=qemu-aarch64
        packages=(g++-aarch64-linux-gnu libc6-dev-arm64-cross)
        ;;
    *)
        ci_die "usage: $(basename "$0") armhf|aarch64 [ctest arguments...]"
        ;;
esac

# GoogleTest is compiled for the target from Debian's sources in /usr/src.
ci_ensure_packages "${packages[@]}" qemu-user googletest cmake ninja-build

build_dir="$CI_ROOT/build/$arch"
ci_log "configuring $build_dir for $triplet"
cmake -S "$CI_ROOT" -B "$build_dir" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE="$CI_ROOT/cmake/toolchains/$triplet.cmake" >/dev/null

ci_log "building for $triplet"
cmake --build "$build_dir" --parallel "$(ci_jobs)"

# The toolchain's emulator command sets ZYN_TS_EMULATED as well; setting it
# here too keeps the skip reason explicit in this run's environment.
ci_log "testing under $emulator"
ZYN_TS_EMULATED="$emulator" ctest --test-dir "$build_dir" \
    --output-on-failure --no-tests=error --timeout 600 --parallel "$(ci_jobs)" "$@"
