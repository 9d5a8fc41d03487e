#!/usr/bin/env bash
# Tests of ./tickmon, the launcher that installs, configures, builds and runs
# the monitor. Each case runs the launcher in a scratch copy of the files it
# uses (itself, .ci/lib.sh, .ci/packages.txt), with stand-ins first on PATH:
#
#   dpkg-query  reports the packages listed in $scratch/missing as not installed
#   apt-get     logs its arguments; "install" takes packages off that list
#   id          "id -u" prints $scratch/uid
#   cmake       logs its arguments; configuring writes build/default/build.ninja,
#               building writes a stand-in monitor (first time only, as ninja
#               does) that prints its arguments and directory and exits with
#               $scratch/monitor-status
#
#   launcher_test.sh SOURCE_DIR CASE
#
# The stand-ins' scripts are single-quoted: they expand when they run.
# shellcheck disable=SC2016
set -euo pipefail

source_dir="$1"
case_name="$2"

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
tree="$scratch/tree"
stubs="$scratch/stubs"
mkdir -p "$tree/.ci" "$stubs" "$scratch/work"
cp "$source_dir/tickmon" "$tree/"
cp "$source_dir/.ci/lib.sh" "$source_dir/.ci/packages.txt" "$tree/.ci/"
: >"$scratch/missing"
echo 1000 >"$scratch/uid"
echo 0 >"$scratch/monitor-status"

write_stub() {
    printf '#!/usr/bin/env bash\nscratch=%q\n%s\n' "$scratch" "$2" >"$stubs/$1"
    chmod +x "$stubs/$1"
}

write_stub dpkg-query '
pkg="${!#}"
if grep -qx -- "$pkg" "$scratch/missing"; then
    echo "dpkg-query: no packages found matching $pkg" >&2
    exit 1
fi
printf installed'

write_stub apt-get '
echo "apt-get $*" >>"$scratch/apt-get.log"
if [[ " $* " == *" install "* ]]; then
    for arg in "$@"; do
        grep -vx -- "$arg" "$scratch/missing" >"$scratch/missing.new" || true
        mv "$scratch/missing.new" "$scratch/missing"
    done
    echo "Setting up the packages"
fi'

write_stub id '
if [[ "${1:-}" == -u ]]; then
    cat "$scratch/uid"
else
    exec /usr/bin/id "$@"
fi'

# The monitor that the stand-in cmake "builds".
write_stub monitor-template '
echo "monitor${*:+ $*}"
echo "in $PWD"
echo "live status" >&2
exit "$(cat "$scratch/monitor-status")"'
mv "$stubs/monitor-template" "$scratch/"

write_stub cmake '
echo "cmake $* (in $PWD)" >>"$scratch/cmake.log"
build="$PWD/build/default"
if [[ "$1" != --build ]]; then
    [[ -f "$scratch/configure-fails" ]] && { echo "CMake Error: no CLI11"; exit 1; }
    mkdir -p "$build"
    : >"$build/build.ninja"
    echo "-- Build files have been written to: $build"
    exit 0
fi
[[ -f "$scratch/build-fails" ]] && { echo "FAILED: main.cpp.o"; exit 1; }
echo "[0/2] Re-checking globbed directories..."
monitor="$build/tools/tickmon/zyn-tickmon"
if [[ -x "$monitor" ]]; then
    echo "ninja: no work to do."
    exit 0
fi
mkdir -p "$(dirname "$monitor")"
cp "$scratch/monitor-template" "$monitor"
echo "[1/1] Linking CXX executable tools/tickmon/zyn-tickmon"'

fail() {
    echo "FAIL: $*" >&2
    for file in out err apt-get.log cmake.log; do
        [[ -f "$scratch/$file" ]] && { echo "--- $file" >&2; cat "$scratch/$file" >&2; }
    done
    exit 1
}

# Runs the launcher from $scratch/work with the stand-ins; stdout and stderr
# go to $scratch/out and $scratch/err, the exit status to $status.
run_launcher() {
    status=0
    (cd "$scratch/work" && PATH="$stubs:/usr/bin:/bin" "$tree/tickmon" "$@") >"$scratch/out" 2>"$scratch/err" || status=$?
}

expect_status() {
    [[ "$status" -eq "$1" ]] || fail "exit status $status, expected $1"
}

expect_line_in() {
    grep -qxF -- "$2" "$scratch/$1" || fail "no line '$2' in $1"
}

expect_no_file() {
    [[ ! -e "$scratch/$1" ]] || fail "$1 exists: $(cat "$scratch/$1")"
}

line_count() {
    grep -c '' "$scratch/$1" || true
}

