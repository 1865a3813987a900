#!/usr/bin/env bash
# The Windows program under Wine: a package that the Linux qlux-pack writes
# onto qlux-setup.exe verifies and loads; the debug log has CR LF lines.
# Needs WINEPREFIX set to a prefix that wineboot has made.
# Wine keeps its server's socket under $TMPDIR: every Wine command here runs
# with the TMPDIR that the prefix was made with, or a second server would
# start on the same prefix.
wine_tmp=${TMPDIR:-/tmp}
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
[ $# -ge 2 ] && pack=$(realpath "$2")
source "$here/lib.sh"
source "$here/wine_lib.sh"
data="$here/data/tiny"

installer="$sandbox/tiny-setup.exe"
"$pack" --stub "$setup" --template "$data/install.xml" --source "$data" -o "$installer"
check "qlux-pack onto the Windows stub exits 0" test $? -eq 0

logs() { find "$WINEPREFIX/drive_c/users" -name installer_debug.log 2>/dev/null | head -n 1; }
rm -f "$(logs)"
runwine "$installer" -auto -debug=1 </dev/null >"$sandbox/out.txt" 2>/dev/null; code=$?
out=$(tr -d '\r' <"$sandbox/out.txt")
# Wine can hand back control a moment before the program's last writes are
# visible: wait for the log's last line.
for _ in $(seq 100); do
  log=$(logs)
  [ -n "$log" ] && grep -q "Installation finished" "$log" && break
  sleep 0.1
done
check "installer exits 0 under Wine, got $code" test "$code" -eq 0
check "debug log written" test -n "$log"
check "checksum verified" grep -q "Checksum successfuly verified" "$log"
check "package unpacked" grep -q "Finished file headers initialization." "$log"
check "unattended run succeeds" grep -q "Automatic installation was successful!" <<<"$out"
check "files installed beside the installer" cmp -s "$data/readme.txt" "$sandbox/Tiny/readme.txt"
check "action log in place" grep -q "^FILE" "$sandbox/Tiny/uninstall/install.log"
check "lines end in CR LF" test "$(grep -c $'\r$' "$log")" -eq "$(wc -l <"$log")"

damaged="$sandbox/damaged.exe"
cp "$installer" "$damaged"
size=$(stat -c %s "$damaged")
printf '\x5a' | dd of="$damaged" bs=1 seek=$((size - 100)) conv=notrunc status=none
out=$(runwine "$damaged" -gui=0 </dev/null 2>/dev/null | tr -d '\r')
check "damage told to the user" grep -qF "The checksum of the installer doesn't match." <<<"$out"

finish
