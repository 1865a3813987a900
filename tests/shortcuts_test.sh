#!/usr/bin/env bash
# Shortcuts, a registry value and firewall exceptions of a packed product,
# installed unattended and removed again through the uninstall command: a
# desktop entry, a symbolic link, a value in a new key of the registry
# store, and ports opened through a stand-in firewall-cmd that records its
# arguments. Then a run with no firewall tool on PATH.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/tiny"

# The product: the tiny product's files with a template of its own.
source_dir="$sandbox/source"
mkdir -p "$source_dir/bin"
cp -p "$data/readme.txt" "$source_dir/"
cp -p "$data/bin/tool.sh" "$source_dir/bin/"
cat >"$source_dir/install.xml" <<'EOF'
<HalvoWorksInstallation>
  <ProductDesc>
    <Fullname>Tiny Product</Fullname>
    <MajorVersion>1</MajorVersion><MinorVersion>0</MinorVersion><MinestVersion>2</MinestVersion>
  </ProductDesc>
  <Dialogs>
    <Welcome><Text x="10" y="10">Welcome</Text></Welcome>
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
    <InstallerControlVariables><InstallError>INSTALL_ERROR</InstallError></InstallerControlVariables>
    <DefValues>
      <Value Name="ROOT" DataType="value" UseOld="1">$INSTALLER_DIR/Tiny</Value>
      <Value Name="INSTALL_ERROR" DataType="value">0</Value>
    </DefValues>
    <FileSet Name="Main">
      <FN Dest="[ROOT]">readme.txt</FN>
      <FN Dest="[ROOT]/uninstall">install.xml</FN>
      <FN Dest="[ROOT]/bin" Alias="tool" Executable="1">bin/tool.sh</FN>
    </FileSet>
    <Shortcuts>
      <Add Type="File" Dest="[ROOT]/menu/tiny" Target="[ROOT]/bin/tool.sh" Arguments="--verbose"
           StartPath="[ROOT]/bin" Description="Runs the tiny tool">Tiny Tool.desktop</Add>
      <Add Type="Symlink" Dest="[ROOT]/links" Target="[ROOT]/bin">current</Add>
    </Shortcuts>
    <Firewall>
      <Application Target="[ROOT]/bin/tool.sh">Tiny Tool</Application>
      <Port Port="8080">8080</Port>
      <Port Port="8080" Protocol="TCP">TCP 8080</Port>
      <Port Port="8080" Protocol="TCP;UDP">TCP;UDP 8080</Port>
    </Firewall>
    <AdditionalInstall>
      <Registry>
        <AddValue Place="HKEY_LOCAL_MACHINE" Path="Software/Tiny/Settings" Value="InstallDir"
                  Expand="1">[ROOT]</AddValue>
      </Registry>
    </AdditionalInstall>
  </Installation>
</HalvoWorksInstallation>
EOF

# The stand-in firewall tool: one line of arguments per call.
tools="$sandbox/tools"
mkdir -p "$tools"
cat >"$tools/firewall-cmd" <<'EOF'
#!/bin/sh
echo "$*" >>"$FIREWALL_RECORD"
EOF
chmod 755 "$tools/firewall-cmd"
export FIREWALL_RECORD="$sandbox/firewall.txt"

# --- Install and uninstall with firewall-cmd on PATH --------------------------
new_sandbox "with-tool"
mkdir -p "$QLUX_ROOT/opt" "$sandbox/with-tool/app"
installer="$sandbox/with-tool/app/tiny-setup"
"$pack" --stub "$setup" --template "$source_dir/install.xml" --source "$source_dir" -o "$installer" >/dev/null
check "qlux-pack exits 0" test $? -eq 0

out=$(PATH="$tools:$PATH" "$installer" -gui=0 -auto -debug=1 </dev/null); code=$?
product="$sandbox/with-tool/app/Tiny"
log="$product/uninstall/install.log"
debug="$TMPDIR/installer_debug.log"
check "install exits 0, got $code" test "$code" -eq 0
check "install succeeds" grep -q "Automatic installation was successful!" <<<"$out"

