#!/usr/bin/env bash
# The long fault soak: the driver object against the simulated recycler on an
# in-process line in virtual time, through STEPS seeded steps of host calls with
# line faults and device faults, every invariant checked after every step
# (docs/soak.md).
#
#   scripts/soak.sh [STEPS] [SEED]        e.g. scripts/soak.sh 50000 20240611
#
# STEPS defaults to 50000; SEED defaults to a new one, printed first. A violation
# prints the seed and the step, the step's plan, the frames the device saw and the
# log, and the script exits 1; the same STEPS and SEED replay the same run.
# CPIBCR_SOAK_VERBOSE=1 prints every step.
# Builds in build-soak (CPIBCR_SOAK_BUILD to change it), with CPIBCR_SOAK_SANITIZE=1
# under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

steps=${1:-50000}
seed=${2:-$(date +%s%N | cut -c1-12)}
case "$steps" in
  '' | *[!0-9]*) echo "usage: scripts/soak.sh [STEPS] [SEED]" >&2; exit 2 ;;
esac
case "$seed" in
  '' | *[!0-9]*) echo "usage: scripts/soak.sh [STEPS] [SEED]" >&2; exit 2 ;;
esac

build=${CPIBCR_SOAK_BUILD:-build-soak}
sanitize=OFF
if [ "${CPIBCR_SOAK_SANITIZE:-0}" = 1 ]; then
  sanitize=ON
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
fi

bash scripts/setup.sh --dev >/dev/null
cmake -S . -B "$build" -G Ninja -DCPIBCR_WERROR=ON -DCPIBCR_BENCH=OFF -DCPIBCR_SANITIZE="$sanitize" >/dev/null
cmake --build "$build" -j"$(nproc)" --target cpibcr-soak

start=$(date +%s)
status=0
"$build/tests/soak/cpibcr-soak" "$steps" "$seed" || status=$?
echo "wall time: $(($(date +%s) - start)) s, machine: $(nproc) cores, $(uname -m), $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')" >&2
exit "$status"
