#!/usr/bin/env bash
# Runs one command under a fresh Xvfb display with the project's Wine prefix:
# Wine's services are started detached first and stopped afterwards. The
# command's exit status is kept.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [ "${GRA_IN_DISPLAY:-}" != 1 ]; then
  exec env GRA_IN_DISPLAY=1 xvfb-run -a -s "-screen 0 1280x1024x24" bash "${BASH_SOURCE[0]}" "$@"
fi
source "$here/scripts/wine-env.sh"
start_wine_services
status=0
"$@" || status=$?
stop_wine_services
exit $status
