#!/usr/bin/env bash
# The demo product through the wizard window of the Windows program, run
# under Wine on a private X server (tests/with_display.sh): Wine's windows
# are X windows, found by their titles and driven with xdotool; text that
# must be seen is read from pictures with OCR (tesseract).
#
#   windows_gui_test.sh SETUP_EXE PACK      (WINEPREFIX: a prefix that
#                                            wineboot has made)
#
# examples/demo, packed onto the Windows program, installs through its
# window from the first page to the end by Return presses (the page's
# default button); its files are then in the folder that the template's
# default names, inside this test's sandbox (Wine shows it under Z:). The
# registered uninstall command removes it again through its own window,
# whose first page names the product within a second. The themed variant
# installs through the window as well, after Escape asked to cancel and
# Return answered No. A template with Back and Next on every page changes
# nothing when they are clicked during the copy and on the last page; a
# failed installation shows its reasons; at 2x and 1.6x text on a 1280x900
# screen every button is on the screen and the banner is drawn from its
# large form; the German long-text variant wraps
# its 80-character name between words. An installer whose package fails its
# checksum tells so in a message box titled "Halvo Software installer" and
# exits 0 once Return dismissed the box. With QLUX_SHOTS_DIR set, that box
# is saved as win-checksum-message.png there (scripts/screenshots.sh asks
# for it).
#
# The product's name, and with it its window title, registry key and
# environment variable, carries the sandbox's random suffix, so that a
# shared prefix is left as it was found: each installation goes through
# the product's own uninstaller.
wine_tmp=${TMPDIR:-/tmp}
here=$(cd "$(dirname "$0")" && pwd)
mode=""
if [ "${1:-}" = --on-screen ]; then
  # The frame of the installer $2 (whose title is $3) on this screen, at the
  # prefix's present text size: checked, then cancelled.
  mode=on-screen
  shift
fi
setup=$(realpath "$1")
pack=$(realpath "${2:-$1}")
source "$here/lib.sh"
source "$here/wine_lib.sh"

if [ -z "${DISPLAY:-}" ] || ! command -v xdotool >/dev/null 2>&1; then
  echo "SKIPPED: needs a display and xdotool (run under tests/with_display.sh)"
  exit 0
fi

tag=${sandbox##*.}
product="Qlux Demo $tag"
title="$product Setup"
[ "$mode" = on-screen ] && title=$3
# A Wine server started without this display would serve the windows
# elsewhere: start from none.
settle
find_wine_places
# The window loads the toolkit's DLLs (themes, accessibility, the common
# controls): DLLs of their names planted beside the installers and in the
# temporary folder must never be loaded (tests/wine_lib.sh).
# (A run --on-screen starts the installer where the calling test planted
# them.)
mkdir -p "$sandbox/run"
[ "$mode" = on-screen ] || plant_dlls "$sandbox/run" "$temp_dir"

# pack_demo NAME TEMPLATE [LICENCE]: the demo with TEMPLATE as its template
# (and LICENCE as its licence), its names marked with the suffix and its
# default folder $sandbox/NAME-product, as $sandbox/run/NAME-setup.exe; sets
# product_dir to that folder.
pack_demo() {
  local stage="$sandbox/$1-stage" folder
  product_dir="$sandbox/$1-product"
  folder=$(dos_path "$sandbox")
  folder="${folder//\\//}/$1-product"
  mkdir -p "$stage" "$sandbox/run"
  cp -r "$here/../examples/demo/." "$stage/"
  [ -n "${3:-}" ] && cp "$3" "$stage/licence.rtf"
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

# page: the page the installer shows last, by the debug log; entered NAME:
# how often the page NAME was entered.
page() { sed -n 's/.*Setting dialog "\([^"]*\)".*/\1/p' "$debug_log" 2>/dev/null | tail -n 1; }
entered() { grep -c "Setting dialog \"$1\"" "$debug_log" 2>/dev/null; }
# press_until WINDOW PAGE: Return until the debug log says PAGE is shown,
# at most about 40 s; then waits for the page to settle. No key goes to a
# page that works: it would wait there and press the next page's button.
press_until() {
  for _ in $(seq 1 80); do
    [ "$(page)" = "$2" ] && break
    kill -0 "$pid" 2>/dev/null || break
    case "$(page)" in
      Uninstall | CopyProgress | RevertInstallation | RegisterApplication | PostInstall) ;;
      *) press_key "$1" Return ;;
    esac
    sleep 0.5
  done
  sleep 1.5
}
# ocr WINDOW: the text that the window shows, as OCR reads it from a picture
# at twice the size.
ocr() {
  # A window that is not on the screen has no picture: import would wait
  # for a click instead.
  xdotool search --onlyvisible --name . 2>/dev/null | grep -qx "$1" || return 1
  timeout 20 import -window "$1" "png:$sandbox/ocr.png" 2>/dev/null &&
    convert "$sandbox/ocr.png" -resize 200% "$sandbox/ocr-large.png" &&
    tesseract "$sandbox/ocr-large.png" - 2>/dev/null
}
# box_answer TITLE KEY: presses KEY in the message box TITLE; fails without one.
box_answer() {
  local box
  box=$(wait_window "^$1\$")
  [ -n "$box" ] || return 1
  sleep 0.5
  press_key "$box" "$2"
}
# click WINDOW X Y: a click at X, Y template units from the frame's right
# and bottom edges (a unit is the frame's width over the template's 760).
click() {
  local WIDTH="" HEIGHT="" X Y SCREEN WINDOW geometry
  geometry=$(xdotool getwindowgeometry --shell "$1" 2>/dev/null) || return 1
  eval "$geometry"
  xdotool mousemove --window "$1" $((WIDTH - $2 * WIDTH / 760)) $((HEIGHT - $3 * WIDTH / 760)) click 1 \
    >/dev/null 2>&1
}
# wait_end: waits up to 20 s for the process $pid; sets status.
wait_end() {
  for _ in $(seq 1 200); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  if kill -0 "$pid" 2>/dev/null; then
    echo "FAILED: the program still runs"
    failures=$((failures + 1))
    kill "$pid" 2>/dev/null
  fi
  wait "$pid"
  status=$?
  settle
}

