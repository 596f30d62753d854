#!/usr/bin/env python3
"""What `sav check` and `sav draw` of VESKCTL print of files that are packed here by the offsets of docs/files.md.

JSON has to be as its schema says. In a picture, read as XML, each layer has to be a rectangle in pixels of the
output, under an <svg> whose viewBox is the area that is drawn.
"""
import json
import os
import random
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ET

VESKCTL = os.environ["VESKCTL"]
HERE = os.path.dirname(os.path.abspath(__file__))
FIRST_START = os.path.join(HERE, "..", "data", "first-start", "save0.sav")
VALIDATE = os.path.join(HERE, "validate.py")
SVG = "{http://www.w3.org/2000/svg}"
VIEW_SIZE = 3996
PREVIEW, PROGRAM = 3812, 7808


def view(layers, number=0):
    """layers: number -> (input, (x, y, width, height) of the source, the same of the window, position, alpha)"""
    record = bytearray(VIEW_SIZE)
    record[2742] = number
    struct.pack_into("<I", record, 3992, 0x29215679)
    for layer, (port, source, window, position, alpha) in layers.items():
        struct.pack_into("<B3x8H", record, 16 + 26 * layer, port, *source, *window)
        record[2512 + layer] = position
        record[2608 + layer] = alpha
    return bytes(record)


def picture(path, name="picture.svg"):
    output = os.path.join(os.path.dirname(path), name)
    subprocess.run([VESKCTL, "sav", "draw", path, "-o", output], check=True)
    return ET.parse(output).getroot()


def layers_of(area):
    """layer -> (x, y, width, height), from the back to the front"""
    return [(int(each.get("data-layer")), tuple(float(each.get(side)) for side in ("x", "y", "width", "height")))
            for each in area.findall(f"{SVG}rect[@class='layer']")]


