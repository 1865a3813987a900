#!/usr/bin/env bash
# The entry program's roles, messages and exit codes, run for real.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
[ $# -ge 2 ] && pack=$(realpath "$2")
source "$here/lib.sh"

# Without a writable program directory every role stops with the message and
# -1 (255), graphical runs included: Linux has no message box to show.
for role in "-gui=0" "-gui=0 -bin=x" "-gui=0 -uninstall=x.log -uninstallApp=A" "-gui=0 -uninstallFile=x.log" \
            "-gui=0 -quiet=1" ""; do
  new_sandbox "rights"
  # shellcheck disable=SC2086
  out=$("$setup" $role 2>&1); code=$?
  check "no rights [$role]: exit code 255, got $code" test "$code" -eq 255
  check "no rights [$role]: message" test "$out" = "This program requires administrative privileges."
done

# With a writable program directory the installation path runs and ends with 0.
new_sandbox "install"
mkdir -p "$QLUX_ROOT/opt"
"$setup" -gui=0 >/dev/null 2>&1; code=$?
check "installation path exits 0, got $code" test "$code" -eq 0
check "the write probe leaves nothing behind" test -z "$(ls -A "$QLUX_ROOT/opt")"

# -debug=1 writes the debug log in the temporary directory, CR LF ended.
new_sandbox "debug"
mkdir -p "$QLUX_ROOT/opt"
out=$("$setup" -debug=1 -gui=0 -configFile="$TMPDIR/my config.xml" -auto)
log="$TMPDIR/installer_debug.log"
check "debug log announced" grep -q "Successfully created Installer debug log file:" <<<"$out"
check "debug log exists" test -f "$log"
check "lines end in CR LF" test "$(grep -c $'\r$' "$log")" -eq "$(wc -l <"$log")"
check "revision is 12 hex digits" grep -qE '^ +0:  \[[0-9]+/[A-Z][a-z][a-z]/[0-9]+\|[0-9:]+\]    Installer version revision: [0-9a-f]{12}'$'\r''$' "$log"
check "arguments listed" grep -q "Insatllation was called with arguments:" "$log"
check "argument with value" grep -qF "  [ARG 01] -gui=\"0\"" "$log"
check "argument with blank" grep -qF "  [ARG 02] -configFile=\"$TMPDIR/my config.xml\"" "$log"
check "argument without value" grep -qE '  \[ARG 03\] -auto'$'\r''$' "$log"
check "installation finished" grep -q "Installation finished (res=" "$log"

# First stage: copies the log and the program to the temporary directory and
# starts the copy; the second stage removes its log copy unless debugging.
new_sandbox "uninstall"
mkdir -p "$QLUX_ROOT/opt"
echo "action log" >"$TMPDIR/install.log"
"$setup" -uninstall="$TMPDIR/install.log" -uninstallApp="Demo App" -gui=0; code=$?
check "first stage exits 0, got $code" test "$code" -eq 0
check "program copy is executable" test -x "$TMPDIR/qluxuninst.dll"
for _ in $(seq 50); do [ -e "$TMPDIR/qluxuninst.log" ] || break; sleep 0.1; done
check "second stage removed its log copy" test ! -e "$TMPDIR/qluxuninst.log"
check "the original log stays" test -f "$TMPDIR/install.log"

new_sandbox "uninstall-debug"
mkdir -p "$QLUX_ROOT/opt"
echo "action log" >"$TMPDIR/install.log"
"$setup" -uninstall="$TMPDIR/install.log" -uninstallApp=App -gui=0 -debug=1 >/dev/null
for _ in $(seq 50); do grep -q "Real uninstall" "$TMPDIR/installer_debug.log" 2>/dev/null && break; sleep 0.1; done
check "with -debug=1 the log copy is kept" test -f "$TMPDIR/qluxuninst.log"
check "second stage logged" grep -q "Real uninstall" "$TMPDIR/installer_debug.log"

new_sandbox "uninstall-missing"
mkdir -p "$QLUX_ROOT/opt"
"$setup" -uninstall -gui=0; code=$?
check "first stage with no log name fails at the copy, got $code" test "$code" -eq 255

finish