# --on-screen: the frame lies on this screen, its buttons readable there.
if [ "$mode" = on-screen ]; then
  (cd "$(dirname "$setup")" && runwine "$setup" </dev/null >"$sandbox/screen.out" 2>&1) &
  pid=$!
  window=$(wait_window "^$title\$")
  check "the wizard window appears" test -n "$window"
  if [ -n "$window" ]; then
    sleep 3
    eval "$(xdotool getdisplaygeometry --shell | sed 's/^/SCREEN_/')"
    eval "$(xdotool getwindowgeometry --shell "$window")"
    echo "frame at $X,$Y, $WIDTH by $HEIGHT, on a screen of $SCREEN_WIDTH by $SCREEN_HEIGHT"
    check "the frame lies on the screen" \
      test "$X" -ge 0 -a "$Y" -ge 0 -a $((X + WIDTH)) -le "$SCREEN_WIDTH" -a $((Y + HEIGHT)) -le "$SCREEN_HEIGHT"
    import -window root "png:$sandbox/root.png" 2>/dev/null
    text=$(tesseract "$sandbox/root.png" - 2>/dev/null)
    check "Next is on the screen" holds "$text" "Next"
    check "Cancel is on the screen" holds "$text" "Cancel"
    # Large text: the banner drawn from its large form.
    images="$here/../examples/demo/images"
    check "the banner is drawn from banner@2x" \
      test "$(drawn_form "$window" "$images/banner.png" "$images/banner@2x.png")" = large
    press_key "$window" Escape
    box_answer "Cancel confirmation" alt+y
  fi
  wait_end
  finish
  exit
fi

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
# Wine names each DLL it loads: the common controls must be version 6, from
# the side-by-side store, as the program's manifest asks (themed controls).
wine_debug=+loaddll start plain-setup.exe -debug=1
window=$(wait_window "^$title\$")
check "the wizard window appears" test -n "$window"
drive "$window"
echo "installed through the window with $presses presses of Return"
installed_well plain plain-setup.exe
check "the window drew with common controls 6: $(grep -o 'common-controls[^\\]*' "$sandbox/plain-setup.exe.out" | head -n 1)" \
  grep -qi 'winsxs\\\\amd64_microsoft.windows.common-controls_6595b64144ccf1df_6\.0\.[^\\]*\\\\comctl32.dll' \
  "$sandbox/plain-setup.exe.out"
check "and no other comctl32" \
  bash -c "! grep -qi 'Loaded L\"C:\\\\\\\\windows\\\\\\\\system32\\\\\\\\comctl32.dll' '$sandbox/plain-setup.exe.out'"
