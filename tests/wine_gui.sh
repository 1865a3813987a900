#!/usr/bin/env bash
# wine_gui.sh EXE [ARGS...]: runs a Windows program that makes windows under
# Wine, on a private display (tests/with_display.sh). Wine's desktop belongs
# to the display that the prefix's server started with: a server that other
# tests started without a display must be gone first, so this waits for it
# (ctest runs such a test alone), and the program starts a fresh one.
here=$(cd "$(dirname "$0")" && pwd)
/usr/lib/wine/wineserver64 -w
exec "$here/with_display.sh" /usr/lib/wine/wine64 "$@"
