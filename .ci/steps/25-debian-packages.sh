#!/usr/bin/env bash
# The Debian packages of the default build: built with CPack, installed with
# apt-get, both examples built against them, the monitor run, then purged
# and checked to leave nothing behind. Runs after the default step, whose
# build it packages; it installs into /usr, so it needs root.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
cd "$CI_ROOT" || exit 1

# The test is off in a plain build because it changes the machine; turn it
# off again afterwards so a later `ctest --preset default` does not install.
restore_option() {
    cmake --preset default -DZYN_TS_TEST_DEBIAN_PACKAGES=OFF >/dev/null
}
trap restore_option EXIT

ci_log "configuring preset default with the Debian package test"
cmake --preset default -DZYN_TS_TEST_DEBIAN_PACKAGES=ON >/dev/null
ci_log "building preset default"
cmake --build --preset default --parallel "$(ci_jobs)"
ci_log "installing, using and purging the Debian packages"
ci_as_root ctest --preset default -L '^deb$'
