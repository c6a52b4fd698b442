#!/usr/bin/env bash
# Runs the host at full rate for a while, with everything that may happen to it, and prints one table.
#   scripts/soak.sh [--minutes N] [--seed N] [--preset PRESET]
# A scripted driver with faults and dropped connections; as root also the kernel's own events, in temporary directories.
# Processes come and go, configurations are reloaded, control clients come and go. At the end the totals must add up,
# memory, descriptors and threads must be what they were in the first quarter, and the latency must be stable.
# Without options: 10 minutes, seed 1, preset release (or dev, asan-ubsan, tsan). The exit code is 0 if every row of
# the table is as it must be.
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
