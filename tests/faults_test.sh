#!/usr/bin/env bash
# Installations and removals that meet a fault on the machine: a target that
# can't be written, a directory that can't be made, a full disk on a fresh
# install and on an upgrade, a damaged action log, a damaged backup, and
# foreign files among the installed ones. After each, either the product is
# fully installed or the machine is as it was, file by file, and no file of
# the user's is lost. Each case runs in a fresh sandbox of its own.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/lifecycle"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Lifecycle Product"

# What the cases pin down is released before the sandbox goes: immutable
# files, read-only folders and mounted file systems.
pinned=()
mounts=()
release() {
  local path
  for path in "${mounts[@]}"; do umount "$path" 2>/dev/null; done
  mounts=()
  for path in "${pinned[@]}"; do
    chattr -i "$path" 2>/dev/null
    chmod u+w "$path" 2>/dev/null
  done
  pinned=()
}
trap 'release; qlux_exit' EXIT

# The life-cycle product's versions, and two variants of them: "keep"
# (version 1 that also saves a readme.txt it replaces) and "big" (version 2
# with a large file more, which a nearly full disk can't take).
mkdir -p "$sandbox/installers"
for version in v1 v2 keep big; do
  case $version in keep) from=v1 ;; big) from=v2 ;; *) from=$version ;; esac
  stage="$sandbox/stage/$version"
  mkdir -p "$stage"
  cp -r "$data/$from/." "$stage/"
  cp "$setup" "$stage/qlux-uninstall.exe"
  case $version in
    keep) sed -i 's|<FN Dest="\[ROOT\]">readme.txt|<FN Dest="[ROOT]" BackupExisting="1">readme.txt|' "$stage/install.xml" ;;
    big)
      head -c 400000 /dev/urandom >"$stage/big.bin"
      sed -i 's|<FN Dest="\[ROOT\]">readme.txt</FN>|&<FN Dest="[ROOT]/data">big.bin</FN>|' "$stage/install.xml" ;;
  esac
  "$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" \
    -o "$sandbox/installers/$version-setup" >/dev/null || { echo "FAILED: packing $version"; exit 1; }
done
cc -shared -fPIC -o "$sandbox/enospc.so" "$here/enospc_shim.c" -ldl || { echo "FAILED: building the shim"; exit 1; }

# use_sandbox NAME: a fresh QLUX_ROOT and TMPDIR with the program directory.
use_sandbox() {
  new_sandbox "$1"
  mkdir -p "$QLUX_ROOT/opt"
  case_dir="$sandbox/$1"
  root="$QLUX_ROOT/opt/Lifecycle"
  log_file="$root/uninstall/install.log"
  full_disk=()
}

# run_installer VERSION OPTION...: unattended, with the debug log, and on a
# full disk when full_disk holds the shim's settings.
run_installer() {
  local version=$1
  shift
  cp -p "$sandbox/installers/$version-setup" "$case_dir/$version-setup"
  out=$(env "${full_disk[@]}" timeout 120 "$case_dir/$version-setup" -gui=0 -auto -debug=1 "$@" </dev/null 2>&1)
  code=$?
}

entry() { echo "$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values"; }
entry_value() { awk -F'\t' -v name="$1" '$1 == name { print $3 }' "$(entry)" 2>/dev/null; }

# run_uninstaller: the registered command, as the list of programs runs it.
run_uninstaller() {
  out=$(timeout 120 sh -c "$(entry_value UninstallString) -gui=0" </dev/null 2>&1); code=$?
}

# machine: every entry below QLUX_ROOT with its type and mode, and every
# file's SHA-256: the state that a case compares before and after.
machine() {
  (cd "$QLUX_ROOT" && find . -printf '%M %p\n' | sort -k2 && find . -type f -exec sha256sum {} + | sort -k2)
}
# without REGEX: the snapshot on stdin less the lines of the paths (below
# QLUX_ROOT, without "./") that REGEX matches whole.
without() { grep -vE "^[^ ]+ +\./($1)\$"; }

