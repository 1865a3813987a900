#!/usr/bin/env bash
# with_display.sh COMMAND [ARGS...]: runs COMMAND with DISPLAY set to a
# private X server (Xvfb on the first free display number, no TCP, a screen
# of QLUX_SCREEN_SIZE pixels, 1024x768 unless set), and stops the server
# afterwards. Returns COMMAND's exit status. Without Xvfb
# the command runs as it is, and tests that need a display skip.
set -u

if [ $# -eq 0 ]; then
  echo "usage: with_display.sh COMMAND [ARGS...]" >&2
  exit 2
fi

if ! command -v Xvfb >/dev/null 2>&1; then
  echo "with_display: Xvfb not found, running without a display" >&2
  exec "$@"
fi

# Xvfb picks the free display number itself and writes it to the file.
numberFile=$(mktemp "${TMPDIR:-/tmp}/qlux-display.XXXXXX") || exit 1
# In a test's read-only file system (tests/lib.sh) /tmp takes no lock file:
# the server's sockets alone keep display numbers apart there.
lock=()
[ -w /tmp ] || lock=(-nolock)
Xvfb -displayfd 3 -nolisten tcp "${lock[@]}" -screen 0 "${QLUX_SCREEN_SIZE:-1024x768}x24" 3>"$numberFile" 2>/dev/null &
server=$!

number=""
for _ in $(seq 1 100); do
  # The number is complete once its line end is written.
  if grep -q . "$numberFile" 2>/dev/null && [ "$(tail -c 1 "$numberFile" | od -An -c | tr -d ' ')" = '\n' ]; then
    number=$(tr -dc '0-9' <"$numberFile")
  fi
  [ -n "$number" ] && break
  kill -0 "$server" 2>/dev/null || break
  sleep 0.05
done
rm -f -- "$numberFile"

if [ -z "$number" ]; then
  echo "with_display: Xvfb did not start, running without a display" >&2
  kill "$server" 2>/dev/null
  wait "$server" 2>/dev/null
  exec "$@"
fi

DISPLAY=":$number" "$@"
status=$?
kill "$server" 2>/dev/null
wait "$server" 2>/dev/null
exit $status
