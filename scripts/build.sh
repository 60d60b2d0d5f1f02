#!/usr/bin/env bash
# Builds everything: the native (Linux) pieces into build/native, then the
# Windows program, its tests and their stand-ins into build/.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$here"

cmake -S . -B build/native -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/native
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_TOOLCHAIN_FILE="$here/cmake/mingw-w64-posix.cmake" \
      -DGRA_NATIVE_BUILD="$here/build/native" >/dev/null
cmake --build build
