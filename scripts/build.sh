#!/usr/bin/env bash
# Builds both targets: native Linux in build/ and Windows x86-64 in build-win/.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=${QLUX_BUILD_JOBS:-$(nproc)}
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j "$jobs"
cmake -S . -B build-win -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake >/dev/null
ninja -C build-win -j "$jobs"
