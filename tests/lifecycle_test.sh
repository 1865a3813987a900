#!/usr/bin/env bash
# The life of an installed product, run for real with packed installers of
# two versions of one product: installing (files, modes, action log, backup,
# registered entry), removing through the registered command, upgrading over
# an older version, reverting a failed upgrade, saving a file the user
# changed, and replaying one run's answers on another machine.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/lifecycle"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Lifecycle Product"
magic="Halvo Software installer backup file."

# Both versions carry the installer program without a package as their
# uninstaller, packed beside the version's own files. Variants, each told
# where it is used: "twice" (version 2 entering its Uninstall page twice),
# "keepold" (version 2 whose ROOT has UseOld="" and another default),
# "link" (version 1 with a Symlink shortcut), "vendor" (version 1 in a
# vendor's folder), "slash" (version 1 named with a '/') and "nolog"
# (version 1 whose log's folder is never made).
mkdir -p "$sandbox/installers"
for version in v1 v2 twice keepold link vendor slash nolog; do
  case $version in twice | keepold | v2) from=v2 ;; *) from=v1 ;; esac
  stage="$sandbox/stage/$version"
  mkdir -p "$stage"
  cp -r "$data/$from/." "$stage/"
  cp "$setup" "$stage/qlux-uninstall.exe"
  # Version 1 keeps its BackupExisting file when it goes; the variants that
  # check that nothing stays have none.
  case $version in vendor | slash | nolog) sed -i 's| BackupExisting="1"||' "$stage/install.xml" ;; esac
  case $version in
    twice)
      sed -i -e 's|<Uninstall Special="AutoNext" Condition="[^"]*"/>|<Uninstall Special="AutoNext"><Trigger EvaluateOn="End" Variable="SHOULDUNINSTALL" Value="1"/></Uninstall><Uninstall Special="AutoNext"/>|' \
        -e 's|<Value Name="SHOULDUNINSTALL" DataType="value">1</Value>|<Value Name="SHOULDUNINSTALL" DataType="value">0</Value>|' \
        "$stage/install.xml" ;;
    keepold)
      sed -i 's|<Value Name="ROOT" DataType="value" UseOld="1">\$PROGRAMFILES/Lifecycle<|<Value Name="ROOT" DataType="value" UseOld="">$PROGRAMFILES/Elsewhere<|' \
        "$stage/install.xml" ;;
    link)
      sed -i 's|<UninstallWildcards>|<Shortcuts><Add Type="Symlink" Dest="[ROOT]/links" Target="[ROOT]/bin">current</Add></Shortcuts>&|' \
        "$stage/install.xml" ;;
    vendor) sed -i 's|\$PROGRAMFILES/Lifecycle<|$PROGRAMFILES/Vendor/Lifecycle<|' "$stage/install.xml" ;;
    slash) sed -i 's|<Fullname>Lifecycle Product</Fullname>|<Fullname>Lifecycle/Product</Fullname>|' "$stage/install.xml" ;;
    nolog) sed -i 's|<InstallLogFile>\[ROOT\]/uninstall/install.log|<InstallLogFile>[ROOT]/logs/install.log|' "$stage/install.xml" ;;
  esac
  # The log place that nothing makes is the point of "nolog": the builder,
  # which refuses it by default, is told to let it through.
  strict=()
  [ "$version" = nolog ] && strict=(--no-strict)
  "$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" "${strict[@]}" \
    -o "$sandbox/installers/$version-setup" >/dev/null || { echo "FAILED: packing $version"; exit 1; }
done

# use_sandbox NAME: a fresh QLUX_ROOT and TMPDIR, with the program directory.
use_sandbox() {
  new_sandbox "$1"
  mkdir -p "$QLUX_ROOT/opt"
  case_dir="$sandbox/$1"
  root="$QLUX_ROOT/opt/Lifecycle"
  log_file="$root/uninstall/install.log"
}

# run_installer VERSION OPTION...: runs that version's installer from the
# case's folder, so that config.xml lands there.
run_installer() {
  local version=$1
  shift
  cp -p "$sandbox/installers/$version-setup" "$case_dir/$version-setup"
  out=$(timeout 120 "$case_dir/$version-setup" -gui=0 "$@" </dev/null 2>&1); code=$?
}

