#!/usr/bin/env bash
# Installs what is missing, builds the plug-in, the host tool and the simulator (no tests,
# no benchmarks), and runs a short session of the host tool against the built-in simulator.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh >/dev/null
cmake -S . -B build -G Ninja -DBUILD_TESTING=OFF -DCPIBCR_BENCH=OFF >/dev/null
cmake --build build -j"$(nproc)" --target cpibcr_plugin cpibcr cpibcr-sim >/dev/null
exec ./build/tools/cpibcr demo "$@"
