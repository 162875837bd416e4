#!/bin/sh
# Makes a unit's folder from the studio example: scripts/new_unit.sh DIR [EMBER_PORT [WEB_PORT [ADDRESS [NAME]]]]
# An existing unit is left alone. Each unit on one machine needs ports or an address of its own, and a name of its own.
# ADDRESS is an IPv4 address of the loopback network, NAME the unit's friendly name (letters, digits, blanks, - and _).
set -eu

usage() {
    echo "usage: $0 DIR [EMBER_PORT [WEB_PORT [ADDRESS [NAME]]]]" >&2
    exit 2
}

[ $# -ge 1 ] && [ $# -le 5 ] && [ -n "$1" ] || usage
root=$1
example=$(CDPATH='' cd -- "$(dirname -- "$0")/../docs/examples/studio" && pwd)

for port in "${2:-9000}" "${3:-8080}"; do
    case $port in
        ''|*[!0-9]*) echo "$0: not a port: $port" >&2; exit 2 ;;
    esac
    if [ "${#port}" -gt 5 ] || [ "$port" -lt 1 ] || [ "$port" -gt 65535 ]; then
        echo "$0: not a port: $port" >&2
        exit 2
    fi
done

address=${4:-127.0.0.1}
case $address in
    *[!0-9.]*|*..*) echo "$0: not an address of the loopback network: $address" >&2; exit 2 ;;
    127.*.*.*) ;;
    *) echo "$0: not an address of the loopback network: $address" >&2; exit 2 ;;
esac
name=${5:-Studio 1}
case $name in
    ''|*[!A-Za-z0-9\ _-]*) echo "$0: not a unit's name: $name" >&2; exit 2 ;;
esac

if [ -e "$root/etc/zel/unit.json" ] || [ -e "$root/mnt/data/config/config.json" ]; then
    echo "$0: $root is a unit already; nothing was changed" >&2
    exit 1
fi

mkdir -p "$root/etc/zel" "$root/mnt/data/config" "$root/run/zel"
chmod 700 "$root/run/zel"
sed -e "s/\"address\": \"127.0.0.1\"/\"address\": \"$address\"/" -e "/\"friendly_name\"/s/\"Studio 1\"/\"$name\"/" \
    -e "/\"ember\"/s/\"port\": [0-9]*/\"port\": ${2:-9000}/" -e "/\"web\"/s/\"port\": [0-9]*/\"port\": ${3:-8080}/" \
    "$example/unit.json" > "$root/etc/zel/unit.json.new"
cp "$example/config.json" "$root/mnt/data/config/config.json"
# Last, because it is what makes the folder a unit.
mv "$root/etc/zel/unit.json.new" "$root/etc/zel/unit.json"
echo "made a unit in $root; start it with: zel_unit --root $root"
