#!/usr/bin/env bash
# Previews a page folder in the real program over the stand-in game, under
# Wine, with the Chromium-backed WebView2 runtime:
#   bash scripts/preview.sh PAGE_FOLDER [--screenshot FILE] [--command TEXT]...
#                           [--doc FOLDER] [--devtools[=PORT]] [--no-watch]
#                           [--size WxH] [--scale S] [--mode child|owned]
#                           [--port N] [--ready-timeout S]
# Interactive on the user's X display (game commands typed on the terminal,
# the page reloaded when a file in its folder changes); with --screenshot,
# under Xvfb, saving one PNG. The page's console, errors and failed loads are
# printed with file and line in both. Installs what is missing and builds what
# the preview runs first.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
screenshot=no
for argument in "$@"; do
  case "$argument" in
    --screenshot|--screenshot=*) screenshot=yes ;;
    -h|--help) exec /usr/bin/python3 "$here/scripts/preview.py" --help ;;
  esac
done
if [ "$screenshot" = no ] && [ -z "${DISPLAY:-}" ]; then
  echo "preview: no X display (DISPLAY is not set); use --screenshot FILE to run under Xvfb" >&2
  exit 2
fi
bash "$here/scripts/install-deps.sh" >&2
bash "$here/scripts/build.sh" --preview >&2
if [ "$screenshot" = yes ]; then
  exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/preview.py" "$@"
fi
source "$here/scripts/wine-env.sh"
start_wine_services
status=0
/usr/bin/python3 "$here/scripts/preview.py" "$@" || status=$?
stop_wine_services
exit $status
