#!/usr/bin/env bash
# Installs what is missing, builds warning-free and runs every test: the normal
# build, the same suite under AddressSanitizer and UndefinedBehaviorSanitizer
# (leaks included), and each fuzz target for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh --dev

jobs=$(nproc)

echo "== build"
cmake -S . -B build -G Ninja -DCPIBCR_WERROR=ON -DBUILD_TESTING=ON -DCPIBCR_BENCH=ON
cmake --build build -j"$jobs"

echo "== sanitizer build"
cmake -S . -B build-asan -G Ninja -DCPIBCR_WERROR=ON -DCPIBCR_SANITIZE=ON -DBUILD_TESTING=ON -DCPIBCR_BENCH=OFF
cmake --build build-asan -j"$jobs"

echo "== tests under AddressSanitizer and UndefinedBehaviorSanitizer"
ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1" \
UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

if [ -f scripts/fuzz.sh ]; then
  echo "== fuzzing"
  bash scripts/fuzz.sh "${CPIBCR_FUZZ_SECONDS:-60}"
fi

echo "== tests"
ctest --test-dir build --output-on-failure -j"$jobs"
