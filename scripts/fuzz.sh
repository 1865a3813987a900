#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each for a while.
#
#   scripts/fuzz.sh SECONDS [TARGET...]
#
# Configures build-fuzz/ (clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer), builds the targets named (all of them when
# none is), and runs each for SECONDS, one after the other, from a scratch
# directory made with mktemp under $TMPDIR: the seed corpus of each target
# (fuzz/corpus/TARGET) is copied into a working corpus there, and TMPDIR
# points into it, so the targets write nothing elsewhere. The scratch
# directory is removed at the end.
#
# Each run's output goes to build-fuzz/logs/TARGET.log. A crash, leak,
# timeout or memory blow-up fails the target: its input is kept under
# build-fuzz/crashes/TARGET/, and the script exits 1 after running the rest.
# Each target's line in the summary gives its executions.
#
# The file targets write and replace a file on every run, and the INI writer
# syncs it to disk; with TMPDIR on a memory file system (TMPDIR=/dev/shm)
# they run many times faster.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)

all_targets=(fuzz_package_bare fuzz_package_image fuzz_xml fuzz_conditions fuzz_rtf
             fuzz_action_log fuzz_backup_restore fuzz_ini fuzz_command_line fuzz_config_replay)

if [ $# -lt 1 ] || ! [[ "$1" =~ ^[0-9]+$ ]] || [ "$1" -lt 1 ]; then
  echo "usage: scripts/fuzz.sh SECONDS [TARGET...]" >&2
  exit 2
fi
seconds=$1
shift
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=("${all_targets[@]}")
for t in "${targets[@]}"; do
  if ! [[ " ${all_targets[*]} " == *" $t "* ]]; then
    echo "fuzz: unknown target $t (known: ${all_targets[*]})" >&2
    exit 2
  fi
done

if ! command -v clang++ >/dev/null; then
  echo "fuzz: clang++ is missing; run scripts/setup.sh" >&2
  exit 2
fi

build="$top/build-fuzz"
if [ ! -f "$build/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S "$top/fuzz" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" --target "${targets[@]}" -- -j "${QLUX_FUZZ_JOBS:-2}"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/qlux-fuzz-run.XXXXXX")
cleanup() {
  cd /
  case "$scratch" in
    */qlux-fuzz-run.*) rm -rf -- "$scratch" ;;
  esac
}
trap cleanup EXIT

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

failed=()
summary=()
for t in "${targets[@]}"; do
  work="$scratch/$t"
  mkdir -p "$work/corpus" "$work/tmp" "$work/run"
  if [ -d "$top/fuzz/corpus/$t" ]; then
    cp -- "$top/fuzz/corpus/$t"/* "$work/corpus/" 2>/dev/null || true
  fi
  crashes="$build/crashes/$t"
  mkdir -p "$crashes" "$build/logs"
  log="$build/logs/$t.log"
  echo "== $t: ${seconds}s"
  status=0
  (cd "$work/run" && TMPDIR="$work/tmp" "$build/bin/$t" -max_total_time="$seconds" -timeout=25 \
     -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$crashes/" "$work/corpus") \
     >"$log" 2>&1 || status=$?
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1 || true)
  if [ "$status" -ne 0 ]; then
    failed+=("$t")
    summary+=("$t: FAILED after ${runs:-?} runs; input in $crashes/, report in $log")
    grep -m1 -E 'ERROR: |runtime error|SUMMARY' "$log" || true
  else
    summary+=("$t: ${runs:-?} runs, no failure")
    rmdir "$crashes" 2>/dev/null || true
  fi
done

echo "== fuzz summary"
printf '%s\n' "${summary[@]}"
if [ ${#failed[@]} -ne 0 ]; then
  echo "fuzz: ${#failed[@]} target(s) failed: ${failed[*]}"
  exit 1
fi
echo "fuzz: all ${#targets[@]} targets ran clean"
