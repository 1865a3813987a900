#!/usr/bin/env bash
# make-icon.sh: draws the Windows program's icon with ImageMagick into
# qlux-setup.ico beside this script: a package (a box) with an arrow going
# into it, at the sizes that Explorer, the task bar and the elevation
# prompt ask for. The .ico is kept in the source tree; run this only to draw
# it anew.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One picture of 256 by 256, scaled down for the smaller sizes.
convert -size 256x256 xc:none -stroke none \
  -fill '#1d4f91' -draw 'roundrectangle 16,16 240,240 44,44' \
  -fill '#f2c14e' -draw 'polygon 60,120 128,152 196,120 196,200 128,232 60,200' \
  -fill '#d9a22e' -draw 'polygon 128,152 196,120 196,200 128,232' \
  -fill '#ffffff' -draw 'polygon 108,28 148,28 148,92 176,92 128,140 80,92 108,92' \
  -strip "PNG32:$work/big.png"
sizes=()
for size in 16 20 24 32 40 48 64 256; do
  convert "$work/big.png" -filter Lanczos -resize "${size}x${size}" -strip "PNG32:$work/$size.png"
  sizes+=("$work/$size.png")
done
convert "${sizes[@]}" qlux-setup.ico
