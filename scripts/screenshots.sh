#!/usr/bin/env bash
# screenshots.sh DIR: pictures of every page of the demo's wizard window.
# Installs what it needs (scripts/setup.sh), builds the native programs,
# packs examples/demo three times, with the plain template, the themed one
# (install-themed.xml) and the German long-text variant
# (tests/data/german/demo.sed: an 80-character product name, German texts
# and licence), and installs each through the window on a private X server
# (Xvfb). Every installation runs in a fresh sandbox: QLUX_ROOT and TMPDIR
# point into one temporary directory, removed at the end. The window is
# driven page by page with Return presses (the page's default button); each
# page is saved once it has settled, as DIR/plain-01-welcome.png,
# DIR/themed-01-welcome.png, DIR/german-01-welcome.png and so on, named
# after the page that the installer's debug log says it shows. On the
# options page the Destination folder box is emptied, which the wizard
# refuses (the box takes the theme's invalid colours and Next goes grey):
# that is DIR/plain-03b-options-invalid.png; the path is then typed back
# and Next clicked. Then the registered uninstall command removes each
# installation through its window, pictured as
# DIR/plain-uninstall-01-confirm.png (the first page, which says what goes)
# and so on. One more installation of the plain and the themed variant,
# whose program sleeps while the copy page waits for it with a moving
# progress bar, gives DIR/plain-03c-copy.png; and one of the plain variant
# into a folder where a file stands in the way of the documentation gives
# DIR/plain-failed-NN-....png, among them the page that names what failed
# (badfinish) and the last page after the installation was undone; the
# themed variant gives DIR/themed-failed-NN-....png the same way.
#
# The Windows program (built in build-win/ with the toolkit from the cache
# of scripts/build-win-deps.sh) is pictured the same way under Wine, in a
# fresh prefix in the sandbox: DIR/win-plain-01-welcome.png and so on, the
# German variant as DIR/win-german-...., the removal as
# DIR/win-plain-uninstall-NN-....png, the copy page as
# DIR/win-plain-03c-copy.png, the failed installation as
# DIR/win-failed-NN-....png. Then tests/windows_gui_test.sh runs in the
# same prefix and pictures the message box of an installer whose checksum
# fails as DIR/win-checksum-message.png.
#
# Exits 0 only if every installation reached the last page and left the
# product on disk at the path that was typed back, the empty box disabled
# Next, both uninstallations took the product away again, and the same
# holds for the Windows program under Wine.
# QLUX_BUILD_DIR and QLUX_WIN_BUILD_DIR pick other build directories than
# build/ and build-win/.
set -euo pipefail

usage() {
  echo "usage: screenshots.sh DIR" >&2
  exit 2
}

top="$(cd "$(dirname "$0")/.." && pwd)"

