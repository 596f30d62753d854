#!/usr/bin/env python3
"""tools/wireshark/vesk.lua in tshark: the captures of docs/captures/ and new ones, field by field against veskctl
decode and against the bytes; streams cut anywhere; and packets that make no sense.

VESKCTL and VESK_DAEMON or DAEMON name the programs (those of build/release if not set).
"""
import glob
import json
import os
import random
import re
import shutil
import struct
import subprocess
import tempfile
import unittest

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
KEPT = os.path.join(ROOT, "docs", "captures")
DISSECTOR = os.path.join(ROOT, "tools", "wireshark", "vesk.lua")
VESKCTL = os.environ.setdefault("VESKCTL", os.path.join(ROOT, "build", "release", "tools", "veskctl"))
DAEMON = os.environ["DAEMON"] = (
    os.environ.get("VESK_DAEMON") or os.environ.get("DAEMON") or os.path.join(ROOT, "build", "release", "vesk_h264"))

TO, FROM = "to the device", "from the device"
FRAME = re.compile(r"<[TF][0-9A-Fa-f]{16}>")
USER0, USER1, ETHERNET = 147, 148, 1

RECORD = {
    "address": "192.168.0.100",
    "net_mask": "255.255.255.0",
    "default_gateway": "192.168.0.1",
    "mac_address": "02:76:65:73:6b:01",
}
RIGHT, WRONG = {"is_right": "1"}, {"is_right": "0"}
# What follows the frames of each capture, in the order of the packets, as the transcripts have it.
PAYLOADS = {
    "network-record": [
        {**RECORD, **RIGHT},
        {**RECORD, **RIGHT},
        {**RECORD, **WRONG},
        {**RIGHT, "missing": list(RECORD)[3:]},  # one byte too short for the MAC address
        {**RIGHT, "missing": list(RECORD)},      # no network record
        {**RECORD, **RIGHT},
        {**RECORD, **RIGHT},
    ],
    "text": ["[a=1]", "[ a=1,b=2 ]", "[a=1]", "[]", "[a=1]", "[a=<T0000680100000069>]", "[]", "[]", "[]"],
    "update-commands": [{**WRONG}, {"length": "41", "sum": "0x0da1", **RIGHT}, {"length": "41", "sum": "0x0da0", **RIGHT}],
    "update": [{"length": "2041", "last": "0", **RIGHT}, {"last": "0", **RIGHT}, {"last": "1", **RIGHT}],
    "udp": [
        {**RECORD, **RIGHT},
        "[brightness=50,contrast=40]",
        "[]",
        {"length": "2041", "last": "0", **RIGHT},
        {"last": "0", **RIGHT},
        {"last": "1", **RIGHT},
    ],
}
# veskctl decode does not know payloads: how many frames it finds in them.
FRAMES_IN_PAYLOADS = {"text": 1, "network-record": 1}
HALF_FRAMES = {"framing": ["<T00006801", "<T000068010000069>"]}
SAID = { # of expert information, beside wrong checksums and half frames
    "update-commands": ["the sum is 0x0da0, the head says 0x0da1"],
    "text": ["has not come whole: its end is missing"],
}
FIELDS_OF_FRAMES = ["address", "tag", "command", "data", "kind", "name", "checksum_is_right", "fields"]


# Captures -----------------------------------------------------------------------------------------------


class Packet:
    """One of a capture: its line, its direction, its time in microseconds, its bytes."""

    def __init__(self, line, direction, time, data):
        self.line, self.direction, self.time, self.data = line, direction, time, data


