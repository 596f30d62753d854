#!/usr/bin/env python3
"""Make the Kaitai descriptions in protocol/kaitai/ of the settings files and of the update stream. Debian:
python3-yaml.

  kaitai.py             protocol/kaitai/*.ksy anew
  kaitai.py --check     nothing; fails if that would change one

Their fields are the lines of src/storage/*.def, which prove the daemon's records, and the head of the update stream
in vesk.yaml.
"""
import difflib
import glob
import os
import re
import sys

import yaml

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCES = os.path.join(os.path.dirname(HERE), "src", "storage")
FOLDER = os.path.join(HERE, "kaitai")
VIEWS_OF_A_PAGE = 16

SCALARS = {"uint8_t": "u1", "uint16_t": "u2", "uint32_t": "u4", "int16_t": "s2", "int32_t": "s4", "double": "f8"}

# File, the record that it is, title.
FILES = [("user_pref", "UserPref", "User preferences of a vesk_h264 device (UserPref.sav)"),
         ("dev_info", "DeviceInfo", "Device information of a vesk_h264 device (DevInfo.sav)"),
         ("save", "UserSetting", "User setting of a vesk_h264 device (save0.sav)"),
         ("view", "ViewSetting", "A stored view of a vesk_h264 device (view0.sav to view15.sav)"),
         ("time_con", "TimeControl", "Time-control table of a vesk_h264 device (timeCon0.sav)"),
         ("work_time", "WorkTimeList", "Work-time list of a vesk_h264 device (workTime.sav)")]
OWN_FILES = {record: "vesk_" + name for name, record, _ in FILES}


class Refused(Exception):
    """A line of the sources cannot be described."""


# The records ----------------------------------------------------------------------------------------


class Record:
    """The fields of a struct: offset, type, length of an inner array or None, count, name, unit."""

    def __init__(self, chapter):
        self.chapter = chapter
        self.fields = []
        self.size = None


def read_records():
    records = {}
    for path in sorted(glob.glob(os.path.join(SOURCES, "*.def"))):
        chapter = None
        with open(path, encoding="utf-8") as file:
            text = re.sub(r"//.*", "", file.read())
        for macro, arguments in re.findall(r"(RECORD_\w+)\(((?:[^()\"]|\"[^\"]*\")*)\)", text):
            words = [word.strip() for word in re.findall(r"\s*(\"[^\"]*\"|[^,]+)", arguments)]
            if macro == "RECORD_CHAPTER":
                chapter = words[0].strip('"')
            elif macro == "RECORD_SIZE":
                records[words[0]].size = int(words[1])
            elif macro in ("RECORD_FIELD", "RECORD_FIELD_IN"):
                record = records.setdefault(words[0], Record(chapter))
                kind = re.fullmatch(r"(\w+)(?:\[(\d+)\])?", words[2])
                record.fields.append((int(words[1]), kind[1], kind[2] and int(kind[2]), int(words[3]), words[4],
                                      words[5].strip('"') if len(words) > 5 else ""))
            else:
                raise Refused(f"{path}: {macro} is not known")
    return records


def snake(name):
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])", "_", name).lower()


# Bytes of which only the place and the default are known; as `veskctl sav` has it.
def is_unknown(name):
    return name.startswith(("reserved", "padding", "byte")) or "Byte" in name


def attribute(field, records):
    _, kind, inner, count, name, unit = field
    entry = {"id": snake(name), "-orig-id": name}
    if kind in records:
        entry["type"] = OWN_FILES.get(kind, snake(kind))
    elif kind not in SCALARS:
        raise Refused(f"{name}: there is no type {kind}")
    elif inner:
        entry["size"] = inner
    elif count > 1 and kind == "uint8_t" and (is_unknown(name) or "address" in unit.lower() or
                                              unit in ("leading ones", "bytes")):
        entry["size"], count = count, 1
    else:
        entry["type"] = SCALARS[kind]
    if count > 1:
        entry.update({"repeat": "expr", "repeat-expr": count})
    if unit:
        entry["doc"] = unit
    return entry


def sequence(record, records):
    sequence_of = [attribute(field, records) for field in record.fields]
    if len({entry["id"] for entry in sequence_of}) != len(sequence_of):
        raise Refused("two fields have one name")
    return sequence_of


