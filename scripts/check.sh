#!/usr/bin/env bash
# The self-check under Wine: installs what is missing, builds the program, the
# check and the Chromium-backed runtime when they are missing or old, and runs
# gra-overlay-check.exe under Xvfb with that runtime (scripts/check.py). Its
# summary line comes last; the report is in build/check/gra-overlay-check-report/.
#   bash scripts/check.sh [check options]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh" >&2
echo "check: building what is missing (build/check-build.log)" >&2
mkdir -p "$here/build"
bash "$here/scripts/build.sh" gra-overlay gra-overlay-check chromium_runtime \
  >"$here/build/check-build.log" 2>&1 || {
  tail -n 40 "$here/build/check-build.log" >&2
  echo "check: the build failed (build/check-build.log)" >&2
  exit 1
}
exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/check.py" "$@"
