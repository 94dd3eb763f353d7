#!/usr/bin/env bash
# Installs the project into an empty prefix, builds examples/poshost there with
# nothing but find_package(cpibcr), and runs it against the installed cpibcr-sim
# (poshost_check.sh).
#   poshost_installed.sh BUILD_DIR
set -euo pipefail
build=$(realpath "$1")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log"
# The example as installed: nothing of the source tree is used.
cmake -S "$prefix/share/doc/cpibcr-dev/examples/poshost" -B "$work/build" -G Ninja \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wshadow -Werror" >"$work/configure.log"
cmake --build "$work/build" >"$work/build.log"
bash "$(dirname "$0")/poshost_check.sh" "$work/build/poshost" "$prefix/bin/cpibcr-sim"
