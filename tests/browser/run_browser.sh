#!/bin/sh
# The unit's pages in headless Chromium against running units.
#   run_browser.sh BUILD_FOLDER [PART ...]
# Needs chromium, node and npm; the packages are installed beside the scripts at the first run. The tests run in a network of
# their own, so that nothing can leave this machine. The last line is "N passed, N failed"; status 77 if this machine cannot run
# them.
set -eu
cannot() {
    echo "browser tests: $1"
    exit 77
}
build=$(cd "${1:?the build folder, e.g. build/release}" && pwd)
shift
cd "$(dirname "$0")"
for program in chromium node npm unshare ip; do
    command -v "$program" > /dev/null || cannot "there is no $program"
done
[ -x "$build/bin/zel_unit" ] || { echo "browser tests: $build/bin/zel_unit is not built"; echo "0 passed, 1 failed"; exit 1; }
if [ ! -d node_modules/playwright-core ] || [ ! -d node_modules/axe-core ]; then
    npm ci --no-audit --no-fund --silent >&2 || cannot "the packages could not be installed"
fi
unshare -rn true 2> /dev/null || cannot "no network namespace can be made"
exec unshare -rn sh -c 'ip link set lo up && ip link set lo multicast on && exec node run.js "$@"' run.js "$build" "$@"
