#!/bin/sh
# Makes two units of one machine that follow each other: scripts/new_pair.sh DIR
# The contact at pin 1 of either closes relay 6 of the other. Existing units are left alone.
set -eu
[ $# = 1 ] && [ -n "$1" ] || { echo "usage: $0 DIR" >&2; exit 2; }
scripts=$(CDPATH='' cd -- "$(dirname -- "$0")" && pwd)

# follow ROOT NAME: the unit's third virtual port takes its level from the second of the unit called NAME.
follow() {
    config=$1/mnt/data/config/config.json
    sed -e "s/\"vgpo_src\": \"\"/\"vgpo_src\": \"vGPO2@$2\"/" \
        -e '/"relay_5": {/a\        "triggers": "vGPI 3",\n        "trigger_invert": "0",' "$config" > "$config.new"
    mv "$config.new" "$config"
}

[ -e "$1/a/etc/zel/unit.json" ] || {
    "$scripts/new_unit.sh" "$1/a" 9000 8080 127.0.0.2 "Studio A"
    follow "$1/a" "Studio B"
}
[ -e "$1/b/etc/zel/unit.json" ] || {
    "$scripts/new_unit.sh" "$1/b" 9000 8080 127.0.0.3 "Studio B"
    follow "$1/b" "Studio A"
}
