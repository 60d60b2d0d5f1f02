#!/usr/bin/env bash
# Makes the release package dist/gra-overlay-<version>-win64.zip: installs
# what is missing, builds, then lays out the files as a game ships them (see
# scripts/package.py). Extra arguments go to package.py (--out FOLDER).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec python3 "$here/scripts/package.py" --build "$here/build" "$@"
