#!/usr/bin/env python3
"""protocol/vesk.yaml against its schema, what the generator refuses, and bash's completion of veskctl."""
import copy
import io
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest
from contextlib import redirect_stdout

import jsonschema
import yaml

PROTOCOL = os.path.join(os.path.dirname(__file__), "..", "..", "protocol")
sys.path.insert(0, PROTOCOL)
sys.dont_write_bytecode = True
import generate  # noqa: E402  pylint: disable=wrong-import-position
import pages  # noqa: E402  pylint: disable=wrong-import-position

with open(os.path.join(PROTOCOL, "vesk.yaml"), encoding="utf-8") as yaml_file:
    TABLE = yaml.safe_load(yaml_file)
with open(os.path.join(PROTOCOL, "vesk.schema.json"), encoding="utf-8") as schema_file:
    SCHEMA = json.load(schema_file)


def entry(table, name):
    return next(command for command in table["commands"] if command["name"] == name)


def fault_of(table):
    """What the generator says of the table; empty if it takes it."""
    with tempfile.NamedTemporaryFile("w", suffix=".yaml") as file:
        yaml.safe_dump(table, file)
        file.flush()
        try:
            generate.load(file.name)
        except generate.Refused as refused:
            return str(refused)
    return ""


class Table(unittest.TestCase):
    def test_has_the_keys_of_its_schema(self):
        jsonschema.Draft7Validator.check_schema(SCHEMA)
        self.assertEqual([error.message for error in jsonschema.Draft7Validator(SCHEMA).iter_errors(TABLE)], [])

    def test_schema_refuses(self):
        rows = {
            "an unknown key": {"colour": "red"},
            "a code that is no byte": {"code": 256},
            "an unknown type": {"answer": [{"name": "x", "at": "dat1", "type": "u7"}]},
            "an unknown answer": {"answer": "maybe"},
            "a time-out of nothing": {"time": {"usual": 1, "longest": 1, "timeout": 0}},
            "writes that is no boolean": {"writes": "yes"},
        }
        for what, change in rows.items():
            table = copy.deepcopy(TABLE)
            entry(table, "read device type").update(change)
            with self.subTest(what):
                self.assertFalse(jsonschema.Draft7Validator(SCHEMA).is_valid(table))

    def test_schema_and_types_know_each_other(self):
        self.assertEqual(set(SCHEMA["definitions"]["field"]["properties"]["type"]["enum"]), set(TABLE["types"]))

    def test_no_answer_that_can_be_all_ff_is_a_refusal(self):
        addresses = [f"{command['code']:02X}" for command in TABLE["commands"] if command.get("ff_is_data")]
        self.assertEqual(addresses, ["84", "85", "88", "89", "8C", "8D"])

    def test_lists_what_changes_the_device(self):
        writing = [generate.code_of(command) for command in TABLE["commands"] if command.get("writes")]
        self.assertEqual(writing, ["6A 10", "84", "88", "8C", "8E 02", "9A A0", "F0", "F2"])


