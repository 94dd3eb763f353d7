#!/usr/bin/env bash
# Builds the libFuzzer targets (clang-14, AddressSanitizer and UndefinedBehaviorSanitizer) in
# build-fuzz and runs each for SECONDS (default 60) on a scratch copy of its committed seed
# corpus. Fails on any crash, leak, sanitizer report, time-out or out-of-memory.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]      e.g. scripts/fuzz.sh 3600 fuzz_sim
#
# Work files go to fuzz/corpus-work/ (git-ignored): <target>/ the growing corpus,
# logs/<target>.log the fuzzer output, artifacts/<target>/ any crashing input.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
shift || true
all_targets=(fuzz_assembly fuzz_answers fuzz_coinid fuzz_change fuzz_sim)
if [ "$#" -gt 0 ]; then
  targets=("$@")
else
  targets=("${all_targets[@]}")
fi
case "$seconds" in
  '' | *[!0-9]*) echo "usage: scripts/fuzz.sh [SECONDS] [TARGET...]" >&2; exit 2 ;;
esac

build=build-fuzz
bash scripts/setup.sh --dev >/dev/null
CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -G Ninja \
  -DCPIBCR_FUZZ=ON -DCPIBCR_SANITIZE=ON -DCPIBCR_BENCH=OFF -DCPIBCR_WERROR=ON >/dev/null
cmake --build "$build" -j"$(nproc)" --target "${targets[@]}"

work=fuzz/corpus-work
mkdir -p "$work/logs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:symbolize=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
if [ -f fuzz/lsan.supp ]; then
  export LSAN_OPTIONS="suppressions=$PWD/fuzz/lsan.supp:print_suppressions=0"
fi

failed=()
printf '%-14s %10s %8s %7s %7s %8s  %s\n' target execs exec/s cov ft corpus result
for t in "${targets[@]}"; do
  rm -rf "${work:?}/$t" "$work/artifacts/$t"
  mkdir -p "$work/$t" "$work/artifacts/$t"
  cp fuzz/corpus/"$t"/* "$work/$t"/
  log="$work/logs/$t.log"
  rc=0
  "$build/fuzz/$t" "$work/$t" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$work/artifacts/$t/" >"$log" 2>&1 || rc=$?

  result=ok
  if [ "$rc" -ne 0 ]; then
    result="exit $rc"
  fi
  if grep -qE 'ERROR: (AddressSanitizer|LeakSanitizer|libFuzzer)|runtime error:|SUMMARY: ' "$log"; then
    result="$result, report"
  fi
  if [ -n "$(ls -A "$work/artifacts/$t")" ]; then
    result="$result, artifact"
  fi
  [ "$result" = ok ] || failed+=("$t")

  fuzzstat() { sed -n "s/^stat::$1: *//p" "$log" | tail -1; }
  last=$(grep -E '^#[0-9]+' "$log" | tail -1 || true)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  corp=$(sed -n 's/.* corp: \([0-9]*\).*/\1/p' <<<"$last")
  printf '%-14s %10s %8s %7s %7s %8s  %s\n' "$t" "$(fuzzstat number_of_executed_units)" \
    "$(fuzzstat average_exec_per_sec)" "${cov:-?}" "${ft:-?}" "${corp:-?}" "$result"
done

if [ "${#failed[@]}" -gt 0 ]; then
  echo "FAILED: ${failed[*]} (see $work/logs/ and $work/artifacts/)" >&2
  for t in "${failed[@]}"; do
    echo "---- $t" >&2
    grep -m1 -A25 -E 'property violated|runtime error:|ERROR: ' "$work/logs/$t.log" >&2 || tail -25 "$work/logs/$t.log" >&2
  done
  exit 1
fi
echo "all fuzz targets ran ${seconds}s without findings"
