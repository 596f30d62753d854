#!/usr/bin/env python3
"""What docs/bench.md promises of vesk-bench. VESK_DAEMON or DAEMON names the program (that of build/release if not set)."""
import json
import os
import re
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import tty
import unittest

try:
    import pexpect
except ImportError:
    pexpect = None

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
RELEASE = os.path.join(ROOT, "build/release/vesk_h264")
DAEMON = os.environ.get("VESK_DAEMON") or os.environ.get("DAEMON", RELEASE)
BENCH = os.path.join(ROOT, "testbench/vesk-bench")
READ_TYPE, TYPE = b"<T0000680100000069>", b"<F00006801263300c2>"
# Serial number 0x1234: 0x6a + 0x10 + 0x12 + 0x34 = 0xc0.
WRITE_NUMBER, WRITTEN = b"<T00006a10123400c0>", b"<F00006a10123400c0>"
READ_NUMBER, NUMBER, NO_NUMBER = b"<T00006a110000007b>", b"<F00006a11123400c1>", b"<F00006a110000007b>"
PATIENCE = 60 # seconds: the machine may be busy
HAS_QEMU = any(os.path.exists("/usr/bin/" + each) for each in ("qemu-arm", "qemu-arm-static"))


def processes_with(mark):
    """Those that have inherited a variable of the environment."""
    found = []
    for number in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{number}/environ", "rb") as file:
                if mark.encode() in file.read():
                    found.append(number)
        except OSError:
            pass
    return found


