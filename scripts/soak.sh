#!/usr/bin/env bash
# The long run of the manager under faults (bench/manager_soak.cpp): the main
# window and ten device windows for MINUTES minutes (10 when not given) against
# zelmor-sim, on a virtual display, in a network namespace of its own whose
# loopback is all it reaches. Not part of the test suites: it takes minutes.
# ZELMOR_BUILD names the build tree (build/soak, configured here when missing);
# an AddressSanitizer tree works too, with the GUI tests' leak suppressions.
set -euo pipefail
cd "$(dirname "$0")/.."

minutes=${1:-10}
build=${ZELMOR_BUILD:-build/soak}
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j"$(nproc)" --target manager_soak
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/gui/lsan.supp}

exec unshare -n sh -c 'ip link set lo up &&
  exec xvfb-run -a -s "-screen 0 1280x1024x24" dbus-run-session -- "$0" "$1"' \
  "$build/bench/manager_soak" "$minutes"
