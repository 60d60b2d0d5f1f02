#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (unit tests under Wine,
# end-to-end tests of the real program under Wine and Xvfb, native tests and
# the page kit's browser tests) in one ctest run. Extra arguments go to ctest.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec xvfb-run -a -s "-screen 0 1280x1024x24" bash "$here/scripts/run-tests-in-display.sh" "$@"
