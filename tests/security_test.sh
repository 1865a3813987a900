#!/usr/bin/env bash
# A local user against root's installations and uninstallations. The test
# runs as root and makes a real unprivileged user, the attacker, with
# useradd; everything she does runs as her own process (setpriv), from a
# directory that root gives her as her working directory, as she would act
# in a shared /tmp or in a folder of her own. Her attacks:
#   - files, FIFOs, links and directories of hers at every name in the shared
#     temporary directory that a run uses;
#   - a watch on that directory (and on the journals) with inotify, racing
#     each new entry with links and lines of her own;
#   - folder and product names with $( ), backquotes, '"', ';', '\' and line
#     breaks, and arguments made of them;
#   - config.xml values with stray '$', an empty and a relative folder;
#   - links of hers inside an installation folder that she owns;
#   - her own action log, and a log and backup that others may write to;
#   - a run under umask 000.
# Each attack must fail: nothing of hers runs or is read, her files and a
# victim directory of root's stay as they were, and each run either
# succeeds or stops with a clear message and the machine as before.
# The user is removed at the end, also when the test fails.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")

if [ "$(id -u)" -ne 0 ]; then
  echo "SKIPPED: the attacks need root, running the installer against a second real user"
  exit 0
fi
for tool in useradd userdel setpriv inotifywait; do
  command -v "$tool" >/dev/null 2>&1 || { echo "FAILED: $tool is missing (scripts/setup.sh installs it)"; exit 1; }
done
# The attacker exists outside the fenced run, which can't write /etc.
if [ -z "${QLUX_FENCED_SANDBOX:-}" ]; then
  export QLUX_ATTACKER="qluxatk$$"
  useradd --system --user-group --no-create-home --shell /usr/sbin/nologin "$QLUX_ATTACKER" ||
    { echo "FAILED: useradd $QLUX_ATTACKER"; exit 1; }
  qlux_cleanup='userdel "$QLUX_ATTACKER" 2>/dev/null || userdel -f "$QLUX_ATTACKER"'
fi
source "$here/lib.sh"

attacker=$QLUX_ATTACKER
auid=$(id -u "$attacker")
agid=$(id -g "$attacker")
fenced=${QLUX_FENCED_SANDBOX:+yes}

# Her background processes, each the leader of a process group of its own
# (background_attack), ended by those groups' ids when the script ends.
attacks=()
stop_attacks() {
  local pid
  for pid in "${attacks[@]}"; do kill -- "-$pid" 2>/dev/null; done
  for pid in "${attacks[@]}"; do wait "$pid" 2>/dev/null; done
  attacks=()
}
trap 'stop_attacks; qlux_exit' EXIT

mode() { stat -c %a "$1"; }

# as_attacker DIR COMMAND...: COMMAND as the attacker, working in DIR.
# background_attack DIR COMMAND...: the same in the background, in a
# process group of its own.
as_attacker() {
  local dir=$1
  shift
  (cd "$dir" && exec setpriv --reuid="$auid" --regid="$agid" --clear-groups --no-new-privs -- "$@")
}
background_attack() {
  local dir=$1
  shift
  (cd "$dir" && exec setsid setpriv --reuid="$auid" --regid="$agid" --clear-groups --no-new-privs -- "$@") &
  attacks+=($!)
}