entry() { echo "$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values"; }
entry_value() { awk -F'\t' -v name="$1" '$1 == name { print $3 }' "$(entry)" 2>/dev/null; }

# run_uninstaller OPTION...: runs the registered UninstallString as the list
# of installed programs does. The second stage inherits the first one's output,
# so reading the output to its end waits for the second stage as well.
run_uninstaller() {
  local command
  command=$(entry_value UninstallString)
  out=$(timeout 120 sh -c "$command -gui=0 $*" </dev/null 2>&1); code=$?
}

# snapshot DIR: every entry below DIR with its type and mode, and every
# file's MD5, the run's own result log (its times differ) apart; contents
# DIR: the same without the modes.
snapshot() {
  (cd "$1" && find . -printf '%M %p\n' | sort -k2 && find . -type f -exec md5sum {} + | sort -k2) |
    grep -v -- '-install\.log$'
}
contents() {
  (cd "$1" && find . -printf '%y %p\n' | sort -k2 && find . -type f -exec md5sum {} + | sort -k2)
}

mode_of() { stat -c %a "$1"; }

# --- Installing -------------------------------------------------------------------
use_sandbox "install"
run_installer v1 -auto
check "install exits 0, got $code" test "$code" -eq 0
check "install succeeds" holds "$out" "Automatic installation was successful!"
for file in readme.txt bin/tool.sh lib/v1only.txt etc/settings.conf extras/extra.txt; do
  check "installed $file" cmp -s "$data/v1/$file" "$root/$file"
done
check "template copy" cmp -s "$data/v1/install.xml" "$root/uninstall/install.xml"
check "uninstaller program" cmp -s "$setup" "$root/uninstall/qlux-uninstall"
check "executable entries are 755" test "$(mode_of "$root/bin/tool.sh") $(mode_of "$root/uninstall/qlux-uninstall")" = "755 755"
check "plain files are 644" test "$(mode_of "$root/readme.txt") $(mode_of "$root/etc/settings.conf")" = "644 644"

log=$(tr -d '\r' <"$log_file")
check "log lines end in CR LF" test "$(grep -c $'\r$' "$log_file")" -eq "$(wc -l <"$log_file")"
check "log header: template copy, backup" \
  test "$(head -2 <<<"$log")" = "$root/uninstall/install.xml"$'\n'"$root/uninstall/backup.bin"
count=$(sed -n 3p <<<"$log" | cut -f2)
check "log variable block: NUMVARS and as many VAR lines" \
  test "$(sed -n 3p <<<"$log" | cut -f1) $(sed -n "4,$((3 + count))p" <<<"$log" | grep -c '^VAR	')" = "NUMVARS $count"
check "log variable ROOT" grep -qxF "VAR	ROOT	$root" <<<"$log"
check "log variable EXTRAS" grep -qxF "VAR	EXTRAS	1" <<<"$log"
check "log DIR line for two new levels" grep -qxF "DIR	2	$root/uninstall/" <<<"$log"
check "log DIR line for one level" grep -qxF "DIR	1	$root/lib/" <<<"$log"
check "log FILE CREATE line" grep -qxF "FILE	CREATE	$root/bin/tool.sh" <<<"$log"
check "log FILE OVER line for BackupExisting" grep -qxF "FILE	OVER	$root/etc/settings.conf" <<<"$log"
check "log lists itself and the backup" \
  test "$(grep -cxF -e "FILE	CREATE	$log_file" -e "FILE	CREATE	$root/uninstall/backup.bin" <<<"$log")" -eq 2
check "log has a FILE line for each installed file" \
  test "$(grep -c '^FILE' <<<"$log")" -eq "$(find "$root" -type f | wc -l)"
backup="$root/uninstall/backup.bin"
check "backup: magic, NUL, end record and nothing else" \
  test "$(od -An -tx1 -v "$backup" | tr -d ' \n')" = "$(printf '%s\n' "$magic" | od -An -tx1 -v | tr -d ' \n')00010000"
