#!/usr/bin/env bash
# Builds and runs every benchmark (pack install and update against the sample website on
# loopback), then prints one summary line each: the ratio to the same work done in a shell, the
# goal, peak memory and the absolute times. The default run takes a few minutes on two cores.
# Usage: tools/bench/run.sh [--bundles N] [--watch-seconds N] [--pack-assets N] [--pack-mb N]
#                           [--updater-mb N] [--runs N] [--only NAME]
#   defaults: 1000 bundles, 5 s of idle watch, a pack of 8 x 64 MB, a 300 MB release, 2 runs
#   of the pack install and the update; NAME is discovery, process_watch, pack_install or updater.
set -euo pipefail
cd "$(dirname "$0")/../.."

bundles=1000 watch_seconds=5 pack_assets=8 pack_mb=64 updater_mb=300 runs=2 only=""
while [ $# -gt 0 ]; do
  case "$1" in
    -h | --help) sed -n '2,8p' "$0" | cut -c3-; exit 0 ;;
  esac
  [ $# -ge 2 ] || { echo "run.sh: $1 takes a value (try --help)" >&2; exit 2; }
  case "$1" in
    --bundles) bundles=$2 ;;
    --watch-seconds) watch_seconds=$2 ;;
    --pack-assets) pack_assets=$2 ;;
    --pack-mb) pack_mb=$2 ;;
    --updater-mb) updater_mb=$2 ;;
    --runs) runs=$2 ;;
    --only) only=$2 ;;
    *) echo "run.sh: unknown argument $1 (try --help)" >&2; exit 2 ;;
  esac
  shift 2
done

tools/build.sh
bench=$PWD/build/tools/bench
# The releases and packs are large: they go under build/, not into a /tmp that may live in memory.
work=$(mktemp -d "$PWD/build/bench-run-XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"
export TMPDIR=$work

summary=()
failed=0
run() {
  local name=$1
  shift
  [ -z "$only" ] || [ "$only" = "$name" ] || return 0
  echo "== $name $*"
  if "$bench/${name}_bench" "$@" | tee "$work/$name.log" && grep -q '^summary:' "$work/$name.log"; then
    summary+=("$(sed -n 's/^summary: //p' "$work/$name.log")")
  else
    summary+=("$name: FAILED (its output is above)")
    failed=1
  fi
  echo
}

run discovery "$bundles" 20
run process_watch "$watch_seconds" 300
run pack_install "$pack_assets" "$pack_mb" "$runs"
run updater "$updater_mb" "$runs"

echo "Summary (ratio: our time or CPU over the shell's; below 1 is faster):"
printf '  %s\n' "${summary[@]}"
exit "$failed"
