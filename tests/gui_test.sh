#!/usr/bin/env bash
# gui_test.sh SETUP PACK: the demo product through its wizard window, as its
# users meet it. The packed installer runs with a display (tests/with_display.sh
# gives a private one) and is driven by keys and clicks; text that must be
# seen is read from pictures of the window with OCR (tesseract).
#   - Return presses (the page's default button) install the demo; the result
#     equals an unattended console installation byte for byte, and the
#     product's program ran once.
#   - The themed variant installs; its uninstaller's first page names the
#     product within a second, and Return removes it.
#   - Escape asks to cancel, and a Return on the question answers No; a
#     click on Cancel and Yes end the run with nothing changed. The task list
#     shows no failure step before a failure.
#   - A running program of the product holds the wizard on a page that says
#     what to do and names it; once it ended, one Return goes on.
#   - A template with Back and Next on every page (the mistake the demo no
#     longer makes): while the files are copied and the program runs, the
#     close box only says that this can't be aborted, and Back and Next do
#     nothing; on the last page Back goes nowhere. The program ran once, the
#     product was registered once.
#   - A frame page without sub-dialogs holds the walk in spite of AutoNext.
#   - A failed installation shows its reasons on its page, and undoes itself.
#   - At GDK_SCALE=2 and at GDK_DPI_SCALE=1.6 on a 1280x900 screen every
#     button is on the screen, and the banner is drawn from its large form.
#   - The German long-text variant wraps its 80-character product name
#     between words.
#   - Without a display the same installer falls back to the console.
# Skips without a display or without xdotool. With --on-screen SETUP (run by
# the test itself on a screen of its own) it only checks that the window and
# its buttons fit that screen, and that the banner is drawn from its large
# form.
mode=""
if [ "${1:-}" = --on-screen ]; then
  mode=on-screen
  shift
fi
setup=$1
pack=${2:-}
top="$(cd "$(dirname "$0")/.." && pwd)"
. "$top/tests/lib.sh"

if [ -z "${DISPLAY:-}" ] || ! command -v xdotool >/dev/null 2>&1; then
  echo "SKIPPED: needs a display and xdotool (run under tests/with_display.sh)"
  exit 0
fi

title="Qlux Demo Setup"

# pack_demo NAME TEMPLATE [LICENCE]: packs the demo with TEMPLATE as its
# install.xml (and LICENCE as its licence) into $sandbox/NAME-setup;
# pack_options (such as --no-strict) go to qlux-pack.
pack_demo() {
  local source="$sandbox/$1-source"
  cp -r "$top/examples/demo" "$source"
  cp "$2" "$source/install.xml"
  [ -n "${3:-}" ] && cp "$3" "$source/licence.rtf"
  cp "$setup" "$source/qlux-uninstall.exe"
  "$pack" ${pack_options:+"$pack_options"} --stub "$setup" --template "$source/install.xml" --source "$source" \
    -o "$sandbox/$1-setup" >/dev/null || { echo "FAILED: packing the demo ($1)"; exit 1; }
}

# prepare_root: the machine-wide places of a fresh sandbox.
prepare_root() {
  mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
  printf '%s\n' 'PATH="/usr/bin:/bin"' >"$QLUX_ROOT/etc/environment"
}

# start_window INSTALLER OUTPUT: starts the installer (with the debug log)
# in the background and waits for its frame; sets pid, window (empty if
# none came) and log.
start_window() {
  "$1" -debug=1 </dev/null >"$2" 2>&1 &
  pid=$!
  log="$TMPDIR/installer_debug.log"
  window=""
  # Up to 30 s: the first window of a loaded machine can be slow to come.
  for _ in $(seq 1 300); do
    window=$(xdotool search --name "$title" 2>/dev/null | head -n 1)
    [ -n "$window" ] && break
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  # Without a window the installer says why on its first lines (a display
  # that couldn't be opened sends it to the console).
  [ -n "$window" ] || head -n 3 "$2" | sed 's/^/  no window: /'
}

