#!/bin/sh
# scripts/arm_packages.sh FOLDER PACKAGE...: unpacks the machine's own Debian release's armhf packages below FOLDER.
#
# A private apt root keeps armhf out of the machine's package database: added there, it would take the native compilers
# away. Mirrors and keys are those that the machine's apt uses. A package given as NAME/PATTERN stands for the first
# dependency of NAME that matches PATTERN (kernel packages carry their version in the name). What is already there is not
# fetched again. Exit status 77 when the packages cannot be had.
set -eu

leave_out() { echo "arm_packages: $1" >&2; exit 77; }

[ $# -ge 2 ] || { echo "usage: $0 FOLDER PACKAGE..." >&2; exit 2; }
top=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$1"
folder=$(cd "$1" && pwd)
shift
apt_root=$top/build/arm-apt

command -v apt-get >/dev/null || leave_out "needs Debian's apt-get"
mkdir -p "$apt_root/lists/partial" "$apt_root/archives/partial"
: >"$apt_root/status"

write_sources() {
    keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    options=arch=armhf
    [ ! -r "$keyring" ] || options="$options signed-by=$keyring"
    # shellcheck disable=SC2016
    apt-get indextargets --format '$(ORIGIN) $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        sed -n "s|^Debian |deb [$options] |p" | sort -u >"$apt_root/sources.list"
    [ -s "$apt_root/sources.list" ] || leave_out "the machine's apt knows no Debian mirror (apt-get update first)"
}

arm_apt() {
    tool=$1
    shift
    "$tool" -qq -o APT::Architecture=armhf -o APT::Architectures::=armhf -o Dir::State="$apt_root" \
        -o Dir::State::lists="$apt_root/lists" -o Dir::State::status="$apt_root/status" -o Dir::Cache="$apt_root" \
        -o Dir::Etc::sourcelist="$apt_root/sources.list" -o Dir::Etc::sourceparts=/dev/null -o APT::Sandbox::User= -o Acquire::Languages=none -o Acquire::Retries=2 \
        -o Acquire::http::Timeout=30 -o Acquire::https::Timeout=30 "$@"
}

update_once() {
    [ -z "${updated:-}" ] || return 0
    write_sources
    # One mirror that is behind does not matter as long as another has the packages.
    arm_apt apt-get update >&2 || echo "arm_packages: some package lists cannot be fetched, going on with the others" >&2
    updated=1
}

unpack() {
    stamp=$folder/.$(echo "$1" | tr '/^' '__')
    [ ! -e "$stamp" ] || return 0
    update_once
    name=$1
    case $1 in
    */*) name=$(arm_apt apt-cache depends "${1%%/*}" | sed -n 's/^ *Depends: //p' | grep -m 1 -e "${1#*/}") ||
        leave_out "no dependency of ${1%%/*} matches ${1#*/}" ;;
    esac
    rm -f "$apt_root/archives/$name"_*.deb
    (cd "$apt_root/archives" && arm_apt apt-get download "$name:armhf" >&2) || leave_out "the package $name cannot be fetched"
    dpkg-deb -x "$apt_root/archives/$name"_*.deb "$folder"
    rm -f "$apt_root/archives/$name"_*.deb
    : >"$stamp"
}

for package; do
    unpack "$package"
done