# The action log's lines end in CR LF.
actions="$sandbox/with-tool/actions.txt"
tr -d '\r' <"$log" >"$actions"
entry="$product/menu/tiny/Tiny Tool.desktop"
check "DIR line of the shortcut's directory" grep -qxF "DIR	2	$product/menu/tiny/" "$actions"
check "SHORTCUT line of the desktop entry" grep -qxF "SHORTCUT	CREATE	$entry" "$actions"
check "SHORTCUT line of the symbolic link" grep -qxF "SHORTCUT	CREATE	$product/links/current" "$actions"
check "FIREWALL APP line" grep -qxF "FIREWALL	APP	$product/bin/tool.sh" "$actions"
for text in "8080" "TCP 8080" "TCP;UDP 8080"; do
  check "FIREWALL PORT line for $text" grep -qxF "FIREWALL	PORT	$text" "$actions"
done
check "REGKEY line for the new key" grep -qxF 'REGKEY	3	HKEY_LOCAL_MACHINE	Software\Tiny\Settings' "$actions"
check "REGVAL line behind it" grep -qxF 'REGVAL	HKEY_LOCAL_MACHINE	Software\Tiny\Settings	InstallDir' "$actions"
check "REGKEY before REGVAL" test "$(grep -n '^REGKEY' "$actions" | cut -d: -f1)" -lt "$(grep -n '^REGVAL' "$actions" | cut -d: -f1)"

expected_entry="[Desktop Entry]
Type=Application
Name=Tiny Tool
Comment=Runs the tiny tool
Exec=\"$product/bin/tool.sh\" \"--verbose\"
Path=$product/bin"
check "desktop entry content" test "$(cat "$entry")" = "$expected_entry"
check "desktop entry mode 0755" test "$(stat -c %a "$entry")" = "755"
check "symbolic link to the target" test "$(readlink "$product/links/current")" = "$product/bin"

store="$QLUX_ROOT/var/lib/qlux/registry/HKEY_LOCAL_MACHINE"
check "registry value in the store" grep -qxF "InstallDir	REG_SZ	$product" "$store/Software/Tiny/Settings/.values"
check "application exception logged as no change" grep -q "Firewall: Linux firewalls don't filter by program" "$debug"

expected_adds="--permanent --new-service=qlux-8080
--permanent --service=qlux-8080 --add-port=8080/tcp --add-port=8080/udp
--permanent --add-service=qlux-8080
--reload
--permanent --new-service=qlux-TCP-8080
--permanent --service=qlux-TCP-8080 --add-port=8080/tcp
--permanent --add-service=qlux-TCP-8080
--reload
--permanent --new-service=qlux-TCP-UDP-8080
--permanent --service=qlux-TCP-UDP-8080 --add-port=8080/tcp --add-port=8080/udp
--permanent --add-service=qlux-TCP-UDP-8080
--reload"
check "firewall-cmd calls of the installation" test "$(cat "$FIREWALL_RECORD")" = "$expected_adds"
: >"$FIREWALL_RECORD"

# The uninstall command; its second stage runs detached from the
# temporary directory and takes the same PATH.
PATH="$tools:$PATH" "$installer" -uninstall="$log" -uninstallApp="Tiny Product" -gui=0 </dev/null >/dev/null
check "first stage exits 0" test $? -eq 0
for _ in $(seq 100); do [ -e "$product" ] || break; sleep 0.1; done
check "uninstallation removed the product, its shortcuts and their directories" test ! -e "$product"
check "registry key removed" test ! -e "$store/Software/Tiny"
check "registry levels made for it removed" test ! -e "$store/Software"
expected_removals="--permanent --remove-service=qlux-8080
--permanent --delete-service=qlux-8080
--reload
--permanent --remove-service=qlux-TCP-8080
--permanent --delete-service=qlux-TCP-8080
--reload
--permanent --remove-service=qlux-TCP-UDP-8080
--permanent --delete-service=qlux-TCP-UDP-8080
--reload"
check "firewall-cmd calls of the uninstallation" test "$(cat "$FIREWALL_RECORD")" = "$expected_removals"

