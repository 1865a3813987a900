#!/usr/bin/env bash
# make-images.sh: draws the demo's pictures with ImageMagick into the folder
# of this script: the banner in the left column of the wizard's pages, the
# five task icons of the task list (18 by 18, transparent around the shape,
# in the order of the task states) and the frame's icon. The PNG files are
# kept in the source tree; run this only to draw them anew.
set -euo pipefail
cd "$(dirname "$0")"

# PNG output without time stamps, so that drawing again gives the same bytes.
save() {  # save OUTPUT CONVERT-ARGS...: runs convert and writes OUTPUT reproducibly
  local out=$1
  shift
  convert "$@" -strip -define png:exclude-chunks=date,time "PNG32:$out"
}
font=DejaVu-Sans-Bold

# Banner, 180 by 120: a blue gradient with the product's mark and name.
save banner.png -size 180x120 gradient:'#1d4f91-#4a90d9' \
  -fill '#ffffff' -stroke none -draw 'roundrectangle 14,18 62,66 10,10' \
  -fill '#1d4f91' -draw 'circle 38,42 38,28' -fill '#ffffff' -draw 'circle 38,42 38,35' \
  -fill '#ffffff' -font "$font" -pointsize 22 -annotate +72+50 'Qlux' \
  -font DejaVu-Sans -pointsize 13 -annotate +72+68 'Demo 1.2' \
  -fill '#dbe8f7' -pointsize 11 -annotate +14+102 'Setup wizard'

# Task icons, 18 by 18, drawn on a transparent ground.
icon() {  # icon NAME DRAW-ARGS...
  local name=$1
  shift
  save "$name.png" -size 18x18 xc:none -strokewidth 2 "$@"
}
icon icon_not_started -fill none -stroke '#8a8a8a' -draw 'circle 9,9 9,3'
icon icon_current -fill '#2f74c0' -stroke none -draw 'polygon 5,3 15,9 5,15'
icon icon_good_finish -fill none -stroke '#2e9b3a' -strokewidth 3 -draw 'polyline 3,9 7,14 15,4'
icon icon_bad_finish -fill none -stroke '#c8322b' -strokewidth 3 -draw 'line 4,4 14,14' -draw 'line 14,4 4,14'
icon icon_inactive -fill none -stroke '#c6c6c6' -draw 'line 4,9 14,9'

# The frame's icon, 32 by 32: the product's mark.
save app-icon.png -size 32x32 xc:none -stroke none \
  -fill '#1d4f91' -draw 'roundrectangle 1,1 30,30 7,7' \
  -fill '#ffffff' -draw 'circle 16,16 16,6' -fill '#1d4f91' -draw 'circle 16,16 16,11' \
  -fill '#ffffff' -draw 'polygon 18,18 27,27 23,28 17,22'
