#!/usr/bin/env python3
"""`veskctl timing` against others: the exchanged table of formats, Debian's edid-decode and cvt, and its pictures
against the table's proportions. VESKCTL names the program."""
import csv
import json
import os
import re
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as xml

DATA = os.path.join(os.path.dirname(__file__), "..", "data")
VESKCTL = os.path.realpath(os.environ.get("VESKCTL", os.path.join(DATA, "../../build/release/tools/veskctl")))

with open(os.path.join(DATA, "video_formats.csv"), encoding="utf-8") as formats_file:
    FORMATS = [{key: value if key == "name" else int(value) for key, value in row.items()}
               for row in csv.DictReader(formats_file)]

SIZES = [(640, 480), (720, 400), (720, 480), (720, 576), (800, 480), (800, 600), (848, 480), (853, 479), (960, 540),
         (1024, 600), (1024, 768), (1080, 1920), (1152, 864), (1279, 719), (1280, 720), (1280, 768), (1280, 800),
         (1280, 960), (1280, 1024), (1360, 768), (1366, 768), (1400, 1050), (1440, 900), (1536, 864), (1600, 900),
         (1600, 1200), (1680, 1050), (1792, 1344), (1800, 1080), (1920, 1080), (1920, 1200), (1920, 1440),
         (2048, 1152), (2048, 1536), (2560, 812), (2560, 1080), (2560, 1440), (2560, 1600), (3440, 1440),
         (3840, 1080), (3840, 2160), (4096, 2160), (5120, 2880), (7680, 4320)]
RATES = [24, 25, 30, 50, 59, 60, 72, 75, 85, 100, 120, 144, 240, 1000]
MODES = [(*size, rate) for size in SIZES for rate in RATES] + [
    (80, 600, 1300), (640, 100, 60), (640, 240, 60), (8, 8, 60), (9, 9, 60), (2472, 1913, 29), (65535, 65535, 1),
    (640, 480, 2000), (640, 480, 2173), (1000, 1, 2173)]


def run(*arguments, status=0):
    done = subprocess.run([VESKCTL, "timing", *map(str, arguments)], capture_output=True, text=True, check=False)
    if done.returncode != status:
        raise AssertionError(f"{arguments}: status {done.returncode}, {done.stdout}{done.stderr}")
    return done.stdout


def calculated(modes):
    """Every mode, in one run; status 1, as some are above the limit."""
    numbers = [number for mode in modes for number in mode]
    return [json.loads(line) for line in run("calc", "--json", *numbers, status=1).splitlines()]


class Formats(unittest.TestCase):
    """list --json has the table's 124 rows, and the modelines are those rows."""

    def test_every_format_is_that_of_the_table(self):
        found = [json.loads(line) for line in run("list", "--json").splitlines()]
        self.assertEqual(len(found), 124)
        for row, got in zip(FORMATS, found):
            with self.subTest(row["name"]):
                for side, letter, size in (("horizontal", "h", "width"), ("vertical", "v", "height")):
                    axis = got[side]
                    self.assertEqual([axis["active"], axis["total"], axis["start"], axis["sync"]],
                                     [row[size], row[letter + "_total"], row[letter + "_start"], row[letter + "_sync"]])
                    self.assertEqual(axis["sync"] + axis["back_porch"] + axis["active"] + axis["front_porch"],
                                     axis["total"])
                    self.assertEqual(axis["sync_is_negative"], bool(row["polarity"] & (1 if letter == "h" else 2)))
                clock = row["pixel_clock"] or row["h_total"] * row["v_total"] * row["v_freq"]
                self.assertEqual([got["id"], got["name"], got["frequency_hz"], got["pixel_clock_hz"], got["gs4911"]],
                                 [row["id"], row["name"], row["v_freq"], clock, row["gs4911"]])
                self.assertAlmostEqual(got["rate_hz"], clock / row["h_total"] / row["v_total"], 5)

    def test_every_modeline_is_that_of_the_table(self):
        lines = run("list", "--modeline").splitlines()[1::2]
        self.assertEqual(len(lines), 124)
        for row, line in zip(FORMATS, lines):
            with self.subTest(row["name"]):
                words = line.split()
                interlaced = row["id"] in (36, 37, 38, 39, 63, 71, 72)
                clock = row["pixel_clock"] or row["h_total"] * row["v_total"] * row["v_freq"]
                self.assertEqual(round(float(words[2]) * 1000000), clock / (2 if interlaced else 1))
                expected = []
                for letter, size in (("h", "width"), ("v", "height")):
                    sync = row[letter + "_total"] - row[letter + "_start"]
                    expected += [row[size], sync, sync + row[letter + "_sync"], row[letter + "_total"]]
                self.assertEqual(list(map(int, words[3:11])), expected)
                signs = ["-hsync" if row["polarity"] & 1 else "+hsync", "-vsync" if row["polarity"] & 2 else "+vsync"]
                self.assertEqual(words[11:], ["interlace"] * interlaced + signs)

    def test_what_is_detected_for_every_row(self):
        """The first row whose numbers are within the document's tolerances."""
        for row in FORMATS[::5] + FORMATS[100:108]:
            def is_near(other, row=row):
                return (abs(other["width"] - row["width"]) <= 1 and abs(other["height"] - row["height"]) <= 1
                        and all(abs(other[key] - row[key]) <= 4 for key in ("h_total", "v_total", "v_freq")))
            expected = next(other["id"] for other in FORMATS if is_near(other))
            got = json.loads(run("detect", row["width"], row["height"], row["h_total"], row["v_total"], row["v_freq"],
                                 "--json"))
            self.assertEqual(got["id"], expected, row["name"])


