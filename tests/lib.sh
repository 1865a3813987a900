# Shared helpers of the end-to-end tests. Every test runs in its own sandbox:
# QLUX_ROOT and TMPDIR point into a fresh directory that is removed at exit.
#
# The script itself runs again in a private mount namespace (unshare -m)
# where every file system is read-only but the sandbox (and, for the Windows
# scripts, the Wine prefix and the directory of its server), with a private
# /dev/shm for the uninstaller's named semaphores: a path that a fault makes
# wrong fails the test instead of changing the machine. Where unshare isn't
# allowed, the script says so and runs as it is. Sourced near the top of a
# script, before it changes anything: the fenced run starts the script anew.
set -u
failures=0
checks=0

# qlux_exit: what the end of a script removes: whatever `qlux_cleanup`
# names (set it before lib.sh is sourced), and the sandbox, from outside
# the fence. A script that sets a trap of its own calls it there.
qlux_exit() {
  [ -n "${qlux_cleanup:-}" ] && eval "$qlux_cleanup"
  [ -z "${QLUX_FENCED_SANDBOX:-}" ] && cd / && rm -rf "$sandbox"
}

if [ -z "${QLUX_FENCED_SANDBOX:-}" ]; then
  sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qlux-e2e.XXXXXX")
  trap qlux_exit EXIT
  if [ -z "${QLUX_NO_FENCE:-}" ] && unshare -m --propagation private true 2>/dev/null; then
    # The sandbox goes here, outside, once the fenced run has ended: inside,
    # its mount point can't be removed.
    QLUX_FENCED_SANDBOX=$sandbox unshare -m --propagation private bash "$0" "$@"
    exit $?
  fi
  echo "NOTE: unshare -m isn't allowed here; the installer runs are not fenced in a read-only file system"
