"""The protocol's table, vesk.yaml: read and checked, and the rows that documents and tests make of it."""
import os
import re

import yaml

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
PLACES = ["dat1", "dat2", "dat3", "dat4"]
ADDRESSES = ["ipv4", "mask"]


class Refused(Exception):
    """vesk.yaml is wrong."""


def refuse(where, what):
    raise Refused(f"protocol/vesk.yaml: {where}: {what}")


# Reading and checking --------------------------------------------------------------------------------


def code_of(command):
    return f"{command['code']:02X}" + (f" {command['dat1']:02X}" if "dat1" in command else "")


def answer_of(command):
    return command["answer"] if isinstance(command["answer"], list) else []


def length_of(table, field):
    return table["types"][field["type"]] or field["length"]


def check_field(table, where, field):
    where = f"{where}, field \"{field['name']}\""
    if field["type"] not in table["types"]:
        refuse(where, f"there is no type \"{field['type']}\"")
    if (table["types"][field["type"]] is None) != ("length" in field):
        refuse(where, f"the type {field['type']} " + ("has its own length" if "length" in field else "needs a length"))
    if field["type"] in ("u16", "u32") and not field.get("echo") and "order" not in field:
        refuse(where, "a number of several bytes needs an order")
    most = 256 ** length_of(table, field) - 1
    values = [each["value"] for each in field.get("values", [])]
    for number in [*field.get("range", []), field.get("usual", 0), *values]:
        if not 0 <= number <= most:
            refuse(where, f"{number} does not fit into {field['type']}")
    for value in field.get("value", 0), field.get("example", 0):
        if isinstance(value, list) and len(value) != length_of(table, field):
            refuse(where, f"{len(value)} bytes in a field of {length_of(table, field)}")
        if not isinstance(value, list) and not 0 <= value <= most:
            refuse(where, f"{value} does not fit into {field['type']}")


def check_places(table, command, fields, what):
    """The fields are in dat1 to dat4, beside each other, and not where the sub-command is."""
    next_free = 1 if "dat1" in command else 0
    for field in fields:
        where = f"{code_of(command)}, {what} \"{field['name']}\""
        if field["at"] not in PLACES:
            refuse(where, f"{field['at']} is not one of {', '.join(PLACES)}")
        check_field(table, code_of(command), field)
        first = PLACES.index(field["at"])
        if first < next_free:
            refuse(where, "the byte has another meaning already")
        next_free = first + length_of(table, field)
        if next_free > len(PLACES):
            refuse(where, "reaches beyond dat4, the end of a frame's data")


def check_layout(table, where, fields, length):
    end = 0
    for field in fields:
        check_field(table, where, field)
        if field["at"] != end:
            refuse(f"{where}, field \"{field['name']}\"", f"stands at {field['at']}, the one before it ends at {end}")
        end += length_of(table, field)
    if end != length:
        refuse(where, f"the fields end at {end}, the length is {length}")


def check_commands(table):
    before = (-1, -1)
    names = {}
    for command in table["commands"]:
        code = code_of(command)
        place = (command["code"], command.get("dat1", 0x100))
        if place == before:
            refuse(code, "stands twice")
        if place < before or (place[1] == 0x100 and place[0] == before[0]):
            refuse(code, "codes and sub-commands must rise, and a code has either one entry or sub-commands")
        before = place
        words = " ".join(command["name"].replace(",", " ").lower().split())
        if words in names:
            refuse(code, f"has the name of {names[words]}")
        if re.fullmatch("[0-9a-f ]*", words):
            refuse(code, f"\"{command['name']}\" could be hexadecimal digits")
        names[words] = code
        check_places(table, command, command.get("parameters", []), "parameter")
        check_places(table, command, answer_of(command), "answer")
        for key in "payload", "answer_payload":
            if key in command and command[key] not in table["payloads"]:
                refuse(code, f"there is no payload \"{command[key]}\"")
        if command.get("example_after", command["name"]) not in [each["name"] for each in table["commands"]]:
            refuse(code, f"example_after: there is no command \"{command['example_after']}\"")
        free = [field for field in answer_of(command) if "value" not in field]
        is_free = "dat1" not in command and sum(length_of(table, field) for field in free) == len(PLACES)
        if is_free != command.get("ff_is_data", False):
            refuse(code, "ff_is_data must be " + ("true: " if is_free else "false: not ") + "all of the answer is free")


