#!/usr/bin/env bash
# Installs everything the build, the demo and the tests need, from Debian's
# archive and npm. Safe to run again: it only installs what is missing.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

packages=(mingw-w64 wine wine64 xvfb xauth cmake ninja-build googletest g++
          python3 python3-pytest x11-apps imagemagick clang chromium xdotool
          mono-mcs)
missing=()
# node and npm may come from elsewhere on the machine image; Debian's are the fallback
command -v node >/dev/null 2>&1 || packages+=(nodejs)
command -v npm >/dev/null 2>&1 || packages+=(npm)
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# npm packages of the browser tests (no browser download: Debian's chromium is used)
if [ -f "$here/tests/web/package.json" ] && [ ! -d "$here/tests/web/node_modules" ]; then
  (cd "$here/tests/web" && npm ci --no-audit --no-fund --loglevel=error)
fi
