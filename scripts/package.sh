#!/usr/bin/env bash
# Builds the Debian packages for each Debian release, in an empty root of that release, and checks them with lintian.
# Then installs them with apt in another empty root, runs the host, builds a small host against the development package,
# lets it judge the scripted example, and purges the packages. Needs root, mmdebstrap and Debian.
#   scripts/package.sh [12|13 ...]    for these Debian releases; default: 12 and 13
#
# The packages of the committed HEAD are left in build/packages/debian-<release>. Their versions end in +deb<release>, so
# that a machine that is upgraded to the next Debian release gets its packages.
set -euo pipefail
{ # Bash reads this block as a whole, so changing the file does not affect a running build.
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
if [ "${1:-}" = --build-in-root ]; then  # called below, inside the root
  release=$2
  scripts/setup.sh
  cmake --preset release -DFENLUX_BUILD_TESTS=OFF -DFENLUX_BUILD_BENCH=OFF -DFENLUX_BUILD_DOCS=ON \
    -DFENLUX_DEB_SUFFIX="+deb$release" >/dev/null
  cmake --build --preset release
  output=build/packages
  mkdir -p "$output"
  cpack --config build/release/CPackConfig.cmake -B "$output"
  rm -rf "$output/_CPack_Packages"
  lintian --allow-root --fail-on error --tag-display-limit 0 "$output"/*.deb
  exit
fi
if [ $# -eq 0 ]; then set -- 12 13; fi
for release in "$@"; do
  case "$release" in 12 | 13) ;; *) refuse "$release" ;; esac
done
for release in "$@"; do
  output=build/packages/debian-$release
  rm -rf "$output"
  mkdir -p "$output"
  scripts/test_in_debian.sh --copy-from build/packages "$output" "$release" \
    scripts/package.sh --build-in-root "$release"
  scripts/test_in_debian.sh --copy-to "$output" build/packages "$release" scripts/lib/try_packages.sh build/packages
  printf '%s\n' "$output"/*.deb
done
exit
}
