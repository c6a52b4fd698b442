#!/usr/bin/env bash
# Runs the tests of concurrency under the thread sanitizer with random pauses at every lock, wait and host call.
#   scripts/yield.sh                 200 seeds; each runs all these tests
#   scripts/yield.sh --seeds N       N seeds
#   scripts/yield.sh --first N       the first seed is N instead of 1; with --seeds 1, repeats a failure
#   scripts/yield.sh --jobs N        N seeds at the same time (default: number of processors)
# The last line has the counts. The exit status is 1 if a run failed; its output is kept and the file's name printed.
set -euo pipefail
{ # Bash reads this block as a whole, so changing the file does not affect a run.
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
seeds=200 first=1 jobs=$(nproc)
while [ $# -gt 0 ]; do
  case "$1" in
    --seeds | --first | --jobs)
      if ! [[ ${2:-} =~ ^[1-9][0-9]{0,5}$ ]]; then
        echo "${0##*/}: $1 needs a number from 1 to 999999" >&2
        exit 2
      fi
      case "$1" in
        --seeds) seeds=$2 ;;
        --first) first=$2 ;;
        --jobs) jobs=$2 ;;
      esac
      shift
      ;;
    *) refuse "$1" ;;
  esac
  shift
done

# Programs and their concurrent tests. The other tests run on one thread. FaultInjection is left out too: it makes each
# call fail in turn, with at most one worker at a time, which takes long and depends little on the order of threads.
tests=(
  "fenlux_unit_tests AtomicHandle.*:Concurrency.*:ModuleConcurrency.*:*Connect*:FenluxImpl.*:InteractLifecycle.*:*PolicyWorker*:RefreshThread.*:StripedHandle.*:StripedMutex.*-FaultInjection*"
  "fenlux_emulator_tests Delivery.*:Faults.*:PortClient.*:Totals.*"
  "fenlux_emulator_module_tests *"
  "fenlux_refhost_tests ControlChannel.*:LiveValue.*:LogService.*:NetService.*:RecordRegister.*"
)

scripts/setup.sh
build_preset tsan-yield "${tests[@]%% *}"

work=$(fenlux_cache)/yield
mkdir -p "$work"
start=$SECONDS

# run_seed SEED: runs all tests, and leaves the numbers of passed tests and failed runs in $work/SEED.
run_seed() {
  local seed=$1 test program log count cases=0 failed=0
  for test in "${tests[@]}"; do
    program=${test%% *} log=$work/$program-$seed.log
    if FENLUX_YIELD_SEED=$seed "build/tsan-yield/$program" --gtest_filter="${test#* }" --gtest_brief=1 >"$log" 2>&1; then
      count=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\?\.$/\1/p' "$log")
      cases=$((cases + ${count:-0}))
      rm "$log"
    else
      failed=$((failed + 1))
      echo "seed $seed: $program failed; see $log"
    fi
  done
  echo "$cases $failed" >"$work/$seed"
}

for ((seed = first; seed < first + seeds; ++seed)); do
  if [ "$(jobs -rp | wc -l)" -ge "$jobs" ]; then wait -n; fi
  run_seed "$seed" &
done
wait

cases=0 failed=0
for ((seed = first; seed < first + seeds; ++seed)); do
  read -r passes fails <"$work/$seed"
  cases=$((cases + passes)) failed=$((failed + fails))
done
echo "$seeds seeds from $first: $cases tests passed, $failed runs failed, in $((SECONDS - start)) s"
if [ "$failed" -ne 0 ] || [ "$cases" -eq 0 ]; then exit 1; fi
exit
}
