#!/usr/bin/env bash
# Try the program in minutes, under Wine: installs what is missing, builds
# what it needs, then starts the Chromium-backed runtime's bridge, the
# stand-in game and gra-overlay.exe, and prints the program's log and what it
# sends the game until Ctrl-C (see scripts/try.py and "Trying it on Linux" in
# docs/game-protocol.md):
#   bash scripts/try.sh [--no-game] [--screenshot FILE] [program options]
# On the user's X display when DISPLAY is set; otherwise under Xvfb, with a
# screenshot in build/try/screen.png (or FILE).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
shot=no
for argument in "$@"; do
  case "$argument" in
    --screenshot) shot=yes ;;
    -h|--help) exec /usr/bin/python3 "$here/scripts/try.py" --help ;;
  esac
done
bash "$here/scripts/install-deps.sh" >&2
echo "try: building what is missing (build/try-build.log)" >&2
mkdir -p "$here/build"
# The program, its kit's gra-send (Windows and Linux), the Chromium runtime
# and the stand-in game: not the tests.
bash "$here/scripts/build.sh" gra-overlay gra-send chromium_runtime standin_game native:gra-send \
  >"$here/build/try-build.log" 2>&1 || {
  tail -n 40 "$here/build/try-build.log" >&2
  echo "try: the build failed (build/try-build.log)" >&2
  exit 1
}
if [ -z "${DISPLAY:-}" ]; then
  [ "$shot" = yes ] || set -- --screenshot "$here/build/try/screen.png" "$@"
  echo "try: no X display (DISPLAY is not set): running under Xvfb" >&2
  exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/try.py" "$@"
fi
source "$here/scripts/wine-env.sh"
start_wine_services
status=0
/usr/bin/python3 "$here/scripts/try.py" "$@" || status=$?
stop_wine_services
exit $status