def read_pcapng(data):
    at, names, packets = 0, [], []
    while at < len(data):
        kind, length = struct.unpack_from("<II", data, at)
        body = data[at + 8 : at + length - 4]
        if kind == 1:
            options = body[8:]
            names.append(options[4 : 4 + struct.unpack_from("<H", options, 2)[0]].decode())
            assert struct.unpack_from("<H", body)[0] == {"front": USER0, "pc": USER1}[names[-1]]
        elif kind == 6:
            line, high, low, size, whole = struct.unpack_from("<IIIII", body)
            assert size == whole
            options = body[20 + (size + 3) // 4 * 4 :]
            code, _, flags = struct.unpack_from("<HHI", options)
            assert code == 2
            direction = {1: FROM, 2: TO}[flags & 3]
            packets.append(Packet(names[line], direction, high << 32 | low, body[20 : 20 + size]))
        at += length
    return packets


def read_pcap(data):
    assert struct.unpack_from("<I", data)[0] == 0xA1B2C3D4 and struct.unpack_from("<I", data, 20)[0] == ETHERNET
    at, packets = 24, []
    while at < len(data):
        seconds, micros, size, _ = struct.unpack_from("<IIII", data, at)
        ip = data[at + 16 + 14 : at + 16 + size]
        udp = ip[(ip[0] & 15) * 4 : struct.unpack_from(">H", ip, 2)[0]]
        to_port = struct.unpack_from(">H", udp, 2)[0]
        packets.append(Packet("udp", TO if to_port == 1000 else FROM, seconds * 10**6 + micros, udp[8:]))
        at += 16 + size
    return packets


def read_capture(path):
    with open(path, "rb") as file:
        data = file.read()
    return read_pcapng(data) if path.endswith("pcapng") else read_pcap(data)


def option(code, value):
    return struct.pack("<HH", code, len(value)) + value + bytes(-len(value) % 4)


def block(kind, body):
    return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)


def write_pcapng(path, packets, link_type=USER0):
    """packets: (direction or None, bytes[, length before it was cut[, time in ms]])"""
    with open(path, "wb") as file:
        file.write(block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)))
        file.write(block(1, struct.pack("<HHI", link_type, 0, 262144) + option(2, b"front") + option(0, b"")))
        for i, (direction, data, *rest) in enumerate(packets):
            length = rest[0] if rest and rest[0] is not None else len(data)
            time = 1700000000 * 10**6 + (rest[1] if len(rest) > 1 else i) * 1000
            flags = {FROM: 1, TO: 2, None: 0}[direction]
            file.write(block(6, struct.pack("<IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(data), length)
                             + data + bytes(-len(data) % 4) + option(2, struct.pack("<I", flags)) + option(0, b"")))


def internet(protocol, source, destination, data):
    addresses = bytes([10, 0, 0, source, 10, 0, 0, destination])
    return struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(data), 0, 0, 64, protocol, 0) + addresses + data


def datagram(source, destination, data):
    """An Ethernet frame; the ends are (last number of the address, port)."""
    udp = struct.pack(">HHHH", source[1], destination[1], 8 + len(data), 0) + data
    return bytes(12) + b"\x08\0" + internet(17, source[0], destination[0], udp)


# tshark -------------------------------------------------------------------------------------------------


class Tshark:
    """Runs tshark in a folder of its own, with the dissector; `change` is what to replace in it."""

    def __init__(self, change=("", "")):
        self.folder = tempfile.TemporaryDirectory()
        self.script = os.path.join(self.folder.name, "vesk.lua")
        with open(DISSECTOR, encoding="utf-8") as file:
            text = file.read()
        assert change[0] in text
        with open(self.script, "w", encoding="utf-8") as file:
            file.write(text.replace(*change))

    def run(self, capture, *arguments):
        inside = os.path.join(self.folder.name, os.path.basename(capture))
        if inside != capture:
            shutil.copyfile(capture, inside)
        # Some builds run no scripts for root, and all warn of it: be somebody else.
        nobody = ["unshare", "--user", "--map-user=1000", "--map-group=1000"]
        if os.geteuid() != 0 or subprocess.run([*nobody, "true"], capture_output=True, check=False).returncode != 0:
            nobody = []
        command = [*nobody, "tshark", "-n", "-X", f"lua_script:{self.script}", "-r", inside, *arguments]
        environment = {**os.environ, "HOME": self.folder.name, "WIRESHARK_CONFIG_DIR": self.folder.name, "LC_ALL": "C"}
        run = subprocess.run(command, capture_output=True, check=False, env=environment, timeout=300)
        said = run.stderr.decode()
        if nobody or os.geteuid() != 0:
            assert said == "", said
        assert run.returncode == 0, said
        return run.stdout.decode("utf-8", "replace")

    def packets(self, capture, *arguments):
        """For each packet what the dissector says: (direction, its items)."""
        text = self.run(capture, "-T", "json", *arguments)
        assert "Lua Error" not in text, text[text.index("Lua Error") - 2000 :][:2500]
        found = []
        for packet in json.loads(text, object_pairs_hook=list):
            layers = dict(dict(dict(packet)["_source"])["layers"])
            found.append(Layer(layers["vesk"]))
        return found


