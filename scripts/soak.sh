#!/usr/bin/env bash
# Builds, then soaks the running program under Xvfb and Wine: both channels
# fuzzed (the same run again for the same --seed), answers checked, memory,
# handles and GUI objects compared, and the program killed again and again
# in the middle of saves.
#   bash scripts/soak.sh [--datagrams N] [--seed S] [--minutes M] [--kills N]
# The last line is the verdict; the exit status is 0 only for a clean one.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$here/scripts/install-deps.sh"
bash "$here/scripts/build.sh"
exec bash "$here/scripts/in-wine-display.sh" /usr/bin/python3 "$here/scripts/soak.py" "$@"
