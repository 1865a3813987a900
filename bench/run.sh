#!/usr/bin/env bash
# Runs the package benchmark on a ~256 MB payload (override with
# QLUX_BENCH_MB and QLUX_BENCH_FILES). Prints MB/s and peak memory of
# packing, verifying and loading, with gzip -6 and gunzip as the reference.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh >/dev/null
build/bin/qlux-bench-package --pack build/bin/qlux-pack --stub build/bin/qlux-setup \
  --megabytes "${QLUX_BENCH_MB:-256}" --files "${QLUX_BENCH_FILES:-3000}"
