#!/usr/bin/env bash
# Builds and tests fenlux.
#   scripts/test.sh                 the quick preset (dev)
#   scripts/test.sh --all           the form of the sources, release, both sanitizer presets, and Windows under Wine
#   scripts/test.sh PRESET [...]    those presets: dev, release, asan-ubsan, tsan, windows
# It ends with a line of counts for each preset and one for all of them.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/windows_env.sh

presets=(dev)
check=false
case "${1:-}" in
  "") ;;
  --all) presets=(release asan-ubsan tsan windows); check=true ;;
  -*) sed -n '2,6s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
  *) presets=("$@") ;;
esac

scripts/setup.sh
if [[ " ${presets[*]} " == *" windows "* ]]; then
  scripts/setup.sh --windows || true  # what is missing then is told below
fi
if $check; then scripts/check.sh --tidy; fi

room=$(mktemp -d)
finish() { windows_end; rm -rf "$room"; }
trap finish EXIT
declare -a lines
passed=0 failed=0 skipped=0 broken=false

# count PRESET: adds up what ctest reports of it.
count() {
  local passes fails skips kinds
  ctest --preset "$1" --show-only=json-v1 >"$room/$1.json"
  read -r passes fails skips kinds < <(scripts/count_tests.py "$room/$1.xml" "$room/$1.json")
  passed=$((passed + passes)) failed=$((failed + fails)) skipped=$((skipped + skips))
  lines+=("$1: $passes passed, $fails failed, $skips skipped ($kinds)")
}

for preset in "${presets[@]}"; do
  echo "== $preset"
  if [ "$preset" = windows ]; then
    obstacle=$(windows_obstacle)
    if [ -n "$obstacle" ]; then
      lines+=("windows: skipped, because $obstacle")
      continue
    fi
    if ! windows_begin "$room"; then
      lines+=("windows: failed, because its libraries or Wine cannot be had; the reason is above") broken=true
      continue
    fi
  fi
  cmake --preset "$preset" >"$room/configure" 2>&1 || { cat "$room/configure" >&2; exit 1; }
  cmake --build --preset "$preset"
  # Of a long output the report keeps the end, where a program counts its cases.
  ctest --preset "$preset" --output-junit "$room/$preset.xml" --test-output-truncation head \
    --test-output-size-passed 65536 || broken=true
  count "$preset"
done

echo
printf '%s\n' "${lines[@]}"
echo "$passed passed, $failed failed, $skipped skipped"
if $broken || [ "$failed" -ne 0 ]; then exit 1; fi
