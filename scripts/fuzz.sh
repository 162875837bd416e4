#!/bin/bash
# Runs every fuzzer of a build for some seconds on a copy of its corpus: scripts/fuzz.sh BUILD SECONDS
# A fuzzer NAME has its corpus in tests/fuzz/corpus/NAME without "fuzz_". The last line counts.
set -uo pipefail
build=$1 seconds=$2 passed=0 failed=0
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for fuzzer in "$build"/fuzz/fuzz_*; do
    [ -x "$fuzzer" ] || continue
    name=$(basename "$fuzzer")
    corpus=tests/fuzz/corpus/${name#fuzz_}
    mkdir -p "$scratch/$name"
    [ ! -d "$corpus" ] || cp -r "$corpus/." "$scratch/$name/"
    if "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 -print_final_stats=0 -artifact_prefix="$scratch/" \
        "$scratch/$name" > "$scratch/$name.log" 2>&1; then
        passed=$((passed + 1))
        echo "$name: $(grep -aoE 'Done [0-9]+ runs' "$scratch/$name.log" | tail -n 1), nothing found"
    else
        failed=$((failed + 1))
        tail -n 60 "$scratch/$name.log"
        for found in "$scratch"/crash-* "$scratch"/leak-* "$scratch"/timeout-* "$scratch"/oom-*; do
            [ ! -e "$found" ] || { cp "$found" "$build/"; echo "$name: kept $build/$(basename "$found")"; }
        done
    fi
done
echo "$passed passed, $failed failed"
[ "$failed" = 0 ] && [ "$passed" -gt 0 ]
