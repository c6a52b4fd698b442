#!/usr/bin/env bash
# Runs a command of this repository in its own empty Debian root. Needs root, mmdebstrap and Debian.
#   scripts/test_in_debian.sh [--copy-to FROM FOLDER] [--copy-from FOLDER TO] 12|13 [COMMAND [ARGUMENT...]]
#
# The default command is scripts/test.sh. --copy-to copies the files in the folder FROM on this machine to FOLDER of the
# clone before the command runs. If the command succeeds, --copy-from copies the files in FOLDER of the clone to the
# folder TO on this machine.
#
# The root holds a minimal installation of that release and a clone of the committed HEAD, so the command has to install
# whatever it needs. The packages come from the archive that apt is configured to use on this machine. The root is in
# a temporary directory, has its own mount and process namespaces, and is removed at the end.
#
# Reused between runs, in ${FENLUX_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/fenlux}: the minimal installation, downloaded
# packages, compiled objects and the libraries of the Windows build. Runs on the same release take turns.
set -euo pipefail
{ # Bash reads this block as a whole, so changing the file does not affect a running test.
cd "$(dirname "$0")/.."
source scripts/lib/common.sh
source scripts/lib/debian.sh

answer_help "$@"
before=() after=()  # what is copied: the source and the target
while [[ "${1:-}" == --copy-* ]]; do
  if [ $# -lt 4 ]; then usage >&2; exit 2; fi
  case "$1" in
    --copy-to) before=("$2" "$3") ;;
    --copy-from) after=("$2" "$3") ;;
    *) refuse "$1" ;;
  esac
  shift 3
done
case "${1:-}" in
  12) codename=bookworm ;;
  13) codename=trixie ;;
  "") usage >&2; exit 2 ;;
  *) refuse "$1" ;;
esac
release=$1
shift
if [ $# -eq 0 ]; then set -- scripts/test.sh; fi
case "$1" in -*) refuse "$1" ;; esac

obstacle=$(debian_obstacle)
if [ -n "$obstacle" ]; then
  echo "A Debian $release root cannot be made here: $obstacle" >&2
  exit 1
fi

say() { echo "debian-$release: $*" >&2; }

# ---- what is reused

cache=$(fenlux_cache)
mkdir -p "$cache"
cache=$(cd "$cache" && pwd)
shared=$cache/debian-$release
mkdir -p "$shared/ccache" "$shared/archives/partial"
exec 9>"$shared/lock"
flock 9

# The same archives, with the other release's suites; their keys are those of the root itself.
mapfile -t sources < <(debian_sources | awk -v codename="$codename" '
  {
    trusted = /^deb \[[^]]*trusted=yes/ ? "[trusted=yes] " : ""
    sub(/\[[^]]*\] /, "")
    suffix = $3 ~ /-updates$/ ? "-updates" : $3 ~ /(-security|\/updates)$/ ? "-security" : ""
    print "deb " trusted $2, codename suffix, "main"
  }' | sort -u)
if [ ${#sources[@]} -eq 0 ]; then
  echo "apt has no archive of this machine's Debian release configured." >&2
  exit 1
fi
include=()
if printf '%s\n' "${sources[@]}" | grep -q ' https://'; then include=(--include=ca-certificates); fi

# How this machine's apt reaches the archives.
apt_settings() { apt-config dump | grep -E '^Acquire::(https?|Retries|Check-Date|Check-Valid-Until|ForceIPv[46])\b' || true; }

minimal=$shared/minimal-$({ printf '%s\n' "${sources[@]}" "${include[@]}"; apt_settings; } | sha256sum | cut -c1-16).tar
if [ ! -f "$minimal" ]; then
  say "making a minimal installation of $codename"
  rm -f "$shared"/minimal-*
  apt_settings >"$shared/apt.conf"
  mmdebstrap --quiet --variant=minbase "${include[@]}" --aptopt="$shared/apt.conf" "$codename" "$minimal.new.tar" \
    "${sources[@]}" 9<&-
  mv "$minimal.new.tar" "$minimal"
fi

# ---- the root

root=$(mktemp -d -t "fenlux-debian-$release.XXXXXX")
trap 'rm -rf --one-file-system "$root"' EXIT
tar -C "$root" --exclude='./dev/*' -xf "$minimal"
git -c advice.detachedHead=false clone --quiet . "$root/srv/fenlux"
if [ -n "$(git status --porcelain)" ]; then say "uncommitted changes are not tested"; fi
# copy_files FROM TO
copy_files() {
  mkdir -p "$2"
  find "$1" -maxdepth 1 -type f -exec cp -t "$2" {} +
}
if [ ${#before[@]} -gt 0 ]; then copy_files "${before[0]}" "$root/srv/fenlux/${before[1]}"; fi
cp -L /etc/resolv.conf /etc/hosts "$root/etc/"
if [ ${#include[@]} -gt 0 ] && [ -f /etc/ssl/certs/ca-certificates.crt ]; then
  cp /etc/ssl/certs/ca-certificates.crt "$root/etc/ssl/certs/"
fi
echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/unsafe-io"  # the root need not survive a power failure
mkdir -p "$root/root/.cache/ccache" "$root/root/.cache/fenlux"

variables=(HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin TERM="${TERM:-dumb}")
for variable in http_proxy https_proxy no_proxy FENLUX_JOBS; do
  if [ -n "${!variable:-}" ]; then variables+=("$variable=${!variable}"); fi
done

# enter ROOT CACHE SHARED VARIABLE... -- COMMAND...: runs inside the namespaces.
# shellcheck disable=SC2317  # called below, in another shell
enter() {
  local root=$1 cache=$2 shared=$3 variables=()
  shift 3
  while [ "$1" != -- ]; do
    variables+=("$1")
    shift
  done
  shift
  mount --bind "$root" "$root"
  mount -t proc proc "$root/proc"
  mount --rbind /sys "$root/sys"
  mount --rbind /dev "$root/dev"
  mount --bind "$shared/archives" "$root/var/cache/apt/archives"
  mount --bind "$shared/ccache" "$root/root/.cache/ccache"
  mount --bind "$cache" "$root/root/.cache/fenlux"
  # Not chroot: the tests make their own namespaces, which the kernel refuses to a process in a chroot.
  cd "$root"
  pivot_root . .
  umount --lazy .
  cd /srv/fenlux
  env -i "${variables[@]}" "$@"
}

say "running $*"
status=0
unshare --mount --pid --fork --kill-child --propagation private \
  bash -c "set -euo pipefail; $(declare -f enter); enter \"\$@\"" bash \
  "$root" "$cache" "$shared" "${variables[@]}" -- "$@" 9<&- || status=$?
say "$* exited with $status"
if [ "$status" -eq 0 ] && [ ${#after[@]} -gt 0 ]; then copy_files "$root/srv/fenlux/${after[0]}" "${after[1]}"; fi
exit "$status"
}
