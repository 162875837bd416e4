#!/bin/sh
# Foreign Ember+ clients and servers against our provider and our consumer.
#   run_ember.sh BUILD_FOLDER
# Needs node and npm; the packages are installed beside the scripts at the first run. The last line is "N passed, N failed".
set -eu
build=$(cd "${1:?the build folder, e.g. build/release}" && pwd)
cd "$(dirname "$0")/ember"
if [ ! -d node_modules/emberplus-connection ] || [ ! -d node_modules/node-emberplus ]; then
    npm install --no-package-lock --no-audit --no-fund --silent >&2
fi
exec node run.js "$build/tests"
