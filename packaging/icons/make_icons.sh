#!/usr/bin/env bash
# Draws the three programs' icons with ImageMagick and writes them as .ico files holding the
# sizes 16, 20, 24, 32, 40, 48, 64, 128 and 256 (the resource files build them into the .exe
# files). Each is drawn once at 256 pixels from the shapes below and scaled down; run it again
# after changing a shape, and commit the .ico files with it:  packaging/icons/make_icons.sh
#   TvEject        the stick with the eject sign
#   TvAppsClose    an application window being closed (its close cross), over the stick's blue
#   TvDiskEjector  the eject sign alone, on the drive's orange
set -eu
cd "$(dirname "$0")"
command -v convert >/dev/null || { echo "ImageMagick (convert) is needed" >&2; exit 1; }

# The eject sign (a triangle over a bar), white, centred at x=128 around y=$1.
eject() {
  local y=$1
  echo "fill white stroke none polygon 128,$((y - 44)) 184,$((y + 14)) 72,$((y + 14))" \
    "roundrectangle 72,$((y + 28)) 184,$((y + 48)) 6,6"
}

draw() {
  local name=$1; shift
  convert -size 256x256 xc:none "$@" -define icon:auto-resize=256,128,64,48,40,32,24,20,16 \
    "$name.ico"
}

# The stick: a connector (grey, with two contacts) above a rounded blue body.
draw TvEject \
  -draw "fill #9aa3ad roundrectangle 84,8 172,76 8,8" \
  -draw "fill #5b6570 rectangle 104,28 120,48 rectangle 136,28 152,48" \
  -draw "fill #1f5fbf roundrectangle 52,64 204,248 28,28" \
  -draw "$(eject 160)"

# A window: title bar, white content, and a red close cross in a circle over its corner.
draw TvAppsClose \
  -draw "fill #1f5fbf roundrectangle 12,28 228,220 18,18" \
  -draw "fill white rectangle 28,64 212,204" \
  -draw "fill #9aa3ad rectangle 44,84 180,96 rectangle 44,112 160,124 rectangle 44,140 172,152" \
  -draw "fill #d13438 stroke white stroke-width 8 circle 180,184 180,250" \
  -draw "stroke white stroke-width 18 stroke-linecap round line 156,160 204,208 line 204,160 156,208"

# The eject sign on an orange disc.
draw TvDiskEjector \
  -draw "fill #e07a10 circle 128,128 128,8" \
  -draw "$(eject 122)"
