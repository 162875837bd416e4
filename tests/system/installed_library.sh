#!/bin/sh
# A host outside the tree is built against an installed library, once with pkg-config and once with the CMake package, and run.
# installed_library.sh BUILD SOURCE
set -eu
build=$1 source=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/prefix" > "$scratch/install.log"
cp -r "$source/docs/examples/host" "$scratch/host"
libdir=$(dirname "$(find "$scratch/prefix" -name libzelgpio.so)")

run_host() {
    mkdir -p "$2/etc/zel"
    echo '{"friendly_name": "Outside"}' > "$2/etc/zel/unit.json"
    LD_LIBRARY_PATH=$libdir ZEL_ROOT=$2 "$1" 2 > "$2/output"
    grep -q '^handler Record and trigger 7 registered, 2 ports$' "$2/output" || { cat "$2/output"; exit 1; }
}

cd "$scratch/host"
PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
cc -std=c11 -Wall -Wextra -Werror host.c $(pkg-config --cflags --libs zelgpio) -o "$scratch/by_pkg_config"
run_host "$scratch/by_pkg_config" "$scratch/unit1"

cmake -S . -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$scratch/prefix" > "$scratch/cmake.log"
cmake --build "$scratch/cmake" > "$scratch/build.log"
run_host "$scratch/cmake/host" "$scratch/unit2"
