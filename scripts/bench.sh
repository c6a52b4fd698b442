#!/usr/bin/env bash
# Builds the release preset, runs the benchmarks of the module, the guarded open and the host, and prints one table.
#   scripts/bench.sh                  takes about 5 minutes
#   scripts/bench.sh --quick          takes less than a minute, for trying it out: the figures are rough
#   scripts/bench.sh --json FILE      also writes the figures, the machine and the commit as JSON
#   scripts/bench.sh --plots FOLDER   also draws them, as SVG files in this folder
# The table has each figure's median and its ratio to its floor, the spread (half the distance between the quartiles, as
# a percentage of the median), and the target. Close everything else first: the last line says how busy the machine was
# with other work. What needs root, like the guarded open, or a second core is left out without it.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
arguments=()
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) arguments+=("$1") ;;
    --json | --plots)
      if [ $# -lt 2 ] || [ -z "$2" ]; then
        echo "${0##*/}: $1 needs the name of a file or folder" >&2
        exit 2
      fi
      case "$2" in /*) arguments+=("$1" "$2") ;; *) arguments+=("$1" "$OLDPWD/$2") ;; esac
      shift
      ;;
    *) refuse "$1" ;;
  esac
  shift
done

scripts/setup.sh >&2
if [[ " ${arguments[*]} " == *" --plots "* ]]; then scripts/setup.sh --tools >&2; fi
build_preset release fenlux_bench fenlux_open_bench fenlux_open_scaling_bench fenlux-host fenlux >&2
PYTHONDONTWRITEBYTECODE=1 exec python3 scripts/lib/bench.py --build build/release "${arguments[@]}"
