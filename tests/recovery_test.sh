#!/usr/bin/env bash
# Recovery from a run that a killed process left half done. A preloaded shim
# (kill_shim.c) sends SIGKILL at an exact call: the n-th file opened for
# writing, rename or unlink whose path holds a given text. After the kill the
# next run (the same installer, the registered uninstaller, or another
# version's installer) must find the journal, undo or finish the work, and
# leave the machine file by file as the reference run without a kill leaves
# it, with no temporary file and no journal behind.
#
# Every case runs on one machine path, $sandbox/m, wiped between cases, so
# that the logs and entries, which hold full paths, compare byte for byte.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/lifecycle"
product="Lifecycle Product"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/$product"
user_settings="colour=red  # mine"

shim="$sandbox/kill_shim.so"
cc -shared -fPIC -o "$shim" "$here/kill_shim.c" -ldl || { echo "FAILED: building the kill shim"; exit 1; }
for version in v1 v2; do
  mkdir -p "$sandbox/stage/$version"
  cp -r "$data/$version/." "$sandbox/stage/$version/"
  cp "$setup" "$sandbox/stage/$version/qlux-uninstall.exe"
  "$pack" --stub "$setup" --template "$sandbox/stage/$version/install.xml" --source "$sandbox/stage/$version" \
    -o "$sandbox/$version-setup" >/dev/null || { echo "FAILED: packing $version"; exit 1; }
done

export QLUX_ROOT="$sandbox/m/root" TMPDIR="$sandbox/m/tmp"
opt="$QLUX_ROOT/opt"
root="$opt/Lifecycle"
journals="$QLUX_ROOT/var/lib/qlux/journal"

# fresh_machine [user]: an empty machine; with "user", a settings file of the
# user's own stands where the product puts its settings.
fresh_machine() {
  case "$QLUX_ROOT" in "$sandbox"/m/root) rm -rf "$sandbox/m" ;; *) exit 1 ;; esac
  mkdir -p "$opt" "$TMPDIR"
  if [ "${1:-}" = user ]; then
    mkdir -p "$root/etc"
    echo "$user_settings" >"$root/etc/settings.conf"
  fi
}

# run_installer VERSION, run_uninstaller: unattended runs; `out` and `code`.
run_installer() { out=$(cd "$sandbox/m" && timeout 120 "$sandbox/$1-setup" -gui=0 -auto </dev/null 2>&1); code=$?; }
uninstall_command() {
  awk -F'\t' '$1 == "UninstallString" { print $3 }' "$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values" 2>/dev/null
}
run_uninstaller() { out=$(cd "$sandbox/m" && timeout 120 sh -c "$(uninstall_command) -gui=0" </dev/null 2>&1); code=$?; }

# killed CALL MATCH AT WHEN COMMAND...: runs COMMAND (run_installer or
# run_uninstaller) under the shim. The process doing the work must die
# (an installer exits with 137; the uninstaller's second stage dies behind
# its first) and leave its journal.
killed() {
  local call=$1 match=$2 at=$3 when=$4
  shift 4
  QLUX_KILL_CALL=$call QLUX_KILL_MATCH=$match QLUX_KILL_AT=$at QLUX_KILL_WHEN=$when LD_PRELOAD=$shim "$@"
  [ "$1" = run_installer ] && check "[$call #$at $when] the installer was killed, got $code" test "$code" -eq 137
  check "[$call #$at $when] a journal stands after the kill" test -n "$(ls -A "$journals" 2>/dev/null)"
}

# state: every entry of the machine with its type and mode, and every file's
# SHA-256 but the result logs' (they tell the times of their own run); the
# journal directory is checked by `clean` instead.
state() {
  (cd "$QLUX_ROOT" && find . -path ./var/lib/qlux/journal -prune -o -printf '%y %m %p\n' | sort -k3 &&
    find . -path ./var/lib/qlux/journal -prune -o -type f ! -name '*-install.log' -exec sha256sum {} + | sort -k2)
}

