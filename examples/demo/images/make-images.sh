#!/usr/bin/env bash
# make-images.sh: draws the demo's pictures with ImageMagick into the folder
# of this script: the banner in the left column of the wizard's pages, the
# five task icons of the task list (18 by 18, transparent around the shape,
# in the order of the task states) and the frame's icon. Each is drawn
# twice: at its size, and at twice its size as NAME@2x.png, which the window
# takes on a screen that draws its text twice as large. The PNG files are
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

# draw SCALE SUFFIX: every picture at SCALE times its size, as NAME$SUFFIX.png.
# The shapes (and their lines' widths) are given at the 1x size and scaled
# by the drawing itself; the letters are scaled by hand.
draw() {
  local k=$1 suffix=$2
  # Banner, 180 by 120: a blue gradient with the product's mark and name.
  save "banner$suffix.png" -size $((180 * k))x$((120 * k)) gradient:'#1d4f91-#4a90d9' \
    -fill '#ffffff' -stroke none -draw "scale $k,$k roundrectangle 14,18 62,66 10,10" \
    -fill '#1d4f91' -draw "scale $k,$k circle 38,42 38,28" -fill '#ffffff' -draw "scale $k,$k circle 38,42 38,35" \
    -fill '#ffffff' -font "$font" -pointsize $((22 * k)) -annotate +$((72 * k))+$((50 * k)) 'Qlux' \
    -font DejaVu-Sans -pointsize $((13 * k)) -annotate +$((72 * k))+$((68 * k)) 'Demo 1.2' \
    -fill '#dbe8f7' -pointsize $((11 * k)) -annotate +$((14 * k))+$((102 * k)) 'Setup wizard'

  # Task icons, 18 by 18, drawn on a transparent ground.
  icon() {  # icon NAME STROKE-WIDTH DRAW-ARGS...
    local name=$1 width=$2
    shift 2
    save "$name$suffix.png" -size $((18 * k))x$((18 * k)) xc:none -strokewidth "$width" "$@"
  }
  icon icon_not_started 2 -fill none -stroke '#8a8a8a' -draw "scale $k,$k circle 9,9 9,3"
  icon icon_current 2 -fill '#2f74c0' -stroke none -draw "scale $k,$k polygon 5,3 15,9 5,15"
  icon icon_good_finish 3 -fill none -stroke '#2e9b3a' -draw "scale $k,$k polyline 3,9 7,14 15,4"
  icon icon_bad_finish 3 -fill none -stroke '#c8322b' -draw "scale $k,$k line 4,4 14,14" \
    -draw "scale $k,$k line 14,4 4,14"
  icon icon_inactive 2 -fill none -stroke '#c6c6c6' -draw "scale $k,$k line 4,9 14,9"

  # The frame's icon, 32 by 32: the product's mark.
  save "app-icon$suffix.png" -size $((32 * k))x$((32 * k)) xc:none -stroke none \
    -fill '#1d4f91' -draw "scale $k,$k roundrectangle 1,1 30,30 7,7" \
    -fill '#ffffff' -draw "scale $k,$k circle 16,16 16,6" -fill '#1d4f91' -draw "scale $k,$k circle 16,16 16,11" \
    -fill '#ffffff' -draw "scale $k,$k polygon 18,18 27,27 23,28 17,22"
}
draw 1 ""
draw 2 "@2x"
