#!/usr/bin/env bash
# Finds flaky tests: builds what is missing, then runs the tests that match
# (all by default) N times as the README's test command runs them (the same
# Wine prefixes and Xvfb displays for every run), and prints
# every test that failed at least once, with its count and the first line of
# its first failure.
#   bash scripts/flaky.sh [--runs N] [--load] [REGEX]
# --load keeps one core busy with another process all the while, as a busy
# CI machine would. The last line is "flaky: N tests failed at least once in
# R runs"; the exit status is 0 only when no test failed.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
for argument in "$@"; do
  case "$argument" in
    -h|--help) exec /usr/bin/python3 "$here/scripts/flaky.py" --help ;;
  esac
done
bash "$here/scripts/install-deps.sh" >&2
bash "$here/scripts/build.sh" >&2
GRA_SCREEN_LANE=1 exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/flaky.py" "$@"
