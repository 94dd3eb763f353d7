#!/usr/bin/env bash
# Installs what is missing, builds warning-free and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=$(nproc)
cmake -S . -B build -G Ninja -DCPIBCR_WERROR=ON
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"
