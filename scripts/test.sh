#!/usr/bin/env bash
# Builds and tests fenlux.
#   scripts/test.sh              the quick preset (dev)
#   scripts/test.sh --all        formatting and lint, all presets below, half a minute of scripts/soak.sh, a quick
#                                scripts/bench.sh, and the plain scripts/test.sh on the other Debian release
#   scripts/test.sh PRESET...    these presets: dev, release, asan-ubsan, tsan, windows
# FENLUX_CMAKE_OPTIONS: more options for CMake, separated by spaces, for example -DCMAKE_UNITY_BUILD=ON. CMake remembers
# them; remove build/PRESET to undo them.
# Ends with a line of counts for each preset, the tests that failed, and a line of totals.
set -euo pipefail
{ # Bash reads this block as a whole, so changing the file does not affect a running test.
cd "$(dirname "$0")/.."
source scripts/lib/common.sh
source scripts/lib/debian.sh
source scripts/lib/windows.sh

answer_help "$@"
all=false
known=(dev release asan-ubsan tsan windows)
presets=("$@")
if [ "${1:-}" = --all ]; then
  if [ $# -gt 1 ]; then refuse "$2"; fi
  all=true presets=("${known[@]}")
fi
if [ ${#presets[@]} -eq 0 ]; then presets=(dev); fi
for preset in "${presets[@]}"; do
  if [[ " ${known[*]} " != *" $preset "* ]]; then refuse "$preset"; fi
done

scripts/setup.sh
if [[ " ${presets[*]} " == *" windows "* ]]; then scripts/setup.sh --windows || true; fi  # reported below if missing
if $all; then
  scripts/setup.sh --debian || true
  scripts/setup.sh --tools || true
fi

dir=$(mktemp -d)
# shellcheck disable=SC2317  # called by the trap
finish() {
  windows_end
  rm -rf "$dir"
}
trap finish EXIT
lines=()
passed=0 failed=0 skipped=0 broken=false

# add NAME PASSED FAILED SKIPPED LABELS: adds a run to the totals.
add() {
  passed=$((passed + $2)) failed=$((failed + $3)) skipped=$((skipped + $4))
  lines+=("$1: $2 passed, $3 failed, $4 skipped ($5)")
}

# test_preset PRESET
test_preset() {
  local preset=$1 counts passes fails skips labels failure
  build_preset "$preset"
  # Long output is cut at its beginning: a test program prints its counts at the end.
  ctest --preset "$preset" --output-junit "$dir/$preset.xml" --test-output-truncation head \
    --test-output-size-passed 65536 || broken=true
  ctest --preset "$preset" --show-only=json-v1 >"$dir/$preset.json"
  counts=$(scripts/count_tests.py "$dir/$preset.xml" "$dir/$preset.json")
  read -r passes fails skips labels <<<"$counts"
  add "$preset" "$passes" "$fails" "$skips" "$labels"
  while read -r failure; do lines+=("  failed: $failure"); done < <(tail -n +2 <<<"$counts")
}

# Runs the plain test command on the other Debian release. It compiles in batches there, because the preset dev of this
# release compiles file by file.
test_other_debian() {
  local release obstacle log=$dir/other-debian.log counts passes fails skips labels
  local in_batches=FENLUX_CMAKE_OPTIONS=-DCMAKE_UNITY_BUILD=ON
  release=$(other_debian_release)
  obstacle=$(debian_obstacle)
  if [ -n "$obstacle" ]; then
    lines+=("Debian $release: skipped, because $obstacle")
    return
  fi
  scripts/test_in_debian.sh "$release" env "$in_batches" scripts/test.sh 2>&1 | tee "$log" || broken=true
  counts=$(sed -n 's/^dev: \([0-9]\+\) passed, \([0-9]\+\) failed, \([0-9]\+\) skipped (\(.*\))$/\1 \2 \3 \4/p' "$log")
  if [ -z "$counts" ]; then
    lines+=("Debian $release: failed before any test ran; the reason is above") broken=true
    return
  fi
  read -r passes fails skips labels <<<"$counts"
  add "Debian $release, dev" "$passes" "$fails" "$skips" "$labels"
}

if $all && ! scripts/check.sh --tidy; then lines+=("formatting and lint: failed; the findings are above") broken=true; fi
for preset in "${presets[@]}"; do
  echo "== $preset"
  if [ "$preset" = windows ]; then
    obstacle=$(windows_obstacle)
    if [ -n "$obstacle" ]; then
      lines+=("windows: skipped, because $obstacle")
      continue
    fi
    if ! windows_begin "$dir"; then
      lines+=("windows: failed, because its libraries or Wine are not available; the reason is above") broken=true
      continue
    fi
  fi
  test_preset "$preset"
done
if $all; then
  echo "== soak"
  if scripts/soak.sh --minutes 0.5; then
    lines+=("soak: passed")
  else
    lines+=("soak: failed; its table is above") broken=true
  fi
  echo "== bench"
  if scripts/bench.sh --quick; then
    lines+=("bench: passed")
  else
    lines+=("bench: failed; the reason is above") broken=true
  fi
  echo "== Debian $(other_debian_release)"
  test_other_debian
fi

echo
printf '%s\n' "${lines[@]}"
echo "$passed passed, $failed failed, $skipped skipped"
if $broken || [ "$failed" -ne 0 ]; then exit 1; fi
exit
}
