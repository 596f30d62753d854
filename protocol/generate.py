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

sys.dont_write_bytecode = True  # the sources stay as they are

import pages
from command_table import (HERE, PLACES, ROOT, Refused, answer_of, bytes_of, code_of, command_rows, length_of, load,
                           refuse, rows_of)
from pages import layout_table, markdown

DOCUMENT = os.path.join(ROOT, "docs", "protocol.md")
DISSECTOR = os.path.join(ROOT, "tools", "wireshark", "vesk.lua")


# docs/protocol.md -------------------------------------------------------------------------------------


def commands_table(rows):
    cells = [(code, dat1, what, reply + remark) for code, dat1, what, reply, remark in rows]
    return markdown(["command", "dat1", "what", "reply dat1 to dat4"], cells)


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