def load(path=os.path.join(HERE, "vesk.yaml")):
    with open(path, encoding="utf-8") as file:
        table = yaml.safe_load(file)
    check_commands(table)
    check_layout(table, "frame", table["frame"]["fields"], table["frame"]["length"])
    link = table["link"]["frame"]
    check_layout(table, "link", link["fields"], link["length"])
    for name, payload in table["payloads"].items():
        if "fields" in payload:
            check_layout(table, f"payload \"{name}\"", payload["fields"], payload["length"])
    check_layout(table, "update", table["update"]["head"], table["update"]["head_length"])
    return table


# Rows of the command table, as the document and the tests have them -----------------------------------


def bytes_of(table, field, value):
    if isinstance(value, list):
        return value
    order = "little" if field.get("order") == "low first" else "big"
    return list(value.to_bytes(length_of(table, field), order))


def byte_names(table, field):
    """What the document calls the bytes of a field."""
    if "value" in field:
        return [f"{byte:02X}" for byte in bytes_of(table, field, field["value"])]
    length = length_of(table, field)
    if field["type"] == "version":
        return ["major", "minor"]
    if field["type"] in ("u16", "serial number"):
        return ["low", "high"] if field.get("order") == "low first" else ["high", "low"]
    first = 4 if field["type"] == "last half of mac" else 1
    name = field["name"].replace(" ", "_")
    return [name] if length == 1 else [f"{name}{first + i}" for i in range(length)]


def reply_of(table, command):
    if command["answer"] == "ack" and command.get("refused_if"):
        return "ACK or NAK"
    if not isinstance(command["answer"], list):
        return command["answer"].upper()
    bytes_ = [f"{command['dat1']:02X}" if "dat1" in command else "00", "00", "00", "00"]
    asked = {field["at"]: field for field in command.get("parameters", [])}
    for field in command["answer"]:
        first = PLACES.index(field["at"])
        if field.get("echo"):
            same = asked[field["at"]]
            names = byte_names(table, same) if "value" in same else [field["at"]]
        else:
            names = byte_names(table, field)
        bytes_[first : first + len(names)] = names
    return " ".join(bytes_)


def told(command):
    """What the command does, for the document."""
    if "about" in command:
        return command["about"]
    if command["answer"] == "nak":
        return f"{command['name']}: not supported by this model"
    text = command["name"]
    for field in command.get("parameters", []):
        at = field["at"]
        if field["type"] in ADDRESSES:
            text += " dat1.dat2.dat3.dat4"
        elif field["type"] == "on/off":
            text += f": {at} not 0 on, 0 off"
        elif field["type"] == "serial number":
            text += f": {at} the high byte, {PLACES[PLACES.index(at) + 1]} the low byte"
        else:
            text += f", {at} {field['name']}"
    return text


def remark(command):
    """What stands in brackets after the reply."""
    for field in answer_of(command):
        if field["type"] == "version" and "value" in field:
            return " (version {}.{})".format(*field["value"])
    return ""


def rows_of(table, commands, chapters):
    """(code, dat1, what, reply, remark) of the commands, and of what has no entry."""
    rows = []
    for i, command in enumerate(commands):
        code = f"{command['code']:02X}"
        if command["code"] in chapters:
            chapter = chapters[command["code"]]
            if "dat1" not in command:
                rows.append((code, "any", told(command), f"see \"{chapter}\"", ""))
            elif rows[-1][0] != code:
                rows.append((code, "any", chapter.lower(), f"see \"{chapter}\"", ""))
            continue
        dat1 = f"{command['dat1']:02X}" if "dat1" in command else "any"
        rows.append((code, dat1, told(command), reply_of(table, command), remark(command)))
        is_last = i + 1 == len(commands) or commands[i + 1]["code"] != command["code"]
        if is_last and dat1 != "any":
            other = next(o["answer"] for o in table["others"] if o["code"] in (command["code"], "any"))
            rows.append((code, "other", "", other if other == "none" else other.upper(), ""))
    return rows


def command_rows(table):
    chapters = {each["code"]: each["chapter"] for each in table["chapters"]}
    rows = rows_of(table, table["commands"], chapters)
    return rows + [("every other", "any", "unknown", table["others"][-1]["answer"].upper(), "")]
