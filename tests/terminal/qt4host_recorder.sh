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

sim() {
  echo "$*" >"$work/ctl"
  local reply
  IFS= read -r reply <&3
  printf '%s\n' "$reply"
}

# The host's Log4Qt file: its own log in host.log, the snippet with its trace file.
properties() { # TRACE_FILE
  {
    printf '%s\n' "log4j.rootLogger=INFO, F" "log4j.appender.F=org.apache.log4j.FileAppender" \
      "log4j.appender.F.file=$work/host.log" "log4j.appender.F.layout=org.apache.log4j.PatternLayout" \
      "log4j.appender.F.layout.conversionPattern=%p %c - %m%n"
    sed "s|/var/log/pos/cpibcr-line.trace|$1|" "$snippet"
  } >"$work/log4qt.properties"
}

# One session on PORT: connect, the state, change paid, the counters; its output in $work/OUT.
session() { # PORT OUT
  : >"$work/host.log"
  local status=0
  printf '%s\n' state "pay optimal 4.00" counters |
    "$host" --plugin "$plugin" --port "$1" --log-config "$work/log4qt.properties" >"$work/$2" \
      2>"$work/host.err" || status=$?
  check "session on $1: exit status" 0 "$status"
}

# --- recorded at the terminal
properties "$work/line.trace"
start_simulator
check "a lost answer ahead" ok "$(sim drop 1)"
check "a BUSY answer ahead" ok "$(sim busy 1)"
session "$work/tty" site.out
stop_simulator
cat "$work/site.out"
check "the session paid its change" 1 "$(grep -c '^paid 4.00 ' "$work/site.out")"
check "the host's log holds no recording" 0 "$(grep -c 'cpibcr.line\|^[0-9]* [<>~] ' "$work/host.log" || true)"
check "the recording starts with its header" yes \
  "$([[ $(head -n 1 "$work/line.trace") == "cpibcr-trace 1 recorder=cpibcr-plugin/"* ]] && echo yes || echo no)"

summary=$("$cpibcr" trace --summary "$work/line.trace")
echo "$summary"
field() { sed -n "s/^  $1  *//p" <<<"$summary"; }
check "read by cpibcr trace: one recording" 1 "$(field recordings)"
check "read by cpibcr trace: the lost answer" 1 "$(field 'lost answers')"
check "read by cpibcr trace: the BUSY" 1 "$(field BUSY)"
check "read by cpibcr trace: one payout" 1 "$("$cpibcr" trace "$work/line.trace" | grep -c 'dispenseHopperPattern (85)')"

# --- replayed in the lab: the same answers, so the same session
properties "$work/lab.trace"
mkfifo "$work/replay.fifo"
"$simulator" --replay "$work/line.trace" --link "$work/lab" >"$work/replay.fifo" 2>"$work/replay.err" &
replay_pid=$!
exec 6<"$work/replay.fifo"
while IFS= read -r line <&6; do
  printf '%s\n' "$line" >>"$work/replay.out"
  [[ $line == "replay: "* ]] && break
done
session "$work/lab" lab.out
cat <&6 >>"$work/replay.out"
exec 6<&-
replay_status=0
wait "$replay_pid" || replay_status=$?
cat "$work/replay.out" "$work/replay.err"
check "replay exit status" 0 "$replay_status"
check "replay matched every request" 1 "$(grep -c '^replay complete: all [0-9]* requests of the recording matched' "$work/replay.out")"
check "the host gives the same results in the lab" "$(cat "$work/site.out")" "$(cat "$work/lab.out")"

# --- rotated by a small size limit: the files read back in order and replayed as one
properties "$work/rot/line.trace"
sed -i 's/MaxFileSize=10MB/MaxFileSize=4KB/; s/MaxBackupIndex=9/MaxBackupIndex=12/' "$work/log4qt.properties"
mkdir -p "$work/rot"
start_simulator
session "$work/tty" rotated.out
stop_simulator
files=$(find "$work/rot" -name 'line.trace*' | wc -l)
check "rotated: more than one file" yes "$([ "$files" -gt 1 ] && echo yes || echo no)"
written=$(cat "$work"/rot/line.trace* | grep -c '^[0-9]* > ')
rotated=$("$cpibcr" trace --summary "$work"/rot/line.trace*)
check "rotated: read whole, nothing skipped" 0 "$(grep -c '^skipped ' <<<"$rotated" || true)"
check "rotated: every request read" "$written" "$(sed -n 's/^  exchanges  *\([0-9]*\) .*/\1/p' <<<"$rotated")"
rm -f "$work/replay.fifo" "$work/replay.out"
mkfifo "$work/replay.fifo"
"$simulator" --replay "$work"/rot/line.trace* --link "$work/lab" >"$work/replay.fifo" 2>"$work/replay.err" &
replay_pid=$!
exec 6<"$work/replay.fifo"
while IFS= read -r line <&6; do
  [[ $line == "replay: "* ]] && break
done
session "$work/lab" rotated-lab.out
cat <&6 >"$work/replay.out"
exec 6<&-
replay_status=0
wait "$replay_pid" || replay_status=$?
check "rotated: replayed from the set" 0 "$replay_status"
check "rotated: the host gives the same results" "$(cat "$work/rotated.out")" "$(cat "$work/rotated-lab.out")"

# --- a recorder that cannot write
warning="WARN cpibcr - Запись линии остановлена: журнал cpibcr.line не принимает записи, работа с устройством продолжается"
: >"$work/plain"
properties "$work/plain/line.trace"
start_simulator
session "$work/tty" nofolder.out
stop_simulator
check "no folder to write in: the session as before" "$(cat "$work/site.out")" "$(cat "$work/nofolder.out")"
check "no folder to write in: one warning" "$warning" "$(grep 'Запись линии' "$work/host.log")"

properties /dev/full
start_simulator
session "$work/tty" full.out
stop_simulator
check "full disk: the session as before" "$(cat "$work/site.out")" "$(cat "$work/full.out")"
check "full disk: one warning" "$warning" "$(grep 'Запись линии' "$work/host.log")"
finish_checks