# same_machine WHAT BEFORE [REGEX]: the machine is as BEFORE, apart from the
# paths REGEX names; a difference is shown. The folder of the journals of
# interrupted runs is a machine-wide place like the registry store: it may
# stay, empty.
same_machine() {
  local now
  now=$(machine | without 'var(/lib(/qlux(/journal)?)?)?')
  [ -n "${3:-}" ] && now=$(without "$3" <<<"$now")
  local was
  was=$(without 'var(/lib(/qlux(/journal)?)?)?' <<<"$2")
  [ -n "${3:-}" ] && was=$(without "$3" <<<"$was")
  check "$1" test "$now" = "$was"
  [ "$now" = "$was" ] || diff <(echo "$was") <(echo "$now") | head -20
}

# A failed fresh installation of version 1 leaves its BackupExisting file,
# etc/settings.conf, and the folders above it: the file is logged OVER, and
# the uninstaller keeps an OVER file when the whole backup came back, since
# it takes it for the file that stood there before.
kept_over='opt/Lifecycle(/etc(/settings\.conf)?)?'

# pin PATH...: makes each path impossible to write, replace or delete: an
# immutable file or folder where the system allows that (root), else a
# read-only one (which stops a normal user, though not root).
pin() {
  local path
  for path in "$@"; do
    pinned+=("$path")
    chattr +i "$path" 2>/dev/null && continue
    [ "$(id -u)" -ne 0 ] && chmod a-w "$path" && continue
    echo "SKIPPED: $path can't be pinned here"
    return 1
  done
}

# reverted: the failed run reached the revert and said it failed.
reverted() {
  check "$1: the installation fails" holds "$out" "There were errors during the installation."
  check "$1: the revert runs" grep -q "Reverting installation!" "$TMPDIR/installer_debug.log"
  check "$1: and ends on BadFinish" grep -q 'Setting dialog "BadFinish"' "$TMPDIR/installer_debug.log"
}

# --- 1. A target that can't be written ---------------------------------------------
# The user's readme.txt and the folder etc with the user's settings.conf
# are pinned. Afterwards the machine is as before, file by file: the
# product is reverted and the pinned files are untouched.
use_sandbox "pinned"
mkdir -p "$root/etc"
echo "my readme" >"$root/readme.txt"
echo "my settings" >"$root/etc/settings.conf"
if pin "$root/readme.txt" "$root/etc/settings.conf" "$root/etc"; then
  before=$(machine)
  run_installer v1
  reverted "pinned"
  check "pinned: the failure is named" holds "$out" "FAILED to overwrite $root/readme.txt"
  same_machine "pinned: the machine is as before" "$before"
fi
release

# A program runs where the product puts bin/tool.sh: its file can't be
# written while it runs (as root too), but its name can be freed. The
# product's file takes the name, the running program goes on with its old
# file, and the installation succeeds.
use_sandbox "busy"
mkdir -p "$root/bin"
cp /bin/sleep "$root/bin/tool.sh"
"$root/bin/tool.sh" 60 &
busy_pid=$!
run_installer v1
check "busy: the installation succeeds" holds "$out" "Automatic installation was successful!"
check "busy: the product's file took the name" cmp -s "$data/v1/bin/tool.sh" "$root/bin/tool.sh"
check "busy: the program still runs" kill -0 "$busy_pid"
check "busy: the replacement is logged" grep -q "\"$root/bin/tool.sh\" is a running program: its file was unlinked" \
  "$TMPDIR/installer_debug.log"
kill "$busy_pid"
wait "$busy_pid" 2>/dev/null

# The older version's file can't be replaced (pinned), and the errors are
# ignored: the new version's log still names the file, so its
# uninstallation removes it once it can, and nothing of the product is
# orphaned.
use_sandbox "orphan"
run_installer v1
if pin "$root/readme.txt"; then
  run_installer v2 -ignoreErrors=1
  check "orphan: the failure is named" holds "$out" "FAILED to overwrite $root/readme.txt"
  check "orphan: the log names the file all the same" grep -q "^FILE	CREATE	$root/readme.txt" "$log_file"
  release
  run_uninstaller
  check "orphan: the uninstallation removes it" test ! -e "$root/readme.txt"
fi
release

