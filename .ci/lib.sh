# shellcheck shell=bash
# Helpers shared by .ci/run and the steps in .ci/steps/. Source it, do not run it.
#
#   ci_log "message"              progress line on stderr, prefixed with the step name
#   ci_die "message"              log and exit 1
#   ci_package_list [tag]         the Debian packages of .ci/packages.txt, one a
#                                 line; with a tag, only the lines tagged with it
#   ci_package_installed pkg      whether a Debian package is installed
#   ci_ensure_packages pkg...     install the Debian packages that are missing
#   ci_jobs                       number of parallel build jobs to use
#   ci_preset_build preset        configure and build a CMake preset
#   ci_preset_build_and_test preset [launcher...]
#                                 the same, then its tests
#   ci_root                       absolute path of the repository

CI_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
export CI_ROOT
CI_STEP_NAME="${CI_STEP_NAME:-ci}"

ci_root() {
    printf '%s\n' "$CI_ROOT"
}

ci_log() {
    printf '[%s %s] %s\n' "$(date +%H:%M:%S)" "$CI_STEP_NAME" "$*" >&2
}

ci_die() {
    ci_log "ERROR: $*"
    exit 1
}

# Runs a command with root rights: directly as root, else through sudo.
ci_as_root() {
    if [[ "$(id -u)" -eq 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null 2>&1; then
        sudo "$@"
    else
        ci_die "need root rights for: $*"
    fi
}

# A line of .ci/packages.txt is a package name, optionally followed by a
# comment; the words of the comment are its tags ("cmake  # tickmon").
ci_package_list() {
    local tag="${1:-}"
    local line name tags
    while IFS= read -r line || [[ -n "$line" ]]; do
        name="${line%%#*}"
        name="${name//[[:space:]]/}"
        [[ -n "$name" ]] || continue
        if [[ -n "$tag" ]]; then
            [[ "$line" == *"#"* ]] || continue
            tags="${line#*#}"
            tags=" ${tags//[[:space:]]/ } "
            [[ "$tags" == *" $tag "* ]] || continue
        fi
        printf '%s\n' "$name"
    done < "$CI_ROOT/.ci/packages.txt"
}

ci_package_installed() {
    [[ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" == "installed" ]]
}

# apt-get update runs at most once per CI run, and only when something is missing.
ci_ensure_packages() {
    local missing=()
    local pkg
    for pkg in "$@"; do
        ci_package_installed "$pkg" || missing+=("$pkg")
    done
    if [[ ${#missing[@]} -eq 0 ]]; then
        return 0
    fi
    ci_log "installing missing packages: ${missing[*]}"
    if [[ -z "${CI_APT_UPDATED:-}" ]]; then
        ci_as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq
        export CI_APT_UPDATED=1
    fi
    ci_as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# Parallel build jobs: CI_JOBS if set, else the number of online cores.
ci_jobs() {
    if [[ -n "${CI_JOBS:-}" ]]; then
        printf '%s\n' "$CI_JOBS"
    else
        nproc 2>/dev/null || echo 2
    fi
}

# Configures and builds one CMake preset.
ci_preset_build() {
    local preset="$1"
    cd "$CI_ROOT" || return 1
    ci_log "configuring preset $preset"
    cmake --preset "$preset" >/dev/null
    ci_log "building preset $preset"
    cmake --build --preset "$preset" --parallel "$(ci_jobs)"
}

# Configures, builds and tests one CMake preset; the arguments after the
# preset are put in front of ctest (a launcher such as setarch).
ci_preset_build_and_test() {
    local preset="$1"
    shift
    ci_preset_build "$preset"
    ci_log "testing preset $preset"
    "$@" ctest --preset "$preset"
}