check "registered name and version" test "$(entry_value DisplayName) $(entry_value DisplayVersion)" = "Lifecycle Product 1.0.0"
check "registered UninstallString" test "$(entry_value UninstallString)" = \
  "\"$root/uninstall/qlux-uninstall\" -uninstall=\"$log_file\" -uninstallApp=\"Lifecycle Product\""
check "registered QuietUninstallString" \
  test "$(entry_value QuietUninstallString)" = "$(entry_value UninstallString) -gui=0 -quiet=1 -wait"
check "registered icon, folder and the template's publisher" \
  test "$(entry_value DisplayIcon)|$(entry_value InstallLocation)|$(entry_value Publisher)" = \
  "\"$root/uninstall/qlux-uninstall\"|$root|Lifecycle Works"
check "registered NoModify and NoRepair as DWORDs" \
  test "$(awk -F'\t' '$1 == "NoModify" || $1 == "NoRepair" { print $1, $2, $3 }' "$(entry)" | sort | tr '\n' ,)" = \
  "NoModify REG_DWORD 1,NoRepair REG_DWORD 1,"
# The installed files in KB, rounded up; the log and the backup grow after.
size_kb=$(( ($(find "$root" -type f -printf '%s+') 1023) / 1024 ))
check "registered EstimatedSize near $size_kb KB: $(entry_value EstimatedSize)" \
  test $((size_kb - $(entry_value EstimatedSize))) -le 4
check "no temporary file left" test -z "$(ls -A "$TMPDIR")"

# --- Removing through the registered command --------------------------------------
# A file of the user's in an installed folder, and one the product made.
echo "my notes" >"$root/bin/notes.txt"
mkdir -p "$root/var" && echo "scratch" >"$root/var/run.tmp"
cp "$log_file" "$case_dir/install.log.saved"
run_uninstaller -debug=1
check "first stage exits 0, got $code" test "$code" -eq 0
copies=$(ls -d "$TMPDIR"/qlux-??????)
check "the copies lie in a directory of the run's own" test "$(mode_of "$copies")" = 700
check "the log was handed over as qluxuninst.log" cmp -s "$case_dir/install.log.saved" "$copies/qluxuninst.log"
check "the program was handed over as qluxuninst.dll" cmp -s "$setup" "$copies/qluxuninst.dll"
check "the program copy is 755" test "$(mode_of "$copies/qluxuninst.dll")" = 755
check "the second stage ran on the log copy" grep -qF "[ARG 00] -uninstallFile=\"$copies/qluxuninst.log\"" \
  "$TMPDIR/installer_debug.log"
# The settings file is logged OVER (BackupExisting); the backup restored
# without error, so it counts as the file that stood there before, and stays.
left=""
while IFS=$'\t' read -r tag mode path; do
  [ "$tag" = FILE ] && [ "$mode" = CREATE ] && [ -e "$path" ] && left="$left $path"
done < <(tr -d '\r' <"$case_dir/install.log.saved")
check "every file logged CREATE is gone:$left" test -z "$left"
check "the file logged OVER stays" cmp -s "$data/v1/etc/settings.conf" "$root/etc/settings.conf"
for dir in lib extras uninstall var; do
  check "directory $dir is gone" test ! -e "$root/$dir"
done
check "the user's file stays" test "$(cat "$root/bin/notes.txt" 2>/dev/null)" = "my notes"
check "their folders stay" test "$(ls -A "$root" 2>/dev/null | tr '\n' ' ')" = "bin etc "
check "the folder kept for the user's file is reported" holds "$out" "kept: 1 file that the installation did not make, in $root/bin"
check "the entry is unregistered" test ! -e "$(entry)"