def eventually(condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(0.05)
    return False


class Line:
    """A serial device, or a socket, that a program has open."""

    def __init__(self, descriptor):
        self.descriptor = descriptor

    @classmethod
    def open(cls, name):
        descriptor = os.open(name, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(descriptor)
        return cls(descriptor)

    def read(self, count, patience=PATIENCE):
        heard = b""
        end = time.monotonic() + patience
        while len(heard) < count and select.select([self.descriptor], [], [], max(0, end - time.monotonic()))[0]:
            heard += os.read(self.descriptor, 65536)
        return heard

    def ask(self, command, count=19):
        os.write(self.descriptor, command)
        return self.read(count)

    def hear(self, wanted):
        """Whether it comes; a PC hears beginnings of commands, too."""
        heard = b""
        while wanted not in heard:
            more = self.read(1)
            if not more:
                return False
            heard += more
        return True

    def close(self):
        os.close(self.descriptor)


class Bench:
    """vesk-bench with its standard output and error as files, and a mark that its processes inherit. It finds its own
    daemon if `daemon` is None."""

    def __init__(self, *arguments, program=BENCH, daemon=DAEMON, **more):
        self.mark = f"BENCH_MARK={os.getpid()}-{time.monotonic_ns()}"
        self.errors = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            [program, "--json", *(["--daemon", daemon] if daemon else []), *arguments], stdout=subprocess.PIPE, stderr=self.errors,
            stdin=subprocess.DEVNULL, env={**os.environ, **dict([self.mark.split("=")])}, **more)
        self.text = self.process.stdout.readline()
        if not self.text:
            told = self.told()
            self.end()
            self.errors.close()
            raise AssertionError(told)
        self.printed = json.loads(self.text)
        self.devices = self.printed["devices"]

    def told(self):
        self.errors.seek(0)
        return self.errors.read().decode()

    def daemon(self):
        for number in processes_with(self.mark):
            try:
                program = os.readlink(f"/proc/{number}/exe")
                if program == "/usr/bin/vesk_h264" or os.path.basename(program).startswith("qemu-"):
                    return int(number)
            except OSError:
                pass
        return None

    def faults(self):
        return re.findall(r"^device \d: \w+ the device, byte .*$", self.told(), re.M)

    def line(self, number=1):
        return Line.open(self.devices[number - 1]["serial"])

    def udp(self, number=1):
        client = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        client.connect((self.devices[number - 1]["udp"]["address"], self.devices[number - 1]["udp"]["port"]))
        return Line(client.detach())

    def end(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        self.process.wait(PATIENCE)
        self.process.stdout.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.returncode is None:
            self.end()
        self.errors.close()


def is_emulated(name):
    """Whether the program is for another processor than this interpreter."""
    kinds = []
    for each in name, "/proc/self/exe":
        with open(each, "rb") as file:
            kinds.append(file.read(20)[18:])
    return kinds[0] != kinds[1]


def is_sanitized(name):
    with open(name, "rb") as file:
        return b"__asan_init" in file.read()


def driver_of_the_document():
    with open(os.path.join(ROOT, "docs/bench.md"), encoding="utf-8") as file:
        return re.search(r"```python\n(.*?)```", file.read(), re.S)[1]


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)


class Devices(Case):
    def test_three_devices_each_have_a_line_and_an_address(self):
        with Bench("--devices", "3", "--echo") as bench:
            subprocess.run([sys.executable, os.path.join(ROOT, "tests/tools/validate.py"), "bench"],
                           input=bench.text, check=True)
            self.assertEqual([each["device"] for each in bench.devices], [1, 2, 3])
            client = bench.udp(1)
            os.write(client.descriptor, WRITE_NUMBER)
            self.assertTrue(client.hear(WRITTEN))
            client.close()
            for number, wanted in (1, NUMBER), (2, NO_NUMBER), (3, NO_NUMBER):
                client, line = bench.udp(number), bench.line(number)
                os.write(client.descriptor, READ_NUMBER)
                self.assertTrue(client.hear(wanted))
                self.assertEqual(line.read(2 * 19), READ_NUMBER + wanted) # what the device sent to the front board
                client.close()
                line.close()

    def test_the_line_answers_whoever_opens_it(self):
        with Bench() as bench:
            for _ in range(3):
                line = bench.line()
                self.assertEqual(line.ask(READ_TYPE), TYPE)
                line.close()

    def test_the_daemon_is_started_again_when_it_ends(self):
        with Bench("-v") as bench:
            line = bench.line()
            first = bench.daemon()
            os.kill(first, signal.SIGKILL)
            self.assertTrue(eventually(lambda: bench.daemon() not in (None, first)))
            self.assertTrue(eventually(lambda: bench.told().count("enter main") == 2))
            self.assertEqual(line.ask(READ_TYPE), TYPE)
            line.close()

    def test_a_writer_waits_for_a_device_that_does_not_read(self):
        with Bench("--line-rate", "0") as bench:
            line = bench.line()
            os.kill(bench.daemon(), signal.SIGSTOP)
            os.set_blocking(line.descriptor, False)
            written = 0
            while written < 1 << 20 and select.select([], [line.descriptor], [], 2)[1]:
                written += os.write(line.descriptor, b"." * 4096)
            self.assertLess(written, 1 << 20)
            os.kill(bench.daemon(), signal.SIGCONT)
            self.assertTrue(select.select([], [line.descriptor], [], PATIENCE)[1])
            line.close()

    @unittest.skipUnless(os.path.exists("/usr/bin/strace"), "no strace")
    @unittest.skipIf(is_emulated(DAEMON), "strace would show the emulator's calls")
    def test_strace_shows_the_calls_of_the_daemon(self):
        with Bench("--strace") as bench:
            self.assertIn('openat(AT_FDCWD, "/dev/ttyS0"', bench.told())
            line = bench.line()
            self.assertEqual(line.ask(READ_TYPE), TYPE)
            line.close()

    @unittest.skipUnless(os.path.exists("/usr/bin/valgrind"), "no valgrind")
    @unittest.skipIf(is_emulated(DAEMON), "valgrind would watch the emulator")
    @unittest.skipIf(is_sanitized(DAEMON) and not os.path.exists(RELEASE), "no daemon without sanitizers")
    def test_valgrind_watches_the_daemon(self):
        with Bench("--valgrind", "-v", daemon=RELEASE if is_sanitized(DAEMON) else DAEMON) as bench:
            self.assertRegex(bench.told(), "(?m)^==\\d+== Command: /usr/bin/vesk_h264$")
            line = bench.line()
            self.assertEqual(line.ask(READ_TYPE), TYPE)
            line.close()
            self.assertIn("device 1: enter main\n", bench.told())

    @unittest.skipUnless(pexpect and os.path.exists("/usr/bin/gdb"), "no gdb or pexpect")
    @unittest.skipIf(is_emulated(DAEMON), "gdb would debug the emulator")
    def test_gdb_has_the_terminal_and_gives_it_back(self):
        shell = pexpect.spawn("bash", ["--norc", "-i"], timeout=PATIENCE, encoding="utf-8", echo=False)
        shell.sendline(f"PS1=; {BENCH} --gdb --daemon {DAEMON}; echo status $?")
        shell.expect("gdb has the program; type run\r\n")
        shell.expect(r"\(gdb\)")
        shell.sendline("run")
        shell.expect("enter main")
        for _ in range(2):
            shell.sendintr()
            shell.expect("received signal SIGINT")
            shell.expect(r"\(gdb\)")
            shell.sendline("continue")
            shell.expect("Continuing")
        shell.sendintr()
        shell.expect(r"\(gdb\)")
        shell.sendline("quit")
        shell.expect("y or n")
        shell.sendline("y")
        shell.expect("status 0\r\n")
        shell.sendline("echo still; exit")
        shell.expect("still\r\n")
        shell.expect(pexpect.EOF)

    def test_datagrams_go_out_on_the_line_and_come_back_to_the_last_sender(self):
        with Bench() as bench:
            line, one, other = bench.line(), bench.udp(), bench.udp()
            os.write(one.descriptor, b"one")
            self.assertEqual(line.read(3), b"one")
            os.write(other.descriptor, b"other")
            self.assertEqual(line.read(5), b"other")
            os.write(line.descriptor, b"answer")
            self.assertEqual(other.read(6), b"answer")
            self.assertEqual(one.read(1, 0), b"")
            os.write(one.descriptor, b"more")
            self.assertEqual(line.read(4), b"more")
            os.write(line.descriptor, b"for one")
            self.assertEqual(one.read(7), b"for one")
            for each in (line, one, other):
                each.close()

    def test_a_device_has_no_pace_that_its_line_cannot_have(self):
        with Bench("--line-rate", "1200") as bench:
            line = bench.line()
            start = time.monotonic()
            self.assertEqual(line.ask(READ_TYPE), TYPE)
            self.assertGreaterEqual(time.monotonic() - start, 2 * 19 * 10 / 1200)
            line.close()

    def test_userdata_is_copied_and_kept_only_if_told(self):
        kept, copied = self.path("kept"), self.path("copied")
        os.mkdir(kept)
        with Bench("--userdata", kept, "--keep") as bench:
            line = bench.line()
            self.assertEqual(line.ask(WRITE_NUMBER), WRITTEN)
            self.assertEqual(line.ask(READ_NUMBER), NUMBER)
            line.close()
            with self.assertRaisesRegex(AssertionError, f"^vesk-bench: {kept} is in use by another vesk-bench\n$"):
                Bench("--userdata", kept, "--keep")
            self.assertTrue(eventually(lambda: os.path.exists(os.path.join(kept, "DevInfo.sav"))))
        self.assertIn("save0.sav", os.listdir(kept))
        shutil.copytree(kept, copied)
        os.remove(os.path.join(copied, "save0.sav"))
        before = sorted(os.listdir(copied))
        with Bench("--userdata", copied, "-v") as bench:
            self.assertIn("save save0.sav", bench.told())
            line = bench.line()
            self.assertEqual(line.ask(READ_NUMBER), NUMBER)
            line.close()
        self.assertEqual(sorted(os.listdir(copied)), before)

    def test_it_needs_neither_a_checkout_nor_a_right_and_takes_its_own_files_only(self):
        os.chmod(self.folder, 0o755)
        libexec = self.path("libexec/vesk-bench")
        starters = ["vesk_h264_supervisor", "vesk_h264_program"]
        for name in (libexec, self.path("bin"), self.path("packaging/board"), self.path("build/release")):
            os.makedirs(name)
        for name in ("testbench/vesk-bench", "testbench/board", *(f"packaging/board/{each}" for each in starters)):
            shutil.copy(os.path.join(ROOT, name), self.path("bin") if name.endswith("-bench") else libexec)
        shutil.copytree(os.path.join(ROOT, "testbench/etc"), os.path.join(libexec, "etc"))
        shutil.copy(DAEMON, self.path("bin/vesk_h264"))
        # Somebody else's, at the places of a checkout and beside the program.
        for name in ("bin/board", "build/release/vesk_h264", *(f"bin/{each}" for each in starters),
                     *(f"packaging/board/{each}" for each in starters)):
            with open(self.path(name), "w", encoding="utf-8") as file:
                file.write("#!/bin/sh\nexit 3\n")
            os.chmod(self.path(name), 0o755)
        more = {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}
        with Bench(program=self.path("bin/vesk-bench"), daemon=None, cwd="/", **more) as bench:
            line = bench.line()
            self.assertEqual(line.ask(READ_TYPE), TYPE)
            line.close()

    def test_it_leaves_nothing_however_it_ends(self):
        for number, status in (signal.SIGINT, 0), (signal.SIGTERM, 0), (signal.SIGHUP, 0), (signal.SIGKILL, -9):
            with self.subTest(number), Bench() as bench:
                self.assertGreater(len(processes_with(bench.mark)), 3)
                bench.end(number)
                self.assertEqual(bench.process.returncode, status)
                self.assertTrue(eventually(lambda: not processes_with(bench.mark)))
                if number != signal.SIGKILL:
                    self.assertEqual(bench.told(), "")


class Faults(Case):
    def drive(self, *arguments, times=20):
        """What the driver of the document prints, and the faults that there were."""
        with open(self.path("driver.py"), "w", encoding="utf-8") as file:
            file.write(driver_of_the_document())
        with Bench(*arguments, "-v") as bench:
            printed = subprocess.run([sys.executable, self.path("driver.py"), bench.devices[0]["serial"], str(times)],
                                     check=True, capture_output=True, timeout=300).stdout.decode()
            return printed, bench.faults()

    def test_the_driver_of_the_document_has_the_same_faults_with_the_same_seed(self):
        faults = "drop=0.004,noise=0.002"
        printed, told = self.drive("--fault", faults, "--seed", "7")
        self.assertEqual(re.findall(r"<.*>", printed), [TYPE.decode()] * 20)
        self.assertTrue(told)
        self.assertRegex(printed, "after [2-9]")
        self.assertEqual(self.drive("--fault", faults, "--seed", "7"), (printed, told))
        self.assertNotEqual(self.drive("--fault", faults, "--seed", "8"), (printed, told))

    def test_the_driver_of_the_document_on_a_good_line(self):
        printed, told = self.drive(times=3)
        self.assertEqual(printed, "".join(f"{number}: {TYPE.decode()} after 1\n" for number in range(3)))
        self.assertEqual(told, [])

    def faults_of(self, data, faults, parts=1):
        """Those that the bytes have on their way to the device."""
        with Bench("--fault", faults, "-v", "--line-rate", "0") as bench:
            line = bench.line()
            for at in range(0, len(data), len(data) // parts):
                os.write(line.descriptor, data[at:at + len(data) // parts])
                time.sleep(0.001)
            # The last byte has a fault by then, or none.
            os.write(line.descriptor, b"." * 400)
            after = range(len(data), len(data) + 400)
            self.assertTrue(eventually(lambda: any(
                int(at) in after for at in re.findall(r"to the device, byte (\d+)", bench.told()))))
            line.close()
            return {int(found[1]): found[2] for found in re.finditer(r"to the device, byte (\d+): (.*)", bench.told())
                    if int(found[1]) < len(data)}

    def test_who_reads_what_it_tells_may_go(self):
        for redirection in ("2> >(head -n 1 >/dev/null)", "2>&-"):
            process = subprocess.Popen(
                ["bash", "-c", f'exec "$@" {redirection}', "bash", BENCH, "--json", "--daemon", DAEMON, "-v",
                 "--fault", "drop=0.02", "--line-rate", "0"], stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
            self.addCleanup(process.kill)
            serial = json.loads(process.stdout.readline())["devices"][0]["serial"]
            line = Line.open(serial)
            os.write(line.descriptor, b"." * 4000) # some of which are told as lost
            self.assertTrue(eventually(
                lambda: os.write(line.descriptor, READ_TYPE) and TYPE in line.read(len(TYPE), 0.5)), redirection)
            line.close()
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(60), 0, redirection)
            self.assertEqual(process.stdout.read(), b"", redirection)
            process.stdout.close()

    def test_faults_do_not_depend_on_how_bytes_are_written(self):
        data = b"some bytes <that are no frame, " * 40
        told = [self.faults_of(data, "drop=0.05,noise=0.05,half=0.1", parts) for parts in (1, 400)]
        self.assertEqual(told[0], told[1])
        self.assertTrue({"lost", "became", "half"} <= set(" ".join(told[0].values()).split()))

    def test_a_fault_that_is_added_does_not_move_the_others(self):
        data = b"some bytes <that are no frame, " * 40
        noise, drop = self.faults_of(data, "noise=0.2"), self.faults_of(data, "drop=0.2")
        every = self.faults_of(data, "noise=0.2,drop=0.2,half=0.2,delay=500us")
        changed = {at for at, text in every.items() if "became" in text}
        halved = {at for at, text in every.items() if "half" in text}
        # A byte of which nothing arrives shows no other fault.
        self.assertEqual(changed, noise.keys() - drop.keys() - halved)
        self.assertEqual({at: every[at] for at in changed}, {at: noise[at] for at in changed})
        self.assertEqual({at for at, text in every.items() if text.endswith("lost")}, drop.keys() - halved)
        self.assertTrue(noise.keys() & drop.keys() and noise.keys() & halved and drop.keys() & halved)
        self.assertGreater(len({int(text[:2], 16) ^ int(text[-2:], 16) for text in noise.values()}), 6) # of 8 bits

    def test_the_shares_are_those_that_were_asked_for(self):
        with Bench("--fault", "drop=0.1,noise=0.2", "-v", "--line-rate", "0") as bench:
            line = bench.line()
            for _ in range(100):
                os.write(line.descriptor, b"\0" * 100)
                time.sleep(0.001)
            self.assertTrue(eventually(lambda: re.search(r"to the device, byte 99\d\d", bench.told())))
            told = " ".join(bench.faults())
            # 10,000 bytes: five standard deviations, and the bytes that are both count as lost.
            self.assertAlmostEqual(told.count(" lost"), 1000, delta=150)
            self.assertAlmostEqual(told.count(" became "), 1800, delta=200)
            line.close()

    def test_half_cuts_a_frame_and_delay_holds_it_up(self):
        with Bench("--fault", "half=1,delay=200ms", "-v") as bench:
            line = bench.line()
            os.write(line.descriptor, READ_TYPE)
            self.assertTrue(eventually(lambda: len(bench.faults()) == 10))
            self.assertEqual(bench.faults(), [
                f"device 1: to the device, byte {at}: {READ_TYPE[at]:02x} lost with half a piece" for at in range(9, 19)])
            line.close()
        with Bench("--fault", "delay=200ms") as bench:
            line = bench.line()
            start = time.monotonic()
            self.assertEqual(line.ask(READ_TYPE), TYPE)
            self.assertGreaterEqual(time.monotonic() - start, 0.4)
            line.close()


class Refusals(Case):
    def refused(self, status, text, *arguments):
        with self.subTest(arguments):
            done = subprocess.run([BENCH, *arguments], capture_output=True, timeout=300, check=False)
            self.assertEqual(done.stdout, b"")
            self.assertRegex(done.stderr.decode(), rf"\Avesk-bench: .*{text}.*\n\Z")
            self.assertEqual(done.returncode, status)

    def test_a_machine_without_namespaces_is_told_once(self):
        done = subprocess.run(
            ["unshare", "--user", "--map-root-user", "sh", "-c", 'echo 0 >/proc/sys/user/max_user_namespaces; exec "$@"',
             "sh", BENCH, "--daemon", DAEMON, "--devices", "3"], capture_output=True, timeout=300, check=False)
        self.assertRegex(done.stderr, rb"\Aboard: this machine refuses namespaces [^\n]*\n\Z")
        self.assertEqual((done.returncode, done.stdout), (4, b""))

    def test_what_cannot_be_is_one_line(self):
        with open(DAEMON, "rb") as file:
            program = bytearray(file.read())
        program[18:20] = b"\x02\x00" # for a SPARC
        with open(self.path("sparc"), "wb") as file:
            file.write(program)
        os.mkdir(self.path("data"))
        os.mkdir(self.path("big"))
        with open(self.path("big/file"), "wb") as file:
            file.truncate(100 << 20)
        taken = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        taken.bind(("127.0.0.1", 0))
        self.addCleanup(taken.close)
        port = str(taken.getsockname()[1])
        daemon = ("--daemon", DAEMON)
        self.refused(2, "sparc is for another processor", "--daemon", self.path("sparc"))
        self.refused(2, "is not a program", "--daemon", "/etc/passwd")
        self.refused(2, "No such file", "--daemon", self.path("none"))
        self.refused(2, "No such file", "--daemon", "")
        self.refused(2, "--userdata is not a directory", *daemon, "--userdata", "")
        os.mkfifo(self.path("fifo")) # nobody opens its other end
        self.refused(2, "fifo is not a regular file", "--daemon", self.path("fifo"))
        self.refused(2, "not a directory", *daemon, "--userdata", self.path("none"))
        self.refused(2, "not a directory", *daemon, "--userdata", self.path("sparc"))
        self.refused(2, "more than 64 MB", *daemon, "--userdata", self.path("big"))
        self.refused(2, "needs --userdata", *daemon, "--keep")
        self.refused(2, "one device", *daemon, "--userdata", self.folder, "--keep", "--devices", "2")
        self.refused(2, "no fault", "--fault", "drip=0.1")
        self.refused(2, "share from 0 to 1", "--fault", "drop=nan")
        self.refused(2, "such as 5ms", "--fault", "delay=5")
        self.refused(2, "there twice", "--fault", "drop=0,drop=0")
        self.refused(2, "from 1 to 16", "--devices", "17")
        self.refused(2, "not allowed with", "--gdb", "--strace")
        self.refused(2, "unrecognized", "--dae", "x")
        self.refused(4, f"UDP port {port} of 127.0.0.1 is in use", *daemon, "--port", port)
        if os.geteuid() == 0:
            os.chown(self.path("data"), 65534, 65534)
            self.refused(2, "another user's", *daemon, "--userdata", self.path("data"), "--keep")

    def test_a_directory_that_cannot_be_read_is_refused(self):
        folder = self.path("closed")
        os.mkdir(folder)
        os.chmod(self.folder, 0o755)
        os.chmod(folder, 0)
        shutil.copy(DAEMON, self.path("daemon"))
        shutil.copytree(os.path.join(ROOT, "testbench"), self.path("testbench"))
        os.makedirs(self.path("packaging"))
        shutil.copytree(os.path.join(ROOT, "packaging/board"), self.path("packaging/board"))
        more = {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}
        for keep in ([], ["--keep"]):
            done = subprocess.run(
                [self.path("testbench/vesk-bench"), "--daemon", self.path("daemon"), "--userdata", folder, *keep],
                capture_output=True, check=False, cwd="/", **more)
            self.assertEqual(done.stderr.decode(), f"vesk-bench: {folder}: Permission denied\n")
            self.assertEqual(done.returncode, 2)
        os.chmod(folder, 0o700)

    @unittest.skipUnless(shutil.which("arm-linux-gnueabihf-gcc") and HAS_QEMU, "no ARM compiler or emulator")
    def test_a_program_for_another_processor_is_emulated(self):
        with open(self.path("arm.c"), "w", encoding="utf-8") as file:
            file.write('#include <stdio.h>\n#include <unistd.h>\n'
                       'int main(void) { puts("enter main"); fflush(stdout); for (;;) pause(); }\n')
        subprocess.run(["arm-linux-gnueabihf-gcc", "-o", self.path("arm"), self.path("arm.c")], check=True)
        with Bench("-v", daemon=self.path("arm")) as bench:
            self.assertIn("device 1: enter main\n", bench.told())


def main():
    """As our other programs of tests, it tells how many cases did, and why some did not (scripts/count-cases)."""
    result = unittest.main(verbosity=2, exit=False).result
    failed = {getattr(case, "test_case", case) for case, _ in result.failures + result.errors}
    for case, reason in result.skipped:
        print(f"SKIPPED {case.id()}\n{reason}")
    print(f"cases: {result.testsRun - len(failed) - len(result.skipped)} passed, {len(failed)} failed, "
          f"{len(result.skipped)} skipped")
    return bool(failed)


if __name__ == "__main__":
    sys.exit(main())
