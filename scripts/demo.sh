#!/usr/bin/env bash
# Installs what is missing, builds, and shows the program at work: the
# stand-in game with the real default page over it, through the
# Chromium-backed WebView2 runtime, told step by step with screenshots in
# build/demo. With an X display (DISPLAY set) it runs there, at a pace a
# person can follow (--fast: no pauses); without one, under Xvfb.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh" --preview
if [ -z "${DISPLAY:-}" ]; then
  exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/demo.py" "$@"
fi
source "$here/scripts/wine-env.sh"
start_wine_services
status=0
GRA_DEMO_VISIBLE=1 /usr/bin/python3 "$here/scripts/demo.py" "$@" || status=$?
stop_wine_services
exit $status
