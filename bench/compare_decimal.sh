#!/bin/sh
# Runs the Decimal benchmark (Release build) and the same workload in Python's decimal
# module, and prints nanoseconds per operation on both sides with the speed ratio.
# The build directory defaults to build-decimal-rel beside this checkout's sources.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-"$root/build-decimal-rel"}
if [ ! -x "$build/bench/bench_decimal" ]; then
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
    cmake --build "$build" --target bench_decimal -j2 >/dev/null
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/bench/bench_decimal" --benchmark_format=json --benchmark_min_time=0.5 >"$work/cpp.json"
python3 "$root/bench/decimal_python.py" --json >"$work/python.json"
python3 - "$work/cpp.json" "$work/python.json" <<'PY'
import json, sys
cpp = json.load(open(sys.argv[1]))
python = json.load(open(sys.argv[2]))
names = {"BM_DecimalAdd": "add", "BM_DecimalMultiply": "multiply",
         "BM_DecimalDivide": "divide", "BM_DecimalFixedValue": "fixedValue"}
print(f"{'operation':<12}{'C++ ns/op':>12}{'Python ns/op':>15}{'ratio':>9}")
for run in cpp["benchmarks"]:
    name = names.get(run["name"])
    if name is None:
        continue
    ns = 1e9 / run["items_per_second"]
    print(f"{name:<12}{ns:>12.2f}{python[name]:>15.1f}{python[name] / ns:>8.1f}x")
PY
