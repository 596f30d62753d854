#!/usr/bin/env python3
"""Make from vesk.yaml what programs and documents need. Debian: python3-yaml.

  generate.py veskctl [FILE]      veskctl's table, C++ to include
  generate.py rows [FILE]         the rows of the command table, C++ to include in a test
  generate.py completion [FILE]   completion of veskctl for bash
  generate.py manual [FILE]       man page of veskctl for scdoc
  generate.py docs                docs/protocol.md and mkdocs.yml anew, between their markers, and docs/commands/
  generate.py docs --check        nothing; fails if that would change one, or the time-outs differ
  generate.py wireshark           tools/wireshark/vesk.lua anew, between its markers
  generate.py wireshark --check   nothing; fails if that would change it

Refuses a vesk.yaml that contradicts itself, and says where. Its keys are vesk.schema.json's business.
"""
import difflib
import json
import os
import re
import sys

import yaml

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
DOCUMENT = os.path.join(ROOT, "docs", "protocol.md")
DISSECTOR = os.path.join(ROOT, "tools", "wireshark", "vesk.lua")
PLACES = ["dat1", "dat2", "dat3", "dat4"]
ADDRESSES = ["ipv4", "mask"]


class Refused(Exception):
    """vesk.yaml is wrong."""


def refuse(where, what):
    raise Refused(f"protocol/vesk.yaml: {where}: {what}")


# The table ------------------------------------------------------------------------------------------


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


# docs/protocol.md -------------------------------------------------------------------------------------


def markdown(heads, rows):
    lines = ["| " + " | ".join(heads) + " |", "|" + "---|" * len(heads)]
    return lines + [re.sub(r"\|  (?=\|)", "| ", "| " + " | ".join(cells) + " |") for cells in rows]


def commands_table(rows):
    cells = [(code, dat1, what, reply + remark) for code, dat1, what, reply, remark in rows]
    return markdown(["command", "dat1", "what", "reply dat1 to dat4"], cells)


def layout_table(table, fields, last=None):
    rows = [(str(f["at"]), str(length_of(table, f)), f.get("about", f["name"])) for f in fields]
    return markdown(["offset", "length", "content"], rows + ([last] if last else []))


def text_table(table):
    written, read = ([c for c in table["commands"] if c["code"] == code][0] for code in (0xF2, 0xF3))
    readable = [each["value"] for each in read["parameters"][0]["values"]]
    rows = [
        (f"{each['value']:02X}", each["means"], "ACK", "text" if each["value"] in readable else "NAK")
        for each in written["parameters"][0]["values"]
    ]
    return markdown(["dat1", "keys of", "F2, write", "F3, read"], rows + [("any other", "", "NAK", "NAK")])


def document_tables(table):
    update = [command for command in table["commands"] if command["code"] == 0x9A]
    head = table["update"]
    package = (str(head["head_length"]), "", "the package: the new executable")
    return {
        "frame": layout_table(table, table["frame"]["fields"]),
        "commands": commands_table(command_rows(table)),
        "network record": layout_table(table, table["payloads"]["network record"]["fields"]),
        "text": text_table(table),
        "update commands": commands_table(rows_of(table, update, {})),
        "update stream": layout_table(table, head["head"], package),
        "link frame": layout_table(table, table["link"]["frame"]["fields"]),
    }


def document_from(table, document):
    """The document with the tables between `<!-- vesk.yaml: NAME -->` and `<!-- end -->` made anew."""
    tables = document_tables(table)
    for name, lines in tables.items():
        pattern = rf"(<!-- vesk\.yaml: {name} -->\n).*?(<!-- end -->\n)"
        body = "\n" + "\n".join(lines) + "\n\n"
        document, count = re.subn(pattern, lambda m, b=body: m[1] + b + m[2], document, flags=re.DOTALL)
        if count != 1:
            raise Refused(f"docs/protocol.md: {count} places for the table \"{name}\" instead of one")
    return document


def milliseconds(text):
    found = re.match(r"([\d.]+) (ms|s)\b", text)
    return float(found[1]) * (1000 if found[2] == "s" else 1) if found else None


def table_under(document, heading):
    """The cells of the rows of the first table under a heading."""
    chapter = document.split(f"\n## {heading}\n")[1].split("\n## ")[0]
    lines = [line for line in chapter.splitlines() if line.startswith("| ")]
    return [re.split(r" *\| *", line)[1:-1] for line in lines[1:]]


