#!/bin/sh
# What the delivered library promises to the programs that load it.
#   test_abi.sh exports LIBRARY LIST        exactly the listed symbols are exported
#   test_abi.sh imports LIBRARY LIST        of the platform exactly the listed functions are called, all through dynamic symbols
#   test_abi.sh needed LIBRARY              the six support libraries and the standard runtime, nothing else
#   test_abi.sh soname LIBRARY NAME
#   test_abi.sh header HEADER CC CXX DIR... the header compiles alone as C11 and as C++20
set -eu

fail() { echo "test_abi.sh: $*" >&2; exit 1; }

exports() {
    nm -D --defined-only "$1" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort | diff -u "$2" -
}

imports() {
    nm -D --undefined-only "$1" | awk '{ sub(/@.*/, "", $NF); print $NF }' | grep -E '^(zel_|log_message$)' |
        LC_ALL=C sort | diff -u "$2" -
}

needed() {
    found=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
    for library in zeldebug zelipc zelember zelwww zelnet zeljson; do
        echo "$found" | grep -qx "lib$library\.so" || fail "$1 does not need lib$library.so"
    done
    runtime='libc\.so\.6|libm\.so\.6|libstdc\+\+\.so\.6|libgcc_s\.so\.1|ld-linux[a-z0-9_-]*\.so\.[0-9]'
    sanitizers='lib(asan|ubsan)\.so\.[0-9]+'
    others=$(echo "$found" | grep -vE "^(libzel(debug|ipc|ember|www|net|json)\.so|$runtime|$sanitizers)\$" || true)
    [ -z "$others" ] || fail "$1 needs more than it may: $others"
}

soname() {
    found=$(readelf -d "$1" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
    [ "$found" = "$2" ] || fail "the soname of $1 is '$found', not '$2'"
}

header() {
    header=$1 cc=$2 cxx=$3
    shift 3
    directories=
    for directory in "$@"; do directories="$directories -I$directory"; done
    # Through a file that includes it, so that "#pragma once" and the like are judged as in use.
    echo "#include \"$header\"" | $cc -x c -std=c11 -pedantic -Wall -Wextra -Werror $directories -fsyntax-only -
    echo "#include \"$header\"" | $cxx -x c++ -std=c++20 -pedantic -Wall -Wextra -Werror $directories -fsyntax-only -
}

what=$1
shift
"$what" "$@"
