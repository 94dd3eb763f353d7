#!/usr/bin/env bash
# Installs what is missing, builds warning-free and runs every test: the normal build, the
# same suite under AddressSanitizer and UndefinedBehaviorSanitizer (leaks included), each
# fuzz target for a bounded time, the Debian package installed into a fresh Debian 12 root,
# the whole suite and the package again on 32-bit x86 (scripts/i386.sh), and the terminal build:
# the plug-in for Qt 4.8 and Log4Qt, loaded by a Qt 4 host on i386 (scripts/terminal.sh).
#
# Compilations go through ccache, so a later run, also in a fresh clone on the same machine,
# rebuilds quickly: paths are taken relative to the clone and the working folder is left out
# of the hash (debug information may then name the clone that filled the cache). CPIBCR_FUZZ_SECONDS sets the time per fuzz target (default 30).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh --dev

jobs=$(nproc)
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=true
started=$SECONDS
step() {
  echo "== $* (at $((SECONDS - started)) s)"
}

step "build"
cmake -S . -B build -G Ninja -DCPIBCR_WERROR=ON -DBUILD_TESTING=ON -DCPIBCR_BENCH=ON
cmake --build build -j"$jobs"

step "tests"
ctest --test-dir build --output-on-failure -j"$jobs"

step "sanitizer build"
cmake -S . -B build-asan -G Ninja -DCPIBCR_WERROR=ON -DCPIBCR_SANITIZE=ON -DBUILD_TESTING=ON -DCPIBCR_BENCH=OFF
cmake --build build-asan -j"$jobs"

step "tests under AddressSanitizer and UndefinedBehaviorSanitizer"
ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1" \
UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

if [ -f scripts/fuzz.sh ]; then
  step "fuzzing"
  bash scripts/fuzz.sh "${CPIBCR_FUZZ_SECONDS:-30}"
fi

step "Debian package (amd64)"
rm -f build/cpibcr_*.deb
cmake --build build --target package
bash scripts/packagetest.sh build/cpibcr_*_"$(dpkg --print-architecture)".deb

step "i386"
bash scripts/i386.sh

step "terminal: Qt 4.8 and Log4Qt on i386"
bash scripts/terminal.sh

step "all passed"
