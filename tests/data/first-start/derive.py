#!/usr/bin/env python3
"""Derives the files that a first start leaves in an empty settings directory.

usage: derive.py DIRECTORY

Writes into DIRECTORY, which must exist:
  save0.sav          the user setting record after a reset of a record of zeros
  save0-over-a5.sav  the same after a reset of a record of bytes 0xA5: what is still 0xA5 is left
                     alone by a reset (the preview is a copy of the program view)
  workTime.sav       the work-time list

The tables below are the file formats' own, not the program's: the program is tested against them.
"""

import csv
import pathlib
import struct
import sys

USER_SETTING_SIZE = 11832
VIEW_SIZE = 3996
WORK_TIME_SIZE = 24

INPUT_FORMAT = 76
OUTPUT_FORMAT = 10
PREVIEW = 3812
PROGRAM = 7808

FORMATS = pathlib.Path(__file__).resolve().parent.parent / "video_formats.csv"
with FORMATS.open(newline="") as rows:
    TIMINGS = {int(row["id"]): row for row in csv.DictReader(rows)}


def timing(video_format, column):
    return int(TIMINGS[video_format][column])


IN_WIDTH, IN_HEIGHT = timing(INPUT_FORMAT, "width"), timing(INPUT_FORMAT, "height")
OUT_WIDTH, OUT_HEIGHT = timing(OUTPUT_FORMAT, "width"), timing(OUTPUT_FORMAT, "height")

# Every table: offset, width, default, name. A default is a number; a list of them, one after the
# other; or a function of the number of the entry. What no line names keeps what it held.

