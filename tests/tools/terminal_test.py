#!/usr/bin/env python3
"""veskctl on a terminal: what a person sees and types. VESKCTL names the program. Debian: python3-pexpect."""
import fcntl
import io
import os
import pty
import re
import select
import signal
import subprocess
import tempfile
import termios
import threading
import time
import tty
import unittest
import warnings

import pexpect

warnings.simplefilter("ignore", UserWarning) # of the next; Debian 12 has nothing else
import pexpect.ANSI  # noqa: E402  pylint: disable=wrong-import-position

VESKCTL = os.environ["VESKCTL"]
ANY_TAG = {b"6a03": b"010a00", b"6801": b"263300"} # to commands with any tag
ANSWERS = {
    b"<T0000f12000000011>": b"<F0000f12000130024>" + bytes.fromhex("c0a80064ffffff00c0a80001027665736b01ee"),
    b"<T0000f309000000fc>": b"<F0000f309000000fc>[]",
}


class Device:
    """Answers at the far end of a serial line as a thread, if it is not `silent`."""

    def __init__(self, silent=False):
        self.silent = silent
        self.heard = 0 # bytes
        self.is_pulled = False
        self.end, self.other = pty.openpty()
        tty.setraw(self.other)
        self.name = os.ttyname(self.other)
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    def pull(self):
        """The line is hung up, as that of an adapter that is unplugged."""
        self.is_pulled = True
        self.thread.join()

    def run(self):
        heard = b""
        while True:
            if not select.select([self.end], [], [], 0.02)[0]:
                if self.is_pulled:
                    os.close(self.other)
                    os.close(self.end)
                    return
                continue
            more = os.read(self.end, 1000)
            self.heard += len(more)
            heard += b"" if self.silent else more
            while len(heard) >= 19:
                command, heard = heard[:19], heard[19:]
                if command[6:10] in ANY_TAG:
                    body = command[2:10] + ANY_TAG[command[6:10]]
                    total = sum(bytes.fromhex(body.decode())) & 0xFF
                    os.write(self.end, b"<F" + body + b"%02x>" % total)
                else:
                    os.write(self.end, ANSWERS.get(command, b""))