# clean WHAT: no journal, and nothing in the temporary directory but the
# result logs of the runs that failed or uninstalled: each run's directory
# goes with it, or with the recovery of a run that was cut short.
clean() {
  check "$1: no journal left" test -z "$(ls -A "$journals" 2>/dev/null)"
  check "$1: no temporary file left" \
    test -z "$(ls -A "$TMPDIR" | grep -vE -- '-(un)?install(-[0-9]+)?\.log$')"
}

# The entry's values but for EstimatedSize, which counts the log's bytes too.
entry_but_size() { grep -v '^EstimatedSize	' "$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values" 2>/dev/null; }

# The reference machines, made without a kill.
fresh_machine && run_installer v2 && ref_v2=$(state) && ref_v2_entry=$(entry_but_size)
fresh_machine && run_installer v1 && ref_v1=$(state) && run_installer v2 && ref_v1_v2=$(state)
fresh_machine && run_installer v1 && run_uninstaller && ref_v1_removed=$(state)
fresh_machine user && run_installer v1 && ref_user_v1=$(state) && run_uninstaller && ref_user_v1_removed=$(state)
check "the reference runs succeed" test "$code" -eq 0
check "the reference uninstallation gives the user's file back" \
  test "$(cat "$root/etc/settings.conf" 2>/dev/null)" = "$user_settings"

# --- An installation killed in its file stage, then run again ------------------
# Points, counted in the product's folder (the program folder also gets the
# test of the right to write), whose files are written in the order
# uninstall/backup.bin, install.log, install.xml, qlux-uninstall,
# etc/settings.conf, ...: before the first file; right after the settings
# file was opened (it is empty); after the last file; before the log's move
# to its place.
for point in "write 1 before" "write 5 after" "write 8 after" "rename 1 before"; do
  set -- $point
  match=$root/
  [ "$1" = rename ] && match=install.log
  fresh_machine
  killed "$1" "$match" "$2" "$3" run_installer v2
  run_installer v2
  check "[$point] the run again succeeds" holds "$out" "Automatic installation was successful!"
  check "[$point] the user is told" holds "$out" "An interrupted installation of $product was found; undoing it"
  check "[$point] the machine is as after one clean run" test "$(state)" = "$ref_v2"
  clean "[$point]"
done

# Killed once the log is in its place (right after the move, or while the
# backup is copied behind it), the run had installed the product; it only
# lacks its entry. The next run finishes the backup's copy, installs over
# it and finds its folders there, so only the new log's DIR lines differ,
# and the entry's size, which counts the log.
without_log() { grep -v -e '/uninstall/install.log$' -e '/Uninstall/[^/]*/.values$'; }
for point in "rename install.log 1 after" "write $root/ 9 after"; do
  set -- $point
  fresh_machine
  killed "$1" "$2" "$3" "$4" run_installer v2
  run_installer v2
  check "[placed, $point] the run again succeeds" holds "$out" "Automatic installation was successful!"
  check "[placed, $point] the machine is as after one clean run, but for the log" \
    test "$(state | without_log)" = "$(without_log <<<"$ref_v2")"
  check "[placed, $point] the entry is as after one clean run, but for its size" \
    test "$(entry_but_size)" = "$ref_v2_entry"
  clean "[placed, $point]"
done

# --- The user's file that the installation was replacing ------------------------
# Killed just after the settings file was made anew for writing (behind
# the look whether it is free): the user's file is empty on disk, and only
# the backup holds it.
fresh_machine user
killed write "$root/" 6 after run_installer v1
check "the user's file was cut" test ! -s "$root/etc/settings.conf"
run_installer v1
check "[user file] the machine is as after one clean run" test "$(state)" = "$ref_user_v1"
run_uninstaller
check "[user file] uninstalling gives the user's file back" \
  test "$(cat "$root/etc/settings.conf" 2>/dev/null)" = "$user_settings"
check "[user file] the machine is as after a clean install and uninstall" test "$(state)" = "$ref_user_v1_removed"
clean "[user file]"

