#!/usr/bin/env bash
# Arguments that make no sense: cpibcr-panel exits with 2 and one line on standard error,
# before any window or port is opened.
#   panel_arguments.sh CPIBCR_PANEL
set -uo pipefail
panel=$1
err_file=$(mktemp)
trap 'rm -f "$err_file"' EXIT
failures=0

refused() { # EXPECTED_MESSAGE ARGS...
  local want=$1 rc err
  shift
  "$panel" "$@" >/dev/null 2>"$err_file"
  rc=$?
  # Qt's own note about the runtime folder is not the panel's.
  err=$(grep -v '^QStandardPaths:' "$err_file")
  if [ "$rc" -eq 2 ] && [ "$err" = "$want" ]; then
    printf 'ok   %s\n' "$*"
  else
    printf 'FAIL %s\n  exit %s, expected 2\n  stderr:   %s\n  expected: %s\n' "$*" "$rc" "$err" "$want"
    failures=$((failures + 1))
  fi
}

refused "cpibcr-panel: Unknown option 'bogus'." --bogus
refused "cpibcr-panel: Missing value after '--port'." --port
refused 'cpibcr-panel: unexpected argument "extra"' extra
refused "cpibcr-panel: --sim-config is for the built-in simulator, not with --port" \
  --port /dev/ttyUSB0 --sim-config sim.json
[ "$failures" -eq 0 ]
