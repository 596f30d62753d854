#!/usr/bin/env python3
"""Derives the timing of the custom format for a grid of widths, heights and frame rates.

usage: derive.py [--output FILE] [WIDTHxHEIGHT@RATE...]

Prints a CSV, one row for each mode, of the grid or of the command line:
  width, height, rate   what is asked for, pixels, lines and Hz
  result                1 stored, 0 refused
  clock                 MHz; empty where a number below 1 is refused without a word
  h_total ... v_active  what is stored; empty where refused
  precision             sum of: 1, double precision throughout would come to something else;
                        2, single precision throughout would

The steps are those of docs/video-formats.md, in whole numbers and exact fractions only. Rounding, to
the nearest and of two to the even one, is spelled out where a step has it: the processor's own
floating-point numbers have no part in this.
"""

import argparse
import csv
import itertools
import pathlib
import sys
from math import gcd

INT_MAX = 2**31 - 1
INT_MIN = -(2**31)
SINGLE = 24  # bits of a significand
DOUBLE = 53

MODES = pathlib.Path(__file__).resolve().parent.parent / "cvt_reduced_blanking.csv"

STORED = ["h_total", "v_total", "h_start", "v_start", "h_sync", "v_sync", "polarity", "h_active",
          "v_active"]
COLUMNS = ["width", "height", "rate", "result", "clock", *STORED, "precision"]

# Numbers are exact fractions: a pair of numerator and positive denominator --------------------------


def rounded(number, bits):
    """The nearest number whose significand has that many bits; of two the even one."""
    numerator, denominator = number
    if numerator == 0:
        return 0, 1
    magnitude = abs(numerator)
    # The quotient has one to three bits more than wanted, and a remainder.
    shift = bits + 2 - (magnitude.bit_length() - denominator.bit_length())
    if shift > 0:
        quotient, remainder = divmod(magnitude << shift, denominator)
    else:
        quotient, remainder = divmod(magnitude, denominator << -shift)
    extra = quotient.bit_length() - bits
    kept, cut = quotient >> extra, quotient & ((1 << extra) - 1)
    half = 1 << (extra - 1)
    if cut > half or (cut == half and (remainder or kept & 1)):
        kept += 1
    exponent = extra - shift
    # Far from where either precision runs out of exponents.
    assert -100 < exponent < 100
    sign = -1 if numerator < 0 else 1
    return (sign * kept << exponent, 1) if exponent >= 0 else (sign * kept, 1 << -exponent)


def plus(a, b):
    return a[0] * b[1] + b[0] * a[1], a[1] * b[1]


def times(a, b):
    return a[0] * b[0], a[1] * b[1]


def over(a, b):
    numerator, denominator = a[0] * b[1], a[1] * b[0]
    return (numerator, denominator) if denominator > 0 else (-numerator, -denominator)


def truncated(number):
    """Cut toward zero."""
    numerator, denominator = number
    return numerator // denominator if numerator >= 0 else -(-numerator // denominator)


def saturated(value):
    return max(INT_MIN, min(INT_MAX, value))


# The computation -----------------------------------------------------------------------------------


def timing(width, height, rate, period_bits=DOUBLE, bits=SINGLE):
    """H total, blanking lines, V total (a whole number) and pixel clock in MHz.

    The line period is computed with significands of `period_bits`, and all behind it with `bits`.
    """
    h_total = width // 8 * 8 + 160

    period = rounded(over((1000000, 1), rounded((rate, 1), period_bits)), period_bits)
    period = rounded(plus(period, (-460, 1)), period_bits)
    period = rounded(over(period, rounded((height, 1), period_bits)), period_bits)
    period = rounded(period, bits)

    dividend = rounded(plus((460, 1), period), bits)
    dividend = rounded(plus(dividend, (-1, 1)), bits)
    blanking = saturated(truncated(rounded(over(dividend, period), bits)))

    v_total = rounded((saturated(blanking + height), 1), bits)
    pixels = rounded(times(rounded((rate, 1), bits), v_total), bits)
    pixels = rounded(times(pixels, rounded((h_total, 1), bits)), bits)
    product = saturated(truncated(pixels))

    clock = truncated((product, 1000000))
    return h_total, blanking, saturated(truncated(v_total)), clock


def is_accepted(mode):
    return timing(*mode)[3] <= 600


