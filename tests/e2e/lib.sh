# Shared by the end-to-end scenarios (sourced): the project's root and Wine settings, the
# pass/fail count and its closing "N passed, N failed" line, bounded waits, Xvfb, and the
# message boxes of a Windows program under Wine (found by caption, photographed once drawn,
# answered with a key).
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib.sh"
cd "$TVEJECT_ROOT" || exit 1

ARTIFACTS=build/artifacts
CAPTION="Tarvel USB Eject v2.0.12"
mkdir -p "$ARTIFACTS"
passed=0
failed=0
skipped=0

# check NAME WHY: a pass when WHY is "ok" (or empty), else a failure that says WHY.
check() {
  if [ "${2:-ok}" = ok ]; then
    passed=$((passed + 1)); echo "PASS $1"
  else
    failed=$((failed + 1)); echo "FAIL $1: $2"
  fi
}

# finish: the closing line the test command reads, and the exit status.
finish() {
  if [ "$skipped" -gt 0 ]; then
    echo "$passed passed, $failed failed, $skipped skipped"
  else
    echo "$passed passed, $failed failed"
  fi
  [ "$failed" -eq 0 ]
}

# give_up WHY: a scenario that cannot start counts one failure and ends.
give_up() {
  echo "$1"
  failed=$((failed + 1))
  finish
  exit 1
}

# need FILE...: gives up unless every FILE was built.
need() {
  local f
  for f in "$@"; do
    [ -e "$f" ] || give_up "missing $f: build the $( [[ $f == build/windows/* ]] && echo windows || echo native) preset first"
  done
}

# wait_for SECONDS COMMAND...: retries COMMAND every 0.1 s until it succeeds or time runs out.
wait_for() {
  local limit=$(($(date +%s%N) / 1000000 + $1 * 1000))
  shift
  until "$@"; do
    [ $(($(date +%s%N) / 1000000)) -ge "$limit" ] && return 1
    sleep 0.1
  done
}

# running PID: true while PID runs (a zombie has ended).
running() { kill -0 "$1" 2>/dev/null && [ "$(awk '{print $3}' "/proc/$1/stat" 2>/dev/null)" != Z ]; }
ended() { ! running "$1"; }

# The Windows form of an absolute Linux path (Wine's Z: drive is the Linux root).
winpath() { printf 'Z:%s' "$(realpath -m "$1" | tr / '\\')"; }

# in_xvfb "$@": runs the calling script again inside its own Xvfb display, once.
in_xvfb() {
  [ -n "${TVEJECT_IN_XVFB:-}" ] && return 0
  exec xvfb-run -a -s "-screen 0 1024x768x24" env TVEJECT_IN_XVFB=1 bash "$0" "$@"
}

# wine_up: the prefix, and one wineserver kept for the whole scenario (wineserver -p), so each
# program started does not wait for a server and its services to come up again. wine_down ends
# it with every Wine process.
wine_up() {
  wine_env || give_up "could not create the Wine prefix"
  "$WINESERVER" -p
}
wine_down() { "$WINESERVER" -k 2>/dev/null; }

# wine_scratch NAME: a new folder $work for a Wine scenario, and the programs it starts, listed
# in pids, ended with the Wine server when the scenario ends; the folder goes then too.
wine_scratch() {
  work=$(mktemp -d "${TMPDIR:-/tmp}/tveject-$1.XXXXXX") || exit 1
  pids=()
  trap 'for pid in "${pids[@]}"; do kill -9 "$pid" 2>/dev/null; done; wine_down; rm -rf "$work"' EXIT
}

# box_shot WID SHOT: a screenshot of window WID alone in SHOT; prints the standard deviation of
# its pixels (0 for a box not drawn yet) and a signature of the picture.
box_shot() {
  local WIDTH HEIGHT X Y SCREEN WINDOW
  eval "$(timeout 5 xdotool getwindowgeometry --shell "$1" 2>/dev/null)" && [ -n "${WIDTH:-}" ] || return 1
  timeout 10 import -window root -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage "$2" 2>/dev/null &&
    identify -format '%[fx:standard_deviation] %#\n' "$2" 2>/dev/null
}

# find_box [NOT_WID]: sets WID to a visible window named CAPTION other than NOT_WID.
find_box() {
  WID=$(timeout 5 xdotool search --onlyvisible --name "^${CAPTION}\$" 2>/dev/null | grep -vx "${1:-none}" | head -1)
  [ -n "$WID" ]
}

# answer_box SHOT KEY [NOT_WID] [SECONDS]: waits (SECONDS, 60) for a box named CAPTION other than
# NOT_WID, keeps a screenshot of it in SHOT once it is drawn, and answers it with KEY. Sets WID;
# returns non-zero with the reason in WHY.
answer_box() {
  local shot=$1 key=$2 not=${3:-} contrast=0 before="" now=""
  WHY=""
  if ! wait_for "${4:-60}" find_box "$not"; then
    WHY="no window named \"$CAPTION\" appeared"
    return 1
  fi
  # The key goes to the window Wine holds active: Wine ignores synthetic events sent to a window,
  # and without a window manager it makes a box active only when it is clicked (a box that comes
  # up after another one closed would otherwise never get the key). The click lands in the
  # box's corner, on no button, and before the screenshot, which then shows the active box.
  activate() { timeout 5 xdotool mousemove --window "$WID" 3 3 click 1 >/dev/null 2>&1; }
  activate
  # Drawn: not blank, and the same picture twice in a row (the click's redraw is over).
  local last=""
  drawn() {
    read -r contrast before < <(box_shot "$WID" "$shot") || return 1
    [ "$before" = "$last" ] && awk -v c="$contrast" 'BEGIN { exit !(c > 0.02) }' && return 0
    last=$before
    return 1
  }
  if ! wait_for 20 drawn; then
    WHY="the box stayed blank (contrast $contrast)"
    return 1
  fi
  # The next box of the same program may come up in the same X window (Xlib hands freed ids out
  # again), so a box also counts as answered when what the window shows has changed.
  closed() { ! timeout 5 xdotool search --onlyvisible --name "^${CAPTION}\$" 2>/dev/null | grep -qx "$WID"; }
  gone() {
    wait_for 1 closed && return 0
    read -r _ now < <(box_shot "$WID" "$shot.now.png") || return 0
    [ -n "$now" ] && [ "$now" != "$before" ]
  }
  local try
  for try in 1 2 3; do
    [ "$try" -gt 1 ] && activate
    timeout 5 xdotool key "$key"
    if wait_for 10 gone; then
      rm -f "$shot.now.png"
      return 0
    fi
  done
  rm -f "$shot.now.png"
  WHY="the box stayed after $key, pressed three times"
  return 1
}
