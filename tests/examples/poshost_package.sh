#!/usr/bin/env bash
# Makes the Debian packages cpibcr and cpibcr-dev from a built tree with CPack and
# runs poshost_debroot.sh with them.
#   poshost_package.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$(realpath "$1")
source_dir=$(realpath "$2")
debs=$(mktemp -d)
trap 'rm -rf "$debs"' EXIT
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$debs" -D "CPACK_COMPONENTS_ALL=runtime;dev" >"$debs/cpack.log"
bash "$(dirname "$0")/poshost_debroot.sh" "$debs" "$source_dir"
