#!/usr/bin/env bash
# gui_test.sh SETUP PACK: installs the demo product through the window. The
# packed installer runs with a display (tests/with_display.sh gives a
# private one) and is driven by Return key presses, which press the page's
# default button: Next through every page until the wizard closes itself.
# Then the product's files must be on disk. Without a display the same
# installer falls back to the console. Skips without a display or without
# xdotool.
setup=$1
pack=$2
top="$(cd "$(dirname "$0")/.." && pwd)"
. "$top/tests/lib.sh"

if [ -z "${DISPLAY:-}" ] || ! command -v xdotool >/dev/null 2>&1; then
  echo "SKIPPED: needs a display and xdotool (run under tests/with_display.sh)"
  exit 0
fi

cp -r "$top/examples/demo" "$sandbox/source"
cp "$setup" "$sandbox/source/qlux-uninstall.exe"
installer="$sandbox/qlux-demo-setup"
"$pack" --stub "$setup" --template "$sandbox/source/install.xml" --source "$sandbox/source" -o "$installer" \
  >/dev/null || { echo "FAILED: packing the demo"; exit 1; }

new_sandbox gui
mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
printf '%s\n' 'PATH="/usr/bin:/bin"' >"$QLUX_ROOT/etc/environment"
product="$QLUX_ROOT/opt/Qlux Demo"

"$installer" </dev/null >"$sandbox/installer.out" 2>&1 &
pid=$!

# Waits for the frame, then presses Return once in a while until the
# installer ends; gives up after about a minute.
title="Qlux Demo Setup"
window=""
for _ in $(seq 1 100); do
  window=$(xdotool search --name "$title" 2>/dev/null | head -n 1)
  [ -n "$window" ] && break
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
check "the wizard window appears" test -n "$window"

presses=0
for _ in $(seq 1 120); do
  kill -0 "$pid" 2>/dev/null || break
  if [ -n "$window" ]; then
    xdotool windowfocus --sync "$window" >/dev/null 2>&1
    xdotool key --window "$window" Return >/dev/null 2>&1 || xdotool key Return >/dev/null 2>&1
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
check "the installer ends well (status $status)" test "$status" -eq 0
check "the product's program is installed" test -x "$product/bin/qlux-demo"
check "the uninstall data is written" test -f "$product/uninstall/install.log"
check "the window was used, not the console" bash -c "! grep -q 'runs on the console' '$sandbox/installer.out'"
echo "installed through the window with $presses presses of Return"

# Without a display the same installer asks on the console, and says so.
new_sandbox nodisplay
mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
out=$(env -u DISPLAY -u WAYLAND_DISPLAY timeout 60 "$installer" </dev/null 2>&1)
check "no display: the console takes over and says so" grep -q "There is no display: the wizard runs on the console" <<<"$out"
check "no display: the console shows the first page" grep -q "Welcome to the Qlux Demo setup." <<<"$out"
[ "$failures" -eq 0 ] || sed 's/^/  installer: /' "$sandbox/installer.out" | tail -n 20
finish
