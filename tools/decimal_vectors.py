#!/usr/bin/env python3
"""Writes test vectors for the Decimal type, computed with Python's decimal module.

Every line is one case, tokens separated by single spaces, the expected result last:

    add A B R     sub A B R     mul A B R     div A B R
    pct A P R     (A / 100 * P, both steps rounded to 38 digits)
    rnd A S M R   (A rounded to S fraction digits; M is P plain, D toward -inf,
                   U toward +inf, B bankers)
    cmp A B R     (R is -1, 0 or 1; NaN orders first and equals only NaN)
    parse T R     (T is any text the grammar accepts, possibly over 38 digits)
    i64 A R       (truncated toward zero, saturated at the int64 range)
    dbl A R       (the nearest double, written by repr)

Operands are exact values of the type (at most 38 digits, exponent -128..127) written in
plain or exponent notation; results are written in the type's canonical text: plain
notation, no trailing zeros, "0" for every zero and "NaN" for not-a-number.

How the context matches the type: precision 38 and ROUND_HALF_UP. The type holds
significands below 10^38 with exponents -128..127, so its largest value is
(10^38 - 1) x 10^127, whose adjusted exponent is 164: Emax = 164. Its smallest unit is
10^-128; Python's smallest exponent is Etiny = Emin - prec + 1, so Emin = -91, and Python
rounds results below 10^Emin once at Etiny, as the type does. No signal is trapped:
overflow gives Infinity and division by zero gives Infinity or NaN, which the type writes
as "NaN". With these settings the two sets of representable values are the same, so no
vector needs filtering.
"""

import argparse
import random
import sys
from decimal import (Context, Decimal, ROUND_CEILING, ROUND_FLOOR, ROUND_HALF_EVEN,
                     ROUND_HALF_UP)

PREC = 38
MIN_EXP = -128
MAX_EXP = 127
CTX = Context(prec=PREC, rounding=ROUND_HALF_UP, Emax=164, Emin=-91, clamp=0, traps=[])
MODES = {"P": ROUND_HALF_UP, "D": ROUND_FLOOR, "U": ROUND_CEILING, "B": ROUND_HALF_EVEN}
INT64_MAX = 2**63 - 1
INT64_MIN = -2**63


def canonical(d):
    if d.is_nan() or d.is_infinite():
        return "NaN"
    if d.is_zero():
        return "0"
    sign, digits, exponent = d.as_tuple()
    text = "".join(map(str, digits)).lstrip("0")
    while text.endswith("0"):
        text = text[:-1]
        exponent += 1
    prefix = "-" if sign else ""
    if exponent >= 0:
        return prefix + text + "0" * exponent
    point = len(text) + exponent
    if point > 0:
        return prefix + text[:point] + "." + text[point:]
    return prefix + "0." + "0" * (-point) + text


def exact(coefficient, exponent, negative):
    """An exactly representable value of the type."""
    assert 0 <= coefficient < 10**PREC and MIN_EXP <= exponent <= MAX_EXP
    return Decimal((1 if negative else 0, tuple(int(c) for c in str(coefficient)), exponent))


def write_operand(rng, d):
    """Plain canonical text most of the time, exponent notation otherwise."""
    choice = rng.random()
    if choice < 0.6 or d.is_zero() or not d.is_finite():
        return canonical(d)
    if choice < 0.8:
        return str(d)
    sign, digits, exponent = d.as_tuple()
    text = "".join(map(str, digits))
    letter = rng.choice("eE")
    plus = rng.choice(["", "+"]) if exponent >= 0 else ""
    return ("-" if sign else "") + text + letter + plus + str(exponent)


def random_coefficient(rng, digits):
    if digits <= 0:
        return 0
    return rng.randrange(10**(digits - 1), 10**digits)