class Layer:
    """The dissector's tree of one packet: its items, each (name, text, what is below it)."""

    def __init__(self, pairs):
        self.direction = dict(pairs)["vesk.direction"]
        self.said = messages(pairs)
        self.items = []
        for key, value in pairs:
            if key.endswith("_tree"):
                self.items[-1][2].extend(value)
            elif key != "vesk.direction" and key.startswith("vesk."):
                self.items.append((key[len("vesk.") :], value, []))

    def named(self, name):
        return [item for item in self.items if item[0] == name]


def messages(pairs):
    """All expert information in a tree."""
    found = []
    for key, value in pairs:
        if key == "_ws.expert.message":
            found.append(value)
        elif isinstance(value, list):
            found += messages(value)
    return found


def decode(data):
    """What veskctl says of the frames in the bytes."""
    run = subprocess.run([VESKCTL, "decode", "--json", "--quiet"], input=data, capture_output=True, check=False)
    assert run.returncode in (0, 2), run.stderr
    return [json.loads(line) for line in run.stdout.decode("utf-8", "replace").splitlines()]


# Comparisons ----------------------------------------------------------------------------------------------


class Disagreement(Exception):
    """tshark and the other side do not say the same."""


def same(where, said, expected):
    if isinstance(expected, bool):
        fits = said == str(int(expected))
    elif isinstance(expected, int):
        fits = said is not None and int(said, 0) == expected
    else:
        fits = said == expected
    if not fits:
        raise Disagreement(f"{where}: tshark says {said}, the other {expected}")


def compare_frame(where, tree, other):
    """The frame's fields in tshark's tree and in veskctl's JSON. Returns how many there were."""
    assert set(other) == {"frame", *FIELDS_OF_FRAMES}
    tree = dict(tree)
    expected = {key: other[key] for key in ("kind", "address", "tag", "command", "name", "checksum_is_right")}
    expected.update({f"dat{i + 1}": other["data"][i] for i in range(4)})
    expected["checksum"] = int(other["frame"][16:18], 16)
    for name, value in other["fields"].items():
        expected["field." + re.sub("[^a-z0-9]+", "_", name.lower())] = value
    for key, value in expected.items():
        same(f"{where}: {other['frame']}: {key}", tree.get("vesk." + key), value)
    strangers = {key for key in tree if key.startswith("vesk.field.")} - {"vesk." + key for key in expected}
    if strangers:
        raise Disagreement(f"{where}: {other['frame']}: tshark alone has {strangers}")
    return len(expected)


def compare_decode(name, packets, layers):
    """Every frame of every stream. Returns how many fields, and frames that only veskctl sees."""
    fields = in_payloads = 0
    for stream in sorted({(packet.line, packet.direction) for packet in packets}):
        mine = [i for i, packet in enumerate(packets) if (packet.line, packet.direction) == stream]
        for i in mine:
            same(f"{name}, packet {i + 1}", layers[i].direction, stream[1])
        frames = [item for i in mine for item in layers[i].named("frame") if FRAME.fullmatch(item[1])]
        payloads = "".join(item[1] for i in mine for item in layers[i].named("payload"))
        for other in decode(b"".join(packets[i].data for i in mine)):
            if frames and frames[0][1] == other["frame"]:
                fields += compare_frame(f"{name}, {stream}", frames.pop(0)[2], other)
            elif other["frame"].encode().hex(":") in payloads:
                in_payloads += 1
            else:
                raise Disagreement(f"{name}, {stream}: only veskctl has {other['frame']}")
        if frames:
            raise Disagreement(f"{name}, {stream}: only tshark has {frames[0][1]}")
    return fields, in_payloads


def right_sum(text):
    return sum(bytes.fromhex(text[2:16])) % 256 == int(text[16:18], 16)


def compare_links(name, packets, layers):
    """A reply answers the latest command of its address, tag and code. Returns how many did."""
    waiting, links, answered = [], 0, {}
    for number, (packet, layer) in enumerate(zip(packets, layers), 1):
        for _, text, tree in layer.named("frame"):
            tree = dict(tree)
            key = re.sub("[^0-9a-f]", "0", text[2:8].lower())
            if text[1] == "T":
                waiting.append((packet.line, packet.direction, key, number))
                continue
            found = [each for each in waiting if each[0] == packet.line and each[1] != packet.direction
                     and each[2] == key and right_sum(text)]
            same(f"{name}, packet {number}: response to", tree.get("vesk.response_to"), str(found[-1][3]) if found else None)
            if found:
                waiting.remove(found[-1])
                answered.setdefault(found[-1][3], []).append(str(number))
                time = packet.time - packets[found[-1][3] - 1].time
                same(f"{name}, packet {number}: time", tree["vesk.time"], f"{time // 10**6}.{time % 10**6:06}000")
                links += 1
    for number, layer in enumerate(layers, 1):
        said = [dict(tree).get("vesk.response_in") for _, text, tree in layer.named("frame") if text[1] == "T"]
        if [each for each in said if each] != answered.get(number, []):
            raise Disagreement(f"{name}, packet {number}: response in {said}, and not {answered.get(number)}")
    return links


