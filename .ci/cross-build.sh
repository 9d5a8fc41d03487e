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
        emulator=qemu-arm
        packages=(g++-arm-linux-gnueabihf libc6-dev-armhf-cross)
        ;;
    aarch64)
        emulator=qemu-aarch64
        packages=(g++-aarch64-linux-gnu libc6-dev-arm64-cross)
        ;;
    *)
        ci_die "usage: $(basename "$0") armhf|aarch64 [ctest arguments...]"
        ;;
esac

# GoogleTest is compiled for the target from Debian's sources in /usr/src.
ci_ensure_packages "${packages[@]}" qemu-user googletest cmake ninja-build

# Presets armhf and aarch64 (CMakePresets.json) name the toolchain file and
# the build directory build/<arch>; their test presets set the emulator in
# ZYN_TS_EMULATED and the longer timeout that emulated tests need.
ci_preset_build "$arch"
ci_log "testing under $emulator"
ctest --preset "$arch" --parallel "$(ci_jobs)" "$@"