class Terminal(unittest.TestCase):
    def setUp(self):
        self.device = Device()
        self.state = tempfile.TemporaryDirectory()
        self.addCleanup(self.state.cleanup)

    def start(self, *arguments, columns=160):
        environment = {**os.environ, "XDG_STATE_HOME": self.state.name, "TERM": "xterm", "NO_COLOR": ""}
        child = pexpect.spawn(VESKCTL, ["--serial", self.device.name, *arguments], env=environment, timeout=60,
                              encoding="utf-8", dimensions=(40, columns))
        self.addCleanup(child.close, force=True)
        return child

    def end(self, child, status=0):
        child.expect(pexpect.EOF)
        child.close()
        self.assertEqual(child.exitstatus, status)

    def test_console_helps_completes_and_keeps_what_was_typed(self):
        child = self.start("console")
        child.expect("`help` lists the commands")
        child.send("READ dev\t")
        child.expect("ice ") # the rest of the word
        child.send("\x15read device type\r")
        child.expect(re.escape("<F00006801263300c2>  \x1b[32mreply"))
        child.send("help gateway\r")
        child.expect("write gateway")
        child.expect("read gateway")
        child.send("? gateway\r")
        child.expect("write gateway")
        child.send("network read\r")
        child.expect(r"address  192\.168\.0\.100")
        child.expect(r"MAC      02:76:65:73:6b:01")
        child.send("text read 09\r")
        child.expect(re.escape("[]"))
        child.send("network dance\r")
        child.expect("possible are: info; network read")
        child.send("exit\r")
        child.expect("1 commands sent, 1 answered")
        self.end(child)
        with open(os.path.join(self.state.name, "veskctl", "history"), encoding="utf-8") as file:
            self.assertIn("gateway", file.read())
        child = self.start("console")
        child.expect("`help` lists the commands")
        child.send("\x1b[A") # the key that goes back in the history
        child.expect("exit")
        child.send("\x03")
        child.expect("0 commands sent")
        self.end(child)

    def test_monitor_is_coloured_and_ends_with_a_summary(self):
        child = self.start("monitor")
        os.write(self.device.end, b"<F000068ffffffff64>")
        child.expect(re.escape("<F000068ffffffff64>  \x1b[31mrefusal"))
        child.sendintr()
        child.expect(r"\^C\r\n[\d.]+ s: 0 commands, 0 replies, 1 refusals, 0 other bytes; 1 connections")
        self.end(child)

    def test_console_leaves_nothing_of_a_line_of_several_rows(self):
        child = self.start("--color", "never", "console", columns=40)
        child.logfile_read = io.StringIO()
        child.expect("`quit` ends.")

        def arrives(frame, name):
            os.write(self.device.end, frame)
            child.expect(name)
            child.expect("> ") # the line being typed is there again
            with self.assertRaises(pexpect.TIMEOUT):
                child.expect("nothing more", timeout=0.5)

        def rows():
            screen = pexpect.ANSI.ANSI(40, 40)
            screen.write(child.logfile_read.getvalue())
            return [row.rstrip() for row in str(screen).splitlines() if row.strip()]

        child.send("write IP address 192.168.0.100 and whatever else there may be")
        child.expect("may be")
        arrives(b"<T0000850000000085>", "read net mask")
        arrives(b"<T00008d000000008d>", "read gateway")
        before = ["`help` lists the commands, `quit` ends.",
                  "front< <T0000850000000085>  command, add", "ress 00, tag 00: read net mask",
                  "front< <T00008d000000008d>  command, add", "ress 00, tag 00: read gateway"]
        self.assertEqual(rows(), before + ["> write IP address 192.168.0.100 and wha", "tever else there may be"])
        child.send("\x15") # all of the line is deleted
        arrives(b"<T00006a030000006d>", "read protocol version")
        after = ["front< <T00006a030000006d>  command, add", "ress 00, tag 00: read protocol version"]
        self.assertEqual(rows(), before + after + [">"])

    def test_ping_ends_with_a_summary(self):
        child = self.start("ping", "-i", "0.05")
        child.expect("seq=2 time=")
        child.sendintr()
        child.expect(r"\d+ sent, \d+ answered, 0% lost")
        self.end(child)

    def test_no_color_is_respected(self):
        os.environ["NO_COLOR"] = "1"
        self.addCleanup(os.environ.pop, "NO_COLOR")
        child = pexpect.spawn(VESKCTL, ["decode", "<F000068ffffffff64>"], timeout=60, encoding="utf-8",
                              env={**os.environ, "TERM": "xterm"})
        self.end(child)
        self.assertNotIn("\x1b", child.before)


def own_terminal():
    """In the child: its standard input is its terminal, and signals do what they usually do."""
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)
    for number in (signal.SIGINT, signal.SIGHUP):
        signal.signal(number, signal.SIG_DFL)


