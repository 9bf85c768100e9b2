#!/usr/bin/env bash
# Installs the Debian 12 packages that building, running and testing Zelmor Manager
# need, and only those that are missing. Uses sudo when not run as root.
set -euo pipefail

packages=(
  g++ make cmake pkg-config
  clang libclang-rt-14-dev
  libssl-dev zlib1g-dev libfmt-dev libcurl4-openssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libhowardhinnant-date-dev tzdata
  libbluetooth-dev libdbus-1-dev dbus python3-dbusmock
  libwxgtk3.2-dev libcairo2-dev xvfb xauth x11-apps imagemagick xdotool
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing missing packages: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
