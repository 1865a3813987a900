#!/usr/bin/env bash
# Program runs of a real installation: AdditionalInstall runs a script of the
# product (waited for, and once on a thread with the progress moving), a
# program that isn't there is logged and the installation goes on,
# PostInstall copies a file, the uninstaller's PreUninstall runs the
# script before the files go, and a running script holds the wizard on its
# RunningApps page.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"

new_sandbox "programs"
mkdir -p "$QLUX_ROOT/opt"

# The product: a readme, the template, and a script that writes its second
# argument, the directory it ran in and what it read from its input into
# the file named by its first.
source_dir="$sandbox/source"
mkdir -p "$source_dir/bin"
echo "Programs product" >"$source_dir/readme.txt"
cat >"$source_dir/bin/mark.sh" <<'EOF'
#!/bin/sh
printf '%s\n%s\ninput: %s\n' "$2" "$(pwd)" "$(cat)" >"$1"
EOF
cat >"$source_dir/install.xml" <<'EOF'
<HalvoWorksInstallation>
  <ProductDesc>
    <Fullname>Programs Product</Fullname>
    <MajorVersion>1</MajorVersion><MinorVersion>0</MinorVersion><MinestVersion>0</MinestVersion>
  </ProductDesc>
  <Dialogs>
    <Welcome><Text x="10" y="10">Welcome</Text></Welcome>
    <RunningApps>
      <Text x="10" y="10">Please close the watcher first.</Text>
      <TestApp Directory="[MARKS]">watch.sh</TestApp>
    </RunningApps>
    <CopyProgress><Progress Name="Overall" x="10" y="40" w="-10" h="20"/></CopyProgress>
    <PostInstall/>
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
      <Value Name="ROOT" DataType="value" UseOld="1">$INSTALLER_DIR/Programs</Value>
      <Value Name="MARKS" DataType="value" UseOld="1">$INSTALLER_DIR/marks</Value>
      <Value Name="INSTALL_ERROR" DataType="value">0</Value>
    </DefValues>
    <FileSet Name="Main">
      <FN Dest="[ROOT]">readme.txt</FN>
      <FN Dest="[ROOT]/uninstall">install.xml</FN>
      <FN Dest="[ROOT]/bin" Executable="1">bin/mark.sh</FN>
    </FileSet>
    <AdditionalInstall>
      <RunProgram Log="Marking the installation" Arguments='"[MARKS]/installed.txt" additional'
                  WorkDir="[MARKS]" Wait="1">[ROOT]/bin/mark.sh</RunProgram>
      <RunProgram Wait="1" Arguments="--quiet">[ROOT]/bin/missing-tool</RunProgram>
      <RunProgram Arguments='"[MARKS]/async.txt" async' Asynchronous="1" ProgressUpdate="2">[ROOT]/bin/mark.sh</RunProgram>
      <RunProgram Condition="[INSTALL_ERROR]==1" Arguments='"[MARKS]/skipped.txt"' Wait="1">[ROOT]/bin/mark.sh</RunProgram>
    </AdditionalInstall>
    <PostInstall>
      <CopyFile Dest="[MARKS]//readme-copy.txt">[ROOT]/readme.txt</CopyFile>
    </PostInstall>
    <PreUninstall>
      <RunProgram Arguments='"[MARKS]/preuninstall.txt" pre' Wait="1">[ROOT]/bin/mark.sh</RunProgram>
    </PreUninstall>
  </Installation>
</HalvoWorksInstallation>
EOF

installer="$sandbox/fresh/programs-setup"
mkdir -p "$sandbox/fresh/marks"
"$pack" --stub "$setup" --template "$source_dir/install.xml" --source "$source_dir" -o "$installer"
check "qlux-pack exits 0" test $? -eq 0

marks="$sandbox/fresh/marks"
product="$sandbox/fresh/Programs"
log="$TMPDIR/installer_debug.log"
# The installer's input holds text that nobody meant for the programs.
out=$("$installer" -gui=0 -auto -debug=1 <<<"typed ahead"); code=$?
check "installation exits 0, got $code" test "$code" -eq 0
check "installation succeeds despite the missing program" grep -q "Automatic installation was successful!" <<<"$out"
check "AdditionalInstall ran the installed script" test "$(sed -n 1p "$marks/installed.txt" 2>/dev/null)" = additional
check "in its working directory" test "$(sed -n 2p "$marks/installed.txt" 2>/dev/null)" = "$marks"
check "an unattended run's program reads nothing" test "$(sed -n 3p "$marks/installed.txt" 2>/dev/null)" = "input: "
check "nor does one run on a thread" test "$(sed -n 3p "$marks/async.txt" 2>/dev/null)" = "input: "
check "the missing program is logged" \
  grep -qF "ERROR: Program was not started : \"$product/bin/missing-tool --quiet\"" "$log"
check "the asynchronous run ended before the stage did" test "$(sed -n 1p "$marks/async.txt" 2>/dev/null)" = async
check "a false Condition passes the child over" test ! -e "$marks/skipped.txt"
check "the tags are logged" grep -q "Running Files for installation tag: <AdditionalInstall>" "$log"
check "PostInstall copied the file" cmp -s "$source_dir/readme.txt" "$marks/readme-copy.txt"
check "the product is in place" test -x "$product/bin/mark.sh"
check "no PreUninstall during installation" test ! -e "$marks/preuninstall.txt"

# The registered command: the first stage hands over to a copy of the
# program, whose PreUninstall runs the script before the files go.
"$installer" -uninstall="$product/uninstall/install.log" -uninstallApp="Programs Product" -gui=0 \
  <<<"typed ahead" >/dev/null
check "first stage exits 0" test $? -eq 0
for _ in $(seq 100); do [ -e "$product" ] || break; sleep 0.1; done
check "uninstallation removed the product" test ! -e "$product"
check "PreUninstall ran the script" test "$(sed -n 1p "$marks/preuninstall.txt" 2>/dev/null)" = pre
check "which read nothing" test "$(sed -n 3p "$marks/preuninstall.txt" 2>/dev/null)" = "input: "

# A shell script that runs from the folder the RunningApps page names holds
# the wizard there, though the process runs /bin/sh: the page names the
# script, and nothing is installed.
cat >"$marks/watch.sh" <<'EOF2'
#!/bin/sh
while :; do sleep 0.2; done
EOF2
chmod 755 "$marks/watch.sh"
(cd "$marks" && exec ./watch.sh) &
watcher=$!
for _ in $(seq 50); do grep -q watch.sh "/proc/$watcher/cmdline" 2>/dev/null && break; sleep 0.1; done
out=$("$installer" -gui=0 -auto </dev/null)
check "a running script stops the run" grep -qF "The automatic installer has encountered an ERROR!" <<<"$out"
check "the page names the script" grep -qx "watch.sh" <<<"$out"
check "and says why" grep -qF "The installation can not continue, because the processes listed above are running." \
  <<<"$out"
check "nothing is installed" test ! -e "$product"
kill "$watcher"
wait "$watcher" 2>/dev/null

finish