# page: the page the installer shows last, by its debug log.
page() { sed -n 's/.*Setting dialog "\([^"]*\)".*/\1/p' "$log" 2>/dev/null | tail -n 1; }
# entered NAME: how often the page NAME was entered.
entered() { grep -c "Setting dialog \"$1\"" "$log" 2>/dev/null; }
# press_until PAGE: Return until the debug log says PAGE is shown, at most
# about 30 s; then waits for the page to settle. No key goes to a page that
# works: it would wait there and press the next page's button.
press_until() {
  for _ in $(seq 1 60); do
    [ "$(page)" = "$1" ] && break
    kill -0 "$pid" 2>/dev/null || break
    case "$(page)" in
      Uninstall | CopyProgress | RevertInstallation | RegisterApplication | PostInstall) ;;
      *) press_return ;;
    esac
    sleep 0.5
  done
  sleep 1
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
# shows TEXT PHRASE: whether OCR's TEXT holds PHRASE, wherever the page
# broke its lines: a wrapped text's break depends on the width of what
# stands before it, such as a sandbox path of random letters.
shows() { holds "$(tr '\n' ' ' <<<"$1" | tr -s ' ')" "$2"; }
# ocr_for WINDOW PHRASE: the window's text as read, read again (up to five
# times, a second apart) until it shows PHRASE, so that a page drawn late
# under load, or one misread glyph, doesn't fail the checks that follow.
ocr_for() {
  local text
  for _ in 1 2 3 4 5; do
    text=$(ocr "$1")
    shows "$text" "$2" && break
    sleep 1
  done
  printf '%s\n' "$text"
}
# box_answer TITLE KEY: presses KEY in the message box TITLE; fails without one.
box_answer() {
  local box
  box=$(wait_for_window "$1")
  [ -n "$box" ] || return 1
  xdotool windowfocus --sync "$box" >/dev/null 2>&1
  xdotool key --window "$box" "$2" >/dev/null 2>&1
}
# wait_end: waits up to ten seconds for the installer to end; sets status.
wait_end() {
  for _ in $(seq 1 100); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  if kill -0 "$pid" 2>/dev/null; then
    echo "FAILED: the installer still runs"
    failures=$((failures + 1))
    kill "$pid" 2>/dev/null
  fi
  wait "$pid"
  status=$?
}

# press_return: Return on the frame, which presses the page's default button.
press_return() { press_key "$window" Return; }

# drive_to_end: presses Return once in a while until the installer ends;
# gives up after about a minute. Sets status and presses.
drive_to_end() {
  presses=0
  for _ in $(seq 1 120); do
    kill -0 "$pid" 2>/dev/null || break
    if [ -n "$window" ]; then
      press_return
      presses=$((presses + 1))
    fi
    sleep 0.5
  done
  if kill -0 "$pid" 2>/dev/null; then
    echo "FAILED: the installer still runs after $presses presses of Return"
    kill "$pid" 2>/dev/null
    failures=$((failures + 1))
  fi
  wait "$pid"
  status=$?
}

# tree DIR: every entry below DIR with its kind and mode; a file with its
# size and a digest of its bytes, a symbolic link with its target.
tree() {
  (cd "$1" && find . -mindepth 1 -printf '%y\t%m\t%P\t%l\n' | LC_ALL=C sort -t "$(printf '\t')" -k3,3 |
    while IFS=$'\t' read -r kind mode path target; do
      if [ "$kind" = f ]; then
        echo "$kind $mode $path $(stat -c %s "$path") $(md5sum <"$path" | cut -c1-32)"
      else
        echo "$kind $mode $path $target"
      fi
    done)
}

# wait_for_window NAME: the id of the first window of that name, waiting up
# to a minute (the uninstaller copies itself first); empty if none came.
wait_for_window() {
  local found=""
  for _ in $(seq 1 600); do
    found=$(xdotool search --name "$1" 2>/dev/null | head -n 1)
    [ -n "$found" ] && break
    sleep 0.1
  done
  echo "$found"
}

