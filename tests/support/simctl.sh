# shellcheck shell=bash
# Sourced by the scripts that run a host against cpibcr-sim ($simulator): a scratch folder
# $work removed on exit with the simulator stopped, the simulator on the pseudo-terminal
# $work/tty with its control FIFO $work/ctl, and checks counted in $failures.
work=$(mktemp -d)
sim_pid=""
cleanup() {
  if [ -n "$sim_pid" ]; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

failures=0
check() { # WHAT EXPECTED ACTUAL
  if [ "$2" != "$3" ]; then
    printf 'FAIL %s\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
  else
    printf 'ok   %s\n' "$1"
  fi
}

# The simulator's replies to the control FIFO come on its stdout, read through a FIFO on
# descriptor 3.
start_simulator() { # SIMULATOR ARGS...
  rm -f "$work/ctl" "$work/sim.out" "$work/tty"
  mkfifo "$work/ctl" "$work/sim.out"
  "$simulator" "$@" --link "$work/tty" --control "$work/ctl" </dev/null >"$work/sim.out" 2>"$work/sim.err" &
  sim_pid=$!
  exec 3<"$work/sim.out"
  local line
  while IFS= read -r line <&3; do
    [[ $line == control:* ]] && break
  done
}

stop_simulator() {
  echo quit >"$work/ctl"
  wait "$sim_pid" || true
  sim_pid=""
  exec 3<&-
}

# A Log4Qt configuration for the host: LEVEL and above into $work/host.log.
log4qt_properties() { # LEVEL
  cat >"$work/log4qt.properties" <<EOF
log4j.rootLogger=$1, F
log4j.appender.F=org.apache.log4j.FileAppender
log4j.appender.F.file=$work/host.log
log4j.appender.F.layout=org.apache.log4j.PatternLayout
log4j.appender.F.layout.conversionPattern=%p %c - %m%n
EOF
}

finish_checks() {
  if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
  fi
  echo "all checks passed"
}
