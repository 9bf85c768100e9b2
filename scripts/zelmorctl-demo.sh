#!/usr/bin/env bash
# The command-line side of the demo: installs what is missing, builds, starts a
# small fleet of simulated devices on loopback addresses and shows them through
# zelmorctl: the LAN scan, the information and live readings of one device over
# the LAN, and one reached through the hub relay by its device link. Stops the
# simulator at the end.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)" --target zelmor-sim zelmorctl

bin=build/release
. scripts/start-fleet.sh
start_fleet

ctl() {
  echo
  echo "\$ zelmorctl $*"
  "$bin"/cli/zelmorctl "$@"
}

ctl scan --seconds 3
ctl --lan 127.0.0.2 info
ctl --lan 127.0.0.2 monitor --count "${DEMO_READINGS:-10}" --interval 1000
link=$(awk '$1 == "127.0.0.3" { print $NF }' "$fleet")
ctl --link "$link" info
ctl --link "$link" monitor --count 3 --interval 2000
echo
echo "The simulated fleet (add a link as a remote device; the locked device's password is in its line):"
cat "$fleet"
