#!/usr/bin/env bash
# examples/qt4host, the Qt 4.8 terminal host on Log4Qt, with the shipped Log4Qt snippet enabling
# the driver's line recorder: a session with a lost answer, a BUSY and a payout is recorded inside
# the host, read by `cpibcr trace`, and replayed by `cpibcr-sim --replay` with the host giving the
# same results. Then the same session with the recorder pointed at a folder that cannot be made
# and at a full disk: the session goes on as before, with one warning. And the session rotated
# by a small size limit, read back and replayed from the set of files.
#   qt4host_recorder.sh QT4HOST PLUGIN CPIBCR_SIM CPIBCR SNIPPET
set -euo pipefail
host=$1
plugin=$2
simulator=$3
cpibcr=$4
snippet=$5

# shellcheck source=../support/simctl.sh
. "$(dirname "$0")/../support/simctl.sh"
# shellcheck source=../support/recorderchecks.sh
. "$(dirname "$0")/../support/recorderchecks.sh"

props=$work/log4qt.properties
properties() { # TRACE_FILE
  log4qt_properties INFO
  sed "s|/var/log/pos/cpibcr-line.trace|$1|" "$snippet" >>"$props"
}

# One session on PORT: connect, the state, change paid, the counters; its output in $work/OUT.
session() { # PORT OUT
  : >"$work/host.log"
  local status=0
  printf '%s\n' state "pay optimal 4.00" counters |
    "$host" --plugin "$plugin" --port "$1" --log-config "$props" >"$work/$2" \
      2>"$work/host.err" || status=$?
  check "session on $1: exit status" 0 "$status"
}

record_site
check "the session paid its change" 1 "$(grep -c '^paid 4.00 ' "$work/site.out")"
check_reading

properties "$work/lab.trace"
replayed_session lab lab.out "$work/line.trace"
check "the host gives the same results in the lab" "$(cat "$work/site.out")" "$(cat "$work/lab.out")"

check_rotation

unwritable_session "$work/plain/line.trace" nofolder.out
check "no folder to write in: the session as before" "$(cat "$work/site.out")" "$(cat "$work/nofolder.out")"
check "no folder to write in: one warning" "$recorder_warning" "$(grep 'Запись линии' "$work/host.log")"
unwritable_session /dev/full full.out
check "full disk: the session as before" "$(cat "$work/site.out")" "$(cat "$work/full.out")"
check "full disk: one warning" "$recorder_warning" "$(grep 'Запись линии' "$work/host.log")"
finish_checks
