#!/bin/sh
# scripts/kernel_test.sh: the pins' behaviour on a real kernel's GPIO lines.
#
# Boots Debian's stock 32-bit ARM kernel in an emulated board, whose GPIO lines are moved from outside, and runs in it, built
# for 32-bit ARM: the behaviour tests of the pins (test_sys) on the kernel's lines and on simulated ones, and a host with the
# library between a contact at one line and relays at others (kernel_press_to_relay).
# What is fetched and built is kept below build/. The last line is "N passed, N failed"; exit status 77: left out, as said.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
build=$top/build/arm
guest=$top/build/arm-guest
programs="test_sys kernel_press_to_relay"

leave_out() { echo "kernel_test: left out, $1"; exit 77; }

for tool in qemu-system-arm qemu-arm arm-linux-gnueabihf-g++ cmake ninja python3; do
    command -v "$tool" >/dev/null || leave_out "$tool is not installed"
done
[ -d /usr/src/googletest ] || leave_out "the package googletest is not installed"
"$top/scripts/arm_sysroot.sh" >/dev/null || leave_out "the armhf libraries cannot be had"
"$top/scripts/arm_packages.sh" "$guest" busybox-static 'linux-image-armmp/^linux-image-6' ||
    leave_out "the armhf kernel cannot be had"
for kernel in "$guest"/boot/vmlinuz-*-armmp; do :; done

echo "kernel_test: building for 32-bit ARM"
log=$build.kernel_test.log
cd "$top"
# shellcheck disable=SC2086
if ! { cmake --preset arm && cmake --build "$build" -j "$(nproc)" --target $programs; } >"$log" 2>&1; then
    grep -E 'error|Error|FAILED' "$log" | head -n 20
    echo "kernel_test: the ARM build failed, see $log"
    echo "0 passed, 1 failed"
    exit 1
fi

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir "$root/bin" "$root/lib" "$root/proc" "$root/sys" "$root/dev" "$root/tmp"
cp "$guest/bin/busybox" "$root/bin/"
for library in ld-linux-armhf.so.3 libc.so.6 libm.so.6 libgcc_s.so.1 libstdc++.so.6; do
    cp -L "/usr/arm-linux-gnueabihf/lib/$library" "$root/lib/"
done
cp -L "$top"/build/arm-sysroot/usr/lib/arm-linux-gnueabihf/libjansson.so.4 "$root/lib/"
cp -P "$build"/lib/libzel*.so* "$root/lib/"
for program in $programs; do
    cp "$build/tests/$program" "$root/bin/"
done
find "$root/lib" "$root/bin" -type f ! -name busybox -exec arm-linux-gnueabihf-strip {} +

cat >"$root/init" <<END
#!/bin/busybox sh
/bin/busybox --install -s /bin
export PATH=/bin LD_LIBRARY_PATH=/lib
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir /dev/pts
mount -t devpts devpts /dev/pts
mount -t tmpfs tmpfs /tmp
uname -srm
# The board's one chip has eight lines; its fourth is the power key, which the kernel keeps.
export ZEL_TEST_LINES="\$(cat /sys/class/gpio/gpiochip*/label):0,1,2,4,5,6,7" ZEL_TEST_TAKEN_LINE=3
export ZEL_TEST_LINE_CHANNEL=/dev/ttyS0 ZEL_LOG_LEVEL=error
for program in $programs; do
    \$program --gtest_color=no
    echo "program \$program \$?"
done
poweroff -f
END
chmod +x "$root/init"

# shellcheck disable=SC2086
python3 "$top/scripts/kernel_test_host.py" "$kernel" "$root" $programs
