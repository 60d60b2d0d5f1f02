#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (unit tests under Wine,
# end-to-end tests of the real program under Wine and Xvfb, native tests and
# the page kit's browser tests) in one ctest run. Extra arguments go to ctest.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec bash "$here/scripts/in-wine-display.sh" \
  ctest --test-dir "$here/build" --output-on-failure --timeout 300 -j "${GRA_TEST_JOBS:-2}" "$@"
