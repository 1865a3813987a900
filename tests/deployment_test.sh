#!/usr/bin/env bash
# Unattended deployment as an administrator's script sees it: every run ends
# with the exit code of its result, and a result log whose last line names
# it; a run that fails leaves the machine as it found it. Then the upgrade
# policies, the files a user left in the product's folders, an installation
# over a kept older version, and the registered quiet uninstall command,
# which waits for the uninstallation and gives its exit code.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/deployment"
product="Deploy Product"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/$product"

# make_version NAME VERSION [POLICY]: an installer of that version, packed
# from the template with the policy attributes of ProductDesc.
make_version() {
  local name=$1 version=$2 policy=${3:-}
  local stage="$sandbox/stage/$name"
  mkdir -p "$stage"
  cp -r "$data/." "$stage/"
  cp "$setup" "$stage/qlux-uninstall.exe"
  IFS=. read -r major minor minest <<<"$version"
  sed -e "s/@VERSION@/$version/g" -e "s/@MAJOR@/$major/" -e "s/@MINOR@/$minor/" -e "s/@MINEST@/$minest/" \
    -e "s/@POLICY@/$policy/" "$data/install.xml.in" >"$stage/install.xml"
  "$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" \
    -o "$sandbox/installers/$name-setup" >/dev/null || { echo "FAILED: packing $name"; exit 1; }
}
mkdir -p "$sandbox/installers"
make_version v1 1.0.0
make_version v2 1.1.0
make_version v1-skip 1.0.0 'IfSameInstalled="Skip"'

