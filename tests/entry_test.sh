#!/usr/bin/env bash
# The entry program's roles, messages and exit codes, run for real.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
[ $# -ge 2 ] && pack=$(realpath "$2")
source "$here/lib.sh"

# Without a writable program directory every role stops with the message and
# exit code 5, graphical runs included: Linux has no message box to show.
# The result log in the temporary directory says so in its last line.
for role in "-gui=0" "-gui=0 -bin=x" "-gui=0 -uninstall=x.log -uninstallApp=A" "-gui=0 -uninstallFile=x.log" \
            "-gui=0 -quiet=1" ""; do
  new_sandbox "rights"
  # shellcheck disable=SC2086
  out=$("$setup" $role 2>/dev/null); code=$?
  check "no rights [$role]: exit code 5, got $code" test "$code" -eq 5
  check "no rights [$role]: message names the folder" \
    test "$out" = "This program requires administrative privileges."$'\n'"The program folder $QLUX_ROOT/opt does not exist."
  result=$(ls "$TMPDIR"/*.log 2>/dev/null | head -n 1)
  check "no rights [$role]: result log" grep -q "^Result: rights missing: .* (exit code 5)$" "$result"
done

# --help and --version answer before the rights check, change nothing and end
# with 0; an installer with a package doesn't start its wizard for them.
new_sandbox "info"
out=$("$setup" --help 2>&1); code=$?
check "--help exits 0, got $code" test "$code" -eq 0
check "--help shows the usage" holds "$out" "usage: $(basename "$setup") [options]"
check "--help names -configFile" holds "$out" "-configFile=FILE"
check "--help names -exportConfig" holds "$out" "-exportConfig=FILE"
check "--help names the exit codes" holds "$out" "5 rights missing"
check "-h is --help" test "$("$setup" -h)" = "$out"
out=$("$setup" --version); code=$?
check "--version exits 0, got $code" test "$code" -eq 0
check "--version shows version and revision" grep -qE '^qlux-setup [0-9]+\.[0-9]+\.[0-9]+ \(revision [0-9a-f]{12}\)$' <<<"$out"
check "nothing was made" test -z "$(ls -A "$QLUX_ROOT")$(ls -A "$TMPDIR")"

# With a writable program directory the installation path runs; the bare
# program carries no package, so it is a damaged installer (3).
new_sandbox "install"
mkdir -p "$QLUX_ROOT/opt"
"$setup" -gui=0 >/dev/null 2>&1; code=$?
check "installation path of a program without a package exits 3, got $code" test "$code" -eq 3
check "the write probe leaves nothing behind" test -z "$(ls -A "$QLUX_ROOT/opt")"

# A bad command line is exit code 4, and named in the result log.
new_sandbox "usage"
mkdir -p "$QLUX_ROOT/opt"
for bad in "-gui=0 stray" "-uninstallFile=x.log -FOO=1" "-gui=0 -log="; do
  # shellcheck disable=SC2086
  "$setup" $bad >/dev/null 2>&1; code=$?
  check "bad command line [$bad] exits 4, got $code" test "$code" -eq 4
done
check "the result log names the fault" grep -qx "Result: bad command line: .* (exit code 4)" "$TMPDIR/qlux-install.log"

# -debug=1 writes the debug log in the temporary directory, CR LF ended.
new_sandbox "debug"
mkdir -p "$QLUX_ROOT/opt"
out=$("$setup" -debug=1 -gui=0 -configFile="$TMPDIR/my config.xml" -auto)
log="$TMPDIR/installer_debug.log"
check "debug log announced" grep -q "Successfully created Installer debug log file:" <<<"$out"
check "debug log exists" test -f "$log"
check "lines end in CR LF" test "$(grep -c $'\r$' "$log")" -eq "$(wc -l <"$log")"
check "revision is 12 hex digits" grep -qE '^ +0:  \[[0-9]+/[A-Z][a-z][a-z]/[0-9]+\|[0-9:]+\]    Installer version revision: [0-9a-f]{12}'$'\r''$' "$log"
check "arguments listed" grep -q "Installation was called with arguments:" "$log"
check "argument with value" grep -qF "  [ARG 01] -gui=\"0\"" "$log"
check "argument with blank" grep -qF "  [ARG 02] -configFile=\"$TMPDIR/my config.xml\"" "$log"
check "argument without value" grep -qE '  \[ARG 03\] -auto'$'\r''$' "$log"
check "installation finished" grep -q "Installation finished (res=" "$log"

# First stage: copies the log and the program into a directory of its own in
# the temporary directory and starts the copy; the second stage removes that
# directory unless debugging.
new_sandbox "uninstall"
mkdir -p "$QLUX_ROOT/opt"
echo "action log" >"$TMPDIR/install.log"
"$setup" -uninstall="$TMPDIR/install.log" -uninstallApp="Demo App" -gui=0; code=$?
check "first stage exits 0, got $code" test "$code" -eq 0
for _ in $(seq 50); do ls -d "$TMPDIR"/qlux-?????? >/dev/null 2>&1 || break; sleep 0.1; done
check "second stage removed the copies and their directory" test -z "$(ls -d "$TMPDIR"/qlux-?????? 2>/dev/null)"
check "the original log stays" test -f "$TMPDIR/install.log"

new_sandbox "uninstall-debug"
mkdir -p "$QLUX_ROOT/opt"
echo "action log" >"$TMPDIR/install.log"
"$setup" -uninstall="$TMPDIR/install.log" -uninstallApp=App -gui=0 -debug=1 >/dev/null
for _ in $(seq 50); do grep -q "Real uninstall" "$TMPDIR/installer_debug.log" 2>/dev/null && break; sleep 0.1; done
copies=$(ls -d "$TMPDIR"/qlux-??????)
check "with -debug=1 the log copy is kept" test -f "$copies/qluxuninst.log"
check "the copies' directory is the run's own" test "$(stat -c %a "$copies")" = 700
check "program copy is executable" test -x "$copies/qluxuninst.dll"
check "second stage logged" grep -q "Real uninstall" "$TMPDIR/installer_debug.log"

new_sandbox "uninstall-missing"
mkdir -p "$QLUX_ROOT/opt"
"$setup" -uninstall -gui=0; code=$?
check "first stage with no log name fails at the copy, got $code" test "$code" -eq 1

finish
