#!/usr/bin/env bash
# Installs what is missing, builds, and runs a short session of the host tool
# against the built-in simulator.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh >/dev/null
cmake -S . -B build -G Ninja >/dev/null
cmake --build build -j"$(nproc)" >/dev/null
exec ./build/tools/cpibcr demo "$@"