def parts_of(name, records):
    """The records within a record that have no file of their own, in the order in which they come."""
    parts = []
    for _, kind, *_ in records[name].fields:
        if kind in records and kind not in OWN_FILES:
            parts += [part for part in [kind, *parts_of(kind, records)] if part not in parts]
    return list(dict.fromkeys(parts))


# The descriptions -----------------------------------------------------------------------------------


def meta(name, title, extension, endian, imports):
    result = {"id": name, "title": title, "application": "vesk_h264", "file-extension": extension, "license": "MIT",
              "ks-version": "0.8", "endian": endian}
    if imports:
        result["imports"] = imports
    return result


def chapter_of(record):
    return f"docs/files.md, {record.chapter}"


def description_of_file(name, record_name, title, records):
    record = records[record_name]
    imports = sorted({OWN_FILES[kind] for _, kind, *_ in record.fields if kind in OWN_FILES})
    result = {"meta": meta("vesk_" + name, title, "sav", "le", imports), "doc-ref": chapter_of(record),
              "seq": sequence(record, records)}
    types = {snake(part): {"-orig-id": part, "doc-ref": chapter_of(records[part]),
                           "seq": sequence(records[part], records)} for part in parts_of(record_name, records)}
    return {**result, "types": types} if types else result


def description_of_page():
    return {"meta": meta("vesk_page", "A page of a vesk_h264 device (page0_0.sav to page15_0.sav)", "sav", "le",
                         ["vesk_view"]),
            "doc-ref": "docs/files.md, Files",
            "seq": [{"id": "views", "-orig-id": "views", "type": "vesk_view", "repeat": "expr",
                     "repeat-expr": VIEWS_OF_A_PAGE}]}


def description_of_update():
    with open(os.path.join(HERE, "vesk.yaml"), encoding="utf-8") as file:
        update = yaml.safe_load(file)["update"]
    head = []
    for field in update["head"]:
        entry = {"id": field["name"].replace(" ", ""), "-orig-id": field["name"]}
        if field["type"] == "bytes":
            entry["size"] = field["length"]
        else:
            entry["type"] = {"u32": "u4", "sum16": "u2"}[field["type"]]
            if field["order"] != "high first":
                raise Refused(f"update, {field['name']}: the stream is not all big-endian")
        entry["doc"] = field["about"]
        head.append(entry)
    return {"meta": meta("vesk_update", "The stream of a firmware update of a vesk_h264 device", "bin", "be", []),
            "doc": f"Blocks of {update['block_size']} bytes, without the checksum byte after each on the line.",
            "doc-ref": "docs/protocol.md, Firmware update",
            "seq": [{"id": "head", "type": "head", "size": update["head_length"]},
                    {"id": "package", "size": "head.length", "doc": "the new executable"},
                    {"id": "filling", "size-eos": True, "doc": "of the last block; it counts in the sum"}],
            "types": {"head": {"seq": head}}}


def descriptions():
    """By file name."""
    records = read_records()
    made = {"vesk_" + file[0]: description_of_file(*file, records) for file in FILES}
    made["vesk_page"] = description_of_page()
    made["vesk_update"] = description_of_update()
    used = [OWN_FILES.keys()] + [parts_of(record, records) for record in OWN_FILES]
    if set(records) != set().union(*used):
        raise Refused(f"no file has {set(records) - set().union(*used)}")
    return {name + ".ksy": "# Made by protocol/kaitai.py, which is to be changed instead.\n" +
                           yaml.safe_dump(made[name], sort_keys=False, allow_unicode=True, width=110)
            for name in sorted(made)}


def main(arguments):
    if arguments not in ([], ["--check"]):
        sys.exit(__doc__)
    made = descriptions()
    stale = [path for path in glob.glob(os.path.join(FOLDER, "*.ksy")) if os.path.basename(path) not in made]
    if not arguments:
        for path in stale:
            os.unlink(path)
        for name, text in made.items():
            with open(os.path.join(FOLDER, name), "w", encoding="utf-8") as file:
                file.write(text)
        return
    wrong = [f"{path} is no longer made" for path in stale]
    for name, text in made.items():
        path = os.path.join(FOLDER, name)
        old = ""
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                old = file.read()
        wrong += difflib.unified_diff(old.splitlines(), text.splitlines(), path, "as protocol/kaitai.py makes it",
                                      lineterm="")
    if wrong:
        sys.exit("\n".join(wrong))


if __name__ == "__main__":
    try:
        main(sys.argv[1:])
    except Refused as refused:
        sys.exit(f"kaitai.py: {refused}")
