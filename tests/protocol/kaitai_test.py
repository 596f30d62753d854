#!/usr/bin/env python3
"""The Kaitai descriptions in protocol/kaitai/: they are current, and what they read is what the documents and
`veskctl sav dump` say of the same bytes. VESKCTL names the program."""
import glob
import json
import os
import random
import re
import struct
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
FOLDER = os.path.join(ROOT, "protocol", "kaitai")
VESKCTL = os.path.realpath(os.environ.get("VESKCTL", os.path.join(ROOT, "build/release/tools/veskctl")))
sys.path.insert(0, os.path.dirname(__file__))
sys.dont_write_bytecode = True
from kaitai_reader import Description, Wrong  # noqa: E402  pylint: disable=wrong-import-position

# Kind as `veskctl sav` has it, description, a file's name, its length as in docs/files.md.
KINDS = [("UserPref", "user_pref", "UserPref.sav", 56), ("DevInfo", "dev_info", "DevInfo.sav", 20),
         ("save", "save", "save0.sav", 11832), ("view", "view", "view0.sav", 3996),
         ("page", "page", "page0_0.sav", 63936), ("timeCon", "time_con", "timeCon0.sav", 152),
         ("workTime", "work_time", "workTime.sav", 24)]


def description_of(name):
    return Description(os.path.join(FOLDER, f"vesk_{name}.ksy"))


def text_of(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


def hexadecimal(dump):
    """The bytes of what `hexdump -C` prints."""
    return bytes.fromhex("".join(line.strip()[8:].split("|")[0] for line in dump.splitlines()))


def is_same(ours, dumped):
    """Whether a value of the reader is that of a dump: there bytes are digits, or addresses, and an unknown byte and
    an identification are hexadecimal."""
    if isinstance(ours, dict):
        return list(ours) == list(dumped) and all(is_same(value, dumped[name]) for name, value in ours.items())
    if isinstance(ours, list):
        return len(ours) == len(dumped) and all(map(is_same, ours, dumped))
    if isinstance(ours, bytes):
        return dumped in (ours.hex(), ours.hex(":"), ".".join(map(str, ours)))
    if isinstance(dumped, str) and isinstance(ours, int):
        return dumped.startswith("0x") and int(dumped, 16) == ours
    if isinstance(dumped, str):
        return int(dumped, 16) == struct.unpack("<Q", struct.pack("<d", ours))[0]
    return ours == dumped


class Descriptions(unittest.TestCase):
    """What the files say, before any byte is read."""

    def test_they_are_current(self):
        subprocess.run([sys.executable, "-B", os.path.join(ROOT, "protocol", "kaitai.py"), "--check"], check=True)

    def test_there_is_one_for_each_kind_and_for_the_update(self):
        self.assertEqual({os.path.basename(path) for path in glob.glob(os.path.join(FOLDER, "*.ksy"))},
                         {f"vesk_{name}.ksy" for name in [each[1] for each in KINDS] + ["update"]})

    def test_what_is_not_understood_is_refused(self):
        good = text_of("protocol/kaitai/vesk_dev_info.ksy")
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "vesk_dev_info.ksy")
            for old, new in (("type: u4", "type: u3"), ("size: 3", "size: three\n  if: true"),
                             ("endian: le", "endian: me"), ("id: reserved9", "id: Reserved9"),
                             ("id: reserved16", "id: reserved9"), ("size: 4", "size: 4\n  terminator: 0"),
                             ("id: vesk_dev_info", "id: vesk_dev"), ("  size: 3", "  size: 3\n  repeat: eos")):
                self.assertIn(old, good)
                with open(path, "w", encoding="utf-8") as file:
                    file.write(good.replace(old, new, 1))
                with self.assertRaises(Wrong, msg=new):
                    Description(path)

    def test_fields_and_offsets_are_those_of_the_document(self):
        """Each record is a table of docs/files.md: offset, and name."""
        tables = set()
        rows = []
        for line in text_of("docs/files.md").splitlines() + [""]:
            cells = [cell.strip() for cell in line.split("|")]
            if len(cells) > 4 and cells[1].isdigit():
                rows.append((int(cells[1]), cells[3].strip("`")))
            else:
                tables.add(tuple(rows))
                rows = []
        seen = 0

        def hold(value):
            nonlocal seen
            if isinstance(value.value, list):
                for each in value.value[:1]:
                    hold(each)
            elif isinstance(value.value, dict):
                fields = tuple((each.at - value.at, name) for name, each in value.value.items())
                self.assertIn(fields, tables)
                seen += 1
                for each in value.value.values():
                    hold(each)

        for kind, name, _, length in KINDS:
            if kind != "page":
                hold(description_of(name).read(bytes(length))[0])
        self.assertGreaterEqual(seen, 25)


