#!/usr/bin/env bash
# The real Windows message box under Wine in Xvfb: msgbox_demo.exe shows one box through
# MsgBox; the scenario finds the box by its caption, keeps a screenshot of it in
# build/artifacts/, answers with a key and checks the button code the program got back.
# Prints "N passed, N failed" as its last line; exits non-zero when a case failed.
set -u
source "$(dirname "$0")/../../scripts/lib.sh"
cd "$TVEJECT_ROOT"

# Everything below runs inside its own Xvfb display.
if [ -z "${TVEJECT_IN_XVFB:-}" ]; then
  exec xvfb-run -a -s "-screen 0 1024x768x24" env TVEJECT_IN_XVFB=1 bash "$0" "$@"
fi

DEMO=build/windows/bin/msgbox_demo.exe
ARTIFACTS=build/artifacts
mkdir -p "$ARTIFACTS"
passed=0
failed=0

if [ ! -f "$DEMO" ]; then
  echo "missing $DEMO: build the windows preset first"
  echo "0 passed, 1 failed"
  exit 1
fi
wine_env || { echo "no Wine prefix"; echo "0 passed, 1 failed"; exit 1; }

# The Windows form of an absolute Linux path (Wine's Z: drive is the Linux root).
winpath() { printf 'Z:%s' "$(realpath -m "$1" | tr / '\\')"; }

# wait_for SECONDS COMMAND...: retries COMMAND every 0.2 s until it succeeds or time runs out.
wait_for() {
  local limit=$(( $(date +%s) + $1 )); shift
  until "$@"; do
    [ "$(date +%s)" -ge "$limit" ] && return 1
    sleep 0.2
  done
}

# The standard deviation of the box's pixels in a screenshot: 0 for a box not drawn yet.
box_contrast() {
  local shot=$1 wid=$2 geometry
  geometry=$(xdotool getwindowgeometry --shell "$wid") || return 1
  eval "$geometry"
  convert "$shot" -crop "${WIDTH}x${HEIGHT}+${X}+${Y}" +repage -format '%[fx:standard_deviation]' info:
}

# run_case NAME FLAGS TITLE KEY EXPECTED [TEXT]: shows the box, answers with KEY, expects EXPECTED.
run_case() {
  local name=$1 flags=$2 title=$3 key=$4 expected=$5 text=${6:-Message box test}
  local out="$ARTIFACTS/wine-msgbox-$name.out" shot="$ARTIFACTS/wine-msgbox-$name.png"
  local caption=${title:-Tarvel USB Eject v2.0.12} wid="" contrast=0 answer="" why=""
  rm -f "$out" "$shot"
  "$WINE" "$DEMO" --out "$(winpath "$out")" --flags "$flags" --title "$title" --text "$text" \
    >"$ARTIFACTS/wine-msgbox-$name.log" 2>&1 &
  local pid=$!
  ended() { ! kill -0 "$pid" 2>/dev/null; }

  find_box() { wid=$(xdotool search --onlyvisible --name "^${caption}\$" 2>/dev/null | head -1); [ -n "$wid" ]; }
  if ! wait_for 60 find_box; then
    why="no window named \"$caption\" appeared"
  else
    timeout 10 xdotool windowactivate --sync "$wid" >/dev/null 2>&1 ||
      timeout 10 xdotool windowfocus --sync "$wid" >/dev/null 2>&1
    drawn() {
      import -window root "$shot" 2>/dev/null || return 1
      contrast=$(box_contrast "$shot" "$wid") || return 1
      awk -v c="$contrast" 'BEGIN { exit !(c > 0.02) }'
    }
    wait_for 20 drawn || why="the box stayed blank (contrast $contrast)"
    # The key goes to the focused window: Wine ignores synthetic events sent to a window.
    xdotool key "$key"
    if ! wait_for 20 ended; then
      why="${why:+$why; }the program did not end after $key"
    fi
    answer=$(tr -d '\r\n' <"$out" 2>/dev/null)
    [ "$answer" = "$expected" ] || why="${why:+$why; }answer \"$answer\", expected $expected"
  fi
  if ! ended; then
    kill "$pid" 2>/dev/null
    wait_for 5 ended || kill -9 "$pid" 2>/dev/null
  fi
  wait "$pid" 2>/dev/null
  if [ -z "$why" ]; then
    passed=$((passed + 1))
    echo "PASS $name: $key -> $answer (screenshot $shot, contrast $contrast)"
  else
    failed=$((failed + 1))
    echo "FAIL $name: $why"
  fi
}

run_case ok-return 0 "" Return 1
run_case okcancel-info-return 65 "" Return 1 "Éjecter le disque « USB » maintenant ?"
run_case okcancel-escape 1 "Confirm eject" Escape 2
run_case error-return 16 "" Return 1 "Erreur en exécutant le programme de fermeture des applications"
run_case yesno-return 36 "Question" Return 6

"$WINESERVER" -k 2>/dev/null
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
