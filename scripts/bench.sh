#!/usr/bin/env bash
# Builds, then prints the program's speed and memory figures under Xvfb and Wine.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec xvfb-run -a -s "-screen 0 1280x1024x24" bash -c '
  source "'"$here"'/scripts/wine-env.sh"
  start_wine_services
  /usr/bin/python3 "'"$here"'/scripts/bench.py"
  status=$?
  stop_wine_services
  exit $status'