# --- The product ----------------------------------------------------------------
# Its folder variable INSTALLDIR; its tool runs from AdditionalInstall with
# arguments made of that folder, and writes them where the test reads them.
stage="$sandbox/stage"
mkdir -p "$stage/bin" "$stage/etc" "$stage/placeholders"
echo "the product's readme" >"$stage/readme.txt"
echo "setting=product" >"$stage/etc/app.conf"
cat >"$stage/bin/tool.sh" <<'EOF'
#!/bin/sh
mkdir -p "$1/var" && for a in "$@"; do printf '[%s]\n' "$a"; done >"$1/var/args.txt"
EOF
echo "log placeholder" >"$stage/placeholders/install.log"
echo "backup placeholder" >"$stage/placeholders/backup.bin"
cp "$setup" "$stage/qlux-uninstall.exe"
# template NAME [BACKUP]: the template for a product of that name; with
# BACKUP, the settings file that it replaces is saved and put back.
template() {
  local backup=""
  [ -n "${2:-}" ] && backup=' BackupExisting="1"'
  cat <<EOF
<HalvoWorksInstallation>
  <ProductDesc>
    <Fullname>$1</Fullname>
    <MajorVersion>1</MajorVersion><MinorVersion>0</MinorVersion><MinestVersion>0</MinestVersion>
    <Website>https://security.example.org</Website>
  </ProductDesc>
  <Dialogs>
    <Options><Field Type="Directory" Label="Destination folder" x="10" y="40">INSTALLDIR</Field></Options>
    <Uninstall Special="AutoNext" Condition="[PREVIOUSINSTALLATION]==1"/>
    <CopyProgress Special="AutoNext"><Progress Name="Overall" x="10" y="40" w="-10" h="20"/></CopyProgress>
    <RevertInstallation Special="AutoNext" Condition="[INSTALL_ERROR]==1"/>
    <RegisterApplication Special="AutoNext" Condition="[INSTALL_ERROR]==0"/>
    <PostInstall Special="AutoNext" Condition="[INSTALL_ERROR]==0"/>
    <Finish Special="Finish" Condition="[INSTALL_ERROR]==0"><Text x="10" y="10">Installed.</Text></Finish>
    <BadFinish Special="Finish" Condition="[INSTALL_ERROR]==1"><Text x="10" y="10">Not installed.</Text></BadFinish>
  </Dialogs>
  <UninstallDialogs>
    <CopyProgress Special="AutoNext"><Progress Name="Overall" x="10" y="40" w="-10" h="20"/></CopyProgress>
    <UnregisterApplication Special="AutoNext" Condition="[UNINSTALL_ERROR]==0"/>
    <Finish Special="Finish" Condition="[UNINSTALL_ERROR]==0"><Text x="10" y="10">Removed.</Text></Finish>
    <BadFinish Special="Finish" Condition="[UNINSTALL_ERROR]==1"><Text x="10" y="10">Not removed.</Text></BadFinish>
  </UninstallDialogs>
  <Installation>
    <Uninstall>
      <InstallLogFile>[INSTALLDIR]/uninstall/install.log</InstallLogFile>
      <InstallBackupFile>[INSTALLDIR]/uninstall/backup.bin</InstallBackupFile>
      <UninstallXmlFile>[INSTALLDIR]/uninstall/install.xml</UninstallXmlFile>
      <UninstallCmd>[INSTALLDIR]/uninstall/qlux-uninstall</UninstallCmd>
    </Uninstall>
    <InstallerControlVariables>
      <PreviousInstallation>PREVIOUSINSTALLATION</PreviousInstallation>
      <InstallError>INSTALL_ERROR</InstallError>
      <UninstallError>UNINSTALL_ERROR</UninstallError>
    </InstallerControlVariables>
    <DefValues>
      <Value Name="PROGRAMFILES" DataType="registry" RegPlace="HKEY_LOCAL_MACHINE"
             RegKey="SOFTWARE/Microsoft/Windows/CurrentVersion">ProgramFilesDir</Value>
      <Value Name="INSTALLDIR" DataType="value" UseOld="1">\$PROGRAMFILES/Secure</Value>
      <Value Name="PREVIOUSINSTALLATION" DataType="value">0</Value>
      <Value Name="INSTALL_ERROR" DataType="value">0</Value>
      <Value Name="UNINSTALL_ERROR" DataType="value">0</Value>
    </DefValues>
    <FileSet Name="Main">
      <FN Dest="[INSTALLDIR]">readme.txt</FN>
      <FN Dest="[INSTALLDIR]/bin" Executable="1">bin/tool.sh</FN>
      <FN Dest="[INSTALLDIR]/etc"$backup>etc/app.conf</FN>
      <FN Dest="[INSTALLDIR]/uninstall" Alias="uninstaller" Executable="1" StripExeExt="1">qlux-uninstall.exe</FN>
      <FN Dest="[INSTALLDIR]/uninstall">install.xml</FN>
      <FN Dest="[INSTALLDIR]/uninstall" Alias="logplaceholder">placeholders/install.log</FN>
      <FN Dest="[INSTALLDIR]/uninstall" Alias="backupplaceholder">placeholders/backup.bin</FN>
    </FileSet>
    <UninstallWildcards><Files Dest="[INSTALLDIR]/var" DeleteDirs="1">*</Files></UninstallWildcards>
    <AdditionalInstall>
      <RunProgram Wait="1" WorkDir="[INSTALLDIR]"
                  Arguments='"[INSTALLDIR]" [INSTALLDIR] \$(touch PWNED-args) ; \`touch PWNED-tick\`'>[INSTALLDIR]/bin/tool.sh</RunProgram>
    </AdditionalInstall>
  </Installation>
</HalvoWorksInstallation>
EOF
}
# pack_product NAME [BACKUP]: the installer of such a product, in $installer.
pack_product() {
  template "$@" >"$stage/install.xml"
  installer="$sandbox/installers/$(printf '%s' "$*" | md5sum | cut -c1-8)-setup"
  mkdir -p "$sandbox/installers"
  "$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" -o "$installer" >/dev/null ||
    { echo "FAILED: packing \"$1\""; exit 1; }
}

