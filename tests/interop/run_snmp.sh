#!/bin/bash
# Our MIB module under a strict checker, and our agent with a foreign manager.
#   run_snmp.sh BUILD_FOLDER
# Needs node, npm and smilint; the package is installed below the build folder at the first run. The last line is
# "N passed, N failed".
set -euo pipefail
build=$(cd "${1:?the build folder, e.g. build/release}" && pwd)
top=$(cd "$(dirname "$0")/../.." && pwd)
peers=$build/snmp-interop
mkdir -p "$peers"
cp "$top/tests/interop/snmp/package.json" "$peers/"
[ -d "$peers/node_modules/net-snmp" ] || (cd "$peers" && npm install --no-package-lock --no-audit --no-fund --silent >&2)

# smilint's status says nothing; silence does. A wrong module first, so that silence means something.
lint() { SMIPATH=$peers/node_modules/net-snmp/lib/mibs:$build/mibs smilint -l 6 -s "$1" 2>&1; }
passed=0 failed=0
check() { if [ "$2" = 0 ]; then passed=$((passed + 1)); echo "ok: $1"; else failed=$((failed + 1)); echo "FAILED: $1"; fi; }
scratch=$(mktemp -d)
pids=()
end() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" || true; done
    rm -rf "$scratch"
}
trap end EXIT
sed 's/SYNTAX      ZelState/SYNTAX      ZelStat/' "$build/mibs/ZEL-GPIO-MIB.txt" > "$scratch/ZEL-GPIO-MIB.txt"
[ -n "$(lint "$scratch/ZEL-GPIO-MIB.txt")" ] && wrong=0 || wrong=1
check "the checker finds mistakes" $wrong
found=$(lint "$build/mibs/ZEL-GPIO-MIB.txt")
[ -z "$found" ] && clean=0 || { clean=1; echo "$found"; }
check "the MIB module is clean at the strictest level" $clean

# A unit of this run's own on an address of its own.
address=127.$((RANDOM % 200 + 20)).$((RANDOM % 250 + 1)).$((RANDOM % 250 + 1))
root=$scratch/studio
"$top/scripts/new_unit.sh" "$root" > /dev/null
node -e '
    const fs = require("fs"), [file, address] = process.argv.slice(1), unit = JSON.parse(fs.readFileSync(file));
    unit.servers = { ...unit.servers, ember: { address }, web: { address } };
    unit.snmp_agent = { address, port: 1161, trap_sinks: [{ address, port: 1162 }] };
    fs.writeFileSync(file, JSON.stringify(unit));' "$root/etc/zel/unit.json" "$address"
mkdir -p "$root/etc/zel/snmp"
(umask 077; cat > "$root/etc/zel/snmp/zel_snmpd.conf" <<'TEXT'
rocommunity public 127.0.0.0/8
createUser operator SHA-256 "operator pass" AES "private pass"
rwuser operator priv
TEXT
)
for program in zel_unit zel_snmpd; do
    "$build/bin/$program" --root "$root" 2> "$scratch/$program.log" &
    pids+=($!)
done
# Everything is known when the log says so.
for _ in $(seq 100); do
    grep -q 'Everything about the unit is known' "$scratch/zel_snmpd.log" && break
    sleep 0.1
done
manager=$top/tests/interop/snmp/manager.js
summary=$(NODE_PATH=$peers/node_modules node "$manager" "$address" "$build/bin/zelctl" "$root" 2>&1) || true
echo "$summary" | head -n -1
if [[ $(tail -n 1 <<< "$summary") =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
    passed=$((passed + BASH_REMATCH[1])) failed=$((failed + BASH_REMATCH[2]))
else
    tail -n 5 <<< "$summary"; failed=$((failed + 1))
fi
echo "$passed passed, $failed failed"
[ "$failed" = 0 ] && [ "$passed" -gt 0 ]
