#!/usr/bin/env bash
# The terminal archive as an integrator meets it: unpacked into an empty folder, with nothing
# of the project's tree beside it. The plug-in carries no run path; INSTALL.md points to the
# host's contract from its first lines; every header under src/ compiles as C++98 against
# the terminal SDK; the example host is built from src/ with the commands INSTALL.md gives and
# the SDK alone, loads the archive's plug-in and pays against cpibcr-sim; the logging example
# of INSTALL.md does what it says.
#   archive_check.sh ARCHIVE SDK_PREFIX CPIBCR_SIM
set -euo pipefail
archive=$1
sdk=$2
simulator=$3

# shellcheck source=../support/simctl.sh
. "$(dirname "$0")/../support/simctl.sh"

mkdir "$work/box"
tar -C "$work/box" -xzf "$archive"
top=$(find "$work/box" -mindepth 1 -maxdepth 1)
check "one folder in the archive" "$(basename "$archive" .tar.gz)" "$(basename "$top")"
cd "$top"

check "no run path in the plug-in" "" "$(readelf -d plugins/libcpibcr.so | grep -E '\((RPATH|RUNPATH)\)' || true)"
check "the contract is in the box" yes "$([ -s HOST.md ] && echo yes || echo no)"
check "INSTALL.md points to it from its first lines" 1 "$(head -n 6 INSTALL.md | grep -c -m1 -F '(HOST.md)' || true)"
for topic in getObject serialObj '"115200"' '"Disable"' 'received(SumDetailed)' 'error(QString)' \
  moneyWereTaken 'log4j.logger.cpibcr'; do
  check "HOST.md tells of $topic" yes "$(grep -qF -- "$topic" HOST.md && echo yes || echo no)"
done

# Every header on its own, as a C++98 translation unit with the warnings of the project.
headers=0
while IFS= read -r header; do
  headers=$((headers + 1))
  if ! printf '#include "%s"\n' "$header" |
    g++ -std=gnu++98 -fsyntax-only -Wall -Wextra -Werror -x c++ -I src -isystem "$sdk/include" \
      -isystem "$sdk/include/QtCore" - 2>"$work/header.err"; then
    cat "$work/header.err"
    check "$header compiles as C++98" yes no
  fi
done < <(cd src && find . -name '*.h' | sed 's|^\./||' | sort)
check "headers under src/" yes "$([ "$headers" -ge 10 ] && echo yes || echo no)"

sources=$(cd src && find . -name '*.cpp' -printf '%f\n' | sort)
# The build commands are the shell block of INSTALL.md's "Building a host" section.
sed -n '/^## Building a host/,/^## /p' INSTALL.md | sed -n '/^```sh$/,/^```$/p' | sed '1d;$d' >"$work/build.sh"
check "INSTALL.md gives build commands" yes "$([ -s "$work/build.sh" ] && echo yes || echo no)"
(SDK=$sdk bash -euo pipefail "$work/build.sh") >"$work/build.out" 2>&1 || {
  cat "$work/build.out"
  check "the example host builds from the archive" yes no
  finish_checks
}
# qmake's compiler lines name each source last; moc's outputs aside, they are src/'s sources.
check "every source of src/ compiled as C++98" "$sources" \
  "$(grep -E '^g\+\+ .*-std=gnu\+\+98 .*\.cpp$' "$work/build.out" | grep -o -E '[^ /]+\.cpp$' | grep -v '^moc_' | sort -u)"
host=$top/src/examples/qt4host/qt4host
check "the host was built" yes "$([ -x "$host" ] && echo yes || echo no)"

# The logging example of INSTALL.md, writing into this test's folder.
sed -n '/^```properties$/,/^```$/p' INSTALL.md | sed '1d;$d' | sed "s|/var/log/pos/pos.log|$work/pos.log|" \
  >"$work/pos.properties"
check "INSTALL.md gives a logging example" yes "$(grep -q '^log4j.logger.cpibcr=' "$work/pos.properties" && echo yes || echo no)"

cat >"$work/sim.json" <<'EOF'
{ "timings": { "coinAcceptMs": 5, "coinAcceptFastMs": 3, "payoutMsPerCoin": 2, "resetInitMs": 20,
               "answerDelayMs": 0, "interByteTimeoutMs": 10 } }
EOF
start_simulator --config "$work/sim.json"
out=$(printf 'pay optimal 13.00\npay optimal 99999.00\ncounters\n' |
  LD_LIBRARY_PATH=$sdk/lib "$host" --plugin "$top/plugins/libcpibcr.so" --port "$work/tty" \
    --log-config "$work/pos.properties" 2>"$work/host.err") || true
stop_simulator
echo "$out"
check "plug-in loaded" "loaded hw::CpiBcrCashControl" "$(sed -n 1p <<<"$out")"
check "connected" "connected to Монетоприемник (coins)" "$(sed -n 2p <<<"$out")"
check "paid" "paid 13.00" "$(sed -n 3p <<<"$out" | cut -d' ' -f1,2)"
check "refused" "error: Монетоприемник: Невозможно выдать сумму" "$(sed -n 4p <<<"$out")"
check "dispensed counter" "counter dispensed 13.00" "$(grep '^counter dispensed' <<<"$out" | cut -d' ' -f1-3)"

# cpibcr at WARN: the host's own info lines and the driver's error, none of the driver's info.
log=$work/pos.log
check "the host's info line" 1 "$(grep -c -m1 -E ' INFO +qt4host - Касса: загрузка драйвера$' "$log" || true)"
check "the driver's error" 1 "$(grep -c -m1 -E ' ERROR +cpibcr - Невозможно выдать сумму$' "$log" || true)"
check "no info, debug or trace of the driver" 0 "$(grep -c -E ' (INFO|DEBUG|TRACE) +cpibcr - ' "$log" || true)"
check "no line under cctalk" 0 "$(grep -c -E ' cctalk - ' "$log" || true)"
finish_checks
