# shellcheck shell=bash
# Sourced after simctl.sh by the scripts that check a host's line recorder. The script sets $props,
# the path of the host's logging file, and defines
#   properties TRACE_FILE   that file: the host's own log in $work/host.log, the shipped snippet
#                           with the recording going to TRACE_FILE
#   session PORT OUT        one host session on PORT, its output in $work/OUT; on $work/tty the
#                           coins it asks for are inserted through the simulator
# and sets $cpibcr (the host tool) and $simulator.

sim() {
  echo "$*" >"$work/ctl"
  local reply
  IFS= read -r reply <&3
  printf '%s\n' "$reply"
}

# The session recorded with a lost answer and a BUSY ahead; its output in $work/site.out.
record_site() {
  properties "$work/line.trace"
  start_simulator
  check "a lost answer ahead" ok "$(sim drop 1)"
  check "a BUSY answer ahead" ok "$(sim busy 1)"
  session "$work/tty" site.out
  stop_simulator
  cat "$work/site.out"
  check "the host's log holds no recording" 0 "$(grep -c 'cpibcr.line\|^[0-9]* [<>~] ' "$work/host.log" || true)"
  check "the recording starts with its header" yes \
    "$([[ $(head -n 1 "$work/line.trace") == "cpibcr-trace 1 recorder=cpibcr-plugin/"* ]] && echo yes || echo no)"
}

# `cpibcr trace` reads the site's recording: one recording, the lost answer, the BUSY, one payout.
check_reading() {
  local summary
  summary=$("$cpibcr" trace --summary "$work/line.trace")
  echo "$summary"
  field() { sed -n "s/^  $1  *//p" <<<"$summary"; }
  check "read by cpibcr trace: one recording" 1 "$(field recordings)"
  check "read by cpibcr trace: the lost answer" 1 "$(field 'lost answers')"
  check "read by cpibcr trace: the BUSY" 1 "$(field BUSY)"
  check "read by cpibcr trace: one payout" 1 "$("$cpibcr" trace "$work/line.trace" | grep -c 'dispenseHopperPattern (85)')"
}

# The host's session against the simulator replaying FILES on $work/lab; every request of the
# recording must be matched.
replayed_session() { # WHAT OUT FILES...
  local what=$1 out=$2 line status=0
  shift 2
  rm -f "$work/replay.fifo" "$work/replay.out"
  mkfifo "$work/replay.fifo"
  "$simulator" --replay "$@" --link "$work/lab" >"$work/replay.fifo" 2>"$work/replay.err" &
  local pid=$!
  exec 6<"$work/replay.fifo"
  while IFS= read -r line <&6; do
    printf '%s\n' "$line" >>"$work/replay.out"
    [[ $line == "replay: "* ]] && break
  done
  session "$work/lab" "$out"
  cat <&6 >>"$work/replay.out"
  exec 6<&-
  wait "$pid" || status=$?
  cat "$work/replay.out" "$work/replay.err"
  check "$what: replay exit status" 0 "$status"
  check "$what: replay matched every request" 1 \
    "$(grep -c '^replay complete: all [0-9]* requests of the recording matched' "$work/replay.out")"
}

# The site's session again with the recording rotated by a small size limit: the files read back
# in order and replayed as one, with the same results.
check_rotation() {
  properties "$work/rot/line.trace"
  sed -i 's/MaxFileSize=10MB/MaxFileSize=4KB/; s/MaxBackupIndex=9/MaxBackupIndex=12/' "$props"
  mkdir -p "$work/rot"
  start_simulator
  session "$work/tty" rotated.out
  stop_simulator
  local files written rotated
  files=$(find "$work/rot" -name 'line.trace*' | wc -l)
  check "rotated: more than one file" yes "$([ "$files" -gt 1 ] && echo yes || echo no)"
  written=$(cat "$work"/rot/line.trace* | grep -c '^[0-9]* > ')
  rotated=$("$cpibcr" trace --summary "$work"/rot/line.trace*)
  check "rotated: read whole, nothing skipped" 0 "$(grep -c '^skipped ' <<<"$rotated" || true)"
  check "rotated: every request read" "$written" "$(sed -n 's/^  exchanges  *\([0-9]*\) .*/\1/p' <<<"$rotated")"
  replayed_session rotated rotated-lab.out "$work"/rot/line.trace*
  check "rotated: the host gives the same results" "$(cat "$work/rotated.out")" "$(cat "$work/rotated-lab.out")"
}

# The session with the recording going to TRACE_FILE, which cannot be written; its output in
# $work/OUT. $work/plain is a plain file: log4cxx and Log4Qt make a missing folder, but not one
# below a file.
unwritable_session() { # TRACE_FILE OUT
  : >"$work/plain"
  properties "$1"
  start_simulator
  session "$work/tty" "$2"
  stop_simulator
}

recorder_warning="WARN cpibcr - Запись линии остановлена: журнал cpibcr.line не принимает записи, работа с устройством продолжается"
