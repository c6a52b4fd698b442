#!/usr/bin/env bash
# Runs hosts at full rate while faults, reloads and control clients disturb them, and prints one table.
#   scripts/soak.sh [--minutes N] [--seed N] [--preset PRESET]
# One host has a scripted driver with faults and dropped connections; as root, another one judges kernel events in a
# temporary directory. Processes start and exit, and control clients send good and bad requests. At the end the totals
# must add up, and memory, descriptors, threads and latency must be about what they were in the first quarter.
# Defaults: 10 minutes, seed 1, preset release; other presets are dev, asan-ubsan and tsan. The exit code is 0 if every
# row of the table passes.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
minutes=10 seed=1 preset=release
while [ $# -gt 0 ]; do
  case "$1" in
    --minutes) if [[ "${2:-}" =~ ^([0-9]{1,5}(\.[0-9]+)?)$ ]]; then minutes=$2; else refuse "$1 ${2:-}"; fi ;;
    --seed) if [[ "${2:-}" =~ ^[1-9][0-9]{0,8}$ ]]; then seed=$2; else refuse "$1 ${2:-}"; fi ;;
    --preset) case "${2:-}" in release | dev | asan-ubsan | tsan) preset=$2 ;; *) refuse "$1 ${2:-}" ;; esac ;;
    *) refuse "$1" ;;
  esac
  shift 2
done

scripts/setup.sh >&2
build_preset "$preset" fenlux fenlux-host >&2
PYTHONDONTWRITEBYTECODE=1 exec python3 scripts/lib/soak.py --program "build/$preset/fenlux-host" --minutes "$minutes" \
  --seed "$seed"
