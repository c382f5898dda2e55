#!/usr/bin/env bash
# Proves that scripts/check-sources refuses run-loop tasks that capture a context: the
# planted file gives exactly its three findings and a failure. Argument: the source root.
set -euo pipefail
root="$1"
if output=$("$root/scripts/check-sources" "$root/tests/data/sources" 2>&1); then
  echo "the planted captures passed the check" >&2
  exit 1
fi
lines=$(printf '%s\n' "$output" | grep -o 'RawCaptures.cpp:[0-9]*' | tr '\n' ' ')
if [[ "$lines" != "RawCaptures.cpp:5 RawCaptures.cpp:6 RawCaptures.cpp:7 " ]]; then
  echo "expected findings on lines 5, 6 and 7, got: $output" >&2
  exit 1
fi
echo "the planted captures are refused"