# --- Cases --------------------------------------------------------------------
# A victim of root's that the attacker would like to read, change or have
# deleted: a private file and a directory of system settings.
victim="$sandbox/victim"
mkdir -p "$victim/sudoers.d"
echo "root secret" >"$victim/secret"
chmod 600 "$victim/secret"
echo "Defaults secure" >"$victim/sudoers.d/base"
echo "setting=root's own" >"$victim/app.conf"
victim_state() { (cd "$victim" && find . -printf '%y %m %u %p %l\n' | sort && find . -type f -exec sha256sum {} + | sort); }
victim_before=$(victim_state)

# fresh NAME: a machine of its own, whose temporary directory is shared
# like /tmp: anybody may make entries there, and only remove their own.
fresh() {
  new_sandbox "$1"
  case_dir="$sandbox/$1"
  mkdir -p "$QLUX_ROOT/opt"
  chmod 1777 "$TMPDIR"
  product="$QLUX_ROOT/opt/Secure"
}

# install [OPTION...]: an unattended installation of $installer, from the
# case's directory; uninstall DIR NAME: the product's registered uninstaller
# of the product in DIR, started with the words that its entry holds.
install() {
  out=$(cd "$case_dir" && timeout 120 "$installer" -gui=0 -auto -quiet=0 "$@" </dev/null 2>&1)
  code=$?
}
uninstall() {
  out=$(cd "$case_dir" && timeout 120 "$1/uninstall/qlux-uninstall" "-uninstall=$1/uninstall/install.log" \
    "-uninstallApp=$2" -gui=0 </dev/null 2>&1)
  code=$?
}
entry_file() { echo "$QLUX_ROOT/var/lib/qlux/registry/HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/$1/.values"; }

# Every case must leave these: nothing of hers ran, root's victim is as it was.
nothing_ran() {
  check "$1: nothing of the attacker's ran" test -z "$(find "$sandbox" -name 'PWNED*' 2>/dev/null)"
  check "$1: root's files are as they were" test "$(victim_state)" = "$victim_before"
}
run_dirs_gone() { check "$1: no run directory is left" test -z "$(find "$TMPDIR" -maxdepth 1 -name 'qlux-*' -user root)"; }

