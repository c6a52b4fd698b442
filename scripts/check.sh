#!/usr/bin/env bash
# Checks the form of the sources.
#   scripts/check.sh           clang-format: nothing would change
#   scripts/check.sh --tidy    clang-tidy too, over the module's sources (uses build/dev's compile commands)
#   scripts/check.sh --fix     lets clang-format change what it would change
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t sources < <(git ls-files --cached --others --exclude-standard '*.h' '*.cpp')
case "${1:-}" in
  --fix) clang-format -i "${sources[@]}"; exit ;;
  "" | --tidy) ;;
  *) echo "usage: scripts/check.sh [--tidy | --fix]" >&2; exit 2 ;;
esac

clang-format --dry-run --Werror "${sources[@]}"
for script in $(git ls-files 'scripts/*.sh' .ci/run); do bash -n "$script"; done
echo "format: ${#sources[@]} files as clang-format wants them"

if [ "${1:-}" = --tidy ]; then
  cmake --preset dev >/dev/null
  mapfile -t module < <(git ls-files 'src/*.cpp' | grep -v '_win\.cpp$')
  # clang-tidy counts the warnings of other people's headers on the error stream, also where it shows none of them.
  printf '%s\n' "${module[@]}" | xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p build/dev \
    2> >(grep -v ' warnings\? generated\.$' >&2)
  echo "tidy: ${#module[@]} files without a finding"
fi
