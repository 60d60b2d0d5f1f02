#!/usr/bin/env bash
# Installs what is missing, builds, and shows the program at work under Xvfb
# and Wine: a stand-in game window with the overlay over it, driven by game
# commands and page messages; prints the log and saves a screenshot.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/demo.py"