def compare_payloads(name, layers):
    """What follows the frames. Returns how many fields."""
    found = [dict(tree) for layer in layers for _, _, tree in layer.named("payload")]
    expected = PAYLOADS.get(name, [])
    if len(found) != len(expected):
        raise Disagreement(f"{name}: {len(found)} payloads instead of {len(expected)}")
    fields = 0
    for i, (tree, wanted) in enumerate(zip(found, expected)):
        if isinstance(wanted, str):
            wanted = {"text": wanted}
        keys = {"is_right": "payload_checksum_is_right", "last": "block.is_last", "length": "update.length",
                "sum": "update.sum", "text": "text"}
        for key, value in wanted.items():
            if key == "missing":
                for each in value:
                    same(f"{name}, payload {i}: {each}", tree.get(f"vesk.payload.network_record.{each}"), None)
            else:
                place = keys.get(key, f"payload.network_record.{key}")
                same(f"{name}, payload {i}: {key}", tree.get("vesk." + place), value)
            fields += 1
    return fields


def compare_faults(name, packets, layers):
    """Expert information about faults, beside what is only remarkable."""
    for number, layer in enumerate(layers, 1):
        for _, text, tree in layer.named("frame"):
            said = messages(tree)
            record = re.sub("[^0-9A-Fa-f<>TF]", "0", text[:18])
            is_wrong = any(each.startswith("Wrong checksum 0x") for each in said)
            same(f"{name}, packet {number}: {text}: is wrong", str(int(is_wrong)), not right_sum(record))
            same(f"{name}, packet {number}: {text}: end", str(int("A frame does not end in >" in said)), text[18] != ">")
            is_strange = not re.fullmatch("[0-9A-Fa-f]*", text[2:18])
            same(f"{name}, packet {number}: {text}: digits",
                 str(int("Not hexadecimal digits, which count as 0" in said)), is_strange)
    # The PC may hear the first bytes of an executed frame.
    half = [text for packet, layer in zip(packets, layers) if (packet.line, packet.direction) != ("pc", FROM)
            for _, text, _ in layer.named("half_frame")]
    if half != HALF_FRAMES.get(name, []):
        raise Disagreement(f"{name}: half frames {half}")
    said = "\n".join(each for layer in layers for each in layer.said)
    for each in SAID.get(name, []):
        if each not in said:
            raise Disagreement(f"{name}: nobody says \"{each}\", but {said}")


