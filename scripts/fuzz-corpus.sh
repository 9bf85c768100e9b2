#!/usr/bin/env bash
# Writes each fuzz target's seeds (its zelmorFuzzSeeds) into fuzz/corpus/<target>/
# as the first corpus of a fuzzing campaign. The seeds come from the targets
# built with the random-input driver (a build without ZELMOR_LIBFUZZER, the
# given one or build/dev), whose --write-corpus mode writes them; a target's
# old seed files go first, so the folder holds exactly what the code offers.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/dev}

targets=()
for source in fuzz/*_fuzz.cpp; do targets+=("$(basename "$source" .cpp)"); done
[ -f "$build/CMakeCache.txt" ] || cmake -S . -B "$build" -DZELMOR_WERROR=ON >/dev/null
if grep -q '^ZELMOR_LIBFUZZER:BOOL=ON' "$build/CMakeCache.txt"; then
  echo "$build links the targets with libFuzzer; give a build without ZELMOR_LIBFUZZER" >&2
  exit 1
fi
nice -n 10 cmake --build "$build" -j2 --target "${targets[@]}"
for target in "${targets[@]}"; do
  rm -f "fuzz/corpus/$target"/seed-*
  "$build/fuzz/$target" --write-corpus "fuzz/corpus/$target"
done
du -sh fuzz/corpus