class Settings(unittest.TestCase):
    """The line and the terminal have the settings that they had, however veskctl ends."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.state = self.folder.name

    def file(self, name, content, mode=0o644):
        path = os.path.join(self.folder.name, name)
        with open(path, "wb") as file:
            file.write(content)
        os.chmod(path, mode)
        return path

    def begin(self, *arguments, silent=True, output=None, timeout=60000):
        """Starts veskctl on a line and a terminal that nobody has set up for it."""
        self.device = Device(silent)
        odd = termios.tcgetattr(self.device.other)
        odd[2] |= termios.CSTOPB
        odd[3] |= termios.ICANON | termios.ISIG
        odd[4] = odd[5] = termios.B9600
        termios.tcsetattr(self.device.other, termios.TCSANOW, odd)
        self.master, self.terminal = pty.openpty()
        self.before = self.settings()
        self.child = subprocess.Popen(
            [VESKCTL, "--serial", self.device.name, "--timeout", str(timeout), *arguments],
            stdin=self.terminal, stdout=output or self.terminal, stderr=self.terminal, start_new_session=True,
            preexec_fn=own_terminal, # pylint: disable=subprocess-popen-preexec-fn
            env={**os.environ, "XDG_STATE_HOME": self.state, "TERM": "xterm"})
        self.addCleanup(self.child.wait)
        self.addCleanup(self.child.kill)
        self.seen = b""
        self.looker = threading.Thread(target=self.look, args=(self.master,), daemon=True)
        self.looker.start()

    def look(self, master):
        while True:
            try:
                self.seen += os.read(master, 1000)
            except OSError:
                return

    def settings(self):
        return termios.tcgetattr(self.device.other), termios.tcgetattr(self.terminal)

    def until(self, condition, what):
        for _ in range(3000):
            if condition():
                return
            time.sleep(0.02)
        self.fail(f"in vain: {what}; {self.seen}")

    def until_busy(self, command):
        """Until veskctl has set up what it uses, and waits for an answer if it asks anything."""
        self.until(lambda: self.settings()[0] != self.before[0], "the line is set up")
        if command == "console":
            self.until(lambda: self.settings()[1] != self.before[1] and b"quit` ends" in self.seen, "a prompt")
        elif command != "monitor":
            self.until(lambda: self.device.heard >= (1000 if command == "update" else 19), "a question")

    def check_end(self, statuses):
        status = self.child.wait(timeout=60)
        self.assertIn(status, statuses, self.seen)
        line, terminal = self.settings()
        self.assertEqual(line, self.before[0], "the line")
        self.assertEqual(terminal, self.before[1], "the terminal")

    def test_after_ctrl_c_and_after_signals(self):
        transcript = self.file("transcript", b"front> hello, whoever is there\nfront< never\n")
        program = self.file("new", b"x" * 5000)
        commands = {
            "send": ["send", "read", "device", "type"],
            "info": ["info"],
            "network": ["network", "read"],
            "text": ["text", "read", "09"],
            "play": ["play", transcript],
            "ping": ["ping"],
            "monitor": ["monitor"],
            "console": ["console"],
            "update": ["update", "--force", program],
        }
        summing_up = {"ping", "monitor", "console"}
        for command, arguments in commands.items():
            for name in ("Ctrl-C", "SIGINT", "SIGTERM", "SIGHUP"):
                with self.subTest(command=command, ended_by=name):
                    # The device answers `update` its first question, and then nothing.
                    self.begin(*arguments, silent=command != "update")
                    self.until_busy(command)
                    if name == "Ctrl-C":
                        os.write(self.master, b"\x03")
                        number = signal.SIGINT
                    else:
                        number = getattr(signal, name)
                        self.child.send_signal(number)
                    by_signal = name == "SIGHUP" or command not in summing_up | {"update"}
                    status = -number if by_signal else 130 if command == "update" else 0
                    self.check_end([status])

    def test_after_failures(self):
        other = "/dev/full"
        rows = [
            ("nobody answers", ["send", "68", "02"], 3),
            ("a full disk under the record", ["--record", other, "send", "68", "01"], 4),
            ("a full disk under the record of monitor", ["--record", other, "monitor"], 4),
            ("a transcript that does not hold", ["play", self.file("t", b"front< never\n")], 1),
        ]
        for what, arguments, status in rows:
            with self.subTest(what):
                self.begin(*arguments, timeout=100)
                self.check_end([status])
        with self.subTest("a full disk under the output"), open("/dev/full", "wb") as full:
            self.begin("ping", silent=False, output=full)
            self.check_end([4])
        with self.subTest("a reader that goes away"):
            reading, writing = os.pipe()
            self.begin("monitor", output=writing)
            os.close(writing)
            self.until_busy("monitor")
            os.close(reading)
            os.write(self.device.end, b"<T0000680100000069>")
            self.check_end([-signal.SIGPIPE])

    def test_console_without_a_place_for_its_history(self):
        for name in ("a file in place of the folder", "a folder in place of the file"):
            with self.subTest(name):
                if name == "a file in place of the folder":
                    self.state = self.file("state", b"")
                else:
                    self.state = os.path.join(self.folder.name, "full")
                    os.makedirs(os.path.join(self.state, "veskctl", "history"))
                self.begin("console", silent=False)
                self.until_busy("console")
                os.write(self.master, b"68 01\r")
                self.until(lambda: b"read device type: 2633" in self.seen, "an answer")
                os.write(self.master, b"quit\r")
                self.check_end([0])

    def test_the_terminal_after_a_line_that_was_pulled(self):
        for command in ("console", "ping", "send read device type"):
            with self.subTest(command):
                self.begin(*command.split())
                self.until_busy(command)
                self.device.pull()
                self.assertEqual(self.child.wait(timeout=60), 4, self.seen)
                self.assertEqual(termios.tcgetattr(self.terminal), self.before[1])
                self.until(lambda: b"was closed" in self.seen, "what happened")


unittest.main()
