#!/bin/sh
# Says what to try with a unit that is about to start: scripts/show_first_steps.sh ROOT
set -eu
root=$1
zelctl="build/release/bin/zelctl --root $root"
web_port=$(sed -n 's/.*"web".*"port": *\([0-9]*\).*/\1/p' "$root/etc/zel/unit.json" | head -n 1)
cat <<TEXT

A unit starts in $root. Its pins are simulated; its settings are in
  $root/etc/zel/unit.json

Open http://127.0.0.1:${web_port:-8080}/ in a browser for its routing grid and its front panel, or try, in a second terminal:
  $zelctl watch              what happens, one line per change
  $zelctl press 1            close the contact of pin 1: a handler is called, a trigger
  $zelctl release 1          fires, and a relay follows it
  $zelctl grid               inputs, outputs and their connections
  $zelctl button 1           press user button 1
  $zelctl event "PTP Sync Lost" on
  $zelctl connect "GPI 2" "Relay 3" --invert

Connections are kept: end the unit with Ctrl-C, start it again, and they are there.

TEXT
