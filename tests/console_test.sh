#!/usr/bin/env bash
# The console wizard of a packed product, run for real: a person answering
# through a pipe, a terminal of a given size, an unattended run that exports
# its answers, a replay of them, and configuration files that can't be used.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/wizard"

# make_installer NAME: a sandbox NAME with the packed product in its folder,
# so that the config.xml written beside the program stays in the sandbox.
make_installer() {
  new_sandbox "$1"
  mkdir -p "$QLUX_ROOT/opt"
  dir="$sandbox/$1"
  installer="$dir/wizard-setup"
  "$pack" --stub "$setup" --template "$data/install.xml" --source "$data" -o "$installer" >/dev/null
}

# holds HAYSTACK NEEDLE: whether NEEDLE, which may span lines, is in HAYSTACK.

# line_of TEXT: the number of the first line of $out that holds TEXT.
line_of() { grep -nF -m1 -- "$1" <<<"$out" | cut -d: -f1; }

banner='*******************************
* Halvo Works installer       *
*******************************'
export_lines="Successfully created configuration file:
	\"%s\"
You can use the file to automatically install the same product on different machine with the same settings, by running the installer with the following arguments:
 -configFile=\"%s\" {-ignoreErrors=1}"

# --- A person at the terminal -------------------------------------------------
# Answers: three Enters for the licence (before it, after its first page, at
# its end); a folder with a doubled separator; "maybe" and then "no" for the
# check box; a disabled choice, a non-number and then 2 for the radio group;
# an empty line and then "YES" for the check box that has no default.
make_installer "walk"
chosen="$dir//Chosen folder"
out=$(printf '\n\n\n%s\nmaybe\nno\n3\nx\n2\n\nYES\n' "$chosen" | "$installer" -gui=0 -debug=1); code=$?
check "walk exits 0, got $code" test "$code" -eq 0
check "banner, welcome text, licence" \
  holds "$out" "$banner"$'\nWelcome to the Wizard Product setup.\nPress Enter to continue...WIZARD PRODUCT LICENCE\n'
check "licence ends" grep -qxF "END OF LICENCE" <<<"$out"
# A pipe has no size, so the page is 24 - 2 lines and the lines are 78 wide.
first=$(line_of "WIZARD PRODUCT LICENCE")
pause=$(line_of "Press ENTER for the next page (q: to the end)...")
check "first page holds 22 lines (pause at +23, got +$((pause - first)))" test "$((pause - first))" -eq 23
check "licence justified to 78 columns" \
  grep -qxF "4. You may make copies  of the product for backup  purposes, and you may  give" <<<"$out"
check "two page pauses" test "$(grep -cxF "Press ENTER for the next page (q: to the end)..." <<<"$out")" -eq 2
check "directory question with its default" \
  grep -qF "Destination folder [$dir/Wizard Product]:Create a desktop icon (no or [yes]): " <<<"$out"
check "check box asks again" grep -qF "(no or [yes]): Please, answer with no or yes: Kind of installation" <<<"$out"
check "radio group listed" holds "$out" $'Kind of installation\n  1) Full (everything)\n  2) Minimal (the program only)\n  3) Server (not on this machine)\nEnter your choice [1-3, default is 1]: '
check "disabled choice refused" \
  grep -qF "Enter your choice [1-3, default is 1]: Choice 3 is disabled, choose something else!" <<<"$out"
check "non-number refused" grep -qF "Enter your choice [1-3, default is 1]: Please, answer with a number (1 to 3)" <<<"$out"
check "check box without default" \
  grep -qF "Register the server component (no or yes): Please, answer with no or yes: " <<<"$out"
check "walk exports beside the program" holds "$out" "$(printf "$export_lines" "$dir/config.xml" "$dir/config.xml")"
check "walk reaches the last page" grep -q 'Setting dialog "Finish"' "$TMPDIR/installer_debug.log"
check "answers reached the variables" grep -qxF "Installed into the folder that was asked for." <<<"$out"
check "exported answers" holds "$(cat "$dir/config.xml")" "<Value Name=\"INSTALLDIR\" DataType=\"value\">$dir/Chosen folder</Value>
 <Value Name=\"DESKTOPICON\" DataType=\"value\">0</Value>
 <Value Name=\"MODE\" DataType=\"value\">1</Value>
 <Value Name=\"SERVERHOST\" DataType=\"value\">0</Value>
 <Value Name=\"SERVERREG\" DataType=\"value\">1</Value>"