def row(width, height, rate):
    mode = {"width": width, "height": height, "rate": rate, "result": 0, "precision": 0}
    if min(width, height, rate) <= 0:
        return mode
    found = timing(width, height, rate)
    h_total, blanking, v_total, clock = found
    mode["clock"] = clock
    mode["precision"] = ((found != timing(width, height, rate, DOUBLE, DOUBLE)) +
                         2 * (found != timing(width, height, rate, SINGLE, SINGLE)))
    if clock > 600:
        return mode
    mode["result"] = 1
    stored = [h_total, v_total, 32 + 160 // 2, blanking - 3, 32, 4, 0, width, height]
    mode.update((name, value % 65536) for name, value in zip(STORED, stored))
    return mode


# The grid ------------------------------------------------------------------------------------------

SIZES = [
    (320, 240), (400, 300), (512, 384), (640, 350), (640, 400), (640, 480), (720, 400), (720, 480),
    (720, 576), (768, 576), (800, 480), (800, 600), (848, 480), (854, 480), (960, 540), (960, 2160),
    (1024, 576), (1024, 600), (1024, 768), (1024, 1280), (1024, 1920), (1024, 2160), (1080, 1920),
    (1152, 864), (1152, 1152), (1248, 936), (1280, 720), (1280, 768), (1280, 800), (1280, 960),
    (1280, 1024), (1280, 1280), (1360, 768), (1366, 768), (1400, 1050), (1440, 480), (1440, 576),
    (1440, 864), (1440, 900), (1440, 1080), (1536, 864), (1600, 900), (1600, 1200), (1680, 1050),
    (1792, 1344), (1856, 1392), (1872, 1040), (1920, 1080), (1920, 1200), (1920, 1440), (1976, 1144),
    (2048, 1080), (2048, 1152), (2048, 1536), (2160, 3840), (2176, 544), (2560, 812), (2560, 816),
    (2560, 1080), (2560, 1440), (2560, 1600), (3440, 1440), (3840, 1080), (3840, 1600), (3840, 2160),
    (4096, 2160), (5120, 1440), (5120, 2880), (7680, 1080), (7680, 4320), (8192, 1080),
]
RATES = [1, 5, 10, 15, 20, 23, 24, 25, 29, 30, 47, 48, 50, 56, 59, 60, 61, 65, 70, 72, 75, 85, 90,
         100, 110, 119, 120, 144, 165, 180, 200, 240, 300, 360, 480, 500, 1000]


def usual():
    often = [(640, 480), (1024, 768), (1280, 720), (1366, 768), (1920, 1080), (1920, 1200),
             (2560, 1440), (3840, 2160)]
    for sizes, rates in [(SIZES, RATES), (often, range(1, 241))]:
        for size, rate in itertools.product(sizes, rates):
            yield *size, rate


def remainders():
    """Every remainder that a width can have to the cell of 8 pixels."""
    widths = [*range(1, 33), *range(1279, 1297), *range(1360, 1377), *range(1916, 1930)]
    return itertools.product(widths, [1, 2, 3, 480, 767, 768, 1080], [24, 60, 75, 144])


def heights():
    low = [*range(1, 26), 31, 99, 100, 101]
    high = [4095, 4096, 8191, 16384, 30000, 32767, 32768, 65534, 65535, 65536, 65537, 70000, 100001,
            131071, 1000000, 3579139, 2**24 - 1, 2**24, 2**24 + 1, 2**24 + 3]
    widths = [1, 8, 640, 1920, 65535, 65536, 65600]
    return itertools.product(widths, low + high, [1, 2, 24, 60, 240, 2000])


def high_rates():
    """Up to 2173 Hz, where next to nothing of a line is left, and above it, where less is."""
    rates = [*range(241, 2160, 61), *range(2160, 2190), 2199, 2200, 2500, 3000, 5000, 10000, 65535,
             65536, 100000, 999999, 1000000, 1000001, 2000000, 10000000, 2**24 + 1]
    return itertools.product([1, 279, 640, 1921], [1, 2, 5, 16, 101, 480, 1080, 65535], rates)


def last_height(width, rate, limit):
    """The greatest height at which the product of pixels is below `limit`; 0 if there is none.

    With the exact blanking, which is near enough: neighbours are in the grid too.
    """
    per_line = rate * (width // 8 * 8 + 160)
    left = 1000000 - 460 * rate
    low, high = 0, 2**31
    while high - low > 1:
        middle = (low + high) // 2
        if per_line * (middle + 459 * rate * middle // left + 1) < limit:
            low = middle
        else:
            high = middle
    return low


def limits():
    """Around 600 and 601 MHz, and around what a signed 32-bit number holds."""
    widths = [1, 100, 640, 1024, 1280, 1366, 1680, 1920, 2048, 2560, 3840, 4096, 7680, 8192, 16384]
    rates = [1, 5, 15, 24, 25, 30, 48, 50, 60, 72, 75, 85, 100, 120, 144, 200, 240, 500, 1000, 2000]
    for limit in [600000000, 601000000, 2**31]:
        for width, rate in itertools.product(widths, rates):
            height = last_height(width, rate, limit)
            for near in range(max(1, height - 1), height + 3):
                yield width, near, rate
    # And below nothing, where a product too low for 32 bits is accepted as well.
    low = [10, 100, 1000, 2400, 10000, 86000, 87000, 100000, 2**24 + 1, 2**30 + 1]
    yield from itertools.product([160, 1920, 4096, 65536], low, [2174, 2175, 2200, 3000])


def extremes():
    return itertools.product([1, 8, 1920, 65536, 2**24 + 1, INT_MAX - 7, INT_MAX],
                             [1, 7, 1080, 65536, 2**24 + 1, INT_MAX - 1, INT_MAX],
                             [1, 60, 2173, 2174, 2**24 + 1, INT_MAX - 1, INT_MAX])


def below_one():
    modes = itertools.product([1920, 0, -1, -8, INT_MIN], [1080, 0, -1, INT_MIN],
                              [60, 0, -1, INT_MIN])
    return (mode for mode in modes if min(mode) <= 0)


def blanking_of_whole_lines():
    """Sizes where the blanking is a whole number of lines, or would be but for the rounding."""
    for rate in range(1, 2174):
        # (459 + period) / period is whole where height is a multiple of this.
        left = 1000000 - 460 * rate
        unit = left // gcd(left, 459 * rate)
        for height in range(unit, min(60000, 16 * unit) + 1, unit):
            mode = 8 * (rate % 7 + 1), height, rate
            if is_accepted(mode):
                yield mode
    # And so many lines of blanking that a rounding of the 460 microseconds changes their number.
    for rate, height in itertools.product(range(2100, 2174), range(95, 1400, 145)):
        yield 8, height, rate


def clocks_of_whole_megahertz():
    """Products so little below a whole number of MHz that single precision rounds them up to it."""

    def around(h_total, v_total, rate):
        height = v_total * (1000000 - 460 * rate) // 1000000
        for candidate in range(height - 1, height + 3):
            mode = h_total - 160 + rate % 8, candidate, rate
            if timing(*mode)[2] == v_total:
                yield mode

    for rate, h_total in itertools.product(range(23, 241), range(800, 4300, 8)):
        step = gcd(rate * h_total, 1000000)
        modulus = 1000000 // step
        for short in [8, 16]:
            if short % step == 0:
                inverse = pow(rate * h_total // step, -1, modulus)
                v_total = -short // step * inverse % modulus
                if 200 < v_total < 5000 and rate * h_total * v_total < 2**30:
                    yield from around(h_total, v_total, rate)
    # Those that the rounding takes over the limit.
    for short, rate in itertools.product(range(8, 33, 8), range(1, 241)):
        for h_total in range(168, 16384, 8):
            if (601000000 - short) % (rate * h_total) == 0:
                yield from around(h_total, (601000000 - short) // (rate * h_total), rate)


def orders():
    """Where the operations of a step, in another order, would round to something else."""
    yield from itertools.product([8], [5024, 5026, 5027, *range(15008, 15039)], [2175])
    widths = [67888728, 68222056, 69888728, 72222056, 75888728, 78222056]
    yield from itertools.product(widths, [2], [3])


def scattered():
    """Without a pattern, and the same ones every time."""
    state = 1

    def upto(last):
        nonlocal state
        state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
        return (state >> 33) % last + 1

    for count, most in [(6000, (4400, 2400, 240)), (1500, (2000, 2000, 2200)),
                        (500, (70000, 70000, 2400))]:
        for _ in range(count):
            yield tuple(map(upto, most))


def compared():
    """The modes that stand beside their public values."""
    with MODES.open(newline="") as rows:
        for mode in csv.DictReader(rows):
            yield int(mode["width"]), int(mode["height"]), int(mode["rate"])


def grid():
    return sorted(set(itertools.chain(
        usual(), remainders(), heights(), high_rates(), limits(), extremes(), below_one(),
        blanking_of_whole_lines(), clocks_of_whole_megahertz(), orders(), scattered(), compared())))


def main():
    parser = argparse.ArgumentParser(description="Derives timings of the custom format.")
    parser.add_argument("--output", help="the file to write; standard output without it")
    parser.add_argument("mode", nargs="*", help="WIDTHxHEIGHT@RATE; the whole grid without one")
    options = parser.parse_args()
    modes = [tuple(map(int, mode.replace("@", "x").split("x"))) for mode in options.mode]
    with open(options.output, "w", newline="") if options.output else sys.stdout as output:
        table = csv.DictWriter(output, COLUMNS, lineterminator="\n")
        table.writeheader()
        table.writerows(row(*mode) for mode in modes or grid())


if __name__ == "__main__":
    main()
