#!/bin/sh
# scripts/arm_sysroot.sh: makes build/arm-sysroot, the armhf libraries that a 32-bit ARM build needs beside the cross
# compiler's own, and prints its path. For the build: ZEL_ARM_SYSROOT=$(scripts/arm_sysroot.sh) cmake --preset arm
# Exit status 77 when the packages cannot be had.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/arm_packages.sh" "$top/build/arm-sysroot" libjansson4 libjansson-dev
echo "$top/build/arm-sysroot"
