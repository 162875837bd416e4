#!/bin/sh
# Makes the pictures of the pages in docs/pictures from a unit with the studio example: scripts/screenshots.sh [BUILD_FOLDER]
# Needs what the browser tests need; runs in a network of its own, as they do.
set -eu
top=$(CDPATH='' cd -- "$(dirname -- "$0")/.." && pwd)
build=$(cd "${1:-$top/build/release}" && pwd)
cd "$top/tests/browser"
[ -d node_modules/playwright-core ] || npm ci --no-audit --no-fund --silent
mkdir -p "$top/docs/pictures"
exec unshare -rn sh -c 'ip link set lo up && ip link set lo multicast on && exec node take_pictures.js "$@"' sh "$build" "$top"
