#!/usr/bin/env bash
# qlux-pack onto the real installer program: the installer verifies its own
# file and loads the package behind its image; damage is refused with the
# user's message; a bare package loads through -bin.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
[ $# -ge 2 ] && pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/tiny"

new_sandbox "pack"
mkdir -p "$QLUX_ROOT/opt"
installer="$sandbox/tiny-setup"
"$pack" --stub "$setup" --template "$data/install.xml" --source "$data" -o "$installer"
check "qlux-pack exits 0" test $? -eq 0
check "the installer keeps the stub's mode" test -x "$installer"

# An installer that can't be given the stub's mode wouldn't start: the
# failed chmod (refused by a preloaded shim) fails qlux-pack with the reason,
# and nothing is left behind.
cc -shared -fPIC -o "$sandbox/chmod_shim.so" "$here/chmod_shim.c" -ldl || { echo "FAILED: building the shim"; exit 1; }
mkdir "$sandbox/nochmod"
out=$(LD_PRELOAD="$sandbox/chmod_shim.so" QLUX_CHMOD_FAIL=/nochmod/ \
      "$pack" --stub "$setup" --template "$data/install.xml" --source "$data" -o "$sandbox/nochmod/tiny-setup" 2>&1)
code=$?
check "a failed chmod fails qlux-pack, got $code" test "$code" -ne 0
check "the failed chmod is named" grep -q "cannot give .* the permissions of its stub: Operation not permitted" <<<"$out"
check "nothing is left where the installer would go" test -z "$(ls -A "$sandbox/nochmod")"

out=$("$installer" -gui=0 -debug=1); code=$?
log="$TMPDIR/installer_debug.log"
check "installer exits 0, got $code" test "$code" -eq 0
check "no checksum message for a whole file" test -z "$(grep "checksum of the installer" <<<"$out")"
check "checksum verified" grep -q "Checksum successfuly verified" "$log"
check "offset logged" grep -q "Initializing with file=\"$installer\", offset=$(stat -c %s "$setup")" "$log"
check "package unpacked" grep -q "Finished file headers initialization." "$log"

# An unattended run walks the wizard to its last page on the console and
# installs the product beside the installer (its own folder, so that no
# earlier run has made anything there).
mkdir -p "$sandbox/fresh"
cp -p "$installer" "$sandbox/fresh/tiny-setup"
out=$("$sandbox/fresh/tiny-setup" -auto -debug=1 </dev/null); code=$?
product="$sandbox/fresh/Tiny"
check "unattended run exits 0, got $code" test "$code" -eq 0
check "unattended run succeeds" grep -q "Automatic installation was successful!" <<<"$out"
check "wizard reached the last page" grep -q 'Setting dialog "Finish"' "$log"
check "files installed beside the installer" cmp -s "$data/readme.txt" "$product/readme.txt"
check "executable entry is executable" test -x "$product/bin/tool.sh"
check "action log in place" grep -q "^FILE" "$product/uninstall/install.log"
check "template copy in place" cmp -s "$data/install.xml" "$product/uninstall/install.xml"

# The registered command removes it again: the first stage starts a copy of
# the program from the temporary directory, which undoes the log.
"$sandbox/fresh/tiny-setup" -uninstall="$product/uninstall/install.log" -uninstallApp="Tiny Product" -gui=0 \
  </dev/null >/dev/null
check "first stage exits 0" test $? -eq 0
for _ in $(seq 100); do [ -e "$product" ] || break; sleep 0.1; done
check "uninstallation removed every file and directory" test ! -e "$product"

# One flipped byte behind offset 5000 fails the checksum.
damaged="$sandbox/damaged-setup"
cp "$installer" "$damaged"
size=$(stat -c %s "$damaged")
flip_byte "$damaged" $((size - 100))
out=$("$damaged" -gui=0 -debug=1); code=$?
check "damaged installer exits 3, got $code" test "$code" -eq 3
check "damage told to the user" grep -qF "The checksum of the installer doesn't match. This could indicate a broken download." <<<"$out"
check "damage logged" grep -q "ERROR: The installer checksum failed!" "$log"
check "nothing loaded" test "$(grep -c 'Finished file headers' "$log")" -eq 0

# A package that fits one solid block keeps the layout that installers
# read before packages of several blocks existed: tests/data/single-block
# holds the bare package of tests/data/tiny as the builder wrote it then.
kept="$sandbox/tiny-kept.bin"
"$pack" --template "$data/install.xml" --source "$data" -o "$kept" --bare >/dev/null
check "a small package is written byte for byte as before" cmp -s "$kept" "$here/data/single-block/tiny.bin"

# A bare package through -bin, and a file that isn't one.
bare="$sandbox/tiny.bin"
"$pack" --stub "$setup" --template "$data/install.xml" --source "$data" -o "$bare" --bare
out=$("$setup" -gui=0 -debug=1 -bin="$bare"); code=$?
check "bare package loads" grep -q "Finished file headers initialization." "$log"
echo "not a package" >"$sandbox/junk.bin"
out=$("$setup" -gui=0 -debug=1 -bin="$sandbox/junk.bin" 2>/dev/null)
code=$?
check "bad bare package exits 3, got $code" test "$code" -eq 3
check "bad bare package told" grep -qF "The installer failed to initialize with the supplied binary file!" <<<"$out"
check "bad bare package logged" grep -q "ERROR: Initialization with bin file failed with result: -5" "$log"

finish
