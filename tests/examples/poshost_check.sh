#!/usr/bin/env bash
# Runs a built examples/poshost against cpibcr-sim and checks what happens: two
# coins dropped through the simulator's control FIFO pay a price of 13.00, the
# change comes out of the simulated hoppers, and the simulator's own counters agree.
# The host loads the plug-in from where its package configuration says it is.
#   poshost_check.sh POSHOST CPIBCR_SIM
set -euo pipefail
poshost=$1
simulator=$2

# shellcheck source=../support/simctl.sh
. "$(dirname "$0")/../support/simctl.sh"
start_simulator

# Coins go in once the host says it accepts them.
coins_dropped=no
out=$work/poshost.out
: >"$out"
coproc HOST { "$poshost" --port "$work/tty" --price 13 --seconds 60 2>"$work/poshost.err"; }
host_pid=$HOST_PID
while IFS= read -r line <&"${HOST[0]}"; do
  printf '%s\n' "$line" >>"$out"
  if [[ $line == "due 13.00: insert coins"* ]]; then
    echo "coin 4" >"$work/ctl"
    echo "coin 3" >"$work/ctl"
    coins_dropped=yes
  fi
done
status=0
wait "$host_pid" || status=$?

echo "--- poshost output"
cat "$out"
echo "--- poshost stderr"
cat "$work/poshost.err"
echo "---"

check "exit status" 0 "$status"
check "stderr" "" "$(cat "$work/poshost.err")"
expected="port $work/tty
connected to Монетоприемник (coins)
hopper1: 10.00 x 200 of 800
hopper2: 5.00 x 250 of 800
hopper3: 2.00 x 300 of 1000
hopper4: 1.00 x 400 of 1000
cashbox: 0.00
due 13.00: insert coins (1.00, 2.00, 5.00, 10.00)
accepted 15.00 (5.00 x 1, 10.00 x 1)
change 2.00 paid 2.00 (1.00 x 2)
counter accepted 15.00 (5.00 x 1, 10.00 x 1)
counter dispensed 2.00 (1.00 x 2)"
check "output without the received lines" "$expected" "$(grep -v '^received ' "$out")"
# One poll may see both coins or each its own: the running total ends at 15.00 either way.
check "last received line" "total 15.00" "$(grep '^received ' "$out" | tail -n 1 | sed 's/.*, //')"
received_sum=0
while read -r _ amount _; do
  received_sum=$((received_sum + ${amount/./}))
done < <(grep '^received ' "$out")
check "sum of the received amounts" 1500 "$received_sum"

# The simulator answered the two coins on its stdout.
check "coins dropped" yes "$coins_dropped"
if [ "$coins_dropped" = yes ]; then
  for what in "coin 4" "coin 3"; do
    IFS= read -r line <&3
    check "simulator's answer to $what" ok "$line"
  done
fi

# The simulator's own books: one coin at each position, two coins out of hopper 4 (1.00).
{
  echo "counter 70 4"
  echo "counter 70 3"
  echo "counter 80 4"
  echo "counter 99 1"
} >"$work/ctl"
answers=()
for _ in 1 2 3 4; do
  IFS= read -r line <&3
  answers+=("$line")
done
check "accepted at position 4" 1 "${answers[0]}"
check "accepted at position 3" 1 "${answers[1]}"
check "paid out by hopper 4" 2 "${answers[2]}"
check "unknown counter group" "error: unknown counter group 99 (70, 80, 87)" "${answers[3]}"
stop_simulator
finish_checks
