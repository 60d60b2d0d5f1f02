#!/usr/bin/env bash
# Installs what is missing, builds, and shows the program at work under Xvfb
# and Wine: a stand-in game window with the overlay over it, driven by game
# commands and page messages; prints the log and saves a screenshot.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec xvfb-run -a -s "-screen 0 1280x1024x24" bash -c '
  source "'"$here"'/scripts/wine-env.sh"
  start_wine_services
  /usr/bin/python3 "'"$here"'/scripts/demo.py"
  status=$?
  stop_wine_services
  exit $status'