else
  sandbox=$QLUX_FENCED_SANDBOX
  # These stay writable; every other mount becomes read-only, but /proc,
  # /sys and /dev.
  writable=("$sandbox")
  [ -n "${WINEPREFIX:-}" ] && writable+=("$WINEPREFIX")
  [ -n "${wine_tmp:-}" ] && writable+=("$wine_tmp")
  # An X server that the script starts (tests/with_display.sh) needs its
  # socket directory, and a place of its own for its compiled keymaps.
  [ -d /tmp/.X11-unix ] && writable+=(/tmp/.X11-unix)
  for path in "${writable[@]}"; do mount --bind "$path" "$path"; done
  if [ -d /var/lib/xkb ]; then
    mount -t tmpfs -o mode=755 tmpfs /var/lib/xkb
    writable+=(/var/lib/xkb)
  fi
  mount -t tmpfs -o mode=1777 tmpfs /dev/shm
  # The list is read whole first: a program that still runs beside a
  # remount (an access time it updates) makes the mount busy. A busy mount
  # is tried again a few times for the same reason.
  mapfile -t mounts < <(tac /proc/self/mounts)
  for line in "${mounts[@]}"; do
    read -r _ point _ <<<"$line"
    case "$point" in /proc | /proc/* | /sys | /sys/* | /dev | /dev/*) continue ;; esac
    for path in "${writable[@]}"; do [ "$point" = "$path" ] && continue 2; done
    for try in 1 2 3 4 5 6; do
      mount -o remount,bind,ro "$point" 2>/dev/null && continue 2
      sleep 0.1
    done
    echo "NOTE: $point stays writable"
  done
  # What the tools of the script write for themselves goes to the sandbox.
  mkdir -p "$sandbox/home"
  export HOME="$sandbox/home"
  [ -z "${wine_tmp:-}" ] && export TMPDIR="$sandbox"
fi
cd "$sandbox"

# new_sandbox NAME: fresh QLUX_ROOT and TMPDIR under the sandbox.
new_sandbox() {
  export QLUX_ROOT="$sandbox/$1/root"
  export TMPDIR="$sandbox/$1/tmp"
  mkdir -p "$QLUX_ROOT" "$TMPDIR"
}

check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  checks=$((checks + 1))
  if "$@"; then
    return 0
  fi
  failures=$((failures + 1))
  echo "FAILED: $what"
}

# flip_byte FILE OFFSET: the byte at OFFSET becomes its complement, so that
# it differs from what it was whatever that was.
flip_byte() {
  local byte
  byte=$(od -An -tu1 -j "$2" -N 1 "$1" | tr -d ' ')
  printf "\\$(printf '%03o' $((byte ^ 255)))" | dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}

# holds TEXT PART: TEXT contains PART.
holds() { [[ "$1" == *"$2"* ]]; }
# lacks TEXT PART: TEXT doesn't contain PART.
lacks() { [[ "$1" != *"$2"* ]]; }
# apart TEXT A B: no line of TEXT holds both A and B.
apart() { ! grep -F -- "$2" <<<"$1" | grep -qF -- "$3"; }
# win_lines FILE: the file's lines without their carriage returns.
win_lines() { tr -d '\r' <"$1"; }

finish() {
  echo "$((checks - failures)) passed, $failures failed"
  [ "$failures" -eq 0 ]
}

# Windows on the X display (the native window and Wine's alike). wait_window
# PATTERN: the id of the first visible window whose title matches the
# regular expression, waiting up to 30 seconds (a loaded machine starts a
# program slowly); empty if none came.
wait_window() {
  local found=""
  for _ in $(seq 1 300); do
    found=$(xdotool search --onlyvisible --name "$1" 2>/dev/null | head -n 1)
    [ -n "$found" ] && break
    sleep 0.1
  done
  echo "$found"
}
# window_exists WINDOW: whether the window is still there.
window_exists() { xdotool getwindowgeometry "$1" >/dev/null 2>&1; }
# press_key WINDOW KEY: gives the window the keyboard focus and presses KEY.
press_key() {
  xdotool windowfocus --sync "$1" >/dev/null 2>&1
  xdotool key --window "$1" "$2" >/dev/null 2>&1 || xdotool key "$2" >/dev/null 2>&1
}
# drawn_form WINDOW SMALL LARGE: which of two forms of the picture that a
# window shows alone in the top left of its page (the demo's banner: the
# files SMALL and LARGE, LARGE at twice the size) the window drew: "large"
# where the drawing lies at least three times nearer to LARGE than to SMALL,
# each resized to the drawing's size, else "small". A picture enlarged from
# its small form is blurred, one reduced from its large form is sharp; the
# two measures differ six to ten times.
drawn_form() {
  local width size near far
  xdotool search --onlyvisible --name . 2>/dev/null | grep -qx "$1" || return 1
  timeout 20 import -window "$1" "png:$sandbox/form-window.png" 2>/dev/null || return 1
  width=$(identify -format %w "$sandbox/form-window.png")
  # The page's top left corner (the window is 760 units wide), trimmed of
  # the page's ground: what is left is the drawing.
  convert "$sandbox/form-window.png" -crop "$((width * 200 / 760))x$((width * 140 / 760))+0+0" +repage \
    -fuzz 20% -trim +repage "$sandbox/form-drawn.png" || return 1
  size=$(identify -format '%wx%h' "$sandbox/form-drawn.png")
  convert "$2" -resize "$size!" "$sandbox/form-small.png" && convert "$3" -resize "$size!" "$sandbox/form-large.png" ||
    return 1
  # compare prints "ABSOLUTE (NORMALISED)" and returns 1 where the two differ.
  far=$(compare -metric RMSE "$sandbox/form-drawn.png" "$sandbox/form-small.png" null: 2>&1 | sed 's/.*(\(.*\))/\1/')
  near=$(compare -metric RMSE "$sandbox/form-drawn.png" "$sandbox/form-large.png" null: 2>&1 | sed 's/.*(\(.*\))/\1/')
  echo "drawn as $size: $far from the small form, $near from the large one" >&2
  awk -v far="$far" -v near="$near" 'BEGIN { print (near * 3 < far) ? "large" : "small" }'
}