case "$case_name" in
names-missing-monitor-packages-without-apt-when-not-root)
    # libgtest-dev is missing too, but the monitor does not need it.
    printf '%s\n' libgtest-dev nlohmann-json3-dev libcli11-dev >"$scratch/missing"
    run_launcher --duration 10s
    expect_status 2
    [[ "$(line_count err)" -eq 1 ]] || fail "expected one line on stderr"
    grep -q 'apt-get install libcli11-dev nlohmann-json3-dev$' "$scratch/err" || fail "apt-get command not named"
    grep -q libgtest-dev "$scratch/err" && fail "named a package the monitor does not need"
    [[ ! -s "$scratch/out" ]] || fail "printed on stdout"
    expect_no_file apt-get.log
    expect_no_file cmake.log
    ;;
names-every-package-the-monitor-build-needs)
    grep -o '^[^ #]*' "$tree/.ci/packages.txt" | grep . >"$scratch/missing"
    run_launcher
    expect_status 2
    grep -q 'as root run: apt-get install cmake g++ libcli11-dev ninja-build nlohmann-json3-dev$' "$scratch/err" ||
        fail "wrong package list"
    ;;
as-root-installs-the-missing-packages-then-builds-and-runs)
    printf '%s\n' libgtest-dev nlohmann-json3-dev libcli11-dev >"$scratch/missing"
    echo 0 >"$scratch/uid"
    run_launcher --duration 3s
    expect_status 0
    [[ "$(line_count apt-get.log)" -eq 2 ]] || fail "expected apt-get update and one install"
    [[ "$(sed -n 1p "$scratch/apt-get.log")" == "apt-get update -qq" ]] || fail "no apt-get update first"
    [[ "$(sed -n 2p "$scratch/apt-get.log")" == *" install "*" libcli11-dev nlohmann-json3-dev" ]] ||
        fail "installed the wrong packages"
    grep -q -- '--preset default -DBUILD_TESTING=OFF' "$scratch/cmake.log" || fail "not configured without the suite"
    grep -q -- '--build --preset default --target zyn-tickmon ' "$scratch/cmake.log" || fail "monitor not built"
    expect_line_in out "monitor --duration 3s"
    ;;
with-every-package-installed-apt-is-not-called)
    run_launcher
    expect_status 0
    expect_no_file apt-get.log
    expect_line_in out "monitor"
    ;;
second-run-measures-at-once-and-prints-only-the-monitor-output)
    run_launcher --ticks 5
    expect_status 0
    grep -q 'configuring build/default' "$scratch/err" || fail "first run did not say it configures"
    expect_line_in err "[1/1] Linking CXX executable tools/tickmon/zyn-tickmon"
    rm "$scratch/cmake.log"
    run_launcher --ticks 5
    expect_status 0
    [[ "$(cat "$scratch/err")" == "live status" ]] || fail "second run printed more than the monitor's output"
    [[ "$(cat "$scratch/out")" == "monitor --ticks 5"$'\n'"in $scratch/work" ]] || fail "stdout is not the monitor's alone"
    grep -q -- '--preset default -D' "$scratch/cmake.log" && fail "second run configured again"
    [[ "$(line_count cmake.log)" -eq 1 ]] || fail "expected one up-to-date build"
    ;;
passes-arguments-directory-and-status-on)
    echo 1 >"$scratch/monitor-status"
    run_launcher --plot 'a picture.png' --json=run.json
    expect_status 1
    expect_line_in out "monitor --plot a picture.png --json=run.json"
    expect_line_in out "in $scratch/work"
    ;;
failed-build-is-shown-and-exits-3)
    : >"$scratch/build-fails"
    run_launcher
    expect_status 3
    expect_line_in err "FAILED: main.cpp.o"
    expect_line_in err "tickmon: building zyn-tickmon failed"
    ;;
failed-configure-is-shown-and-configured-again-next-time)
    : >"$scratch/configure-fails"
    run_launcher
    expect_status 3
    expect_line_in err "CMake Error: no CLI11"
    rm "$scratch/configure-fails"
    run_launcher
    expect_status 0
    [[ "$(grep -c -- '--preset default -DBUILD_TESTING=OFF' "$scratch/cmake.log")" -eq 2 ]] || fail "not configured again"
    ;;
ci-installs-every-line-including-the-tagged-ones)
    # shellcheck source=.ci/lib.sh
    source "$tree/.ci/lib.sh"
    all="$(ci_package_list | tr '\n' ' ')"
    for pkg in $(ci_package_list tickmon); do
        [[ " $all " == *" $pkg "* ]] || fail "CI's list lacks $pkg"
    done
    [[ " $all " == *" libgtest-dev "* ]] || fail "CI's list lacks an untagged package"
    [[ "$(ci_package_list | sort | uniq -d)" == "" ]] || fail "a package listed twice"
    ;;
*)
    echo "unknown case $case_name" >&2
    exit 2
    ;;
esac
echo "ok: $case_name"