# use_machine NAME: a fresh machine with a program folder and Debian's empty
# /etc/environment.
use_machine() {
  new_sandbox "$1"
  mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
  : >"$QLUX_ROOT/etc/environment"
  root="$QLUX_ROOT/opt/Deploy"
}
# install VERSION OPTION...: an unattended run; `out` and `code`.
install() {
  local version=$1
  shift
  out=$(cd "$sandbox" && timeout 120 "$sandbox/installers/$version-setup" -gui=0 "$@" </dev/null 2>&1); code=$?
}
entry_value() {
  awk -F'\t' -v name="$1" '$1 == name { print $3 }' "$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values" \
    2>/dev/null
}
# machine: every entry below QLUX_ROOT with its type and mode and every
# file's SHA-256, but the result log's bytes, which tell the times of its
# run. The folder of the journals of interrupted runs is the installer's own
# machine-wide place, like the registry store: it may stay, empty.
machine() {
  (cd "$QLUX_ROOT" && find . -path ./var/lib/qlux/journal -prune -o -printf '%y %m %p\n' | sort -k3 &&
    find . -path ./var/lib/qlux/journal -prune -o -type f ! -name '*-install.log' -exec sha256sum {} + | sort -k2) |
    grep -vE '^d [0-7]+ \./var(/lib(/qlux(/registry(/.*)?)?)?)?$'
}
# result: the last line of the newest result log of the temporary folder.
result() {
  local newest
  newest=$(ls -t "$TMPDIR"/*.log 2>/dev/null | grep -v installer_debug.log | head -n 1)
  [ -n "$newest" ] && tail -n 1 "$newest"
}

# fails WHAT CODE TEXT: the run exited with CODE, its result log's last line
# says TEXT with that code, and the machine is as `before`.
fails() {
  check "$1: exit code $2, got $code" test "$code" -eq "$2"
  check "$1: the result log's last line" test "$(result)" = "Result: $3 (exit code $2)"
  check "$1: the machine is as before" test "$(machine)" = "$before"
  check "$1: no success is claimed" lacks "$out" "Automatic installation was successful!"
}

# --- Every failure: its code, its last line, the machine untouched ---------------
use_machine "failures"
before=$(machine)
cp "$sandbox/installers/v1-setup" "$sandbox/damaged-setup"
size=$(stat -c %s "$sandbox/damaged-setup")
# One byte in the package flipped: whatever it was, it is something else now.
flip_byte "$sandbox/damaged-setup" $((size - 100))
out=$("$sandbox/damaged-setup" -gui=0 -auto </dev/null 2>&1); code=$?
fails "damaged" 3 "the installer is damaged (its checksum or its package): download it again"
# Cut short behind the program, in its package: a download that broke off.
head -c $((size - 1000)) "$sandbox/installers/v1-setup" >"$sandbox/cut-setup"
chmod +x "$sandbox/cut-setup"
out=$("$sandbox/cut-setup" -gui=0 -auto </dev/null 2>&1); code=$?
fails "truncated" 3 "the installer is damaged (its checksum or its package): download it again"

install v1 -configFile="$sandbox/missing.xml"
fails "missing configuration file" 4 "the configuration file $sandbox/missing.xml is missing or no configuration file"
echo "<Settings>not DefValues</Settings>" >"$sandbox/other.xml"
install v1 -configFile="$sandbox/other.xml"
fails "malformed configuration file" 4 "the configuration file $sandbox/other.xml is missing or no configuration file"
install v1 -auto -INSTALDIR="$sandbox/typo"
fails "unknown variable" 4 "bad command line: -INSTALDIR names no variable of this installer's template"
install v1 -auto stray
fails "a word that is no option" 4 "bad command line: a word on the command line is no option: options begin with '-'"

# The input ends at the question that has no default: cancelled.
install v1
fails "input ended" 2 "cancelled: the input ended before every question was answered"
check "input ended: told" holds "$out" "The input has ended before this question was answered."

# A program that must end first runs from the folder the page watches.
mkdir -p "$TMPDIR/busy"
cp "$(command -v sleep)" "$TMPDIR/busy/deploy-busy"
"$TMPDIR/busy/deploy-busy" 60 &
busy=$!
install v1 -auto
kill "$busy" 2>/dev/null
wait "$busy" 2>/dev/null
rm -rf "$TMPDIR/busy"
fails "program running" 6 "a program that must end first is running and wasn't closed: deploy-busy"

# A folder stands where a file goes: the file stage fails and the
# installation is reverted.
mkdir -p "$root/readme.txt"
before=$(machine)
install v1 -auto
fails "failed and reverted" 1 "failed, and reverted: the machine is as it was"
check "failed and reverted: the failure names its reason" holds "$(cat "$TMPDIR"/"$product"-install*.log)" \
  "FAILED to create $root/readme.txt: Is a directory"
# -ignoreErrors=1 lets the failure through: the product stays, with code 7.
install v1 -auto -ignoreErrors=1
check "errors let through: exit code 7, got $code" test "$code" -eq 7
check "errors let through: the last line" test "$(tail -n 1 "$root/uninstall/$product-install.log")" = \
  "Result: installed, with errors that -ignoreErrors=1 let through (exit code 7)"
check "errors let through: installed" test -x "$root/bin/deploy-tool"

# No right to write into the program folder.
use_machine "rights"
rmdir "$QLUX_ROOT/opt"
before=$(machine)
install v1 -auto
fails "rights missing" 5 "rights missing: the program folder $QLUX_ROOT/opt can't be written"

# --- Installing, and the registered quiet uninstall command ------------------------
use_machine "install"
before=$(machine)
install v1 -auto -ROOT="$QLUX_ROOT/opt/Chosen"
root="$QLUX_ROOT/opt/Chosen"
check "install: exit code 0, got $code" test "$code" -eq 0
check "install: the folder from the command line" test -f "$root/readme.txt"
check "install: its result log stands beside the action log" \
  test "$(tail -n 1 "$root/uninstall/$product-install.log")" = "Result: installed (exit code 0)"
check "install: the result log names the steps" grep -q "Page CopyProgress" "$root/uninstall/$product-install.log"
check "install: no configuration file unless asked" test ! -e "$sandbox/installers/config.xml"
check "install: the INI file in its new folder" test -f "$QLUX_ROOT/etc/deploy/conf.d/deploy.ini"
# The empty /etc/environment had no PATH: the product's folder goes behind
# the system's default path, not alone.
check "install: PATH keeps the system's default" \
  grep -qE "^PATH=\"?/usr/local/sbin:.*:$root/bin\"?\$" "$QLUX_ROOT/etc/environment"
quiet=$(entry_value QuietUninstallString)
check "the quiet command waits" holds "$quiet" " -gui=0 -quiet=1 -wait"
out=$(timeout 120 sh -c "$quiet" </dev/null 2>&1); code=$?
# Waited for: the machine is clean the moment the command returns.
check "quiet uninstall: exit code 0, got $code" test "$code" -eq 0
check "quiet uninstall: the machine is as before" test "$(machine)" = "$before"
check "quiet uninstall: /etc/environment is empty again, byte for byte" \
  test -f "$QLUX_ROOT/etc/environment" -a ! -s "$QLUX_ROOT/etc/environment"
check "quiet uninstall: the INI file went with the folders it made" test ! -e "$QLUX_ROOT/etc/deploy"
check "quiet uninstall: its result log" test "$(result)" = "Result: uninstalled (exit code 0)"
check "quiet uninstall: no copy left behind" test -z "$(ls "$TMPDIR" | grep qluxuninst)"

# An uninstallation that fails gives its code through the wait, and the
# uninstaller stays in place for the next try.
root="$QLUX_ROOT/opt/Deploy"
install v1 -auto
rm "$root/uninstall/install.xml"
out=$(timeout 120 sh -c "$(entry_value QuietUninstallString)" </dev/null 2>&1); code=$?
check "failing quiet uninstall: exit code 1, got $code" test "$code" -eq 1
check "failing quiet uninstall: the uninstaller stays" test -x "$root/uninstall/qlux-uninstall"

# --- Upgrade policies ------------------------------------------------------------------
use_machine "downgrade"
install v2 -auto
before=$(machine)
install v1 -auto
fails "downgrade" 4 "refused: $product 1.1.0 is installed, newer than this installer's 1.0.0"

use_machine "same"
install v1 -auto
install v1 -auto
check "same version: reinstalled, exit code 0, got $code" test "$code" -eq 0
check "same version: reinstalled" grep -q "Page CopyProgress" "$root/uninstall/$product-install.log"
before=$(machine)
install v1-skip -auto
fails "same version skipped" 0 "nothing to do: $product 1.0.0 is installed already"

# --- Files the user left, and an older version that the user keeps ------------------
use_machine "user-files"
install v1 -auto
echo "mine" >"$root/lib/notes.txt"
install v2 -auto
check "user files: the upgrade exits 0, got $code" test "$code" -eq 0
check "user files: reported as kept" holds "$out" "kept: 1 file that the installation did not make, in $root/lib"
check "user files: no error" lacks "$out" "FAILED"
check "user files: version 1's own file is gone" test ! -e "$root/lib/only-1.0.0.txt"
check "user files: the user's file stays" test "$(cat "$root/lib/notes.txt")" = "mine"

use_machine "keep-older"
before=$(machine)
install v1 -auto
install v2 -auto -SHOULDUNINSTALL=0
check "kept older: exit code 0, got $code" test "$code" -eq 0
check "kept older: version 1's file is still there" test -f "$root/lib/only-1.0.0.txt"
check "kept older: the log took version 1 over" grep -q "only-1.0.0.txt" "$root/uninstall/install.log"
out=$(timeout 120 sh -c "$(entry_value QuietUninstallString)" </dev/null 2>&1); code=$?
check "kept older: uninstall exits 0, got $code" test "$code" -eq 0
check "kept older: the uninstallation leaves nothing" test "$(machine)" = "$before"

finish
