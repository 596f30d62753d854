#!/usr/bin/env python3
"""veskctl on a terminal: what a person sees and types. VESKCTL names the program. Debian: python3-pexpect."""
import os
import pty
import re
import tempfile
import threading
import tty
import unittest

import pexpect

VESKCTL = os.environ["VESKCTL"]
ANSWERS = {
    b"<T0000680100000069>": b"<F00006801263300c2>",
    b"<T0000f12000000011>": b"<F0000f12000130024>" + bytes.fromhex("c0a80064ffffff00c0a80001027665736b01ee"),
    b"<T0000f309000000fc>": b"<F0000f309000000fc>[]",
}


class Device:
    """Answers at the far end of a serial line as a thread."""

    def __init__(self):
        self.end, self.other = pty.openpty()
        tty.setraw(self.other)
        self.name = os.ttyname(self.other)
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        heard = b""
        while True:
            try:
                heard += os.read(self.end, 1000)
            except OSError:
                return
            while len(heard) >= 19:
                command, heard = heard[:19], heard[19:]
                if command[6:10] == b"6a03":
                    tag = command[4:6]
                    body = b"00" + tag + b"6a03010a00"
                    total = sum(bytes.fromhex(body.decode())) & 0xFF
                    os.write(self.end, b"<F" + body + b"%02x>" % total)
                else:
                    os.write(self.end, ANSWERS.get(command, b""))


class Terminal(unittest.TestCase):
    def setUp(self):
        self.device = Device()
        self.state = tempfile.TemporaryDirectory()
        self.addCleanup(self.state.cleanup)

    def start(self, *arguments):
        environment = {**os.environ, "XDG_STATE_HOME": self.state.name, "TERM": "xterm", "NO_COLOR": ""}
        child = pexpect.spawn(VESKCTL, ["--serial", self.device.name, *arguments], env=environment, timeout=60,
                              encoding="utf-8", dimensions=(40, 160))
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
        child.expect(re.escape("<F00006801263300c2>  "))
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
        child.expect("0 commands, 0 replies, 1 refusals, 0 other bytes; 1 connections")
        self.end(child)

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


unittest.main()
