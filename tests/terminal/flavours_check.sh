#!/usr/bin/env bash
# The same session through both builds of the driver, logged at trace level: the Qt 4 plug-in
# in examples/qt4host (Log4Qt) and the Qt 5 plug-in in the cpibcr tool (log4cxx), each against
# a fresh cpibcr-sim: connect, then pay 13.00 in optimal mode. The driver's lines after the time
# stamp must be the same, byte for byte: command names, frames, Russian texts.
#
# The driver reads the recycler's clock and sets it when it is off, so the wall clock is frozen
# at one moment for the simulator and both hosts (faketime); the monotonic clock that timers
# and waits use keeps running.
#   flavours_check.sh QT4HOST QT4PLUGIN CPIBCR_TOOL QT5PLUGIN CPIBCR_SIM
set -euo pipefail
qt4host=$1
qt4plugin=$2
tool=$3
qt5plugin=$4
simulator=$5

# shellcheck source=../support/simctl.sh
. "$(dirname "$0")/../support/simctl.sh"

command -v faketime >/dev/null || { echo "faketime is missing (scripts/terminal.sh installs it in the i386 root)"; exit 1; }
frozen() {
  DONT_FAKE_MONOTONIC=1 FAKETIME_DONT_FAKE_MONOTONIC=1 faketime -f '2026-03-02 10:15:00' "$@"
}
# start_simulator runs $simulator.
cat >"$work/frozen-sim" <<EOF
#!/usr/bin/env bash
DONT_FAKE_MONOTONIC=1 FAKETIME_DONT_FAKE_MONOTONIC=1 exec faketime -f '2026-03-02 10:15:00' '$simulator' "\$@"
EOF
chmod +x "$work/frozen-sim"
simulator=$work/frozen-sim

cat >"$work/sim.json" <<'EOF'
{ "timings": { "coinAcceptMs": 5, "coinAcceptFastMs": 3, "payoutMsPerCoin": 2, "resetInitMs": 20,
               "answerDelayMs": 0, "interByteTimeoutMs": 10 } }
EOF

# Both layouts write "<date> <time> LEVEL logger - text".
cat >"$work/log4qt.properties" <<EOF
log4j.rootLogger=TRACE, F
log4j.appender.F=org.apache.log4j.FileAppender
log4j.appender.F.file=$work/qt4.log
log4j.appender.F.layout=org.apache.log4j.PatternLayout
log4j.appender.F.layout.conversionPattern=%d{ISO8601} %p %c - %m%n
EOF
cat >"$work/log4cxx.properties" <<EOF
log4j.rootLogger=TRACE, F
log4j.appender.F=org.apache.log4j.FileAppender
log4j.appender.F.File=$work/qt5.log
log4j.appender.F.Encoding=UTF-8
log4j.appender.F.layout=org.apache.log4j.PatternLayout
log4j.appender.F.layout.ConversionPattern=%d{ISO8601} %p %c - %m%n
EOF

# The driver's lines without the time stamp.
driver_lines() { # LOG
  sed -n 's/^[0-9-]* [0-9:.,]* \([A-Z]* \(cpibcr\|cctalk\) - .*\)$/\1/p' "$1"
}

start_simulator --config "$work/sim.json"
qt4out=$(printf 'pay optimal 13.00\n' |
  frozen "$qt4host" --plugin "$qt4plugin" --port "$work/tty" --log-config "$work/log4qt.properties" 2>"$work/qt4.err")
stop_simulator
check "Qt 4 host paid" "paid 13.00 (1.00 x 4, 2.00 x 2, 5.00 x 1)" "$(tail -n 1 <<<"$qt4out")"

start_simulator --config "$work/sim.json"
qt5out=$(frozen "$tool" --port "$work/tty" --plugin "$qt5plugin" --log-config "$work/log4cxx.properties" \
  pay 13.00 --mode optimal 2>"$work/qt5.err") || { cat "$work/qt5.err"; exit 1; }
stop_simulator
echo "$qt5out"

driver_lines "$work/qt4.log" >"$work/qt4.lines"
driver_lines "$work/qt5.log" >"$work/qt5.lines"
check "a trace line with the frame bytes" 1 "$(grep -c -m1 -F 'TRACE cpibcr - Отправка: 37 00 01 FE CA' "$work/qt4.lines")"
check "the simple poll named" 1 "$(grep -c -m1 -xF 'DEBUG cpibcr - Выполнение команды simplePoll (254)' "$work/qt4.lines")"
check "the recycler's clock as frozen" 1 "$(grep -c -m1 -xF 'INFO cpibcr - Время в устройстве: 02.03.2026 10:15:00' "$work/qt4.lines")"
check "no command without a name" 0 "$(grep -c 'Выполнение команды  (' "$work/qt4.lines" || true)"
check "payout command named" 1 "$(grep -c -m1 -F 'Выполнение команды dispenseHopperPattern (85)' "$work/qt4.lines")"
check "lines of the Qt 5 build" yes "$([ "$(wc -l <"$work/qt5.lines")" -gt 100 ] && echo yes || echo no)"
if diff -u "$work/qt5.lines" "$work/qt4.lines" >"$work/lines.diff"; then
  check "the two builds log the same lines" same same
else
  head -n 40 "$work/lines.diff"
  check "the two builds log the same lines" same different
fi
finish_checks
