#!/usr/bin/env bash
# A fuzzing campaign: builds the fuzz targets as libFuzzer binaries under
# AddressSanitizer and UBSan (clang, in build/fuzz-campaign), runs each in turn
# on a copy of its corpus (fuzz/corpus/<target>/) and prints one table row per
# target. Not part of CI: a campaign takes minutes to hours.
#
#   scripts/fuzz-campaign.sh [SECONDS_PER_TARGET] [RUNS_PER_TARGET] [TARGET...]
#
# A target stops after SECONDS_PER_TARGET (60) or RUNS_PER_TARGET executions
# (0: no limit), whichever comes first, or at its first finding. Findings (the
# inputs that crashed, leaked, timed out or broke an invariant) are copied to
# fuzz/regressions/<target>/, where CTest's fuzz tests run them from then on.
# Each target runs alone at the lowest priority: the machine stays usable.
# The grown corpora and the logs stay in build/fuzz-campaign/campaign/, and the
# next campaign goes on from those corpora (delete the folder to start afresh
# from the seeds).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
runs=${2:-0}
shift $(($# < 2 ? $# : 2))

build=build/fuzz-campaign
work=$build/campaign
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELMOR_WERROR=ON \
  -DZELMOR_SANITIZE=address -DZELMOR_LIBFUZZER=ON "${launcher[@]}" >/dev/null

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for source in fuzz/*_fuzz.cpp; do targets+=("$(basename "$source" .cpp)"); done
fi
nice -n 10 cmake --build "$build" -j2 --target "${targets[@]}" >/dev/null

export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
printf '| target | executions | exec/s | cov | ft | corpus | findings |\n'
printf '|---|---|---|---|---|---|---|\n'
for target in "${targets[@]}"; do
  dir=$work/$target
  rm -rf "$dir/findings" "$dir/log"
  mkdir -p "$dir/corpus" "$dir/findings"
  if [ -d "fuzz/corpus/$target" ]; then cp -n fuzz/corpus/"$target"/* "$dir/corpus/"; fi
  limit=()
  if [ "$runs" -gt 0 ]; then limit=(-runs="$runs"); fi
  # A finding ends the run with a non-zero status; the row reports it. The
  # memory limit is twice libFuzzer's own: AddressSanitizer's bookkeeping for
  # the thread a GATT link starts per input grows by about 200 bytes an input
  # (the same target without it stays at 3 MiB), which ten million inputs
  # would take past 2 GiB.
  nice -n 19 "$build/fuzz/$target" -max_total_time="$seconds" "${limit[@]}" -timeout=10 -rss_limit_mb=4096 \
    -print_final_stats=1 -artifact_prefix="$dir/findings/" "$dir/corpus" >"$dir/log" 2>&1 || true

  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$dir/log" | tail -1)
  last=$(grep -E '^#[0-9]+.*cov: ' "$dir/log" | tail -1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  corpus="$(find "$dir/corpus" -type f | wc -l) files, $(du -sk "$dir/corpus" | cut -f1) KB"
  findings=$(find "$dir/findings" -type f | wc -l)
  if [ "$findings" -gt 0 ]; then
    mkdir -p "fuzz/regressions/$target"
    cp "$dir"/findings/* "fuzz/regressions/$target/"
    findings="$findings ($(cd "$dir/findings" && ls | tr '\n' ' ' | sed 's/ $//'); see $dir/log)"
  fi
  printf '| %s | %s | %s | %s | %s | %s | %s |\n' "$target" "${executions:-?}" "${rate:-?}" "${cov:-?}" \
    "${ft:-?}" "$corpus" "$findings"
done
