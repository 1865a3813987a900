#!/usr/bin/env bash
# Builds both targets: native Linux in build/ and Windows x86-64 in build-win/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=${QLUX_BUILD_JOBS:-$(nproc)}
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j "$jobs"
# The Windows wizard window needs wxWidgets and the image libraries built
# for mingw-w64: the first run builds them into a cache outside the tree.
win_deps=$(bash scripts/build-win-deps.sh)
cmake -S . -B build-win -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DQLUX_WIN_DEPS="$win_deps" >/dev/null
ninja -C build-win -j "$jobs"
