#!/usr/bin/env python3
"""Example of a driver that reads vesk.yaml: read_all.py DEVICE runs every command that reads, on a serial line.

Prints the name, the reply, and what follows the reply as hexadecimal digits. Debian: python3-yaml.
"""
import os
import select
import sys
import tty

import yaml

with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "vesk.yaml"), encoding="utf-8") as file:
    table = yaml.safe_load(file)
line = os.open(sys.argv[1], os.O_RDWR | os.O_NOCTTY)
tty.setraw(line)


def read(count, wait):
    got = b""
    while len(got) < count and select.select([line], [], [], wait / 1000)[0]:
        got += os.read(line, count - len(got))
    return got


for command in table["commands"]:
    if not command.get("writes") and isinstance(command["answer"], list):
        data = {"dat1": command.get("dat1", 0), "dat2": 0, "dat3": 0, "dat4": 0}
        for field in command.get("parameters", []):
            values = [each["value"] for each in field.get("values", [])] + [field.get("usual", 0)]
            data[field["at"]] = field.get("value", values[0])
        record = bytes([0, 0, command["code"], *data.values()])
        os.write(line, b"<T%s%02x>" % (record.hex().encode(), sum(record) % 256))
        reply = read(table["frame"]["length"], command.get("time", table["default_time"])["timeout"])
        is_refused = reply[8:16] == bytes(table["refusal"]).hex().encode() and not command.get("ff_is_data")
        after = {} if is_refused else table["payloads"].get(command.get("answer_payload"), {})
        payload = read(after.get("length", after.get("longest", 0)), 500).hex()
        print(f"{command['name']}: {reply.decode()} {payload}".rstrip())