class Standard(unittest.TestCase):
    """calc's columns for the standard, against the programs that Debian has for it."""

    @classmethod
    def setUpClass(cls):
        cls.modes = calculated(MODES)

    def test_both_versions_are_those_of_edid_decode(self):
        compared = 0
        one_lower = 0
        for mode, ours in zip(MODES, self.modes):
            for version in (1, 2):
                with self.subTest(mode=mode, version=version):
                    width, height, rate = mode
                    text = subprocess.run(["edid-decode", "--cvt", f"w={width},h={height},fps={rate},rb={version}"],
                                          capture_output=True, text=True, check=True).stdout
                    got = re.search(r"CVT: +\d+x\d+ +([\d.]+) Hz.* ([\d.]+) kHz +([\d.]+) MHz \(RB(?:v2)?\)\s+"
                                    r"Hfront +(\d+) Hsync +(\d+) Hback +(\d+) Hpol (.)\s+"
                                    r"Vfront +(\d+) Vsync +(\d+) Vback +(\d+) Vpol (.)", text)
                    self.assertIsNotNone(got, text)
                    theirs = ours["standards"][f"v{version}"]
                    clock, rest = float(got[3]), [*got.groups()[3:]]
                    # It shows the width as it was given, and makes the clock with the width cut to the cell.
                    total = (width // 8 * 8 + 160) if version == 1 else width + 80
                    self.assertEqual(theirs["horizontal"]["total"], total)
                    self.assertEqual(theirs["horizontal"]["active"] + 160 - (80 if version == 2 else 0), total)
                    mine = []
                    for axis in (theirs["horizontal"], theirs["vertical"]):
                        mine += [str(axis["front_porch"]), str(axis["sync"]), str(axis["back_porch"]),
                                 "N" if axis["sync_is_negative"] else "P"]
                    self.assertEqual(mine, rest)
                    self.assertEqual(theirs["vertical"]["active"], height)
                    compared += 1
                    lower = theirs["pixel_clock_hz"] - round(clock * 1000000)
                    if lower:
                        # Where no step has to be cut, its floating-point numbers may come to just below.
                        pixels = rate * theirs["horizontal"]["total"] * theirs["vertical"]["total"]
                        self.assertEqual([lower, theirs["pixel_clock_hz"], version], [1000, pixels, 2])
                        one_lower += 1
                    elif version == 2 or width % 8 == 0:
                        self.assertAlmostEqual(theirs["line_rate_hz"] / 1000, float(got[2]), delta=0.00051)
                        self.assertAlmostEqual(theirs["rate_hz"], float(got[1]), delta=0.0000011)
        self.assertEqual(compared, 2 * len(MODES))
        self.assertLess(one_lower, len(MODES) // 5)

    def test_version_1_is_that_of_cvt(self):
        """Of 60 Hz and widths in whole cells; it has a least back porch of 6 lines, 10 lines of sync for 15:9, 1366
        for 1360, and a clock from the estimated line period, at times one step lower."""
        compared = 0
        for mode, ours in zip(MODES, self.modes):
            width, height, rate = mode
            if rate != 60 or width % 8 or width * 9 == height * 15 or width == 1360 or height < 300:
                continue
            theirs = ours["standards"]["v1"]
            if theirs["vertical"]["back_porch"] == 7:
                continue
            with self.subTest(mode=mode):
                text = subprocess.run(["cvt", "-r", str(width), str(height), "60"], capture_output=True, text=True,
                                      check=True).stdout
                words = next(line for line in text.splitlines() if line.startswith("Modeline")).split()
                sides = []
                for axis in (theirs["horizontal"], theirs["vertical"]):
                    begin = axis["active"] + axis["front_porch"]
                    sides += [axis["active"], begin, begin + axis["sync"], axis["total"]]
                self.assertEqual(list(map(int, words[3:11])), sides)
                self.assertEqual(words[11:], ["+hsync", "-vsync"])
                self.assertIn(theirs["pixel_clock_hz"] - round(float(words[2]) * 1000000), (0, 250000))
                compared += 1
        self.assertGreaterEqual(compared, 25)

    def test_differences_are_those_that_there_are(self):
        for mode, ours in zip(MODES, self.modes):
            for theirs in ours["standards"].values():
                if not ours["accepted"]:
                    self.assertIsNone(theirs["differences"])
                    continue
                marked = set(theirs["differences"])
                for side in ("horizontal", "vertical"):
                    for key, value in ours["device"][side].items():
                        self.assertEqual(f"{side}.{key}" in marked, value != theirs[side][key], (mode, side, key))
                self.assertEqual("pixel_clock_hz" in marked,
                                 ours["device"]["pixel_clock_hz"] != theirs["pixel_clock_hz"])


def boxes(root):
    """Where the texts of a picture are, about: x0, y0, x1, y1, words."""
    for text in root.iter("{http://www.w3.org/2000/svg}text"):
        words = "".join(text.itertext())
        size = float(text.get("font-size", 12))
        width = len(words) * size * (0.7 if text.get("font-weight") else 0.62)
        x, y = float(text.get("x")), float(text.get("y"))
        left = x - (width / 2 if text.get("text-anchor") == "middle" else 0)
        if text.get("transform"):
            yield x - size, y - width / 2, x, y + width / 2, words
        else:
            yield left, y - size * 0.9, left + width, y + size * 0.1, words


class Pictures(unittest.TestCase):
    """Every part is to scale and every word legible."""

    def draw(self, timing, *options):
        with tempfile.TemporaryDirectory() as folder:
            picture = os.path.join(folder, "picture.svg")
            run("draw", timing, "-o", picture, *options)
            png = subprocess.run(["rsvg-convert", picture], capture_output=True, check=True).stdout
            self.assertEqual(png[:4], b"\x89PNG")
            return xml.parse(picture).getroot()

    def check(self, root, horizontal, vertical):
        """Each axis: sync, start, active, total."""
        rects = {}
        for rect in root.iter("{http://www.w3.org/2000/svg}rect"):
            if rect.get("class"):
                rects.setdefault(rect.get("class"), []).append(
                    [float(rect.get(key)) for key in ("x", "y", "width", "height")])
        (rows, columns, active) = rects["v"], rects["h"], rects["active"][0]
        width, height = rows[0][2], sum(row[3] for row in rows)
        left, top = rows[0][0], rows[0][1]
        across, down = width / horizontal[3], height / vertical[3]
        near = lambda got, expected: self.assertAlmostEqual(got, expected, delta=0.01)  # noqa: E731
        for axis, scale, begin, parts, index in ((horizontal, across, left, [*columns[:2], active, columns[2]], 0),
                                                 (vertical, down, top, rows, 1)):
            sync, start, size, total = axis
            for part, (offset, length) in zip(parts, ((0, sync), (sync, start - sync), (start, size),
                                                      (start + size, total - start - size))):
                near(part[index] - begin, offset * scale)
                near(part[index + 2], length * scale)
        near(active[1] - top, vertical[1] * down)
        near(active[3], vertical[2] * down)
        if min(width, height) > 171:  # one scale for both, unless a side would be too short
            near(across / down, 1)

        _, _, picture_width, picture_height = map(float, root.get("viewBox").split())
        found = list(boxes(root))
        self.assertGreaterEqual(len(found), 20)
        for i, (x0, y0, x1, y1, words) in enumerate(found):
            self.assertTrue(x0 >= 0 and y0 >= 0 and x1 <= picture_width and y1 <= picture_height, words)
            for a0, b0, a1, b1, others in found[:i]:
                self.assertTrue(x1 <= a0 or a1 <= x0 or y1 <= b0 or b1 <= y0, f"{words!r} lies on {others!r}")
        return [words for *_, words in found]

    def test_formats(self):
        for row in FORMATS[::3]:
            with self.subTest(row["name"]):
                words = self.check(self.draw(row["id"]), *([row[c + "_sync"], row[c + "_start"], row[s],
                                                            row[c + "_total"]]
                                                           for c, s in (("h", "width"), ("v", "height"))))
                self.assertIn(f"Format {row['id']}: {row['name']}", words)
                for number in (f"{row['h_sync']} pixels", f"{row['width']} pixels"):
                    self.assertIn(number, words)
                self.assertTrue(any(text.startswith(f"{row['v_start'] - row['v_sync']} lines, ") for text in words))

    def test_custom_formats(self):
        for mode, axes in (("1366x768@60", ([32, 112, 1366, 1520], [4, 19, 768, 790])),
                           ("80x600@1300", ([32, 112, 80, 240], [4, 888, 600, 1491])),
                           ("7680x480@60", ([32, 112, 7680, 7840], [4, 11, 480, 494]))):
            with self.subTest(mode):
                self.check(self.draw(mode), *axes)
        self.check(self.draw("1366x768@60", "--standard", "v1"), [32, 112, 1360, 1520], [10, 19, 768, 790])
        self.check(self.draw("1366x768@60", "--standard", "v2"), [32, 72, 1366, 1446], [8, 14, 768, 790])


if __name__ == "__main__":
    unittest.main()