walk_config="$dir/config.xml"
walk_installer="$installer"

# The input ends at a question without a default: the walk is cancelled.
make_installer "eof"
out=$(printf '\n\n\n\n\n\n' | "$installer" -gui=0 -debug=1); code=$?
check "ended input is a cancelled run (2), got $code" test "$code" -eq 2
check "ended input told" holds "$out" "Register the server component (no or yes): 
The input has ended before this question was answered. The installation is cancelled."
check "ended input exports nothing" test ! -e "$dir/config.xml"
check "ended input stops before the last page" test "$(grep -c 'Setting dialog "Finish"' "$TMPDIR/installer_debug.log")" -eq 0

# --- A terminal of 12 rows and 50 columns ---------------------------------------
# `script` gives the program a terminal of its own; a machine without one
# (no script, no pseudo-terminals) skips this part.
if command -v script >/dev/null && timeout 10 script -qec true /dev/null </dev/null >/dev/null 2>&1; then
  make_installer "tty"
  out=$(printf '\n\n\n\n\n\n\n\n\n\n\n' | TERM=dumb timeout 30 script -qec "stty rows 12 cols 50 -echo; '$installer' -gui=0" /dev/null |
        tr -d '\r')
  first=$(line_of "WIZARD PRODUCT LICENCE")
  pause=$(line_of "Press ENTER for the next page (q: to the end)...")
  check "terminal: page of 10 lines (pause at +11, got +$((pause - first)))" test "$((pause - first))" -eq 11
  licence=$(sed -n "/WIZARD PRODUCT LICENCE/,/END OF LICENCE/p" <<<"$out" | grep -vF "Press")
  check "terminal: lines of at most 48 columns" test -z "$(awk 'length($0) > 48' <<<"$licence")"
  check "terminal: clauses wrapped" test "$(grep -cxF "copy of the product." <<<"$licence")" -eq 10
  check "terminal: more pauses than on a pipe" test "$(grep -cxF "Press ENTER for the next page (q: to the end)..." <<<"$out")" -gt 2
else
  echo "no pseudo-terminal: the terminal size isn't tested"
fi

# --- Unattended: -auto ------------------------------------------------------------
make_installer "auto"
out=$("$installer" -auto </dev/null); code=$?
config="$dir/config.xml"
check "auto exits 0, got $code" test "$code" -eq 0
check "auto writes no configuration file unless asked" test ! -e "$config"
rm -rf "$dir/Wizard Product"
config="$sandbox/exported/settings.xml"
mkdir -p "$sandbox/exported"
out=$("$installer" -auto -exportConfig="$config" </dev/null); code=$?
check "auto with -exportConfig exits 0, got $code" test "$code" -eq 0
check "auto shows the banner" test "$(head -3 <<<"$out")" = "$banner"
check "auto asks nothing" test -z "$(grep -F -e "Press" -e "Destination folder" -e "Enter your choice" <<<"$out")"
check "auto prints the export lines" holds "$out" "$(printf "$export_lines" "$config" "$config")"
check "auto succeeds" test "$(tail -1 <<<"$out")" = "Automatic installation was successful!"
check "auto exports the template's expression" grep -qF '"INSTALLDIR" DataType="value">$INSTALLER_DIR/Wizard Product<' "$config"
check "auto writes the configuration file where asked" test -f "$config"
# The folder is still what the template's expression gives: the expression
# is exported, not this machine's path.
expected="<DefValues>
 <Value Name=\"INSTALLDIR\" DataType=\"value\">\$INSTALLER_DIR/Wizard Product</Value>
 <Value Name=\"DESKTOPICON\" DataType=\"value\">1</Value>
 <Value Name=\"MODE\" DataType=\"value\">0</Value>
 <Value Name=\"SERVERHOST\" DataType=\"value\">0</Value>
 <Value Name=\"SERVERREG\" DataType=\"value\">-1</Value>
 <Value Name=\"COMPANY\" DataType=\"value\">Smith &amp; Sons &lt;Research&gt;</Value>
</DefValues>"
check "auto config: defaults, no excluded variable, entities encoded" test "$(cat "$config")" = "$expected"
check "auto config: no licence key" test -z "$(grep LICENCEKEY "$config")"

