#!/bin/bash
# Static checks over our own sources: scripts/lint.sh BUILD (with its compile_commands.json)
set -euo pipefail
build=$1
cppcheck --quiet --error-exitcode=1 --inline-suppr --std=c++20 --enable=warning,performance,portability \
    --suppress=missingIncludeSystem --suppress=uninitMemberVar -Iinclude -Iplatform/include -Isrc -Iplatform src platform unit tools daemons
mapfile -t sources < <(git ls-files 'src/*.cpp' 'platform/*.cpp' 'unit/*.cpp' 'tools/*.cpp' 'daemons/*.cpp')
clang-tidy -p "$build" --quiet "${sources[@]}"