def check_times(table, document):
    """The document's tables of time-outs and waits are written by hand, and held against ours."""
    rows = table_under(document, "Time-outs")
    default = milliseconds(rows[0][3])
    waits = {row[0]: milliseconds(row[2]) for row in table_under(document, "Payloads")}
    for command in table["commands"]:
        code = code_of(command)
        # "89, as long as ..." is about 89, "F0 20" and "F0, any other ..." are about F0, of which the longest counts.
        limits = [
            milliseconds(row[3])
            for row in rows[1:]
            for words in row[0].split(", ")
            if words == code or ("dat1" not in command and words[:2] == code)
        ]
        said = max([limit for limit in limits if limit] or [default])
        expected = command.get("time", table["default_time"])["timeout"]
        if said != expected:
            refuse(code, f"the time-out is {expected} ms, docs/protocol.md (Time-outs) says {said:.0f} ms")
        if "payload" in command and waits[code] != table["payloads"][command["payload"]]["wait"]:
            refuse(code, f"docs/protocol.md (Payloads) says that the device waits {waits[code]:.0f} ms")


def write_or_check(path, name, old, new, check):
    """`name` is what the file and the argument for it are called in a complaint."""
    if check and new != old:
        sys.stdout.writelines(list(difflib.unified_diff(old.splitlines(True), new.splitlines(True),
                                                   name[0], "made from protocol/vesk.yaml", n=0)))
        raise Refused(f"{name[0]} is not what protocol/vesk.yaml makes of it; run protocol/generate.py {name[1]}")
    if new != old:
        with open(path, "w", encoding="utf-8") as file:
            file.write(new)


def documents(table):
    """The files that are made of the table, or hold something that is: their text, by path below the root."""
    sys.modules.setdefault("generate", sys.modules[__name__])  # the pages are made with what stands above
    import pages

    texts = dict(pages.command_pages(table))
    with open(DOCUMENT, encoding="utf-8") as file:
        texts["docs/protocol.md"] = document_from(table, file.read())
    with open(os.path.join(ROOT, "mkdocs.yml"), encoding="utf-8") as file:
        texts["mkdocs.yml"] = pages.navigation_in(table, file.read())
    return texts


def read_if_there(path):
    if not os.path.exists(path):
        return ""
    with open(path, encoding="utf-8") as file:
        return file.read()


def write_documents(table, check):
    texts = documents(table)
    check_times(table, texts["docs/protocol.md"])
    folder = os.path.join(ROOT, "docs", "commands")
    strangers = [name for name in sorted(os.listdir(folder)) if f"docs/commands/{name}" not in texts]
    if check and strangers:
        raise Refused(f"docs/commands/{strangers[0]}: protocol/vesk.yaml has no such command")
    for name in strangers:
        os.remove(os.path.join(folder, name))
    for path, new in texts.items():
        write_or_check(os.path.join(ROOT, path), (path, "docs"), read_if_there(os.path.join(ROOT, path)), new, check)


# tools/wireshark/vesk.lua -----------------------------------------------------------------------------


def lua_field(table, field, at):
    parts = [quoted(field["name"]), quoted(field["type"]), str(at), str(length_of(table, field))]
    if field.get("order") == "low first":
        parts.append("low_first = true")
    if isinstance(field.get("value"), int):
        parts.append(f"value = {field['value']}")
    if "range" in field:
        parts.append(f"most = {field['range'][1]}")
    if "unit" in field:
        parts.append(f"unit = {quoted(field['unit'])}")
    if "values" in field:
        values = ", ".join(f"[0x{each['value']:02X}] = {quoted(each['means'])}" for each in field["values"])
        parts.append(f"values = {{{values}}}")
    return "{" + ", ".join(parts) + "}"


def lua_list(name, items, indent):
    """`name = {items},`, on one line if it is short."""
    line = f"{indent}{name} = {{{', '.join(items)}}},"
    if len(line) <= 117:
        return [line]
    return [f"{indent}{name} = {{", *[f"{indent}    {item}," for item in items], f"{indent}}},"]