# The first stage sets up and builds, then runs the second stage, which
# drives the windows, under a private display.
if [ "${1:-}" != --drive ]; then
  [ $# -eq 1 ] && [ -n "$1" ] || usage
  mkdir -p -- "$1"
  dir="$(cd -- "$1" && pwd)"
  cd "$top"
  bash scripts/setup.sh
  build="$top/${QLUX_BUILD_DIR:-build}"
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  ninja -C "$build" qlux-setup qlux-pack >/dev/null
  # The Windows program, with its window: the toolkit comes from the cache
  # that build-win-deps.sh fills on its first run.
  win_build="$top/${QLUX_WIN_BUILD_DIR:-build-win}"
  win_deps=$(bash scripts/build-win-deps.sh)
  cmake -S . -B "$win_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DQLUX_WIN_DEPS="$win_deps" >/dev/null
  ninja -C "$win_build" qlux-setup >/dev/null
  exec "$top/tests/with_display.sh" bash "$0" --drive "$dir" "$build" "$win_build"
fi

dir=$2
build=$3
win_setup="$4/bin/qlux-setup.exe"
setup="$build/bin/qlux-setup"
pack="$build/bin/qlux-pack"
if [ -z "${DISPLAY:-}" ]; then
  echo "screenshots: no display (is Xvfb installed?)" >&2
  exit 1
fi

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qlux-screens.XXXXXX")
cleanup() {
  cd /
  # The Wine server of the Windows part's prefix goes first.
  if [ -d "$sandbox/wine" ]; then
    WINEPREFIX="$sandbox/wine" TMPDIR="$sandbox/wine-tmp" /usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
  fi
  if [ -n "$sandbox" ] && [ -d "$sandbox" ]; then rm -rf -- "$sandbox"; fi
}
trap cleanup EXIT
cd "$sandbox"

# pack_variant NAME TEMPLATE [LICENCE]: an installer of the demo whose
# template is TEMPLATE (and whose licence is LICENCE); the copy of the
# product's files holds it as install.xml, so that the installed copy of the
# template is the packed one.
pack_variant() {
  local source="$sandbox/$1-source"
  cp -r "$top/examples/demo" "$source"
  cp "$2" "$source/install.xml"
  [ -n "${3:-}" ] && cp "$3" "$source/licence.rtf"
  cp "$setup" "$source/qlux-uninstall.exe"
  "$pack" --stub "$setup" --template "$source/install.xml" --source "$source" \
    -o "$sandbox/$1-setup" >/dev/null
}

# pack_slow NAME TEMPLATE: like pack_variant, but the demo program sleeps
# first; the installer runs it asynchronously, moving the progress bar while
# it waits, so that the copy page stays up for some seconds.
pack_slow() {
  local source="$sandbox/$1-slow-source"
  cp -r "$top/examples/demo" "$source"
  cp "$2" "$source/install.xml"
  sed -i '1a sleep 6' "$source/bin/qlux-demo"
  if ! grep -q '<RunProgram Log="Trying the installed program" Asynchronous="1"' "$source/install.xml"; then
    echo "screenshots: $2 does not run the installed program asynchronously" >&2
    return 1
  fi
  cp "$setup" "$source/qlux-uninstall.exe"
  "$pack" --stub "$setup" --template "$source/install.xml" --source "$source" \
    -o "$sandbox/$1-slow-setup" >/dev/null
}

# capture WINDOW FILE: the window's picture as a PNG file. A window that is
# not on the screen (a frame that is closing) has no picture: import would
# wait for a click instead.
capture() {
  xdotool search --onlyvisible --name . 2>/dev/null | grep -qx "$1" || return 1
  timeout 20 import -window "$1" "png:$2" 2>/dev/null
}

# settle WINDOW FILE: captures the window until two pictures in a row are
# the same (the page has settled), at most for about ten seconds.
settle() {
  local previous="$sandbox/previous.png"
  capture "$1" "$previous" || return 1
  for _ in $(seq 1 40); do
    sleep 0.25
    capture "$1" "$2" || return 1
    cmp -s "$previous" "$2" && return 0
    mv -f -- "$2" "$previous"
  done
  return 1
}

# page_name LOG: the page that the installer shows last, from its debug
# log, in lower case ("page" while the log names none).
page_name() {
  local name
  name=$(sed -n 's/.*Setting dialog "\([^"]*\)".*/\1/p' "$1" 2>/dev/null | tail -n 1 | tr 'A-Z' 'a-z')
  echo "${name:-page}"
}

# window_open WINDOW: whether the window still exists.
window_open() {
  xdotool getwindowgeometry "$1" >/dev/null 2>&1
}

# find_window [TITLE]: the id of the wizard's frame (the installer's unless
# TITLE names another), waiting up to ten seconds.
find_window() {
  local window="" title=${1:-Qlux Demo Setup}
  for _ in $(seq 1 100); do
    window=$(xdotool search --name "$title" 2>/dev/null | head -n 1)
    [ -n "$window" ] && break
    sleep 0.1
  done
  echo "$window"
}

# at WINDOW X Y: the pixel, as "x y", of the point X, Y in the template's
# units, where X and Y are awk expressions that may use W and H, the
# frame's size in units (the frame is 760 units wide).
at() {
  # shellcheck disable=SC2034  # the eval sets all of them; only two are read
  local WINDOW X Y WIDTH HEIGHT SCREEN
  eval "$(xdotool getwindowgeometry --shell "$1")"
  awk -v pw="$WIDTH" -v ph="$HEIGHT" "BEGIN {
    u = pw / 760; W = pw / u; H = ph / u
    printf \"%d %d\", ($2) * u, ($3) * u }"
}

# same_region A B WINDOW X Y W H: whether two pictures of the window agree
# in the rectangle at X, Y of W by H, all in units as at takes them.
same_region() {
  local corner size
  corner=$(at "$3" "$4" "$5")
  size=$(at "$3" "$6" "$7")
  set -- "$1" "$2" ${size% *}x${size#* }+${corner% *}+${corner#* }
  compare -metric AE "$1[$3]" "$2[$3]" null: >/dev/null 2>&1
}

# invalid_input PREFIX WINDOW OPTIONS PATH: on the options page, whose
# picture is OPTIONS, empties the Destination folder box, the one input
# that the field refuses, and saves that page as
# DIR/PREFIX-03b-options-invalid.png; then types PATH back in and clicks
# Next. Fails, without clicking Next, unless the empty box greys Next out
# (its pixels change), and the box with PATH typed back looks exactly as
# it did at first: a path typed wrong would install somewhere else.
invalid_input() {
  local prefix=$1 window=$2 options=$3 path=$4
  local shot="$sandbox/invalid.png" again="$sandbox/valid-again.png"
  # The box: the field starts 200 units from the left and 50 from the top,
  # and its label takes the first third of its 550 units. Next is 80 by 30
  # units, 100 from the right and 50 from the bottom.
  local box next
  box=$(at "$window" 500 62)
  next=$(at "$window" "W - 60" "H - 35")
  xdotool mousemove --window "$window" $box click 1 >/dev/null 2>&1
  sleep 0.3
  xdotool key --window "$window" ctrl+a BackSpace >/dev/null 2>&1
  xdotool mousemove --window "$window" 1 1 >/dev/null 2>&1
  settle "$window" "$shot" || true
  cp -- "$shot" "$dir/$prefix-03b-options-invalid.png"
  echo "$prefix: $prefix-03b-options-invalid.png"
  if same_region "$options" "$shot" "$window" "W - 100" "H - 50" 80 30; then
    echo "$prefix: Next looks the same with an empty Destination folder" >&2
    return 1
  fi
  xdotool mousemove --window "$window" $box click 1 >/dev/null 2>&1
  sleep 0.3
  xdotool key --window "$window" ctrl+a BackSpace >/dev/null 2>&1
  xdotool type --window "$window" --delay 30 -- "$path" >/dev/null 2>&1
  # Home scrolls a path longer than the box back to its start; Tab takes
  # the focus, and with it the caret, out of the box and on to the browse
  # button. The box must then show the very pixels it showed at
  # first; the note on the refusal must be gone, and Next (without the
  # focus ring it had at first) must look otherwise than while it was grey.
  xdotool key --window "$window" Home Tab >/dev/null 2>&1
  xdotool mousemove --window "$window" 1 1 >/dev/null 2>&1
  settle "$window" "$again" || true
  if ! same_region "$options" "$again" "$window" 200 45 515 35; then
    echo "$prefix: the Destination folder does not show \"$path\" as at first" >&2
    return 1
  fi
  if same_region "$shot" "$again" "$window" "W - 100" "H - 50" 80 30 ||
    ! same_region "$options" "$again" "$window" 200 85 550 30; then
    echo "$prefix: the page did not turn valid again after typing \"$path\"" >&2
    return 1
  fi
  xdotool mousemove --window "$window" $next click 1 >/dev/null 2>&1
  xdotool mousemove --window "$window" 1 1 >/dev/null 2>&1
}

# drive_pages PREFIX WINDOW LOG [PATH]: saves each page of the window once
# it has settled, as DIR/PREFIX-NN-PAGE.png, and presses Return on it,
# until the window is gone. With PATH, the options page is pictured with
# an empty Destination folder too, and left with PATH typed back in.
# Fails if it is still there after 30 pages, or at once if the empty
# folder was not refused or the path did not come back.
drive_pages() {
  local prefix=$1 window=$2 log=$3 path=${4:-}
  local count=0 shot="$sandbox/shot.png" last="$sandbox/last.png" name file
  rm -f -- "$last"
  for _ in $(seq 1 30); do
    window_open "$window" || break
    name=$(page_name "$log")
    # A page that the walk left while it was pictured is pictured again once
    # it stands; pages that work or check go on by themselves (the demo has
    # no program running) and get no key, which would fall on the next page.
    if ! settle "$window" "$shot" || [ "$(page_name "$log")" != "$name" ]; then
      continue
    fi
    case "$name" in
      runningapps | uninstall | copyprogress | revertinstallation | registerapplication | postinstall)
        sleep 0.5
        continue
        ;;
    esac
    if ! cmp -s "$shot" "$last"; then
      count=$((count + 1))
      file=$(printf '%s/%s-%02d-%s.png' "$dir" "$prefix" "$count" "$name")
      cp -- "$shot" "$file"
      cp -- "$shot" "$last"
      echo "$prefix: $(basename "$file")"
      if [ -n "$path" ] && [ "$name" = options ]; then
        # Not driven further on a failure: the page's path is in doubt.
        invalid_input "$prefix" "$window" "$shot" "$path" || return 1
        path=""
        sleep 0.3
        continue
      fi
    fi
    window_open "$window" || break
    xdotool windowfocus --sync "$window" >/dev/null 2>&1 || true
    xdotool key --window "$window" Return >/dev/null 2>&1 || true
    sleep 0.3
  done
  if window_open "$window"; then
    echo "$prefix: the window is still open after 30 pages" >&2
    return 1
  fi
}

# shoot VARIANT: installs the VARIANT's installer through the window and
# saves a picture of each page; then removes the product through the
# registered uninstall command, whose window is pictured the same way.
# Fails unless the installer ends well on its last page with the product on
# disk, and the uninstaller takes it away again.
shoot() {
  local variant=$1 root="$sandbox/$1/root" temp="$sandbox/$1/tmp"
  local product="$sandbox/$1/root/opt/Qlux Demo"
  mkdir -p "$root/opt" "$root/etc" "$temp" "$temp-uninstall"
  printf '%s\n' 'PATH="/usr/bin:/bin"' >"$root/etc/environment"
  local log="$temp/installer_debug.log" good=0
  # The Destination folder as the wizard shows it. QLUX_ROOT moves only the
  # machine-wide places, so the folder is typed back with the sandbox's
  # path in front: a bare "/opt/..." would install outside the sandbox.
  local path="$product"

  QLUX_ROOT="$root" TMPDIR="$temp" "$sandbox/$variant-setup" -debug=1 </dev/null \
    >"$sandbox/$variant.out" 2>&1 &
  local pid=$! window
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "$variant: the wizard window did not appear" >&2
    good=1
  elif ! drive_pages "$variant" "$window" "$log" "$path"; then
    good=1
  fi
  if kill -0 "$pid" 2>/dev/null; then
    sleep 2
    kill "$pid" 2>/dev/null || true
  fi
  local status=0
  wait "$pid" || status=$?

  local lastPage
  lastPage=$(page_name "$log")
  if [ "$status" -ne 0 ]; then
    echo "$variant: the installer ended with status $status" >&2
    good=1
  fi
  if [ "$lastPage" != finish ]; then
    echo "$variant: the last page was \"$lastPage\", not Finish" >&2
    good=1
  fi
  if [ ! -x "$product/bin/qlux-demo" ]; then
    echo "$variant: the product is not on disk" >&2
    good=1
  fi
  # The path typed back is the one installed into, and nothing went
  # elsewhere on the way.
  if [ "$(ls -A "$root/opt")" != "Qlux Demo" ]; then
    echo "$variant: $root/opt holds $(ls -A "$root/opt" | tr '\n' ' ')" >&2
    good=1
  fi
  if ! grep -qx "Home=$path" "$product/etc/demo.ini" 2>/dev/null; then
    echo "$variant: etc/demo.ini does not name \"$path\" as the home" >&2
    good=1
  fi
  if [ "$good" -ne 0 ]; then
    sed "s/^/  $variant: /" "$sandbox/$variant.out" | tail -n 20 >&2
    return 1
  fi

  # The uninstaller, as the list of installed programs starts it: its first
  # stage starts the second from the temporary directory and ends.
  local values command
  values=$(find "$root/var/lib/qlux/registry" -path '*/CurrentVersion/Uninstall/*/.values' -print -quit)
  command=$(awk -F'\t' '$1 == "UninstallString" { print $3 }' "$values")
  (export QLUX_ROOT="$root" TMPDIR="$temp-uninstall" && eval "$command -debug=1" </dev/null \
    >"$sandbox/$variant-uninstall.out" 2>&1) || true
  window=$(find_window "Qlux Demo Uninstall")
  if [ -z "$window" ]; then
    echo "$variant: the uninstaller's window did not appear" >&2
    good=1
  elif ! drive_pages "$variant-uninstall" "$window" "$temp-uninstall/installer_debug.log"; then
    good=1
  fi
  for _ in $(seq 1 50); do
    [ -e "$product" ] || break
    sleep 0.1
  done
  if [ -e "$product" ]; then
    echo "$variant: the uninstaller left the product's folder" >&2
    good=1
  fi
  return "$good"
}

# copy_page NAME WINDOW LOG MARKER FILE: Return presses over the welcome
# page and the options; the shortcut MARKER is the last thing made before
# the slow program runs, and the copy page waits for it from then on. The
# page is pictured as FILE. Fails, without FILE, unless the debug log LOG
# says the copy page was up before and after the picture.
copy_page() {
  local name=$1 window=$2 log=$3 marker=$4 file=$5 page
  for _ in $(seq 1 50); do
    [ "$(page_name "$log")" = options ] && break
    xdotool windowfocus --sync "$window" >/dev/null 2>&1 || true
    xdotool key --window "$window" Return >/dev/null 2>&1 || true
    sleep 0.5
  done
  xdotool key --window "$window" Return >/dev/null 2>&1 || true
  for _ in $(seq 1 100); do
    [ -f "$marker" ] && break
    sleep 0.1
  done
  sleep 2
  page=$(page_name "$log")
  capture "$window" "$file" || true
  if [ "$page" != copyprogress ] || [ "$(page_name "$log")" != copyprogress ] || [ ! -s "$file" ]; then
    echo "$name: the copy page was not up to be pictured (the log says \"$page\")" >&2
    rm -f -- "$file"
    return 1
  fi
  echo "$name: $(basename "$file")"
}

# shoot_copy VARIANT: installs the VARIANT's slow installer and saves the
# copy page as DIR/VARIANT-03c-copy.png while its progress bar moves.
# Fails unless that page was up when pictured, and the installation ends
# well with the product on disk.
shoot_copy() {
  local variant=$1 root="$sandbox/$1-slow/root" temp="$sandbox/$1-slow/tmp"
  local product="$sandbox/$1-slow/root/opt/Qlux Demo" good=0
  mkdir -p "$root/opt" "$root/etc" "$temp"
  printf '%s\n' 'PATH="/usr/bin:/bin"' >"$root/etc/environment"
  local log="$temp/installer_debug.log" file="$dir/$variant-03c-copy.png"

  QLUX_ROOT="$root" TMPDIR="$temp" "$sandbox/$variant-slow-setup" -debug=1 </dev/null \
    >"$sandbox/$variant-slow.out" 2>&1 &
  local pid=$! window
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "$variant: the slow installer's window did not appear" >&2
    good=1
  else
    copy_page "$variant" "$window" "$log" "$product/shortcuts/Qlux Demo.desktop" "$file" || good=1
    for _ in $(seq 1 120); do
      window_open "$window" || break
      xdotool windowfocus --sync "$window" >/dev/null 2>&1 || true
      xdotool key --window "$window" Return >/dev/null 2>&1 || true
      sleep 0.5
    done
  fi
  if kill -0 "$pid" 2>/dev/null; then
    sleep 2
    kill "$pid" 2>/dev/null || true
  fi
  local status=0
  wait "$pid" || status=$?
  if [ "$status" -ne 0 ] || [ "$(page_name "$log")" != finish ]; then
    echo "$variant: the slow installation ended with status $status on \"$(page_name "$log")\"" >&2
    good=1
  fi
  if [ ! -f "$product/var/last-run.log" ]; then
    echo "$variant: the slow installation did not run the product's program" >&2
    good=1
  fi
  if [ "$good" -ne 0 ]; then
    sed "s/^/  $variant: /" "$sandbox/$variant-slow.out" | tail -n 20 >&2
  fi
  return "$good"
}

# shoot_failure VARIANT: installs the VARIANT's installer into a folder
# where a file stands in the way of the documentation's folder, pictures
# every page as DIR/VARIANT-failed-NN-PAGE.png (the page that names what
# failed, then the last page after the installation was undone), and fails
# unless the run ended on the last page with only that file left.
shoot_failure() {
  local variant=$1 root="$sandbox/$1-failed/root" temp="$sandbox/$1-failed/tmp"
  local product="$sandbox/$1-failed/root/opt/Qlux Demo" good=0 status=0 pid window
  mkdir -p "$root/etc" "$temp" "$product"
  printf '%s\n' 'PATH="/usr/bin:/bin"' >"$root/etc/environment"
  echo "in the way" >"$product/doc"
  QLUX_ROOT="$root" TMPDIR="$temp" "$sandbox/$variant-setup" -debug=1 </dev/null \
    >"$sandbox/$variant-failed.out" 2>&1 &
  pid=$!
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "$variant: the failing installer's window did not appear" >&2
    good=1
  elif ! drive_pages "$variant-failed" "$window" "$temp/installer_debug.log"; then
    good=1
  fi
  if kill -0 "$pid" 2>/dev/null; then
    sleep 2
    kill "$pid" 2>/dev/null || true
  fi
  wait "$pid" || status=$?
  if ! grep -q 'Setting dialog "BadFinish"' "$temp/installer_debug.log" ||
    [ "$(page_name "$temp/installer_debug.log")" != finish ] || [ "$(ls -A "$product")" != doc ]; then
    echo "$variant: the failing installation ended with status $status on" \
      "\"$(page_name "$temp/installer_debug.log")\", leaving $(ls -A "$product" | tr '\n' ' ')" >&2
    good=1
  fi
  return "$good"
}

# --- The Windows program under Wine -------------------------------------
# Wine's windows are X windows on the same display, pictured and driven as
# above. The prefix is the sandbox's own; every Wine command runs with the
# same TMPDIR, where Wine keeps its server's socket, or a second server
# would start on the prefix.
wine_prefix="$sandbox/wine"
wine_tmp="$sandbox/wine-tmp"
runwine() { WINEPREFIX="$wine_prefix" TMPDIR="$wine_tmp" WINEDEBUG=-all /usr/lib/wine/wine64 "$@"; }
# wine_settle: waits until every process of the prefix has ended.
wine_settle() { WINEPREFIX="$wine_prefix" TMPDIR="$wine_tmp" timeout 120 /usr/lib/wine/wineserver64 -w; }

# win_pack NAME TEMPLATE [slow | LICENCE]: the Windows installer of the
# demo with TEMPLATE (and LICENCE as its licence), as
# $sandbox/win-NAME-setup.exe. Its default folder lies in the sandbox
# ($sandbox/win-NAME/Qlux Demo, which Wine shows under Z:). With "slow",
# the product's command script first waits until the file
# $sandbox/win-release exists, so that the copy page, where the installer
# waits for it, stays up (Wine's cmd has no command that sleeps).
win_pack() {
  local source="$sandbox/win-$1-source" folder release
  folder=$(runwine winepath -w "$sandbox/win-$1" 2>/dev/null | tr -d '\r')
  folder="${folder//\\//}/Qlux Demo"
  cp -r "$top/examples/demo" "$source"
  sed -e "s|>\$PROGRAMFILES/Qlux Demo<|>$folder<|" "$2" >"$source/install.xml"
  if ! grep -qF ">$folder<" "$source/install.xml"; then
    echo "screenshots: $2 has no default folder to change" >&2
    return 1
  fi
  if [ "${3:-}" = slow ]; then
    release=$(runwine winepath -w "$sandbox/win-release" 2>/dev/null | tr -d '\r')
    { head -n 1 "$top/examples/demo/bin/qlux-demo.cmd"
      printf ':wait\r\nif not exist "%s" goto wait\r\n' "$release"
      tail -n +2 "$top/examples/demo/bin/qlux-demo.cmd"; } >"$source/bin/qlux-demo.cmd"
  elif [ -n "${3:-}" ]; then
    cp "$3" "$source/licence.rtf"
  fi
  cp "$win_setup" "$source/qlux-uninstall.exe"
  "$pack" --stub "$win_setup" --template "$source/install.xml" --source "$source" \
    -o "$sandbox/win-$1-setup.exe" >/dev/null
}

# win_shoot_copy VARIANT: as shoot_copy, with the slow Windows installer of
# VARIANT: DIR/win-VARIANT-03c-copy.png while the copy page waits for the
# command script. The installation is then removed unattended.
win_shoot_copy() {
  local variant=$1 product="$sandbox/win-$1-slow/Qlux Demo" good=0 pid window status=0
  local log="$win_temp/installer_debug.log" file="$dir/win-$1-03c-copy.png"
  rm -f -- "$sandbox/win-release"
  (cd "$sandbox" && runwine "$sandbox/win-$variant-slow-setup.exe" -debug=1 </dev/null \
    >"$sandbox/win-$variant-slow.out" 2>&1) &
  pid=$!
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "win-$variant: the slow installer's window did not appear" >&2
    good=1
  else
    copy_page "win-$variant" "$window" "$log" "$product/shortcuts/Qlux Demo.lnk" "$file" || good=1
    touch "$sandbox/win-release"
    for _ in $(seq 1 120); do
      window_open "$window" || break
      xdotool windowfocus --sync "$window" >/dev/null 2>&1 || true
      xdotool key --window "$window" Return >/dev/null 2>&1 || true
      sleep 0.5
    done
  fi
  touch "$sandbox/win-release"
  if kill -0 "$pid" 2>/dev/null; then
    sleep 2
    kill "$pid" 2>/dev/null || true
  fi
  wait "$pid" || status=$?
  wine_settle || true
  if [ "$status" -ne 0 ] || [ ! -f "$product/var/last-run.log" ]; then
    echo "win-$variant: the slow installation ended with status $status, product: $(ls "$product" 2>&1)" >&2
    good=1
  fi
  win_uninstall -gui=0 >"$sandbox/win-$variant-slow-uninstall.out" 2>&1
  wine_settle || true
  return "$good"
}

# win_uninstall [ARGS]: runs the registered uninstall command of the demo
# (of the product named $win_product), with ARGS behind it, through cmd as
# the list of installed programs does.
win_product="Qlux Demo"
win_uninstall() {
  local key="HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\$win_product" command
  command=$(runwine reg query "$key" /v UninstallString 2>/dev/null | tr -d '\r' |
    sed -n 's/^ *UninstallString *REG_SZ *//p')
  printf '@echo off\r\n%s %s\r\n' "$command" "$*" >"$sandbox/win-uninstall.bat"
  runwine cmd /c "$(runwine winepath -w "$sandbox/win-uninstall.bat" 2>/dev/null | tr -d '\r')" </dev/null || true
}

# win_shoot VARIANT: as shoot, for the Windows installer of VARIANT: every
# page of the installation through the window, as DIR/win-VARIANT-NN-PAGE.png,
# then every page of the removal through the registered uninstall command.
win_shoot() {
  local variant=$1 product="$sandbox/win-$1/Qlux Demo" good=0 pid window status=0
  local log="$win_temp/installer_debug.log"
  (cd "$sandbox" && runwine "$sandbox/win-$variant-setup.exe" -debug=1 </dev/null \
    >"$sandbox/win-$variant.out" 2>&1) &
  pid=$!
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "win-$variant: the wizard window did not appear" >&2
    good=1
  elif ! drive_pages "win-$variant" "$window" "$log"; then
    good=1
  fi
  if kill -0 "$pid" 2>/dev/null; then
    sleep 2
    kill "$pid" 2>/dev/null || true
  fi
  wait "$pid" || status=$?
  wine_settle || true
  if [ "$status" -ne 0 ] || [ "$(page_name "$log")" != finish ] || [ ! -f "$product/bin/qlux-demo.cmd" ]; then
    echo "win-$variant: ended with status $status on \"$(page_name "$log")\", product: $(ls "$product" 2>&1)" >&2
    sed "s/^/  win-$variant: /" "$sandbox/win-$variant.out" | tail -n 20 >&2
    return 1
  fi

  win_uninstall -debug=1 >"$sandbox/win-$variant-uninstall.out" 2>&1
  window=$(find_window "Qlux Demo Uninstall")
  if [ -z "$window" ]; then
    echo "win-$variant: the uninstaller's window did not appear" >&2
    good=1
  elif ! drive_pages "win-$variant-uninstall" "$window" "$log"; then
    good=1
  fi
  wine_settle || true
  if [ -e "$product" ]; then
    echo "win-$variant: the uninstaller left the product's folder" >&2
    good=1
  fi
  return "$good"
}

# win_shoot_failure: as shoot_failure, with the plain Windows installer
# (packed as "failed"): a file stands where the documentation's folder
# belongs; every page is pictured as DIR/win-failed-NN-PAGE.png. Fails
# unless the run ended on the last page with only that file left.
win_shoot_failure() {
  local product="$sandbox/win-failed/Qlux Demo" good=0 pid window status=0
  local log="$win_temp/installer_debug.log"
  mkdir -p "$product"
  echo "in the way" >"$product/doc"
  rm -f -- "$log"
  (cd "$sandbox" && runwine "$sandbox/win-failed-setup.exe" -debug=1 </dev/null \
    >"$sandbox/win-failed.out" 2>&1) &
  pid=$!
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "win-failed: the failing installer's window did not appear" >&2
    good=1
  elif ! drive_pages "win-failed" "$window" "$log"; then
    good=1
  fi
  if kill -0 "$pid" 2>/dev/null; then
    sleep 2
    kill "$pid" 2>/dev/null || true
  fi
  wait "$pid" || status=$?
  wine_settle || true
  if ! grep -q 'Setting dialog "BadFinish"' "$log" || [ "$(page_name "$log")" != finish ] ||
    [ "$(ls -A "$product")" != doc ]; then
    echo "win-failed: the failing installation ended with status $status on" \
      "\"$(page_name "$log")\", leaving $(ls -A "$product" | tr '\n' ' ')" >&2
    good=1
  fi
  return "$good"
}

# win_all: a fresh prefix, the three variants through the Windows window, and
# the message box of an installer whose checksum fails, pictured by the
# Windows end-to-end test as DIR/win-checksum-message.png.
win_all() {
  mkdir -p "$wine_prefix" "$wine_tmp"
  if ! runwine wineboot -i >/dev/null 2>&1; then
    echo "screenshots: wineboot failed" >&2
    return 1
  fi
  wine_settle || true
  local good=0
  win_temp=$(runwine winepath -u "$(runwine cmd /c 'echo %TEMP%' 2>/dev/null | tr -d '\r')" 2>/dev/null | tr -d '\r')
  win_pack plain "$top/examples/demo/install.xml" || return 1
  win_pack themed "$top/examples/demo/install-themed.xml" || return 1
  win_pack plain-slow "$top/examples/demo/install.xml" slow || return 1
  win_pack themed-slow "$top/examples/demo/install-themed.xml" slow || return 1
  win_pack german "$sandbox/german.xml" "$top/tests/data/german/licence-de.rtf" || return 1
  win_pack failed "$top/examples/demo/install.xml" || return 1
  win_shoot plain || good=1
  win_shoot themed || good=1
  win_product=$(sed -n 's|.*<Fullname>\(.*\)</Fullname>.*|\1|p' "$sandbox/german.xml")
  win_shoot german || good=1
  win_product="Qlux Demo"
  win_shoot_copy plain || good=1
  win_shoot_copy themed || good=1
  win_shoot_failure || good=1
  if ! QLUX_SHOTS_DIR="$dir" WINEPREFIX="$wine_prefix" TMPDIR="$wine_tmp" \
    bash "$top/tests/windows_gui_test.sh" "$win_setup" "$pack" >"$sandbox/win-test.out" 2>&1; then
    echo "screenshots: the Windows window's end-to-end test failed:" >&2
    grep -E 'FAILED|passed' "$sandbox/win-test.out" >&2 || true
    good=1
  fi
  [ -s "$dir/win-checksum-message.png" ] && echo "win: win-checksum-message.png"
  return "$good"
}

pack_variant plain "$top/examples/demo/install.xml"
pack_variant themed "$top/examples/demo/install-themed.xml"
sed -f "$top/tests/data/german/demo.sed" "$top/examples/demo/install.xml" >"$sandbox/german.xml"
pack_variant german "$sandbox/german.xml" "$top/tests/data/german/licence-de.rtf"
pack_slow plain "$top/examples/demo/install.xml"
pack_slow themed "$top/examples/demo/install-themed.xml"
result=0
shoot plain || result=1
shoot_copy plain || result=1
shoot_failure plain || result=1
shoot themed || result=1
shoot_copy themed || result=1
shoot_failure themed || result=1
shoot german || result=1
win_all || result=1
[ "$result" -eq 0 ] && echo "pictures of both installations are in $dir"
exit "$result"
