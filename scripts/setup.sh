#!/usr/bin/env bash
# Installs what fenlux is built and tested with: on Debian from its packages, elsewhere it says what is missing.
#   scripts/setup.sh             what the Linux build, the tests and the demo need
#   scripts/setup.sh --windows   what the Windows build and its tests under Wine need as well
set -euo pipefail
cd "$(dirname "$0")/.."

lists=(scripts/packages.txt)
case "${1:-}" in
  "") ;;
  --windows) lists+=(cmake/packages-windows.txt) ;;
  *) echo "usage: scripts/setup.sh [--windows]" >&2; exit 2 ;;
esac
mapfile -t packages < <(sed 's/[[:space:]]*#.*//; /^[[:space:]]*$/d' "${lists[@]}" | sort -u)

if ! command -v apt-get >/dev/null; then
  echo "This is not a Debian system. Install the counterparts of these Debian packages:" >&2
  printf '  %s\n' "${packages[@]}" >&2
  echo "Then run scripts/test.sh; CMake names whatever is still missing." >&2
  exit 1
fi

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "These packages are missing, and installing them needs root: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${as_root[@]}" apt-get update && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
       apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  tail -n 30 "$log" >&2
  echo "The installation failed; its last lines are above." >&2
  exit 1
fi
