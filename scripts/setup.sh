#!/usr/bin/env bash
# Installs the packages that building and testing fenlux needs. On systems other than Debian, only lists them.
#   scripts/setup.sh [OPTION...]
#     --windows   also those for the Windows build and its tests under Wine
#     --debian    also those for scripts/test_in_debian.sh
#     --tools     also programs that some tests, scripts/fleet.sh and scripts/bench.sh use: chromium, gnuplot,
#                 logrotate, man, tshark, promtool, prometheus and valgrind. Starts no service; for newly installed ones,
#                 `systemctl unmask prometheus.service logrotate.timer` permits it
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
lists=(scripts/packages.txt) extra=()
for argument in "$@"; do
  case "$argument" in
    --windows) lists+=(cmake/packages-windows.txt) ;;
    --debian) extra+=(mmdebstrap debian-archive-keyring) ;;
    --tools) extra+=(chromium gnuplot-nox logrotate man-db prometheus tshark valgrind) ;;
    *) refuse "$argument" ;;
  esac
done
mapfile -t packages < <(sed 's/[[:space:]]*#.*//; /^[[:space:]]*$/d' "${lists[@]}" | sort -u)
packages+=("${extra[@]}")

if ! command -v apt-get >/dev/null; then
  echo "This is not a Debian system. Install the counterparts of these Debian packages:" >&2
  printf '  %s\n' "${packages[@]}" >&2
  echo "Then run scripts/test.sh; CMake reports what is still missing." >&2
  exit 1
fi

# The major version of the release's default clang: the installed one, or else the one that apt would install.
clang_version() {
  { dpkg-query -W -f 'Depends: ${Depends}\n' clang || apt-cache show --no-all-versions clang; } 2>/dev/null |
    sed -n 's/^Depends:.*\bclang-\([0-9]\+\)\b.*/\1/p' || true
}

# Sets `missing` to the packages that are not installed.
find_missing() {
  local package clang
  clang=$(clang_version)
  missing=()
  for package in "${packages[@]}"; do
    package=${package//CLANG/$clang}
    dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
  done
}

# One installation at a time, because several scripts of one clone may run this.
exec 9<scripts/packages.txt
flock 9
find_missing
if [ ${#missing[@]} -eq 0 ]; then exit 0; fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "These packages are missing, and installing them needs root: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
log=$(mktemp)
policy=""
# shellcheck disable=SC2317  # called by the trap
finish() {
  rm -f "$log"
  if [ -n "$policy" ]; then "${as_root[@]}" rm -f "$policy"; fi
}
trap finish EXIT

# The units of the packages that systemd would start at the next boot.
declare -A units=([logrotate]=logrotate.timer [prometheus]=prometheus.service)

# Keeps the packages' scripts from starting services now, and systemd from starting them later.
start_no_services() {
  if [ ! -e /usr/sbin/policy-rc.d ]; then
    policy=/usr/sbin/policy-rc.d
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
    "${as_root[@]}" chmod 755 "$policy"
  fi
  local package unit
  for package in "${!units[@]}"; do
    unit=/etc/systemd/system/${units[$package]}
    if [[ " ${missing[*]} " == *" $package "* ]] && [ ! -e "$unit" ]; then
      "${as_root[@]}" mkdir -p "${unit%/*}"
      "${as_root[@]}" ln -s /dev/null "$unit"
    fi
  done
}

run_logged() {
  if ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive "$@" >>"$log" 2>&1 9<&-; then
    tail -n 30 "$log" >&2
    echo "The installation failed; the end of its output is above." >&2
    exit 1
  fi
}
run_logged apt-get update
find_missing  # again, because only the lists name the release's default clang
start_no_services
echo "Installing: ${missing[*]}"
run_logged apt-get -o DPkg::Lock::Timeout=600 install -y --no-install-recommends "${missing[@]}"
