#!/bin/bash
# From the moment a virtual port is made an output on one unit until another unit lists it, and from its end until it is gone there,
# on a loopback network of its own: bench/discovery_time.sh BUILD
# Most of it is waiting that multicast DNS asks for: 0.75 s of asking whether the name is free, and 1 s of grace for what goes.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
bin=$(cd "$1/bin" && pwd)
rounds=10

if [ "${2:-}" != inside ]; then
    unshare -rn true 2> /dev/null || { echo "announced to listed | left out: no network namespace here"; exit 0; }
    exec unshare -rn "$0" "$1" inside
fi
ip link set lo up
root=$(mktemp -d)
units=()
finish() {
    kill "${units[@]}" 2> /dev/null || true
    wait
    rm -rf "$root"
}
trap finish EXIT
"$here/scripts/new_pair.sh" "$root" > /dev/null
for unit in a b; do
    ZEL_LOG_LEVEL=error "$bin/zel_unit" --root "$root/$unit" --with-daemons > "$root/$unit.log" 2>&1 &
    units+=($!)
done

now_ms() { echo $((${EPOCHREALTIME/./} / 1000)); }
is_listed() { "$bin/zelctl" --root "$root/b" --json grid 2> /dev/null | grep -q '"vGPO4@Studio A"'; }
# until CONDITION ...: the milliseconds until it holds; 20 seconds at most.
until_holds() {
    local begin
    begin=$(now_ms)
    until "$@"; do
        [ $(($(now_ms) - begin)) -lt 20000 ] || { echo "the benchmark failed: waited in vain for $*" >&2; exit 1; }
        sleep 0.01
    done
    echo $(($(now_ms) - begin))
}
is_not_listed() { ! is_listed; }
answers() { "$bin/zelctl" --root "$root/$1" unit > /dev/null 2>&1; }
until_holds answers a > /dev/null
until_holds answers b > /dev/null

listed=() gone=()
for ((i = 0; i < rounds; ++i)); do
    "$bin/zelctl" --root "$root/a" set-port "Virtual Port 4" output > /dev/null
    listed+=("$(until_holds is_listed)")
    "$bin/zelctl" --root "$root/a" set-port "vGPO 4" disabled > /dev/null
    gone+=("$(until_holds is_not_listed)")
done
median() { printf '%s\n' "$@" | sort -n | sed -n "$(($# / 2 + 1))p"; }
most() { printf '%s\n' "$@" | sort -n | tail -n 1; }
echo "announced to listed | median $(median "${listed[@]}") ms, at most $(most "${listed[@]}") ms | ended to gone | median $(median "${gone[@]}") ms, at most $(most "${gone[@]}") ms ($rounds rounds)"
