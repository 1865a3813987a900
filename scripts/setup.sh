#!/usr/bin/env bash
# Installs the Debian packages that building and testing qlux need.
# Idempotent: when every package is already there it prints nothing and
# returns at once.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config googletest zlib1g-dev libdeflate-dev libexpat1-dev
  g++-mingw-w64-x86-64-posix mingw-w64-tools libz-mingw-w64-dev
  wine64
  libwxgtk3.2-dev libpng-dev libjpeg-dev imagemagick
  xvfb xauth xdotool tesseract-ocr inotify-tools
  clang libclang-rt-dev
  python3 python3-pefile osslsigncode openssl
  time
  ansible-core ansible
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "setup: done"