# --- Upgrading: version 2 over version 1 -----------------------------------------
use_sandbox "upgrade"
run_installer v1 -auto
v1_log=$(tr -d '\r' <"$log_file")
run_installer v2 -auto -backup=1 -debug=1
check "upgrade exits 0, got $code" test "$code" -eq 0
check "upgrade succeeds" holds "$out" "Automatic installation was successful!"
check "version 1 was found" grep -q "VAR	PREVIOUSINSTALLATION	1" "$log_file"
check "version 1 removed in the process" grep -q 'Setting dialog "Uninstall"' "$TMPDIR/installer_debug.log"
check "version 1's files were deleted through its log" holds "$out" "Delete $root/lib/v1only.txt"
check "version 1's own file is gone" test ! -e "$root/lib/v1only.txt"
check "and its folder" test ! -e "$root/lib"
for file in readme.txt bin/tool.sh etc/settings.conf extras/extra.txt; do
  check "version 2's $file" cmp -s "$data/v2/$file" "$root/$file"
done
check "version 2's file in its second folder" cmp -s "$data/v2/share/data.txt" "$QLUX_ROOT/opt/Lifecycle Shared/data.txt"
check "the new log is version 2's" \
  test "$(grep -c 'lib/v1only.txt' "$log_file") $(grep -c '^FILE	CREATE	.*/Lifecycle Shared/data.txt' "$log_file")" = "0 1"
check "ROOT kept from version 1" grep -qxF "VAR	ROOT	$root" <<<"$v1_log"
check "registered version 2.0.0" test "$(entry_value DisplayVersion)" = "2.0.0"
check "no backup of version 1 left behind" test -z "$(grep -rlF "$magic" "$TMPDIR" 2>/dev/null)"

# --- A failed upgrade is reverted -------------------------------------------------
# A directory stands where version 2 has to write a file, so its file stage
# fails; the revert removes version 2 and brings version 1 back.
use_sandbox "revert"
run_installer v1 -auto
before=$(contents "$root")
entry_before=$(cat "$(entry)")
mkdir -p "$QLUX_ROOT/opt/Lifecycle Shared/data.txt"
run_installer v2 -auto -backup=1 -debug=1
debug_log="$TMPDIR/installer_debug.log"
check "the file stage fails" holds "$out" "FAILED to create $QLUX_ROOT/opt/Lifecycle Shared/data.txt"
check "the walk reaches RevertInstallation" grep -q 'Setting dialog "RevertInstallation"' "$debug_log"
check "the revert ran" grep -q "Reverting installation!" "$debug_log"
check "the revert restored version 1" grep -q "Unpacking backup of previous installation" "$debug_log"
check "the walk ends on BadFinish" grep -q 'Setting dialog "BadFinish"' "$debug_log"
check "version 1 is back, byte for byte, with its folders" test "$(contents "$root")" = "$before"
check "version 1's programs are executable again" \
  test "$(mode_of "$root/bin/tool.sh") $(mode_of "$root/uninstall/qlux-uninstall")" = "755 755"
check "version 1's entry stays" test "$(cat "$(entry)" 2>/dev/null)" = "$entry_before"
check "the obstacle is left alone" test -d "$QLUX_ROOT/opt/Lifecycle Shared/data.txt"

# A Symlink shortcut of version 1 comes back as a link after a failed
# upgrade, not as what it leads to.
use_sandbox "revert-link"
run_installer link -auto
check "the shortcut is a link" test "$(readlink "$root/links/current")" = "$root/bin"
before=$(contents "$root")
mkdir -p "$QLUX_ROOT/opt/Lifecycle Shared/data.txt"
run_installer v2 -auto -backup=1 -debug=1
check "the upgrade over the link is reverted" grep -q "Unpacking backup of previous installation" \
  "$TMPDIR/installer_debug.log"
check "the link is back as a link, the rest as before" test "$(contents "$root")" = "$before"
check "it leads where it led" test "$(readlink "$root/links/current")" = "$root/bin"

# --- The Uninstall page entered again ------------------------------------------------
# The user keeps version 1 on the first entry of the page and removes it on
# the second (here a trigger changes the answer as the page is left, as
# going back and choosing otherwise would).
use_sandbox "uninstall-twice"
run_installer v1 -auto
run_installer twice -auto -debug=1
check "the page was entered twice" \
  test "$(grep -c 'Setting dialog "Uninstall"' "$TMPDIR/installer_debug.log")" -eq 2