class Generator(unittest.TestCase):
    def test_takes_the_table(self):
        self.assertEqual(fault_of(TABLE), "")

    def test_refuses(self):
        u8 = {"name": "x", "at": "dat2", "type": "u8"}
        rows = [
            # the entry that is changed, the change, what is said
            ("read serial number", {"dat1": 0x10}, "6A 10: stands twice"),
            ("read serial number", {"dat1": 0x02}, "6A 02: codes and sub-commands must rise"),
            ("read gateway", {"code": 0x8C}, "8C: stands twice"),
            ("read system version", {"name": "Read, protocol VERSION"}, "6A 04: has the name of 6A 03"),
            ("read device type", {"name": "dead beef"}, "68 01: \"dead beef\" could be hexadecimal digits"),
            ("read device type", {"parameters": [{**u8, "at": "dat5"}]}, "dat5 is not one of dat1, dat2, dat3, dat4"),
            ("read device type", {"parameters": [{**u8, "at": "dat1"}]}, "the byte has another meaning already"),
            ("read device type", {"parameters": [u8, u8]}, "the byte has another meaning already"),
            ("read device type", {"parameters": [{**u8, "type": "ipv4"}]}, "reaches beyond dat4"),
            ("read device type", {"parameters": [{**u8, "type": "u7"}]}, "there is no type \"u7\""),
            ("read device type", {"parameters": [{**u8, "type": "u16"}]}, "needs an order"),
            ("read device type", {"parameters": [{**u8, "type": "bytes"}]}, "needs a length"),
            ("read device type", {"parameters": [{**u8, "length": 1}]}, "has its own length"),
            ("read device type", {"parameters": [{**u8, "range": [0, 256]}]}, "256 does not fit into u8"),
            ("read device type", {"parameters": [{**u8, "value": 256}]}, "256 does not fit into u8"),
            ("read device type", {"answer": [{**u8, "value": [1, 2]}]}, "2 bytes in a field of 1"),
            ("read device type", {"answer": [{**u8, "example": 256}]}, "256 does not fit into u8"),
            ("read device type", {"answer": [{**u8, "example": [1, 2]}]}, "2 bytes in a field of 1"),
            ("read device type", {"example_after": "song"}, "68 01: example_after: there is no command \"song\""),
            ("read device type", {"payload": "song"}, "there is no payload \"song\""),
            ("read net mask", {"ff_is_data": False}, "85: ff_is_data must be true"),
            ("read device type", {"ff_is_data": True}, "68 01: ff_is_data must be false"),
        ]
        for name, change, said in rows:
            table = copy.deepcopy(TABLE)
            entry(table, name).update(change)
            with self.subTest(said):
                self.assertIn(said, fault_of(table))

    def test_refuses_a_layout_with_a_gap(self):
        for what, layout in {"frame": TABLE["frame"]["fields"], "update": TABLE["update"]["head"]}.items():
            table = copy.deepcopy(TABLE)
            places = table["frame"]["fields"] if what == "frame" else table["update"]["head"]
            del places[1]
            with self.subTest(what):
                self.assertIn(f"stands at {layout[2]['at']}, the one before it ends at", fault_of(table))

    def test_says_which_time_out_the_document_has_otherwise(self):
        with open(generate.DOCUMENT, encoding="utf-8") as file:
            document = file.read()
        generate.check_times(TABLE, document)
        for name, time in {"read system version": 500, "read IP address": 1000, "write text": 12000}.items():
            table = copy.deepcopy(TABLE)
            entry(table, name)["time"]["timeout"] = time
            with self.subTest(name), self.assertRaisesRegex(generate.Refused, f"the time-out is {time} ms"):
                generate.check_times(table, document)
        table = copy.deepcopy(TABLE)
        table["payloads"]["text"]["wait"] = 500
        with self.assertRaisesRegex(generate.Refused, "F2: .* waits 1000 ms"):
            generate.check_times(table, document)


class Pages(unittest.TestCase):
    """What is printed at a desk is compared by scripts/check-examples."""

    def test_each_command_has_one(self):
        texts = pages.command_pages(TABLE)
        self.assertEqual(len(texts), len(TABLE["commands"]) + 1)
        for command in TABLE["commands"]:
            code = generate.code_of(command)
            page = texts[f"docs/commands/{pages.file_of(command)}"]
            with self.subTest(code):
                self.assertTrue(page.startswith(f"# {code}: {command['name']}\n"))
                self.assertIn(f"[{command['name']}]({pages.file_of(command)})", texts["docs/commands/README.md"])

    def test_examples_are_those_of_the_document(self):
        with open(generate.DOCUMENT, encoding="utf-8") as file:
            document = file.read()
        for name in ["read device type", "write serial number", "read serial number", "write data", "read data",
                     "update block size", "update version"]:
            for line in pages.frames(TABLE, entry(TABLE, name)):
                with self.subTest(name):
                    self.assertRegex(document, f"\n    {re.escape(line)}(\n| )")

    def test_the_navigation_has_them_in_its_place(self):
        text = "a:\n  # vesk.yaml: commands\n  - old: old.md\n  # end\nb:\n"
        lines = pages.navigation_in(TABLE, text).splitlines()
        self.assertEqual(lines[:3], ["a:", "  # vesk.yaml: commands",
                                     "  - \"10 11 print memory use\": docs/commands/print-memory-use.md"])
        self.assertEqual(lines[-2:], ["  # end", "b:"])
        with self.assertRaisesRegex(generate.Refused, "no place for the commands"):
            pages.navigation_in(TABLE, "a:\n")