check "the debug log is this run's" test "$debug_log" -nt "$sandbox/started"
check "the walk passed the options and reached the last page" \
  bash -c "grep -q 'Setting dialog \"Options\"' '$debug_log' && grep -q 'Setting dialog \"Finish\"' '$debug_log'"
check "the product's program ran once" test "$(grep -c . "$product_dir/var/last-run.log")" -eq 1

uninstall_command
window=$(wait_window "^$product Uninstall\$")
check "uninstall: the window appears, with a title of its own" test -n "$window"
# Its first page says what goes, within a second, before anything is removed.
if [ -n "$window" ]; then
  sleep 1
  text=$(ocr "$window")
  check "uninstall: the first page names the product within a second" holds "$text" "Remove Qlux Demo"
  check "uninstall: Next is labelled Remove" holds "$text" "Remove"
  check "uninstall: nothing is removed before Remove" test -f "$product_dir/bin/qlux-demo.cmd"
fi
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
# Escape asks to cancel; Return answers No, the default.
if [ -n "$window" ]; then
  sleep 1
  press_key "$window" Escape
  check "themed: Escape asks \"Cancel confirmation\"" box_answer "Cancel confirmation" Return
  sleep 1
  check "themed: Return on the question answers no" kill -0 "$pid"
fi
drive "$window"
installed_well themed themed-setup.exe
check "themed: the installed template is the themed one" \
  grep -q "<ColourTheme>" "$product_dir/uninstall/install.xml"
# Removed unattended: the window's way out is shown above.
uninstall_command -gui=0
settle
check "themed: removed again" test ! -e "$product_dir"

# --- Back and Next on every page, clicked while work runs and on the last page --------
# The frame gets Back and Next of its own beside the pages' buttons, as
# templates used to have them. The product's command script waits for the
# file "release" while the installation waits for it asynchronously: the
# copy page stays up. Back twice and Next once there, and Back on the last
# page, change nothing: the program ran once, the files were copied once,
# the product was registered once.
steps='<Button DialogShift="-1" x="370" y="50" HAlign="right" VAlign="bottom">Go bac\&amp;k</Button>'
steps="$steps"'<Button DialogShift="1" x="280" y="50" HAlign="right" VAlign="bottom">Go \&amp;on</Button>'
sed "0,/<TaskLB Name=\"TaskList\"[^>]*>/s||&$steps|" "$here/../examples/demo/install.xml" >"$sandbox/careless.xml"
pack_demo careless "$sandbox/careless.xml"
release=$(dos_path "$sandbox/release")
{ head -n 1 "$here/../examples/demo/bin/qlux-demo.cmd"
  printf ':wait\r\nif not exist "%s" goto wait\r\n' "$release"
  tail -n +2 "$here/../examples/demo/bin/qlux-demo.cmd"; } >"$sandbox/careless-stage/bin/qlux-demo.cmd"
"$pack" --stub "$setup" --template "$sandbox/careless-stage/install.xml" --source "$sandbox/careless-stage" \
  -o "$sandbox/run/careless-setup.exe" >/dev/null || { echo "FAILED: packing the careless demo"; exit 1; }
touch "$sandbox/started"
start careless-setup.exe -debug=1
window=$(wait_window "^$title\$")
check "careless: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_until "$window" CopyProgress
  for _ in $(seq 1 100); do
    [ -f "$product_dir/shortcuts/$product.lnk" ] && break
    sleep 0.2
  done
  sleep 1
  # Back twice, Next once: 370 and 280 units from the right edge, 35 from the bottom.
  for x in 330 330 240; do
    click "$window" "$x" 35
    sleep 0.5
  done
  check "careless: Back and Next during the copy leave the copy page" test "$(page)" = CopyProgress
  touch "$sandbox/release"
  press_until "$window" Finish
  check "careless: the installation reached its last page" test "$(page)" = Finish
  click "$window" 330 35
  sleep 1
  click "$window" 330 35
  sleep 1
  check "careless: Back on the last page stays there" test "$(page)" = Finish
  press_key "$window" Return
  wait_end
fi
touch "$sandbox/release"
check "careless: the installer ends well (status $status)" test "$status" -eq 0
check "careless: the files were copied once" test "$(entered CopyProgress)" -eq 1
check "careless: the product's program ran once" test "$(grep -c . "$product_dir/var/last-run.log")" -eq 1
check "careless: the product was registered once" test "$(entered RegisterApplication)" -eq 1
uninstall_command -gui=0
settle
check "careless: removed again" test ! -e "$product_dir"