check "the second entry removed version 1" holds "$out" "Delete $root/lib/v1only.txt"
check "version 1's own file is gone" test ! -e "$root/lib/v1only.txt"
check "version 2 installed" cmp -s "$data/v2/readme.txt" "$root/readme.txt"

# --- UseOld="" keeps the older installation's value ----------------------------
# Only an absent UseOld or one that starts with "0" replaces it: version 2
# goes where version 1 is, not to its own default folder.
use_sandbox "keep-old"
run_installer v1 -auto
run_installer keepold -auto
check "UseOld=\"\": the upgrade succeeds" holds "$out" "Automatic installation was successful!"
check "in version 1's folder" cmp -s "$data/v2/readme.txt" "$root/readme.txt"
check "not in the template's default" test ! -e "$QLUX_ROOT/opt/Elsewhere"

# --- Empty folders above the product ----------------------------------------------
# The vendor's folder was there before and is empty once the product has
# gone: it goes too. The program files folder stays, empty as it is.
use_sandbox "vendor"
mkdir -p "$QLUX_ROOT/opt/Vendor"
root="$QLUX_ROOT/opt/Vendor/Lifecycle"
run_installer vendor -auto
check "the product is in the vendor's folder" test -f "$root/readme.txt"
run_uninstaller
check "the vendor's empty folder is removed" test ! -e "$QLUX_ROOT/opt/Vendor"
check "the program files folder stays" test -d "$QLUX_ROOT/opt"

# --- A product name with a '/' ----------------------------------------------------
# The name is one key of the list of installed programs, and nothing of it
# stays after the uninstallation.
use_sandbox "slash"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Lifecycle%2FProduct"
entries="$QLUX_ROOT/var/lib/qlux/registry/HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall"
run_installer slash -auto
check "a '/' name installs" holds "$out" "Automatic installation was successful!"
check "the entry is one key" test "$(entry_value DisplayName)" = "Lifecycle/Product"
check "with no key of the name's first part" test ! -e "$entries/Lifecycle"
run_uninstaller
check "the entry is gone" test ! -e "$(entry)"
check "and nothing is left of it" test -z "$(ls -A "$entries" 2>/dev/null)"
check "the product is gone" test ! -e "$root"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Lifecycle Product"

# --- A log that can't be placed ---------------------------------------------------
# Without its log the product could never be uninstalled: the run fails
# with the reason, is reverted, and nothing is registered.
use_sandbox "nolog"
run_installer nolog -auto -debug=1
check "the reason is shown" holds "$out" "FAILED to write the action log $root/logs/install.log"
check "the installation fails" holds "$out" "There were errors during the installation."
check "the revert runs" grep -q "Reverting installation!" "$TMPDIR/installer_debug.log"
check "nothing is registered" test ! -e "$(entry)"
check "nothing of the product stays" test -z "$(ls -A "$QLUX_ROOT/opt")"

# --- -ignoreErrors without a display ---------------------------------------------
# A graphical run that the console stands in for keeps -ignoreErrors: a file
# that can't be written doesn't revert the installation.
use_sandbox "ignore-errors"
mkdir -p "$root/lib/v1only.txt"
cp -p "$sandbox/installers/v1-setup" "$case_dir/v1-setup"
out=$(printf '\n\n\n\n\n' | env -u DISPLAY -u WAYLAND_DISPLAY timeout 120 "$case_dir/v1-setup" -ignoreErrors=1 \
  -debug=1 2>&1)
check "the failure is reported" holds "$out" "FAILED to create $root/lib/v1only.txt"
check "and ignored: no revert" test "$(grep -c "Reverting installation!" "$TMPDIR/installer_debug.log")" -eq 0
check "the rest is installed" cmp -s "$data/v1/readme.txt" "$root/readme.txt"

