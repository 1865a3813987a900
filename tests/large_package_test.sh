#!/usr/bin/env bash
# A product larger than one solid block, packed and installed for real:
# several blocks, a file split across blocks, every file compared by
# SHA-256, uninstalled again; the same product split into package files
# beside the installer, one of them damaged and one missing.
#
#   large_package_test.sh SETUP PACK [small|full]
#
# small (the default, for ctest): a few megabytes, with blocks of 1 MiB and
# parts 3 MiB larger than the stub. full (scripts/test.sh): 6 GiB with one file of 4.5 GiB and
# a thousand small ones in blocks of the format's 1 GiB, parts of 2 GiB, and
# the peak memory of packing and installing held below 256 MB. The payload
# compresses well, so that the full run takes minutes, but no two megabytes
# of it are alike.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
scale=${3:-small}
source "$here/lib.sh"

if [ "$scale" = full ]; then
  big=$((4608 << 20))  # 4.5 GiB
  small_count=1000
  small_size=1600000
  block_option=()
  split=2G
  # Source, installer and installed copy at their largest at once.
  need_kb=$((14 << 20))
  avail_kb=$(df -Pk "$sandbox" | awk 'NR == 2 { print $4 }')
  if [ "$avail_kb" -lt "$need_kb" ]; then
    echo "FAILED: the full run needs 14 GiB free under $sandbox, there are $((avail_kb >> 20)) GiB"
    exit 1
  fi
else
  small_count=40
  small_size=50000
  block_option=(--block-limit 1M)
  # Every file of a split installer stays under the split size, the
  # installer with its stub too: parts 3 MiB larger than the stub (a
  # sanitized one weighs 18 MB), and a big file of two parts' worth, so
  # that there are always at least two package files.
  split_mb=$(( ($(stat -c %s "$setup") + (1 << 20) - 1) / (1 << 20) + 3 ))
  split=${split_mb}M
  big=$(( (2 * split_mb << 20) + 3 ))
fi
memory_limit_kb=$((256 * 1024))

new_sandbox "large"
mkdir -p "$QLUX_ROOT/opt"
src="$sandbox/source"
mkdir -p "$src/files"

# The template and the files, with a manifest of their SHA-256 digests.
python3 - "$src" "$big" "$small_count" "$small_size" <<'EOF'
import hashlib, os, sys
src, big, count, size = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
chunk = 1 << 20
base = bytearray(chunk)
manifest = []

