# Sourced by the demos: start_fleet ARGS... runs build/release's zelmor-sim
# with ARGS in the background, its description of the fleet in $fleet, waits
# until every listener is up, and stops it when the calling script exits.
start_fleet() {
  fleet=$(mktemp)
  build/release/sim/zelmor-sim "$@" >"$fleet" &
  sim=$!
  trap 'kill "$sim" 2>/dev/null; wait "$sim" 2>/dev/null; rm -f "$fleet"' EXIT
  for _ in $(seq 100); do
    grep -q "^Ready" "$fleet" && return 0
    kill -0 "$sim" || exit 1
    sleep 0.1
  done
  echo "zelmor-sim did not get ready" >&2
  exit 1
}
