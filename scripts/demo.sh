#!/usr/bin/env bash
# Installs what is missing, builds, and runs a live session between the request
# engine and a simulated device.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/release -j"$(nproc)" --target zelmor-live-session
exec build/release/sim/zelmor-live-session "$@"
