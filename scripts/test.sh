#!/usr/bin/env bash
# Builds and tests fenlux.
#   scripts/test.sh                 the quick preset (dev)
#   scripts/test.sh --all           the form of the sources, release, both sanitizer presets
#   scripts/test.sh PRESET [...]    those presets: dev, release, asan-ubsan, tsan, windows
# It ends with a line of counts for each preset and one for all of them.
set -euo pipefail
cd "$(dirname "$0")/.."

presets=(dev)
check=false
case "${1:-}" in
  "") ;;
  --all) presets=(release asan-ubsan tsan); check=true ;;
  -*) sed -n '2,6s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
  *) presets=("$@") ;;
esac

scripts/setup.sh
$check && scripts/check.sh --tidy

results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
declare -a lines
passed=0 failed=0 skipped=0 broken=false

# Adds up one run's counts from the report that ctest wrote.
count() {
  local preset=$1 report=$2 tests fails skips
  tests=$(sed -n '1,12s/.*[[:space:]]tests="\([0-9]*\)".*/\1/p' "$report" | head -n 1)
  fails=$(sed -n '1,12s/.*[[:space:]]failures="\([0-9]*\)".*/\1/p' "$report" | head -n 1)
  skips=$(sed -n '1,12s/.*[[:space:]]skipped="\([0-9]*\)".*/\1/p' "$report" | head -n 1)
  passed=$((passed + tests - fails - skips)) failed=$((failed + fails)) skipped=$((skipped + skips))
  lines+=("$preset: $((tests - fails - skips)) passed, $fails failed, $skips skipped")
}

for preset in "${presets[@]}"; do
  echo "== $preset"
  cmake --preset "$preset" >"$results/configure" 2>&1 || { cat "$results/configure" >&2; exit 1; }
  cmake --build --preset "$preset"
  ctest --preset "$preset" --output-junit "$results/$preset.xml" || broken=true
  count "$preset" "$results/$preset.xml"
done

echo
printf '%s\n' "${lines[@]}"
echo "$passed passed, $failed failed, $skipped skipped"
! $broken && [ "$failed" -eq 0 ]
