#!/usr/bin/env bash
# Builds everything: the native (Linux) pieces into build/native, then the
# Windows program, its tests and their stand-ins into build/.
#   bash scripts/build.sh             everything
#   bash scripts/build.sh --preview   only what the preview and the demo run: the
#                                     program with its page folder, the Chromium-backed
#                                     runtime, the stand-in game and testctl
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$here"

targets=()
case "${1:-}" in
  "") ;;
  --preview) targets=(--target gra-overlay chromium_runtime standin_game testctl) ;;
  *) echo "usage: build.sh [--preview]" >&2; exit 2 ;;
esac

if [ ${#targets[@]} -eq 0 ]; then
  cmake -S . -B build/native -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build build/native
fi
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_TOOLCHAIN_FILE="$here/cmake/mingw-w64-posix.cmake" \
      -DGRA_NATIVE_BUILD="$here/build/native" >/dev/null
cmake --build build "${targets[@]}"