def random_operand(rng):
    kind = rng.random()
    negative = rng.random() < 0.35
    if kind < 0.35:
        # Money and quantities: up to 9 digits with 0 to 5 fraction digits.
        return exact(random_coefficient(rng, rng.randint(1, 9)), -rng.randint(0, 5), negative)
    if kind < 0.65:
        # Any length, moderate exponents.
        digits = rng.randint(1, PREC)
        return exact(random_coefficient(rng, digits), rng.randint(-45, 10), negative)
    if kind < 0.8:
        # Any length, anywhere in the range.
        digits = rng.randint(1, PREC)
        return exact(random_coefficient(rng, digits), rng.randint(MIN_EXP, MAX_EXP), negative)
    # Edges: runs of nines, powers of ten, fives at the end, range limits.
    digits = rng.randint(1, PREC)
    exponent = rng.choice([MIN_EXP, MAX_EXP, rng.randint(MIN_EXP, MIN_EXP + 40),
                           rng.randint(MAX_EXP - 40, MAX_EXP), rng.randint(-40, 5)])
    shape = rng.randrange(6)
    if shape == 0:
        coefficient = 10**digits - 1
        digits = len(str(coefficient))
    elif shape == 1:
        coefficient = 10**(digits - 1)
    elif shape == 2:
        coefficient = random_coefficient(rng, digits - 1) * 10 + 5 if digits > 1 else 5
    elif shape == 3:
        coefficient = 5 * 10**(digits - 1)
    elif shape == 4:
        coefficient = 10**(digits - 1) * rng.randint(1, 9) + rng.choice([0, 1, 4, 5, 6, 9])
    else:
        coefficient = 0
    if coefficient >= 10**PREC:
        coefficient //= 10
    return exact(coefficient, exponent, negative)


def neighbour(rng, a):
    """A value close to a, for cancellation and carries across 38 digits."""
    if a.is_zero():
        return random_operand(rng)
    shift = exact(random_coefficient(rng, rng.randint(1, 3)), 0, rng.random() < 0.5)
    exponent = a.adjusted() - rng.randint(30, 45)
    exponent = max(MIN_EXP, min(MAX_EXP, exponent))
    delta = shift.scaleb(exponent, CTX)
    candidate = CTX.add(a, delta)
    return candidate if representable(candidate) else random_operand(rng)


def representable(d):
    if not d.is_finite():
        return False
    if d.is_zero():
        return True
    sign, digits, exponent = d.as_tuple()
    text = "".join(map(str, digits)).lstrip("0")
    while text.endswith("0") and exponent < MAX_EXP:
        text = text[:-1]
        exponent += 1
    while exponent > MAX_EXP and len(text) < PREC:
        text += "0"
        exponent -= 1
    return len(text) <= PREC and MIN_EXP <= exponent <= MAX_EXP


def far_apart(rng, a):
    """A value whose digits start 36 to 80 places below a's last digit or overlap it."""
    if a.is_zero():
        return random_operand(rng)
    exponent = a.as_tuple().exponent - rng.randint(36, 80)
    if exponent < MIN_EXP:
        return random_operand(rng)
    digits = rng.randint(1, PREC)
    coefficient = rng.choice([random_coefficient(rng, digits), 5 * 10**(digits - 1), 10**digits - 1])
    return exact(coefficient, exponent, rng.random() < 0.5)


def pair(rng):
    a = random_operand(rng)
    choice = rng.random()
    if choice < 0.12:
        b = neighbour(rng, a)
    elif choice < 0.22:
        if rng.random() < 0.5:
            a = exact(random_coefficient(rng, rng.randint(30, PREC)), rng.randint(-40, 40), rng.random() < 0.5)
        b = far_apart(rng, a)
    else:
        b = random_operand(rng)
    if not representable(b):
        b = random_operand(rng)
    if rng.random() < 0.5:
        a, b = b, a
    return a, b


