#!/usr/bin/env bash
# The demo product through the wizard window of the Windows program, run
# under Wine on a private X server (tests/with_display.sh): Wine's windows
# are X windows, found by their titles and driven with xdotool.
#
#   windows_gui_test.sh SETUP_EXE PACK      (WINEPREFIX: a prefix that
#                                            wineboot has made)
#
# examples/demo, packed onto the Windows program, installs through its
# window from the first page to the end by Return presses (the page's
# default button); its files are then in the folder that the template's
# default names, inside this test's sandbox (Wine shows it under Z:). The
# registered uninstall command removes it again through its own window.
# The themed variant installs through the window as well. An installer
# whose package fails its checksum tells so in a message box titled
# "Halvo Software installer" and exits 0 once Return dismissed the box.
# With QLUX_SHOTS_DIR set, that box is saved as win-checksum-message.png
# there (scripts/screenshots.sh asks for it).
#
# The product's name, and with it its window title, registry key and
# environment variable, carries the sandbox's random suffix, so that a
# shared prefix is left as it was found: each installation goes through
# the product's own uninstaller.
wine_tmp=${TMPDIR:-/tmp}
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
source "$here/wine_lib.sh"

if [ -z "${DISPLAY:-}" ] || ! command -v xdotool >/dev/null 2>&1; then
  echo "SKIPPED: needs a display and xdotool (run under tests/with_display.sh)"
  exit 0
fi

