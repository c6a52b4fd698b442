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

# count PRESET: adds up the counts of the report that ctest wrote.
count() {
  local tests fails skips
  read -r tests fails skips < <(python3 -c '
import sys, xml.etree.ElementTree as tree
suite = tree.parse(sys.argv[1]).getroot()
print(suite.get("tests"), suite.get("failures"), int(suite.get("skipped")) + int(suite.get("disabled")))' "$room/$1.xml")
  passed=$((passed + tests - fails - skips)) failed=$((failed + fails)) skipped=$((skipped + skips))
  lines+=("$1: $((tests - fails - skips)) passed, $fails failed, $skips skipped")
}

for preset in "${presets[@]}"; do
  echo "== $preset"
  if [ "$preset" = windows ]; then
    obstacle=$(windows_obstacle)
    if [ -n "$obstacle" ]; then
      lines+=("windows: skipped, because $obstacle")
      continue
    fi
    windows_begin "$room"
  fi
  cmake --preset "$preset" >"$room/configure" 2>&1 || { cat "$room/configure" >&2; exit 1; }
  cmake --build --preset "$preset"
  ctest --preset "$preset" --output-junit "$room/$preset.xml" || broken=true
  count "$preset"
done

echo
printf '%s\n' "${lines[@]}"
echo "$passed passed, $failed failed, $skipped skipped"
if $broken || [ "$failed" -ne 0 ]; then exit 1; fi
