#!/usr/bin/env bash
# Proves that the build refuses an upward include: a copy of the source tree with one
# planted include of the store from the model must fail to configure, naming the file,
# while the untouched copy configures. Arguments: the source root, a scratch folder.
set -euo pipefail
root="$1"
scratch="$2"
rm -rf "$scratch"
mkdir -p "$scratch"
copy="$scratch/tree"
mkdir -p "$copy"
cp -r "$root/CMakeLists.txt" "$root/cmake" "$root/src" "$root/tools" "$copy/"
configure() {
  cmake -S "$copy" -B "$scratch/build-$1" -G Ninja -DBRASSLINE_TESTS=OFF -DBRASSLINE_BENCH=OFF >"$scratch/$1.log" 2>&1
}

if ! configure clean; then
  echo "the untouched tree does not configure:" >&2
  cat "$scratch/clean.log" >&2
  exit 1
fi

printf '#include "store/BLDoc.h"\n' >"$copy/src/model/PlantedUpwardInclude.cpp"
if configure planted; then
  echo "an include of the store from the model configured without complaint" >&2
  exit 1
fi
if ! grep -q "model/PlantedUpwardInclude.cpp: #include \"store/BLDoc.h\"" "$scratch/planted.log"; then
  echo "the configure failed, but not for the planted include:" >&2
  cat "$scratch/planted.log" >&2
  exit 1
fi
echo "the upward include is refused"
rm -rf "$scratch"