# --- No firewall tool on PATH -------------------------------------------------
# Nothing filters ports then: the ports need no rule, the installation
# succeeds and says so, and the uninstallation says the same.
new_sandbox "no-tool"
mkdir -p "$QLUX_ROOT/opt" "$sandbox/no-tool/app" "$sandbox/no-tool/empty-path"
installer="$sandbox/no-tool/app/tiny-setup"
"$pack" --stub "$setup" --template "$source_dir/install.xml" --source "$source_dir" -o "$installer" >/dev/null
out=$(PATH="$sandbox/no-tool/empty-path" "$installer" -gui=0 -auto -debug=1 </dev/null 2>&1); code=$?
product="$sandbox/no-tool/app/Tiny"
debug="$TMPDIR/installer_debug.log"
check "install without a firewall tool exits 0, got $code" test "$code" -eq 0
check "and succeeds" holds "$out" "Automatic installation was successful!"
check "files installed" cmp -s "$data/readme.txt" "$product/readme.txt"
check "the user is told the port needs no rule" holds "$out" "Firewall: port 8080 needs no rule"
check "and that the program needs no exception" holds "$out" "Firewall: no exception needed for application"
check "debug log says why" grep -q "Firewall: no firewall manager found; port 8080 needs no rule" "$debug"
check "application entry logged plainly" grep -q "Linux firewalls don't filter by program" "$debug"
check "FIREWALL PORT lines all the same" test "$(grep -c "^FIREWALL	PORT" "$product/uninstall/install.log")" -eq 3
PATH="$sandbox/no-tool/empty-path" "$installer" -uninstall="$product/uninstall/install.log" -uninstallApp="Tiny Product" \
  -gui=0 -debug=1 </dev/null >/dev/null
for _ in $(seq 100); do [ -e "$product" ] || break; sleep 0.1; done
check "uninstalled without a firewall tool" test ! -e "$product"
check "the uninstallation says the same" grep -q "Firewall: no firewall manager found; port 8080 needs no rule" "$debug"

# --- nftables without a manager ------------------------------------------------
# A stand-in nft that has a ruleset in force: each port gets a table of our
# own, and the uninstallation deletes it.
new_sandbox "nft"
nft_tools="$sandbox/nft/tools"
mkdir -p "$QLUX_ROOT/opt" "$sandbox/nft/app" "$nft_tools"
cat >"$nft_tools/nft" <<'EOF2'
#!/bin/sh
if [ "$*" = "list ruleset" ]; then echo "table inet filter {"; echo "}"; exit 0; fi
echo "$*" >>"$FIREWALL_RECORD"
EOF2
chmod 755 "$nft_tools/nft"
: >"$FIREWALL_RECORD"
installer="$sandbox/nft/app/tiny-setup"
"$pack" --stub "$setup" --template "$source_dir/install.xml" --source "$source_dir" -o "$installer" >/dev/null
out=$(PATH="$nft_tools" "$installer" -gui=0 -auto </dev/null); code=$?
product="$sandbox/nft/app/Tiny"
check "install with nft exits 0, got $code" test "$code" -eq 0
check "and adds the ports" holds "$out" "Firewall: Added port 8080"
expected_adds="delete table inet qlux_8080
add table inet qlux_8080
add chain inet qlux_8080 input { type filter hook input priority 0 ; policy accept ; }
add rule inet qlux_8080 input tcp dport 8080 accept
add rule inet qlux_8080 input udp dport 8080 accept
delete table inet qlux_TCP_8080
add table inet qlux_TCP_8080
add chain inet qlux_TCP_8080 input { type filter hook input priority 0 ; policy accept ; }
add rule inet qlux_TCP_8080 input tcp dport 8080 accept
delete table inet qlux_TCP_UDP_8080
add table inet qlux_TCP_UDP_8080
add chain inet qlux_TCP_UDP_8080 input { type filter hook input priority 0 ; policy accept ; }
add rule inet qlux_TCP_UDP_8080 input tcp dport 8080 accept
add rule inet qlux_TCP_UDP_8080 input udp dport 8080 accept"
check "nft calls of the installation" test "$(cat "$FIREWALL_RECORD")" = "$expected_adds"
: >"$FIREWALL_RECORD"
PATH="$nft_tools" "$installer" -uninstall="$product/uninstall/install.log" -uninstallApp="Tiny Product" -gui=0 \
  </dev/null >/dev/null
for _ in $(seq 100); do [ -e "$product" ] || break; sleep 0.1; done
check "nft calls of the uninstallation" test "$(cat "$FIREWALL_RECORD")" = "delete table inet qlux_8080
delete table inet qlux_TCP_8080
delete table inet qlux_TCP_UDP_8080"

finish
