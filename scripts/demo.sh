#!/usr/bin/env bash
# Installs what is needed, builds fenlux and its reference host, and shows them at work.
#   scripts/demo.sh            a scripted driver: every notification code, faults, a dropped connection and the return
#   scripts/demo.sh --kernel   the kernel's own permission events on fresh directories (Linux, root)
#   scripts/demo.sh --windows  the scripted driver again, with the DLL and the host as Windows programs under Wine
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/demo_kernel.sh
source scripts/windows_env.sh

mode=scripted
case "${1:-}" in
  "") ;;
  --kernel) mode=kernel ;;
  --windows) mode=windows ;;
  *) sed -n '2,5s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac
if [ "$mode" = kernel ] && [ "$(id -u)" -ne 0 ]; then
  echo "Permission events are given to root alone: sudo scripts/demo.sh --kernel" >&2
  exit 1
fi

scripts/setup.sh
preset=release
if [ "$mode" = windows ]; then
  preset=windows
  scripts/setup.sh --windows
  room=$(mktemp -d)
  trap 'windows_end; rm -rf "$room"' EXIT
  windows_begin "$room"
fi
build=build/$preset
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target fenlux fenlux-host

case "$mode" in
  scripted) exec "$build/fenlux-host" run --config examples/scripted.toml ;;
  kernel) demo_kernel "$build/fenlux-host" ;;
  windows) wine64 "$build/fenlux-host.exe" run --config examples/scripted.toml ;;
esac
