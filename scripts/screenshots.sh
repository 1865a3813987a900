#!/usr/bin/env bash
# screenshots.sh DIR: pictures of every page of the demo's wizard window.
# Installs what it needs (scripts/setup.sh), builds the native programs,
# packs examples/demo twice, with the plain template and with the themed
# one (install-themed.xml), and installs each through the window on a
# private X server (Xvfb). Every installation runs in a fresh sandbox:
# QLUX_ROOT and TMPDIR point into one temporary directory, removed at the
# end. The window is driven page by page with Return presses (the page's
# default button); each page is saved once it has settled, as
# DIR/plain-01-welcome.png, DIR/themed-01-welcome.png and so on, named
# after the page that the installer's debug log says it shows. Then the
# registered uninstall command removes each installation through its
# window, pictured as DIR/plain-uninstall-01-....png and so on.
#
# Exits 0 only if both installations reached the last page and left the
# product on disk, and both uninstallations took it away again. QLUX_BUILD_DIR picks another build directory than build/.
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
  exec "$top/tests/with_display.sh" bash "$0" --drive "$dir" "$build"
fi

dir=$2
build=$3
setup="$build/bin/qlux-setup"
pack="$build/bin/qlux-pack"
if [ -z "${DISPLAY:-}" ]; then
  echo "screenshots: no display (is Xvfb installed?)" >&2
  exit 1
fi

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qlux-screens.XXXXXX")
cleanup() {
  cd /
  if [ -n "$sandbox" ] && [ -d "$sandbox" ]; then rm -rf -- "$sandbox"; fi
}
trap cleanup EXIT
cd "$sandbox"

# pack_variant NAME TEMPLATE: an installer of the demo whose template is
# TEMPLATE; the copy of the product's files holds it as install.xml, so that
# the installed copy of the template is the packed one.
pack_variant() {
  local source="$sandbox/$1-source"
  cp -r "$top/examples/demo" "$source"
  cp "$2" "$source/install.xml"
  cp "$setup" "$source/qlux-uninstall.exe"
  "$pack" --stub "$setup" --template "$source/install.xml" --source "$source" \
    -o "$sandbox/$1-setup" >/dev/null
}

# capture WINDOW FILE: the window's picture as a PNG file.
capture() {
  import -window "$1" "png:$2" 2>/dev/null
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

# find_window: the id of the wizard's frame, waiting up to ten seconds.
find_window() {
  local window=""
  for _ in $(seq 1 100); do
    window=$(xdotool search --name "Qlux Demo Setup" 2>/dev/null | head -n 1)
    [ -n "$window" ] && break
    sleep 0.1
  done
  echo "$window"
}

# drive_pages PREFIX WINDOW LOG: saves each page of the window once it has
# settled, as DIR/PREFIX-NN-PAGE.png, and presses Return on it, until the
# window is gone. Fails if it is still there after 30 pages.
drive_pages() {
  local prefix=$1 window=$2 log=$3
  local count=0 shot="$sandbox/shot.png" last="$sandbox/last.png" name file
  rm -f -- "$last"
  for _ in $(seq 1 30); do
    window_open "$window" || break
    if settle "$window" "$shot" && ! cmp -s "$shot" "$last"; then
      count=$((count + 1))
      name=$(page_name "$log")
      file=$(printf '%s/%s-%02d-%s.png' "$dir" "$prefix" "$count" "$name")
      cp -- "$shot" "$file"
      cp -- "$shot" "$last"
      echo "$prefix: $(basename "$file")"
    fi
    window_open "$window" || break
    xdotool windowfocus --sync "$window" >/dev/null 2>&1 || true
    xdotool key --window "$window" Return >/dev/null 2>&1 || true
    sleep 0.3
  done
  ! window_open "$window"
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

  QLUX_ROOT="$root" TMPDIR="$temp" "$sandbox/$variant-setup" -debug=1 </dev/null \
    >"$sandbox/$variant.out" 2>&1 &
  local pid=$! window
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "$variant: the wizard window did not appear" >&2
    good=1
  elif ! drive_pages "$variant" "$window" "$log"; then
    echo "$variant: the window is still open after 30 pages" >&2
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
  if [ "$lastPage" != postinstall ]; then
    echo "$variant: the last page was \"$lastPage\", not PostInstall" >&2
    good=1
  fi
  if [ ! -x "$product/bin/qlux-demo" ]; then
    echo "$variant: the product is not on disk" >&2
    good=1
  fi
  if [ "$good" -ne 0 ]; then
    sed "s/^/  $variant: /" "$sandbox/$variant.out" | tail -n 20 >&2
    return 1
  fi

  # The uninstaller, as the list of installed programs starts it: its first
  # stage starts the second from the temporary directory and ends.
  local values command
  values=$(find "$root/var/lib/qlux/registry" -path '*/CurrentVersion/Uninstall/Qlux Demo/.values' -print -quit)
  command=$(awk -F'\t' '$1 == "UninstallString" { print $3 }' "$values")
  (export QLUX_ROOT="$root" TMPDIR="$temp-uninstall" && eval "$command -debug=1" </dev/null \
    >"$sandbox/$variant-uninstall.out" 2>&1) || true
  window=$(find_window)
  if [ -z "$window" ]; then
    echo "$variant: the uninstaller's window did not appear" >&2
    good=1
  elif ! drive_pages "$variant-uninstall" "$window" "$temp-uninstall/installer_debug.log"; then
    echo "$variant: the uninstaller's window is still open after 30 pages" >&2
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

pack_variant plain "$top/examples/demo/install.xml"
pack_variant themed "$top/examples/demo/install-themed.xml"
result=0
shoot plain || result=1
shoot themed || result=1
[ "$result" -eq 0 ] && echo "pictures of both installations are in $dir"
exit "$result"
