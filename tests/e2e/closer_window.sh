#!/usr/bin/env bash
# TvAppsClose's progress window on Linux, as a user sees it: in Xvfb with zenity, applications
# from the suite that take seconds to close (window_app --close-delay) and one that ignores the
# request; a fast close shows no window, the countdown names the slow ones, "Close now" after
# its confirmation ends them, "Cancel" stops and the count is right; in a terminal (tmux) the
# line redrawn in place. Screenshots and the terminal's text land in build/artifacts/.
set -u
source "$(dirname "$0")/lib.sh"
in_xvfb "$@"

PORTABLE=build/native/portable
APP=build/native/bin/window_app
need "$PORTABLE/TvAppsClose/TvAppsClose" "$APP"
command -v zenity >/dev/null || give_up "zenity is missing"
command -v tmux >/dev/null || give_up "tmux is missing"

work=$(mktemp -d "${TMPDIR:-/tmp}/tveject-closer.XXXXXX") || exit 1
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -9 "$pid" 2>/dev/null; done
  tmux kill-session -t "tveject-closer-$$" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
TITLE="Closing applications"

# setup NAME MODE...: a fresh suite in $work/NAME with one application per MODE
# (quick…, slow…: 4 s to close, stubborn…: ignores the request), grace 8 s, English.
setup() {
  suite=$work/$1; shift
  mkdir -p "$suite/Apps"
  cp -R "$PORTABLE/." "$suite/"
  printf '<TvAppsClose><GraceSeconds>8</GraceSeconds><ForceClose>0</ForceClose></TvAppsClose>' \
    >"$suite/TvAppsClose/TvAppsClose.xml"
  printf '<TarvelUSBEject><UserLanguage/><Language file="TvEject_lng.xml">en</Language></TarvelUSBEject>' \
    >"$suite/TvEject/TvEject.xml"
  local mode args
  for mode in "$@"; do
    case $mode in slow*) args=(--close-delay 4000) ;; stubborn*) args=(--ignore-close) ;; *) args=() ;; esac
    cp "$APP" "$suite/Apps/$mode"
    "$suite/Apps/$mode" "${args[@]}" --ready "$suite/$mode.ready" --life 120 &
    pids+=($!)
    disown $!
    wait_for 10 test -e "$suite/$mode.ready"
  done
}
# closer: runs TvAppsClose /now /out in the background; sets $closer.
closer() { (cd "$suite" && exec ./TvAppsClose/TvAppsClose /now /out) & closer=$!; }
count() { cat "$suite/TvAppsClose/TvAppsClose.out" 2>/dev/null; }
window() { xdotool search --onlyvisible --name "$1" 2>/dev/null | tail -1; }
shown() { [ -n "$(window "$TITLE")" ]; }
boxed() { [ -n "$(window "$CAPTION")" ]; }
# click NAME X FROM_BOTTOM: a click in the window named NAME, placed from its left (from its
# right when X is negative) and bottom.
click() {
  local X Y WIDTH HEIGHT SCREEN WINDOW x=$2
  eval "$(xdotool getwindowgeometry --shell "$(window "$1")")"
  [ "$x" -lt 0 ] && x=$((WIDTH + x))
  xdotool mousemove $((X + x)) $((Y + HEIGHT - $3)) click 1
}

# A fast close: no window at all.
setup fast quick quick2
closer
seen=no
while running "$closer"; do shown && seen=yes; sleep 0.05; done
[ "$seen" = no ] && [ "$(count)" = 0 ] && check "fast close shows no window" ||
  check "fast close shows no window" "window seen: $seen, count $(count)"

# The countdown, then Cancel: stops at once, both slow ones counted.
setup cancel quick slow stubborn
closer
if wait_for 5 shown; then
  sleep 1
  import -window root "$ARTIFACTS/closer-linux-countdown.png"
  click "$TITLE" 156 25
  wait_for 6 ended "$closer"
  [ "$(count)" = 2 ] && check "Cancel stops and counts what runs" ||
    check "Cancel stops and counts what runs" "count $(count)"
else
  check "Cancel stops and counts what runs" "no window"
fi

# Close now, confirmed: nothing remains.
setup closenow slow stubborn
closer
if wait_for 5 shown; then
  click "$TITLE" 382 25
  if wait_for 5 boxed; then
    sleep 0.5
    import -window root "$ARTIFACTS/closer-linux-confirm.png"
    click "$CAPTION" -141 25  # OK, left of Cancel
  fi
  wait_for 8 ended "$closer"
  [ "$(count)" = 0 ] && check "Close now ends what is left after its confirmation" ||
    check "Close now ends what is left after its confirmation" "count $(count)"
else
  check "Close now ends what is left after its confirmation" "no window"
fi

# In a terminal without a desktop: the line redrawn in place, then what remains.
setup terminal stubborn
session=tveject-closer-$$
tmux new-session -d -s "$session" -x 150 -y 10 \
  "env -u DISPLAY -u WAYLAND_DISPLAY sh -c 'cd \"$suite\" && ./TvAppsClose/TvAppsClose /now /out; sleep 30'"
sleep 3
tmux capture-pane -p -t "$session" >"$ARTIFACTS/closer-terminal-countdown.txt"
wait_for 12 test -e "$suite/TvAppsClose/TvAppsClose.out"
sleep 0.5
tmux capture-pane -p -t "$session" >"$ARTIFACTS/closer-terminal-end.txt"
grep -q '\] Closing: stubborn ([0-9] s left)' "$ARTIFACTS/closer-terminal-countdown.txt" &&
  grep -q 'not closed: stubborn' "$ARTIFACTS/closer-terminal-end.txt" && [ "$(count)" = 1 ] &&
  check "terminal line counts down and names what remains" ||
  check "terminal line counts down and names what remains" "$(cat "$ARTIFACTS"/closer-terminal-*.txt)"

finish
