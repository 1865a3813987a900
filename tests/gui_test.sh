#!/usr/bin/env bash
# gui_test.sh SETUP PACK: installs the demo product through the window. The
# packed installer runs with a display (tests/with_display.sh gives a
# private one) and is driven by Return key presses, which press the page's
# default button: Next through every page until the wizard closes itself.
# Then the product's files must be on disk, byte for byte the same as those
# of an unattended console installation into the same place. The themed
# variant of the demo installs through the window as well, and its
# uninstaller's window takes it away again. A click on Cancel asks for
# confirmation; "No" goes on, "Yes" ends the run with nothing changed on
# disk. The close box while the files are installed only says that this
# can't be aborted. Without a display the same installer falls back to the
# console. Skips without a display or without xdotool.
setup=$1
pack=$2
top="$(cd "$(dirname "$0")/.." && pwd)"
. "$top/tests/lib.sh"

if [ -z "${DISPLAY:-}" ] || ! command -v xdotool >/dev/null 2>&1; then
  echo "SKIPPED: needs a display and xdotool (run under tests/with_display.sh)"
  exit 0
fi

title="Qlux Demo Setup"

# pack_demo NAME TEMPLATE: packs the demo with TEMPLATE as its install.xml
# into $sandbox/NAME-setup.
pack_demo() {
  local source="$sandbox/$1-source"
  cp -r "$top/examples/demo" "$source"
  cp "$2" "$source/install.xml"
  cp "$setup" "$source/qlux-uninstall.exe"
  "$pack" --stub "$setup" --template "$source/install.xml" --source "$source" -o "$sandbox/$1-setup" \
    >/dev/null || { echo "FAILED: packing the demo ($1)"; exit 1; }
}

# prepare_root: the machine-wide places of a fresh sandbox.
prepare_root() {
  mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
  printf '%s\n' 'PATH="/usr/bin:/bin"' >"$QLUX_ROOT/etc/environment"
}

# start_window INSTALLER OUTPUT: starts the installer in the background and
# waits for its frame; sets pid and window (empty if none came).
start_window() {
  "$1" </dev/null >"$2" 2>&1 &
  pid=$!
  window=""
  for _ in $(seq 1 100); do
    window=$(xdotool search --name "$title" 2>/dev/null | head -n 1)
    [ -n "$window" ] && break
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
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
# to ten seconds; empty if none came.
wait_for_window() {
  local found=""
  for _ in $(seq 1 100); do
    found=$(xdotool search --name "$1" 2>/dev/null | head -n 1)
    [ -n "$found" ] && break
    sleep 0.1
  done
  echo "$found"
}

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
window=$(wait_for_window "$title")
check "uninstall: the window appears" test -n "$window"
if [ -n "$window" ] && command -v xprop >/dev/null 2>&1; then
  check "uninstall: the frame shows the installed icon" \
    bash -c "xprop -id '$window' _NET_WM_ICON | grep -q 'Icon (32 x 32)'"
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

# Cancel on the options page: the frame asks first. "No" keeps the wizard
# going; "Yes" ends it, and neither the machine-wide places nor the
# temporary directory keep anything of it.
new_sandbox cancel
prepare_root
tree "$QLUX_ROOT" >"$sandbox/cancel-root.before"
start_window "$sandbox/plain-setup" "$sandbox/cancel.out"
check "cancel: the wizard window appears" test -n "$window"
if [ -n "$window" ]; then
  press_return
  sleep 1
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
check "cancel: the installer ends with status 0 ($status)" test "$status" -eq 0
tree "$QLUX_ROOT" >"$sandbox/cancel-root.after"
check "cancel: nothing changed in the machine-wide places" \
  cmp -s "$sandbox/cancel-root.before" "$sandbox/cancel-root.after"
check "cancel: nothing is left in the temporary directory" test -z "$(ls -A "$TMPDIR")"

# The close box while the files are being installed: the frame says that
# the installation can not be aborted, and the run goes on. A test-only
# product makes that stage last: its program, which the installation runs
# and waits for while it serves the window, sleeps first. The close request is the window manager's
# WM_DELETE_WINDOW message, which a small Xlib program sends.
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
if cc -o "$sandbox/close-window" "$sandbox/close-window.c" -lX11 2>/dev/null; then
  cp -r "$top/examples/demo" "$sandbox/slow-source"
  sed -i '1a sleep 5' "$sandbox/slow-source/bin/qlux-demo"
  # Asynchronous: the window is served while the program runs.
  sed -i 's|<RunProgram Log="Trying the installed program" Wait="1"|& Asynchronous="1"|' \
    "$sandbox/slow-source/install.xml"
  cp "$setup" "$sandbox/slow-source/qlux-uninstall.exe"
  "$pack" --stub "$setup" --template "$sandbox/slow-source/install.xml" --source "$sandbox/slow-source" \
    -o "$sandbox/slow-setup" >/dev/null || { echo "FAILED: packing the slow product"; exit 1; }
  new_sandbox closebox
  prepare_root
  start_window "$sandbox/slow-setup" "$sandbox/closebox.out"
  check "close box: the wizard window appears" test -n "$window"
  if [ -n "$window" ]; then
    press_return  # Welcome: on to the options
    sleep 1
    press_return  # Options: the files are installed, then the program sleeps
    # The shortcut is the last thing made before the program runs.
    for _ in $(seq 1 100); do
      [ -f "$(product_in "$QLUX_ROOT")/shortcuts/Qlux Demo.desktop" ] && break
      sleep 0.1
    done
    sleep 0.5
    "$sandbox/close-window" "$window"
    box=$(wait_for_window "Cancel information")
    check "close box: during the installation it says \"Cancel information\"" test -n "$box"
    check "close box: the installer goes on" kill -0 "$pid"
    if [ -n "$box" ]; then
      xdotool windowfocus --sync "$box" >/dev/null 2>&1
      xdotool key --window "$box" Return >/dev/null 2>&1
    fi
  fi
  drive_to_end
  check "close box: the installer ends well (status $status)" test "$status" -eq 0
  check "close box: the product is installed" test -f "$(product_in "$QLUX_ROOT")/uninstall/install.log"
else
  echo "close box during the installation: not tested (no C compiler or Xlib headers)"
fi

# Without a display the same installer asks on the console, and says so.
new_sandbox nodisplay
mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
out=$(env -u DISPLAY -u WAYLAND_DISPLAY timeout 60 "$sandbox/plain-setup" </dev/null 2>&1)
check "no display: the console takes over and says so" grep -q "There is no display: the wizard runs on the console" <<<"$out"
check "no display: the console shows the first page" grep -q "Welcome to the Qlux Demo setup." <<<"$out"
if [ "$failures" -ne 0 ]; then
  for f in installer.out console.out themed.out uninstall.out cancel.out closebox.out; do
    [ -f "$sandbox/$f" ] && sed "s/^/  $f: /" "$sandbox/$f" | tail -n 10
  done
fi
finish
