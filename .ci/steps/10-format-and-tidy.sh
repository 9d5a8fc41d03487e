#!/usr/bin/env bash
# Style gate: clang-format must leave every tracked C++ file unchanged, and
# clang-tidy must report nothing on the library sources.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
cd "$CI_ROOT"

cxx_files() {
    if git -C "$CI_ROOT" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
        git -C "$CI_ROOT" ls-files -- '*.cpp' '*.cc' '*.cxx' '*.h' '*.hpp' '*.hh'
    else
        find . -path ./build -prune -o -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.hpp' \) -print | sed 's|^\./||'
    fi
}

mapfile -t files < <(cxx_files | LC_ALL=C sort)
ci_log "clang-format --dry-run --Werror on ${#files[@]} files"
if [[ ${#files[@]} -gt 0 ]]; then
    printf '%s\0' "${files[@]}" | xargs -0 -n 50 clang-format --style=file --dry-run --Werror
fi

# clang-tidy reads the compile commands of the default build; configuring is
# enough, nothing has to be built.
ci_log "configuring preset default for compile_commands.json"
cmake --preset default >/dev/null
compile_db="$CI_ROOT/build/default"
[[ -f "$compile_db/compile_commands.json" ]] || ci_die "no compile_commands.json in $compile_db"

shopt -s nullglob
sources=("$CI_ROOT"/PlatformServices/TickScheduler/private/*.cpp "$CI_ROOT"/PlatformServices/TickScheduler/private/*/*.cpp)
ci_log "clang-tidy on ${#sources[@]} library sources ($(ci_jobs) jobs)"
# WarningsAsErrors in .clang-tidy turns any finding into a non-zero exit; the
# output of a clean file (only the count of suppressed warnings) is dropped.
tidy_one() {
    local output
    if ! output="$(clang-tidy -p "$compile_db" --quiet "$1" 2>&1)"; then
        printf '%s\n' "$output" | grep -v 'warnings generated\.$' >&2
        return 1
    fi
}
export -f tidy_one
export compile_db
if [[ ${#sources[@]} -gt 0 ]]; then
    # shellcheck disable=SC2016 # $1 is expanded by the inner shell
    printf '%s\0' "${sources[@]}" | xargs -0 -n 1 -P "$(ci_jobs)" bash -c 'tidy_one "$1"' tidy_one
fi
# Clang's thread-safety analysis over the library's and the host platform's
# sources, with the default build's flags: every mutex annotated with what
# it guards (ZynSupport/GuardedMutex.h) is checked even though that build
# uses GCC, which ignores the annotations.
ci_log "clang -Wthread-safety on the library and the host platform"
python3 - "$compile_db/compile_commands.json" "$CI_ROOT" <<'PY'
import json, shlex, subprocess, sys
database, root = sys.argv[1], sys.argv[2]
failed = False
for entry in json.load(open(database)):
    source = entry["file"]
    if not any(part in source for part in ("/PlatformServices/TickScheduler/private/", "/PlatformHost/src/")):
        continue
    words = entry["arguments"] if "arguments" in entry else shlex.split(entry["command"])
    kept, skip = [], False
    for word in words[1:]:
        if skip:
            skip = False
        elif word == "-o":
            skip = True
        elif word != "-c" and word != source:
            kept.append(word)
    result = subprocess.run(["clang++", *kept, "-fsyntax-only", "-Wthread-safety", "-Werror", source],
                            cwd=entry["directory"], capture_output=True, text=True)
    if result.returncode != 0:
        failed = True
        sys.stderr.write(result.stderr)
sys.exit(1 if failed else 0)
PY
ci_log "format and tidy clean"