# --- A failed installation ---------------------------------------------------------
# A file stands where the documentation's folder belongs: the page after the
# file stage names what failed; Next undoes the installation.
pack_demo failed "$here/../examples/demo/install.xml"
mkdir -p "$product_dir"
echo "in the way" >"$product_dir/doc"
start failed-setup.exe -debug=1
window=$(wait_window "^$title\$")
check "failed: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_until "$window" BadFinish
  text=$(ocr "$window")
  check "failed: the page after the file stage names the failure" holds "$text" "FAILED"
  check "failed: ... and the file that failed" holds "$text" "guide.txt"
  press_until "$window" Finish
  text=$(ocr "$window")
  check "failed: the last page says the installation was undone" holds "$text" "has been undone"
  press_key "$window" Return
  wait_end
fi
check "failed: only what was there before is left" test "$(ls -A "$product_dir")" = doc
check "failed: the product is not registered" test -z "$(entry_value UninstallString)"
rm -rf -- "$product_dir"

# --- Large text: every button on a 1280x900 screen ------------------------------------
# The prefix's message font, which the window takes as its text, at 1.6 and
# at 2 times its size (the program declares no DPI awareness, so Wine's
# LogPixels would not reach it); the window is shown on a screen of its
# own, whose server the prefix's Wine server must follow.
pack_demo screen "$here/../examples/demo/install.xml"
metrics_key='HKCU\Control Panel\Desktop\WindowMetrics'
font_before=$(reg_value "$metrics_key" MessageFont)
# A LOGFONTW: its first four bytes are the height, -11 pixels as Wine has it.
for size in 1.6:EEFFFFFF 2:EAFFFFFF; do
  runwine reg add "$metrics_key" /v MessageFont /t REG_BINARY /d "${size#*:}${font_before:8}" /f >/dev/null 2>&1
  settle
  out=$(env QLUX_SCREEN_SIZE=1280x900 "$here/with_display.sh" bash "$here/windows_gui_test.sh" --on-screen \
    "$sandbox/run/screen-setup.exe" "$pack" "$title" 2>&1)
  settle
  check "text ${size%%:*} times as large on 1280x900: every button is on the screen" grep -q " 0 failed" <<<"$out"
  grep -E "FAILED|frame at|drawn as" <<<"$out" | sed "s/^/  text ${size%%:*} times as large: /"
done
runwine reg add "$metrics_key" /v MessageFont /t REG_BINARY /d "$font_before" /f >/dev/null 2>&1
settle

# --- The German long-text variant ---------------------------------------------------
name="Qlux Demo Unternehmensausgabe mit Fernwartung und zentraler Protokollverwaltungen"
sed -f "$here/data/german/demo.sed" "$here/../examples/demo/install.xml" >"$sandbox/german.xml"
pack_demo german "$sandbox/german.xml" "$here/data/german/licence-de.rtf"
start german-setup.exe
window=$(wait_window "^$title\$")
check "german: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  sleep 2
  text=$(ocr "$window")
  for word in $name; do
    check "german: \"$word\" stands whole on the first page" grep -qw -- "$word" <<<"$text"
  done
  check "german: the name goes on a second line" apart "$text" Willkommen Protokollverwaltungen
  press_key "$window" Escape
  box_answer "Cancel confirmation" alt+y
  wait_end
fi

# --- A damaged package: the message box before any window ---------------------------
cp "$sandbox/run/plain-setup.exe" "$sandbox/run/damaged.exe"
size=$(stat -c %s "$sandbox/run/damaged.exe")
flip_byte "$sandbox/run/damaged.exe" $((size - 100))
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
check "checksum: the program exits 3, a damaged installer, after Return (status $status)" test "$status" -eq 3
check "checksum: the debug log is this run's" test "$debug_log" -nt "$sandbox/started"
check "checksum: the failure is logged" grep -qF "ERROR: The installer checksum failed!" "$debug_log"
check "checksum: no wizard window came" bash -c "! grep -q 'Setting dialog' '$debug_log'"
check "checksum: nothing is installed" test ! -e "$product_dir"

check_planted

if [ "$failures" -ne 0 ]; then
  for f in plain-setup.exe themed-setup.exe careless-setup.exe failed-setup.exe german-setup.exe damaged.exe uninstall; do
    [ -s "$sandbox/$f.out" ] && sed "s/^/  $f: /" "$sandbox/$f.out" | tail -n 10
  done
fi
finish
