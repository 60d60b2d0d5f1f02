#!/usr/bin/env bash
# Builds everything: the native (Linux) pieces into build/native, then the
# Windows program, its tests and their stand-ins into build/.
#   bash scripts/build.sh [TARGET | native:TARGET]...
# With targets, only those are built (native: names one of the Linux build).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$here"

native=()
windows=()
for target in "$@"; do
  case "$target" in
    native:*) native+=(--target "${target#native:}") ;;
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