class Captures(unittest.TestCase):
    """Kept ones, and those that the script makes now."""

    @classmethod
    def setUpClass(cls):
        cls.tshark = Tshark()
        cls.addClassCleanup(cls.tshark.folder.cleanup)
        os.makedirs(os.path.join(ROOT, "build"), exist_ok=True)
        cls.fresh = tempfile.TemporaryDirectory(dir=os.path.join(ROOT, "build"))
        run = subprocess.run([os.path.join(ROOT, "scripts", "make-captures"), cls.fresh.name], capture_output=True,
                             stdin=subprocess.DEVNULL, check=False)
        assert run.returncode == 0, run.stderr.decode()

    @classmethod
    def tearDownClass(cls):
        cls.fresh.cleanup()

    def captures(self):
        kept, fresh = ({os.path.basename(path): path for path in glob.glob(os.path.join(folder, "*.pcap*"))}
                       for folder in (KEPT, self.fresh.name))
        self.assertEqual(sorted(kept), sorted(fresh)) # a capture that no script makes, or that is not kept
        for file in sorted(kept):
            yield file.split(".")[0], kept[file], "kept"
            yield file.split(".")[0], fresh[file], "fresh"

    def test_agree_with_veskctl_and_with_the_bytes(self):
        total = 0
        for name, path, which in self.captures():
            with self.subTest(name=name, which=which):
                packets = read_capture(path)
                layers = self.tshark.packets(path, "-2")
                self.assertEqual(len(layers), len(packets))
                fields, in_payloads = compare_decode(name, packets, layers)
                self.assertEqual(in_payloads, FRAMES_IN_PAYLOADS.get(name, 0))
                links = compare_links(name, packets, layers)
                payload_fields = compare_payloads(name, layers)
                compare_faults(name, packets, layers)
                frames = sum(len(layer.named("frame")) for layer in layers)
                print(f"{name} ({which}): {len(packets)} packets, {frames} frames, {fields} fields agree with veskctl, "
                      f"{links} answers linked, {payload_fields} fields of payloads")
                total += fields
        print(f"{total} fields agree")
        self.assertGreater(total, 5000)

    def test_have_every_command_and_need_no_second_pass(self):
        names = set()
        for path in glob.glob(os.path.join(KEPT, "*.pcap*")):
            layers = self.tshark.packets(path)
            compare_decode(path, read_capture(path), layers)
            for layer in layers:
                names |= {dict(tree).get("vesk.name") for _, _, tree in layer.named("frame")}
        with open(os.path.join(ROOT, "protocol", "vesk.yaml"), encoding="utf-8") as file:
            listed = re.findall(r"^- (?:\{name|name): ([^#\n]+?)(?: *#.*|, code.*)?$", file.read(), re.MULTILINE)
        self.assertGreater(len(listed), 30)
        self.assertEqual(set(listed) - names, set())

    def test_every_filter_of_the_document_finds_something(self):
        with open(os.path.join(ROOT, "tools", "wireshark", "README.md"), encoding="utf-8") as file:
            rows = [line.split("|")[1] for line in file if line.startswith("| `")]
        filters = [each for row in rows for each in re.findall("`(.*?)`", row)]
        self.assertGreater(len(filters), 8)
        merged = os.path.join(self.tshark.folder.name, "all.pcapng")
        subprocess.run(["mergecap", "-a", "-w", merged, *sorted(glob.glob(os.path.join(KEPT, "*.pcap*")))], check=True)
        for each in filters:
            with self.subTest(each):
                self.assertNotEqual(self.tshark.run(merged, "-2", "-Y", each), "")

    def test_a_fault_in_the_dissector_is_found(self):
        faults = { # by the capture that shows it
            "network-settings": ("[3] + i]", "[3] + i % 4 + 1]"),
            "device": ("high * 16 + low", "low * 16 + high"),
            "network-record": ("low_first = true, most", "most"),
            "not-supported": ('name = "time control"', 'name = "time"'),
            "text": ('dat1 = ANY, name = "read text"', 'dat1 = 0x09, name = "read text"'),
            "framing": ('wanted:find("<", 1, true)', 'wanted:find("!", 1, true)'),
            "update": ("request.time, item.time", "item.time, item.time"),
            "wrong-checksum": ("sum % 256", "sum % 255"),
        }
        for name, change in faults.items():
            path = os.path.join(KEPT, name + ".pcapng")
            with self.subTest(name), self.assertRaises((Disagreement, AssertionError)):
                tshark = Tshark(change)
                self.addCleanup(tshark.folder.cleanup)
                packets, layers = read_capture(path), tshark.packets(path, "-2")
                compare_decode(name, packets, layers)
                compare_links(name, packets, layers)