tag=${sandbox##*.}
product="Qlux Demo $tag"
title="$product Setup"
# A Wine server started without this display would serve the windows
# elsewhere: start from none.
settle
find_wine_places
# The window loads the toolkit's DLLs (themes, accessibility, the common
# controls): DLLs of their names planted beside the installers and in the
# temporary folder must never be loaded (tests/wine_lib.sh).
mkdir -p "$sandbox/run"
plant_dlls "$sandbox/run" "$temp_dir"

# pack_demo NAME TEMPLATE: the demo with TEMPLATE as its template, its names
# marked with the suffix and its default folder $sandbox/NAME-product, as
# $sandbox/run/NAME-setup.exe; sets product_dir to that folder.
pack_demo() {
  local stage="$sandbox/$1-stage" folder
  product_dir="$sandbox/$1-product"
  folder=$(dos_path "$sandbox")
  folder="${folder//\\//}/$1-product"
  mkdir -p "$stage" "$sandbox/run"
  cp -r "$here/../examples/demo/." "$stage/"
  sed -e "s/Qlux Demo/$product/g" -e "s/QLUX_DEMO_HOME/QLUX_DEMO_HOME_$tag/g" \
    -e "s|>\$PROGRAMFILES/[^<]*<|>$folder<|" "$2" >"$stage/install.xml"
  grep -qF ">$folder<" "$stage/install.xml" || { echo "FAILED: no default folder in $2"; exit 1; }
  cp "$setup" "$stage/qlux-uninstall.exe"
  "$pack" --stub "$setup" --template "$stage/install.xml" --source "$stage" -o "$sandbox/run/$1-setup.exe" \
    >/dev/null || { echo "FAILED: packing the demo ($1)"; exit 1; }
}

# start EXE [ARGS...]: runs the Windows program from $sandbox/run in the
# background with its output in $sandbox/EXE.out; sets pid.
start() {
  (cd "$sandbox/run" && runwine "$@" </dev/null >"$sandbox/$1.out" 2>&1) &
  pid=$!
}

# drive WINDOW: Return on the window every half second until the process
# $pid ends; gives up after a minute. Sets status and presses.
drive() {
  presses=0
  for _ in $(seq 1 120); do
    kill -0 "$pid" 2>/dev/null || break
    if window_exists "$1"; then
      press_key "$1" Return
      presses=$((presses + 1))
    fi
    sleep 0.5
  done
  if kill -0 "$pid" 2>/dev/null; then
    echo "FAILED: the program still runs after $presses presses of Return"
    failures=$((failures + 1))
    kill "$pid" 2>/dev/null
  fi
  wait "$pid"
  status=$?
  settle
}

# uninstall_command [ARGS]: runs the registered UninstallString, with ARGS
# behind it, through cmd as the list of installed programs runs it.
uninstall_command() {
  printf '@echo off\r\n%s %s\r\n' "$(entry_value UninstallString)" "$*" >"$sandbox/uninstall.bat"
  runwine cmd /c "$(dos_path "$sandbox/uninstall.bat")" </dev/null >"$sandbox/uninstall.out" 2>&1
}

installed_well() {  # installed_well LABEL: the demo's files and entry are there
  check "$1: the installer ends well (status $status)" test "$status" -eq 0
  for file in readme.txt bin/qlux-demo.cmd etc/demo.conf doc/guide.txt samples/colours.csv; do
    check "$1: installed $file" cmp -s "$here/../examples/demo/$file" "$product_dir/$file"
  done
  check "$1: the uninstall data is written" test -f "$product_dir/uninstall/install.log"
  check "$1: the product is registered" test -n "$(entry_value UninstallString)"
  check "$1: the window was used, not the console" \
    bash -c "! grep -q 'runs on the console' '$sandbox/$2.out'"
}

# --- The plain demo, installed and removed through the window ----------------------
pack_demo plain "$here/../examples/demo/install.xml"
touch "$sandbox/started"
start plain-setup.exe -debug=1
window=$(wait_window "^$title\$")
check "the wizard window appears" test -n "$window"
drive "$window"
echo "installed through the window with $presses presses of Return"
installed_well plain plain-setup.exe
check "the debug log is this run's" test "$debug_log" -nt "$sandbox/started"
check "the walk passed the options and reached the last page" \
  bash -c "grep -q 'Setting dialog \"Options\"' '$debug_log' && grep -q 'Setting dialog \"PostInstall\"' '$debug_log'"

uninstall_command
window=$(wait_window "^$title\$")
check "uninstall: the window appears" test -n "$window"
for _ in $(seq 1 60); do
  window_exists "$window" || break
  press_key "$window" Return
  sleep 0.5
done
settle
check "uninstall: the window closes" bash -c "! xdotool getwindowgeometry '$window' >/dev/null 2>&1"
check "uninstall: the product's folder is gone" test ! -e "$product_dir"
check "uninstall: the entry is gone" test -z "$(entry_value UninstallString)"

# --- The themed demo through the window ---------------------------------------------
pack_demo themed "$here/../examples/demo/install-themed.xml"
start themed-setup.exe
window=$(wait_window "^$title\$")
check "themed: the wizard window appears" test -n "$window"
drive "$window"
installed_well themed themed-setup.exe
check "themed: the installed template is the themed one" \
  grep -q "<ColourTheme>" "$product_dir/uninstall/install.xml"
# Removed unattended: the window's way out is shown above.
uninstall_command -gui=0
settle
check "themed: removed again" test ! -e "$product_dir"

# --- A damaged package: the message box before any window ---------------------------
cp "$sandbox/run/plain-setup.exe" "$sandbox/run/damaged.exe"
size=$(stat -c %s "$sandbox/run/damaged.exe")
byte=$(od -An -tu1 -j $((size - 100)) -N1 "$sandbox/run/damaged.exe" | tr -d ' ')
printf "\\$(printf '%03o' $((byte ^ 255)))" |
  dd of="$sandbox/run/damaged.exe" bs=1 seek=$((size - 100)) conv=notrunc status=none
product_dir="$sandbox/plain-product"
touch "$sandbox/started"
start damaged.exe -debug=1
box=$(wait_window "^Halvo Software installer\$")
check "checksum: a message box titled \"Halvo Software installer\" appears" test -n "$box"
if [ -n "$box" ] && [ -n "${QLUX_SHOTS_DIR:-}" ]; then
  sleep 1
  import -window "$box" "png:$QLUX_SHOTS_DIR/win-checksum-message.png" 2>/dev/null &&
    echo "checksum: win-checksum-message.png"
fi
check "checksum: the run waits for the box" kill -0 "$pid"
[ -n "$box" ] && press_key "$box" Return
for _ in $(seq 1 100); do
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
kill -0 "$pid" 2>/dev/null && kill "$pid" 2>/dev/null
wait "$pid"
status=$?
settle
check "checksum: the program exits 0 after Return (status $status)" test "$status" -eq 0
check "checksum: the debug log is this run's" test "$debug_log" -nt "$sandbox/started"
check "checksum: the failure is logged" grep -qF "ERROR: The installer checksum failed!" "$debug_log"
check "checksum: no wizard window came" bash -c "! grep -q 'Setting dialog' '$debug_log'"
check "checksum: nothing is installed" test ! -e "$product_dir"

check_planted

if [ "$failures" -ne 0 ]; then
  for f in plain-setup.exe themed-setup.exe damaged.exe uninstall; do
    [ -s "$sandbox/$f.out" ] && sed "s/^/  $f: /" "$sandbox/$f.out" | tail -n 10
  done
fi
finish
