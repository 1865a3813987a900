#!/usr/bin/env bash
# The Windows program under Wine: a package that the Linux qlux-pack writes
# onto qlux-setup.exe verifies and loads; the debug log has CR LF lines; a
# [$NAME] of an environment variable with letters outside every ANSI code
# page names the folder it stands for; DLLs planted beside the installer
# under system DLL names are never loaded (tests/wine_lib.sh); --help and
# --version answer on the console.
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
# The tiny product, and one more copy of its readme in a folder that an
# environment variable names.
stage="$sandbox/stage"
cp -r "$data" "$stage"
sed -i 's|<FN Dest="\[ROOT\]">readme.txt</FN>|&<FN Dest="[ROOT]/[$QLUX_TINY_FOLDER]" Alias="named">readme.txt</FN>|' \
  "$stage/install.xml"
grep -qF 'QLUX_TINY_FOLDER' "$stage/install.xml" || { echo "FAILED: no [\$QLUX_TINY_FOLDER] in the template"; exit 1; }
"$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" -o "$installer"
check "qlux-pack onto the Windows stub exits 0" test $? -eq 0
plant_dlls "$sandbox"

logs() { find "$WINEPREFIX/drive_c/users" -name installer_debug.log 2>/dev/null | head -n 1; }
rm -f "$(logs)"
# Latin and Cyrillic letters, which no ANSI code page holds together: Wine
# takes the variable from this UTF-8 environment.
folder=$'Zo\xc3\xab \xd0\x96\xd1\x83\xd0\xba'
LC_ALL=C.UTF-8 QLUX_TINY_FOLDER="$folder" runwine "$installer" -auto -debug=1 </dev/null >"$sandbox/out.txt" \
  2>/dev/null; code=$?
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
check "[\$QLUX_TINY_FOLDER] names the folder in UTF-8: $(ls "$sandbox/Tiny" | tr '\n' '|')" \
  cmp -s "$data/readme.txt" "$sandbox/Tiny/$folder/readme.txt"
check "action log in place" grep -q "^FILE" "$sandbox/Tiny/uninstall/install.log"
check "lines end in CR LF" test "$(grep -c $'\r$' "$log")" -eq "$(wc -l <"$log")"

damaged="$sandbox/damaged.exe"
cp "$installer" "$damaged"
size=$(stat -c %s "$damaged")
flip_byte "$damaged" $((size - 100))
out=$(runwine "$damaged" -gui=0 </dev/null 2>/dev/null | tr -d '\r')
check "damage told to the user" grep -qF "The checksum of the installer doesn't match." <<<"$out"

# --help and --version answer on the Windows program's console as well,
# before the checksum and the rights check: the damaged copy answers too.
runwine "$damaged" --help </dev/null >"$sandbox/help.txt" 2>/dev/null; code=$?
out=$(tr -d '\r' <"$sandbox/help.txt")
check "--help exits 0 under Wine, got $code" test "$code" -eq 0
check "--help names the program and its options" grep -q "^usage: damaged.exe \[options\]" <<<"$out"
check "--help lists the exit codes" grep -q "^Exit codes: 0 done, 1 failed" <<<"$out"
out=$(runwine "$damaged" --version </dev/null 2>/dev/null | tr -d '\r')
check "--version under Wine" grep -qE '^qlux-setup [0-9]+\.[0-9]+\.[0-9]+ \(revision [0-9a-f]{12}\)$' <<<"$out"

# A package of several blocks (their limit lowered from 1 GiB), with a file
# split across them, going on in a package file beside the installer; then
# that file missing.
big="$sandbox/big"
cp -r "$data" "$big"
head -c 3000000 /dev/urandom >"$big/big.bin"
sed -i 's|<FN Dest="\[ROOT\]">readme.txt</FN>|&<FN Dest="[ROOT]">big.bin</FN>|' "$big/install.xml"
mkdir -p "$sandbox/split"
"$pack" --stub "$setup" --template "$big/install.xml" --source "$big" -o "$sandbox/split/setup.exe" \
  --block-limit 256K --split $(($(stat -c %s "$setup") + (2 << 20))) --level 0 >/dev/null
check "qlux-pack --split writes a package file" test -s "$sandbox/split/setup-1.qpk"
rm -f "$(logs)"
runwine "$sandbox/split/setup.exe" -auto -debug=1 </dev/null >"$sandbox/out.txt" 2>/dev/null
for _ in $(seq 100); do
  log=$(logs)
  [ -n "$log" ] && grep -q "Installation finished" "$log" && break
  sleep 0.1
done
check "several blocks loaded under Wine" grep -q "Package of [0-9]* blocks.* in 1 package files" "$log"
check "the file split across blocks installed whole" cmp -s "$big/big.bin" "$sandbox/split/Tiny/big.bin"
mv "$sandbox/split/setup-1.qpk" "$sandbox/setup-1.qpk.away"
out=$(runwine "$sandbox/split/setup.exe" -gui=0 </dev/null 2>/dev/null | tr -d '\r')
check "a missing package file is named: $out" grep -qF "can't find its package file" <<<"$out"
check "by its own name" grep -qF "setup-1.qpk." <<<"$out"
check_planted

finish