# --- 1. Her entries at the temporary names --------------------------------------
# A program of hers where the program copy goes, a FIFO where the log copy
# goes, links to root's secret where the debug log and old temporary names
# go, and a directory in the way of each.
fresh premade
pack_product "Secure Product"
cat >"$TMPDIR/payload" <<EOF
#!/bin/sh
touch "$case_dir/PWNED-payload"
EOF
as_attacker "$TMPDIR" sh -c '
  cp payload qluxuninst.dll && chmod 777 qluxuninst.dll
  mkfifo qluxuninst.log
  ln -s "$1/secret" installer_debug.log
  for n in 1 2 3; do ln -s "$1/secret" "qli$n.tmp"; mkdir "qlinstall$n.tmp"; done
  mkdir qlux-000000' sh "$victim"
# hers: her entries in the temporary directory, with her files' content;
# root's result logs of the runs (made exclusively beside them) aside.
hers() {
  (cd "$TMPDIR" && find . \( -user root -type f -name '*install*.log' \) -prune -o -printf '%y %m %u %p %l\n' | sort &&
    find . -type f ! -user root -exec sha256sum {} + | sort)
}
hers_before=$(hers)
install -debug=1
check "premade: the installation succeeds" holds "$out" "Automatic installation was successful!"
check "premade: the debug log isn't made at her link" holds "$out" "can't be created"
uninstall "$product" "Secure Product"
check "premade: the uninstallation succeeds" holds "$out" "Automatic uninstallation was successful!"
check "premade: the product is gone" test ! -e "$product"
check "premade: her entries are as she left them" \
  test "$(hers)" = "$hers_before"
nothing_ran premade
run_dirs_gone premade

# --- 2. A race on every new entry ---------------------------------------------
# She watches the shared temporary directory, and tries the journals' too.
# Whatever appears, she links root's secret into it, writes a line that
# names the secret into it, and puts a link beside it.
fresh race
pack_product "Secure Product"
# A first run makes the journals' directory.
install
uninstall "$product" "Secure Product"
background_attack "$TMPDIR" sh -c 'inotifywait -q -t 30 "$1" >/dev/null 2>&1; echo "$?" >journal-watch' sh \
  "$QLUX_ROOT/var/lib/qlux/journal"
background_attack "$TMPDIR" sh -c '
  inotifywait -m -q -r -e create --format "%w%f" . 2>/dev/null | while read -r entry; do
    case "$entry" in *.link | ./seen | ./journal-watch) continue ;; esac
    echo "$entry" >>seen
    ln -s "$1/secret" "$entry/qluxuninst.log" 2>/dev/null
    ln -s "$1/secret" "$entry/qli1.tmp" 2>/dev/null
    printf "FILE\tCREATE\t%s\r\n" "$1/secret" 2>/dev/null >>"$entry"
    ln -sf "$1/secret" "$entry.link" 2>/dev/null
  done' sh "$victim"
sleep 0.5
install
check "race: the installation succeeds" holds "$out" "Automatic installation was successful!"
check "race: the journal directory is closed to her" test "$(mode "$QLUX_ROOT/var/lib/qlux/journal")" = 700
uninstall "$product" "Secure Product"
check "race: the uninstallation succeeds" holds "$out" "Automatic uninstallation was successful!"
stop_attacks
check "race: she saw the runs' directories appear" grep -q 'qlux-' "$TMPDIR/seen"
check "race: she could watch no journal" test "$(cat "$TMPDIR/journal-watch" 2>/dev/null)" != 0
check "race: the product is gone" test ! -e "$product"
nothing_ran race

