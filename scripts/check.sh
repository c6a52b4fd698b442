#!/usr/bin/env bash
# Checks formatting, and the scripts with shellcheck.
#   scripts/check.sh           reports what clang-format would change, and the findings of shellcheck
#   scripts/check.sh --tidy    also runs clang-tidy on src/ and refhost/ (with the compile commands of build/tidy)
#   scripts/check.sh --fix     lets clang-format rewrite the files
# Formatting is checked with clang-format 14 (Debian 12) only, because other versions format differently.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
mode=${1:-}
case "$mode" in
  --tidy | --fix) if [ $# -gt 1 ]; then refuse "$2"; fi ;;
  *) if [ $# -gt 0 ]; then refuse "$mode"; fi ;;
esac

mapfile -t sources < <(git ls-files --cached --others --exclude-standard '*.h' '*.c' '*.cpp')
formatter=$(clang-format --version | sed -n 's/.*version \([0-9]*\).*/\1/p')
if [ "$formatter" != 14 ]; then
  echo "formatting: skipped, because clang-format is version $formatter and not 14"
  if [ "$mode" = --fix ]; then exit 1; fi
elif [ "$mode" = --fix ]; then
  clang-format -i "${sources[@]}"
  exit
else
  clang-format --dry-run --Werror "${sources[@]}"
  echo "formatting: ${#sources[@]} files are formatted"
fi

mapfile -t scripts < <(git ls-files --cached --others --exclude-standard 'scripts/*.sh' .ci/run)
shellcheck "${scripts[@]}"
echo "shellcheck: no findings in ${#scripts[@]} scripts"

if [ "$mode" = --tidy ]; then
  cmake --preset dev -B build/tidy -D CMAKE_UNITY_BUILD=ON >/dev/null
  mapfile -t sources < <(git ls-files 'src/*.cpp' 'refhost/*.cpp' | grep -v '_win\.cpp$')
  scripts/tidy.py build/tidy "${sources[@]}"
fi