class Streams(unittest.TestCase):
    """Frames and payloads wherever the packets end."""

    TALK = [
        (TO, b"<T0000680100000069>"),
        (FROM, b"<F00006801263300c2>"),
        (TO, b"<T0000f02000130023>" + bytes.fromhex("c0a80064ffffff00c0a800010276656b6b01e6")),
        (FROM, b"<F0000f02000130023>"),
        (TO, b"<T0000f209000000fb>[a=1,b=2]"),
        (FROM, b"<F0000f209000000fb>"),
        (TO, b"<T0000f309000000fc>"),
        (FROM, b"<F0000f309000000fc>[]"),
    ]

    @classmethod
    def setUpClass(cls):
        cls.tshark = Tshark()
        cls.addClassCleanup(cls.tshark.folder.cleanup)

    def seen(self, *talks):
        """Of each talk, with a control PC of its own: see results()."""
        packets = []
        for i, talk in enumerate(talks):
            device, peer = (9, 1000), (1, 40000 + i)
            for way, data, *rest in talk:
                lacks = rest[0] - len(data) if rest and rest[0] else 0
                ends = (peer, device) if way == TO else (device, peer)
                frame = datagram(*ends, data + bytes(lacks))
                packets.append((None, frame[: len(frame) - lacks], len(frame), *rest[1:]))
        return self.results(talks, packets, ETHERNET)

    def results(self, talks, packets, link_type=USER0):
        """Of each talk: the frames and payloads of each direction, what is said of them, and the layers."""
        path = os.path.join(self.tshark.folder.name, "stream.pcapng")
        write_pcapng(path, packets, link_type)
        rest = self.tshark.packets(path, "-2")
        results = []
        for talk in talks:
            layers, rest = rest[: len(talk)], rest[len(talk) :]
            items = {TO: [], FROM: [], "unknown": []}
            for layer in layers:
                items[layer.direction] += [item[:2] for item in layer.items if item[0] not in ("begun", "payload_part")]
            results.append((items, [each for layer in layers for each in layer.said], layers))
        return results

    def test_are_the_same_cut_anywhere(self):
        sizes = [1, 2, 3, 5, 7, 11, 13, 17, 18, 19, 20]
        cut = [[(way, data[i : i + size]) for way, data in self.TALK for i in range(0, len(data), size)] for size in sizes]
        (whole, _, _), *others = self.seen(self.TALK, *cut)
        self.assertEqual([item[0] for item in whole[TO]], ["frame", "frame", "payload", "frame", "payload", "frame"])
        self.assertEqual([item[0] for item in whole[FROM]], ["frame", "frame", "frame", "frame", "payload"])
        for size, (items, said, _) in zip(sizes, others):
            with self.subTest(size=size):
                self.assertEqual(items, whole)
                self.assertEqual([each for each in said if "does not end in this packet" not in each], [])

    def test_are_the_same_in_one_packet(self):
        ways = [(way, b"".join(data for each, data in self.TALK if each == way)) for way in (TO, FROM)]
        (whole, _, _), (items, _, layers) = self.seen(self.TALK, ways)
        self.assertEqual(items, whole)
        linked = [dict(tree).get("vesk.response_to") for _, _, tree in layers[1].named("frame")]
        self.assertEqual(linked, [str(len(self.TALK) + 1)] * 4)

    def test_of_unknown_direction_are_one_stream(self):
        ((items, _, layers),) = self.results([self.TALK[:2]], [(None, data) for _, data in self.TALK[:2]])
        self.assertEqual([item[1] for item in items["unknown"]], ["<T0000680100000069>", "<F00006801263300c2>"])
        self.assertEqual(dict(layers[1].items[0][2])["vesk.response_to"], "1")

    def test_show_where_a_frame_began_and_ends(self):
        talk = [(TO, b"<T0000"), (TO, b"68"), (TO, b""), (TO, b"0100000069>")]
        ((_, said, layers),) = self.results([talk], talk)
        self.assertEqual([dict(layers[i].items[0][2])["vesk.ended_in"] for i in (0, 1)], ["4", "4"])
        self.assertEqual(dict(layers[3].items[0][2])["vesk.begun_in"], "1")
        self.assertIn("A frame does not end in this packet", said)

    def test_say_what_is_wrong(self):
        f0 = b"<T0000f02000130023>"
        rows = [
            ([(TO, b"<T0000"), (TO, b"<T0000680100000069>")], "Half a frame, which is lost"),
            ([(TO, b"<T0000680100000068>")], "Wrong checksum 0x68, should be 0x69"),
            ([(TO, b"<T0000680100000069}")], "A frame does not end in >"),
            ([(TO, b"<T00xx680100000069>")], "Not hexadecimal digits, which count as 0"),
            ([(TO, b"<T0000690000000069>")], "Unknown command"),
            ([(TO, b"<T0000680200000069>"), (FROM, b"<F000068ffffffff64>")], "Refused"),
            ([(TO, b"<T000084ffffff0081>"), (FROM, b"<F000084ffffffff80>")], "Refused: write net mask"),
            ([(TO, f0 + bytes(18) + b"\1")], "Wrong checksum of a payload"),
            ([(TO, f0 + bytes(5)), (FROM, b"<F0000f0ffffffffec>")], "14 of its bytes are missing"),
            ([(TO, f0 + bytes(5)), (TO, bytes(14), None, 11500)], "14 of its bytes are missing"),
            ([(TO, b"<T0000680100000069>")], "No answer in this capture"),
            ([(TO, b"<T00008e0400000092>")], "This command never gets an answer"),
            ([(TO, b"<T0000680100000069>"), (FROM, b"<F00006801263300c2>", None, 1500)],
             "The answer came after the time-out"),
            ([(TO, b"<T00006801", 19)], "The capture lacks bytes of this packet"),
        ]
        for (talk, expected), (_, said, _) in zip(rows, self.seen(*(talk for talk, _ in rows))):
            with self.subTest(expected, talk=talk):
                self.assertTrue([each for each in said if expected in each], said)
        ((_, said, _),) = self.seen(self.TALK)
        self.assertEqual(said, [])

    @staticmethod
    def update():
        """The packets of an update: three blocks, each with its frame and its checksum."""
        package = random.Random(16).randbytes(3 * 1024 - 128)
        head = bytearray(128)
        head[48:52] = len(package).to_bytes(4, "big")
        head[80:82] = (sum(package) % 65536).to_bytes(2, "big")
        stream = bytes(head) + package
        packets = []
        for n in range(3):
            data = stream[n * 1024 : n * 1024 + 1024]
            frame = [0, 0, 0x9A, 0xA0, 7, n, 0]
            text = bytes(frame + [sum(frame) % 256]).hex().encode()
            packets.append(b"<T" + text + b">" + data + bytes([sum(data) % 256]))
        return packets

    def test_of_blocks_are_the_update(self):
        blocks = self.update()
        rows = {
            (0, 1, 2): [],
            (0, 1, 1, 2): ["The block before this one again"],
            (0, 2): ["Not the next block of the stream", "The update is not installed: the sum is"],
            (1, 0, 1, 2, 2): ["A block without a block 0 is dropped"] * 2,
        }
        results = self.seen(*([(TO, blocks[n]) for n in numbers] for numbers in rows))
        for (numbers, expected), (_, said, layers) in zip(rows.items(), results):
            with self.subTest(numbers=numbers):
                said = [each for each in said if "No answer" not in each]
                self.assertEqual(len(said), len(expected), said)
                for each, wanted in zip(said, expected):
                    self.assertTrue(each.startswith(wanted), said)
                shown = [dict(tree) for layer in layers for _, _, tree in layer.named("payload")]
                self.assertEqual([tree["vesk.block.number"] for tree in shown], [str(n) for n in numbers])
                self.assertEqual([tree["vesk.block.offset"] for tree in shown], [str(n * 1024) for n in numbers])

    def test_that_lack_their_checksum_only_are_accepted(self):
        zero, one, two = self.update()
        ack, refusal = b"<F" + zero[2:19], b"<F00009affffffff96>"
        accepted = "The checksum has not come; the payload is accepted without it"
        rows = [ # the packets before block 1, with their times in ms; what is said
            ([(TO, zero[:-1], 0), (FROM, ack, 3010)], [accepted]),
            ([(TO, zero[:-1], 0)], [accepted]), # the answer is lost, and the next block comes later
            ([(TO, zero[:500], 0), (TO, zero[500:-1], 10), (FROM, ack, 3020)], [accepted]),
            ([(TO, zero[:-2], 0), (FROM, ack, 3010)], ["2 of its bytes are missing", "A block without", "A block without"]),
            ([(TO, zero[:-1], 0), (FROM, refusal, 3010)],
             ["1 of its bytes is missing", "Refused: update block", "A block without", "A block without"]),
        ]
        talks = [[(way, data, None, time) for way, data, time in [*first, (TO, one, 4000), (TO, two, 4010)]]
                 for first, _ in rows]
        for (_, expected), (items, said, layers) in zip(rows, self.seen(*talks)):
            with self.subTest(expected):
                said = [each for each in said if "No answer" not in each]
                self.assertEqual(len(said), len(expected), said)
                for wanted in set(expected):
                    self.assertEqual(len([each for each in said if wanted in each]), expected.count(wanted), said)
                shown = [dict(tree) for layer in layers for _, _, tree in layer.named("payload")]
                numbers = ["0", "1", "2"] if accepted in expected else ["1", "2"]
                self.assertEqual([tree["vesk.block.number"] for tree in shown], numbers)
                if accepted in expected:
                    self.assertEqual(items[TO][1], ("payload", zero[19:-1].hex(":")))
                    self.assertEqual([tree["vesk.block.is_last"] for tree in shown], ["0", "0", "1"])
                    self.assertEqual(shown[0]["vesk.update.length"], str(3 * 1024 - 128))
                    self.assertNotIn("vesk.payload.block.checksum", shown[0])
                    self.assertNotIn("vesk.payload_checksum_is_right", shown[0])

        f0, record = self.TALK[2][1][:19], self.TALK[2][1][19:]
        talk = [(TO, f0 + record[:-1], None, 0), (FROM, b"<F" + f0[2:], None, 11500)]
        ((items, said, layers),) = self.seen(talk)
        self.assertEqual(items[TO][1], ("payload", record[:-1].hex(":")))
        self.assertEqual(said, [accepted])
        tree = dict(layers[0].named("payload")[0][2])
        for key, value in {**RECORD, "mac_address": "02:76:65:6b:6b:01"}.items():
            self.assertEqual(tree[f"vesk.payload.network_record.{key}"], value)
        self.assertNotIn("vesk.payload.network_record.checksum", tree)