USER_SETTING = [
    (0, "u32", 0x2021365C, "identification"),
    (4, "u8", [1] * 24, "input enable; those of inputs 24 and 25 are left alone"),
    (1720, "u32", 0, "user mode word"),
    (1892, "u8", [OUTPUT_FORMAT] * 6, "output format byte"),
    (1898, "u8", [1] * 6, "output enable"),
    (2000, "u8", [1, 0], "setting bytes"),
    (2028, "u8", [0] * 48, "two tables of RS1 output bytes"),
    (2412, "u8", 128, "setting byte"),
    (2413, "u8", 10, "external input format"),
    (3664, "u8", [0] * 48, "output group flags, per-input flags"),
    (3712, "u8", 0, "user mode mirror"),
    (3713, "u8", 0, "factory-reset flag: 1, then cleared by the pre-input reset of input 25"),
    (3714, "u8", 0, "number of the page last loaded or saved"),
    (3715, "u8", 0, "current view number"),
    (3716, "u8", [5, 7, 13, 15, 21, 23, 29, 31], "table"),
    (3726, "u8", [0, 1, 2, 3, 4, 5, 6, 7], "index table"),
    (3736, "u32", [1920, 1080, 60], "custom width, height and frame rate"),
    (3748, "u8", 0, "custom size class"),
    (3752, "u32", 0, "setting word"),
    (3756, "u8", [0, 1, 255, 0, 0], "setting bytes"),
    (3762, "u16", [(OUT_WIDTH - 360) // 2, (OUT_HEIGHT - 80) // 2], "window x and y"),
    (3766, "u8", [0, 0, 1], "setting bytes"),
    (3776, "f64", 0.0, "setting value"),
    (3784, "u8", [0] * 24, "per-index flags"),
    (11804, "u8", [1, 0, 20, 0], "FPGA settings, setting byte"),
    (11808, "u8", [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15], "index table"),
    (11824, "u8", [0, 0], "setting bytes"),
    (11828, "u32", 0x00123456, "trailing identification"),
]


def timing_table(video_format):
    return [
        (0, "u8", video_format, "video format id"),
        (1, "u8", timing(video_format, "polarity"), "sync polarity"),
        (2, "u16", timing(video_format, "h_total"), "horizontal total"),
        (4, "u16", timing(video_format, "v_total"), "vertical total"),
        (6, "u16", timing(video_format, "h_start"), "horizontal start"),
        (8, "u16", timing(video_format, "v_start"), "vertical start"),
        (10, "u16", timing(video_format, "width"), "horizontal active"),
        (12, "u16", timing(video_format, "height"), "vertical active"),
        (14, "u16", timing(video_format, "h_sync"), "horizontal sync width"),
        (16, "u16", timing(video_format, "v_sync"), "vertical sync width"),
    ]


INPUT_TIMING = timing_table(INPUT_FORMAT) + [
    (18, "u8", [0, 0], ""),
    (20, "u8", timing(INPUT_FORMAT, "v_freq"), "vertical frequency"),
]

OUTPUT_TIMING = timing_table(OUTPUT_FORMAT) + [
    (18, "u8", 0, ""),
    (24, "u32", 1000, ""),
]

PRE_INPUT = [
    (0, "u8", lambda n: n % 4, "group number"),
    (1, "u8", [0, 0], ""),
    (4, "u16", [0, 0], "source x and y"),
    (8, "u16", lambda n: [IN_WIDTH, IN_HEIGHT] if n < 24 else [3840, 2160], "and its size"),
    (12, "u16", [0, 0], "target x and y"),
    (16, "u16", lambda n: [1920, 1080] if n < 24 else [3840, 2160], "and its size"),
    (20, "u8", lambda n: [128, 1 << n % 4], "group bit at 21"),
    (22, "u8", [50] * 7 + [26] * 3 + [50, 0, 0], ""),
]

COLOR_KEY = [(0, "u8", [0, 1, 0, 0, 208, 208, 208], "enable; colour from 4 on")]

OUTPUT_RESOLUTION = [
    (0, "u32", [1920, 1080, 60], "width, height, frame rate"),
    (12, "u8", 0, "flag"),
]

RS1_OUTPUT = [
    (0, "u16", [0, 0], ""),
    (4, "u8", [0] * 9, ""),
]

CONTAINER = [
    (0, "u16", [100, 0, 0], ""),
    (8, "u32", [3840, 2160], "width and height"),
    (16, "u8", [0, 2, 2, 0, 0], ""),
    (22, "u16", 1000, ""),
    (24, "u8", [0, 0, 0, 1, 0, 20], ""),
]

GROUP_AREA = [(0, "u8", 255, "")]

# The program view.
VIEW = [
    (2512, "u8", list(range(95, -1, -1)), "stacking positions"),
    (2608, "u8", [0] * 96, "alphas"),
    (2704, "u8", [0, 1], "other settings, from here on"),
    (2706, "u16", [0, OUT_WIDTH - 256, OUT_HEIGHT - 128], "x and y from 2708 on"),
    (2712, "u8", [1] + [0] * 29, "per-container flags from 2718 on"),
    (2742, "u8", 1, "view number: the byte behind the other settings"),
]

LAYER = [
    (0, "u8", lambda n: n % 24, "input port"),
    (1, "u8", [0, 0, 0], "state, and two more"),
    (4, "u16", [0, 0, IN_WIDTH, IN_HEIGHT], "source: x, y, width, height"),
    (12, "u16", [0, 0, OUT_WIDTH, OUT_HEIGHT], "window: x, y, width, height"),
    (20, "u8", [0] * 3 + [50] * 3, ""),
]

CONTAINER_OTHER = [
    (0, "u8", [0, 1, 0], ""),
    (4, "i16", [OUT_WIDTH - 256, OUT_HEIGHT - 128], "x and y"),
    (8, "u8", [1, 0], ""),
    (10, "u16", [0, 0], ""),
    (14, "u8", [0, 1], "flag, and one more"),
]

# The preview is a copy of the program view, except:
PREVIEW_VIEW = [
    (0, "u8", 0, "view byte"),
    (2742, "u8", 0, "view number"),
    (3992, "u32", 0x29215679, "identification"),
]

RS1_FIRST = [
    (0, "u16", [0] * 5, ""),
    (10, "u8", 255, ""),
]

RS1_SECOND = [
    (0, "u16", [0, 0], "first half"),
    (4, "u8", 0, ""),
    (6, "u16", [0, 0], ""),
    (10, "u8", 0, ""),
    (12, "u16", [0, 0], "second half"),
    (16, "u8", 0, ""),
    (18, "u16", [0, 0], ""),
    (22, "u8", [0, 0], ""),
]

RS1_THIRD = [
    (0, "u16", [0] * 8, ""),
    (16, "u8", 0, ""),
]

WORK_TIME = [
    (0, "u32", [0, 0, 0], "addresses: of the current list, of two lists"),
    (12, "u32", [0, 0], "counters"),
    (20, "u32", 0x20150321, "identification"),
]

PACKING = {"u8": "<B", "u16": "<H", "i16": "<h", "u32": "<I", "f64": "<d"}


def apply(image, table, base=0, count=1, size=0):
    """Sets the defaults of `count` entries of `size` bytes that begin at `base`."""
    for entry in range(count):
        for offset, width, default, _ in table:
            values = default(entry) if callable(default) else default
            at = base + entry * size + offset
            for value in values if isinstance(values, list) else [values]:
                struct.pack_into(PACKING[width], image, at, value)
                at += struct.calcsize(PACKING[width])


def user_setting(before):
    """The record after a reset of one in which every byte was `before`."""
    image = bytearray([before]) * USER_SETTING_SIZE
    apply(image, USER_SETTING)
    apply(image, INPUT_TIMING, 30, 24, 22)
    apply(image, PRE_INPUT, 602, 26, 36)
    apply(image, COLOR_KEY, 1538, 26, 7)
    apply(image, OUTPUT_TIMING, 1724, 6, 28)
    apply(image, OUTPUT_RESOLUTION, 1904, 6, 16)
    apply(image, RS1_OUTPUT, 2076, 24, 14)
    apply(image, CONTAINER, 2416, 24, 32)
    apply(image, GROUP_AREA, 3184, 24, 20)

    apply(image, VIEW, PROGRAM)
    apply(image, LAYER, PROGRAM + 16, 96, 26)
    apply(image, CONTAINER_OTHER, PROGRAM + 3608, 24, 16)

    image[PREVIEW : PREVIEW + VIEW_SIZE] = image[PROGRAM : PROGRAM + VIEW_SIZE]
    apply(image, PREVIEW_VIEW, PREVIEW)
    rs1 = PREVIEW + 2744
    apply(image, RS1_FIRST, rs1, 24, 12)
    apply(image, RS1_SECOND, rs1 + 288, 6, 24)
    apply(image, RS1_THIRD, rs1 + 432, 24, 18)
    return image


def work_time():
    image = bytearray(WORK_TIME_SIZE)
    apply(image, WORK_TIME)
    return image


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.splitlines()[2])
    directory = pathlib.Path(sys.argv[1])
    directory.joinpath("save0.sav").write_bytes(user_setting(0))
    directory.joinpath("save0-over-a5.sav").write_bytes(user_setting(0xA5))
    directory.joinpath("workTime.sav").write_bytes(work_time())


if __name__ == "__main__":
    main()