def check_wireshark_names(fields):
    """Wireshark has one type for all fields of a name."""
    types = {}
    for where, field in fields:
        kind = {"mask": "ipv4", "serial number": "u16", "first half of mac": "bytes", "last half of mac": "bytes"}.get(
            field["type"], field["type"])
        name = re.sub("[^a-z0-9]+", "_", field["name"].lower())
        if types.setdefault(name, kind) != kind:
            refuse(where, f"another field \"{field['name']}\" is of type {types[name]}, and this one of {kind}")


def lua_command(table, command):
    row = [f"code = 0x{command['code']:02X}",
           f"dat1 = 0x{command['dat1']:02X}" if "dat1" in command else "dat1 = ANY",
           f"name = {quoted(command['name'])}",
           f"answer = {quoted(command['answer'] if isinstance(command['answer'], str) else 'data')}"]
    row += [f"{flag} = true" for flag in ("ff_is_data", "writes") if command.get(flag)]
    row += [f"{key} = {quoted(command[key])}" for key in ("payload", "answer_payload") if key in command]
    row += [f"timeout = {command['time']['timeout']}"] if "time" in command else []
    lines = [f"    {{{', '.join(row)},"]
    if len(lines[0]) > 117:
        lines = [f"    {{{', '.join(row[:-1])},", f"     {row[-1]},"]
    for key, fields in ("parameters", command.get("parameters", [])), ("fields", answer_of(command)):
        if fields:
            lines += lua_list(key, [lua_field(table, field, PLACES.index(field["at"])) for field in fields], " " * 5)
    return [*lines[:-1], lines[-1].removesuffix(",") + "},"]


def lua_payload(table, name, payload):
    lines = [f"    [{quoted(name)}] = {{"]
    for key in "length", "wait", "begins", "ends":
        if key in payload:
            lines.append(f"        {key} = {quoted(payload[key])},")
    if "fields" in payload:
        lines += lua_list("fields", [lua_field(table, field, field["at"]) for field in payload["fields"]], " " * 8)
    return lines + ["    },"]


def lua_tables(table):
    check_wireshark_names([(code_of(command), field) for command in table["commands"]
                           for field in command.get("parameters", []) + answer_of(command)])
    frame = table["frame"]
    update = table["update"]
    lines = [
        f"local FRAME_LENGTH = {frame['length']}",
        f"local COMMAND_BEGINS = {quoted(frame['command_begins'])}",
        f"local REPLY_BEGINS = {quoted(frame['reply_begins'])}",
        f"local REFUSAL = {{{', '.join(f'0x{byte:02X}' for byte in table['refusal'])}}}",
        f"local DEFAULT_TIMEOUT = {table['default_time']['timeout']}",
        "local SILENT_COMMANDS = {" + ", ".join(
            f"[0x{each['code']:02X}] = true" for each in table["others"] if each["answer"] == "none") + "}",
        "",
        "local COMMANDS = {",
        *[line for command in table["commands"] for line in lua_command(table, command)],
        "}",
        "",
        "local PAYLOADS = {",
        *[line for name, payload in table["payloads"].items() for line in lua_payload(table, name, payload)],
        "}",
        "",
        "local UPDATE = {",
        *[f"    {key} = {update[key]}," for key in ("block_size", "first_block", "head_length")],
        *lua_list("head", [lua_field(table, field, field["at"]) for field in update["head"]], " " * 4),
        "}",
    ]
    return "\n".join(lines) + "\n"


def write_dissector(table, check):
    with open(DISSECTOR, encoding="utf-8") as file:
        old = file.read()
    tables = lua_tables(table)
    new, count = re.subn(r"(-- vesk\.yaml: tables\n).*?(-- end\n)", lambda m: m[1] + tables + m[2], old, flags=re.DOTALL)
    if count != 1:
        raise Refused(f"tools/wireshark/vesk.lua: {count} places for the tables instead of one")
    write_or_check(DISSECTOR, ("tools/wireshark/vesk.lua", "wireshark"), old, new, check)


# C++ --------------------------------------------------------------------------------------------------


def quoted(text):
    return json.dumps(text, ensure_ascii=False)


def enumerator(type_):
    return "FieldType::k" + "".join(word.capitalize() for word in re.split("[ /]", type_))


