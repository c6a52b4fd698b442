#!/usr/bin/env bash
# Installs what is needed, builds fenlux and its reference host, and shows them at work.
#   scripts/demo.sh            a scripted driver: every notification code, faults, a dropped connection and the return
#   scripts/demo.sh --kernel   the kernel's own permission events on fresh directories (Linux, root)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/demo_kernel.sh

mode=scripted
case "${1:-}" in
  "") ;;
  --kernel) mode=kernel ;;
  *) sed -n '2,4s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac
if [ "$mode" = kernel ] && [ "$(id -u)" -ne 0 ]; then
  echo "Permission events are given to root alone: sudo scripts/demo.sh --kernel" >&2
  exit 1
fi

scripts/setup.sh
build=build/release
cmake --preset release >/dev/null
cmake --build --preset release --target fenlux fenlux-host

case "$mode" in
  scripted) exec "$build/fenlux-host" run --config examples/scripted.toml ;;
  kernel) demo_kernel "$build/fenlux-host" ;;
esac
