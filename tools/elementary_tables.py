#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes core/elementary_tables.h: the constants and tables of core/elementary*.cpp.

Everything is computed here from its series in integer arithmetic of 2000 bits; nothing is read from anywhere.
Usage: tools/elementary_tables.py > core/elementary_tables.h
"""

from fractions import Fraction

BITS = 2000
ONE = 1 << BITS


def fixed(numerator, denominator=1):
    return (numerator << BITS) // denominator


def times(a, b):
    return (a * b) >> BITS


def atan_of(t):
    """Arctangent of a fixed-point number, at most 1: halved twice by its angle, then the series."""
    doublings = 0
    while t > ONE >> 8:
        root = integer_root((ONE * ONE + t * t))
        t = t * ONE // (ONE + root)
        doublings += 1
    square, power, total, n = times(t, t), t, 0, 1
    while power:
        total += power // n if n % 4 == 1 else -(power // n)
        power = times(power, square)
        n += 2
    return total << doublings


def integer_root(n):
    root = 1 << ((n.bit_length() + 1) // 2)
    while True:
        better = (root + n // root) // 2
        if better >= root:
            return root
        root = better


def log_of(ratio):
    """Natural logarithm of a fraction near 1."""
    quotient = (ratio - 1) / (ratio + 1)
    t = fixed(quotient.numerator, quotient.denominator)
    square, power, total, n = times(t, t), t, 0, 1
    while power not in (0, -1):
        total += power // n
        power = times(power, square)
        n += 2
    return 2 * total


def exp_of(t):
    term, total, n = ONE, 0, 1
    while term:
        total += term
        term = times(term, t) // n
        n += 1
    return total


def sin_cos_of(t):
    sine = cosine = 0
    term, n = ONE, 0
    while term:
        sign = 1 if n % 4 < 2 else -1
        if n % 2:
            sine += sign * term
        else:
            cosine += sign * term
        n += 1
        term = times(term, t) // n
    return sine, cosine


PI = 4 * atan_of(ONE)
# ln 2 = 2 ln(4/3) + ln(9/8)
LN2 = 2 * log_of(Fraction(4, 3)) + log_of(Fraction(9, 8))


def to_double(value):
    """The double nearest to a fixed-point number (Python's division of integers rounds correctly)."""
    return value / ONE


def pair(value):
    high = to_double(value)
    return high, to_double(value - exactly(high))


def exactly(double):
    numerator, denominator = double.as_integer_ratio()
    return fixed(numerator, denominator)


def short(value, bits):
    """The leading bits of a fixed-point number, as a double."""
    drop = value.bit_length() - bits
    return to_double((value >> drop) << drop)


def hexadecimal(double):
    if double == 0:
        return "0x0p+0"
    text = double.hex()
    mantissa, exponent = text.split("p")
    if "." in mantissa:
        mantissa = mantissa.rstrip("0").rstrip(".")
    return mantissa + "p" + exponent


def show_constant(name, double, comment=""):
    print(f"inline constexpr double {name} = {hexadecimal(double)};" + (f" // {comment}" if comment else ""))


def show_pair(name, value):
    high, low = pair(value)
    print(f"inline constexpr DoubleDouble {name} = {{{hexadecimal(high)}, {hexadecimal(low)}}};")


def show_pieces(name, value, bits, comment):
    """The value as a sum of short numbers and a full one."""
    rest = value
    print(f"// {comment}")
    for i, count in enumerate(bits):
        piece = short(rest, count) if count else to_double(rest)
        rest -= exactly(piece)
        show_constant(f"{name}{i + 1}", piece)


def show_pairs(name, values, comment):
    print(f"\n// {comment}")
    print(f"inline constexpr DoubleDouble {name}[{len(values)}] = {{")
    cells = ["{%s, %s}" % tuple(map(hexadecimal, pair(v))) for v in values]
    for i in range(0, len(cells), 2):
        print("    " + " ".join(cell + "," for cell in cells[i:i + 2]))
    print("};")


def show_limbs(name, value, count, comment):
    """The leading 32-bit limbs of a value below 1, most significant first."""
    print(f"\n// {comment}")
    print(f"inline constexpr std::uint32_t {name}[{count}] = {{")
    limbs = [(value >> (BITS - 32 * (i + 1))) & 0xFFFFFFFF for i in range(count)]
    for i in range(0, count, 9):
        print("    " + " ".join(f"{limb:#010x}," for limb in limbs[i:i + 9]))
    print("};")


def reciprocal(i):
    """A number of few bits near 1 / m for mantissas m from 1 + i / 128 on; 1 at either end of an octave."""
    octave = 2 if i >= 53 else 1
    if i in (0, 127):
        return Fraction(1)
    centre = (1 + Fraction(2 * i + 1, 256)) / octave
    return Fraction(round(512 / centre), 512)


def show_reciprocals():
    print("""
// A reciprocal c of at most ten bits for each 128th of an octave, and -log c. From entry 53 on the mantissa is halved,
// so that mantissas lie between 0.707 and 1.414; next to 1 on either side c is 1. Then |m c - 1| < 2^-7 everywhere.""")
    entries = [reciprocal(i) for i in range(128)]
    for i, c in enumerate(entries):
        octave = 2 if i >= 53 else 1
        for m in ((1 + Fraction(i, 128)) / octave, (1 + Fraction(i + 1, 128)) / octave):
            assert abs(m * c - 1) <= Fraction(1, 128)
    print("inline constexpr double kReciprocals[128] = {")
    for i in range(0, 128, 8):
        print("    " + " ".join(hexadecimal(float(c)) + "," for c in entries[i:i + 8]))
    print("};")
    show_pairs("kLogs", [-log_of(c) for c in entries], "-log of the reciprocals.")


def main():
    print("""// SPDX-License-Identifier: MIT
// Constants and tables of the elementary functions. Written by tools/elementary_tables.py; not to be edited.
#pragma once

#include "core/double_double.h"
#include <cstdint>

// clang-format off
namespace panoval::tables
{
""")
    show_pair("kPi", PI)
    show_pair("kHalfPi", PI // 2)
    show_constant("kExpSteps", to_double(ONE * 64 * ONE // LN2), "64 / log 2")
    show_pieces("kExpStep", LN2 // 64, (34, 34, 0), "log 2 / 64; multiples below 2^18 of the first two are exact.")
    show_pieces("kLn2Part", LN2, (41, 0), "log 2; multiples below 2^12 of the first are exact.")
    show_constant("kCircleSteps", to_double(ONE * 512 * ONE // PI), "512 / pi")
    show_pieces("kCircleStep", PI // 512, (32, 32, 0), "pi / 512; multiples below 2^21 of the first two are exact.")
    show_pairs("kExp", [exp_of(LN2 * j // 64) for j in range(64)], "2^(j / 64).")
    show_reciprocals()
    show_pairs("kSine", [sin_cos_of(PI * j // 512)[0] if j < 256 else ONE for j in range(257)],
               "sin(j pi / 512); cosines are the same table read from its end.")
    show_pairs("kArctangent", [atan_of(ONE * j // 128) for j in range(129)], "atan(j / 128).")
    show_limbs("kWideLn2", LN2, 10, "log 2, as a binary fraction.")
    show_limbs("kWideQuarterPi", PI // 4, 10, "pi / 4, as a binary fraction.")
    show_limbs("kWideTwoOverPi", 2 * ONE * ONE // PI, 46, "2 / pi, as a binary fraction: enough for every double.")
    print("""
} // namespace panoval::tables
// clang-format on""")


main()