def write(name, length):
    digest = hashlib.sha256()
    with open(os.path.join(src, name), "wb") as out:
        done = 0
        while done < length:
            piece = min(chunk, length - done)
            # A line that names the file and the megabyte, then zeros and a
            # pattern: compresses well, and a misplaced piece shows.
            stamp = ("%s at %d\n" % (name, done)).encode().ljust(64, b".")
            base[0:64] = stamp
            base[chunk // 2:chunk // 2 + 64] = stamp[::-1]
            view = memoryview(base)[:piece]
            out.write(view)
            digest.update(view)
            done += piece
    manifest.append("%s  %s" % (digest.hexdigest(), name))

write("big.bin", big)
entries = ['      <FN Dest="[ROOT]">big.bin</FN>']
for i in range(count):
    name = "files/small%04d.dat" % i
    write(name, size + 7 * i)
    entries.append('      <FN Dest="[ROOT]/files">%s</FN>' % name)
with open(os.path.join(src, "manifest.txt"), "w") as out:
    out.write("\n".join(manifest) + "\n")
with open(os.path.join(src, "install.xml"), "w") as out:
    out.write("""<HalvoWorksInstallation>
  <ProductDesc>
    <Fullname>Large Product</Fullname>
    <MajorVersion>1</MajorVersion><MinorVersion>0</MinorVersion><MinestVersion>0</MinestVersion>
  </ProductDesc>
  <Dialogs>
    <CopyProgress><Progress Name="Overall" x="10" y="40" w="-10" h="20"/></CopyProgress>
    <Finish Special="Finish"><Text x="10" y="10">Done</Text></Finish>
  </Dialogs>
  <UninstallDialogs>
    <CopyProgress><Progress Name="Overall" x="10" y="40" w="-10" h="20"/></CopyProgress>
    <Finish Special="Finish"><Text x="10" y="10">Removed</Text></Finish>
  </UninstallDialogs>
  <Installation>
    <Uninstall>
      <InstallLogFile>[ROOT]/uninstall/install.log</InstallLogFile>
      <InstallBackupFile>[ROOT]/uninstall/backup.bin</InstallBackupFile>
      <UninstallXmlFile>[ROOT]/uninstall/install.xml</UninstallXmlFile>
    </Uninstall>
    <UninstallWildcards><Files Dest="[ROOT]/uninstall">*</Files></UninstallWildcards>
    <InstallerControlVariables><InstallError>INSTALL_ERROR</InstallError><UninstallError>UNINSTALL_ERROR</UninstallError></InstallerControlVariables>
    <DefValues>
      <Value Name="ROOT" DataType="value" UseOld="1">$INSTALLER_DIR/Large</Value>
      <Value Name="INSTALL_ERROR" DataType="value">0</Value>
    </DefValues>
    <FileSet Name="Main">
      <FN Dest="[ROOT]/uninstall">install.xml</FN>
%s
    </FileSet>
  </Installation>
</HalvoWorksInstallation>
""" % "\n".join(entries))
EOF
check "payload generated" test -s "$src/manifest.txt"

# peak_kb FILE: the peak memory that /usr/bin/time -v wrote to FILE.
peak_kb() { awk -F': ' '/Maximum resident set size/ { print $2 }' "$1"; }
# verify DIR: every file of the manifest under DIR has its digest.
verify() { (cd "$1" && sha256sum --quiet -c "$src/manifest.txt"); }
log="$TMPDIR/installer_debug.log"

# Several blocks, one installer.
mkdir -p "$sandbox/one"
installer="$sandbox/one/setup.exe"
/usr/bin/time -v -o "$sandbox/pack.time" "$pack" --stub "$setup" --template "$src/install.xml" --source "$src" \
  -o "$installer" "${block_option[@]}" >"$sandbox/pack.out" 2>&1
status=$?
check "qlux-pack exits 0: $(cat "$sandbox/pack.out")" test "$status" -eq 0
check "no package files without --split" test ! -e "$sandbox/one/setup-1.qpk"
echo "pack: peak $(peak_kb "$sandbox/pack.time") kB, $(stat -c %s "$installer") bytes"
if [ "$scale" = full ]; then
  check "packing peaks below 256 MB ($(peak_kb "$sandbox/pack.time") kB)" \
    test "$(peak_kb "$sandbox/pack.time")" -lt "$memory_limit_kb"
fi

/usr/bin/time -v -o "$sandbox/install.time" "$installer" -auto -debug=1 </dev/null >"$sandbox/install.out" 2>&1
check "installation succeeds" grep -q "Automatic installation was successful!" "$sandbox/install.out"
blocks=$(sed -n 's/.*Package of \([0-9]*\) blocks.*/\1/p' "$log")
check "the package has several blocks (${blocks:-none})" test "${blocks:-0}" -gt 2
echo "install: peak $(peak_kb "$sandbox/install.time") kB, $blocks blocks"
if [ "$scale" = full ]; then
  check "installing peaks below 256 MB ($(peak_kb "$sandbox/install.time") kB)" \
    test "$(peak_kb "$sandbox/install.time")" -lt "$memory_limit_kb"
fi
product="$sandbox/one/Large"
check "every file installed with its SHA-256" verify "$product"
check "the big file has its size" test "$(stat -c %s "$product/big.bin")" -eq "$big"

"$installer" -uninstall="$product/uninstall/install.log" -uninstallApp="Large Product" -gui=0 </dev/null >/dev/null
check "first stage exits 0" test $? -eq 0
for _ in $(seq 600); do [ -e "$product" ] || break; sleep 0.2; done

check "uninstallation removed every file and directory" test ! -e "$product"
rm -f "$installer"

# The same product split into package files, stored (level 0) so that
# there are several of them whatever the payload.
mkdir -p "$sandbox/split"
installer="$sandbox/split/setup.exe"
"$pack" --stub "$setup" --template "$src/install.xml" --source "$src" -o "$installer" --split "$split" --level 0 \
  "${block_option[@]}" >"$sandbox/pack.out" 2>&1
status=$?
check "qlux-pack --split exits 0: $(cat "$sandbox/pack.out")" test "$status" -eq 0
parts=$(ls "$sandbox/split" | grep -c '^setup-[0-9]*\.qpk$')
check "package files beside the installer ($parts)" test "$parts" -ge 2
limit=$(python3 -c "import sys; s = sys.argv[1]; print(int(s[:-1]) << {'M': 20, 'G': 30}[s[-1]])" "$split")
for f in "$sandbox"/split/*; do
  check "$(basename "$f") holds no more than $split" test "$(stat -c %s "$f")" -le "$limit"
done
# The source isn't needed any more: its digests are in the manifest.
cp "$src/manifest.txt" "$sandbox/manifest.txt"
case "$src" in "$sandbox"/*) rm -rf -- "$src" ;; esac
mkdir -p "$src" && mv "$sandbox/manifest.txt" "$src/manifest.txt"

"$installer" -auto -debug=1 </dev/null >"$sandbox/install.out" 2>&1
check "installation from the parts succeeds" grep -q "Automatic installation was successful!" "$sandbox/install.out"
product="$sandbox/split/Large"
check "every file installed from the parts with its SHA-256" verify "$product"
case "$product" in "$sandbox"/*) rm -rf -- "$product" ;; esac

# One flipped byte in a part, then a missing part: refused, and named.
part="$sandbox/split/setup-2.qpk"
python3 - "$part" <<'FLIP'
import sys
with open(sys.argv[1], "r+b") as f:
    f.seek(4096)
    byte = f.read(1)[0]
    f.seek(4096)
    f.write(bytes([byte ^ 0xFF]))
FLIP
out=$("$installer" -auto -debug=1 </dev/null 2>&1)
check "damaged part named to the user: $out" holds "$out" "The package file $part is damaged."
check "damaged part logged" grep -q "ERROR: The package file $part is damaged" "$log"
check "nothing installed from a damaged part" test ! -e "$product"
rm -f "$part"
out=$("$installer" -auto -debug=1 </dev/null 2>&1)
check "missing part named to the user: $out" holds "$out" "can't find its package file $part."
check "missing part logged" grep -q "ERROR: The package file $part is missing" "$log"
check "nothing installed without a part" test ! -e "$product"

finish
