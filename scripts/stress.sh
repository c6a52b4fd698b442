#!/usr/bin/env bash
# Kills, stops or restarts the host many times, and prints one table.
#   scripts/stress.sh kill [--count N]     kill -9 with openers in flight (1000 times; Linux, root)
#   scripts/stress.sh stall [--count N]    SIGSTOP and SIGCONT with 40 blocked openers (20 times; Linux, root)
#   scripts/stress.sh record [--count N]   kill -9 while a host records, then decode what it left (20 times)
#   scripts/stress.sh drops                1000 dropped connections, on the manual clock
#   scripts/stress.sh cycles [--count N]   load, init, start and stop, one process each (10000 times)
# Options of every run:
#   --preset PRESET   which build: release (the default), dev, asan-ubsan or tsan
#   --seed N          the seed of the random moments (1)
# The exit code is 0 if every row of the table passes.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
preset=release seed=1 run="" count=""
while [ $# -gt 0 ]; do
  case "$1" in
    kill | stall | record | drops | cycles) if [ -n "$run" ]; then refuse "$1"; fi; run=$1 ;;
    --count | --seed)
      if ! [[ "${2:-}" =~ ^[1-9][0-9]{0,8}$ ]]; then refuse "$1 ${2:-}"; fi
      if [ "$1" = --count ]; then count=$2; else seed=$2; fi
      shift
      ;;
    --preset)
      case "${2:-}" in release | dev | asan-ubsan | tsan) preset=$2 ;; *) refuse "$1 ${2:-}" ;; esac
      shift
      ;;
    *) refuse "$1" ;;
  esac
  shift
done
case "$run" in
  kill) count=${count:-1000} ;;
  stall | record) count=${count:-20} ;;
  cycles) count=${count:-10000} ;;
  drops) if [ -n "$count" ]; then refuse --count; fi; count=1000 ;;
  *)
    echo "stress.sh: say what to run: kill, stall, record, drops or cycles" >&2
    exit 2
    ;;
esac

targets=(fenlux fenlux-host)
if [ "$run" = drops ]; then targets=(fenlux_emulator_module_tests); fi
scripts/setup.sh >&2
build_preset "$preset" "${targets[@]}" >&2
PYTHONDONTWRITEBYTECODE=1 exec python3 scripts/lib/stress.py --program "build/$preset/fenlux-host" --count "$count" --seed "$seed" "$run"
