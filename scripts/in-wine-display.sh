#!/usr/bin/env bash
# Runs one command under a fresh Xvfb display with the project's Wine prefix:
# Wine's services are started detached first and stopped afterwards. The
# command's exit status is kept. With GRA_SCREEN_LANE=1 (the test runs) a
# second display and prefix are set up beside it for the tests that need the
# screen to themselves (see start_screen_lane in wine-env.sh).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [ "${GRA_IN_DISPLAY:-}" != 1 ]; then
  exec env GRA_IN_DISPLAY=1 xvfb-run -a -s "-screen 0 1280x1024x24" bash "${BASH_SOURCE[0]}" "$@"
fi
source "$here/scripts/wine-env.sh"
lane=no
if [ "${GRA_SCREEN_LANE:-}" = 1 ]; then
  start_screen_lane
  lane=yes
fi
start_wine_services
if [ $lane = yes ]; then
  wait_for_screen_lane
fi
status=0
"$@" || status=$?
stop_wine_services
if [ $lane = yes ]; then
  stop_screen_lane
fi
exit $status