# --on-screen: the frame and its buttons lie on this screen.
if [ "$mode" = on-screen ]; then
  new_sandbox screen
  prepare_root
  start_window "$setup" "$sandbox/screen.out"
  check "the wizard window appears" test -n "$window"
  if [ -n "$window" ]; then
    sleep 2
    eval "$(xdotool getdisplaygeometry --shell | sed 's/^/SCREEN_/')"
    eval "$(xdotool getwindowgeometry --shell "$window")"
    echo "frame at $X,$Y, $WIDTH by $HEIGHT, on a screen of $SCREEN_WIDTH by $SCREEN_HEIGHT"
    check "the frame lies on the screen" \
      test "$X" -ge 0 -a "$Y" -ge 0 -a $((X + WIDTH)) -le "$SCREEN_WIDTH" -a $((Y + HEIGHT)) -le "$SCREEN_HEIGHT"
    import -window root "png:$sandbox/root.png" 2>/dev/null
    convert "$sandbox/root.png" "$sandbox/root-large.png" 2>/dev/null
    text=$(tesseract "$sandbox/root-large.png" - 2>/dev/null)
    check "Next is on the screen" holds "$text" "Next"
    check "Cancel is on the screen" holds "$text" "Cancel"
    # Large text or a scaled screen: the banner drawn from its large form.
    images="$top/examples/demo/images"
    check "the banner is drawn from banner@2x" \
      test "$(drawn_form "$window" "$images/banner.png" "$images/banner@2x.png")" = large
    press_key "$window" Escape
    box_answer "Cancel confirmation" alt+y
  fi
  wait_end
  finish
  exit
fi

pack_demo plain "$top/examples/demo/install.xml"
pack_demo themed "$top/examples/demo/install-themed.xml"
product_in() { echo "$1/opt/Qlux Demo"; }

# The plain demo through the window.
new_sandbox gui
prepare_root
product=$(product_in "$QLUX_ROOT")
start_window "$sandbox/plain-setup" "$sandbox/installer.out"
check "the wizard window appears" test -n "$window"
# The frame's icon is the picture with the key "AppIcon", 32 by 32.
if [ -n "$window" ] && command -v xprop >/dev/null 2>&1; then
  check "the frame shows the product's icon" \
    bash -c "xprop -id '$window' _NET_WM_ICON | grep -q 'Icon (32 x 32)'"
fi
drive_to_end
check "the installer ends well (status $status)" test "$status" -eq 0
check "the product's program is installed" test -x "$product/bin/qlux-demo"
check "the uninstall data is written" test -f "$product/uninstall/install.log"
check "the window was used, not the console" bash -c "! grep -q 'runs on the console' '$sandbox/installer.out'"
check "the uninstaller's window finds its icons" test -f "$product/uninstall/images/icon_current.png"
check "the product's program ran once" test "$(wc -l <"$product/var/last-run.log")" -eq 1
echo "installed through the window with $presses presses of Return"

# The same installer on the console, unattended, into the same place: the
# window's installation is moved aside first, so that both see the same
# paths. The two results must not differ in any file, mode or byte.
mv "$sandbox/gui" "$sandbox/gui-window"
new_sandbox gui
prepare_root
env -u DISPLAY -u WAYLAND_DISPLAY timeout 60 "$sandbox/plain-setup" -gui=0 -auto </dev/null \
  >"$sandbox/console.out" 2>&1
check "the console installation ends well" test -x "$product/bin/qlux-demo"
# The demo program, which the installation runs once, notes the time of
# its run in var/last-run.log: that file's bytes are left out.
run_time='s|^\(f [0-7]* opt/Qlux Demo/var/last-run.log [0-9]*\) .*|\1 (time of the run)|'
# So are the bytes of the result log, which tells the times and the options
# of its own run.
run_time="$run_time;"'s|^\(f [0-7]* opt/Qlux Demo/uninstall/Qlux Demo-install.log\) .*|\1 (the run)|'
tree "$sandbox/gui-window/root" | sed "$run_time" >"$sandbox/window.tree"
check "the listing holds the window's installation" grep -q "opt/Qlux Demo/uninstall/install.log" "$sandbox/window.tree"
tree "$QLUX_ROOT" | sed "$run_time" >"$sandbox/console.tree"
check "window and console installations leave the same files and bytes" \
  cmp -s "$sandbox/window.tree" "$sandbox/console.tree"
cmp -s "$sandbox/window.tree" "$sandbox/console.tree" ||
  diff "$sandbox/window.tree" "$sandbox/console.tree" | sed 's/^/  /' | head -n 20

# The themed template is the plain one with a colour theme, and nothing else.
check "install-themed.xml is in step with install.xml (examples/demo/make-themed.sh)" \
  bash -c "bash '$top/examples/demo/make-themed.sh' - | cmp -s - '$top/examples/demo/install-themed.xml'"