# --- An upgrade killed while version 1 is removed, or in its file stage ----------
# (a) version 1's registered uninstaller still works: it first brings
# version 1 back. Version 2's file stage has written its own uninstaller
# program at the registered place by its 4th file; before that the
# registered command has no program to run, and the next installer run is
# the way back (b).
for point in "unlink 3 before" "write 6 before" "rename 1 before"; do
  set -- $point
  match=$root/
  [ "$1" = rename ] && match=install.log
  fresh_machine && run_installer v1
  killed "$1" "$match" "$2" "$3" run_installer v2
  run_uninstaller
  check "[upgrade, $point] version 1's uninstaller succeeds" test "$code" -eq 0
  check "[upgrade, $point] the user is told" holds "$out" "An interrupted installation of $product was found"
  check "[upgrade, $point] the machine is as after version 1's clean removal" test "$(state)" = "$ref_v1_removed"
  clean "[upgrade, $point]"
done
for point in "unlink 3 before" "write 1 before" "write 5 after" "rename 1 before"; do
  set -- $point
  match=$root/
  [ "$1" = rename ] && match=install.log
  fresh_machine && run_installer v1
  killed "$1" "$match" "$2" "$3" run_installer v2
  run_installer v2
  check "[upgrade again, $point] succeeds" holds "$out" "Automatic installation was successful!"
  check "[upgrade again, $point] the machine is as after a clean upgrade" test "$(state)" = "$ref_v1_v2"
  clean "[upgrade again, $point]"
done

# --- An uninstallation killed half way ----------------------------------------
# The interrupted uninstallation is finished by the next run: the registered
# command while its program is still there, else the next installer run,
# which then installs anew. Either way the user's file comes back: killed
# while the backup was being restored, the user's file is empty on disk.
for point in "write 1 after" "unlink 2 before" "unlink 8 before"; do
  set -- $point
  fresh_machine user && run_installer v1
  killed "$1" "$root/" "$2" "$3" run_uninstaller
  if [ -x "$root/uninstall/qlux-uninstall" ]; then
    run_uninstaller
    check "[uninstall, $point] the user is told" holds "$out" "An interrupted uninstallation of $product was found"
    check "[uninstall, $point] the machine is as after a clean removal" test "$(state)" = "$ref_user_v1_removed"
    check "[uninstall, $point] the user's file is back" \
      test "$(cat "$root/etc/settings.conf" 2>/dev/null)" = "$user_settings"
  else
    run_installer v1
    check "[uninstall, $point] the installer finishes it first" holds "$out" "An interrupted uninstallation"
    check "[uninstall, $point] and then installs anew" test "$(state)" = "$ref_user_v1"
  fi
  clean "[uninstall, $point]"
done

# --- A revert killed half way ------------------------------------------------------
# A directory stands where version 2 writes a file: its file stage fails and
# the revert removes it and brings version 1 back. Killed in the undo (the
# second deletion of readme.txt; version 1's removal made the first), or
# while version 1's files are put back (the only write of lib/v1only.txt),
# the revert is finished by the next run: version 1's registered uninstaller
# while its program is there, else version 1's installer.
obstacle() { mkdir -p "$opt/Lifecycle Shared/data.txt"; }
fresh_machine && run_installer v1 && obstacle && run_uninstaller && ref_obstacle_removed=$(state)
fresh_machine && run_installer v1 && obstacle && run_installer v1 && ref_obstacle_again=$(state)
for point in "unlink readme.txt 2 before" "write lib/v1only.txt 1 after"; do
  set -- $point
  fresh_machine && run_installer v1 && obstacle
  killed "$1" "$root/$2" "$3" "$4" run_installer v2
  if [ -x "$root/uninstall/qlux-uninstall" ]; then
    run_uninstaller
    check "[revert, $point] the user is told" holds "$out" "An interrupted revert of $product was found; finishing it"
    check "[revert, $point] the machine is as after version 1's clean removal" test "$(state)" = "$ref_obstacle_removed"
  else
    run_installer v1
    check "[revert, $point] the user is told" holds "$out" "An interrupted revert of $product was found; finishing it"
    check "[revert, $point] the machine is as after installing version 1 again" test "$(state)" = "$ref_obstacle_again"
  fi
  clean "[revert, $point]"
done

finish
