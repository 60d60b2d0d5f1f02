#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (unit tests under Wine,
# end-to-end tests of the real program under Wine and Xvfb, native tests and
# the page kit's browser tests) in one ctest run. Extra arguments go to ctest.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
# Three at a time on two cores: most end-to-end tests spend their time waiting
# for the program's timers; the ones that need the screen to themselves take
# turns on a display of their own (the screen lane).
GRA_SCREEN_LANE=1 exec bash "$here/scripts/in-wine-display.sh" \
  ctest --test-dir "$here/build" --output-on-failure --timeout 300 -j "${GRA_TEST_JOBS:-3}" "$@"