class Dissector(unittest.TestCase):
    def test_is_what_the_table_makes(self):
        generate.write_dissector(generate.load(), True)
        table = generate.load()
        entry(table, "read device type")["name"] = "read kind of device"
        with redirect_stdout(io.StringIO()) as said, self.assertRaisesRegex(generate.Refused, "run .* wireshark"):
            generate.write_dissector(table, True)
        self.assertIn('+    {code = 0x68, dat1 = 0x01, name = "read kind of device"', said.getvalue())

    def test_has_one_type_for_all_fields_of_a_name(self):
        table = generate.load()
        entry(table, "read IP address")["answer"] = [{"name": "version", "at": "dat1", "type": "ipv4"}]
        with self.assertRaisesRegex(generate.Refused, "89: another field \"version\" is of type version"):
            generate.lua_tables(table)


class Completion(unittest.TestCase):
    def complete(self, *words):
        """What bash offers for the last of the words."""
        with tempfile.NamedTemporaryFile("w", suffix=".bash") as file:
            file.write(generate.completion(TABLE))
            file.flush()
            script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _veskctl; echo "${COMPREPLY[@]}"'
            command = ["bash", "-c", script, "bash", file.name, *words]
            run = subprocess.run(command, capture_output=True, text=True, check=True)
        self.assertEqual(run.stderr, "")
        return run.stdout.split()

    def test_offers_the_words_of_the_table(self):
        rows = [
            (["send", "w"], ["work", "write"]),
            (["--serial", "/dev/ttyS0", "send", "READ", "ma"], ["MAC"]),
            (["send", "read", "mac", "address", ""], ["first", "last"]),
            (["send", "read", "device", "type", ""], []),
            (["send", "write", "xyz"], []),
        ]
        for words, offered in rows:
            with self.subTest(" ".join(words)):
                self.assertEqual(self.complete("veskctl", *words), offered)

    def test_offers_the_values_of_options(self):
        rows = [
            (["monitor", "--color", ""], ["auto", "always", "never"]),
            (["monitor", "--color", "a"], ["auto", "always"]),
            (["monitor", "--time", ""], ["absolute", "delta", "none"]),
            (["update", "--machine", ""], ["arm", "x86_64", "any"]),
            (["update", "--progress", ""], ["bar", "json", "none"]),
            (["update", "--restart-timeout", ""], []),
            (["ping", "--count", ""], []),
        ]
        for words, offered in rows:
            with self.subTest(" ".join(words)):
                self.assertEqual(self.complete("veskctl", *words), offered)

    def test_offers_no_value_that_veskctl_refuses(self):
        for words, option in (["monitor"], "--color"), (["monitor"], "--time"), (["update"], "--machine"), (
                ["update"], "--progress"):
            for value in self.complete("veskctl", *words, option, ""):
                with self.subTest(f"{option} {value}"):
                    run = subprocess.run([os.environ["VESKCTL"], *words, option, value, "--help"], check=False,
                                         capture_output=True, text=True)
                    self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_offers_what_the_help_lists(self):
        veskctl = os.environ["VESKCTL"]
        self.assertEqual(self.complete(veskctl, "mon"), ["monitor"])
        self.assertEqual(self.complete(veskctl, "network", ""), ["read", "write"])
        self.assertIn("--query", self.complete(veskctl, "update", "--"))
        self.assertEqual(self.complete(veskctl, "sav", "d"), ["dump", "diff", "draw"])
        self.assertEqual(self.complete(veskctl, "timing", "d"), ["detect", "draw"])
        self.assertIn("--modeline", self.complete(veskctl, "timing", "calc", "--"))

    def test_offers_files_and_kinds_of_settings(self):
        veskctl = os.environ["VESKCTL"]
        here = os.path.dirname(__file__)
        self.assertEqual(self.complete(veskctl, "sav", "dump", f"{here}/gen"), [f"{here}/generate_test.py"])
        self.assertEqual(self.complete(veskctl, "sav", "make", "x.json", "-o", f"{here}/gen"),
                         [f"{here}/generate_test.py"])
        self.assertEqual(self.complete(veskctl, "sav", "diff", "--kind", "v"), ["view"])
        self.assertEqual(self.complete(veskctl, "sav", "schema", "U"), ["UserPref"])

    def test_offers_the_names_of_formats(self):
        veskctl = os.environ["VESKCTL"]
        names = self.complete(veskctl, "timing", "show", "1920x1080x6")
        self.assertEqual(sorted(names), ["1920x1080x60", "1920x1080x60_r", "1920x1080x60i"])
        self.assertEqual(self.complete(veskctl, "timing", "draw", "--standard", "v"), ["v1", "v2"])


if __name__ == "__main__":
    unittest.main()
