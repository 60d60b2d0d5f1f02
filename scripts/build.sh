#!/usr/bin/env bash
# Builds everything: the native (Linux) pieces into build/native, then the
# Windows program, its tests and their stand-ins into build/.
#   bash scripts/build.sh                        everything
#   bash scripts/build.sh --preview              only what the preview and the demo run: the
#                                                program with its page folder, the Chromium-backed
#                                                runtime, the stand-in game and testctl
#   bash scripts/build.sh [TARGET | native:TARGET]...
#                                                only those targets (native: names one of the
#                                                Linux build)
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$here"

native=()
windows=()
for target in "$@"; do
  case "$target" in
    --preview) windows+=(--target gra-overlay --target chromium_runtime --target standin_game --target testctl) ;;
    native:*) native+=(--target "${target#native:}") ;;
    -*) echo "usage: build.sh [--preview] [TARGET | native:TARGET]..." >&2; exit 2 ;;
    *) windows+=(--target "$target") ;;
  esac
done

cmake -S . -B build/native -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
if [ $# -eq 0 ] || [ ${#native[@]} -gt 0 ]; then
  cmake --build build/native "${native[@]}"
fi
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_TOOLCHAIN_FILE="$here/cmake/mingw-w64-posix.cmake" \
      -DGRA_NATIVE_BUILD="$here/build/native" >/dev/null
if [ $# -eq 0 ] || [ ${#windows[@]} -gt 0 ]; then
  cmake --build build "${windows[@]}"
fi
