#!/usr/bin/env bash
# Checks that the sources use nothing that the newest C++ standard deprecates. Builds nothing.
#   scripts/check_newest_standard.sh                  with the default g++ and clang++ of this machine
#   scripts/check_newest_standard.sh COMPILER...      with these
#   scripts/test_in_debian.sh 13 scripts/check_newest_standard.sh     with those of Debian 13
#
# The compilers must support -std=c++26: g++ 14 or clang 17, or later. Installs the packages that the build needs.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
if [ $# -eq 0 ]; then set -- g++ clang++; fi
for compiler in "$@"; do
  case "$compiler" in "" | -*) refuse "$compiler" ;; esac
done
scripts/setup.sh

mapfile -t sources < <(git ls-files 'src/*.cpp' 'refhost/*.cpp' 'driver/*.cpp' 'hostkit/*.h' \
  'examples/*.cpp' 'tests/package/small_host/*.cpp' | grep -v '_win\.cpp$')
for compiler in "$@"; do
  if ! command -v "$compiler" >/dev/null; then
    echo "$compiler is not installed" >&2
    exit 1
  fi
  # The options depend on the compiler. The build directory is only configured.
  build=build/newest-standard/$(basename "$compiler")
  cmake --preset dev -B "$build" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
  scripts/newest_standard.py "$compiler" "$build" "${sources[@]}"
done
