#!/usr/bin/env bash
# The demo product on Windows, run under Wine: examples/demo packed onto the
# Windows program is installed unattended into the program directory, with
# its entry in the list of installed programs, a shell link, the machine-wide
# environment, an INI key, a registry value, a firewall port and a run of
# the installed command script; then the registered UninstallString, run by
# cmd as that list runs it, hands over to a copy of the program in the
# temporary directory, which takes every one of those changes back. The
# machine's PATH, an expandable text with %SystemRoot% entries as on every
# Windows, keeps its type and those entries throughout. DLLs planted beside
# the installer and in the temporary directory under system DLL names are
# never loaded (tests/wine_lib.sh).
# Usage: windows_demo_test.sh SETUP_EXE PACK, with WINEPREFIX set to a prefix
# that wineboot has made.
#
# Wine keeps its server's socket under $TMPDIR: every Wine command here runs
# with the TMPDIR that the prefix was made with, or a second server would
# start on the same prefix.
#
# The prefix may be shared and used again: the product's name, and with it
# its folder, registry key and link, and its environment variable carry the
# sandbox's random suffix. The script deletes nothing outside its sandbox;
# what goes into the prefix goes through the product's own uninstaller.
wine_tmp=${TMPDIR:-/tmp}
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
source "$here/wine_lib.sh"
demo="$here/../examples/demo"
environment_key='HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment'
tag=${sandbox##*.}
product="Qlux Demo $tag"
home_variable="QLUX_DEMO_HOME_$tag"

lacks() { ! holds "$@"; }

# key_gone PARENT CHILD: PARENT can be listed and has no key CHILD, so that a
# failing `reg` doesn't pass for a removed key.
key_gone() {
  local keys line
  keys=$(runwine reg query "$1" 2>/dev/null) || return 1
  while IFS= read -r line; do
    line=${line%$'\r'}
    [[ "${line,,}" == *"\\${2,,}" ]] && return 1
  done <<<"$keys"
  return 0
}

find_wine_places

# The product: the demo's files, its names marked with the suffix, and the
# Windows program beside them as the uninstaller.
stage="$sandbox/stage"
mkdir -p "$stage" "$sandbox/run"
cp -r "$demo/." "$stage/"
sed -i -e "s/Qlux Demo/$product/g" -e "s/QLUX_DEMO_HOME/$home_variable/g" "$stage/install.xml"
cp "$setup" "$stage/qlux-uninstall.exe"
"$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" -o "$sandbox/run/demo-setup.exe" \
  >/dev/null || { echo "FAILED: packing the demo"; exit 1; }

# The installation folder reads "C:\Program Files\Qlux Demo ..."; the paths
# that the template builds below it keep the "/" that it writes.
win_root="$program_files\\$product"
root=$(unix_path "$win_root")
link="$root/shortcuts/$product.lnk"
# PATH as Windows keeps it: REG_EXPAND_SZ with %SystemRoot% entries. A new
# prefix has it so; any other is put so for this test and back at its end.
path_original=$(reg_value "$environment_key" PATH)
path_type_original=$(reg_type "$environment_key" PATH)
if [ "$path_type_original" != REG_EXPAND_SZ ] || ! holds "$path_original" '%SystemRoot%\system32'; then
  runwine reg add "$environment_key" /v PATH /t REG_EXPAND_SZ \
    /d '%SystemRoot%\system32;%SystemRoot%;%SystemRoot%\system32\wbem' /f >/dev/null 2>&1
  settle
fi
path_before=$(reg_value "$environment_key" PATH)
check "PATH is REG_EXPAND_SZ with %SystemRoot% entries before: $path_before" \
  test "$(reg_type "$environment_key" PATH)" = REG_EXPAND_SZ

plant_dlls "$sandbox/run" "$temp_dir"

# --- Installing -------------------------------------------------------------------
touch "$sandbox/started"
out=$(cd "$sandbox/run" && runwine ./demo-setup.exe -gui=0 -auto -debug=1 </dev/null 2>/dev/null | tr -d '\r')
code=${PIPESTATUS[0]}
settle
check "install exits 0, got $code" test "$code" -eq 0
check "install succeeds" holds "$out" "Automatic installation was successful!"
check "the debug log is this run's" test "$debug_log" -nt "$sandbox/started"
check "installed under the program directory: $root" test -d "$root"
for file in readme.txt bin/qlux-demo.cmd etc/demo.conf doc/guide.txt samples/colours.csv; do
  check "installed $file" cmp -s "$demo/$file" "$root/$file"
done
check "the Linux program stays out" test ! -e "$root/bin/qlux-demo"
check "the uninstaller keeps its .exe" cmp -s "$setup" "$root/uninstall/qlux-uninstall.exe"
log_file="$root/uninstall/install.log"
log=$(win_lines "$log_file" 2>/dev/null)

# The entry with its values. The template names the uninstaller without
# ".exe", as Windows starts it; the icon names the file itself.
win_program="$win_root/uninstall/qlux-uninstall"
check "the entry has eight texts" test "$(entry | grep -c ' REG_SZ ')" -eq 8
check "DisplayIcon: $(entry_value DisplayIcon)" test "$(entry_value DisplayIcon)" = "\"$win_program.exe\""
check "DisplayName and DisplayVersion" test "$(entry_value DisplayName)|$(entry_value DisplayVersion)" = "$product|1.2.0"
check "HelpLink and Publisher" \
  test "$(entry_value HelpLink)|$(entry_value Publisher)" = "https://qlux.example.org/demo|Halvo Software Ltd"
check "UninstallString: $(entry_value UninstallString)" test "$(entry_value UninstallString)" = \
  "\"$win_program\" -uninstall=\"$win_root/uninstall/install.log\" -uninstallApp=\"$product\""
check "QuietUninstallString: $(entry_value QuietUninstallString)" \
  test "$(entry_value QuietUninstallString)" = "$(entry_value UninstallString) -gui=0 -quiet=1 -wait"
check "InstallLocation: $(entry_value InstallLocation)" test "$(entry_value InstallLocation)" = "$win_root"
check "NoModify and NoRepair" test "$(entry_value NoModify)|$(entry_value NoRepair)" = "0x1|0x1"
# The installed files' size in KB, rounded up (a DWORD, shown in hex). The
# log and the backup grow after the entry is written: a few KB may differ.
size_kb=$(( ($(find "$root" -type f -printf '%s+') 1023) / 1024 ))
estimated=$(( $(entry_value EstimatedSize) ))
check "EstimatedSize: $estimated KB, the files take $size_kb KB" test $((size_kb - estimated)) -le 16 -a \
  $((estimated - size_kb)) -le 16

# The program ran once through cmd, waited for, in its folder.
check "AdditionalInstall ran the command script" test -s "$root/var/last-run.log"
check "the run is logged" grep -qF "Running Files for installation tag: <AdditionalInstall>" "$debug_log"

# The shell link: a .lnk file that names the command script; the path stands
# in it as ANSI or UTF-16 text, and without the NUL bytes both read alike.
link_names() { tr -d '\000' <"$1" | grep -aqiF -- "$2"; }
check "the link exists: $link" test -f "$link"
check "the link starts with the shell link header" \
  test "$(head -c 4 "$link" 2>/dev/null | od -An -tx1 | tr -d ' ')" = "4c000000"
check "the link names the command script" link_names "$link" "$product\\bin\\qlux-demo.cmd"
check "the link is logged" grep -qE "^SHORTCUT	CREATE	.*shortcuts.$product\.lnk$" <<<"$log"

# The machine-wide environment. PATH keeps its type, and its %SystemRoot%
# entries stay as they were, unexpanded.
path_now=$(reg_value "$environment_key" PATH)
check "PATH was appended to" grep -qE "^ENV	ADD	PATH	.*$product.bin$" <<<"$log"
check "PATH is the old one with the program's folder behind: $path_now" \
  test "$path_now" = "${path_before%;};$win_root/bin"
check "PATH stays REG_EXPAND_SZ" test "$(reg_type "$environment_key" PATH)" = REG_EXPAND_SZ
home_now=$(reg_value "$environment_key" "$home_variable")
check "$home_variable names the installation: $home_now" \
  test "$(dos_path "$(unix_path "$home_now")")" = "$(dos_path "$root")"
check "$home_variable is logged as created" grep -qxF "ENV	CREATE	$home_variable" <<<"$log"

# The INI key.
check "the INI key is in demo.ini" grep -qE "^Home=.*$product$" <(win_lines "$root/etc/demo.ini")
check "the INI file keeps its own lines" grep -qxF "Greeting=Hello" <(win_lines "$root/etc/demo.ini")

# The registry value in a key of its own.
demo_key="HKLM\\Software\\$product"
install_dir=$(reg_value "$demo_key" InstallDir)
check "registry value InstallDir: $install_dir" test "$(dos_path "$(unix_path "$install_dir")")" = "$(dos_path "$root")"
check "the new key is logged" grep -qxF "REGKEY	1	HKEY_LOCAL_MACHINE	Software\\$product" <<<"$log"
check "and the value" grep -qxF "REGVAL	HKEY_LOCAL_MACHINE	Software\\$product	InstallDir" <<<"$log"

# The firewall port: opened through the firewall's COM interfaces, or, where
# Wine lacks a part of them, the failure is in the debug log and the
# installation went on.
if grep -qxF "FIREWALL	PORT	TCP 8080" <<<"$log"; then
  firewall=added
  check "the port is reported as added" holds "$out" "Firewall: Added port 8080"
else
  firewall=failed
  check "the port's failure is in the debug log" grep -qF "ERROR: (Firewall Port)" "$debug_log"
  check "and reported" holds "$out" "Firewall: FAILED to add port 8080"
fi
echo "firewall port: $firewall"

# --- Removing through the registered command --------------------------------------
cp "$log_file" "$sandbox/install.log.saved"
command=$(entry_value UninstallString)
touch "$sandbox/started"
printf '@echo off\r\n%s -gui=0 -debug=1\r\n' "$command" >"$sandbox/uninstall.bat"
out=$(runwine cmd /c "$(dos_path "$sandbox/uninstall.bat")" </dev/null 2>"$sandbox/uninstall.err" | tr -d '\r')
code=${PIPESTATUS[0]}
settle
check "first stage exits 0, got $code" test "$code" -eq 0
copies=$(handover_dir)
check "the program was handed over as qluxuninst.dll" cmp -s "$setup" "$copies/qluxuninst.dll"
check "the log was handed over as qluxuninst.log" cmp -s "$sandbox/install.log.saved" "$copies/qluxuninst.log"
check "the debug log is this run's" test "$debug_log" -nt "$sandbox/started"
check "the second stage ran the copy on the log copy" \
  grep -qF "[ARG 00] -uninstallFile=\"$win_temp\\$(basename "$copies")\\qluxuninst.log\"" "$debug_log"
check "the uninstallation succeeds" holds "$out" "Automatic uninstallation was successful!" ||
  printf '%s\n' "--- its output:" "$out" "--- its errors:" "$(tail -n 40 "$sandbox/uninstall.err")" "---"

left=""
while IFS=$'\t' read -r kind mode path; do
  [ "$kind" = FILE ] && [ "$mode" = CREATE ] && [ -e "$(unix_path "$path")" ] && left="$left $path"
done < <(win_lines "$sandbox/install.log.saved")
check "every file logged CREATE is gone:$left" test -z "$left"
check "the link is gone" test ! -e "$link"
check "the installation folder is gone, with all below it" test ! -e "$root"
check "the entry is unregistered" key_gone "$uninstall_key" "$product"
check "the registry key is gone" key_gone 'HKLM\Software' "$product"
check "$home_variable is gone" test -z "$(reg_line "$environment_key" "$home_variable")"
path_after=$(reg_value "$environment_key" PATH)
check "PATH no longer holds the program's folder" lacks "${path_after,,}" "${product,,}"
# Appending keeps only the text it added in the log, and taking it out again
# leaves the list as it was but for a separator.
check "PATH is as before but for a separator: $path_after" \
  test "${path_after%;}" = "${path_before%;}"
# Wine's firewall has no removal of ports (E_NOTIMPL, 0x80004001): there the
# failure is in the debug log, and the uninstallation goes on.
port_removed() {
  holds "$out" "Removed port from firewall: TCP 8080" ||
    grep -qF "ERROR: (Firewall Port) Removing port 8080! Error (-2147467263)" "$debug_log"
}
if [ "$firewall" = added ]; then
  check "the port is removed from the firewall, or Wine can't remove it" port_removed
fi

# PATH keeps its type; taking the appended text out leaves the separator
# that joined it, as the log holds only the text.
check "PATH is REG_EXPAND_SZ again" test "$(reg_type "$environment_key" PATH)" = REG_EXPAND_SZ
check "PATH has its %SystemRoot% entries" holds "$path_after" '%SystemRoot%\system32;%SystemRoot%'
check_planted

if [ "$(reg_type "$environment_key" PATH)|$(reg_value "$environment_key" PATH)" != \
  "$path_type_original|$path_original" ] && [ -n "$path_type_original" ]; then
  runwine reg add "$environment_key" /v PATH /t "$path_type_original" /d "$path_original" /f >/dev/null 2>&1
  settle
fi

finish