# --- 2. A directory that can't be made ------------------------------------------------
# The user's file "lib" stands where the product makes a folder. Afterwards
# the machine is as before, the user's file included.
use_sandbox "blocked"
mkdir -p "$root"
echo "my notes called lib" >"$root/lib"
before=$(machine)
run_installer v1
reverted "blocked"
check "blocked: the failure is named" holds "$out" "FAILED to create $root/lib/v1only.txt"
same_machine "blocked: the machine is as before" "$before" "$kept_over"

# A file named like the product's folder: nothing can go in, the log can't
# be placed, and the machine doesn't change at all.
use_sandbox "no-root"
echo "a file, not a folder" >"$root"
before=$(machine)
run_installer v1
check "no root: the installation fails" holds "$out" "FAILED to create $root/readme.txt"
check "no root: the log can't be placed, and that is logged" grep -q "ERROR: Could not move the action log" \
  "$TMPDIR/installer_debug.log"
same_machine "no root: the machine is as before" "$before"
check "no root: no temporary file left" test "$(ls -A "$TMPDIR" | grep -v -- '-install\.log$')" = installer_debug.log
check "no root: the result log tells the failure" \
  grep -q "^Result: failed.* (exit code 1)$" "$(ls "$TMPDIR"/*-install.log | head -n 1)"

# --- 3. A full disk ---------------------------------------------------------------------
# The program directory becomes a small volume: a tmpfs mounted there where
# the machine allows it, and always the shim, which runs without mount
# rights and also makes a rename into the volume fail as across volumes.
# full_disk MODE SPARE: the volume holds SPARE bytes more than it does now.
full_disk() {
  local used
  if [ "$1" = tmpfs ]; then
    used=$(df -B1 --output=used "$QLUX_ROOT/opt" | tail -1)
    mount -o remount,size=$((used + $2)) "$QLUX_ROOT/opt"
  else
    used=$(find "$QLUX_ROOT/opt" -type f -printf '%s\n' | awk '{ sum += $1 } END { print sum + 0 }')
    full_disk=(LD_PRELOAD="$sandbox/enospc.so" QLUX_ENOSPC_DIR="$QLUX_ROOT/opt" QLUX_ENOSPC_BYTES=$((used + $2)))
  fi
}
# use_volume NAME MODE: a fresh sandbox whose program directory is a volume.
use_volume() {
  use_sandbox "$1"
  if [ "$2" = tmpfs ]; then
    mount -t tmpfs -o size=64m tmpfs "$QLUX_ROOT/opt" && mounts+=("$QLUX_ROOT/opt")
  fi
}

modes=(shim)
probe=$(mktemp -d "$sandbox/probe.XXXXXX")
mount -t tmpfs -o size=1m tmpfs "$probe" 2>/dev/null && umount "$probe" && modes+=(tmpfs)
for mode in "${modes[@]}"; do
  # A fresh installation that runs out of room half way, over the user's
  # own settings.conf (which the product saves before replacing it).
  # Afterwards the machine is as before: the revert takes the product away
  # and puts the user's file back.
  use_volume "full-$mode" "$mode"
  mkdir -p "$root/etc"
  echo "my settings" >"$root/etc/settings.conf"
  before=$(machine)
  full_disk "$mode" 200000
  run_installer v1
  reverted "full disk ($mode)"
  check "full disk ($mode): the write that ran out of room is named" holds "$out" \
    "FAILED to create $root/uninstall/qlux-uninstall"
  same_machine "full disk ($mode): the machine is as before, the user's file included" "$before"
  release

  # An upgrade to the big version 2 that runs out of room. Afterwards
  # version 1 is installed and registered as before, file by file.
  use_volume "full-upgrade-$mode" "$mode"
  run_installer v1
  check "full disk upgrade ($mode): version 1 installs" holds "$out" "Automatic installation was successful!"
  before=$(machine)
  full_disk "$mode" 150000
  run_installer big -backup=1
  reverted "full disk upgrade ($mode)"
  check "full disk upgrade ($mode): version 1 was removed first" holds "$out" "Delete $root/lib/v1only.txt"
  check "full disk upgrade ($mode): the previous installation is unpacked" \
    grep -q "Unpacking backup of previous installation" "$TMPDIR/installer_debug.log"
  same_machine "full disk upgrade ($mode): version 1 is back as it was" "$before"
  release
done

