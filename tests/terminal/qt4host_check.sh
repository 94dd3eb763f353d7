#!/usr/bin/env bash
# The terminal build end to end: examples/qt4host, a Qt 4.8 host logging through Log4Qt, loads
# the Qt 4 plug-in with Qt 4's QPluginLoader and works one driver object against cpibcr-sim on
# a pseudo-terminal through a POS day with faults on the line: acceptance sessions, change,
# a refused payout, a counter restart, foreign and corrupt frames, BUSY answers, a load, a
# pick-up, counters and maintenance. Then the log file the host's Log4Qt configuration wrote,
# a plug-in copy whose build key was changed, and the same driver with the host's C strings in
# Latin-1.
#   qt4host_check.sh QT4HOST PLUGIN CPIBCR_SIM
set -euo pipefail
host=$1
plugin=$2
simulator=$3

# shellcheck source=../support/simctl.sh
. "$(dirname "$0")/../support/simctl.sh"

# A fast recycler: coins land in 5 ms, a coin leaves a hopper in 2 ms.
cat >"$work/sim.json" <<'EOF'
{ "timings": { "coinAcceptMs": 5, "coinAcceptFastMs": 3, "payoutMsPerCoin": 2, "resetInitMs": 20,
               "answerDelayMs": 0, "interByteTimeoutMs": 10 } }
EOF
log4qt_properties DEBUG

# One control command to the simulator, its one-line reply.
sim() {
  echo "$*" >"$work/ctl"
  local reply
  IFS= read -r reply <&3
  printf '%s\n' "$reply"
}

# Waits until the simulator has counted N coins at position POS over its life (a coin is in
# flight for a few milliseconds after it is inserted).
landed() { # POS N
  local tries=0
  until [ "$(sim counter 70 "$1")" = "$2" ]; do
    tries=$((tries + 1))
    [ "$tries" -lt 500 ] || { echo "coin at position $1 never landed"; return 1; }
  done
}

# A hopper's count as the simulator's books have it.
sim_hopper() { # HOPPER
  echo status >"$work/ctl"
  local line count=""
  while IFS= read -r line <&3; do
    [[ $line == "hopper $1: "* ]] && count=$(sed 's/.* count \([0-9]*\) .*/\1/' <<<"$line")
    [[ $line == "accepted value: "* ]] && break
  done
  printf '%s\n' "$count"
}

# The host reads commands on its standard input and answers each with lines; "mark" lines
# written by this script separate the answers.
start_host() { # EXTRA ARGS...
  coproc HOST { "$host" --plugin "$plugin" --port "$work/tty" --log-config "$work/log4qt.properties" "$@" \
    2>"$work/host.err"; }
  host_pid=$HOST_PID
  # Its own descriptors, so that closing 5 is the host's end of input.
  exec 4<&"${HOST[0]}" 5>&"${HOST[1]}"
  eval "exec ${HOST[0]}<&- ${HOST[1]}>&-"
}

# Sends a command and collects what the host says until its answer is complete: the host
# prints one line a result, so the next command's refusal marks the end.
ask() {
  printf '%s\nmark\n' "$*" >&5
  local line out=""
  while IFS= read -r line <&4; do
    [ "$line" = "refused: mark" ] && break
    out+="$line"$'\n'
  done
  printf '%s' "$out"
}

# --- a POS day with one driver object
start_simulator --config "$work/sim.json"
start_host
IFS= read -r loaded <&4
IFS= read -r connected <&4
check "plug-in loaded by Qt 4's QPluginLoader" "loaded hw::CpiBcrCashControl" "$loaded"
check "connected" "connected to Монетоприемник (coins)" "$connected"
check "only Qt 4 and Log4Qt in the host's process" "libraries libQtCore.so.4.8.6 liblog4qt.so.1.0.0" "$(ask libraries)"

check "units" "hopper1: 10.00 x 200 of 800, state 0
hopper2: 5.00 x 250 of 800, state 0
hopper3: 2.00 x 300 of 1000, state 0
hopper4: 1.00 x 400 of 1000, state 0
cashbox: 0.00" "$(ask units)"
check "acceptable denominations" "denoms 1.00, 2.00, 5.00, 10.00" "$(ask denoms)"

# Session 1: a 10 and a 5 while the event loop runs, a 2 after the last poll.
check "acceptance starts" "accepting" "$(ask accept)"
check "coins at positions 4 and 3" "ok ok" "$(sim coin 4) $(sim coin 3)"
session=$(ask wait 600)
check "received while polling" "total 15.00" "$(grep '^received ' <<<"$session" | tail -n 1 | sed 's/.*, //')"
check "coin at position 2" ok "$(sim coin 2)"
landed 2 1
check "stop reports the last coin" "received 2.00 (2.00 x 1), total 17.00
stopped, total 17.00 (2.00 x 1, 5.00 x 1, 10.00 x 1)" "$(ask stop)"

check "change check" "check optimal 4.00: yes" "$(ask check optimal 4.00)"
check "change paid from the fullest hopper" "paid 4.00 (1.00 x 4)" "$(ask pay optimal 4.00)"
check "change paid in the fewest coins" "paid 3.00 (1.00 x 1, 2.00 x 1)" "$(ask pay minimum 3.00)"
check "an amount no hoppers can make is refused" "error: Монетоприемник: Невозможно выдать сумму" \
  "$(ask pay optimal 99999.00)"

