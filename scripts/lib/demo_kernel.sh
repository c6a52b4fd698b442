# shellcheck shell=bash
# The demo of kernel events, for scripts/demo.sh; sourced, not run. Uses `dir`, sets `host_pid` and `unexpected`.
# A host watches a fresh directory, refuses one file name pattern to one program, and gets a new policy while it runs.
# shellcheck disable=SC2154

demo_kernel() {
  local host=$1 socket=$dir/host.sock status=0
  mkdir "$dir/first" "$dir/second"
  echo "an ordinary letter" >"$dir/first/letter.txt"
  echo "a well-kept secret" >"$dir/first/diary.secret"
  echo "another one" >"$dir/second/plan.secret"
  cp examples/kernel.toml "$dir/host.toml"

  FENLUX_WATCHED=$dir/first timeout --kill-after=10 --signal=INT 60 \
    "$host" run --config "$dir/host.toml" --socket "$socket" >"$dir/summary" 2> >(tee "$dir/log" >&2) &
  host_pid=$!
  demo_wait_for "OK!][obj path]=$dir/first" || return 0

  demo_expect succeeds cat "$dir/first/letter.txt"
  demo_expect refused cat "$dir/first/diary.secret"
  demo_expect succeeds head "$dir/first/diary.secret"
  demo_expect succeeds cat "$dir/second/plan.secret"

  echo "-- adding a second directory to the policy of the running host"
  sed -i "s|^directories = .*|directories = [\"$dir/first\", \"$dir/second\"]|" "$dir/host.toml"
  "$host" ctl --socket "$socket" reload || unexpected+=("the host did not reload its policy")
  demo_wait_for "OK!][obj path]=$dir/second" || return 0
  demo_expect refused cat "$dir/second/plan.secret"

  echo "-- whether the host works as it should"
  "$host" ctl --socket "$socket" health || unexpected+=("the host is not healthy")

  demo_views "$host" "$socket" >"$dir/views"
  kill -INT "$host_pid"
  wait "$host_pid" || status=$?
  host_pid=""
  cat "$dir/summary" "$dir/views"
  if [ "$status" -ne 0 ]; then unexpected+=("the host exited with $status"); fi
}

# Shows what the host says about its decisions.
demo_views() {
  local host=$1 socket=$2 rule="cat must not read secrets"
  local explain=("$host" ctl --socket "$socket" explain --path)
  demo_wait_for "by rule \"$rule\" (host.toml:" || return 0
  demo_show "the refusals in the log" "refused cat[" grep -F "by rule \"$rule\"" "$dir/log"
  demo_show "the rules and their hits" "$rule" "$host" ctl --socket "$socket" rules
  demo_show "why one is refused" "refused: " "${explain[@]}" "$dir/first/diary.secret" --process /usr/bin/cat
  demo_show "why another is not" "allowed: " "${explain[@]}" "$dir/first/diary.secret" --process /usr/bin/head
  demo_show "the host's state" "$dir/second: watched" "$host" ctl --socket "$socket" status
  demo_watch "$host" "$socket"
}

# Shows three events as a watcher sees them.
demo_watch() {
  local host=$1 socket=$2 watcher
  "$host" ctl --socket "$socket" watch --path "$dir/**" >"$dir/watched" 2>&1 &
  watcher=$!
  for _ in $(seq 100); do
    if [ "$(wc -l <"$dir/watched")" -ge 3 ]; then break; fi
    cat "$dir/first/letter.txt" "$dir/first/diary.secret" "$dir/second/plan.secret" >/dev/null 2>&1 || true
    sleep 0.1
  done
  kill "$watcher"
  wait "$watcher" || true
  demo_show "three events as they happen" "by rule" head -n 3 "$dir/watched"
}

# demo_show TITLE TEXT COMMAND...: shows the output of the command, which must contain the text.
demo_show() {
  local title=$1 text=$2 output
  shift 2
  output=$("$@" 2>&1) || unexpected+=("$title: the command failed")
  printf -- '-- %s\n%s\n' "$title" "$output"
  if [[ "$output" != *"$text"* ]]; then unexpected+=("$title: no \"$text\""); fi
}

# Waits for a line in the host's log.
demo_wait_for() {
  local text=$1
  for _ in $(seq 200); do
    if grep -qsF "$text" "$dir/log"; then return; fi
    kill -0 "$host_pid" 2>/dev/null || break
    sleep 0.1
  done
  unexpected+=("the host did not log \"$text\"")
  return 1
}

# demo_expect succeeds|refused PROGRAM FILE
demo_expect() {
  local expected=$1 outcome output
  shift
  if output=$("$@" 2>&1); then
    outcome=succeeds
  elif [[ "$output" == *"Operation not permitted"* ]]; then
    outcome=refused
  else
    outcome="failed for another reason"
  fi
  echo "-- $* -> $output"
  if [ "$outcome" != "$expected" ]; then unexpected+=("$*: $outcome instead of $expected"); fi
}