# --- 4. A damaged action log at uninstall ------------------------------------------
# Version 1 is installed, its log damaged, and the registered uninstaller
# run. The user keeps a file "read" beside readme.txt, which a FILE line cut
# inside its path would name. Afterwards every file that a whole FILE CREATE
# line of the damaged log names is gone, and every other file below the
# program directory is as it was; the uninstaller doesn't crash, names what
# it couldn't undo, and ends saying that it failed.

# whole_creates LOG: the paths of the FILE CREATE lines that end in CR LF
# and hold no NUL byte.
whole_creates() {
  tr '\0' '\001' <"$1" | awk -F'\t' '/\r$/ && !/\001/ && $1 == "FILE" && $2 == "CREATE" { sub(/\r$/, "", $3); print $3 }'
}
# undone_as_logged WHAT NAMED: the check above, against the list NAMED and
# the files list_files noted before the run.
list_files() { (cd "$QLUX_ROOT/opt" && find . -type f -exec sha256sum {} +) | sort; }
undone_as_logged() {
  local sum path wrong=""
  while read -r sum path; do
    path="$QLUX_ROOT/opt/${path#./}"
    if grep -qxF "$path" <<<"$2"; then
      [ -e "$path" ] && wrong="$wrong left:$path"
    else
      [ "$(sha256sum <"$path" 2>/dev/null | cut -d' ' -f1)" = "$sum" ] || wrong="$wrong lost:$path"
    fi
  done <<<"$files_before"
  check "$1: exactly the files of whole lines went${wrong}" test -z "$wrong"
}

# damaged_log NAME EDIT: the case, with the function EDIT damaging the log.
damaged_log() {
  use_sandbox "$1"
  run_installer v1
  echo "mine" >"$root/read"
  $2 "$log_file"
  files_before=$(list_files)
  named=$(whole_creates "$log_file")
  run_uninstaller
  if [ "$1" = log-header ]; then
    # Without the template's path there is no wizard: the uninstaller says
    # so and changes nothing.
    check "$1: the uninstaller says it can't start" holds "$out" "The uninstallation can't start"
  else
    # The template's last page for an uninstallation with errors: a crash
    # would never show it.
    check "$1: the uninstaller runs to its end and says it failed" holds "$out" "Removed, with errors."
  fi
}

