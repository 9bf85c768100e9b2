#!/usr/bin/env bash
# Installs what is missing, builds and runs every test three times: a
# warnings-as-errors build, AddressSanitizer+UBSan (with the fuzz targets as
# libFuzzer binaries) and ThreadSanitizer. The windows' tests run on a virtual
# display (Xvfb) of their own, in the first two builds; under ThreadSanitizer
# the uninstrumented GTK and GLib would report their own threads.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

jobs=$(nproc)
export CTEST_OUTPUT_ON_FAILURE=1

# Runs a command with a virtual display and a session bus of its own, both
# gone when it ends (GTK would otherwise start a session bus that lingers).
gui() {
  xvfb-run -a -s "-screen 0 1280x1024x24" dbus-run-session -- "$@"
}

echo "== Build (warnings as errors) and all tests"
cmake -S . -B build/ci -DZELMOR_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/ci -j"$jobs"
ctest --test-dir build/ci -j"$jobs" -LE gui
gui ctest --test-dir build/ci -L gui

echo "== AddressSanitizer + UndefinedBehaviorSanitizer, libFuzzer targets"
CC=clang CXX=clang++ cmake -S . -B build/asan -DZELMOR_WERROR=ON -DZELMOR_SANITIZE=address \
  -DZELMOR_LIBFUZZER=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/asan -j"$jobs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir build/asan -j"$jobs" -L 'unit|fuzz|network|bluez'
gui ctest --test-dir build/asan -L gui
unset ASAN_OPTIONS UBSAN_OPTIONS

echo "== ThreadSanitizer"
cmake -S . -B build/tsan -DZELMOR_WERROR=ON -DZELMOR_SANITIZE=thread -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/tsan -j"$jobs"
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest --test-dir build/tsan -j"$jobs" -L 'unit|network|bluez'
