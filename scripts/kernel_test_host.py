#!/usr/bin/env python3
"""kernel_test_host.py KERNEL ROOT_FOLDER PROGRAM...: boots a kernel in an emulated ARM board with the folder as its file
system, moves the board's GPIO lines as the programs in it ask, and counts the tests that they report.

The folder's /init runs the programs and writes "program NAME STATUS" after each. A program asks for lines on the board's
second serial port: "set N LEVEL" drives an input line from outside, "get N" tells what an output line has. On the console,
lines as GoogleTest writes them ("[       OK ] NAME", "[  FAILED  ] NAME", "[==========] Running N tests") are counted; each
program must have had some on the kernel's lines, whose names end in "/kernel_lines".
The last line is "N passed, N failed". Exit status: 0 if all passed, 1 if not, 77 if the board could not be made.
"""
import json
import os
import re
import selectors
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time

EMULATOR = "qemu-system-arm"
WHOLE_RUN_S = 420          # a boot takes some 8 s and the programs 15 s; many times that on a machine that is busy
ANSWER_S = 60
DATA_REGISTERS = 0x09030000  # of the board's PL061: the address also chooses the lines that are read


def cpio_record(name, mode, data=b"", device=(0, 0), inode=[0]):
    inode[0] += 1
    fields = [inode[0], mode, 0, 0, 1, 0, len(data), 0, 0, *device, len(name) + 1, 0]
    head = b"070701" + b"".join(b"%08X" % field for field in fields) + name.encode() + b"\0"
    return head + b"\0" * (-len(head) % 4) + data + b"\0" * (-len(data) % 4)


def write_initramfs(folder, path):
    with open(path, "wb") as out:
        out.write(cpio_record("dev", stat.S_IFDIR | 0o755))
        out.write(cpio_record("dev/console", stat.S_IFCHR | 0o600, device=(5, 1)))
        for parent, folders, files in os.walk(folder):
            for name in folders + files:
                full = os.path.join(parent, name)
                mode, data = os.lstat(full).st_mode, b""
                if stat.S_ISLNK(mode):
                    data = os.readlink(full).encode()
                elif stat.S_ISREG(mode):
                    with open(full, "rb") as file:
                        data = file.read()
                out.write(cpio_record(os.path.relpath(full, folder), mode, data))
        out.write(cpio_record("TRAILER!!!", 0))


def connect(path, process):
    end = time.monotonic() + ANSWER_S
    while time.monotonic() < end and process.poll() is None:
        client = socket.socket(socket.AF_UNIX)
        client.settimeout(ANSWER_S)
        try:
            client.connect(path)
            return client
        except OSError:
            client.close()
            time.sleep(0.05)
    raise RuntimeError("the emulator does not open %s" % os.path.basename(path))


class Board:
    """The emulated board and its lines."""

    def __init__(self, kernel, initramfs, folder):
        sockets = {name: os.path.join(folder, name) for name in ("qmp", "qtest", "lines")}
        command = [EMULATOR, "-M", "virt,highmem=off", "-accel", "tcg", "-m", "256", "-nodefaults", "-display", "none",
                   "-no-reboot", "-kernel", kernel, "-initrd", initramfs,
                   "-append", "console=ttyAMA0 quiet loglevel=3 panic=-1",
                   "-chardev", "stdio,id=console,signal=off", "-serial", "chardev:console",
                   "-chardev", "socket,id=lines,server=on,wait=off,path=" + sockets["lines"],
                   "-device", "pci-serial,chardev=lines",
                   "-qmp", "unix:%s,server=on,wait=off" % sockets["qmp"],
                   "-qtest", "unix:%s,server=on,wait=off" % sockets["qtest"], "-qtest-log", "none"]
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        try:
            self.qtest = connect(sockets["qtest"], self.process)
            self.lines = connect(sockets["lines"], self.process)
            self.chip = self.find_chip(connect(sockets["qmp"], self.process))
        except BaseException:
            self.end()
            raise

    def find_chip(self, qmp):
        stream = qmp.makefile("rw")

        def ask(command, **arguments):
            stream.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
            stream.flush()
            for line in stream:
                answer = json.loads(line)
                if "return" in answer or "error" in answer:
                    return answer.get("return")
            raise RuntimeError("the emulator ended")

        stream.readline()
        ask("qmp_capabilities")
        for entry in ask("qom-list", path="/machine/unattached"):
            if entry["type"] == "child<pl061>":
                return "/machine/unattached/" + entry["name"]
        raise RuntimeError("the emulated board has no PL061")

    def ask_qtest(self, command):
        self.qtest.sendall(command.encode() + b"\n")
        answer = b""
        while not answer.endswith(b"\n"):
            got = self.qtest.recv(256)
            if not got:
                raise RuntimeError("the emulator ended")
            answer += got
        words = answer.decode().split()
        if words[0] != "OK":
            raise RuntimeError("%s: %s" % (command, answer.decode().strip()))
        return words[1:]

    def answer(self, request):
        words = request.split()
        try:
            if words[0] == "set":
                self.ask_qtest("set_irq_in %s unnamed-gpio-in %d %d" % (self.chip, int(words[1]), int(words[2])))
                return "ok"
            if words[0] == "get":
                line = int(words[1])
                value = self.ask_qtest("readl 0x%x" % (DATA_REGISTERS + (4 << line)))
                return "ok %d" % (int(value[0], 0) >> line & 1)
        except (IndexError, ValueError):
            pass
        return "error " + request

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