# offset_of TEXT: where TEXT begins in the log.
offset_of() { grep -abo -F "$2" "$1" | head -1 | cut -d: -f1; }
cut_header() { truncate -s 40 "$1"; }
cut_variables() { truncate -s $(($(offset_of "$1" "VAR	ROOT") + 6)) "$1"; }
cut_action() { truncate -s $(($(offset_of "$1" "FILE	CREATE	$root/readme.txt") + 12 + ${#root} + 5)) "$1"; }
# Zeros over the middle of readme.txt's path, as a crash may leave a block,
# and random bytes behind the end.
garbage() {
  local at
  at=$(($(offset_of "$1" "FILE	CREATE	$root/readme.txt") + 12 + ${#root} + 5))
  head -c 6 /dev/zero | dd of="$1" bs=1 seek="$at" conv=notrunc status=none
  head -c 300 /dev/urandom | tr -d '\n' >>"$1"
}

damaged_log "log-header" cut_header
undone_as_logged "log cut in its header" ""

damaged_log "log-variables" cut_variables
check "log cut in its variables: the cut line is named" holds "$out" "FAILED to undo a damaged line of the action log"
undone_as_logged "log cut in its variables" "$named"

damaged_log "log-action" cut_action
check "log cut in an action line: the cut line is named" holds "$out" "FAILED to undo a damaged line of the action log"
check "log cut in an action line: the lines before it are undone" test ! -e "$root/uninstall/install.xml"
undone_as_logged "log cut in an action line" "$named"

damaged_log "log-garbage" garbage
check "log with garbage: the damaged lines are named" holds "$out" "FAILED to undo a damaged line of the action log"
check "log with garbage: the lines after the zeros are undone" test ! -e "$root/extras/extra.txt"
undone_as_logged "log with garbage" "$named"

# --- 5. A damaged backup at uninstall ----------------------------------------------
# The user's readme.txt and etc/settings.conf stand where the "keep" variant
# puts its own, and both are saved; the backup is then cut inside its second
# record. Afterwards the file of the whole record is the user's again, the
# other one is named as not restored and goes with the product (what it held
# before was in the lost part), and the user's other file is untouched.
use_sandbox "backup-cut"
mkdir -p "$root/etc"
echo "my readme" >"$root/readme.txt"
echo "my settings" >"$root/etc/settings.conf"
echo "my notes" >"$root/notes.txt"
run_installer keep
backup="$root/uninstall/backup.bin"
check "backup cut: both files are saved" test "$(grep -c "^Back up $root" <<<"$out")" -eq 2
first=$(grep -ao -e "$root/readme.txt" -e "$root/etc/settings.conf" "$backup" | head -1)
second=$(grep -ao -e "$root/readme.txt" -e "$root/etc/settings.conf" "$backup" | tail -1)
# Three bytes into the content: the name, its NUL, size and check sum stand.
truncate -s $(($(offset_of "$backup" "$second") + ${#second} + 1 + 12 + 3)) "$backup"
run_uninstaller
mine="my settings"
[ "$first" = "$root/readme.txt" ] && mine="my readme"
check "backup cut: the whole record's file is the user's again" test "$(cat "$first" 2>/dev/null)" = "$mine"
check "backup cut: the cut record is named" holds "$out" "FAILED to restore $second"
check "backup cut: the damaged backup is reported" holds "$out" "FAILED to restore all of the damaged backup $backup"
check "backup cut: the product's copy of the other goes" test ! -e "$second"
check "backup cut: the user's other file stays" test "$(cat "$root/notes.txt" 2>/dev/null)" = "my notes"
check "backup cut: the rest of the product goes" test ! -e "$root/bin" -a ! -e "$root/uninstall"

# --- 6. Foreign files in installed folders -----------------------------------------
# Besides version 1: the user's files in folders below installed ones, an
# empty folder of the user's, a file of the template's wildcard pattern
# (*.tmp below var) outside var, and below var a link to a folder outside
# the product with a *.tmp file in it, and a *.tmp link to a file outside.
# Afterwards exactly the user's files and folders stay, with their content,
# the product's files and the links that match the pattern are gone, and
# nothing outside the product is touched.
use_sandbox "foreign"
run_installer v1
outside="$case_dir/outside"
mkdir -p "$root/extras/photos/2024" "$root/lib/empty" "$root/var/cache/deep" "$outside"
echo "picture" >"$root/extras/photos/2024/pic.jpg"
echo "scratch" >"$root/var/cache/deep/run.tmp"
echo "kept" >"$root/var/cache/deep/keep.txt"
echo "a session" >"$root/bin/session.tmp"
echo "not the product's" >"$outside/user.tmp"
ln -s "$outside" "$root/var/link"
ln -s "$outside/user.tmp" "$root/var/alias.tmp"
run_uninstaller
expected=". ./bin ./bin/session.tmp ./etc ./etc/settings.conf ./extras ./extras/photos ./extras/photos/2024
./extras/photos/2024/pic.jpg ./lib ./lib/empty ./var ./var/cache ./var/cache/deep ./var/cache/deep/keep.txt ./var/link"
check "foreign: exactly the user's files and folders stay" \
  test "$(cd "$root" && find . | sort | tr '\n' ' ')" = "$(tr '\n' ' ' <<<"$expected")"
check "foreign: with their content" test "$(cat "$root/extras/photos/2024/pic.jpg" "$root/var/cache/deep/keep.txt" \
  "$root/bin/session.tmp" 2>/dev/null | tr '\n' ' ')" = "picture kept a session "
check "foreign: the link still leads outside" test "$(readlink "$root/var/link")" = "$outside"
check "foreign: nothing outside is touched" test "$(cat "$outside/user.tmp")" = "not the product's"
check "foreign: the folder kept for a file is reported" \
  holds "$out" "kept: 1 file that the installation did not make, in $root/extras"
check "foreign: the folder kept for a folder is reported" \
  holds "$out" "kept: 1 folder that the installation did not make, in $root/lib"
check "foreign: a kept folder is no error" lacks "$out" "FAILED to remove"

finish