# --- Replay of the walk's answers on a fresh sandbox ------------------------------
new_sandbox "replay"
mkdir -p "$QLUX_ROOT/opt"
cp "$walk_config" "$sandbox/replay/config.xml"
cp "$walk_config" "$sandbox/walk-config.saved"
cd "$sandbox/replay"
out=$(printf 'no\n3\n' | "$walk_installer" -configFile=config.xml); code=$?
check "replay exits 0, got $code" test "$code" -eq 0
check "replay prints only the success line" test "$out" = "Automatic installation was successful!"
check "replay exports nothing" cmp -s "$walk_config" "$sandbox/walk-config.saved"
# Loud, the last page tells which of the file's values the run holds.
out=$("$walk_installer" -configFile=config.xml -quiet=0 </dev/null)
for line in "Installed into the folder that was asked for." "Licensed to the company." \
            "No desktop icon was made." "Only the program was installed."; do
  check "replayed: $line" grep -qxF "$line" <<<"$out"
done
check "loud replay succeeds" test "$(tail -1 <<<"$out")" = "Automatic installation was successful!"

# --- Configuration files that can't be used ----------------------------------------
echo "not xml at all" >"$sandbox/replay/junk.xml"
echo "<Settings><Value Name=\"A\">1</Value></Settings>" >"$sandbox/replay/other.xml"
log="$TMPDIR/installer_debug.log"
for name in missing.xml junk.xml other.xml; do
  rm -f "$log"
  out=$("$walk_installer" -configFile="$name" -debug=1 </dev/null 2>/dev/null); code=$?
  if [ "$name" = missing.xml ]; then
    message="The file \"$name\" does not exist! Please specify existing file!"
  else
    message="The file \"$name\" is not a propper XML installation config file. The installation can not continue!"
  fi
  check "$name: a bad configuration file exits 4, got $code" test "$code" -eq 4
  check "$name: only its message" test "$(grep -vF "installer_debug.log" <<<"$out" | grep -v "^Successfully created Installer debug log file:")" = "$message"
  check "$name: the run ends" grep -q "ERROR: Unable to initialize Console installation" "$log"
  check "$name: no wizard" test "$(grep -c "Starting installation UI" "$log")" -eq 0
done
cd "$sandbox"

# --- A graphical run without a display ---------------------------------------------
# The console stands in for the window and keeps -quiet; a graphical run
# exports no configuration.
make_installer "nodisplay"
out=$(printf '\n\n\n\n\n\nyes\n' | env -u DISPLAY -u WAYLAND_DISPLAY "$installer" -quiet=1 2>/dev/null); code=$?
check "no display: exits 0, got $code" test "$code" -eq 0
check "no display: quiet, no banner or page text" \
  test -z "$(grep -F -e "Halvo Works installer" -e "Welcome to the Wizard Product setup." <<<"$out")"
check "no display: no config.xml" test ! -e "$dir/config.xml"

# --- Started through a link --------------------------------------------------------
# INSTALLER_DIR and config.xml are where the user started the program: the
# link's folder, whether named by path, relative to the working directory,
# or found on PATH. Each way runs on a machine of its own, answered by a
# person, whose run writes config.xml beside the program; the destination it
# offers follows INSTALLER_DIR.
answers='\n\n\n\n\n\nyes\n'
# link_case NAME: a fresh machine with the installer linked from elsewhere/.
link_case() {
  make_installer "$1"
  mkdir -p "$dir/elsewhere" "$dir/other"
  ln -s "$installer" "$dir/elsewhere/setup-link"
}
# in_link_folder: config.xml and the offered destination are the link's.
in_link_folder() { test -f "$dir/elsewhere/config.xml" && holds "$out" "[$dir/elsewhere/Wizard Product]"; }
link_case "link"
out=$(printf "$answers" | "$dir/elsewhere/setup-link" -gui=0)
check "link: config.xml in the link's folder" test -f "$dir/elsewhere/config.xml"
check "link: INSTALLER_DIR is the link's folder" in_link_folder
check "link: nothing beside the program itself" test ! -e "$dir/config.xml"
link_case "link-relative"
out=$(cd "$dir/elsewhere" && printf "$answers" | ./setup-link -gui=0)
check "link: a relative name gives the same folder" in_link_folder
link_case "link-path"
out=$(cd "$dir/other" && printf "$answers" | PATH="$dir/elsewhere:$PATH" setup-link -gui=0)
check "link: found on PATH, the same folder" in_link_folder

finish
