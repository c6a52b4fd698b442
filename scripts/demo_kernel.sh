# The demo of kernel events, sourced by demo.sh: a host watches a fresh directory, refuses one file name pattern to one
# program, and follows a change of its policy while it runs.

demo_kernel() {
  local host=$1 room status=0
  room=$(mktemp -d -t fenlux-demo.XXXXXX)
  demo_room=$room demo_host_pid=""
  trap demo_kernel_end EXIT

  mkdir "$room/first" "$room/second"
  echo "an ordinary letter" >"$room/first/letter.txt"
  echo "a well-kept secret" >"$room/first/diary.secret"
  echo "another one" >"$room/second/plan.secret"
  cp examples/kernel.toml "$room/host.toml"

  export FENLUX_WATCHED="$room/first"
  "$host" run --config "$room/host.toml" >"$room/summary" 2> >(tee "$room/log" >&2) &
  demo_host_pid=$!
  demo_wait_for "OK!][obj path]=$room/first"

  demo_expect succeeds cat "$room/first/letter.txt" || status=1
  demo_expect refused cat "$room/first/diary.secret" || status=1
  demo_expect succeeds head "$room/first/diary.secret" || status=1
  demo_expect succeeds cat "$room/second/plan.secret" || status=1

  echo "-- the policy gets a second directory while the host runs"
  sed -i "s|^directories = .*|directories = [\"\${FENLUX_WATCHED}\", \"$room/second\"]|" "$room/host.toml"
  "$host" ctl --config "$room/host.toml" reload
  demo_wait_for "OK!][obj path]=$room/second"
  demo_expect refused cat "$room/second/plan.secret" || status=1

  kill -INT "$demo_host_pid"
  wait "$demo_host_pid" || status=$?
  demo_host_pid=""
  cat "$room/summary"
  return "$status"
}

demo_kernel_end() {
  if [ -n "$demo_host_pid" ]; then kill -INT "$demo_host_pid" 2>/dev/null && wait "$demo_host_pid" || true; fi
  rm -rf "$demo_room"
}

# Until the host's log has the line; the host says why where it could not come so far.
demo_wait_for() {
  local text=$1
  for _ in $(seq 200); do
    grep -qF "$text" "$demo_room/log" && return
    kill -0 "$demo_host_pid" 2>/dev/null || break
    sleep 0.1
  done
  echo "The host did not log \"$text\"." >&2
  return 1
}

# demo_expect succeeds|refused PROGRAM FILE
demo_expect() {
  local expected=$1 outcome output
  shift
  if output=$("$@" 2>&1); then outcome=succeeds; else outcome=refused; fi
  echo "-- $* -> $output"
  if [ "$outcome" = refused ] && [[ "$output" != *"Operation not permitted"* ]]; then outcome="failed otherwise"; fi
  if [ "$outcome" != "$expected" ]; then
    echo "   expected that it is: $expected" >&2
    return 1
  fi
}