def cpp_field(table, field):
    length = length_of(table, field)
    least, most = field.get("range", [0, 256 ** min(length, 4) - 1])
    if "value" in field:
        order = "little" if field.get("order") == "low first" else "big"
        least = most = int.from_bytes(bytes_of(table, field, field["value"]), order)
    flags = ["true" if flag else "false" for flag in (field.get("order") == "low first", field.get("echo", False))]
    return (f"{{{quoted(field['name'])}, {enumerator(field['type'])}, {PLACES.index(field['at'])}, {length}, "
            f"{', '.join(flags)}, {least}u, {most}u, {field.get('usual', least)}u, {quoted(field.get('unit', ''))}}}")


def veskctl_table(table):
    arrays = {}  # of fields, by name: some commands share one
    rows = []
    for command in table["commands"]:
        spans = []
        for fields in command.get("parameters", []), answer_of(command):
            array = ",\n    ".join(cpp_field(table, field) for field in fields)
            spans.append(arrays.setdefault(array, f"kFields{len(arrays)}") if fields else "{}")
        payload = table["payloads"].get(command.get("payload"), {})
        kind = command["answer"] if isinstance(command["answer"], str) else "data"
        note = "refused: not in this model" if kind == "nak" else ""
        flags = command.get("ff_is_data"), command.get("writes"), {"payload", "answer_payload"} & command.keys()
        rows.append("    {" + ", ".join([
            f"0x{command['code']:02X}",
            f"0x{command['dat1']:02X}" if "dat1" in command else "kAnyDat1",
            f"AnswerKind::k{kind.capitalize()}",
            *["true" if flag else "false" for flag in flags],
            quoted(command["name"]),
            *spans,
            f"{payload.get('wait', 0)}u",
            f"{command.get('time', table['default_time'])['timeout']}u",
            quoted(command.get("note", note)),
        ]) + "},")
    silent = [f"0x{each['code']:02X}" for each in table["others"] if each["answer"] == "none"]
    definitions = [f"constexpr Field {name}[] = {{\n    {array},\n}};" for array, name in arrays.items()]
    return "\n".join(["// Made from protocol/vesk.yaml by protocol/generate.py. Do not edit.", "// clang-format off",
                      *definitions, "constexpr CommandRow kTable[] = {", *rows, "};",
                      f"constexpr uint8_t kSilentCommands[] = {{{', '.join(silent)}}}; // but those with a row", ""])


def test_rows(table):
    return "".join(f"{{{quoted(code)}, {quoted(dat1)}, {quoted(what)}, {quoted(reply)}}},\n"
                   for code, dat1, what, reply, _ in command_rows(table))


# Completion -------------------------------------------------------------------------------------------


def completion(table):
    with open(os.path.join(HERE, "veskctl.bash.in"), encoding="utf-8") as file:
        template = file.read()
    names = "\n".join(command["name"].replace(",", "") for command in table["commands"])
    return template.replace("@NAMES@", names)


# Man page ---------------------------------------------------------------------------------------------


def manual(table):
    """The page in scdoc's language."""
    with open(os.path.join(HERE, "veskctl.1.scd.in"), encoding="utf-8") as file:
        template = file.read()
    rows = []
    for command in table["commands"]:
        answer = answer_of(command)
        kind = command["answer"] if isinstance(command["answer"], str) else ""
        says = {"ack": "acknowledged", "nak": "not supported"}.get(
            kind, ", ".join(field["name"] for field in answer if not field.get("echo")) or "answered")
        rows.append(f"|[ {code_of(command)}\n:[ {command['name']}\n:[ {says}\n")
    with open(os.path.join(HERE, "..", "CMakeLists.txt"), encoding="utf-8") as file:
        version = re.search(r"^project\(vesk_h264 VERSION ([0-9.]+)", file.read(), re.MULTILINE).group(1)
    return template.replace("@VERSION@", version).replace("@COMMANDS@\n", "".join(rows))


def main(arguments):
    kinds = {"manual": manual, "veskctl": veskctl_table, "rows": test_rows, "completion": completion}
    kept = {"docs": write_documents, "wireshark": write_dissector}
    if arguments and arguments[0] in kept and arguments[1:] in ([], ["--check"]):
        kept[arguments[0]](load(), arguments[1:] == ["--check"])
    elif len(arguments) in (1, 2) and arguments[0] in kinds:
        text = kinds[arguments[0]](load())
        if len(arguments) == 1:
            sys.stdout.write(text)
        else:
            with open(arguments[1], "w", encoding="utf-8") as file:
                file.write(text)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except Refused as refusal:
        sys.exit(str(refusal))