class Files(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def file(self, name, content):
        path = os.path.join(self.folder.name, name)
        with open(path, "wb") as file:
            file.write(content)
        return path


class Check(Files):
    def check(self, status, *arguments):
        done = subprocess.run([VESKCTL, "sav", "check", *arguments], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (status, ""), done.stdout)
        return done.stdout

    def test_json(self):
        with open(FIRST_START, "rb") as file:
            setting = file.read()
        self.file("save0.sav", setting)
        self.file("save1.sav", b"\0" + setting)
        self.file("view0.sav", view({}))
        self.file("view1.sav", view({})[:3000])
        self.file("page2_0.sav", b"x" * 40000)
        self.file("DevInfo.sav", b"")
        os.mkfifo(os.path.join(self.folder.name, "timeCon0.sav"))
        output = self.check(1, "--json", self.folder.name)
        subprocess.run([sys.executable, VALIDATE, "sav-check"], input=output, text=True, check=True)
        findings = [json.loads(line) for line in output.splitlines()]
        self.assertEqual([(each["read_as"], each["verdict"], len(each["faults"]) > 0) for each in findings], [
            ("UserPref.sav", "missing", False),
            ("DevInfo.sav", "reset", True),
            ("save0.sav", "taken", False),
            ("save1.sav", "reset", True),
            ("view0.sav", "taken", False),
            ("view1.sav", "refused", True),
            ("page2_0.sav", "refused", True),
            ("timeCon0.sav", "missing", True),
            ("workTime.sav", "missing", False)])

    def test_bad_input(self):
        fifo = os.path.join(self.folder.name, "view4.sav")
        os.mkfifo(fifo)
        for path, status in ((fifo, 2), (self.file("other", b"x"), 2), (self.file("save0.sav", b"x" * 3000000), 2),
                             (os.path.join(self.folder.name, "none"), 4)):
            with self.subTest(path=path):
                done = subprocess.run([VESKCTL, "sav", "check", path], capture_output=True, text=True, check=False)
                self.assertEqual((done.returncode, done.stdout, done.stderr.count("\n")), (status, "", 1), done.stderr)


    def test_full_disk(self):
        self.file("view0.sav", view({}))
        for arguments in (["check", self.folder.name], ["check", "--json", self.folder.name],
                          ["draw", os.path.join(self.folder.name, "view0.sav"), "-o", "-"]):
            with self.subTest(arguments=arguments), open("/dev/full", "w", encoding="utf-8") as full:
                done = subprocess.run([VESKCTL, "sav", *arguments], stdout=full, stderr=subprocess.PIPE, text=True,
                                      check=False)
                self.assertEqual(done.returncode, 4)
                self.assertRegex(done.stderr, r"^veskctl: cannot write the output.*\n\Z")


class Draw(Files):
    def test_view(self):
        path = self.file("view3.sav", view({
            0: (0, (0, 0, 3840, 2160), (0, 0, 1920, 1080), 10, 255),
            7: (5, (960, 540, 1920, 1080), (1100, 900, 1500, 120), 90, 51),
            8: (6, (0, 0, 1, 1), (5, 6, 7, 8), 95, 0),
        }, 3))
        root = picture(path)
        area, = root.findall(f"{SVG}svg")
        # Layer 7 reaches to 1100 + 1500 = 2600, beyond the output of a reset, 1920 x 1080. The picture is 960 wide:
        # 1080 lines take 960 / 2600 * 1080 = 398.77.
        self.assertEqual(area.get("viewBox"), "0 0 2600 1080")
        self.assertEqual((area.get("width"), area.get("height")), ("960", "398.77"))
        self.assertEqual(layers_of(area), [(0, (0, 0, 1920, 1080)), (7, (1100, 900, 1500, 120))])
        canvas, = area.findall(f"{SVG}rect[@class='canvas']")
        self.assertEqual((canvas.get("width"), canvas.get("height")), ("1920", "1080"))
        opacity = [each.get("fill-opacity") for each in area.findall(f"{SVG}rect[@class='layer']")]
        self.assertEqual(opacity, ["1", "0.2"]) # 255 and 51 of 255
        texts = [each.text for each in root.iter(f"{SVG}text")]
        self.assertIn("1500×120 at 1100,900", texts)
        self.assertIn("1920×1080 at 960,540", texts)
        self.assertEqual(root.find(f"{SVG}title").text, "view3.sav")

    def test_page(self):
        views = [view({v: (v, (0, 0, 100, 100), (10 * v, 5 * v, 400, 300), 95 - v, 255)}, v) for v in range(16)]
        root = picture(self.file("page0_0.sav", b"".join(views)))
        areas = root.findall(f"{SVG}svg")
        self.assertEqual(len(areas), 16)
        places = [(float(each.get("x")), float(each.get("y"))) for each in areas]
        # Four columns, 450 wide and 20 apart, and four rows.
        self.assertEqual([x for x, _ in places], [20, 490, 960, 1430] * 4)
        self.assertEqual([y for _, y in places], sorted(y for _, y in places))
        for v, area in enumerate(areas):
            self.assertEqual(layers_of(area), [(v, (10 * v, 5 * v, 400, 300))])

    def test_user_setting_and_its_sizes(self):
        with open(FIRST_START, "rb") as file:
            setting = bytearray(file.read())
        struct.pack_into("<HH", setting, 1724 + 10, 1280, 720) # active size of output 0
        shown = (1, (0, 0, 1920, 1080), (640, 360, 640, 360), 50, 255)
        setting[PREVIEW:PREVIEW + VIEW_SIZE] = view({2: shown})
        setting[PROGRAM:PROGRAM + VIEW_SIZE] = view({4: shown})
        root = picture(self.file("save0.sav", bytes(setting)))
        program, preview = root.findall(f"{SVG}svg")
        self.assertEqual(program.get("viewBox"), "0 0 1280 720")
        self.assertEqual(layers_of(program), [(4, (640, 360, 640, 360))])
        self.assertEqual(layers_of(preview), [(2, (640, 360, 640, 360))])
        # A view beside it has the same sizes.
        beside = picture(self.file("view0.sav", view({4: shown})), "view.svg")
        self.assertEqual(beside.find(f"{SVG}svg").get("viewBox"), "0 0 1280 720")

    def test_any_bytes_and_names(self):
        numbers = random.Random(20250321)
        for name, size in (("view<&\">.sav", VIEW_SIZE), ("page9_0.sav", 16 * VIEW_SIZE), ("save0.sav", 11832)):
            content = bytearray(numbers.randbytes(size))
            content[3992:3996] = struct.pack("<I", 0x29215679) # known by it, under a name of its own
            root = picture(self.file(name, bytes(content)))
            self.assertEqual(root.find(f"{SVG}title").text, name)
            self.assertLess(float(root.get("width")), 2000)
            self.assertLess(float(root.get("height")), 12000)
            # Self-contained: shapes and text, nothing that runs or is loaded.
            self.assertLessEqual({each.tag for each in root.iter()},
                                 {SVG + tag for tag in ("svg", "title", "rect", "text")})
            for each in root.iter():
                self.assertFalse([key for key in each.keys() if "href" in key or key.startswith("on")])
            for area in root.findall(f"{SVG}svg"):
                for _, place in layers_of(area):
                    self.assertTrue(all(0 <= number <= 65535 for number in place))

    def test_standard_output(self):
        path = self.file("view3.sav", view({}))
        done = subprocess.run([VESKCTL, "sav", "draw", path, "-o", "-"], check=True, stdout=subprocess.PIPE)
        self.assertEqual(ET.fromstring(done.stdout).tag, SVG + "svg")

    def test_bad_input(self):
        good = self.file("view3.sav", view({}))
        output = os.path.join(self.folder.name, "o.svg")
        fifo = os.path.join(self.folder.name, "view4.sav")
        os.mkfifo(fifo)
        for path, target, status in (
                (self.file("view5.sav", b"x" * 3995), output, 2),
                (self.file("view6.sav", b"x" * 3997), output, 2),
                (self.file("DevInfo.sav", b"x" * 20), output, 2),
                (self.file("other", b"x"), output, 2),
                (fifo, output, 2),
                (self.folder.name, output, 2),
                (good, good, 2),
                (os.path.join(self.folder.name, "none"), output, 4),
                (good, os.path.join(self.folder.name, "none", "o.svg"), 4),
                (good, self.folder.name, 4)):
            with self.subTest(path=path, target=target):
                done = subprocess.run([VESKCTL, "sav", "draw", path, "-o", target], capture_output=True, text=True,
                                      check=False)
                self.assertEqual((done.returncode, done.stdout, done.stderr.count("\n")), (status, "", 1), done.stderr)
                self.assertFalse(os.path.exists(output))
        with open(good, "rb") as file:
            self.assertEqual(file.read(), view({}))


if __name__ == "__main__":
    sys.exit(unittest.main())