# The acceptor restarts its counters between sessions: no phantom coins.
check "acceptor restarts its counters" ok "$(sim restart counters)"
check "session 2 starts" "accepting" "$(ask accept 10.00)"
check "a 1 and an excluded 10" "ok ok" "$(sim coin 1) $(sim coin 4)"
landed 1 1
session=$(ask wait 400; ask stop)
check "session 2 reports the 1 only" "stopped, total 1.00 (1.00 x 1)" "$(tail -n 1 <<<"$session")"

# Noise on the bus, BUSY answers: the same driver object goes on.
check "foreign and corrupt frames" "ok ok" "$(sim foreign 3) $(sim badframe 2)"
check "state through the noise" "state ok" "$(ask state)"
check "BUSY answers" ok "$(sim busy 3)"
check "state through BUSY" "state ok" "$(ask state)"

# Coins moved by hand.
check "manual load" "loaded 5.00 into hopper4" "$(ask load hopper4 0x20000 5.00)"
check "manual pick-up" "picked up 3.00 (1.00 x 3) from hopper4" "$(ask pickup hopper4 0x20 3.00)"
check "a part coin is refused before anything moves" "error: Монетоприемник: Некорректная сумма" \
  "$(ask load hopper4 0x20000 0.50)"
check "hopper 4 after all this" "hopper4: 1.00 x 398 of 1000, state 0" "$(ask units | grep '^hopper4')"
check "the simulator's hopper 4 agrees" "$(ask units | sed -n 's/^hopper4: 1.00 x \([0-9]*\) .*/\1/p')" "$(sim_hopper 4)"

check "counters" "counter accepted 18.00 (1.00 x 1, 2.00 x 1, 5.00 x 1, 10.00 x 1)
counter dispensed 7.00 (1.00 x 5, 2.00 x 1)" "$(ask counters)"
maintenance=$(ask maintenance)
check "a maintenance record a hopper" 4 "$(grep -c '^maintenance hopper[1-4]: ' <<<"$maintenance")"
check "hopper 3's record" "maintenance hopper3: ok, cycles 1 of" "$(grep '^maintenance hopper3: ' <<<"$maintenance" | sed 's/ [0-9]*$//')"
check "maintenance reset" "maintenance done for hopper3" "$(ask done hopper3)"
check "an unknown unit" "error: Монетоприемник: Модуль не найден" "$(ask pickup hopper9 0x20 1.00)"

exec 5>&-
status=0
wait "$host_pid" || status=$?
check "host exit status" 0 "$status"
check "host stderr" "" "$(grep -v '^QTextCodec\|^Log4Qt' "$work/host.err" || true)"

# The host's Log4Qt file: the host's lines and the driver's, UTF-8, byte for byte.
log=$work/host.log
check "log file is UTF-8" yes "$(iconv -f UTF-8 -t UTF-8 "$log" >/dev/null 2>&1 && echo yes || echo no)"
for line in "INFO qt4host - Касса: загрузка драйвера" \
  "INFO cpibcr - Инициализация устройства" \
  "INFO cpibcr - Старт приема монет" \
  "INFO cpibcr - Остановка приема монет" \
  "INFO cpibcr - Выдано 4.00. номиналы: 1.00 x 4" \
  "ERROR cpibcr - Невозможно выдать сумму" \
  "INFO cpibcr - Счетчик внесений: 18.00. номиналы: 1.00 x 1, 2.00 x 1, 5.00 x 1, 10.00 x 1" \
  "INFO qt4host - Касса: работа завершена"; do
  check "log line: $line" yes "$(grep -qxF "$line" "$log" && echo yes || echo no)"
done
# "INFO cpibcr - Выдано 4.00" as UTF-8 bytes.
check "log line bytes" 494e464f20637069626372202d20d092d18bd0b4d0b0d0bdd0be20342e3030 \
  "$(grep -m1 -F 'Выдано 4.00' "$log" | head -c 31 | od -An -tx1 | tr -d ' \n')"
stop_simulator

# --- Qt 4's loader refuses a copy whose build key says another compiler
cp "$plugin" "$work/libcpibcr-other.so"
perl -0777 -pi -e 's/buildkey=i386 linux g\+\+-4 full-config/buildkey=i386 linux g++-5 full-config/' "$work/libcpibcr-other.so"
start_simulator --config "$work/sim.json"
refused=$("$host" --plugin "$work/libcpibcr-other.so" --port "$work/tty" --log-config "$work/log4qt.properties" </dev/null 2>/dev/null || true)
check "another build key is refused" "load failed: The plugin '$work/libcpibcr-other.so' uses incompatible Qt library. Expected build key \"i386 linux g++-4 full-config\", got \"i386 linux g++-5 full-config\"" "$refused"

# --- the host's C strings in Latin-1: the driver's Cyrillic is unchanged
: >"$log"
start_host --cstring-codec ISO-8859-1
IFS= read -r _ <&4
IFS= read -r connected <&4
check "connected, Latin-1 C strings" "connected to Монетоприемник (coins)" "$connected"
check "exception text, Latin-1 C strings" "error: Монетоприемник: Невозможно выдать сумму" "$(ask pay optimal 99999.00)"
exec 5>&-
wait "$host_pid" || true
check "log line, Latin-1 C strings" yes "$(grep -qxF 'ERROR cpibcr - Невозможно выдать сумму' "$log" && echo yes || echo no)"
check "no Latin-1 mojibake in the log" 0 "$(grep -c 'Ð' "$log" || true)"
stop_simulator
finish_checks
