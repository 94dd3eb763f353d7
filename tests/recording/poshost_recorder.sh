#!/usr/bin/env bash
# examples/poshost, the Qt 5 POS host on log4cxx, with the shipped properties snippet enabling
# the driver's line recorder: a sale with a lost answer, a BUSY and a payout is recorded inside
# the host, read by `cpibcr trace`, and replayed by `cpibcr-sim --replay` with the host giving
# the same results. Then the same sale with the recorder pointed at a folder that cannot be made
# and at a full disk: the sale goes on as before. And the sale rotated by a small size limit,
# read back and replayed from the set of files.
#   poshost_recorder.sh POSHOST PLUGIN CPIBCR CPIBCR_SIM SNIPPET
set -euo pipefail
poshost=$1
plugin=$2
cpibcr=$3
simulator=$4
snippet=$5

# shellcheck source=../support/simctl.sh
. "$(dirname "$0")/../support/simctl.sh"

sim() {
  echo "$*" >"$work/ctl"
  local reply
  IFS= read -r reply <&3
  printf '%s\n' "$reply"
}

# The host's log4cxx file: its own log in host.log, the snippet with its trace file at TRACE.
properties() { # TRACE_FILE
  {
    printf '%s\n' "log4j.rootLogger=WARN, file" "log4j.logger.cpibcr=INFO" \
      "log4j.appender.file=org.apache.log4j.FileAppender" "log4j.appender.file.File=$work/host.log" \
      "log4j.appender.file.Append=false" \
      "log4j.appender.file.layout=org.apache.log4j.PatternLayout" \
      "log4j.appender.file.layout.ConversionPattern=%p %c - %m%n"
    sed "s|/var/log/pos/cpibcr-line.trace|$1|" "$snippet"
  } >"$work/log.properties"
}

# A sale of 13.00 on PORT, its output without the port line in $work/OUT. With FEED the coins
# go in through the simulator when the host asks for them.
sale() { # PORT OUT FEED
  : >"$work/$2"
  coproc HOST { "$poshost" --plugin "$plugin" --port "$1" --price 13 --seconds 60 \
    --log-config "$work/log.properties" 2>"$work/poshost.err"; }
  local pid=$HOST_PID line
  while IFS= read -r line <&"${HOST[0]}"; do
    [[ $line == "port "* ]] || printf '%s\n' "$line" >>"$work/$2"
    if [ "$3" = feed ] && [[ $line == "due 13.00: insert coins"* ]]; then
      sim coin 4 >/dev/null
      sim coin 3 >/dev/null
    fi
  done
  local status=0
  wait "$pid" || status=$?
  check "sale on $1: exit status" 0 "$status"
}

# --- recorded at the site
properties "$work/line.trace"
start_simulator
check "a lost answer ahead" ok "$(sim drop 1)"
check "a BUSY answer ahead" ok "$(sim busy 1)"
sale "$work/tty" site.out feed
stop_simulator
check "the sale paid its change" "change 2.00 paid 2.00 (1.00 x 2)" "$(grep '^change ' "$work/site.out")"
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

# --- replayed in the lab: the same answers, so the same sale
properties "$work/lab.trace"
mkfifo "$work/replay.fifo"
"$simulator" --replay "$work/line.trace" --link "$work/lab" >"$work/replay.fifo" 2>"$work/replay.err" &
replay_pid=$!
exec 6<"$work/replay.fifo"
while IFS= read -r line <&6; do
  printf '%s\n' "$line" >>"$work/replay.out"
  [[ $line == "replay: "* ]] && break
done
sale "$work/lab" lab.out no
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
sed -i 's/MaxFileSize=10MB/MaxFileSize=4KB/; s/MaxBackupIndex=9/MaxBackupIndex=12/' "$work/log.properties"
mkdir -p "$work/rot"
start_simulator
sale "$work/tty" rotated.out feed
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
sale "$work/lab" rotated-lab.out no
cat <&6 >"$work/replay.out"
exec 6<&-
replay_status=0
wait "$replay_pid" || replay_status=$?
check "rotated: replayed from the set" 0 "$replay_status"
check "rotated: the host gives the same results" "$(cat "$work/rotated.out")" "$(cat "$work/rotated-lab.out")"

# --- a recorder that cannot write
expected=$(grep -v '^received ' "$work/site.out")
# log4cxx makes a missing folder; one below a plain file it cannot make.
: >"$work/plain"
properties "$work/plain/line.trace"
start_simulator
sale "$work/tty" nofolder.out feed
stop_simulator
check "no folder to write in: the sale as before" "$expected" "$(grep -v '^received ' "$work/nofolder.out")"

properties /dev/full
start_simulator
sale "$work/tty" full.out feed
stop_simulator
check "full disk: the sale as before" "$expected" "$(grep -v '^received ' "$work/full.out")"
check "full disk: one warning" "WARN cpibcr - Запись линии остановлена: журнал cpibcr.line не принимает записи, работа с устройством продолжается" \
  "$(grep 'Запись линии' "$work/host.log")"
finish_checks
