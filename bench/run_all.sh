#!/bin/bash
# Runs the benchmarks of a release build and prints their tables: bench/run_all.sh BUILD
# Times are medians of interleaved rounds; instruction counts do not depend on the machine's load.
set -euo pipefail
build=$1
bin=$build/bench

# instructions FUNCTION COMMAND ...: what callgrind collects inside the function.
instructions() {
    local function=$1
    shift
    valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect="$function" "$@" 2>&1 >/dev/null |
        sed -n 's/.*Collected : \([0-9]*\).*/\1/p'
}

# per_turn FUNCTION COUNT COMMAND ...: the cost of one more turn, from a short and a long run.
per_turn() {
    local function=$1 few=$2 many=$(($2 * 2)) short long
    shift 2
    short=$(instructions "$function" "$@" "$few")
    long=$(instructions "$function" "$@" "$many")
    echo $(((long - short) / (many - few)))
}

"$bin/bench_press_to_relay"
library=$(per_turn '*library_turn*' 500 "$bin/bench_press_to_relay" library)
floor=$(per_turn '*floor_turn*' 500 "$bin/bench_press_to_relay" floor)
echo "press to relay | library $library instructions | bare loop $floor instructions (in user space, per edge)"

for ports in 20 100 1000; do
    echo "one event, one listener among $ports virtual ports | $(per_turn '*report_event*' 500 "$bin/bench_event_cost" "$ports") instructions"
done

for bench in "$bin"/bench_*; do
    case $(basename "$bench") in
        bench_press_to_relay|bench_event_cost) ;;
        *) "$bench" ;;
    esac
done

bench/discovery_time.sh "$build"
