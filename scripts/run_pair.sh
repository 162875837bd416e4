#!/bin/bash
# Runs two units on this machine until Ctrl-C: scripts/run_pair.sh PROGRAMS DIR
# PROGRAMS is the folder with zel_unit. Either unit's end ends the other.
set -euo pipefail
[ $# = 2 ] || { echo "usage: $0 PROGRAMS DIR" >&2; exit 2; }
programs=$1
root=$2
"$(dirname "$0")/new_pair.sh" "$root"
root=$(readlink -f "$root")

units=()
start() {   # start UNIT
    ZEL_LOG_FILE=/log "$programs/zel_unit" --root "$root/$1" --with-daemons &
    units+=($!)
}
end() { kill "${units[@]}" 2> /dev/null || true; }

trap end INT TERM
start a
start b
cat <<TEXT

Two units run, Studio A in $root/a and Studio B in $root/b; what they say is in the file "log" there.
The contact at pin 1 of either closes relay 6 of the other, through the network. Try, in a second terminal:
  $programs/zelctl --root $root/b watch
and in a third:
  $programs/zelctl --root $root/a press 1
  $programs/zelctl --root $root/a release 1
The grids are at http://127.0.0.2:8080/ and http://127.0.0.3:8080/. Ctrl-C ends both.

TEXT
status=0
wait -n "${units[@]}" || status=$?
end
wait
[ "$status" -gt 128 ] || exit "$status"   # ended by Ctrl-C, it is no failure
