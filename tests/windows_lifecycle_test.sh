#!/usr/bin/env bash
# The life of an installed product on Windows, run under Wine with installers
# that the Linux qlux-pack writes onto the Windows program: an unattended
# install into the program directory that the registry names, with its entry
# in the list of installed programs; removal through the registered
# UninstallString, run by cmd as that list runs it, which hands over to a copy
# of the program in the temporary directory; an upgrade that removes the older
# version; and a failed upgrade that is reverted.
# Usage: windows_lifecycle_test.sh SETUP_EXE PACK, with WINEPREFIX set to a
# prefix that wineboot has made.
#
# Wine keeps its server's socket under $TMPDIR: every Wine command here runs
# with the TMPDIR that the prefix was made with, or a second server would
# start on the same prefix.
#
# The prefix is shared with other tests and may be used again: each case
# installs a product of its own name into a folder of its own name, both
# marked with the sandbox's random suffix, so cases never meet and nothing in
# the prefix has to be cleared by this script. It deletes nothing itself
# outside its sandbox; what goes in the prefix goes through the product's own
# uninstaller.
wine_tmp=${TMPDIR:-/tmp}
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
source "$here/wine_lib.sh"
data="$here/data/lifecycle"
magic="Halvo Software installer backup file."
tag=${sandbox##*.}

find_wine_places
# DLLs planted under system DLL names where the installers and the
# uninstaller's copy run must never be loaded (tests/wine_lib.sh).
plant_dlls "$temp_dir"

# use_case NAME: the case's product (name, folders, entry) and its installers
# of both versions, each carrying the Windows program as its uninstaller.
use_case() {
  case_dir="$sandbox/$1"
  mkdir -p "$case_dir"
  plant_dlls "$case_dir"
  local mark="Lifecycle-$tag-$1"
  product="$mark Product"
  win_root="$program_files\\$mark"
  root=$(unix_path "$win_root")
  shared="$(unix_path "$program_files")/$mark Shared"
  win_shared="$program_files/$mark Shared"
  win_log="$win_root/uninstall\\install.log"
  log_file="$root/uninstall/install.log"
  local version
  for version in v1 v2; do
    mkdir -p "$case_dir/stage/$version"
    cp -r "$data/$version/." "$case_dir/stage/$version/"
    sed -i "s/Lifecycle/$mark/g" "$case_dir/stage/$version/install.xml"
    cp "$setup" "$case_dir/stage/$version/qlux-uninstall.exe"
    "$pack" --stub "$setup" --template "$case_dir/stage/$version/install.xml" --source "$case_dir/stage/$version" \
      -o "$case_dir/$version-setup.exe" >/dev/null || { echo "FAILED: packing $version"; exit 1; }
  done
}

# run_installer VERSION OPTION...: runs that version's installer from the
# case's folder, unattended on the console.
run_installer() {
  local version=$1
  shift
  touch "$case_dir/started"
  out=$(cd "$case_dir" && runwine "./$version-setup.exe" -gui=0 "$@" </dev/null 2>/dev/null | tr -d '\r')
  code=${PIPESTATUS[0]}
  settle
}

# True when the product has no key of its own in the list of installed
# programs. reg must answer for a parent that always exists, so that a
# failing reg doesn't pass for a removed entry; an empty or absent Uninstall
# key is fine.
unregistered() {
  runwine reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion' >/dev/null 2>&1 || return 1
  ! runwine reg query "$uninstall_key\\$product" >/dev/null 2>&1
}

# run_uninstaller OPTION...: runs the registered UninstallString as the list
# of installed programs does, through cmd, with the options behind it; then
# waits for the second stage, which the first starts and doesn't wait for.
run_uninstaller() {
  local command
  command=$(entry_value UninstallString)
  touch "$case_dir/started"
  printf '@echo off\r\n%s -gui=0 %s\r\n' "$command" "$*" >"$case_dir/uninstall.bat"
  out=$(runwine cmd /c "$(dos_path "$case_dir/uninstall.bat")" </dev/null 2>"$case_dir/uninstall.err" | tr -d '\r')
  code=${PIPESTATUS[0]}
  settle
}

# contents DIR: every entry below DIR with its type, and every file's MD5.
contents() {
  (cd "$1" && find . -printf '%y %p\n' | sort -k2 && find . -type f -exec md5sum {} + | sort -k2)
}
# Files of the temporary directory that hold a backup.
temp_backups() { grep -rlF "$magic" "$temp_dir" 2>/dev/null | sort; }

# --- Installing -------------------------------------------------------------------
use_case "install"
run_installer v1 -auto
check "install exits 0, got $code" test "$code" -eq 0
check "install succeeds" holds "$out" "Automatic installation was successful!"
for file in readme.txt bin/tool.sh lib/v1only.txt etc/settings.conf extras/extra.txt; do
  check "installed $file" cmp -s "$data/v1/$file" "$root/$file"
done
check "template copy" cmp -s "$case_dir/stage/v1/install.xml" "$root/uninstall/install.xml"
check "the uninstaller keeps its .exe on Windows" cmp -s "$setup" "$root/uninstall/qlux-uninstall.exe"
check "the write test left nothing in the program directory" \
  test ! -e "$(unix_path "$program_files")/test\$\$\$1234ajgtr.tmp"

log=$(win_lines "$log_file")
check "log lines end in CR LF" test "$(grep -c $'\r$' "$log_file")" -eq "$(wc -l <"$log_file")"
check "log header: template copy, backup" \
  test "$(head -2 <<<"$log")" = "$win_root/uninstall/install.xml"$'\n'"$win_root/uninstall/backup.bin"
check "the program directory came from the registry" grep -qxF "VAR	PROGRAMFILES	$program_files" <<<"$log"
check "log variable ROOT" grep -qxF "VAR	ROOT	$win_root" <<<"$log"
check "log DIR line for two new levels" grep -qxF "DIR	2	$win_root/uninstall\\" <<<"$log"
check "log DIR line for one level" grep -qxF "DIR	1	$win_root/lib\\" <<<"$log"
check "log FILE CREATE line" grep -qxF "FILE	CREATE	$win_root/bin\\tool.sh" <<<"$log"
check "log FILE OVER line for BackupExisting" grep -qxF "FILE	OVER	$win_root/etc\\settings.conf" <<<"$log"
check "log lists itself and the backup" \
  test "$(grep -cxF -e "FILE	CREATE	$win_log" -e "FILE	CREATE	$win_root/uninstall\\backup.bin" <<<"$log")" -eq 2
check "log has a FILE line for each installed file" \
  test "$(grep -c '^FILE' <<<"$log")" -eq "$(find "$root" -type f | wc -l)"
check "backup: magic, NUL, end record and nothing else" \
  test "$(od -An -tx1 -v "$root/uninstall/backup.bin" | tr -d ' \n')" = \
  "$(printf '%s\n' "$magic" | od -An -tx1 -v | tr -d ' \n')00010000"

# The entry with its texts, the program in quotes as the template names it
# (without ".exe": Windows finds the program by its name alone); the icon
# names the file itself.
win_program="$win_root/uninstall/qlux-uninstall"
check "the entry has eight texts" test "$(entry | grep -c ' REG_SZ ')" -eq 8
check "DisplayIcon: $(entry_value DisplayIcon)" test "$(entry_value DisplayIcon)" = "\"$win_program.exe\""
check "DisplayName and DisplayVersion" test "$(entry_value DisplayName)|$(entry_value DisplayVersion)" = "$product|1.0.0"
check "HelpLink and the template's Publisher" \
  test "$(entry_value HelpLink)|$(entry_value Publisher)" = "https://lifecycle.example.org|${product% Product} Works"
check "InstallLocation: $(entry_value InstallLocation)" test "$(entry_value InstallLocation)" = "$win_root"
check "UninstallString" test "$(entry_value UninstallString)" = \
  "\"$win_program\" -uninstall=\"$win_root/uninstall/install.log\" -uninstallApp=\"$product\""

# --- Removing through the registered command --------------------------------------
# A file of the user's in an installed folder, and one the product made.
echo "my notes" >"$root/bin/notes.txt"
mkdir -p "$root/var" && echo "scratch" >"$root/var/run.tmp"
cp "$log_file" "$case_dir/install.log.saved"
run_uninstaller -debug=1
check "first stage exits 0, got $code" test "$code" -eq 0
copies=$(handover_dir)
check "the log was handed over as qluxuninst.log" cmp -s "$case_dir/install.log.saved" "$copies/qluxuninst.log"
check "the program was handed over as qluxuninst.dll" cmp -s "$setup" "$copies/qluxuninst.dll"
check "the debug log is this run's" test "$debug_log" -nt "$case_dir/started"
check "the second stage ran the copy on the log copy" \
  grep -qF "[ARG 00] -uninstallFile=\"$win_temp\\$(basename "$copies")\\qluxuninst.log\"" "$debug_log"
check "the second stage was told the application" grep -qF "[ARG 01] -uninstallApp=\"$product\"" "$debug_log"
check "the second stage removed files" grep -q 'Setting dialog "CopyProgress"' "$debug_log"
check "and ends on Finish: a folder kept for the user's file is no failure" \
  grep -q 'Setting dialog "Finish"' "$debug_log"
left=""
while IFS=$'\t' read -r tag_ mode path; do
  [ "$tag_" = FILE ] && [ "$mode" = CREATE ] && [ -e "$(unix_path "$path")" ] && left="$left $path"
done < <(win_lines "$case_dir/install.log.saved")
check "every file logged CREATE is gone:$left" test -z "$left"
# The second stage shares the first one's console, so its text is in the
# output as well.
check "the folder kept for the user's file is reported" holds "$out" "kept: 1 file that the installation did not make, in $win_root/bin"
# The settings file is logged OVER (BackupExisting); the backup restored
# without error, so it counts as the file that stood there before, and stays.
check "the file logged OVER stays" cmp -s "$data/v1/etc/settings.conf" "$root/etc/settings.conf"
for dir in lib extras uninstall var; do
  check "directory $dir is gone" test ! -e "$root/$dir"
done
check "the user's file stays" test "$(cat "$root/bin/notes.txt" 2>/dev/null)" = "my notes"
check "their folders stay" test "$(ls -A "$root" 2>/dev/null | tr '\n' ' ')" = "bin etc "
check "the entry is unregistered" unregistered

# --- Upgrading: version 2 over version 1 -----------------------------------------
use_case "upgrade"
run_installer v1 -auto
backups_before=$(temp_backups)
run_installer v2 -auto -backup=1 -debug=1
check "upgrade exits 0, got $code" test "$code" -eq 0
check "upgrade succeeds" holds "$out" "Automatic installation was successful!"
check "version 1 was found" grep -q "VAR	PREVIOUSINSTALLATION	1" "$log_file"
check "the debug log is this run's" test "$debug_log" -nt "$case_dir/started"
check "version 1 removed in the process" grep -q 'Setting dialog "Uninstall"' "$debug_log"
check "version 1's files were deleted through its log" holds "$out" "Delete $win_root/lib\\v1only.txt"
check "version 1's own file is gone" test ! -e "$root/lib/v1only.txt"
check "and its folder" test ! -e "$root/lib"
for file in readme.txt bin/tool.sh etc/settings.conf extras/extra.txt; do
  check "version 2's $file" cmp -s "$data/v2/$file" "$root/$file"
done
check "version 2's file in its second folder" cmp -s "$data/v2/share/data.txt" "$shared/data.txt"
check "the new log is version 2's" \
  test "$(grep -c 'lib.v1only.txt' "$log_file") $(grep -c "^FILE	CREATE	.* Shared.data.txt" "$log_file")" = "0 1"
check "ROOT kept from version 1" grep -qxF "VAR	ROOT	$win_root" <<<"$(win_lines "$log_file")"
check "registered version 2.0.0" test "$(entry_value DisplayVersion)" = "2.0.0"
check "no backup of version 1 left behind" test "$(temp_backups)" = "$backups_before"

# Version 2 goes through its registered command, without -debug: the second
# stage deletes its log copy, and its program copy when Windows next starts.
run_uninstaller
check "version 2's uninstaller exits 0, got $code" test "$code" -eq 0
check "version 2's uninstaller reports success" holds "$out" "Automatic uninstallation was successful!" ||
  printf '%s\n' "--- its output:" "$out" "--- its errors:" "$(tail -n 40 "$case_dir/uninstall.err")" "---"
# Windows can't delete a program while it runs: the copy stays in the
# directory of the hand-over until Windows next starts, and only the log
# copy goes.
copies=$(handover_dir)
check "the log copy is gone after the second stage" test ! -e "$copies/qluxuninst.log"
check "the program copy stays until Windows next starts" cmp -s "$setup" "$copies/qluxuninst.dll"
check "version 2's folders are gone" test ! -e "$root/bin" -a ! -e "$root/uninstall" -a ! -e "$shared"
check "version 2's entry is gone" unregistered

# --- The quiet command waits and gives its code ----------------------------------
# QuietUninstallString has -wait: the first stage stays until the second has
# ended and exits with its code. Its own running program steps out of its
# folder first, so that folder goes too; when the uninstallation fails it comes
# back, since the entry still names it.
# run_quiet: runs the registered QuietUninstallString through cmd, which
# passes its exit code on; no settle: it must have waited itself.
run_quiet() {
  printf '@echo off\r\n%s\r\nexit /b %%errorlevel%%\r\n' "$(entry_value QuietUninstallString)" >"$case_dir/quiet.bat"
  runwine cmd /c "$(dos_path "$case_dir/quiet.bat")" </dev/null >/dev/null 2>&1
  code=$?
}
use_case "quiet"
run_installer v1 -auto
mv "$root/uninstall/install.xml" "$case_dir/install.xml.saved"
run_quiet
check "a failing quiet uninstall exits 1, got $code" test "$code" -eq 1
check "its uninstaller is back in place" cmp -s "$setup" "$root/uninstall/qlux-uninstall.exe"
mv "$case_dir/install.xml.saved" "$root/uninstall/install.xml"
run_quiet
check "the quiet uninstall exits 0, got $code" test "$code" -eq 0
# Only the file that BackupExisting saved stays, as it does without -wait.
check "when it returns the product is gone, its uninstaller's folder too" \
  test "$(cd "$root" 2>/dev/null && find . | sort | tr '\n' ' ')" = ". ./etc ./etc/settings.conf "
check "the entry is gone when it returns" unregistered
settle

# --- A failed upgrade is reverted -------------------------------------------------
# A directory stands where version 2 has to write a file, so its file stage
# fails; the revert removes version 2 and brings version 1 back.
use_case "revert"
run_installer v1 -auto
before=$(contents "$root")
entry_before=$(entry)
backups_before=$(temp_backups)
mkdir -p "$shared/data.txt"
run_installer v2 -auto -backup=1 -debug=1
check "the file stage fails" holds "$out" "FAILED to create $win_shared\\data.txt"
check "the debug log is this run's" test "$debug_log" -nt "$case_dir/started"
check "the walk reaches RevertInstallation" grep -q 'Setting dialog "RevertInstallation"' "$debug_log"
check "the revert ran" grep -q "Reverting installation!" "$debug_log"
check "the revert restored version 1" grep -q "Unpacking backup of previous installation" "$debug_log"
check "the walk ends on BadFinish" grep -q 'Setting dialog "BadFinish"' "$debug_log"
check "version 1 is back, byte for byte, with its folders" test "$(contents "$root")" = "$before"
check "version 1's entry stays" test "$(entry)" = "$entry_before"
check "the obstacle is left alone" test -d "$shared/data.txt"
check "no backup of version 1 left behind" test "$(temp_backups)" = "$backups_before"

# --- A product name with a '/' ----------------------------------------------------
# The name is one key of the list of installed programs, and the uninstall
# leaves no key of its first part behind.
no_key() { ! runwine reg query "$1" >/dev/null 2>&1; }
use_case "slash"
first_part=$product
product="$product/Part"
sed -i "s|<Fullname>$first_part</Fullname>|<Fullname>$product</Fullname>|" "$case_dir/stage/v1/install.xml"
"$pack" --stub "$setup" --template "$case_dir/stage/v1/install.xml" --source "$case_dir/stage/v1" \
  -o "$case_dir/v1-setup.exe" >/dev/null
run_installer v1 -auto
check "a '/' name installs" holds "$out" "Automatic installation was successful!"
check "its entry is one key" test "$(entry_value DisplayName)" = "$product"
check "with no key of the name's first part" no_key "$uninstall_key\\$first_part"
run_uninstaller
check "the '/' entry is gone" unregistered
check "and nothing of it is left" no_key "$uninstall_key\\$first_part"

# --- An INI key in another case ---------------------------------------------------
# Windows reads INI names without regard to case: the template's Key="home"
# changes the file's Home line in place of writing a second one, and the
# uninstallation puts the old value back.
use_case "ini"
ini="$case_dir/settings.ini"
printf '[Paths]\r\nHome=C:\\old\r\nother=1\r\n' >"$ini"
win_ini=$(dos_path "$ini")
sed -i "s|</Installation>|<IniFiles><Add FileName=\"${win_ini//\\/\\\\}\" Section=\"paths\" Key=\"home\">[ROOT]</Add></IniFiles>&|" \
  "$case_dir/stage/v1/install.xml"
"$pack" --stub "$setup" --template "$case_dir/stage/v1/install.xml" --source "$case_dir/stage/v1" \
  -o "$case_dir/v1-setup.exe" >/dev/null
run_installer v1 -auto
check "the INI case installs" holds "$out" "Automatic installation was successful!"
check "one Home line, the file's spelling, the new value" \
  test "$(tr -d '\r' <"$ini" | grep -i '^home=')" = "Home=$win_root"
check "the section keeps its spelling and its other key" \
  test "$(tr -d '\r' <"$ini" | grep -c -e '^\[Paths\]$' -e '^other=1$')" -eq 2
run_uninstaller
check "the uninstallation puts the old value back" \
  test "$(tr -d '\r' <"$ini" | grep -i '^home=')" = 'Home=C:\old'

# --- A log that can't be placed ---------------------------------------------------
# The log's folder is never made: without its log the product could never
# be uninstalled, so the run fails with the reason and is reverted.
use_case "nolog"
sed -i -e 's|<InstallLogFile>\[ROOT\]/uninstall/install.log|<InstallLogFile>[ROOT]/logs/install.log|' \
  -e 's| BackupExisting="1"||' "$case_dir/stage/v1/install.xml"
# The builder refuses a log place that nothing makes unless told otherwise.
"$pack" --stub "$setup" --template "$case_dir/stage/v1/install.xml" --source "$case_dir/stage/v1" --no-strict \
  -o "$case_dir/v1-setup.exe" >/dev/null
run_installer v1 -auto -debug=1
check "the reason is shown" holds "$out" "FAILED to write the action log"
check "the installation fails" holds "$out" "There were errors during the installation."
check "the revert runs" grep -q "Reverting installation!" "$debug_log"
check "nothing is registered" unregistered
check "nothing of the product stays" test ! -e "$root"

# --- Append to an empty environment variable ------------------------------------
# A variable that is there but empty gets the separator and the value, as
# an existing one does; the uninstallation takes the text out again, and
# the joining separator stays, as it does for any list. The variable has
# the sandbox's mark in its name, and stays in the prefix.
use_case "env"
env_key='HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment'
variable="QLUX_EMPTY_$tag"
runwine reg add "$env_key" /v "$variable" /t REG_SZ /d "" /f >/dev/null 2>&1
check "the empty variable is there" test "$(reg_type "$env_key" "$variable")" = REG_SZ
sed -i "s|</Installation>|<Environment><Append VarName=\"$variable\">[ROOT]</Append></Environment>&|" \
  "$case_dir/stage/v1/install.xml"
"$pack" --stub "$setup" --template "$case_dir/stage/v1/install.xml" --source "$case_dir/stage/v1" \
  -o "$case_dir/v1-setup.exe" >/dev/null
run_installer v1 -auto
check "the Append case installs" holds "$out" "Automatic installation was successful!"
check "old value, separator, new value: $(reg_value "$env_key" "$variable")" \
  test "$(reg_value "$env_key" "$variable")" = ";$win_root"
run_uninstaller
check "the uninstallation takes the text out" test "$(reg_value "$env_key" "$variable")" = ";"

check_planted
finish
