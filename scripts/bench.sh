#!/usr/bin/env bash
# Builds, then prints the program's speed and memory figures under Xvfb and Wine.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/bench.py"
