#!/usr/bin/env bash
# TvAppsClose's progress window under Wine in Xvfb (a task dialog), with applications of the
# suite that take seconds to close (window_app --close-delay), one that ignores the close and a
# windowless one (a tray application, asked through its hidden window): the countdown names them
# (screenshot), "Cancel" stops with the count right, and "Close now" after its confirmation ends
# what is left. Screenshots land in build/artifacts/. Prints "N passed, N failed" last.
set -u
source "$(dirname "$0")/lib.sh"
in_xvfb "$@"

PORTABLE=build/windows/portable
APP=build/windows/bin/window_app.exe
need "$PORTABLE/TvAppsClose/TvAppsClose.exe" "$APP"
wine_up

wine_scratch wine-closer
TITLE="Closing applications"
export TVEJECT_LOG

# setup NAME MODE...: a fresh suite in $work/NAME with one application per MODE (slow: 5 s to
# close, stubborn: ignores the request, tray: no visible window), grace 12 s, English.
setup() {
  suite=$work/$1; shift
  mkdir -p "$suite/Apps"
  cp -R "$PORTABLE/." "$suite/"
  printf '<TvAppsClose><GraceSeconds>12</GraceSeconds><ForceClose>0</ForceClose></TvAppsClose>' \
    >"$suite/TvAppsClose/TvAppsClose.xml"
  printf '<TarvelUSBEject><UserLanguage/><Language file="TvEject_lng.xml">en</Language></TarvelUSBEject>' \
    >"$suite/TvEject/TvEject.xml"
  TVEJECT_LOG=$(winpath "$suite/log.txt")
  local mode args
  for mode in "$@"; do
    case $mode in slow) args=(--close-delay 5000) ;; stubborn) args=(--ignore-close) ;; tray) args=(--windowless) ;; esac
    cp "$APP" "$suite/Apps/$mode.exe"
    "$WINE" "$suite/Apps/$mode.exe" "${args[@]}" --ready "$(winpath "$suite/$mode.ready")" --life 120 >/dev/null 2>&1 &
    pids+=($!)
    disown $!
    wait_for 60 test -f "$suite/$mode.ready"
  done
}
closer() { "$WINE" "$suite/TvAppsClose/TvAppsClose.exe" /now /out >/dev/null 2>&1 & closer=$!; pids+=($closer); }
count() { cat "$suite/TvAppsClose/TvAppsClose.out" 2>/dev/null; }
dialog() { DLG=$(xdotool search --onlyvisible --name "^$TITLE\$" 2>/dev/null | head -1); [ -n "$DLG" ]; }
# press FROM_RIGHT FROM_BOTTOM: a click on the dialog's button at that place.
press() {
  local X Y WIDTH HEIGHT SCREEN WINDOW
  eval "$(xdotool getwindowgeometry --shell "$DLG")"
  xdotool mousemove $((X + WIDTH - $1)) $((Y + HEIGHT - $2)) click 1
}

# The countdown names all three; Cancel stops at once and counts what still runs.
setup cancel slow stubborn tray
closer
if wait_for 30 dialog; then
  sleep 2
  import -window root "$ARTIFACTS/wine-closer-countdown.png"
  press 48 17  # Cancel
  wait_for 15 ended "$closer"
  import -window root "$ARTIFACTS/wine-closer-after-cancel.png"
  why=""
  grep -q 'Cancel pressed' "$suite/log.txt" || why="$why Cancel was not seen;"
  [ "$(count)" = 2 ] || why="$why count $(count), expected 2 (slow and stubborn);"
  grep -q 'Asked to close: .*tray.exe' "$suite/log.txt" || why="$why the tray application was not asked;"
  check "wine: Cancel stops and counts what runs" "${why:-ok}"
else
  check "wine: Cancel stops and counts what runs" "no progress window"
fi

# Close now, then OK on its confirmation: nothing is left. The confirmation is owned by the
# dialog, so it opens above it even without a window manager.
setup closenow slow stubborn
closer
if wait_for 30 dialog; then
  sleep 1
  press 144 17  # Close now
  # The confirmation's default is Cancel: OK is one step back from it.
  if wait_for 20 find_box; then
    sleep 1
    box_shot "$WID" "$ARTIFACTS/wine-closer-confirm.png" >/dev/null
    import -window root "$ARTIFACTS/wine-closer-confirm-screen.png"
    timeout 5 xdotool mousemove --window "$WID" 3 3 click 1
    timeout 5 xdotool key shift+Tab Return
  fi
  wait_for 20 ended "$closer"
  why=""
  grep -q 'Close now pressed and confirmed' "$suite/log.txt" || why="$why not confirmed;"
  [ "$(count)" = 0 ] || why="$why count $(count), expected 0;"
  check "wine: Close now ends what is left after its confirmation" "${why:-ok}"
else
  check "wine: Close now ends what is left after its confirmation" "no progress window"
fi

finish