def random_parse_text(rng):
    """Text the grammar accepts: sign, digits with a point anywhere, exponent."""
    integer = "".join(rng.choice("0123456789") for _ in range(rng.randint(0, 45)))
    fraction = "".join(rng.choice("0123456789") for _ in range(rng.randint(0, 45)))
    if rng.random() < 0.2:
        integer = "0" * rng.randint(1, 5) + integer
    if rng.random() < 0.2:
        fraction = fraction + "5" + "0" * rng.randint(0, 3)
    if not integer and not fraction:
        integer = rng.choice("0123456789")
    if fraction or rng.random() < 0.1:
        body = integer + "." + fraction
    else:
        body = integer
    sign = rng.choice(["", "", "-", "+"])
    exponent = ""
    if rng.random() < 0.4:
        value = rng.choice([rng.randint(-20, 20), rng.randint(-220, 220)])
        exponent = rng.choice("eE") + rng.choice(["", "+"] if value >= 0 else [""]) + str(value)
    return sign + body + exponent


def compare(a, b):
    if a.is_nan() or b.is_nan():
        return (0 if b.is_nan() else -1) if a.is_nan() else 1
    return (a > b) - (a < b)


def nan_operand(rng, d):
    return Decimal("NaN") if rng.random() < 0.01 else d


def generate(rng, count):
    ops = ["add", "sub", "mul", "div", "add", "sub", "mul", "div", "pct", "rnd", "rnd", "cmp",
           "parse", "parse", "i64", "dbl"]
    lines = []
    while len(lines) < count:
        op = rng.choice(ops)
        if op in ("add", "sub", "mul", "div", "cmp", "pct"):
            a, b = pair(rng)
            if op == "div" and rng.random() < 0.03:
                b = Decimal(0)
            if op == "cmp" and rng.random() < 0.2:
                b = a
            a = nan_operand(rng, a)
            b = nan_operand(rng, b)
            if op == "add":
                r = canonical(CTX.add(a, b))
            elif op == "sub":
                r = canonical(CTX.subtract(a, b))
            elif op == "mul":
                r = canonical(CTX.multiply(a, b))
            elif op == "div":
                r = canonical(CTX.divide(a, b))
            elif op == "pct":
                r = canonical(CTX.multiply(CTX.divide(a, Decimal(100)), b))
            else:
                r = str(compare(a, b))
            lines.append(f"{op} {write_operand(rng, a)} {write_operand(rng, b)} {r}")
        elif op == "rnd":
            a = nan_operand(rng, random_operand(rng))
            scale = rng.choice([2, 2, 2, 4, 5, 0, 1, 3, -1, -2])
            mode = rng.choice("PPPPDUB")
            if rng.random() < 0.3 and a.is_finite():
                # A 5 just below the rounding digit.
                a = exact(random_coefficient(rng, rng.randint(1, 8)) * 10 + 5, -(scale + 1), rng.random() < 0.5) \
                    if 0 <= scale + 1 <= 128 else a
            if not a.is_finite():
                r = "NaN"
            elif a.as_tuple().exponent >= -scale:
                r = canonical(a)
            else:
                r = canonical(a.quantize(Decimal(1).scaleb(-scale), rounding=MODES[mode], context=CTX))
            lines.append(f"rnd {write_operand(rng, a)} {scale} {mode} {r}")
        elif op == "parse":
            text = random_parse_text(rng)
            lines.append(f"parse {text} {canonical(CTX.create_decimal(text))}")
        elif op == "i64":
            a = random_operand(rng)
            if rng.random() < 0.5:
                a = exact(random_coefficient(rng, rng.randint(17, 21)), rng.randint(-2, 0), rng.random() < 0.5)
            value = max(INT64_MIN, min(INT64_MAX, int(a)))
            lines.append(f"i64 {write_operand(rng, a)} {value}")
        else:
            a = random_operand(rng)
            lines.append(f"dbl {write_operand(rng, a)} {float(a)!r}")
    return lines


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--seed", type=int, default=20240601)
    parser.add_argument("--count", type=int, default=24000)
    parser.add_argument("--out", default="-")
    args = parser.parse_args()
    rng = random.Random(args.seed)
    lines = generate(rng, args.count)
    text = f"# decimal vectors, seed {args.seed}\n" + "\n".join(lines) + "\n"
    if args.out == "-":
        sys.stdout.write(text)
    else:
        with open(args.out, "w", encoding="ascii") as out:
            out.write(text)


if __name__ == "__main__":
    main()