# --- 3. Names that a shell would read -----------------------------------------
# Product names and folders with $( ), backquotes, quotes, ';' and '\': no
# shell sees them, so they install, run their tool with the folder as one
# word, register, and uninstall as they are.
fresh names
for name in 'Cost$Saver $(touch PWNED-name)' 'Quote "q" `touch PWNED-tick`; x' 'Back\slash'; do
  pack_product "$name"
  install
  check "names: \"$name\" installs" holds "$out" "Automatic installation was successful!"
  key=${name//\\//}
  check "names: \"$name\" is registered whole" test -f "$(entry_file "$key")"
  uninstall "$product" "$name"
  check "names: \"$name\" uninstalls" holds "$out" "Automatic uninstallation was successful!"
  check "names: \"$name\" is gone" test ! -e "$product" -a ! -e "$(entry_file "$key")"
done
pack_product "Secure Product"
for folder in 'a$(touch PWNED-folder)b' 'q`touch PWNED-tick`;x' 'dollar$HOME'; do
  target="$QLUX_ROOT/opt/$folder"
  out=$(cd "$case_dir" && printf '%s\n' "$target" | timeout 120 "$installer" -gui=0 -quiet=0 2>&1)
  check "names: folder \"$folder\" installs" holds "$out" "Installed."
  check "names: its tool got the folder as one word" \
    test "$(head -n 1 "$target/var/args.txt" 2>/dev/null)" = "[$target]"
  check "names: and the rest as words of their own" \
    test "$(tail -n 5 "$target/var/args.txt" 2>/dev/null | tr '\n' ' ')" = '[$(touch] [PWNED-args)] [;] [`touch] [PWNED-tick`] '
  uninstall "$target" "Secure Product"
  check "names: folder \"$folder\" uninstalls" holds "$out" "Automatic uninstallation was successful!"
  check "names: folder \"$folder\" is gone" test ! -e "$target"
done
# A '\' is a separator in a template path on Linux.
out=$(cd "$case_dir" && printf '%s\n' "$QLUX_ROOT/opt/back\\slash" | timeout 120 "$installer" -gui=0 -quiet=0 2>&1)
check "names: a folder with '\\' installs below its separator" test -f "$QLUX_ROOT/opt/back/slash/readme.txt"
uninstall "$QLUX_ROOT/opt/back/slash" "Secure Product"
check "names: and uninstalls" test ! -e "$QLUX_ROOT/opt/back"
# A double quote would end the quoted word of a command line, and no
# Windows name holds one; a line break can't stand in the action log's
# lines. Such a folder is refused at the question, and from a
# configuration file it stops the run before its first change.
out=$(cd "$case_dir" && printf '%s\n\n%s\n' "$QLUX_ROOT/opt/quote\"d" "$QLUX_ROOT/opt/Plain" |
  timeout 120 "$installer" -gui=0 -quiet=0 2>&1)
check "names: a folder with a double quote is refused" holds "$out" "A folder can't hold double quotes"
check "names: and the next answer is taken" test -f "$QLUX_ROOT/opt/Plain/readme.txt" -a ! -e "$QLUX_ROOT/opt/quote\"d"
uninstall "$QLUX_ROOT/opt/Plain" "Secure Product"
for folder in "$QLUX_ROOT/opt/quote\"d" "$QLUX_ROOT/opt/line"$'\n'"FILE"$'\t'"CREATE"$'\t'"$victim/secret"; do
  printf '<DefValues><Value Name="INSTALLDIR" DataType="value">%s</Value></DefValues>' "${folder//\"/&quot;}" \
    >"$case_dir/config.xml"
  out=$(cd "$case_dir" && timeout 120 "$installer" -gui=0 -quiet=0 -configFile="$case_dir/config.xml" </dev/null 2>&1)
  check "names: \"$folder\" from config.xml stops the run" holds "$out" "The folder variable INSTALLDIR is no usable folder"
done
check "names: and nothing of them is installed" test -z "$(ls "$QLUX_ROOT/opt")"
nothing_ran names
run_dirs_gone names

# --- 4. Unusable folders -------------------------------------------------------
# From config.xml: '$' that names no variable empties the value; an empty
# and a relative folder. Each stops the run before its first change, and
# names the variable.
fresh folders
pack_product "Secure Product"
machine() { (cd "$QLUX_ROOT" && find . -printf '%y %m %p\n' | sort) ; (cd "$case_dir" && find . -maxdepth 1 | sort); }
values=('relative/place')
if [ -n "$fenced" ]; then
  values+=('$(touch PWNED-config)' '$HOME' '$PROGRAMFILE' '')
else
  echo "SKIPPED: empty folders need the read-only fence (a fault would write below /)"
fi
for value in "${values[@]}"; do
  printf '<DefValues><Value Name="INSTALLDIR" DataType="value">%s</Value></DefValues>' "$value" \
    >"$case_dir/config.xml"
  before=$(machine)
  out=$(cd "$case_dir" && timeout 120 "$installer" -gui=0 -quiet=0 -configFile="$case_dir/config.xml" </dev/null 2>&1)
  check "folders: \"$value\" stops the run, naming the variable" holds "$out" "The folder variable INSTALLDIR is"
  check "folders: \"$value\" changes nothing" test "$(machine)" = "$before"
done
# A relative answer at the console is refused and asked for again.
out=$(cd "$case_dir" && printf 'n\n\n%s\n' "$QLUX_ROOT/opt/Answered" | timeout 120 "$installer" -gui=0 -quiet=0 2>&1)
check "folders: a relative answer is refused" holds "$out" "The folder must be a whole path"
check "folders: the next answer is taken" test -f "$QLUX_ROOT/opt/Answered/readme.txt"
check "folders: nothing went below the working directory" test ! -e "$case_dir/n"
uninstall "$QLUX_ROOT/opt/Answered" "Secure Product"
nothing_ran folders

# --- 5. Her links inside an installation folder of hers ----------------------
# The product goes into a folder that she owns. Her link "etc" to root's
# settings makes the file stage fail (and revert) instead of writing there;
# a link of hers where a file goes is replaced, and saved as a link; her
# link put in place of the product's folder after the installation keeps
# the uninstallation from deleting through it.
fresh links
pack_product "Secure Product" 1
home="$case_dir/home"
mkdir -p "$home"
chown "$auid:$agid" "$home"
as_attacker "$home" sh -c 'mkdir app && ln -s "$1" app/etc' sh "$victim"
target="$home/app"
out=$(cd "$case_dir" && printf '%s\n' "$target" | timeout 120 "$installer" -gui=0 -quiet=0 2>&1)
check "links: her link on the way fails the file" holds "$out" "$target/etc/app.conf"
check "links: and says so" holds "$out" "FAILED to"
check "links: the installation is reverted" holds "$out" "Not installed."
check "links: her link is left as it was" test "$(readlink "$target/etc")" = "$victim"
check "links: nothing of the product is left" test -z "$(ls -A "$target" | grep -vx etc)"
as_attacker "$home" sh -c 'rm app/etc && mkdir app/etc && ln -s "$1/secret" app/etc/app.conf' sh "$victim"
out=$(cd "$case_dir" && printf '%s\n' "$target" | timeout 120 "$installer" -gui=0 -quiet=0 2>&1)
check "links: with her link where a file goes it installs" holds "$out" "Installed."
check "links: the file took the link's place" test ! -L "$target/etc/app.conf" -a -f "$target/etc/app.conf"
check "links: her link was saved as a link" grep -qa "$target/etc/app.conf" "$target/uninstall/backup.bin"
check "links: and root's secret wasn't" bash -c "! grep -qa 'root secret' '$target/uninstall/backup.bin'"
# She swaps the product's folder for a link to root's settings, which hold
# files of the same names.
as_attacker "$home" sh -c 'mv app/etc app/etc.old && ln -s "$1" app/etc' sh "$victim"
uninstall "$target" "Secure Product"
# The settings file was saved as her link, and what stands there now can't
# be reached but through her link: it is left, not written or deleted.
check "links: the uninstallation leaves what lies behind her link" holds "$out" "Left $target/etc/app.conf"
check "links: and leaves root's settings alone" test -f "$victim/app.conf"
nothing_ran links

# --- 6. Orders that others could have written ---------------------------------
fresh orders
pack_product "Secure Product"
cat >"$case_dir/her.log" <<EOF
$victim/template.xml
$victim/backup.bin
NUMVARS	0
FILE	CREATE	$victim/secret
DIR	1	$victim/sudoers.d/
EOF
chown "$auid:$agid" "$case_dir/her.log"
out=$(cd "$case_dir" && timeout 60 "$setup" "-uninstall=$case_dir/her.log" -uninstallApp=Her -gui=0 </dev/null 2>&1)
check "orders: her action log is refused" holds "$out" "the action log $case_dir/her.log belongs to another user"
install
log="$product/uninstall/install.log"
check "orders: the installed log is root's alone" test "$(stat -c '%a %U' "$log")" = "600 root"
chmod 666 "$log"
uninstall "$product" "Secure Product"
check "orders: a log that others may write is refused" holds "$out" "can be changed by other users"
check "orders: and the product stays" test -f "$product/readme.txt"
# She adds root's secret to it; an upgrade, which removes the older
# installation by that log, refuses it and removes nothing it names.
as_attacker "$product/uninstall" sh -c 'printf "FILE\tCREATE\t%s\r\n" "$1/secret" >>install.log' sh "$victim"
install
check "orders: an upgrade refuses the older log that others may write" \
  grep -q "action log $log can be changed by other users; it is not followed" "$product/uninstall/Secure Product-install.log"
check "orders: and removes nothing by it" test -f "$victim/secret"
chmod 600 "$log"
chmod 666 "$product/uninstall/backup.bin"
uninstall "$product" "Secure Product"
check "orders: a backup that others may write is refused" holds "$out" "the backup $product/uninstall/backup.bin can be changed"
check "orders: and nothing was removed" test -f "$product/readme.txt" -a -f "$product/bin/tool.sh"
chmod 600 "$product/uninstall/backup.bin"
uninstall "$product" "Secure Product"
check "orders: trusted again, it uninstalls" holds "$out" "Automatic uninstallation was successful!"
nothing_ran orders

# --- 7. umask 000 ---------------------------------------------------------------
# Whatever the umask, the product's files are 644 (755 for programs), its
# folders 755, and the log, the backup, the journals and the registry store
# the root's alone.
fresh umask
pack_product "Secure Product"
out=$(umask 000 && cd "$case_dir" && timeout 120 "$installer" -gui=0 -auto -quiet=0 </dev/null 2>&1)
check "umask: the installation succeeds" holds "$out" "Automatic installation was successful!"
check "umask: a file is 644" test "$(mode "$product/readme.txt")" = 644
check "umask: a program is 755" test "$(mode "$product/bin/tool.sh")" = 755
check "umask: a folder is 755" test "$(mode "$product/etc")" = 755
check "umask: the log is 600" test "$(mode "$product/uninstall/install.log")" = 600
check "umask: the backup is 600" test "$(mode "$product/uninstall/backup.bin")" = 600
check "umask: the journals' directory is 700" test "$(mode "$QLUX_ROOT/var/lib/qlux/journal")" = 700
check "umask: the registry store is 700" test "$(mode "$QLUX_ROOT/var/lib/qlux/registry")" = 700
check "umask: its values are 600" test "$(mode "$(entry_file "Secure Product")")" = 600
# (The product's own tool writes var/ with the umask it was started with.)
check "umask: nothing the run made is writable by others" \
  test -z "$(find "$QLUX_ROOT" -path "$product/var" -prune -o -perm -o+w ! -type l -print 2>/dev/null)"
as_attacker "$QLUX_ROOT/var/lib/qlux" sh -c 'echo forged >journal/Secure_Product.journal' 2>/dev/null
check "umask: she can't put a journal there" test ! -e "$QLUX_ROOT/var/lib/qlux/journal/Secure_Product.journal"
out=$(umask 000 && uninstall "$product" "Secure Product" && echo "$out")
check "umask: the uninstallation succeeds" holds "$out" "Automatic uninstallation was successful!"
nothing_ran umask

finish
