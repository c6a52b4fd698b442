#!/usr/bin/env bash
# Installs what is needed, builds fenlux and its reference host, and runs a demo of at most a minute.
#   scripts/demo.sh            a scripted driver: every notification code, faults, a dropped connection, a reconnect
#   scripts/demo.sh --kernel   real permission events of the kernel in temporary directories (Linux, root)
#   scripts/demo.sh --windows  the scripted driver again, with the DLL and the host as Windows programs under Wine
# The last line is "demo: all as expected", or lists what failed.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh
source scripts/lib/demo_kernel.sh
source scripts/lib/demo_scripted.sh
source scripts/lib/windows.sh

answer_help "$@"
mode=scripted
if [ $# -gt 0 ]; then
  case "$1" in
    --kernel | --windows) mode=${1#--} ;;
    *) refuse "$1" ;;
  esac
  if [ $# -gt 1 ]; then refuse "$2"; fi
fi
if [ "$mode" = kernel ] && [ "$(id -u)" -ne 0 ]; then
  echo "Only root gets permission events: sudo scripts/demo.sh --kernel" >&2
  exit 1
fi

dir=$(mktemp -d -t fenlux-demo.XXXXXX)
host_pid=""
unexpected=()
# shellcheck disable=SC2317  # called by the trap
finish() {
  if [ -n "$host_pid" ]; then
    kill -INT "$host_pid" 2>/dev/null || true
    wait "$host_pid" || true
  fi
  windows_end
  rm -rf "$dir"
}
trap finish EXIT

scripts/setup.sh
preset=release
if [ "$mode" = windows ]; then
  preset=windows
  scripts/setup.sh --windows
  windows_begin "$dir"
fi
build_preset "$preset" fenlux fenlux-host

case "$mode" in
  scripted) demo_scripted "$dir/host.sock" "build/$preset/fenlux-host" ;;
  kernel) demo_kernel "build/$preset/fenlux-host" ;;
  windows) demo_scripted "\\\\.\\pipe\\${dir##*/}" wine64 "build/$preset/fenlux-host.exe" ;;
esac

if [ ${#unexpected[@]} -eq 0 ]; then
  echo "demo: all as expected"
else
  echo "demo: not as expected: $(printf '%s; ' "${unexpected[@]}" | sed 's/; $//')"
  exit 1
fi