# --- BackupExisting -----------------------------------------------------------------
# The user's own settings file stands where the product puts its own: it is
# saved in the backup, and put back when the product goes.
use_sandbox "backup"
mkdir -p "$root/etc"
echo "colour=red  # mine" >"$root/etc/settings.conf"
run_installer v1 -auto
check "backup install succeeds" holds "$out" "Automatic installation was successful!"
check "the user's file is saved" holds "$out" "Back up $root/etc/settings.conf"
check "and overwritten" holds "$out" "Overwrite $root/etc/settings.conf"
check "the product's file is in place" cmp -s "$data/v1/etc/settings.conf" "$root/etc/settings.conf"
check "the backup holds the user's file" grep -qF "colour=red  # mine" "$root/uninstall/backup.bin"
run_uninstaller
check "the copies and their directory are gone after the second stage" \
  test -z "$(ls -A "$TMPDIR" | grep -vE -- '-uninstall(-[0-9]+)?\.log$')"
check "the user's file is restored" test "$(cat "$root/etc/settings.conf" 2>/dev/null)" = "colour=red  # mine"
check "nothing else of the product stays" test "$(cd "$root" 2>/dev/null && find . | sort | tr '\n' ' ')" = ". ./etc ./etc/settings.conf "

# Changed after the installation, the file no longer matches the product's:
# the uninstaller leaves it as the user made it.
use_sandbox "changed"
mkdir -p "$root/etc"
echo "colour=red  # mine" >"$root/etc/settings.conf"
run_installer v1 -auto
echo "colour=purple  # changed later" >"$root/etc/settings.conf"
run_uninstaller
check "the changed file is left as it is" test "$(cat "$root/etc/settings.conf" 2>/dev/null)" = "colour=purple  # changed later"

# --- Replaying a run's answers on another machine -----------------------------------
use_sandbox "walk"
chosen="$sandbox/apps/Chosen Folder"
cp -p "$sandbox/installers/v1-setup" "$case_dir/v1-setup"
out=$(printf '%s\nno\n' "$chosen" | timeout 120 "$case_dir/v1-setup" -gui=0 2>&1); code=$?
check "walk exits 0, got $code" test "$code" -eq 0
check "walk exports its answers" test -f "$case_dir/config.xml"
check "answers in config.xml" test "$(grep -c -e ">$chosen<" -e '"EXTRAS" DataType="value">0<' "$case_dir/config.xml")" -eq 2
# A value that the template gave is exported as the template gives it, not
# as this machine resolved it: the program folder is read again where the
# file is replayed.
check "config.xml keeps where the program folder comes from" grep -qF \
  '<Value Name="PROGRAMFILES" DataType="registry" RegPlace="HKEY_LOCAL_MACHINE" RegKey="SOFTWARE/Microsoft/Windows/CurrentVersion">ProgramFilesDir</Value>' \
  "$case_dir/config.xml"
check "no extras installed" test ! -e "$chosen/extras"
walked=$(snapshot "$chosen")
# Out of the way, with the folder above it, so that the replay creates the
# same levels.
mv "$sandbox/apps" "$sandbox/walked"
use_sandbox "replay"
cp "$sandbox/walk/config.xml" "$case_dir/config.xml"
cp -p "$sandbox/installers/v1-setup" "$case_dir/v1-setup"
out=$(cd "$case_dir" && timeout 120 ./v1-setup -configFile=config.xml </dev/null 2>&1); code=$?
check "replay exits 0, got $code" test "$code" -eq 0
check "replay succeeds" test "$out" = "Automatic installation was successful!"
# The logs differ in the program folder, which each machine has its own.
check "replay installs the same files" \
  test "$(snapshot "$chosen" | grep -v 'uninstall/install.log$')" = "$(grep -v 'uninstall/install.log$' <<<"$walked")"
check "with the same values, the program folder its own" test "$(grep -v "^VAR	PROGRAMFILES	" \
  "$sandbox/walked/Chosen Folder/uninstall/install.log")" = "$(grep -v "^VAR	PROGRAMFILES	" "$chosen/uninstall/install.log")"
check "which is this machine's" grep -qx "VAR	PROGRAMFILES	$QLUX_ROOT/opt"$'\r' "$chosen/uninstall/install.log"
check "and registers it here" test "$(entry_value UninstallString)" = \
  "\"$chosen/uninstall/qlux-uninstall\" -uninstall=\"$chosen/uninstall/install.log\" -uninstallApp=\"Lifecycle Product\""

finish