class Senseless(unittest.TestCase):
    """Packets at random, the same every time."""

    PARTS = [
        b"<T0000680100000069>", b"<F00006801263300c2>", b"<T0000f02000130023>", b"<T0000f02000021022>",
        b"<T0000f02100140025>", b"<T0000f209000000fb>", b"[a=1,b=]", b"[", b"]", b"=,[]", b"<F0000f309000000fc>",
        b"<F0000f12000130024>", b"<T00009aa007000041>", b"<T00009aa007010042>", b"<T00009aa007ffff3f>", bytes(1024),
        b"\0\0\4\0" * 256, b"<F00009affffffff96>", b"<T00009aa107000042>", b"<F000085ffffffff81>", b"<", b"<T", b"<<TT>>",
        b"<T0000840000000084>", b"<T00008e0400000092>", b"<F00008e0502766570>", b"",
    ]

    @staticmethod
    def packet(chance):
        kind = chance.randrange(4)
        if kind == 0:
            return chance.randbytes(chance.randrange(80))
        data = bytearray(b"".join(chance.choice(Senseless.PARTS) for _ in range(chance.randrange(1, 4))))
        if kind == 2 and data:
            data[chance.randrange(len(data))] = chance.randrange(256)
        if kind == 3:
            del data[chance.randrange(len(data) + 1) :]
        return bytes(data)

    def setUp(self):
        self.tshark = Tshark()
        self.addCleanup(self.tshark.folder.cleanup)

    def check(self, packets, count, link_type):
        path = os.path.join(self.tshark.folder.name, "senseless.pcapng")
        write_pcapng(path, packets, link_type)
        for passes in ((), ("-2",)):
            text = self.tshark.run(path, "-V", *passes)
            for fault in "Lua Error", "Malformed Packet", "Dissector bug":
                if fault in text:
                    self.fail("..." + text[: text.index(fault) + 200][-3000:])
            self.assertEqual(text.count("\nvesk_h264 command protocol"), count)

    def test_on_the_line_are_no_error(self):
        chance = random.Random(1000)
        packets = []
        for _ in range(3000):
            data = self.packet(chance)
            lacks = chance.randrange(1, 30) if chance.randrange(20) == 0 else 0
            packets.append((chance.choice([TO, TO, FROM, FROM, None]), data, len(data) + lacks))
        self.check(packets, len(packets), USER0)

    def test_on_udp_are_no_error(self):
        chance = random.Random(2000)
        packets, count = [], 0
        for _ in range(2000):
            data = self.packet(chance)
            ends = chance.choice([(1000, 40000), (40000, 1000), (1000, 1000)])
            frame = datagram((chance.randrange(3), ends[0]), (9, ends[1]), data)
            lacks = chance.randrange(len(data)) if data and chance.randrange(20) == 0 else 0
            packets.append((None, frame[: len(frame) - lacks], len(frame)))
            count += 1 if data else 0 # Wireshark has no use for empty datagrams
        self.check(packets, count, ETHERNET)

    def test_a_quoted_datagram_is_not_sent_again(self):
        sent = datagram((1, 40000), (9, 1000), b"<T0000680100000069>")
        quoting = sent[:14] + internet(1, 9, 1, struct.pack(">BBHI", 3, 3, 0, 0) + sent[14:])
        path = os.path.join(self.tshark.folder.name, "quoted.pcapng")
        write_pcapng(path, [(None, sent), (None, quoting)], ETHERNET)
        text = self.tshark.run(path, "-V")
        self.assertEqual(text.count("command: read device type"), 1)
        self.assertNotIn("Lua Error", text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