check "install-themed.xml has a colour theme" grep -q "<ColourTheme>" "$top/examples/demo/install-themed.xml"

# The themed demo through the window.
new_sandbox themed
prepare_root
start_window "$sandbox/themed-setup" "$sandbox/themed.out"
check "themed: the wizard window appears" test -n "$window"
drive_to_end
check "themed: the installer ends well (status $status)" test "$status" -eq 0
check "themed: the product's program is installed" test -x "$(product_in "$QLUX_ROOT")/bin/qlux-demo"
check "themed: the installed template is the themed one" \
  grep -q "<ColourTheme>" "$(product_in "$QLUX_ROOT")/uninstall/install.xml"

# The themed installation removed through its window, started as the list
# of installed programs starts it: the first stage hands over to a second
# one that runs from the temporary directory. That window takes its
# pictures from the installed files.
values=$(find "$QLUX_ROOT/var/lib/qlux/registry" -path '*/CurrentVersion/Uninstall/Qlux Demo/.values' -print -quit)
command=$(awk -F'\t' '$1 == "UninstallString" { print $3 }' "$values")
check "themed: the uninstall command is registered" test -n "$command"
eval "$command" </dev/null >"$sandbox/uninstall.out" 2>&1
window=$(wait_for_window "Qlux Demo Uninstall")
check "uninstall: the window appears, with a title of its own" test -n "$window"
if [ -n "$window" ] && command -v xprop >/dev/null 2>&1; then
  check "uninstall: the frame shows the installed icon" \
    bash -c "xprop -id '$window' _NET_WM_ICON | grep -q 'Icon (32 x 32)'"
fi
# Its first page says what goes, before anything is removed.
if [ -n "$window" ]; then
  sleep 1
  text=$(ocr_for "$window" "Remove Qlux Demo")
  check "uninstall: the first page names the product" shows "$text" "Remove Qlux Demo"
  # A long sandbox path wraps the folder's name at its one blank.
  check "uninstall: the first page names the folder" holds "$text" "root/opt/Qlux"
  check "uninstall: Next is labelled Remove" holds "$text" "Remove"
  check "uninstall: nothing is removed before Remove" test -x "$(product_in "$QLUX_ROOT")/bin/qlux-demo"
fi
for _ in $(seq 1 60); do
  [ -n "$window" ] && xdotool getwindowgeometry "$window" >/dev/null 2>&1 || break
  press_return
  sleep 0.5
done
for _ in $(seq 1 50); do
  [ -e "$(product_in "$QLUX_ROOT")" ] || break
  sleep 0.1
done
check "uninstall: the window closes" bash -c "! xdotool getwindowgeometry '$window' >/dev/null 2>&1"
check "uninstall: the product is gone" test ! -e "$(product_in "$QLUX_ROOT")"

# Escape on the first page asks to cancel, and a Return answers No, the
# default. Cancel on the licence page asks too; "No" keeps the wizard going;
# "Yes" ends it, and neither the machine-wide places nor the temporary
# directory keep anything of it (but the debug log that this test asked for).
new_sandbox cancel
prepare_root
tree "$QLUX_ROOT" >"$sandbox/cancel-root.before"
start_window "$sandbox/plain-setup" "$sandbox/cancel.out"
check "cancel: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_key "$window" Escape
  check "cancel: Escape asks \"Cancel confirmation\"" box_answer "Cancel confirmation" Return
  sleep 1
  check "cancel: Return on the question answers no" kill -0 "$pid"
  check "cancel: ... and closes it" test -z "$(xdotool search --name 'Cancel confirmation' 2>/dev/null)"
  check "cancel: ... on the first page" test "$(page)" = Welcome
  press_return
  sleep 1
  # The task list names the steps to come, but no failure step.
  text=$(ocr_for "$window" "Registering")
  check "cancel: the task list shows the steps to come" holds "$text" "Registering"
  check "cancel: ... and no failure step before a failure" bash -c "! grep -q 'Installation failed' <<<'$text'"
  # The Cancel button: 80 by 30 units, 20 units from the left and 50 from
  # the bottom; a unit is the frame's width over the template's 760.
  eval "$(xdotool getwindowgeometry --shell "$window")"
  cancel_x=$((60 * WIDTH / 760))
  cancel_y=$((HEIGHT - 35 * WIDTH / 760))
  xdotool mousemove --window "$window" "$cancel_x" "$cancel_y" click 1
  box=$(wait_for_window "Cancel confirmation")
  check "cancel: a click on Cancel asks \"Cancel confirmation\"" test -n "$box"
  if [ -n "$box" ]; then
    xdotool windowfocus --sync "$box" >/dev/null 2>&1
    xdotool key --window "$box" alt+n >/dev/null 2>&1
    sleep 1
    check "cancel: answering no keeps the wizard running" kill -0 "$pid"
    check "cancel: answering no closes the question" test -z "$(xdotool search --name 'Cancel confirmation' 2>/dev/null)"
    xdotool mousemove --window "$window" "$cancel_x" "$cancel_y" click 1
    box=$(wait_for_window "Cancel confirmation")
    check "cancel: Cancel asks again" test -n "$box"
    xdotool windowfocus --sync "$box" >/dev/null 2>&1
    xdotool key --window "$box" alt+y >/dev/null 2>&1
  fi
  for _ in $(seq 1 100); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
