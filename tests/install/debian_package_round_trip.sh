#!/usr/bin/env bash
# Builds the Debian packages of a build directory, installs them with
# apt-get, builds and runs both examples against the installed system
# package (find_package and pkg-config), runs the monitor briefly, then
# removes and purges the packages again and checks nothing is left behind.
#
#   tests/install/debian_package_round_trip.sh BUILD_DIR
#
# Needs root (it installs into /usr) and a built BUILD_DIR. Fails when any
# package of the project is installed already.
set -euo pipefail

build_dir="$(cd "${1:?usage: $0 BUILD_DIR}" && pwd)"
packages=(libzyntickscheduler1 libzyntickscheduler-dev zynplatformhost zyntickscheduler-tools)
# The tracepoint provider is packaged when the build has it.
with_tracepoints=""
if compgen -G "$build_dir/PlatformServices/libZynTickSchedulerTracepoints.so*" >/dev/null; then
    with_tracepoints=yes
    packages+=(libzyntickscheduler-tracepoints1)
fi
work_dir="$(mktemp -d)"

log() {
    printf '[deb round trip] %s\n' "$*" >&2
}

# dpkg-query fails for packages it has never heard of: that means none.
installed_packages() {
    { dpkg-query -W -f='${Package} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null || true; } |
        awk '$2 != "not-installed" { print $1 }'
}

remove_packages() {
    local present
    present="$(installed_packages)"
    if [[ -n "$present" ]]; then
        # shellcheck disable=SC2086  # one package name a word
        DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq $present >/dev/null
    fi
}

cleanup() {
    remove_packages
    rm -rf "$work_dir"
}

if [[ -n "$(installed_packages)" ]]; then
    log "packages of the project are installed already: $(installed_packages | tr '\n' ' ')"
    exit 1
fi
trap cleanup EXIT

log "building the packages in $build_dir"
(cd "$build_dir" && cpack -G DEB >/dev/null)
debs=()
for package in "${packages[@]}"; do
    deb="$(find "$build_dir/packages" -maxdepth 1 -name "${package}_*.deb" | head -n 1)"
    [[ -n "$deb" ]] || { log "no package $package was built"; exit 1; }
    debs+=("$deb")
done

log "installing ${packages[*]}"
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${debs[@]}" >/dev/null

examples=/usr/share/doc/ZynTickScheduler/examples
log "the examples with find_package"
cmake -S "$examples" -B "$work_dir/examples-cmake" >/dev/null
cmake --build "$work_dir/examples-cmake" >/dev/null
grep -q '^ZynTickScheduler_DIR:PATH=/usr/' "$work_dir/examples-cmake/CMakeCache.txt"

log "the examples with pkg-config"
mkdir -p "$work_dir/examples-make"
make -s -C "$work_dir/examples-make" -f "$examples/Makefile" >/dev/null

for example in tick_client fast_tick_client; do
    for build in cmake make; do
        "$work_dir/examples-$build/$example" | grep -q "^$example: all checks passed$"
    done
done

log "zyn-tickmon from the tools package"
zyn-tickmon --quiet --ticks 50 >/dev/null

if [[ -n "$with_tracepoints" ]]; then
    log "the installed library opens the installed tracepoint provider"
    LD_DEBUG=files zyn-tickmon --quiet --ticks 5 2> "$work_dir/loader.txt" >/dev/null
    grep -q 'calling init: .*/libZynTickSchedulerTracepoints\.so\.1$' "$work_dir/loader.txt" ||
        { log "the installed provider was not opened"; exit 1; }
    cat > "$work_dir/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.21)
project(find_tracepoints LANGUAGES CXX)
find_package(ZynTickScheduler 1 CONFIG REQUIRED COMPONENTS tracepoints)
if(NOT TARGET ZynTickScheduler::ZynTickSchedulerTracepoints)
    message(FATAL_ERROR "no tracepoint provider target")
endif()
CMAKE
    cmake -S "$work_dir" -B "$work_dir/find-tracepoints" >/dev/null
fi

log "removing the packages"
remove_packages
for path in /usr/include/ZynTickScheduler /usr/lib/cmake/ZynTickScheduler /usr/bin/zyn-tickmon; do
    [[ ! -e "$path" ]] || { log "$path is still there after the removal"; exit 1; }
done
if ldconfig -p | grep -q 'libZyn'; then
    log "the dynamic loader still lists a library of the project"
    exit 1
fi
log "installed, used and removed all packages"
