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