fi
if kill -0 "$pid" 2>/dev/null; then
  echo "FAILED: cancel: the installer still runs after \"Yes\""
  failures=$((failures + 1))
  kill "$pid" 2>/dev/null
fi
wait "$pid"
status=$?
check "cancel: the installer ends with status 2 ($status)" test "$status" -eq 2
tree "$QLUX_ROOT" >"$sandbox/cancel-root.after"
check "cancel: nothing changed in the machine-wide places" \
  cmp -s "$sandbox/cancel-root.before" "$sandbox/cancel-root.after"
check "cancel: nothing but the result log is left in the temporary directory" \
  test -z "$(ls -A "$TMPDIR" | grep -vx installer_debug.log | grep -vx "Qlux Demo-install.log")"
check "cancel: the result log says so" grep -qx "Result: cancelled by the user (exit code 2)" "$TMPDIR/Qlux Demo-install.log"

# A frame page that got no sub-dialogs (no TaskList) is where the walk
# comes to rest, even with AutoNext: Next on the welcome page shows it and
# goes no further, so the template's author sees where the pages went.
sed 's|^    <InstallationDialog Special="HasSubDialogs">|    <Empty Special="HasSubDialogs;AutoNext"><Text x="20" y="80">Nothing to choose here.</Text><Button Name="Cancel" x="20" y="50" HAlign="left" VAlign="bottom">\&amp;Cancel</Button></Empty>\n&|' \
  "$top/examples/demo/install.xml" >"$sandbox/empty-frame.xml"
# The frame without steps is the point here: the builder, which refuses it,
# is told to let it through.
pack_options=--no-strict pack_demo empty-frame "$sandbox/empty-frame.xml"
new_sandbox empty-frame
prepare_root
start_window "$sandbox/empty-frame-setup" "$sandbox/empty-frame.out"
check "empty frame: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_until Empty
  sleep 2
  check "empty frame: the walk rests on it" test "$(page)" = Empty
  check "empty frame: ... and goes no further" test "$(entered InstallationDialog)" -eq 0
  # Its Cancel button, where the welcome page has its own.
  if eval "$(xdotool getwindowgeometry --shell "$window" 2>/dev/null)" && [ -n "${WIDTH:-}" ]; then
    xdotool mousemove --window "$window" $((60 * WIDTH / 760)) $((HEIGHT - 35 * WIDTH / 760)) click 1
    box_answer "Cancel confirmation" alt+y
  fi
fi
wait_end
check "empty frame: cancelled, status 2 ($status)" test "$status" -eq 2

# A template with Back and Next on every page of the frame, as templates
# were written before: the buttons stand beside the pages' own ones and
# move the wizard as Alt+K and Alt+O. Its program sleeps first, so that the
# file stage lasts while the program runs asynchronously. There the close
# box (the window manager's WM_DELETE_WINDOW, which a small Xlib program
# sends, as xdotool can't) only says that this can't be aborted, and Back
# and Next, pressed twice and once, change nothing; on the last page Back
# goes nowhere. The program ran once, the product was registered once.
cat >"$sandbox/close-window.c" <<'EOF_C'
#include <X11/Xlib.h>
#include <stdio.h>
#include <stdlib.h>

