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
# shellcheck source=../support/recorderchecks.sh
. "$(dirname "$0")/../support/recorderchecks.sh"

props=$work/log.properties
properties() { # TRACE_FILE
  {
    printf '%s\n' "log4j.rootLogger=WARN, file" "log4j.logger.cpibcr=INFO" \
      "log4j.appender.file=org.apache.log4j.FileAppender" "log4j.appender.file.File=$work/host.log" \
      "log4j.appender.file.Append=false" \
      "log4j.appender.file.layout=org.apache.log4j.PatternLayout" \
      "log4j.appender.file.layout.ConversionPattern=%p %c - %m%n"
    sed "s|/var/log/pos/cpibcr-line.trace|$1|" "$snippet"
  } >"$props"
}

# A sale of 13.00 on PORT, its output without the port line in $work/OUT.
session() { # PORT OUT
  : >"$work/$2"
  coproc HOST { "$poshost" --plugin "$plugin" --port "$1" --price 13 --seconds 60 \
    --log-config "$props" 2>"$work/poshost.err"; }
  local pid=$HOST_PID line
  while IFS= read -r line <&"${HOST[0]}"; do
    [[ $line == "port "* ]] || printf '%s\n' "$line" >>"$work/$2"
    if [ "$1" = "$work/tty" ] && [[ $line == "due 13.00: insert coins"* ]]; then
      sim coin 4 >/dev/null
      sim coin 3 >/dev/null
    fi
  done
  local status=0
  wait "$pid" || status=$?
  check "sale on $1: exit status" 0 "$status"
}

record_site
check "the sale paid its change" "change 2.00 paid 2.00 (1.00 x 2)" "$(grep '^change ' "$work/site.out")"
check_reading

properties "$work/lab.trace"
replayed_session lab lab.out "$work/line.trace"
check "the host gives the same results in the lab" "$(cat "$work/site.out")" "$(cat "$work/lab.out")"

check_rotation

# The coins received are reported as they come, so their lines may fall elsewhere.
expected=$(grep -v '^received ' "$work/site.out")
unwritable_session "$work/plain/line.trace" nofolder.out
check "no folder to write in: the sale as before" "$expected" "$(grep -v '^received ' "$work/nofolder.out")"
unwritable_session /dev/full full.out
check "full disk: the sale as before" "$expected" "$(grep -v '^received ' "$work/full.out")"
check "full disk: one warning" "$recorder_warning" "$(grep 'Запись линии' "$work/host.log")"
finish_checks
