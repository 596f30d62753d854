"""A reader of binary files by a Kaitai description, for the part of the language that protocol/kaitai/ uses. It knows
nothing of the generator and refuses what it does not know, so that a mistake in a description cannot go unseen.
Debian: python3-yaml.
"""
import os
import re
import struct

import yaml

NUMBERS = {"u1": "B", "u2": "H", "u4": "I", "s1": "b", "s2": "h", "s4": "i", "f8": "d"}
IDENTIFIER = re.compile(r"[a-z][a-z0-9_]*")
KEYS = {
    "file": {"meta", "doc", "doc-ref", "seq", "types"},
    "meta": {"id", "title", "application", "file-extension", "license", "ks-version", "endian", "imports"},
    "type": {"doc", "doc-ref", "seq"},
    "attribute": {"id", "type", "size", "size-eos", "repeat", "repeat-expr", "doc"},
}


class Wrong(Exception):
    """A description is not one, or the bytes are too few."""


class Value:
    """A number, bytes, a list, or a dictionary by the names of the program (-orig-id); and its first byte."""

    def __init__(self, value, at):
        self.value = value
        self.at = at

    def plain(self):
        """The same without places."""
        if isinstance(self.value, list):
            return [each.plain() for each in self.value]
        if isinstance(self.value, dict):
            return {name: each.plain() for name, each in self.value.items()}
        return self.value


def require_keys(where, kind, mapping, needed=()):
    strange = {key for key in mapping if not key.startswith("-")} - KEYS[kind]
    if strange or not set(needed) <= mapping.keys():
        raise Wrong(f"{where}: {strange or needed}")


class Description:
    """A .ksy file, with those that it imports."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            tree = yaml.safe_load(file)
        name = os.path.basename(path)
        require_keys(name, "file", tree, ["meta", "seq"])
        meta = tree["meta"]
        require_keys(name, "meta", meta, ["id", "endian"])
        if meta["id"] + ".ksy" != name or meta["endian"] not in ("le", "be"):
            raise Wrong(f"{name}: {meta['id']}, {meta['endian']}")
        self.name = name
        self.order = {"le": "<", "be": ">"}[meta["endian"]]
        self.sequence = tree["seq"]
        self.types = tree.get("types", {})
        self.imports = {each: Description(os.path.join(os.path.dirname(path), each + ".ksy"))
                        for each in meta.get("imports", [])}
        for type_name, each in self.types.items():
            require_keys(f"{name}, {type_name}", "type", each, ["seq"])
        for where, sequence in [(name, self.sequence)] + [(key, each["seq"]) for key, each in self.types.items()]:
            self.check(where, sequence)

    def check(self, where, sequence):
        seen = set()
        for attribute in sequence:
            require_keys(where, "attribute", attribute, ["id"])
            name = attribute["id"]
            kinds = [key for key in ("type", "size", "size-eos") if key in attribute]
            known = "type" not in attribute or attribute["type"] in [*NUMBERS, *self.types, *self.imports]
            repeats = [attribute.get("repeat"), type(attribute.get("repeat-expr"))]
            if (not IDENTIFIER.fullmatch(name) or name in seen or not known or
                    kinds not in (["type"], ["size"], ["size-eos"], ["type", "size"]) or
                    (kinds == ["type", "size"] and attribute["type"] in NUMBERS) or
                    repeats not in ([None, type(None)], ["expr", int]) or
                    attribute.get("size-eos", True) is not True):
                raise Wrong(f"{self.name}, {where}: {attribute}")
            seen.add(name)

    def read(self, data):
        """All of `data`; the value and how many bytes were read."""
        reading = Reading(self, data)
        value = reading.sequence(self.sequence)
        return value, reading.at


class Reading:
    """A place in the bytes."""

    def __init__(self, description, data, at=0, end=None):
        self.description = description
        self.data = data
        self.at = at
        self.end = len(data) if end is None else end

    def take(self, count):
        if count < 0 or self.at + count > self.end:
            raise Wrong(f"{self.description.name}: {count} bytes from {self.at}, but there are {self.end}")
        self.at += count
        return self.data[self.at - count:self.at]

    def sequence(self, attributes):
        begin = self.at
        values = {}
        by_id = {}
        for attribute in attributes:
            start = self.at
            if "repeat" in attribute:
                value = Value([self.one(attribute, by_id) for _ in range(attribute["repeat-expr"])], start)
            else:
                value = self.one(attribute, by_id)
            by_id[attribute["id"]] = value
            values[attribute.get("-orig-id", attribute["id"])] = value
        return Value(values, begin)

    def size_of(self, expression, by_id):
        if isinstance(expression, int):
            return expression
        value = None
        for name in expression.split("."):
            value = by_id[name]
            if isinstance(value.value, dict):
                by_id = value.value
        return value.value

    def one(self, attribute, by_id):
        begin = self.at
        kind = attribute.get("type")
        if kind in NUMBERS:
            form = self.description.order + NUMBERS[kind]
            return Value(struct.unpack(form, self.take(struct.calcsize(form)))[0], begin)
        if kind is None:
            size = self.end - self.at if "size-eos" in attribute else self.size_of(attribute["size"], by_id)
            return Value(self.take(size), begin)
        inner = self.description.imports.get(kind, self.description)
        sequence = inner.sequence if kind in self.description.imports else self.description.types[kind]["seq"]
        end = begin + self.size_of(attribute["size"], by_id) if "size" in attribute else self.end
        if end > self.end:
            raise Wrong(f"{self.description.name}: {kind} ends at {end}, but there are {self.end} bytes")
        reading = Reading(inner, self.data, begin, end)
        value = reading.sequence(sequence)
        self.at = end if "size" in attribute else reading.at
        return value
