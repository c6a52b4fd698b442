#!/usr/bin/env bash
# Builds the fuzzers and runs them one after the other.
#   scripts/fuzz.sh                        every target, one minute of CPU time each
#   scripts/fuzz.sh --minutes N            N minutes of CPU time each
#   scripts/fuzz.sh TARGET...              these targets: the folders of fuzz/
#   scripts/fuzz.sh --keep                 afterwards, merge the new inputs into the corpora of the repository
#   scripts/fuzz.sh --list                 the names of the targets
# New inputs are kept outside the tree, for the next run, in ~/.cache/fenlux/fuzz (FENLUX_CACHE changes it).
# Ends with a table. The exit status is 1 if an input made a fuzzer fail; the lines after the table name its file.
set -euo pipefail
{ # Bash reads this block as a whole, so changing the file does not affect a run.
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
minutes=1 keep=false targets=()
mapfile -t known < <(for source in fuzz/*/fuzz_*.cpp; do basename "$(dirname "$source")"; done)
while [ $# -gt 0 ]; do
  case "$1" in
    --minutes)
      if ! [[ ${2:-} =~ ^[1-9][0-9]{0,4}$ ]]; then
        echo "${0##*/}: --minutes needs a number from 1 to 99999" >&2
        exit 2
      fi
      minutes=$2
      shift
      ;;
    --keep) keep=true ;;
    --list)
      printf '%s\n' "${known[@]}"
      exit
      ;;
    *)
      if [[ " ${known[*]} " != *" $1 "* ]]; then refuse "$1"; fi
      targets+=("$1")
      ;;
  esac
  shift
done
if [ ${#targets[@]} -eq 0 ]; then targets=("${known[@]}"); fi

scripts/setup.sh
build_preset asan-ubsan "${targets[@]/#/fuzz_}"

build=$PWD/build/asan-ubsan
work=$(fenlux_cache)/fuzz
ticks=$(getconf CLK_TCK)
lines=() findings=() broken=false

# cpu_seconds PID: fails once the process has ended.
cpu_seconds() {
  local fields
  fields=$(cat "/proc/$1/stat" 2>/dev/null) || return 1
  read -ra fields <<<"${fields##*) }"
  echo $(((fields[11] + fields[12]) / ticks))
}

# fuzz TARGET: runs it until it has used its CPU time or an input made it fail.
fuzz() {
  local target=$1 log=$work/$1.log pid used=0 now status=0 asked=false before after options
  mkdir -p "$work/corpus/$target" "$work/findings"
  before=$(find "$work/findings" -name "$target-*" | sort)
  # -timeout limits real time, so it is long: on a busy machine, a fast input must not exceed it.
  options=(-max_len=4096 -timeout=300 -print_final_stats=1 "-seed_inputs=@$build/fuzz/$target-seeds.txt"
    "-artifact_prefix=$work/findings/$target-")
  if [ -f "fuzz/$target/$target.dict" ]; then options+=("-dict=fuzz/$target/$target.dict"); fi
  "$build/fuzz_$target" "${options[@]}" "$work/corpus/$target" >"$log" 2>&1 &
  pid=$!
  while now=$(cpu_seconds "$pid"); do
    used=$now
    # USR1 makes the fuzzer end after the current input and print its counts.
    if [ "$used" -ge $((minutes * 60)) ] && ! $asked; then
      kill -USR1 "$pid" || true
      asked=true
    fi
    sleep 0.2
  done
  wait "$pid" || status=$?
  if [ "$status" -ne 0 ]; then broken=true; fi
  after=$(find "$work/findings" -name "$target-*" | sort)
  mapfile -t new < <(comm -13 <(echo "$before") <(echo "$after") | sed '/^$/d')
  findings+=("${new[@]}")
  if [ "$status" -ne 0 ] && [ ${#new[@]} -eq 0 ]; then findings+=("$target ended with status $status; see $log"); fi
  lines+=("$(row "$target" "$log" "$used" "$((status == 0 ? 0 : ${#new[@]} > 0 ? ${#new[@]} : 1))")")
}

# row TARGET LOG SECONDS FINDINGS: a line of the table, from the fuzzer's own counts.
row() {
  local runs cov ft corpus
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$2")
  cov=$(grep -o 'cov: [0-9]*' "$2" | tail -1)
  ft=$(grep -o 'ft: [0-9]*' "$2" | tail -1)
  corpus=$(grep -o 'corp: [0-9]*' "$2" | tail -1)
  printf '%-18s %10s %8s %7s %8s %7s %8s' "$1" "$3" "${runs:--}" "${cov#cov: }" "${ft#ft: }" "${corpus#corp: }" "$4"
}

# keep_inputs TARGET: adds inputs that reach more than the seeds to the repository's corpus, and drops redundant ones.
# Only whether a branch is reached counts, not how often: that keeps the corpora small.
keep_inputs() {
  local target=$1 seeds merged
  seeds=$(mktemp -d) merged=$(mktemp -d)
  mkdir -p "fuzz/$target/corpus"
  tr ',' '\n' <"$build/fuzz/$target-seeds.txt" | { grep -v "/fuzz/$target/corpus/" || true; } | sed '/^$/d' |
    while read -r file; do cp "$file" "$seeds/"; done
  # Starts with the seeds, so that only inputs that reach more are added.
  "$build/fuzz_$target" -merge=1 -max_len=4096 -use_counters=0 "$merged" "$seeds" >"$work/$target-merge.log" 2>&1
  (cd "$merged" && ls) >"$merged.seeds"
  "$build/fuzz_$target" -merge=1 -max_len=4096 -use_counters=0 "$merged" "fuzz/$target/corpus" "$work/corpus/$target" \
    >>"$work/$target-merge.log" 2>&1
  rm -f "fuzz/$target/corpus/"*
  (cd "$merged" && ls) | { grep -vxFf "$merged.seeds" || true; } |
    while read -r name; do cp "$merged/$name" "fuzz/$target/corpus/"; done
  rmdir --ignore-fail-on-non-empty "fuzz/$target/corpus"
  rm -rf "$seeds" "$merged" "$merged.seeds"
}

for target in "${targets[@]}"; do
  echo "== $target"
  fuzz "$target"
done
if $keep && ! $broken; then
  for target in "${targets[@]}"; do keep_inputs "$target"; done
fi

echo
printf '%-18s %10s %8s %7s %8s %7s %8s\n' target "CPU s" runs cov ft corpus findings
printf '%s\n' "${lines[@]}"
if [ ${#findings[@]} -gt 0 ]; then printf '%s\n' "${findings[@]}"; fi
if $broken; then exit 1; fi
exit
}