/* close-window ID: asks the window to close, as a window manager does. */
int main(int argc, char** argv) {
  if (argc != 2) return 2;
  Display* display = XOpenDisplay(NULL);
  if (!display) return 1;
  XEvent event = {0};
  event.xclient.type = ClientMessage;
  event.xclient.window = (Window)strtoul(argv[1], NULL, 0);
  event.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] = (long)XInternAtom(display, "WM_DELETE_WINDOW", False);
  event.xclient.data.l[1] = CurrentTime;
  XSendEvent(display, event.xclient.window, False, NoEventMask, &event);
  XCloseDisplay(display);
  return 0;
}
EOF_C
steps='<Button DialogShift="-1" x="370" y="50" HAlign="right" VAlign="bottom">Go bac\&amp;k</Button>'
steps="$steps"'<Button DialogShift="1" x="280" y="50" HAlign="right" VAlign="bottom">Go \&amp;on</Button>'
sed "0,/<TaskLB Name=\"TaskList\"[^>]*>/s||&$steps|" "$top/examples/demo/install.xml" >"$sandbox/careless.xml"
check "careless: the frame got its own Back and Next" grep -q "Go bac&amp;k" "$sandbox/careless.xml"
pack_demo careless "$sandbox/careless.xml"
sed -i '1a sleep 5' "$sandbox/careless-source/bin/qlux-demo"
"$pack" --stub "$setup" --template "$sandbox/careless-source/install.xml" --source "$sandbox/careless-source" \
  -o "$sandbox/careless-setup" >/dev/null || { echo "FAILED: packing the slow product"; exit 1; }
new_sandbox careless
prepare_root
product=$(product_in "$QLUX_ROOT")
start_window "$sandbox/careless-setup" "$sandbox/careless.out"
check "careless: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_until CopyProgress
  # The shortcut is the last thing made before the program runs.
  for _ in $(seq 1 100); do
    [ -f "$product/shortcuts/Qlux Demo.desktop" ] && break
    sleep 0.1
  done
  sleep 0.5
  if cc -o "$sandbox/close-window" "$sandbox/close-window.c" -lX11 2>/dev/null; then
    "$sandbox/close-window" "$window"
    check "close box: during the installation it says \"Cancel information\"" \
      box_answer "Cancel information" Return
    check "close box: the installer goes on" kill -0 "$pid"
  else
    echo "close box during the installation: not tested (no C compiler or Xlib headers)"
  fi
  for key in alt+k alt+k alt+o; do
    press_key "$window" "$key"
    sleep 0.3
  done
  check "careless: Back and Next during the copy leave the copy page" test "$(page)" = CopyProgress
  press_until Finish
  check "careless: the installation reached its last page" test "$(page)" = Finish
  press_key "$window" alt+k
  sleep 0.5
  press_key "$window" alt+k
  sleep 1
  check "careless: Back on the last page stays there" test "$(page)" = Finish
  press_return
  wait_end
fi
check "careless: the installer ends well (status $status)" test "$status" -eq 0
check "careless: the product is installed" test -f "$product/uninstall/install.log"
check "careless: the files were copied once" test "$(entered CopyProgress)" -eq 1
check "careless: the product's program ran once" test "$(wc -l <"$product/var/last-run.log")" -eq 1
check "careless: the product was registered once" test "$(entered RegisterApplication)" -eq 1

# A program of the product runs from the folder: the running-programs page
# says what to do first (a long folder wraps only what follows it), names
# the program in its list, and holds the wizard; once the
# program has ended, Next comes back with the focus, and one Return goes on.
# (A copy of sleep stands in for the program: a script would show as its
# shell.)
new_sandbox running
prepare_root
product=$(product_in "$QLUX_ROOT")
mkdir -p "$product/bin"
cp "$(command -v sleep)" "$product/bin/qlux-demo"
"$product/bin/qlux-demo" 120 &
app=$!
start_window "$sandbox/plain-setup" "$sandbox/running.out"
check "running: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_until RunningApps
  sleep 1
  text=$(ocr_for "$window" "Please close Qlux Demo")
  check "running: the page asks to close the program" shows "$text" "Please close Qlux Demo"
  check "running: its list names the program" holds "$text" "qlux-demo"
  press_return
  sleep 1
  check "running: Return does nothing while it runs" test "$(page)" = RunningApps
  kill "$app" 2>/dev/null
  wait "$app" 2>/dev/null
  sleep 2.5
  press_return
  sleep 2
  check "running: once it ended, one Return goes on" test "$(page)" != RunningApps
  press_until Finish
  press_return
  wait_end
