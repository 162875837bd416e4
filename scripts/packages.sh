# Installing what is missing. Sourced by ./zel.

say() { printf '== %s\n' "$*"; }

declare -A packages=(
    [build]="g++ cmake ninja-build libjansson-dev pkg-config libmicrohttpd-dev zlib1g-dev libcrypt-dev libavahi-core-dev libsnmp-dev"
    [test]="libgtest-dev googletest iproute2 binutils clang jq snmp snmpd snmptrapd curl"
    [arm]="g++-arm-linux-gnueabihf qemu-user googletest"
    [kernel]="qemu-system-arm cpio python3"
    [coverage]="gcovr"
    [bench]="rapidjson-dev valgrind nginx-light wrk"
    [fuzz]="clang libclang-rt-14-dev"
    [lint]="clang clang-tidy cppcheck"
    [node]="nodejs npm smitools"
    [browser]="chromium fonts-dejavu-core nodejs npm iproute2"
)

is_installed() { [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# need GROUP ...: installs the packages of these groups that are missing. Nothing is asked of the network if none is.
need() {
    local missing=() group package
    for group in "$@"; do
        for package in ${packages[$group]}; do
            # A Node.js that is not Debian's does as well.
            [[ $package == @(nodejs|npm) ]] && command -v "${package/nodejs/node}" > /dev/null && continue
            is_installed "$package" || missing+=("$package")
        done
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" > build/packages.log 2>&1 ||
        { tail -n 20 build/packages.log >&2; echo "zel: could not install ${missing[*]}" >&2; return 1; }
}
