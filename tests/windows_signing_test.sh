#!/usr/bin/env bash
# A signed installer: a package that qlux-pack writes onto the Windows
# program and that is then signed with Authenticode (osslsigncode, with a
# throwaway certificate) keeps its own checksum and installs under Wine, and
# its signature verifies. Signing leaves the package alone: only the
# image's header (its checksum and its certificate entry, both in the
# first 5,000 bytes that the checksum doesn't cover) changes, and the
# certificate table goes behind the checksum record. A signed installer
# whose package was changed afterwards fails both its checksum and its
# signature; a stub signed before packing loses its signature.
# Usage: windows_signing_test.sh SETUP_EXE PACK, with WINEPREFIX set to a
# prefix that wineboot has made.
#
# Wine keeps its server's socket under $TMPDIR: every Wine command here runs
# with the TMPDIR that the prefix was made with, or a second server would
# start on the same prefix.
wine_tmp=${TMPDIR:-/tmp}
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
source "$here/wine_lib.sh"
data="$here/data/tiny"

for tool in osslsigncode openssl; do
  command -v "$tool" >/dev/null || { echo "FAILED: $tool is missing (scripts/setup.sh installs it)"; exit 1; }
done

# A certificate for code signing that lives two days, made for this run.
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$sandbox/key.pem" -out "$sandbox/cert.pem" -days 2 \
  -subj "/CN=Qlux Test Signing" -addext "extendedKeyUsage=codeSigning" >/dev/null 2>&1 ||
  { echo "FAILED: making the certificate"; exit 1; }
sign() {  # sign IN OUT
  osslsigncode sign -certs "$sandbox/cert.pem" -key "$sandbox/key.pem" -n "Tiny Product" -in "$1" -out "$2" \
    >"$sandbox/sign.out" 2>&1
}
verifies() { osslsigncode verify -CAfile "$sandbox/cert.pem" -in "$1" >"$sandbox/verify.out" 2>&1; }

mkdir -p "$sandbox/run"
unsigned="$sandbox/tiny-unsigned.exe"
signed="$sandbox/run/tiny-setup.exe"
"$pack" --stub "$setup" --template "$data/install.xml" --source "$data" -o "$unsigned" >/dev/null ||
  { echo "FAILED: packing"; exit 1; }
check "osslsigncode signs the packed installer" sign "$unsigned" "$signed"
check "its signature verifies" verifies "$signed"
check "the verification says so" grep -qx "Signature verification: ok" "$sandbox/verify.out"

# What signing changed: from byte 5000 to the end of the checksum record
# nothing; behind it, only the certificate table (after padding to a
# multiple of eight).
size=$(stat -c %s "$unsigned")
check "from byte 5000 to the checksum record the files are alike" \
  cmp -s <(tail -c +5001 "$unsigned") <(head -c "$size" "$signed" | tail -c +5001)
check "the checksum record ends the unsigned part" test "$(tail -c 23 "$unsigned" | head -c 7)" = "v2sum: "
table=$(/usr/bin/python3 - "$signed" <<'PYTHON'
import pefile, sys
pe = pefile.PE(sys.argv[1], fast_load=True)
entry = pe.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_SECURITY"]]
print(entry.VirtualAddress, entry.Size)
PYTHON
)
read -r table_at table_size <<<"$table"
check "the certificate table ($table) starts behind the record and ends the file" \
  test "$table_at" -ge "$size" -a "$table_at" -lt $((size + 8)) -a $((table_at + table_size)) -eq "$(stat -c %s "$signed")"

# Installed under Wine from the signed file, beside planted DLLs.
plant_dlls "$sandbox/run"
rm -f "$(find "$WINEPREFIX/drive_c/users" -name installer_debug.log 2>/dev/null | head -n 1)"
out=$(cd "$sandbox/run" && runwine ./tiny-setup.exe -auto -debug=1 </dev/null 2>/dev/null | tr -d '\r')
code=${PIPESTATUS[0]}
settle
log=$(find "$WINEPREFIX/drive_c/users" -name installer_debug.log 2>/dev/null | head -n 1)
check "the signed installer exits 0, got $code" test "$code" -eq 0
check "its checksum verifies" grep -q "Checksum successfuly verified" "$log"
check "it installs" holds "$out" "Automatic installation was successful!"
check "the files are there" cmp -s "$data/readme.txt" "$sandbox/run/Tiny/readme.txt"
check_planted

# A byte of the package changed after signing: the checksum and the
# signature both tell.
damaged="$sandbox/damaged.exe"
cp "$signed" "$damaged"
flip_byte "$damaged" $((size - 100))
check "a changed signed installer fails its signature" bash -c "! osslsigncode verify -CAfile '$sandbox/cert.pem' -in '$damaged' >/dev/null 2>&1"
out=$(runwine "$damaged" -gui=0 </dev/null 2>/dev/null | tr -d '\r')
settle
check "and its checksum" grep -qF "The checksum of the installer doesn't match." <<<"$out"

# The stub signed first: packing writes the package's offset into the image
# and puts the package behind the signature, so the signature no longer
# matches the file.
sign "$setup" "$sandbox/signed-stub.exe"
"$pack" --stub "$sandbox/signed-stub.exe" --template "$data/install.xml" --source "$data" \
  -o "$sandbox/packed-after.exe" >/dev/null
check "a stub signed before packing no longer verifies" bash -c "! osslsigncode verify -CAfile '$sandbox/cert.pem' -in '$sandbox/packed-after.exe' >/dev/null 2>&1"

finish