fi
kill "$app" 2>/dev/null
check "running: the product is installed" test -f "$product/uninstall/install.log"

# A failed installation: a file stands where the documentation's folder
# belongs. The page after the file stage says what failed, and Next undoes
# the installation; the last page says so. Nothing of it is left, and it is
# not registered.
new_sandbox failed
prepare_root
product=$(product_in "$QLUX_ROOT")
mkdir -p "$product"
echo "in the way" >"$product/doc"
start_window "$sandbox/plain-setup" "$sandbox/failed.out"
check "failed: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_until BadFinish
  text=$(ocr_for "$window" "FAILED")
  check "failed: the page after the file stage names the failure" holds "$text" "FAILED"
  check "failed: ... and the file that failed" holds "$text" "guide.txt"
  check "failed: ... under its heading" shows "$text" "errors summary"
  press_until Finish
  text=$(ocr_for "$window" "has been undone")
  check "failed: the last page says the installation was undone" shows "$text" "has been undone"
  press_return
  wait_end
fi
check "failed: the installer ends with the failure's code 1 (status $status)" test "$status" -eq 1
check "failed: only what was there before is left" test "$(ls -A "$product")" = doc
check "failed: the product is not registered" \
  test -z "$(find "$QLUX_ROOT/var/lib/qlux/registry" -path '*/Uninstall/Qlux Demo' 2>/dev/null)"

# Large text: at GDK_SCALE=2 and at GDK_DPI_SCALE=1.6, on a 1280x900 screen
# of its own, the window and its buttons lie on the screen.
for scaling in GDK_SCALE=2 GDK_DPI_SCALE=1.6; do
  out=$(env QLUX_SCREEN_SIZE=1280x900 "$scaling" "$top/tests/with_display.sh" \
    bash "$top/tests/gui_test.sh" --on-screen "$sandbox/plain-setup" 2>&1)
  check "$scaling on 1280x900: every button is on the screen" grep -q " 0 failed" <<<"$out"
  grep -E "FAILED|frame at|drawn as" <<<"$out" | sed "s/^/  $scaling: /"
done

# The German long-text variant: its product name of 80 characters wraps
# between words on the first page.
name="Qlux Demo Unternehmensausgabe mit Fernwartung und zentraler Protokollverwaltungen"
sed -f "$top/tests/data/german/demo.sed" "$top/examples/demo/install.xml" >"$sandbox/german.xml"
check "german: the variant names the product by its long name" grep -q "<Fullname>$name</Fullname>" "$sandbox/german.xml"
pack_demo german "$sandbox/german.xml" "$top/tests/data/german/licence-de.rtf"
new_sandbox german
prepare_root
start_window "$sandbox/german-setup" "$sandbox/german.out"
check "german: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  sleep 1
  text=$(ocr_for "$window" "Protokollverwaltungen")
  for word in $name; do
    check "german: \"$word\" stands whole on the first page" grep -qw -- "$word" <<<"$text"
  done
  check "german: the name goes on a second line" apart "$text" Willkommen Protokollverwaltungen
  press_key "$window" Escape
  box_answer "Cancel confirmation" alt+y
  wait_end
fi

# Without a display the same installer asks on the console, and says so.
new_sandbox nodisplay
mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
out=$(env -u DISPLAY -u WAYLAND_DISPLAY timeout 60 "$sandbox/plain-setup" </dev/null 2>&1)
check "no display: the console takes over and says so" grep -q "There is no display: the wizard runs on the console" <<<"$out"
check "no display: the console shows the first page" grep -q "Welcome to the Qlux Demo setup." <<<"$out"
if [ "$failures" -ne 0 ]; then
  for f in installer.out console.out themed.out uninstall.out cancel.out careless.out running.out failed.out german.out; do
    [ -f "$sandbox/$f" ] && sed "s/^/  $f: /" "$sandbox/$f" | grep -v "^  $f: *$" | tail -n 10
    [ -f "$sandbox/$f" ] && grep -h -i "console\|display\|gtk\|error" "$sandbox/$f" | sed "s/^/  $f: /"
  done
fi
finish