class Settings(unittest.TestCase):
    """The same bytes by the descriptions and by veskctl."""

    def hold(self, kind, name, file_name, data):
        value, length = description_of(name).read(data)
        self.assertEqual(length, len(data))
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, file_name)
            with open(path, "wb") as file:
                file.write(data)
            dumped = json.loads(subprocess.run([VESKCTL, "sav", "dump", "--json", path], capture_output=True,
                                               check=True).stdout)
        self.assertEqual(dumped["kind"], kind)
        ours = value.plain()
        self.assertEqual(list(ours), list(dumped["fields"]))
        for field, found in ours.items():
            self.assertTrue(is_same(found, dumped["fields"][field]), f"{field}: {found}, {dumped['fields'][field]}")
        return ours

    def test_any_bytes_are_read_as_veskctl_reads_them(self):
        for seed, (kind, name, file_name, length) in enumerate(KINDS):
            for part in range(4):
                with self.subTest(kind=kind, part=part):
                    self.hold(kind, name, file_name, random.Random(100 * seed + part).randbytes(length))

    def test_files_of_a_first_start(self):
        folder = os.path.join(ROOT, "tests", "data", "first-start")
        for kind, name, file_name in (("save", "save", "save0.sav"), ("save", "save", "save0-over-a5.sav"),
                                      ("workTime", "work_time", "workTime.sav")):
            with open(os.path.join(folder, file_name), "rb") as file:
                read = self.hold(kind, name, kind + ("0.sav" if kind == "save" else ".sav"), file.read())
            self.assertEqual(read["identification"], {"save": 0x2021365C, "workTime": 0x20150321}[kind])
        self.assertEqual(description_of("save").read(bytes(11832))[1], 11832)

    def test_the_records_of_the_document(self):
        blocks = re.findall(r"(?m)(?:^    [0-9a-f]{8}.*\n)+", text_of("docs/files.md"))
        found = {data[:4]: data for data in map(hexadecimal, blocks)}
        data = found[bytes.fromhex("38762406")]
        preferences = self.hold("UserPref", "user_pref", "UserPref.sav", data)
        self.assertEqual(preferences["ipAddress"], bytes([192, 168, 0, 100]))
        self.assertEqual(preferences["dns"], [bytes([194, 25, 2, 129]), bytes([194, 25, 2, 130])])
        self.assertEqual([preferences["preferenceWord"], preferences["indexTable"]], [2000, list(range(8))])
        information = self.hold("DevInfo", "dev_info", "DevInfo.sav", found[bytes.fromhex("5c36cd4b")])
        self.assertEqual(information["identification"], 0x4BCD365C)

    def test_a_file_that_is_too_short(self):
        for _, name, _, length in KINDS:
            with self.assertRaises(Wrong):
                description_of(name).read(bytes(length - 1))


class Update(unittest.TestCase):
    """The stream of the transcript that the daemon is tested with: a program of 41 bytes."""

    def test_the_stream_of_the_transcript(self):
        sent = [b""]  # what goes out in one piece
        for line in text_of("tests/replay/update.txt").splitlines():
            kind, _, rest = line.partition(" ")
            if kind == "front>":
                sent[-1] += rest.encode().decode("unicode_escape").encode("latin-1")
            elif kind == "front>>":
                for word in rest.split():
                    digits, _, count = word.partition("*")
                    sent[-1] += bytes.fromhex(digits) * int(count or 1)
            elif sent[-1]:
                sent.append(b"")
        blocks = []
        for data in sent:
            if len(data) == 19 + 1025 and data[19 + 51] == 41:  # a command and a block
                self.assertEqual(data[-1], sum(data[19:-1]) % 256)
                blocks.append(data[19:-1])
        self.assertEqual(len(blocks), 2)
        right = 0
        for stream in blocks:
            read, length = description_of("update").read(stream)
            read = read.plain()
            self.assertEqual(length, 1024)
            self.assertEqual([read["head"]["length"], len(read["filling"])], [41, 1024 - 128 - 41])
            self.assertEqual(read["package"], b"#!/bin/sh\nexec /usr/bin/vesk_h264_backup\n")
            right += read["head"]["sum"] == sum(read["package"] + read["filling"]) % 65536
        self.assertEqual(right, 1)  # the other is there to be refused
        with self.assertRaises(Wrong):
            description_of("update").read(blocks[0][:168])  # one byte of the package is missing


if __name__ == "__main__":
    unittest.main()