class Results:
    """What the console says of tests."""

    def __init__(self, programs):
        self.expected, self.ended = programs, []
        self.passed, self.failed, self.announced, self.on_lines, self.problems = 0, 0, 0, 0, []

    def take(self, line):
        print(line, flush=True)
        if test := re.match(r"\[ +(OK|FAILED) +\] (\S+?),? .*\(\d+ ms\)$", line):
            self.passed += test[1] == "OK"
            self.failed += test[1] == "FAILED"
            self.on_lines += test[2].endswith("/kernel_lines")
        elif start := re.match(r"\[==========\] Running (\d+) tests?", line):
            self.announced += int(start[1])
        elif end := re.match(r"program (\S+) (\d+)$", line):
            self.end_program(end[1], int(end[2]))

    def end_program(self, name, status):
        if status != 0:
            self.problems.append("%s ended with status %d" % (name, status))
        if self.on_lines == 0:
            self.problems.append("%s tested nothing on the kernel's lines" % name)
        self.ended.append(name)
        self.on_lines = 0

    def sum_up(self):
        lost = max(self.announced - self.passed - self.failed, 0)
        if lost > 0:
            self.problems.append("%d tests did not come to their end" % lost)
        if self.ended != self.expected:
            self.problems.append("programs that ended: %s" % (" ".join(self.ended) or "none"))
        for problem in self.problems:
            print("kernel_test: " + problem)
        failed = max(self.failed + lost, 1 if self.problems or self.passed == 0 else 0)
        print("%d passed, %d failed" % (self.passed, failed))
        return 0 if failed == 0 else 1


def run(board, results, deadline):
    """Serve console and lines until the board is off."""
    waiting = selectors.DefaultSelector()
    waiting.register(board.process.stdout, selectors.EVENT_READ, "console")
    waiting.register(board.lines, selectors.EVENT_READ, "lines")
    text = {"console": b"", "lines": b""}
    while (left := deadline - time.monotonic()) > 0:
        for key, _ in waiting.select(left):
            got = os.read(key.fd, 65536)
            if not got and key.data == "console":
                return
            if not got:
                waiting.unregister(key.fileobj)
            text[key.data] += got
            *lines, text[key.data] = text[key.data].split(b"\n")
            for line in (part.decode(errors="replace").rstrip("\r") for part in lines):
                if key.data == "lines":
                    board.lines.sendall(board.answer(line).encode() + b"\n")
                else:
                    results.take(line)
    results.problems.append("the board was not off after %d s" % WHOLE_RUN_S)


def main():
    if len(sys.argv) < 4:
        print(__doc__, file=sys.stderr)
        return 2
    if shutil.which(EMULATOR) is None:
        print("kernel_test: left out, %s is not installed" % EMULATOR)
        return 77
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # the emulator is ended on the way out
    deadline = time.monotonic() + WHOLE_RUN_S
    results = Results(sys.argv[3:])
    with tempfile.TemporaryDirectory(prefix="zel-kernel-") as folder:
        initramfs = os.path.join(folder, "initramfs")
        write_initramfs(sys.argv[2], initramfs)
        try:
            board = Board(sys.argv[1], initramfs, folder)
        except (OSError, RuntimeError) as problem:
            print("kernel_test: left out, the board cannot be emulated: %s" % problem)
            return 77
        try:
            run(board, results, deadline)
        except (OSError, RuntimeError) as problem:
            results.problems.append(str(problem))
        finally:
            board.end()
    return results.sum_up()


if __name__ == "__main__":
    sys.exit(main())
