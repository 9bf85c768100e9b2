#!/usr/bin/env bash
# Installs what is missing, builds, starts a small fleet of simulated battery
# monitors on loopback addresses and opens Zelmor Manager on them, with the
# hub relay of the simulator as its hub and its firmware file server as the
# place where updates are looked for. Closing the manager stops the
# simulator. Without a graphical desktop the manager runs on a virtual display
# for DEMO_SECONDS (60) and leaves a screenshot behind.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)" --target zelmor-sim zelmor-manager

bin=build/release
# A LAN model, a WiFi model, a locked one, one that announces nothing and is
# reached through the hub only, and a WiFi model that keeps one network.
. scripts/start-fleet.sh
start_fleet --device K --device V --device V,user=kingfisher --device V,silent --device V,wifi=one

# A device's line: address, model, "name", serial, [user password "…"], [silent], link.
name_of() { awk -v address="$1" '$1 == address' "$fleet" | cut -d'"' -f2; }
locked=127.0.0.4
silent=127.0.0.5
one_network=127.0.0.6
cat <<TEXT

Zelmor Manager is opening on a simulated fleet; closing it stops the simulator.
  - "$(name_of 127.0.0.2)" (Zelmor-K, LAN) and "$(name_of 127.0.0.3)" (Zelmor-V, WiFi) appear
    under Local Devices within seconds: double-click one to watch its live readings.
  - "$(name_of $locked)" is locked: its password is kingfisher.
  - "$(name_of $silent)" announces nothing and is reached through the hub: choose
    Device > Add Remote Device, paste this link, then double-click it under Remote Devices:

    $(awk -v address=$silent '$1 == address { print $NF }' "$fleet")

  - The device window's menus hold its commands. Settings > WiFi Setup lists the
    known networks of "$(name_of 127.0.0.3)", and the networks in reach of
    "$(name_of $one_network)", which keeps one; their passwords are in
    docs/simulated-device.md (WiFi).
  - The simulator's firmware file server on 127.0.0.1:7210 offers every device
    the firmware one version up; a device that takes it restarts for a few seconds.

TEXT

export ZELMOR_HUB_HOST=127.0.0.1
export ZELMOR_FIRMWARE_SERVER=127.0.0.1:7210
if [[ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
  "$bin"/gui/zelmor-manager
else
  shot=$PWD/$bin/demo-screenshot.png
  echo "No graphical desktop here: the manager runs on a virtual display for ${DEMO_SECONDS:-60} s."
  xvfb-run -a -s "-screen 0 1280x1024x24" dbus-run-session -- bash -c '
    "$1" & manager=$!
    sleep "$2"
    import -window root "$3"
    kill "$manager"; wait "$manager"' demo "$bin"/gui/zelmor-manager "${DEMO_SECONDS:-60}" "$shot" || true
  echo "What it showed: $shot"
fi
