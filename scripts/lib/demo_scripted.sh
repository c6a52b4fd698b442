# shellcheck shell=bash
# The demo of the scripted driver, for scripts/demo.sh; sourced, not run. Uses `dir`, sets `host_pid` and `unexpected`.
# shellcheck disable=SC2154

# demo_scripted SOCKET HOST...: plays the scenario and checks the summary.
demo_scripted() {
  local socket=$1 status=0
  shift
  timeout --kill-after=10 --signal=INT 60 "$@" run --config examples/scripted.toml --socket "$socket" \
    >"$dir/summary" &
  host_pid=$!
  wait "$host_pid" || status=$?
  host_pid=""
  cat "$dir/summary"
  if [ "$status" -ne 0 ]; then unexpected+=("the host exited with $status"); fi

  demo_expect_field connections.opened 2 "the connection was not opened again"
  if [ "0$(demo_field notifications.delivered)" -lt 2000 ]; then
    unexpected+=("the burst of 2000 notifications is missing")
  fi
  demo_expect_field notifications.lost 0 "replies were lost"
  demo_expect_field unjudged none "notifications passed without being judged"
  demo_expect_field protocol_violations 0 "the driver counted protocol violations"
  if ! demo_sum_adds_up; then unexpected+=("the totals do not add up: $(demo_field notifications.sum)"); fi
}

# demo_field NAME: the value of a field of the summary; NAME is SECTION.FIELD for an indented one.
demo_field() {
  tr -d '\r' <"$dir/summary" | awk -v name="$1" '
    /^[^ ]/ { section = $1 }
    (/^ / ? section "." $1 : $1) == name { $1 = ""; print substr($0, 2) }'
}

# demo_expect_field NAME VALUE MEANING
demo_expect_field() {
  local value
  value=$(demo_field "$1")
  if [ "$value" != "$2" ]; then unexpected+=("$3 ($1 is ${value:-missing}, expected $2)"); fi
}

# The total of the notifications is the sum of its parts, as in "5 = 3 + 2 + 0 + 0".
demo_sum_adds_up() {
  demo_field notifications.sum |
    awk '{ sum = 0; for (i = 3; i <= NF; i += 2) sum += $i; exit !(NF >= 9 && $2 == "=" && $1 == sum) }'
}
