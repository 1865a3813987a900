#!/usr/bin/env bash
# Every test: builds both targets, runs the native tests with ctest, again
# in a third build with the address and undefined-behaviour sanitizers, runs
# each fuzz target briefly, then the Windows build's tests under Wine in a
# fresh prefix. Nothing of the machine is touched: QLUX_ROOT, TMPDIR and
# WINEPREFIX point into one temporary directory that is removed at the end,
# and the tests run from inside it.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)

bash scripts/build.sh

scratch=$(mktemp -d "${TMPDIR:-/tmp}/qlux-test.XXXXXX")
cleanup() {
  if [ -n "${WINEPREFIX:-}" ]; then
    /usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
  fi
  cd /
  rm -rf "$scratch"
}
trap cleanup EXIT

mkdir -p "$scratch/tmp" "$scratch/root"
export TMPDIR="$scratch/tmp"
export QLUX_ROOT="$scratch/root"
jobs=${QLUX_TEST_JOBS:-$(nproc)}
cd "$scratch"

echo "== native tests"
native=0
ctest --test-dir "$top/build" --output-on-failure -j "$jobs" || native=$?

echo "== native tests under AddressSanitizer and UndefinedBehaviorSanitizer"
bash "$top/scripts/sanitize.sh" || native=1

echo "== a product of 6 GiB, packed, installed and removed"
bash "$top/tests/large_package_test.sh" "$top/build/bin/qlux-setup" "$top/build/bin/qlux-pack" full || native=1

echo "== fuzz targets, 30 s each"
# The file targets rewrite their files on every run: memory-backed
# storage makes them many times faster than a disk.
fuzz_tmp="$scratch/fuzz"
[ -d /dev/shm ] && [ -w /dev/shm ] && fuzz_tmp=$(mktemp -d /dev/shm/qlux-fuzz.XXXXXX)
mkdir -p "$fuzz_tmp"
TMPDIR="$fuzz_tmp" bash "$top/scripts/fuzz.sh" 30 || native=1
case "$fuzz_tmp" in /dev/shm/qlux-fuzz.*) rm -rf -- "$fuzz_tmp" ;; esac

echo "== Windows tests under Wine"
export WINEPREFIX="$scratch/wine"
export WINEDEBUG=-all
/usr/lib/wine/wine64 wineboot -i >/dev/null 2>&1
# The server and desktop that wineboot started had no display: windows made
# before they have gone would fail.
/usr/lib/wine/wineserver64 -w
windows=0
ctest --test-dir "$top/build-win" --output-on-failure -j "$jobs" || windows=$?
echo "== Windows program end to end under Wine"
bash "$top/tests/windows_test.sh" "$top/build-win/bin/qlux-setup.exe" "$top/build/bin/qlux-pack" || windows=1
bash "$top/tests/windows_lifecycle_test.sh" "$top/build-win/bin/qlux-setup.exe" "$top/build/bin/qlux-pack" || windows=1
bash "$top/tests/windows_demo_test.sh" "$top/build-win/bin/qlux-setup.exe" "$top/build/bin/qlux-pack" || windows=1
bash "$top/tests/windows_signing_test.sh" "$top/build-win/bin/qlux-setup.exe" "$top/build/bin/qlux-pack" || windows=1
"$top/tests/with_display.sh" bash "$top/tests/windows_gui_test.sh" "$top/build-win/bin/qlux-setup.exe" \
  "$top/build/bin/qlux-pack" || windows=1

if [ "$native" -ne 0 ] || [ "$windows" -ne 0 ]; then
  echo "FAILED: native=$native windows=$windows"
  exit 1
fi
echo "All tests passed on both targets."
