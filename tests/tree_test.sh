#!/usr/bin/env bash
# A whole folder in one FN entry: a tree of 3,000 files in nested folders,
# with programs, an empty folder and symbolic links, packed by qlux-pack,
# installed, compared with its source (content, modes, links), and removed
# again through the uninstall data that the builder filled in (Auto).
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Tree Product"

# The tree: 10 x 10 folders of 30 files, every seventh a program; a folder
# that stays empty; links to a file and to a folder; files that Exclude
# leaves out. Modes follow a umask of 022, as the installer's files do.
umask 022
stage="$sandbox/stage"
tree="$stage/tree"
for a in $(seq 0 9); do
  for b in $(seq 0 9); do
    folder="$tree/part$a/sub$b"
    mkdir -p "$folder"
    for f in $(seq 0 29); do
      printf 'file %s/%s/%s\n' "$a" "$b" "$f" >"$folder/file$f.txt"
    done
    chmod 755 "$folder/file0.txt" "$folder/file7.txt" "$folder/file14.txt" "$folder/file21.txt" "$folder/file28.txt"
    printf 'scratch\n' >"$folder/build.tmp"
  done
done
mkdir -p "$tree/empty/inner" "$tree/part0/names"
printf 'a & b < c\n' >"$tree/part0/names/a & b.txt"
ln -s sub1/file1.txt "$tree/part0/current.txt"
ln -s ../part1 "$tree/part0/sibling"
printf 'outside\n' >"$stage/outside.txt"
ln -s "$stage/outside.txt" "$tree/part0/outside.txt"
count=$(find "$tree" -type f ! -name '*.tmp' | wc -l)
check "the source tree holds 3,000 files and more ($count)" test "$count" -ge 3000

cat >"$stage/install.xml" <<'EOF'
<HalvoWorksInstallation>
  <ProductDesc>
    <Fullname>Tree Product</Fullname>
    <MajorVersion>1</MajorVersion><MinorVersion>0</MinorVersion><MinestVersion>0</MinestVersion>
    <Website>https://tree.example.org</Website>
  </ProductDesc>
  <Dialogs>
    <Welcome><Text x="10" y="10">Installing a tree.</Text></Welcome>
    <CopyProgress Special="AutoNext"/>
    <RegisterApplication Special="AutoNext"/>
    <Finish Special="Finish"><Text x="10" y="10">Done.</Text></Finish>
  </Dialogs>
  <UninstallDialogs>
    <CopyProgress Special="AutoNext"/>
    <UnregisterApplication Special="AutoNext"/>
    <Finish Special="Finish"><Text x="10" y="10">Removed.</Text></Finish>
  </UninstallDialogs>
  <Installation>
    <Uninstall Auto="1" Dest="[INSTALLDIR]/uninstall"/>
    <DefValues>
      <Value Name="PROGRAMFILES" DataType="registry" UseOld="1" RegPlace="HKEY_LOCAL_MACHINE"
             RegKey="SOFTWARE/Microsoft/Windows/CurrentVersion">ProgramFilesDir</Value>
      <Value Name="INSTALLDIR" DataType="value" UseOld="1">$PROGRAMFILES/Tree Product</Value>
    </DefValues>
    <FileSet Name="Tree">
      <FN Dest="[INSTALLDIR]/tree" Recurse="1" Exclude="*.tmp">tree</FN>
    </FileSet>
  </Installation>
</HalvoWorksInstallation>
EOF

out=$("$pack" --check --template "$stage/install.xml" 2>&1); code=$?
check "the template passes --check, got $code: $out" test "$code" -eq 0 -a -z "$out"
installer="$sandbox/tree-setup"
"$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" -o "$installer" >/dev/null
check "qlux-pack packs the tree" test -x "$installer"

new_sandbox "install"
mkdir -p "$QLUX_ROOT/opt"
root="$QLUX_ROOT/opt/Tree Product"
start=$(date +%s.%N)
out=$(timeout 300 "$installer" -auto </dev/null 2>&1); code=$?
seconds=$(echo "$(date +%s.%N) - $start" | bc)
echo "installing the tree took $seconds s"
check "the installation succeeds, got $code" grep -q "Automatic installation was successful!" <<<"$out"

# listing DIR: every entry below DIR with its type, mode and link target,
# and every file's MD5.
listing() {
  (cd "$1" && find . ! -name '*.tmp' -printf '%y %m %p -> %l\n' | sort -k3 &&
    find . -type f ! -name '*.tmp' -exec md5sum {} + | sort -k2)
}
check "the installed tree equals the source: content, modes, links" \
  diff <(listing "$tree") <(listing "$root/tree")
check "a link stays a link" test "$(readlink "$root/tree/part0/sibling")" = "../part1"
check "an empty folder is kept" test -d "$root/tree/empty/inner"
check "Exclude leaves files out" test -z "$(find "$root" -name '*.tmp')"
check "the packed template holds ordinary entries" \
  grep -q '<FN Dest="\[INSTALLDIR\]/tree/part3/sub4">tree/part3/sub4/file5.txt</FN>' "$root/uninstall/install.xml"
check "the builder's uninstall data: log, backup, template, uninstaller" \
  test -s "$root/uninstall/install.log" -a -f "$root/uninstall/backup.bin" -a -x "$root/uninstall/uninstall"
values="$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values"
command=$(awk -F'\t' '$1 == "UninstallString" { print $3 }' "$values")
check "the product is registered with the uninstaller" \
  test "$command" = "\"$root/uninstall/uninstall\" -uninstall=\"$root/uninstall/install.log\" -uninstallApp=\"Tree Product\""

# The registered command removes it all; the second stage keeps the output
# open until it has finished.
out=$(timeout 300 "$root/uninstall/uninstall" -uninstall="$root/uninstall/install.log" -uninstallApp="Tree Product" \
  -gui=0 </dev/null 2>&1)
check "uninstalling leaves nothing of the product" test -z "$(ls -A "$QLUX_ROOT/opt")"
check "the entry is gone" test ! -e "$values"
check "a link's target outside the product stays" test "$(cat "$stage/outside.txt")" = "outside"

finish
