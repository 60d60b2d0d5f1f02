# Sourced by the scripts that run Windows programs: one Wine prefix inside
# build/, quiet, and no offer to install Mono or Gecko into a new prefix.
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
export WINEPREFIX="$here/build/wineprefix"
export WINEDEBUG=-all
export WINEDLLOVERRIDES='mscoree,mshtml='
export WINEARCH=win64

# The first Wine process of a prefix starts Wine's background services, which
# inherit its output pipes; started here detached, they never hold a pipe that
# ctest or a test waits on.
start_wine_services() {
  mkdir -p "$WINEPREFIX"
  wineserver -p 2>/dev/null || true   # a server that already runs is fine
  wine cmd /c exit </dev/null >/dev/null 2>&1 || true
  import_prefix_settings
}

# The prefix's own settings (scripts/wine/prefix-settings.reg), imported again
# whenever the file is newer than the prefix's note of the last import.
import_prefix_settings() {
  local settings="$here/scripts/wine/prefix-settings.reg"
  local note="$WINEPREFIX/.gra-prefix-settings"
  [ "$note" -nt "$settings" ] && return 0
  wine regedit /S "$(winepath -w "$settings" 2>/dev/null)" </dev/null >/dev/null 2>&1 && touch "$note"
  return 0
}

stop_wine_services() {
  wineserver -k 2>/dev/null || true
  # Wine's desktop process keeps the display of the run that started it.
  wineserver -w 2>/dev/null || true
}

# The screen lane: tests that need which window is in front, or the screen,
# to themselves run one at a time on a display and a Wine prefix of their own
# (Wine keeps one desktop, and one foreground window, per prefix), beside the
# other tests instead of after them. The tests find them in
# GRA_SCREEN_DISPLAY and GRA_SCREEN_WINEPREFIX.
start_screen_lane() {
  local number_file
  number_file="$(mktemp)"
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$number_file" >/dev/null 2>&1 &
  screen_lane_xvfb=$!
  local waited=0
  while [ ! -s "$number_file" ] && [ $waited -lt 300 ]; do sleep 0.1; waited=$((waited + 1)); done
  if [ ! -s "$number_file" ]; then
    echo "the screen lane's Xvfb did not start" >&2
    rm -f "$number_file"
    return 1
  fi
  export GRA_SCREEN_DISPLAY=":$(head -n 1 "$number_file")"
  export GRA_SCREEN_WINEPREFIX="$here/build/wineprefix-screen"
  rm -f "$number_file"
  # Its prefix starts while the caller starts the main one (a new prefix takes
  # a while): wait_for_screen_lane before the tests.
  (export DISPLAY="$GRA_SCREEN_DISPLAY" WINEPREFIX="$GRA_SCREEN_WINEPREFIX"; start_wine_services) &
  screen_lane_starting=$!
}

wait_for_screen_lane() {
  wait "$screen_lane_starting"
}

stop_screen_lane() {
  (export WINEPREFIX="$GRA_SCREEN_WINEPREFIX"; stop_wine_services)
  kill "$screen_lane_xvfb" 2>/dev/null || true
  wait "$screen_lane_xvfb" 2>/dev/null || true
}
