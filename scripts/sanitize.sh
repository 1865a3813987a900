#!/usr/bin/env bash
# sanitize.sh: the native build with AddressSanitizer and UndefinedBehavior-
# Sanitizer in build-asan/, and every native test that ctest knows (unit
# tests, end-to-end scripts, the window tests on a private display) run
# against it, so each program a test starts is a sanitized one.
#
# Any report fails the run. A report stops the program that made it (an
# abort, which the test sees as a failure), and every report is also written
# to a file of its own in one directory; a file there fails the run even when
# the test that caused it passed, for instance because the test only looked
# at files. Memory still allocated at exit is a report too, except what the
# system libraries keep (scripts/lsan.supp).
#
# Nothing of the machine is touched: QLUX_ROOT and TMPDIR point into a fresh
# directory under the caller's TMPDIR (scripts/test.sh passes its sandbox),
# the tests run from inside it, and it is removed at the end.
# QLUX_BUILD_JOBS and QLUX_TEST_JOBS set the parallelism (default: cores).
set -euo pipefail
top="$(cd "$(dirname "$0")/.." && pwd)"
build="$top/build-asan"
build_jobs=${QLUX_BUILD_JOBS:-$(nproc)}
test_jobs=${QLUX_TEST_JOBS:-$(nproc)}

echo "== sanitized build in $build"
# -O1 and line tables only (-g1) keep the build and the runs fast; the line
# tables still name the file and line of every frame of a report.
cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQLUX_SANITIZE=ON \
      "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" \
      "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O1 -g1 -DNDEBUG" >/dev/null
ninja -C "$build" -j "$build_jobs"

scratch=$(mktemp -d "${TMPDIR:-/tmp}/qlux-sanitize.XXXXXX")
cleanup() {
  cd /
  case "$scratch" in
    */qlux-sanitize.*) rm -rf -- "$scratch" ;;
  esac
}
trap cleanup EXIT

mkdir -p "$scratch/tmp" "$scratch/root" "$scratch/reports"
export TMPDIR="$scratch/tmp"
export QLUX_ROOT="$scratch/root"
reports="$scratch/reports"
cd "$scratch"

# Reports go to reports/asan.PROGRAM.PID. A report ends the program with an
# abort; leaks are looked for at every exit. An allocation too large for the
# sanitizer returns null, as it would without it, for the code that handles
# a failed allocation. The fault tests preload their own small libraries
# (tests/*_shim.c) in front of the sanitizer's, which it allows only when told.
# Undefined behaviour is reported on the program's error output whatever the
# log path says: its abort fails the test, and the report, where the output
# reaches ctest, fails the run.
common="halt_on_error=1:abort_on_error=1:print_stacktrace=1:log_exe_name=1"
asan="detect_leaks=1:check_initialization_order=1:strict_init_order=1"
asan="$asan:detect_stack_use_after_return=1:allocator_may_return_null=1:verify_asan_link_order=0"
export ASAN_OPTIONS="$common:$asan:log_path=$reports/asan"
export UBSAN_OPTIONS="$common"
export LSAN_OPTIONS="suppressions=$top/scripts/lsan.supp:print_suppressions=0"
# The window's toolkit would connect to the accessibility bus at start and
# keep that connection's buffers to the end; the private display has no such
# bus, and without the bridge there is nothing of it to report.
export NO_AT_BRIDGE=1

echo "== native tests, sanitized"
status=0
ctest --test-dir "$build" --output-on-failure -j "$test_jobs" --output-log "$scratch/ctest.log" || status=$?
if grep -q "runtime error: " "$scratch/ctest.log"; then
  echo "== undefined behaviour reported in the tests' output"
  grep -B2 -A12 "runtime error: " "$scratch/ctest.log"
  status=1
fi

# A file that only says an allocation too large for the sanitizer came back
# empty is no report: the tests of failed allocations ask for such sizes,
# and the program sees the same null pointer as without the sanitizer.
shown=0
while IFS= read -r report; do
  if grep -v 'WARNING: AddressSanitizer failed to allocate' "$report" | grep -q .; then
    [ "$shown" -eq 0 ] && echo "== sanitizer reports"
    shown=1
    echo "---- $(basename "$report")"
    cat "$report"
  fi
done < <(find "$reports" -type f | sort)
[ "$shown" -eq 0 ] || status=1

if [ "$status" -ne 0 ]; then
  echo "FAILED: sanitized tests"
  exit 1
fi
echo "Sanitized tests passed, no reports."
