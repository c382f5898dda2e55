#!/usr/bin/env python3
"""The Decimal benchmark's workload with Python's decimal module (precision 38,
ROUND_HALF_UP): add, multiply, divide and rounding to 2 digits over the same operand
pairs. Prints one line per operation, "<name> <ns per operation>", or JSON with --json."""

import json
import sys
import time
import timeit
from decimal import Context, Decimal, ROUND_HALF_UP, setcontext

CTX = Context(prec=38, rounding=ROUND_HALF_UP, Emax=164, Emin=-91)
setcontext(CTX)

LEFT = [Decimal("1234.56"), Decimal("19.99"), Decimal("0.19"), Decimal("3")]
RIGHT = [Decimal("19.99"), Decimal("3"), Decimal("1234.56"), Decimal("0.19")]
PRODUCTS = [Decimal("24678.8544"), Decimal("59.97"), Decimal("234.5664"), Decimal("0.57")]
CENT = Decimal("0.01")

names = {f"a{i}": LEFT[i] for i in range(4)}
names.update({f"b{i}": RIGHT[i] for i in range(4)})
names.update({f"p{i}": PRODUCTS[i] for i in range(4)})
names["CENT"] = CENT
names["ROUND_HALF_UP"] = ROUND_HALF_UP

# Four operations per statement, as in the C++ benchmark's inner loop.
WORKLOAD = {
    "add": "; ".join(f"a{i} + b{i}" for i in range(4)),
    "multiply": "; ".join(f"a{i} * b{i}" for i in range(4)),
    "divide": "; ".join(f"a{i} / b{i}" for i in range(4)),
    "fixedValue": "; ".join(f"p{i}.quantize(CENT, rounding=ROUND_HALF_UP)" for i in range(4)),
}


def measure(statement):
    # Processor time, like Google Benchmark's figures, so that other load on the machine
    # does not count against either side; the best of several runs.
    timer = timeit.Timer(statement, globals=names, timer=time.process_time)
    number = 1
    while timer.timeit(number) < 0.2:
        number *= 2
    best = min(timer.repeat(repeat=7, number=number))
    return best / number / 4 * 1e9


def main():
    results = {name: measure(statement) for name, statement in WORKLOAD.items()}
    if "--json" in sys.argv:
        json.dump(results, sys.stdout)
        print()
    else:
        for name, ns in results.items():
            print(f"{name} {ns:.1f}")


if __name__ == "__main__":
    main()
